// A third party's component library, built only against the installed public
// headers. Its technology keeps a running total; the kernel's own personality
// module makes it when activated, as a host would.
//   TallyTM (TM): objInit (personality) starts the total at 40,
//                 add (amount) -> the new total, total -> the total
#include <kova/kernel.h>

namespace {

kvClass TallyTMClass;

#pragma pack(push, 1)
struct TallyData {
    int32_t total;
};
#pragma pack(pop)

KV_METHOD_TABLE(tallyMethods, kova::method("add", 1), kova::method("objInit", 1),
                kova::method("total", 0));
KV_EMPTY_METHOD_TABLE(tallyClassMethods);

} // namespace

KV_METHOD(TallyTM, objInit) {
    kvSendParentMethNA(errSlot, TallyTMClass, self, "objInit", args);
    static_cast<TallyData*>(instData)->total = 40;
    return 0;
}

KV_METHOD(TallyTM, add) {
    (void)errSlot, (void)self;
    auto* data = static_cast<TallyData*>(instData);
    return data->total += static_cast<int32_t>(kvArgAt(args, 0));
}

KV_METHOD(TallyTM, total) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<TallyData*>(instData)->total;
}

KV_REGISTER(TallyTM) {
    if (!kvRegisterClass("TM")) return nullptr;
    TallyTMClass = kvAddClass("TallyTM", "TM", sizeof(TallyData), 0, tallyMethods.get(),
                              tallyClassMethods.get());
    return TallyTMClass;
}
