// DemoRecogTM: the demo recognition technology. Its "ImageDataSource" links it
// to a scanner's "ImageData" service; from then on every page the scanner
// delivers ("OnImageDataChange") is recognised: the recognition base walks the
// "RegionList" (the bar code and the digit field), and each region is read
// from pixels fetched through the link, never from anything else the scanner
// knows. The text goes to "RecognitionData" and to the host as event 502.
#include "ComponentProperty.hpp"
#include "Marks.hpp"
#include "Page.hpp"

#include "kova/kernel.h"

#include <cstdio>
#include <new>
#include <string>

namespace {

kvClass DemoRecogTMClass;

struct RecogState {
    kvObject source = nullptr; // the image data object the link reaches, while subscribed
    std::string text;          // what this page has read so far
};

#pragma pack(push, 1)
struct DemoRecogTMData {
    RecogState* state; // owned
};
#pragma pack(pop)

constexpr int32_t pageRecognizedEvent = 502;
constexpr const char* imageLinkName = "ImageData";

KV_METHOD_TABLE(recogMethods, kova::method("OnLinked", 1), kova::method("OnUnlinked", 1),
                kova::method("objInit", 0), kova::method("objTerm", 0),
                kova::method("pageArrived", 2), kova::method("recognizeSingle", 1),
                kova::method("registerProperties", 1), kova::method("setup", 0));
KV_EMPTY_METHOD_TABLE(recogClassMethods);

void unsubscribe(RecogState* state, kvObject self) {
    if (!state || !state->source) return;
    kvDeleteNotification(nullptr, state->source, "OnImageDataChange", self, "pageArrived");
    state->source = nullptr;
}

// Reads one region of the page that the link reaches; nothing when the link
// is missing, the page is empty or the mark cannot be read.
std::string readRegion(kvObject link, int32_t kind) {
    kvObject error = nullptr;
    if (!link || !kvSendMeth(&error, link, "isLinked")) return "?";
    const auto width = static_cast<int>(kvSendMeth(&error, link, "getImageWidth"));
    const auto height = static_cast<int>(kvSendMeth(&error, link, "getImageHeight"));
    const auto dpi = static_cast<int>(kvSendMeth(&error, link, "getImageXResolution"));
    if (error || width < 1 || height < 1 || dpi < 1) {
        if (error) kvDelObject(nullptr, error);
        return "?";
    }
    const demo::PageLayout layout{width, height, dpi};
    const demo::Rect area = kind == 0 ? layout.barcode() : layout.digits();

    // The copy of the region starts at the byte that holds its left edge.
    int32_t params[] = {1, area.left, 2, area.top, 3, area.right, 4, area.bottom, -1, 0};
    const auto copy =
        reinterpret_cast<kvObject>(kvSendMeth(&error, link, "getRawImageObject", params));
    if (!copy) {
        if (error) kvDelObject(nullptr, error);
        return "?";
    }
    const auto bitsPerPixel = static_cast<int>(kvSendMeth(nullptr, copy, "getBitsPerPixel"));
    demo::PixelView view;
    view.bits = reinterpret_cast<const uint8_t*>(kvSendMeth(nullptr, copy, "getImageDataPointer"));
    view.stride = static_cast<long>(kvSendMeth(nullptr, copy, "getBytesPerLine"));
    view.width = static_cast<int>(kvSendMeth(nullptr, copy, "getImageWidth"));
    view.height = static_cast<int>(kvSendMeth(nullptr, copy, "getImageHeight"));
    view.bitsPerSample = bitsPerPixel;
    view.photometric = static_cast<int>(kvSendMeth(nullptr, copy, "getPhotoMetricInterp"));
    std::string text = "?";
    if (view.bits && (bitsPerPixel == 1 || bitsPerPixel == 8)) {
        const int firstPixel = area.left * bitsPerPixel / 8 * 8 / bitsPerPixel;
        // The copy's first and last bytes of each row are masked (for grey
        // images the mask falls on whole pixels): the bar code is read inside
        // them; the digits are sampled well inside their cells anyway.
        const int inset = kind == 0 ? 1 : 0;
        const demo::Rect local{area.left - firstPixel + inset, 0, area.right - firstPixel - inset,
                               view.height};
        if (kind == 0) {
            if (auto value = demo::readBarcode(view, local)) text = std::to_string(*value);
        } else if (auto digits = demo::readDigits(view, local)) {
            text = *digits;
        }
    }
    kvDelObject(nullptr, copy);
    return text;
}

} // namespace

KV_METHOD(DemoRecogTM, objInit) {
    kvSendParentMethNA(errSlot, DemoRecogTMClass, self, "objInit", args);
    static_cast<DemoRecogTMData*>(instData)->state = new (std::nothrow) RecogState;
    const kvObject regions = kvNewObject(errSlot, "CollectProp", 1, self, "Form", 30, 0);
    if (!regions) return 0;
    kvSendMeth(errSlot, self, "addProperty", regions);
    const char* names[] = {"Barcode", "PageNumber"};
    for (int32_t kind = 0; kind < 2; ++kind)
        if (kvObject region =
                kvNewObject(errSlot, "DemoRegion", kind, regions, names[kind], 31 + kind, 0))
            kvSendMeth(errSlot, regions, "addProperty", region);
    return 0;
}

KV_METHOD(DemoRecogTM, objTerm) {
    auto* data = static_cast<DemoRecogTMData*>(instData);
    unsubscribe(data->state, self);
    delete data->state;
    data->state = nullptr;
    return kvSendParentMethNA(errSlot, DemoRecogTMClass, self, "objTerm", args);
}

// (link): a link of this component has come up. The image link's object is
// followed page by page.
KV_METHOD(DemoRecogTM, OnLinked) {
    auto* state = static_cast<DemoRecogTMData*>(instData)->state;
    const auto link = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (!state || link != demo::property(self, imageLinkName)) return 0;
    unsubscribe(state, self);
    state->source = reinterpret_cast<kvObject>(kvSendMeth(errSlot, link, "getLinkedObject"));
    if (state->source)
        kvAddNotification(errSlot, state->source, "OnImageDataChange", self, "pageArrived", 0);
    return 0;
}

KV_METHOD(DemoRecogTM, OnUnlinked) {
    (void)errSlot;
    const auto link = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (link == demo::property(self, imageLinkName))
        unsubscribe(static_cast<DemoRecogTMData*>(instData)->state, self);
    return 0;
}

// ("OnImageDataChange" of the linked image data): recognises the new page. An
// emptied image is no page.
KV_METHOD(DemoRecogTM, pageArrived) {
    (void)errSlot, (void)args;
    auto* state = static_cast<DemoRecogTMData*>(instData)->state;
    const kvObject link = demo::property(self, imageLinkName);
    if (!state || !link || kvSendMeth(nullptr, link, "getImageWidth") < 1) return 0;
    state->text.clear();
    kvObject error = nullptr;
    kvSendMeth(&error, self, "recognize");
    if (error) kvDelObject(nullptr, error);
    kvSendMeth(nullptr, self, "storeProperty", "RecognitionData", state->text.c_str());
    kvSendMeth(nullptr, self, "fireEvent", pageRecognizedEvent, state->text.c_str());
    return 0;
}

// (region): reads one region and adds "<region name>=<text>" to the page's
// text; without a region (no region list) the page reads as unreadable.
KV_METHOD(DemoRecogTM, recognizeSingle) {
    (void)errSlot;
    auto* state = static_cast<DemoRecogTMData*>(instData)->state;
    if (!state) return 0;
    const auto region = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    if (!state->text.empty()) state->text += ' ';
    if (!region) {
        state->text += "regions=?";
        return 0;
    }
    const auto* name = reinterpret_cast<const char*>(kvSendMeth(nullptr, region, "getName"));
    const auto kind = static_cast<int32_t>(kvSendMeth(nullptr, region, "getKind"));
    state->text += std::string(name ? name : "Region") + '=' +
                   readRegion(demo::property(self, imageLinkName), kind);
    return 1;
}

// (FQN): besides the recognition data, the component offers its form as the
// "RegionList" service, so that its own "RegionSource" (or another
// recognizer's) can link to the regions to read.
KV_METHOD(DemoRecogTM, registerProperties) {
    (void)instData;
    kvSendParentMethNA(errSlot, DemoRecogTMClass, self, "registerProperties", args);
    if (const kvObject form = demo::property(self, "Form"))
        kvSendMeth(errSlot, self, "addService", "RegionList", self, kvArgAt(args, 0), form);
    return errSlot && *errSlot ? 0 : 1;
}

KV_METHOD(DemoRecogTM, setup) {
    (void)errSlot, (void)self, (void)args;
    auto* state = static_cast<DemoRecogTMData*>(instData)->state;
    if (state) state->text.clear();
    return state ? 1 : 0;
}

KV_REGISTER(DemoRecogTM) {
    if (!kvRegisterClass("RecogTO")) return nullptr;
    DemoRecogTMClass = kvAddClass("DemoRecogTM", "RecogTO", sizeof(DemoRecogTMData), 0,
                                  recogMethods.get(), recogClassMethods.get());
    return DemoRecogTMClass;
}
