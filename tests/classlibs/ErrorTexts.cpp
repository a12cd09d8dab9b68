// A class library holding error texts for the error registry's tests,
// "ERRTEXTS.DLL": two error table resources (one by name and type name, one by
// number as user data) and the procedures ErrRegisterDLL calls. Its one class,
// ErrTexts, exists so that the library can be loaded as a class library.
#include "ErrorTexts.h"
#include "kova/errreg.h"
#include "kova/resources.h"

namespace {

constexpr char errorTable[] = ERRTEXTS_TABLE;

constexpr char libraryLines[] = "200 \"Scanner offline\" 8001\r\n"
                                "201 \"Lamp warming up\" 8002\r\n";

KV_EMPTY_METHOD_TABLE(noMethods);

} // namespace

// Gives the library's error lines to ErrRegisterDLL.
extern "C" KV_EXPORT const char* errTextsLines(size_t* sizeOut) {
    *sizeOut = sizeof libraryLines - 1;
    return libraryLines;
}

// A procedure that has no lines to give.
extern "C" KV_EXPORT const char* errTextsNoLines(size_t* sizeOut) {
    *sizeOut = 0;
    return nullptr;
}

KV_REGISTER(ErrTexts) {
    return kvAddClass("ErrTexts", "Object", 0, 0, noMethods.get(), noMethods.get());
}

KV_MODULE_RESOURCES = {
    {"ERRTABLE", "ERRTEXTS", errorTable, sizeof errorTable - 1},
    // Stored as a C string: the terminating NUL ends the text.
    {KV_RT_RCDATA, KV_RESOURCE_ID(7), errorTable, sizeof errorTable},
    {nullptr, nullptr, nullptr, 0},
};
