// ImageData: the property through which imaging components exchange one page
// image. It owns at most one RawImage, builds it in one call (setImageData)
// or band by band (beginStoreImageData, storeImageData, endStoreImageData),
// hands out copies of a sub-rectangle with a requested photometric value
// (getRawImageObject), and announces each change with "OnImageDataChange".
//
// beginStoreImageData sends "setImagePaletteEntries" to the new RawImage,
// which has no such method, so that send ends in the kernel's
// method-not-found handling; callers have always seen it, and it stays.
#include "errors/Raise.hpp"
#include "imaging/RawImage.hpp"
#include "kova/image.h"
#include "kova/kernel.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

#pragma pack(push, 1)
struct ImageDataData {
    int16_t storing;   // 1 between beginStoreImageData and endStoreImageData
    kvObject rawImage; // the owned RawImage, or null
};
#pragma pack(pop)

kvClass ImageDataClass = nullptr;

KV_METHOD_TABLE(imageDataMethods,                             //
                kova::method("beginStoreImageData", 15),      //
                kova::method("clearImage", 0),                //
                kova::method("clearImageNoNotify", 0),        //
                kova::method("endStoreImageData", 0),         //
                kova::method("endStoreImageDataNoNotify", 0), //
                kova::method("getBPSAndSPPFromBPP", 3),       //
                kova::method("getImageBitsPerSample", 0),     //
                kova::method("getImageHeight", 0),            //
                kova::method("getImageSamplesPerPixel", 0),   //
                kova::method("getImageWidth", 0),             //
                kova::method("getImageXResolution", 0),       //
                kova::method("getImageYResolution", 0),       //
                kova::method("getRawImageObject", 0),         //
                kova::method("getSidebandDataObject", 0),     //
                kova::method("objInit", 0),                   //
                kova::method("objTerm", 0),                   //
                kova::method("setImageData", 16),             //
                kova::method("setImagePaletteEntries", 2),    //
                kova::method("setRawImageObject", 1),         //
                kova::method("setRawImageObjectNoNotify", 1), //
                kova::method("storeImageData", 3),            //
                kova::method("storeImageDataEx", 6));
KV_EMPTY_METHOD_TABLE(imageDataClassMethods);

static_assert(imageDataMethodsList.size() == 22);

ImageDataData* dataOf(void* instData) {
    return static_cast<ImageDataData*>(instData);
}

int32_t intArg(const kvArgs* args, size_t index) {
    return static_cast<int32_t>(kvArgAt(args, index));
}

// The image attributes A0–A14 that setImageData and beginStoreImageData take.
struct Attributes {
    int32_t bytesPerLine, width, height, bitsPerSample, samplesPerPixel, photometric, inverted,
        rotation, horizFlipped, vertFlipped, scaleToGrey, xResolution, yResolution, paletteCount;
    const kvPaletteEntry* palette;
};

Attributes attributesOf(const kvArgs* args) {
    Attributes a{};
    int32_t* fields[] = {&a.bytesPerLine,    &a.width,       &a.height,      &a.bitsPerSample,
                         &a.samplesPerPixel, &a.photometric, &a.inverted,    &a.rotation,
                         &a.horizFlipped,    &a.vertFlipped, &a.scaleToGrey, &a.xResolution,
                         &a.yResolution,     &a.paletteCount};
    for (size_t i = 0; i < std::size(fields); ++i)
        *fields[i] = intArg(args, i);
    a.palette = reinterpret_cast<const kvPaletteEntry*>(kvArgAt(args, 14));
    return a;
}

kvResult ask(kvObject* errSlot, kvObject raw, const char* method) {
    return kvSendMeth(errSlot, raw, method);
}

uint8_t* pixelsOf(kvObject* errSlot, kvObject raw) {
    return reinterpret_cast<uint8_t*>(ask(errSlot, raw, "getImageDataPointer"));
}

void deleteRawImage(kvObject* errSlot, ImageDataData* d) {
    if (d->rawImage) kvDelObject(errSlot, d->rawImage);
    d->rawImage = nullptr;
}

// A new RawImage of the attributes' buffer layout, owned by `self`, with the
// nine attribute setters sent in their order; null (3428 raised) when it
// could not be made with its pixel buffer.
kvObject newRawImage(kvObject* errSlot, kvObject self, const Attributes& a) {
    kvObject raw = kvNewObject(errSlot, "RawImage", a.bytesPerLine, a.height, a.bitsPerSample,
                               a.samplesPerPixel, self, nullptr, 0, 0);
    if (!raw || !pixelsOf(errSlot, raw)) {
        if (raw) kvDelObject(errSlot, raw);
        kova::raiseError(errSlot, self, ImageDataClass, 3428);
        return nullptr;
    }
    kvSendMeth(errSlot, raw, "setImageWidth", a.width);
    kvSendMeth(errSlot, raw, "setPhotoMetricInterp", a.photometric);
    kvSendMeth(errSlot, raw, "setInverted", a.inverted);
    kvSendMeth(errSlot, raw, "setRotation", a.rotation);
    kvSendMeth(errSlot, raw, "setHorizFlipped", a.horizFlipped);
    kvSendMeth(errSlot, raw, "setVertFlipped", a.vertFlipped);
    kvSendMeth(errSlot, raw, "setScaleToGrey", a.scaleToGrey);
    kvSendMeth(errSlot, raw, "setXResolution", a.xResolution);
    kvSendMeth(errSlot, raw, "setYResolution", a.yResolution);
    return raw;
}

void announceChange(kvObject* errSlot, kvObject self) {
    kvFireNotification(errSlot, self, "OnImageDataChange");
}

// The region getRawImageObject copies, from its named parameters.
struct Region {
    int32_t left, top, right, bottom, photometric;
};

// Copies rows top … bottom − 1 of `from`, `bytes` bytes a row from byte
// `firstByte`, into `to`, masking the first and last byte of each row and
// complementing bilevel bytes when asked. Rows and bytes are bounded by both
// buffers.
void copyRegion(kvObject* errSlot, kvObject from, kvObject to, const Region& r, size_t firstByte,
                int32_t bitsPerPixel, bool complement) {
    const auto fromPitch = size_t(ask(errSlot, from, "getBytesPerLine"));
    const auto toPitch = size_t(ask(errSlot, to, "getBytesPerLine"));
    const uint8_t* source = pixelsOf(errSlot, from);
    uint8_t* target = pixelsOf(errSlot, to);
    if (!source || !target || fromPitch == 0 || toPitch == 0 || firstByte >= fromPitch) return;
    const size_t fromRows = kova::imaging::rawImageBufferSize(from) / fromPitch;
    const size_t bytes = std::min(toPitch, fromPitch - firstByte);
    const bool bilevel = bitsPerPixel == 1;
    const unsigned firstShift =
        bilevel ? unsigned(r.left % 8) : unsigned(r.left * bitsPerPixel / 8 % 8);
    const unsigned lastShift =
        bilevel ? unsigned(r.right % 8) : unsigned(r.right * bitsPerPixel / 8 % 8);
    const auto firstMask = uint8_t(255u >> firstShift);
    const auto lastMask = uint8_t(255u << lastShift);
    for (int32_t y = r.top; y < r.bottom && size_t(y) < fromRows; ++y) {
        uint8_t* row = target + size_t(y - r.top) * toPitch;
        std::memcpy(row, source + size_t(y) * fromPitch + firstByte, bytes);
        row[0] &= firstMask;
        row[bytes - 1] &= lastMask;
        if (complement)
            for (size_t i = 0; i < bytes; ++i)
                row[i] ^= 0xFF;
    }
}

} // namespace

// (A0–A14): starts a band-wise delivery; answers the new RawImage, or 0.
KV_METHOD(ImageData, beginStoreImageData) {
    ImageDataData* d = dataOf(instData);
    const Attributes a = attributesOf(args);
    deleteRawImage(errSlot, d);
    kvObject raw = newRawImage(errSlot, self, a);
    if (!raw) return 0;
    d->rawImage = raw;
    kvSendMeth(errSlot, raw, "setImagePaletteEntries", a.paletteCount, a.palette);
    d->storing = 1;
    return reinterpret_cast<kvResult>(raw);
}

KV_METHOD(ImageData, clearImage) {
    (void)instData, (void)args;
    kvSendMeth(errSlot, self, "clearImageNoNotify");
    announceChange(errSlot, self);
    return 0;
}

KV_METHOD(ImageData, clearImageNoNotify) {
    (void)self, (void)args;
    deleteRawImage(errSlot, dataOf(instData));
    return 0;
}

KV_METHOD(ImageData, endStoreImageData) {
    (void)args;
    ImageDataData* d = dataOf(instData);
    if (!d->storing) return 0;
    d->storing = 0;
    announceChange(errSlot, self);
    return 0;
}

KV_METHOD(ImageData, endStoreImageDataNoNotify) {
    (void)errSlot, (void)self, (void)args;
    dataOf(instData)->storing = 0;
    return 0;
}

// (bits per pixel, 16-bit cell for bits per sample, 16-bit cell for samples
// per pixel): 1 when the depth is known, else 0 with nothing written.
KV_METHOD(ImageData, getBPSAndSPPFromBPP) {
    (void)errSlot, (void)self, (void)instData;
    int16_t bitsPerSample = 0, samplesPerPixel = 0;
    switch (intArg(args, 0)) {
    case 1:
        bitsPerSample = 1, samplesPerPixel = 1;
        break;
    case 4:
        bitsPerSample = 4, samplesPerPixel = 1;
        break;
    case 8:
        bitsPerSample = 8, samplesPerPixel = 1;
        break;
    case 16:
        bitsPerSample = 4, samplesPerPixel = 3;
        break;
    case 24:
        bitsPerSample = 8, samplesPerPixel = 3;
        break;
    default:
        return 0;
    }
    if (auto* cell = reinterpret_cast<int16_t*>(kvArgAt(args, 1))) *cell = bitsPerSample;
    if (auto* cell = reinterpret_cast<int16_t*>(kvArgAt(args, 2))) *cell = samplesPerPixel;
    return 1;
}

// The accessors answer the raw image's values; without a raw image, 0
// rather than a send to no object.
KV_METHOD(ImageData, getImageBitsPerSample) {
    (void)self, (void)args;
    const kvObject raw = dataOf(instData)->rawImage;
    return raw ? ask(errSlot, raw, "getBitsPerSample") : 0;
}

KV_METHOD(ImageData, getImageHeight) {
    (void)self, (void)args;
    const kvObject raw = dataOf(instData)->rawImage;
    return raw ? ask(errSlot, raw, "getImageHeight") : 0;
}

KV_METHOD(ImageData, getImageSamplesPerPixel) {
    (void)self, (void)args;
    const kvObject raw = dataOf(instData)->rawImage;
    return raw ? ask(errSlot, raw, "getSamplesPerPixel") : 0;
}

KV_METHOD(ImageData, getImageWidth) {
    (void)self, (void)args;
    const kvObject raw = dataOf(instData)->rawImage;
    return raw ? ask(errSlot, raw, "getImageWidth") : 0;
}

KV_METHOD(ImageData, getImageXResolution) {
    (void)self, (void)args;
    const kvObject raw = dataOf(instData)->rawImage;
    return raw ? ask(errSlot, raw, "getXResolution") : 0;
}

KV_METHOD(ImageData, getImageYResolution) {
    (void)self, (void)args;
    const kvObject raw = dataOf(instData)->rawImage;
    return raw ? ask(errSlot, raw, "getYResolution") : 0;
}

// (parameter list, read with kvGetParam: 1 left, 2 top, 3 right, 4 bottom,
// 10 photometric): a new RawImage holding a copy of the region, which the
// caller owns; 0 without a raw image or for a bad region or photometric value.
KV_METHOD(ImageData, getRawImageObject) {
    const kvObject raw = dataOf(instData)->rawImage;
    if (!raw) return 0;
    const auto* params = reinterpret_cast<const int32_t*>(kvArgAt(args, 0));
    const auto width = int32_t(ask(errSlot, raw, "getImageWidth"));
    const auto height = int32_t(ask(errSlot, raw, "getImageHeight"));
    const auto current = int32_t(ask(errSlot, raw, "getPhotoMetricInterp"));
    const Region r{kvGetParam(params, KV_IMAGE_PARAM_LEFT, 0),
                   kvGetParam(params, KV_IMAGE_PARAM_TOP, 0),
                   kvGetParam(params, KV_IMAGE_PARAM_RIGHT, width),
                   kvGetParam(params, KV_IMAGE_PARAM_BOTTOM, height),
                   kvGetParam(params, KV_IMAGE_PARAM_PHOTOMETRIC, current)};
    if (r.left < 0 || r.left > width || r.top < 0 || r.top > height || r.right < 0 ||
        r.right > width || r.bottom < 0 || r.bottom > height)
        return kova::raiseError(errSlot, self, ImageDataClass, 3490);
    const auto bitsPerSample = int32_t(ask(errSlot, raw, "getBitsPerSample"));
    const auto samplesPerPixel = int32_t(ask(errSlot, raw, "getSamplesPerPixel"));
    const int32_t bpp = bitsPerSample * samplesPerPixel;
    bool changed = false;
    if (r.photometric != current) {
        const bool bilevel = ask(errSlot, raw, "getBitsPerPixel") == 1;
        const bool allowed = bilevel ? r.photometric == 0 || r.photometric == 1
                                     : r.photometric == 2 || r.photometric == 3 ||
                                           r.photometric == KV_PHOTOMETRIC_BGR;
        if (!allowed)
            return kova::raiseError(errSlot, self, ImageDataClass, bilevel ? 3499 : 3500, current,
                                    r.photometric);
        changed = true;
    }
    const int32_t firstByte = r.left * bpp / 8;
    const int32_t startPixel = firstByte * 8 / bpp;
    const int32_t bytesPerLine = (r.right * bpp - firstByte * 8 + 7) / 8;
    kvObject copy = kvNewObject(errSlot, "RawImage", bytesPerLine, r.bottom - r.top, bitsPerSample,
                                samplesPerPixel, self, nullptr, 0, 0);
    if (!copy || !pixelsOf(errSlot, copy)) {
        if (copy) kvDelObject(errSlot, copy);
        return 0;
    }
    const bool bilevel = bpp == 1;
    // The attributes are set before the pixels are copied: setting the
    // photometric value converts the buffer it finds, and the copy's buffer
    // must not be converted a second time.
    kvSendMeth(errSlot, copy, "setPhotoMetricInterp", bilevel ? r.photometric : current);
    kvSendMeth(errSlot, copy, "setImageWidth", r.right - startPixel);
    kvSendMeth(errSlot, copy, "setInverted", changed && !bilevel ? 1 : 0);
    kvSendMeth(errSlot, copy, "setRotation", 0);
    kvSendMeth(errSlot, copy, "setHorizFlipped", 0);
    kvSendMeth(errSlot, copy, "setVertFlipped", 0);
    kvSendMeth(errSlot, copy, "setXResolution", ask(errSlot, raw, "getXResolution"));
    kvSendMeth(errSlot, copy, "setYResolution", ask(errSlot, raw, "getYResolution"));
    const kvResult paletteSize = ask(errSlot, raw, "getPaletteSize");
    auto* fromPalette =
        reinterpret_cast<const kvPaletteEntry*>(ask(errSlot, raw, "getPalettePointer"));
    auto* toPalette = reinterpret_cast<kvPaletteEntry*>(ask(errSlot, copy, "getPalettePointer"));
    if (fromPalette && toPalette && paletteSize == ask(errSlot, copy, "getPaletteSize"))
        std::memcpy(toPalette, fromPalette, size_t(paletteSize) * sizeof(kvPaletteEntry));
    copyRegion(errSlot, raw, copy, r, size_t(firstByte), bpp, bilevel && changed);
    return reinterpret_cast<kvResult>(copy);
}

KV_METHOD(ImageData, getSidebandDataObject) {
    (void)instData, (void)args;
    const auto owner = reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getOwner"));
    if (!owner || !kvSendMeth(errSlot, owner, "respondsTo", "getSidebandDataObject")) return 0;
    return kvSendMeth(errSlot, owner, "getSidebandDataObject");
}

// (owner, name, id, flags): the Property's arguments.
KV_METHOD(ImageData, objInit) {
    kvSendParentMethNA(errSlot, ImageDataClass, self, "objInit", args);
    ImageDataData* d = dataOf(instData);
    d->storing = 0;
    d->rawImage = nullptr;
    return 0;
}

KV_METHOD(ImageData, objTerm) {
    deleteRawImage(errSlot, dataOf(instData));
    kvSendParentMethNA(errSlot, ImageDataClass, self, "objTerm", args);
    return 0;
}

// (A0–A14, pixels or null): a whole image in one call; without pixels a
// bilevel black-is-zero page starts white and any other page black.
// Answers 1, or 0 when the RawImage could not be made.
KV_METHOD(ImageData, setImageData) {
    ImageDataData* d = dataOf(instData);
    const Attributes a = attributesOf(args);
    const auto* pixels = reinterpret_cast<const uint8_t*>(kvArgAt(args, 15));
    kvSendMeth(errSlot, self, "clearImageNoNotify");
    kvObject raw = newRawImage(errSlot, self, a);
    if (!raw) return 0;
    d->rawImage = raw;
    uint8_t* buffer = pixelsOf(errSlot, raw);
    const size_t size = kova::imaging::rawImageBufferSize(raw);
    if (pixels)
        std::memcpy(buffer, pixels, std::min(size, size_t(a.bytesPerLine) * size_t(a.height)));
    else
        std::memset(buffer, a.photometric == KV_PHOTOMETRIC_BLACK_IS_ZERO ? 255 : 0,
                    std::min(size, size_t(ask(errSlot, raw, "getImageByteSize"))));
    if (a.paletteCount >= 1 && a.palette)
        kvSendMeth(errSlot, self, "setImagePaletteEntries", a.paletteCount, a.palette);
    announceChange(errSlot, self);
    return 1;
}

// (count, entries): copies the entries over the raw image's palette when it
// has one of exactly that size. Answers 1, or 0 with the error raised.
KV_METHOD(ImageData, setImagePaletteEntries) {
    const kvObject raw = dataOf(instData)->rawImage;
    const int32_t count = intArg(args, 0);
    const auto* entries = reinterpret_cast<const kvPaletteEntry*>(kvArgAt(args, 1));
    if (count == 0 || !entries) return kova::raiseError(errSlot, self, ImageDataClass, 3508);
    if (!raw) return kova::raiseError(errSlot, self, ImageDataClass, 3509, 0, 0);
    const auto bitsPerSample = int32_t(ask(errSlot, raw, "getBitsPerSample"));
    const auto samplesPerPixel = int32_t(ask(errSlot, raw, "getSamplesPerPixel"));
    const int32_t bits = bitsPerSample * samplesPerPixel;
    if (bits < 1 || bits > 24)
        return kova::raiseError(errSlot, self, ImageDataClass, 3509, bitsPerSample,
                                samplesPerPixel);
    if (bits != 4 && bits != 8) return kova::raiseError(errSlot, self, ImageDataClass, 3510, bits);
    auto* palette = reinterpret_cast<kvPaletteEntry*>(ask(errSlot, raw, "getPalettePointer"));
    if (!palette) return kova::raiseError(errSlot, self, ImageDataClass, 3511);
    const auto size = int32_t(ask(errSlot, raw, "getPaletteSize"));
    if (size != count) return kova::raiseError(errSlot, self, ImageDataClass, 3512, size, count);
    std::memcpy(palette, entries, size_t(count) * sizeof(kvPaletteEntry));
    return 1;
}

KV_METHOD(ImageData, setRawImageObject) {
    (void)instData;
    const kvResult result = kvSendMethNA(errSlot, self, "setRawImageObjectNoNotify", args);
    if (result) announceChange(errSlot, self);
    return result;
}

// (RawImage): takes ownership after dropping the current one. Answers 1.
KV_METHOD(ImageData, setRawImageObjectNoNotify) {
    kvSendMeth(errSlot, self, "clearImageNoNotify");
    dataOf(instData)->rawImage = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    return 1;
}

// (rows, count, first row): copies whole rows while storing. Answers 1, or 0
// when not storing. Missing rows or a negative first row are refused with
// 3493 (0), and rows past the buffer are not written.
KV_METHOD(ImageData, storeImageData) {
    const ImageDataData* d = dataOf(instData);
    if (!d->storing || !d->rawImage) return 0;
    const auto* rows = reinterpret_cast<const uint8_t*>(kvArgAt(args, 0));
    int32_t count = intArg(args, 1);
    const int32_t first = intArg(args, 2);
    if (!rows || first < 0)
        return kova::raiseError(errSlot, self, ImageDataClass, 3493, "storeImageData",
                                rows ? "FirstRow" : "Rows", rows ? first : 0);
    const auto height = int32_t(ask(errSlot, d->rawImage, "getImageHeight"));
    count = std::min(count, height - first);
    if (count < 1) return 1;
    const auto pitch = size_t(ask(errSlot, d->rawImage, "getBytesPerLine"));
    const size_t size = kova::imaging::rawImageBufferSize(d->rawImage);
    const size_t start = size_t(first) * pitch;
    if (start < size)
        std::memcpy(pixelsOf(errSlot, d->rawImage) + start, rows,
                    std::min(size_t(count) * pitch, size - start));
    return 1;
}

// (data, w, h, x, y, source pitch): copies a w × h block to column x, row y
// while storing. The row offset of y is taken with the source pitch, as it
// always has been; rows whose place falls outside the buffer are not written.
// Answers 1, or 0 for a bad block or when not storing.
KV_METHOD(ImageData, storeImageDataEx) {
    (void)self;
    const ImageDataData* d = dataOf(instData);
    const auto* data = reinterpret_cast<const uint8_t*>(kvArgAt(args, 0));
    int32_t w = intArg(args, 1), h = intArg(args, 2);
    const int32_t x = intArg(args, 3), y = intArg(args, 4), pitch = intArg(args, 5);
    if (w <= 0 || h <= 0 || x < 0 || y < 0 || !d->rawImage || !d->storing || !data) return 0;
    kvObject raw = d->rawImage;
    const auto width = int32_t(ask(errSlot, raw, "getImageWidth"));
    h = std::min(h, int32_t(ask(errSlot, raw, "getImageHeight")) - y);
    w = std::min(w, width - x);
    if (h < 1 || w < 1) return 1;
    const auto bytesPerLine = int64_t(ask(errSlot, raw, "getBytesPerLine"));
    const int64_t bits =
        int64_t(ask(errSlot, raw, "getBitsPerSample")) * ask(errSlot, raw, "getSamplesPerPixel");
    uint8_t* buffer = pixelsOf(errSlot, raw);
    const auto size = int64_t(kova::imaging::rawImageBufferSize(raw));
    auto copy = [&](int64_t at, const uint8_t* from, int64_t bytes) {
        if (at >= 0 && bytes > 0 && at + bytes <= size)
            std::memcpy(buffer + at, from, size_t(bytes));
    };
    if (w == width) {
        copy(int64_t(y) * bytesPerLine, data, int64_t(h) * bytesPerLine);
        return 1;
    }
    const int64_t rowBytes = ((w * bits + 7) & ~int64_t{7}) / 8;
    for (int32_t r = 0; r < h; ++r)
        copy(x * bits / 8 + int64_t(y) * pitch + r * bytesPerLine, data + int64_t(r) * pitch,
             rowBytes);
    return 1;
}

KV_REGISTER(ImageData) {
    if (!kvRegisterClass("Property")) return nullptr;
    ImageDataClass = kvAddClass("ImageData", "Property", sizeof(ImageDataData), 0,
                                imageDataMethods.get(), imageDataClassMethods.get());
    return ImageDataClass;
}
