// DemoRegion: one area of a page that the demo recognizer reads (the bar code
// or the digit field, whose place on a page of a given size PageLayout knows).
// The recognizer keeps its regions in a property collection, its form.
#include "kova/kernel.h"

namespace {

kvClass DemoRegionClass;

#pragma pack(push, 1)
struct DemoRegionData {
    int32_t kind; // 0 the bar code, 1 the digit field
};
#pragma pack(pop)

KV_METHOD_TABLE(regionMethods, kova::method("getKind", 0), kova::method("objInit", 0));
KV_EMPTY_METHOD_TABLE(noClassMethods);

} // namespace

// (kind, then the property's own arguments: owner, name, id, flags).
KV_METHOD(DemoRegion, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, DemoRegionClass, self, "objInit", &rest);
    static_cast<DemoRegionData*>(instData)->kind = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

KV_METHOD(DemoRegion, getKind) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<DemoRegionData*>(instData)->kind;
}

KV_REGISTER(DemoRegion) {
    if (!kvRegisterClass("Property")) return nullptr;
    DemoRegionClass = kvAddClass("DemoRegion", "Property", sizeof(DemoRegionData), 0,
                                 regionMethods.get(), noClassMethods.get());
    return DemoRegionClass;
}
