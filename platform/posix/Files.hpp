// Whole-file reads and atomic replacement, for the registry store and INI
// files on POSIX.
#pragma once

#include "platform/HeapAllocator.hpp"

#include <string>
#include <string_view>

namespace kova::platform {

enum class ReadResult { Read, Missing, TooLarge, Failed };
// Reads the file at `path` into `bytes` when it holds at most `limit` bytes.
// Throws std::bad_alloc.
ReadResult readWholeFile(const std::string& path, size_t limit, HeapString& bytes);

// Replaces the file at `path` with `bytes`: they are written to a temporary
// file beside it, flushed to the disk and renamed over it, so that a reader
// (or a crash) sees the old file or the new one, never a part. Creates the
// folders above it.
bool replaceFile(const std::string& path, std::string_view bytes);

} // namespace kova::platform
