// DemoScanTM: the demo scanner technology. It "scans" pages drawn from a seed
// (see Page.hpp), delivers each band by band into the component's "ImageData"
// property with the page's tags in its "Sideband" property, appends it to the
// output file when "OutputToFile" is set, and tells the host through event
// 500. A batch ends, as every scanner's does, through the scanner's own error:
// the feeder is empty after "PageCount" pages.
#include "ComponentProperty.hpp"
#include "DemoErr.hpp"
#include "DemoMessages.h"
#include "Page.hpp"
#include "TiffWriter.hpp"

#include "kova/kernel.h"

#include <cstring>
#include <new>
#include <string>

namespace {

kvClass DemoScanTMClass;
constexpr const char* className = "DemoScanTM";

// What the technology keeps between pages of a batch.
struct ScanState {
    demo::TiffWriter output;
    bool writing = false;
};

#pragma pack(push, 1)
struct DemoScanTMData {
    ScanState* state; // owned
};
#pragma pack(pop)

// The component's own settings, saved with it (flags 39: those of the
// scanner's properties, and persistent).
constexpr int32_t settingFlags = 39;
struct Setting {
    const char* name;
    int32_t id;
    int32_t initial;
};
constexpr Setting settings[] = {
    {"PageCount", 10, 3},
    {"Seed", 11, 1},
    {"ColorMode", 12, 2}, // 0 bilevel, 1 greyscale, 2 alternating (odd pages bilevel)
    {"Resolution", 13, 300},
    {"Compression", 14, 0}, // 0 by kind (PackBits bilevel, none greyscale), 1, 32773
};

constexpr int32_t pageScannedEvent = 500;
constexpr int bandRows = 128;

KV_METHOD_TABLE(scanMethods, kova::method("getSidebandDataObject", 0), kova::method("objInit", 0),
                kova::method("objTerm", 0), kova::method("scan", 1), kova::method("setup", 0));
KV_EMPTY_METHOD_TABLE(scanClassMethods);

kvResult fetch(kvObject self, const char* name) {
    return kvSendMeth(nullptr, self, "fetchProperty", name);
}

void addProperty(kvObject* errSlot, kvObject self, kvObject made) {
    if (made) kvSendMeth(errSlot, self, "addProperty", made);
}

// Page kinds and compressions of page `number` under the settings.
demo::PageKind kindOf(kvObject self, unsigned number) {
    switch (fetch(self, "ColorMode")) {
    case 0:
        return demo::PageKind::Bilevel;
    case 1:
        return demo::PageKind::Greyscale;
    default:
        return number % 2 ? demo::PageKind::Bilevel : demo::PageKind::Greyscale;
    }
}

demo::Compression compressionOf(kvObject self, demo::PageKind kind) {
    const kvResult chosen = fetch(self, "Compression");
    if (chosen == 1) return demo::Compression::None;
    if (chosen == 32773) return demo::Compression::PackBits;
    return kind == demo::PageKind::Bilevel ? demo::Compression::PackBits : demo::Compression::None;
}

// What the batch's uncompressed pages will take in the output file, known
// before its first page is written.
uint64_t uncompressedBatchBytes(kvObject self, unsigned count, int width, int height) {
    uint64_t total = 0;
    for (unsigned number = 1; number <= count; ++number) {
        const demo::PageKind kind = kindOf(self, number);
        if (compressionOf(self, kind) == demo::Compression::None)
            total += demo::TiffWriter::uncompressedBytes(width, height,
                                                         kind == demo::PageKind::Bilevel ? 1 : 8);
    }
    return total;
}

// The tags that travel with the page in the component's sideband data.
void tagPage(kvObject sideband, const demo::Page& page, unsigned count) {
    if (!sideband) return;
    kvSendMeth(nullptr, sideband, "resetContents");
    const uint16_t pageNumber[2] = {static_cast<uint16_t>(page.number - 1),
                                    static_cast<uint16_t>(count)};
    const uint32_t resolution[2] = {static_cast<uint32_t>(page.dpi), 1};
    const uint16_t photometric = static_cast<uint16_t>(page.photometric);
    static const char software[] = "KOVA demo scanner";
    kvSendMeth(nullptr, sideband, "addTag", 262, 3, 1, 0, &photometric);
    kvSendMeth(nullptr, sideband, "addTag", 282, 5, 1, 0, resolution);
    kvSendMeth(nullptr, sideband, "addTag", 283, 5, 1, 0, resolution);
    kvSendMeth(nullptr, sideband, "addTag", 297, 3, 2, 0, pageNumber);
    kvSendMeth(nullptr, sideband, "addTag", 305, 2, static_cast<int>(sizeof software), 0, software);
}

// Delivers the page into the image data property band by band. The image
// data property asks the new raw image for a palette it cannot take; that
// complaint (an unimplemented method) is no failure of the delivery.
bool deliver(kvObject* errSlot, kvObject imageData, const demo::Page& page) {
    kvObject complaint = nullptr;
    const kvResult raw = kvSendMeth(
        &complaint, imageData, "beginStoreImageData", page.stride, page.width, page.height,
        page.bitsPerSample, 1, page.photometric, 0, 0, 0, 0, 0, page.dpi, page.dpi, 0, nullptr);
    if (complaint) kvDelObject(nullptr, complaint);
    if (!raw) return false;
    for (int first = 0; first < page.height; first += bandRows) {
        const int rows = std::min(bandRows, page.height - first);
        if (!kvSendMeth(errSlot, imageData, "storeImageData",
                        page.bits.data() + page.stride * first, rows, first))
            return false;
    }
    return true;
}

} // namespace

KV_METHOD(DemoScanTM, objInit) {
    kvSendParentMethNA(errSlot, DemoScanTMClass, self, "objInit", args);
    auto* data = static_cast<DemoScanTMData*>(instData);
    data->state = new (std::nothrow) ScanState;
    addProperty(errSlot, self, kvNewObject(errSlot, "ImageData", self, "ImageData", 20, 0));
    addProperty(errSlot, self, kvNewObject(errSlot, "SidebandData", self, "Sideband", 21, 0));
    for (const Setting& setting : settings)
        addProperty(errSlot, self,
                    kvNewObject(errSlot, "IntProp", setting.initial, self, setting.name, setting.id,
                                settingFlags));
    return 0;
}

KV_METHOD(DemoScanTM, objTerm) {
    auto* data = static_cast<DemoScanTMData*>(instData);
    delete data->state; // abandons an unfinished output file
    data->state = nullptr;
    return kvSendParentMethNA(errSlot, DemoScanTMClass, self, "objTerm", args);
}

KV_METHOD(DemoScanTM, getSidebandDataObject) {
    (void)errSlot, (void)instData, (void)args;
    return reinterpret_cast<kvResult>(demo::property(self, "Sideband"));
}

// Readies the scanner for a new batch: an output file left open is abandoned.
KV_METHOD(DemoScanTM, setup) {
    (void)errSlot, (void)self, (void)args;
    auto* data = static_cast<DemoScanTMData*>(instData);
    if (!data->state) return 0;
    data->state->output.abandon();
    data->state->writing = false;
    return 1;
}

// (page number): 1 when the page was delivered. Page 1 starts a batch.
KV_METHOD(DemoScanTM, scan) {
    auto* data = static_cast<DemoScanTMData*>(instData);
    ScanState* state = data->state;
    const auto number = static_cast<unsigned>(kvArgAt(args, 0));
    if (!state) return 0;
    if (number <= 1) kvSendMeth(errSlot, self, "setup");
    const auto count = static_cast<unsigned>(fetch(self, "PageCount"));

    if (number > count) {
        if (state->writing) {
            state->writing = false;
            const std::string failed = state->output.finish();
            if (!failed.empty())
                demo::raiseError(errSlot, className, DEMO_OUTPUT_FAILED, failed.c_str());
        }
        demo::raiseError(errSlot, className, DEMO_FEEDER_EMPTY, static_cast<kvArg>(number - 1));
        return 0;
    }

    const int dpi = static_cast<int>(fetch(self, "Resolution"));
    const demo::PageKind kind = kindOf(self, number);
    const demo::Page page = demo::makePage(static_cast<uint64_t>(fetch(self, "Seed")), number, kind,
                                           dpi * 85 / 10, dpi * 11, dpi);

    const kvObject imageData = demo::property(self, "ImageData");
    tagPage(demo::property(self, "Sideband"), page, count);
    if (!imageData || !deliver(errSlot, imageData, page)) {
        demo::raiseError(errSlot, className, DEMO_PAGE_FAILED, static_cast<kvArg>(number));
        return 0;
    }
    kvSendMeth(errSlot, imageData, "endStoreImageData");

    if (fetch(self, "OutputToFile")) {
        std::string failed;
        if (!state->writing) {
            const auto* name = reinterpret_cast<const char*>(fetch(self, "OutputFileName"));
            failed =
                state->output.open(name ? name : "", count,
                                   uncompressedBatchBytes(self, count, page.width, page.height));
            state->writing = failed.empty();
        }
        if (failed.empty()) failed = state->output.addPage(page, compressionOf(self, kind));
        if (!failed.empty()) {
            state->writing = false;
            demo::raiseError(errSlot, className, DEMO_OUTPUT_FAILED, failed.c_str());
            return 0;
        }
    }
    kvSendMeth(nullptr, self, "fireEvent", pageScannedEvent, static_cast<kvArg>(number));
    return 1;
}

KV_REGISTER(DemoScanTM) {
    if (!kvRegisterClass("ScanTO")) return nullptr;
    DemoScanTMClass = kvAddClass(className, "ScanTO", sizeof(DemoScanTMData), 0, scanMethods.get(),
                                 scanClassMethods.get());
    return DemoScanTMClass;
}
