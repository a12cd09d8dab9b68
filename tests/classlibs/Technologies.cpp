// A class library for the tests of the scanning and recognition bases,
// "TESTTECH.DLL":
//   TestScanner (ScanTO)      "scan" succeeds until a page chosen by "configure"
//   TestRecognizer (RecogTO)  counts "recognizeSingle"; answers
//                             "isFeatureAvailable" as configured; may remove
//                             the other regions from "RegionList" mid-walk
//   MultiRecognizer (RecogTO) answers "recognizeMultiple"
//   RegionList (CollectProp)  a region list that answers "isLinked"
//   ProgressSink (Object)     a personality stand-in recording "fireEvent"
//   ImageStandIn (Property)   an image data stand-in counting "clearImage"
#include "kova/kernel.h"

namespace {

kvClass TestScannerClass, TestRecognizerClass, MultiRecognizerClass, RegionListClass,
    ProgressSinkClass, ImageStandInClass;

#pragma pack(push, 1)
struct ScannerData {
    int32_t failAt;  // the first page that fails; 0 for none
    int32_t scanned; // the last page asked for
};
struct RecognizerData {
    int32_t calls;         // "recognizeSingle" or "recognizeMultiple" received
    int32_t nullRegions;   // of them, with no region
    int32_t featureAnswer; // what "isFeatureAvailable" answers
    int32_t mode;          // 1: the first call removes every other region from the list
    kvArg lastArg;         // the last region or list received
};
struct RegionListData {
    int32_t linked; // what "isLinked" answers
};
struct SinkData {
    int32_t count;       // events received
    kvArg events[32][2]; // event number and first argument of the first 32
};
struct ImageStandInData {
    int32_t clears; // "clearImage" received
};
#pragma pack(pop)

KV_METHOD_TABLE(scannerMethods,                //
                kova::method("configure", 1),  //
                kova::method("getScanned", 0), //
                kova::method("scan", 1));
KV_METHOD_TABLE(recognizerMethods,                     //
                kova::method("configure", 2),          //
                kova::method("getCalls", 0),           //
                kova::method("getLastArg", 0),         //
                kova::method("getNullRegions", 0),     //
                kova::method("isFeatureAvailable", 1), //
                kova::method("recognizeSingle", 1));
KV_METHOD_TABLE(multiMethods,                  //
                kova::method("getCalls", 0),   //
                kova::method("getLastArg", 0), //
                kova::method("recognizeMultiple", 1));
KV_METHOD_TABLE(regionListMethods,           //
                kova::method("isLinked", 0), //
                kova::method("objInit", 1),  //
                kova::method("setLinked", 1));
KV_METHOD_TABLE(sinkMethods,                  //
                kova::method("fireEvent", 2), //
                kova::method("getArgAt", 1),  //
                kova::method("getCount", 0),  //
                kova::method("getEventAt", 1));
KV_METHOD_TABLE(imageMethods,                  //
                kova::method("clearImage", 0), //
                kova::method("getClears", 0));
KV_EMPTY_METHOD_TABLE(noMethods);

template <typename T> T* as(void* instData) {
    return static_cast<T*>(instData);
}

} // namespace

KV_METHOD(TestScanner, configure) {
    (void)errSlot, (void)self;
    as<ScannerData>(instData)->failAt = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

KV_METHOD(TestScanner, getScanned) {
    (void)errSlot, (void)self, (void)args;
    return as<ScannerData>(instData)->scanned;
}

// (page): 1, or 0 with error 3443 from the configured page on.
KV_METHOD(TestScanner, scan) {
    ScannerData* scanner = as<ScannerData>(instData);
    scanner->scanned = static_cast<int32_t>(kvArgAt(args, 0));
    if (scanner->failAt && scanner->scanned >= scanner->failAt) {
        kvSendMeth(errSlot, self, "error", "TestScanner", 3443);
        return 0;
    }
    return 1;
}

KV_METHOD(TestRecognizer, configure) {
    (void)errSlot, (void)self;
    RecognizerData* recognizer = as<RecognizerData>(instData);
    recognizer->featureAnswer = static_cast<int32_t>(kvArgAt(args, 0));
    recognizer->mode = static_cast<int32_t>(kvArgAt(args, 1));
    return 0;
}

KV_METHOD(TestRecognizer, getCalls) {
    (void)errSlot, (void)self, (void)args;
    return as<RecognizerData>(instData)->calls;
}

KV_METHOD(TestRecognizer, getLastArg) {
    (void)errSlot, (void)self, (void)args;
    return as<RecognizerData>(instData)->lastArg;
}

KV_METHOD(TestRecognizer, getNullRegions) {
    (void)errSlot, (void)self, (void)args;
    return as<RecognizerData>(instData)->nullRegions;
}

KV_METHOD(TestRecognizer, isFeatureAvailable) {
    (void)errSlot, (void)self, (void)args;
    return as<RecognizerData>(instData)->featureAnswer;
}

// (region): counts it; in mode 1 the first call takes every region but the
// first out of "RegionList" and deletes it.
KV_METHOD(TestRecognizer, recognizeSingle) {
    RecognizerData* recognizer = as<RecognizerData>(instData);
    const kvArg region = kvArgAt(args, 0);
    recognizer->lastArg = region;
    if (!region) ++recognizer->nullRegions;
    if (recognizer->calls++ == 0 && recognizer->mode == 1) {
        const auto list = reinterpret_cast<kvObject>(
            kvSendMeth(errSlot, self, "findPropertyByName", "RegionList"));
        while (list && kvSendMeth(errSlot, list, "getPropCount") > 1) {
            const auto last = reinterpret_cast<kvObject>(kvSendMeth(
                errSlot, list, "getProperty", kvSendMeth(errSlot, list, "getPropCount") - 1));
            kvSendMeth(errSlot, list, "delProperty", last);
            kvDelObject(errSlot, last);
        }
    }
    return 1;
}

KV_METHOD(MultiRecognizer, getCalls) {
    (void)errSlot, (void)self, (void)args;
    return as<RecognizerData>(instData)->calls;
}

KV_METHOD(MultiRecognizer, getLastArg) {
    (void)errSlot, (void)self, (void)args;
    return as<RecognizerData>(instData)->lastArg;
}

KV_METHOD(MultiRecognizer, recognizeMultiple) {
    (void)errSlot, (void)self;
    RecognizerData* recognizer = as<RecognizerData>(instData);
    ++recognizer->calls;
    recognizer->lastArg = kvArgAt(args, 0);
    return 1;
}

KV_METHOD(RegionList, isLinked) {
    (void)errSlot, (void)self, (void)args;
    return as<RegionListData>(instData)->linked;
}

// (owns contents, owner, name, id, flags): linked at first.
KV_METHOD(RegionList, objInit) {
    kvSendParentMethNA(errSlot, RegionListClass, self, "objInit", args);
    as<RegionListData>(instData)->linked = 1;
    return 0;
}

KV_METHOD(RegionList, setLinked) {
    (void)errSlot, (void)self;
    as<RegionListData>(instData)->linked = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

// (event number, first argument, ...): recorded; answers 0.
KV_METHOD(ProgressSink, fireEvent) {
    (void)errSlot, (void)self;
    SinkData* sink = as<SinkData>(instData);
    if (sink->count < 32) {
        sink->events[sink->count][0] = kvArgAt(args, 0);
        sink->events[sink->count][1] = kvArgAt(args, 1);
    }
    ++sink->count;
    return 0;
}

KV_METHOD(ProgressSink, getArgAt) {
    (void)errSlot, (void)self;
    const kvArg i = kvArgAt(args, 0);
    return i >= 0 && i < 32 ? as<SinkData>(instData)->events[i][1] : -1;
}

KV_METHOD(ProgressSink, getCount) {
    (void)errSlot, (void)self, (void)args;
    return as<SinkData>(instData)->count;
}

KV_METHOD(ProgressSink, getEventAt) {
    (void)errSlot, (void)self;
    const kvArg i = kvArgAt(args, 0);
    return i >= 0 && i < 32 ? as<SinkData>(instData)->events[i][0] : -1;
}

KV_METHOD(ImageStandIn, clearImage) {
    (void)errSlot, (void)self, (void)args;
    ++as<ImageStandInData>(instData)->clears;
    return 0;
}

KV_METHOD(ImageStandIn, getClears) {
    (void)errSlot, (void)self, (void)args;
    return as<ImageStandInData>(instData)->clears;
}

KV_REGISTER(TestScanner) {
    if (!kvRegisterClass("ScanTO")) return nullptr;
    TestScannerClass = kvAddClass("TestScanner", "ScanTO", sizeof(ScannerData), 0,
                                  scannerMethods.get(), noMethods.get());
    return TestScannerClass;
}

KV_REGISTER(TestRecognizer) {
    if (!kvRegisterClass("RecogTO")) return nullptr;
    TestRecognizerClass = kvAddClass("TestRecognizer", "RecogTO", sizeof(RecognizerData), 0,
                                     recognizerMethods.get(), noMethods.get());
    return TestRecognizerClass;
}

KV_REGISTER(MultiRecognizer) {
    if (!kvRegisterClass("RecogTO")) return nullptr;
    MultiRecognizerClass = kvAddClass("MultiRecognizer", "RecogTO", sizeof(RecognizerData), 0,
                                      multiMethods.get(), noMethods.get());
    return MultiRecognizerClass;
}

KV_REGISTER(RegionList) {
    if (!kvRegisterClass("CollectProp")) return nullptr;
    RegionListClass = kvAddClass("RegionList", "CollectProp", sizeof(RegionListData), 0,
                                 regionListMethods.get(), noMethods.get());
    return RegionListClass;
}

KV_REGISTER(ProgressSink) {
    if (!kvRegisterClass("Object")) return nullptr;
    ProgressSinkClass = kvAddClass("ProgressSink", "Object", sizeof(SinkData), 0, sinkMethods.get(),
                                   noMethods.get());
    return ProgressSinkClass;
}

KV_REGISTER(ImageStandIn) {
    if (!kvRegisterClass("Property")) return nullptr;
    ImageStandInClass = kvAddClass("ImageStandIn", "Property", sizeof(ImageStandInData), 0,
                                   imageMethods.get(), noMethods.get());
    return ImageStandInClass;
}
