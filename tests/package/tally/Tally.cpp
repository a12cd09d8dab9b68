// A third party's class, built only against the installed public headers:
//   Tally (Object): objInit (start), add (amount) -> the new total, total
#include <kova/kernel.h>

namespace {

kvClass TallyClass;

#pragma pack(push, 1)
struct TallyData {
    int32_t total;
};
#pragma pack(pop)

KV_METHOD_TABLE(tallyMethods, kova::method("add", 1), kova::method("objInit", 1),
                kova::method("total", 0));
KV_EMPTY_METHOD_TABLE(tallyClassMethods);

} // namespace

KV_METHOD(Tally, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, TallyClass, self, "objInit", &rest);
    static_cast<TallyData*>(instData)->total = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

KV_METHOD(Tally, add) {
    auto* data = static_cast<TallyData*>(instData);
    return data->total += static_cast<int32_t>(kvArgAt(args, 0));
}

KV_METHOD(Tally, total) {
    return static_cast<TallyData*>(instData)->total;
}

KV_REGISTER(Tally) {
    if (!kvRegisterClass("Object")) return nullptr;
    TallyClass = kvAddClass("Tally", "Object", sizeof(TallyData), 0, tallyMethods.get(),
                            tallyClassMethods.get());
    return TallyClass;
}
