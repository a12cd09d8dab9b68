// What the library's other image classes know of a RawImage beyond its
// methods. Internal to the library.
#pragma once

#include "kova/kernel.h"

#include <cstddef>

namespace kova::imaging {

// Bytes of the pixel buffer a RawImage holds, as allocated; 0 when `image`
// is not a RawImage or holds none. Its height and width can be set without
// reallocation, so a writer into the buffer bounds itself by this.
size_t rawImageBufferSize(kvObject image);

} // namespace kova::imaging
