// Message texts are printf formats whose values come from argument slots.
#pragma once

#include "kova/kernel.h"

#include <cstddef>

namespace kova::errors {

// Formats `format` with the values of `args`, in order, into `out` (at most
// size - 1 characters and a terminator) and answers the characters written.
// Understands the flags "-+ #0", a width and a precision (digits or "*" from
// the next slot), the length modifiers h, l and ll, and the conversions
// d i u x X o c s p and %%. %d and %ld print the slot as a 32-bit value, as
// the system's 32-bit "long" does; %lld prints all of it. A directive it does
// not understand, floating ones included (floats travel by pointer), is copied
// as it stands. Slots beyond the list read as 0, and a null string prints as
// "(null)".
size_t formatMessage(char* out, size_t size, const char* format, const kvArgs* args);

} // namespace kova::errors
