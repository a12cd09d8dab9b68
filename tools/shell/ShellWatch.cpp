// The class library of the shell's subscriber class (see ShellWatch.hpp).
#include "tools/shell/ShellWatch.hpp"

namespace {

kvClass ShellWatchClass;

#pragma pack(push, 1)
struct ShellWatchData {
    kova::shell::WatchProcedure procedure; // who hears the firings
    void* context;                         // handed back to it
};
#pragma pack(pop)

KV_METHOD_TABLE(shellWatchMethods,        //
                kova::method("fired", 0), //
                kova::method("objInit", 2));
KV_EMPTY_METHOD_TABLE(shellWatchClassMethods);

} // namespace

// objInit (procedure, context, then the parent's arguments).
KV_METHOD(ShellWatch, objInit) {
    const kvArgs rest = kvArgsAfter(args, 2);
    kvSendParentMethNA(errSlot, ShellWatchClass, self, "objInit", &rest);
    auto* data = static_cast<ShellWatchData*>(instData);
    data->procedure = reinterpret_cast<kova::shell::WatchProcedure>(kvArgAt(args, 0));
    data->context = reinterpret_cast<void*>(kvArgAt(args, 1));
    return 0;
}

// fired (notifier, event name, the firing's slots...).
KV_METHOD(ShellWatch, fired) {
    (void)errSlot;
    (void)self;
    const auto* data = static_cast<const ShellWatchData*>(instData);
    return data->procedure ? data->procedure(data->context, args) : 0;
}

KV_REGISTER(ShellWatch) {
    if (!kvRegisterClass("Object")) return nullptr;
    ShellWatchClass = kvAddClass("ShellWatch", "Object", sizeof(ShellWatchData), 0,
                                 shellWatchMethods.get(), shellWatchClassMethods.get());
    return ShellWatchClass;
}
