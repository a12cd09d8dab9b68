// The demo recognizer's form: DemoRegion, one area of a page to read (the bar
// code or the digit field, whose place on a page of a given size PageLayout
// knows), and DemoRegionList, the linked region list through which the
// recognition base walks them.
#include "kova/kernel.h"

namespace {

kvClass DemoRegionClass;
kvClass DemoRegionListClass;

#pragma pack(push, 1)
struct DemoRegionData {
    int32_t kind; // 0 the bar code, 1 the digit field
};
#pragma pack(pop)

KV_METHOD_TABLE(regionMethods, kova::method("getKind", 0), kova::method("objInit", 0));
KV_METHOD_TABLE(regionListMethods, kova::method("isLinked", 0));
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

// The list stands for a region source that is always there: it holds the
// regions of the demo's one form.
KV_METHOD(DemoRegionList, isLinked) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 1;
}

KV_REGISTER(DemoRegion) {
    if (!kvRegisterClass("Property")) return nullptr;
    DemoRegionClass = kvAddClass("DemoRegion", "Property", sizeof(DemoRegionData), 0,
                                 regionMethods.get(), noClassMethods.get());
    return DemoRegionClass;
}

KV_REGISTER(DemoRegionList) {
    if (!kvRegisterClass("CollectProp")) return nullptr;
    DemoRegionListClass = kvAddClass("DemoRegionList", "CollectProp", 0, 0, regionListMethods.get(),
                                     noClassMethods.get());
    return DemoRegionListClass;
}
