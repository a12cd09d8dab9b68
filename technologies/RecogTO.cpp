// RecogTO: the abstract technology module of recognition components. It gives
// every recogniser its two inputs (source properties linked to an image data
// provider and to a region list provider), its output property
// "RecognitionData", and the driver "recognize", which walks the component's
// "RegionList" property, sends the abstract "recognizeSingle" once per
// region, and reports progress to the host as event 501 through the
// personality. A subclass that answers "recognizeMultiple" is handed the
// whole list at once instead. The class has no instance data.
#include "errors/Raise.hpp"
#include "properties/PropertySupport.hpp"

namespace {

kvClass RecogTOClass = nullptr;

// The event that carries progress, in percent, to the host.
constexpr kvArg progressEvent = 501;

KV_METHOD_TABLE(recogTOMethods,                                                //
                kova::method("isFeatureAvailable", 1, KV_METHOD_NO_INSTDATA),  //
                kova::method("objInit", 0, KV_METHOD_NO_INSTDATA),             //
                kova::method("objTerm", 0, KV_METHOD_NO_INSTDATA),             //
                kova::method("recognize", 0, KV_METHOD_NO_INSTDATA),           //
                kova::method("recognizeSingle", 1, KV_METHOD_NO_INSTDATA),     //
                kova::method("registerProperties", 1, KV_METHOD_NO_INSTDATA),  //
                kova::method("setPropertyDefaults", 0, KV_METHOD_NO_INSTDATA), //
                kova::method("setup", 0, KV_METHOD_NO_INSTDATA));
KV_EMPTY_METHOD_TABLE(recogTOClassMethods);

// Makes a property with `own` leading creation arguments, owned by the
// technology, and adds it; one that cannot be made is skipped.
template <typename... A>
void addNewProperty(kvObject* errSlot, kvObject self, const char* className, const char* name,
                    kvArg id, kvArg flags, A... own) {
    kvObject quiet = nullptr;
    const kvObject made = kvNewObject(&quiet, className, own..., self, name, id, flags);
    kova::props::discardErrorsAbove(&quiet, nullptr);
    if (made) kvSendMeth(errSlot, self, "addProperty", made);
}

kvResult pureMethod(kvObject* errSlot, kvObject self, const char* method) {
    return kova::raiseError(errSlot, self, RecogTOClass, 3431, kvClassName(self->cls), method);
}

// Event 501 with `percent` to the personality, unless the technology has
// none or answers "isFeatureAvailable" (0) with non-zero.
void reportProgress(kvObject* errSlot, kvObject self, kvArg percent) {
    if (kvSendMeth(errSlot, self, "isFeatureAvailable", 0) != 0) return;
    const auto personality = reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getPM"));
    if (personality) kvSendMeth(errSlot, personality, "fireEvent", progressEvent, percent);
}

// One "recognizeSingle" per region of a linked list, or one with no region
// when there is no linked list or it is empty. Progress after region i + 1
// of n is (i + 1) / n * 100 in integer arithmetic, divided first: every
// report inside the walk is 0, as hosts of this family expect.
void recognizeEachRegion(kvObject* errSlot, kvObject self) {
    const kvObject regions = kova::props::findPropertyQuietly(self, "RegionList");
    kvResult count = 0;
    if (regions && kvSendMeth(errSlot, regions, "isLinked") != 0)
        count = kvSendMeth(errSlot, regions, "getPropCount");
    if (count <= 0) {
        kvSendMeth(errSlot, self, "recognizeSingle", nullptr);
        return;
    }
    for (kvResult i = 0; i < count; ++i) {
        // A region that recognition removed from the list is no region: the
        // list is not read past its present end.
        const kvObject region =
            i < kvSendMeth(nullptr, regions, "getPropCount")
                ? reinterpret_cast<kvObject>(kvSendMeth(errSlot, regions, "getProperty", i))
                : nullptr;
        if (region) kvSendMeth(errSlot, self, "recognizeSingle", region);
        if (i + 1 < count) reportProgress(errSlot, self, (i + 1) / count * 100);
    }
}

} // namespace

KV_METHOD_NO_DATA(RecogTO, isFeatureAvailable) {
    (void)errSlot, (void)self, (void)args;
    return 0;
}

// (the technology's creation arguments): then the two sources and the
// output, in id order.
KV_METHOD_NO_DATA(RecogTO, objInit) {
    kvSendParentMethNA(errSlot, RecogTOClass, self, "objInit", args);
    addNewProperty(errSlot, self, "SourceProperty", "ImageDataSource", 0, 0, "ImageData",
                   "ImageData");
    addNewProperty(errSlot, self, "SourceProperty", "RegionSource", 1, 0, "RegionList",
                   "RegionList");
    addNewProperty(errSlot, self, "StrProp", "RecognitionData", 2, 38, nullptr);
    return 0;
}

KV_METHOD_NO_DATA(RecogTO, objTerm) {
    return kvSendParentMethNA(errSlot, RecogTOClass, self, "objTerm", args);
}

// Walks the regions (or hands them all to "recognizeMultiple"), reporting
// progress 0 first and 100 last. An error of one region does not stop the
// walk. 1 when no error is pending afterwards (or there is no slot), else 0.
KV_METHOD_NO_DATA(RecogTO, recognize) {
    (void)args;
    kvObject own = nullptr;
    kvObject* slot = errSlot ? errSlot : &own;
    reportProgress(slot, self, 0);
    if (kvSendMeth(slot, self, "respondsTo", "recognizeMultiple")) {
        if (const kvObject regions = kova::props::findPropertyQuietly(self, "RegionList"))
            kvSendMeth(slot, self, "recognizeMultiple", regions);
    } else {
        recognizeEachRegion(slot, self);
    }
    reportProgress(slot, self, 100);
    kova::props::discardErrorsAbove(&own, nullptr);
    return !errSlot || !*errSlot ? 1 : 0;
}

// (region): pure; subclasses recognise the region.
KV_METHOD_NO_DATA(RecogTO, recognizeSingle) {
    (void)args;
    return pureMethod(errSlot, self, "recognizeSingle");
}

// (value for "addService"): the technology's services, then
// "RecognitionData" as the service of that name. 1 when no error is pending
// afterwards, else 0.
KV_METHOD_NO_DATA(RecogTO, registerProperties) {
    return kova::props::noErrorPendingAfter(errSlot, [&](kvObject* slot) {
        kvSendParentMethNA(slot, RecogTOClass, self, "registerProperties", args);
        if (const kvObject output = kova::props::findPropertyQuietly(self, "RecognitionData"))
            kvSendMeth(slot, self, "addService", "RecognitionData", self, kvArgAt(args, 0), output);
    });
}

// The technology's defaults, then no recognition data. 1 when no error is
// pending afterwards, else 0.
KV_METHOD_NO_DATA(RecogTO, setPropertyDefaults) {
    return kova::props::noErrorPendingAfter(errSlot, [&](kvObject* slot) {
        kvSendParentMethNA(slot, RecogTOClass, self, "setPropertyDefaults", args);
        kvSendMeth(slot, self, "storeProperty", "RecognitionData", nullptr);
    });
}

KV_METHOD_NO_DATA(RecogTO, setup) {
    (void)args;
    return pureMethod(errSlot, self, "setup");
}

KV_REGISTER(RecogTO) {
    if (!kvRegisterClass("TM")) return nullptr;
    RecogTOClass =
        kvAddClass("RecogTO", "TM", 0, 0, recogTOMethods.get(), recogTOClassMethods.get());
    return RecogTOClass;
}
