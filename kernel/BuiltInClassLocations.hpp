// The rows of the kernel's built-in class location table as their source
// gives them, for whatever checks the table built from that source.
#pragma once

namespace kova::kernel {

struct BuiltInRow {
    const char* className;
    const char* libraryName;
};

inline constexpr BuiltInRow builtInRows[] = {
#define KV_CLASSLOC(className, libraryName) {className, libraryName},
#include "kernel/ClassLocations.def"
#undef KV_CLASSLOC
};

} // namespace kova::kernel
