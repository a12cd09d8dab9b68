// A class library holding error texts for the error registry's tests,
// "ERRTEXTS.DLL": two error table resources (one by name and type name, one by
// number as user data) and the procedures ErrRegisterDLL calls. Its one class,
// ErrTexts, lets the library be loaded as a class library and shows which
// resource table the library's own code reaches by name.
#include "ErrorTexts.h"
#include "kova/errreg.h"
#include "kova/resources.h"

namespace {

constexpr char errorTable[] = ERRTEXTS_TABLE;

constexpr char libraryLines[] = "200 \"Scanner offline\" 8001\r\n"
                                "201 \"Lamp warming up\" 8002\r\n";

KV_METHOD_TABLE(errTextsMethods, kova::method("ownResourceName", 1));
KV_EMPTY_METHOD_TABLE(noMethods);

} // namespace

// (index): the name of a resource of the table this library reads by name:
// its own, whatever other modules export under that name.
KV_METHOD(ErrTexts, ownResourceName) {
    (void)errSlot, (void)self, (void)instData;
    return reinterpret_cast<kvResult>(kvModuleResources[kvArgAt(args, 0)].name);
}

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
    return kvAddClass("ErrTexts", "Object", 0, 0, errTextsMethods.get(), noMethods.get());
}

KV_MODULE_RESOURCES = {
    {"ERRTABLE", "ERRTEXTS", errorTable, sizeof errorTable - 1},
    // Stored as a C string: the terminating NUL ends the text.
    {KV_RT_RCDATA, KV_RESOURCE_ID(7), errorTable, sizeof errorTable},
    {nullptr, nullptr, nullptr, 0},
};
