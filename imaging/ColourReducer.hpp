// The colour reducer: makes a DIB of fewer bits a pixel from a DIB. Internal
// to the library; RawImage's "demoteImage" goes through it.
//
// - To 1 bit: each pixel's luminance (0.299 R + 0.587 G + 0.114 B) is
//   thresholded at the middle grey, with three quarters of the error
//   diffused, so that near-white paper stays clean while greys keep their
//   tone. Mode 0 (white
//   is zero) writes white pixels as 0 bits and puts white first in the colour
//   table; mode 1 (black is zero) and mode 2 write black as 0 with black
//   first.
// - To 4 or 8 bits: an image with no more distinct colours than the target
//   holds gets exactly those colours. Otherwise a palette is built for the
//   image by variance-based median cut over a histogram of 15-bit colours
//   (the box of greatest squared error is split where the two halves' error
//   is least), refined by two rounds of k-means, and each pixel is mapped to
//   its nearest entry with the error diffused.
// - To 16 bits: 4-4-4 words (red in bits 8-11), the form the image classes
//   read 16-bit DIBs in; to 24 bits: a plain copy.
// Error diffusion is Floyd-Steinberg along alternate directions on
// alternate rows.
#pragma once

#include "kova/dib.h"

namespace kova::imaging {

// How pixels are mapped onto the reduced colours.
enum Dither : int {
    nearestColour = 0, // each pixel to its nearest colour
    errorDiffusion = 2 // each pixel's error spread over its neighbours
};

// A new DIB (bottom-up, 40-byte header, the source's resolution) of
// `targetBits` (1, 4, 8, 16 or 24) bits from the DIB in `source`, which is
// left as it was. Null when the source is not a DIB of 1, 4, 8, 16 or 24
// uncompressed bits whose block holds its rows, when the target is not one
// of those depths, or when memory runs out.
kvMemHandle reduceColours(kvMemHandle source, int targetBits, int mode, int dither);

} // namespace kova::imaging
