/* Device-independent bitmaps (DIBs) in movable memory handles, as the image
 * classes hand them out ("getDIB") and take them in ("setDIB").
 *
 * A DIB handle holds one block: a bitmap information header, the colour table
 * and the pixel rows, bottom row first, each row padded to a multiple of four
 * bytes. On Windows a handle is a real global memory handle (GlobalAlloc with
 * GMEM_MOVEABLE), so a host may use the system's own functions on it; on POSIX
 * the functions below are the only way to make, read and free one. They work
 * the same on both systems. */
#ifndef KOVA_DIB_H
#define KOVA_DIB_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** A movable memory handle; null for none. */
typedef void* kvMemHandle;

/** Allocates a movable, zero-filled block of `size` bytes; null on failure. */
KV_API kvMemHandle kvGlobalAlloc(size_t size);
/** Resizes the block, keeping its bytes and zero-filling any growth. Answers
 * the handle to use from now on, or null on failure (the old block is then
 * unchanged and still owned by the caller). A null handle allocates anew. */
KV_API kvMemHandle kvGlobalReAlloc(kvMemHandle handle, size_t size);
/** Locks the block and answers the address of its bytes (null for a null
 * handle). Every lock is paired with one kvGlobalUnlock. */
KV_API void* kvGlobalLock(kvMemHandle handle);
/** Ends one lock of the block. */
KV_API void kvGlobalUnlock(kvMemHandle handle);
/** Frees the block; a null handle does nothing. */
KV_API void kvGlobalFree(kvMemHandle handle);
/** The size of the block in bytes; 0 for a null handle. */
KV_API size_t kvGlobalSize(kvMemHandle handle);

#pragma pack(push, 1)
/** The 40-byte bitmap information header at the start of a DIB. All fields
 * are little-endian. */
typedef struct kvBitmapInfoHeader {
    uint32_t biSize;         /**< size of this header: 40 */
    int32_t biWidth;         /**< pixels a row */
    int32_t biHeight;        /**< rows; positive for bottom-up rows */
    uint16_t biPlanes;       /**< always 1 */
    uint16_t biBitCount;     /**< bits a pixel: 1, 4, 8, 16 or 24 */
    uint32_t biCompression;  /**< 0: uncompressed rows */
    uint32_t biSizeImage;    /**< bytes of the rows, or 0 for uncompressed rows */
    int32_t biXPelsPerMeter; /**< horizontal resolution in pixels a metre */
    int32_t biYPelsPerMeter; /**< vertical resolution in pixels a metre */
    uint32_t biClrUsed;      /**< colour table entries, or 0 for 2^biBitCount */
    uint32_t biClrImportant; /**< colours needed to show the image, 0 for all */
} kvBitmapInfoHeader;

/** The 12-byte header of the older form, whose colour table entries have
 * three bytes (blue, green, red) instead of four. */
typedef struct kvBitmapCoreHeader {
    uint32_t bcSize;     /**< size of this header: 12 */
    uint16_t bcWidth;    /**< pixels a row */
    uint16_t bcHeight;   /**< rows, bottom-up */
    uint16_t bcPlanes;   /**< always 1 */
    uint16_t bcBitCount; /**< bits a pixel */
} kvBitmapCoreHeader;

/** One colour table entry after a 40-byte header. */
typedef struct kvRGBQuad {
    uint8_t rgbBlue;     /**< blue, 0 to 255 */
    uint8_t rgbGreen;    /**< green, 0 to 255 */
    uint8_t rgbRed;      /**< red, 0 to 255 */
    uint8_t rgbReserved; /**< 0 */
} kvRGBQuad;
#pragma pack(pop)

KV__STATIC_ASSERT(sizeof(kvBitmapInfoHeader) == 40);
KV__STATIC_ASSERT(sizeof(kvBitmapCoreHeader) == 12);
KV__STATIC_ASSERT(sizeof(kvRGBQuad) == 4);

/** Bytes of one DIB row of `width` pixels of `bitCount` bits: rounded up to
 * a multiple of four. */
static inline size_t kvDIBRowBytes(size_t width, unsigned bitCount) {
    return (width * bitCount + 31) / 32 * 4;
}

#ifdef __cplusplus
}
#endif

#endif /* KOVA_DIB_H */
