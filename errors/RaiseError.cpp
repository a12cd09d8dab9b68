// Raising errors: Object's "error" and "errorSystem" (every class inherits
// them), kvMakeError for code without an object, and the kernel's own ways of
// leaving an error in a slot or discarding one. An error raised while another
// is being created is refused, so error creation can never recurse.
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <cstdio>

namespace {

bool creatingError = false; // set while an error object is being created

// Makes a KOVAErr from (source, number, message arguments); the message
// arguments travel as one slot.
kvObject newError(kvObject* errSlot, const char* source, int32_t number,
                  const kvArgs* messageArgs) {
    return kvNewObject(errSlot, "KOVAErr", source, number, messageArgs);
}

} // namespace

// (class name, number, message arguments...): leaves a new error in the
// caller's slot, stacked on the one already there; without a slot the error
// is made and deleted at once.
KV_METHOD(Object, error) {
    (void)self, (void)instData;
    if (creatingError) {
        kova::platform::messageBox("A system level KOVA error has occurred.  KOVA cannot recover.  "
                                   "Please terminate your application and restart.",
                                   kova::kernel::errorCaption, KV_MB_OK);
        return 0;
    }
    creatingError = true;
    const kvArgs messageArgs = kvArgsAfter(args, 2);
    const kvObject error = newError(errSlot, reinterpret_cast<const char*>(kvArgAt(args, 0)),
                                    static_cast<int32_t>(kvArgAt(args, 1)), &messageArgs);
    if (!error)
        kova::platform::messageBox("Unable to allocate memory for error.",
                                   kova::kernel::errorCaption, KV_MB_OK);
    else if (errSlot)
        *errSlot = error;
    else
        kvDelObject(nullptr, error);
    creatingError = false;
    return 0;
}

// (class name): reports the system's last error code as error 3488.
KV_METHOD(Object, errorSystem) {
    (void)instData;
    char text[64];
    std::snprintf(text, sizeof text, "GetLastError returned %ld", kova::platform::lastError());
    return kvSendMeth(errSlot, self, "error", reinterpret_cast<const char*>(kvArgAt(args, 0)), 3488,
                      text);
}

namespace kova::kernel {

void storeError(kvObject* errSlot, kvObject error) {
    if (!error) return;
    if (!errSlot) {
        discardErrors(error);
        return;
    }
    if (*errSlot) kvSendMeth(nullptr, error, "AddToStack", *errSlot);
    *errSlot = error;
}

void discardErrors(kvObject error) {
    while (error)
        kvSendMeth(&error, error, "deleteTopError");
}

} // namespace kova::kernel

extern "C" KV_API kvObject kvMakeErrorNA(int32_t number, const kvArgs* args) {
    return newError(nullptr, "kvMakeError", number, args);
}
