// The kernel's messages as their source lists them, for what shows or checks
// the message table built from that source.
#pragma once

namespace kova::errors {

struct KernelMessage {
    int number;
    const char* text; // the message, then a blank and the help context
};

inline constexpr KernelMessage kernelMessages[] = {
#define KV_MESSAGE(number, text) {number, text},
#include "errors/KernelMessages.def"
#undef KV_MESSAGE
};

} // namespace kova::errors
