/* What callers of the image classes (RawImage, ImageData) share with them:
 * the palette entry, the photometric interpretation values and the names of
 * the parameters that choose a region of an image. */
#ifndef KOVA_IMAGE_H
#define KOVA_IMAGE_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** One palette entry: three components, each 0 to 255 (the low byte counts). */
typedef struct kvPaletteEntry {
    uint32_t red;   /**< red, 0 to 255 */
    uint32_t green; /**< green, 0 to 255 */
    uint32_t blue;  /**< blue, 0 to 255 */
} kvPaletteEntry;

KV__STATIC_ASSERT(sizeof(kvPaletteEntry) == 12);

/** Photometric interpretations: how the samples of a pixel are read. */
enum {
    KV_PHOTOMETRIC_WHITE_IS_ZERO = 0, /**< bilevel, a 0 bit is white */
    KV_PHOTOMETRIC_BLACK_IS_ZERO = 1, /**< bilevel or grey, 0 is black */
    KV_PHOTOMETRIC_RGB = 2,           /**< three samples, red first */
    KV_PHOTOMETRIC_PALETTE = 3,       /**< one sample, an index into the palette */
    KV_PHOTOMETRIC_BGR = 120          /**< three samples, blue first, as in a DIB */
};

/** Parameter ids of ImageData's "getRawImageObject", read with kvGetParam
 * from the parameter list passed as its one argument. */
enum {
    KV_IMAGE_PARAM_LEFT = 1,        /**< first column, default 0 */
    KV_IMAGE_PARAM_TOP = 2,         /**< first row, default 0 */
    KV_IMAGE_PARAM_RIGHT = 3,       /**< column after the last, default the width */
    KV_IMAGE_PARAM_BOTTOM = 4,      /**< row after the last, default the height */
    KV_IMAGE_PARAM_PHOTOMETRIC = 10 /**< photometric interpretation of the copy */
};

#ifdef __cplusplus
}
#endif

#endif /* KOVA_IMAGE_H */
