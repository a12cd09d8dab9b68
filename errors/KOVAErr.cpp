// KOVAErr: the kernel's error class. It tells an error where its message texts
// (the kernel's string resources) and its help file are.
#include "kova/kernel.h"
#include "platform/Platform.hpp"

#include <cstring>

namespace {

kvClass KOVAErrClass = nullptr;
constexpr const char* helpFileName = "KOVAERR.HLP";

KV_METHOD_TABLE(kovaErrMethods,                                            //
                kova::method("getHelpFileName", 2, KV_METHOD_NO_INSTDATA), //
                kova::method("getModuleInstance", 0, KV_METHOD_NO_INSTDATA));
KV_EMPTY_METHOD_TABLE(kovaErrClassMethods);

} // namespace

// (buffer, length): at most `length` characters of the help file's name, and
// a terminator at `length`.
KV_METHOD_NO_DATA(KOVAErr, getHelpFileName) {
    (void)errSlot, (void)self;
    auto* buffer = reinterpret_cast<char*>(kvArgAt(args, 0));
    const auto length = static_cast<size_t>(kvArgAt(args, 1));
    if (!buffer) return 0;
    std::strncpy(buffer, helpFileName, length);
    buffer[length] = '\0';
    return 1;
}

KV_METHOD_NO_DATA(KOVAErr, getModuleInstance) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kvGetKOVAInstance());
}

KV_REGISTER(KOVAErr) {
    if (!kvRegisterClass("BaseError")) return nullptr;
    KOVAErrClass =
        kvAddClass("KOVAErr", "BaseError", 0, 0, kovaErrMethods.get(), kovaErrClassMethods.get());
    return KOVAErrClass;
}
