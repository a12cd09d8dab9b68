// Feeds arbitrary bytes to the class location file loader, then finds,
// inserts, removes and saves on whatever it accepted. Besides the sanitizers'
// checks it traps when the table breaks its own promises: a refused file
// leaves the table as it was, every name handed out fits its field, and a
// saved table loads back as the same entries.
#include "fuzz/FuzzChecks.hpp"
#include "kova/classloc.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using kova::fuzz::require;

// A path of this process's own, so that parallel fuzzing jobs do not meet.
std::string scratchPath(const char* suffix) {
    const char* folder = std::getenv("TMPDIR");
    return std::string(folder ? folder : "/tmp") + "/kova_classloc_fuzz_" +
           std::to_string(::getpid()) + suffix;
}

bool writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return false;
    const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && written;
}

std::vector<std::string> snapshot() {
    std::vector<std::string> rows;
    for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i) {
        const char* className = kvTableGetKey_CLASSLOCATION(i);
        const char* libraryName = kvTableFind_CLASSLOCATION(className);
        rows.push_back(std::string(className) + '\n' + (libraryName ? libraryName : "-"));
    }
    return rows;
}

// Reads every entry through each accessor, with buffers of every small size.
void readEveryEntry() {
    const size_t count = kvTableGetCount_CLASSLOCATION();
    for (size_t i = 0; i < count; ++i) {
        const char* className = kvTableGetKey_CLASSLOCATION(i);
        require(className && std::strlen(className) < KV_CLASSLOC_CLASS_SIZE);
        if (const char* libraryName = kvTableFind_CLASSLOCATION(className))
            require(std::strlen(libraryName) < KV_CLASSLOC_LIBRARY_SIZE);
        for (size_t size = 0; size < 4; ++size) {
            std::vector<char> buffer(size + 1, '#');
            kvTableGetKey_CLASSLOCATION2(i, buffer.data(), size);
            require(std::strlen(buffer.data()) <= size);
            kvTableFind_CLASSLOCATION2(className, buffer.data(), size);
            require(std::strlen(buffer.data()) <= size);
        }
    }
    require(kvTableGetKey_CLASSLOCATION(count) == nullptr);
}

std::string folded(std::string name) {
    for (char& c : name)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return name;
}

// True when the class names ascend strictly without regard to case, as in a
// table the kernel built itself.
bool isSorted() {
    for (size_t i = 1; i < kvTableGetCount_CLASSLOCATION(); ++i)
        if (!(folded(kvTableGetKey_CLASSLOCATION(i - 1)) < folded(kvTableGetKey_CLASSLOCATION(i))))
            return false;
    return true;
}

// Edits the loaded table with names taken from the input itself.
void editTable(const uint8_t* data, size_t size) {
    const std::string name(reinterpret_cast<const char*>(data), std::min<size_t>(size, 24));
    const std::string className = name.c_str(); // up to the first NUL, as callers pass it
    if (className.empty()) return;
    const bool sorted = isSorted();
    const size_t before = kvTableGetCount_CLASSLOCATION();
    const bool present = kvTableFind_CLASSLOCATION(className.c_str()) != nullptr;
    require(kvTableInsertEntry_CLASSLOCATION(className.c_str(), "FUZZ.DLL") == 1);
    require(kvTableGetCount_CLASSLOCATION() == before + (present ? 0 : 1));
    const char* libraryName = kvTableFind_CLASSLOCATION(className.c_str());
    // A table loaded unsorted may hide what it holds from the search; a sorted
    // one finds what was just put in, and stays sorted.
    if (sorted) {
        require(libraryName && std::strcmp(libraryName, "FUZZ.DLL") == 0);
        require(isSorted());
    }
    if (kvTableGetCount_CLASSLOCATION() > 0)
        kvTableRemoveEntry_CLASSLOCATION(kvTableGetKey_CLASSLOCATION(0));
}

// Saves the table and loads it back: the same rows, in the same order.
void checkRoundTrip() {
    if (kvTableGetCount_CLASSLOCATION() == 0) return;
    const std::string path = scratchPath(".saved");
    const std::vector<std::string> before = snapshot();
    require(kvTableSave_CLASSLOCATION(path.c_str()) == 1);
    require(kvTableLoad_CLASSLOCATION(path.c_str()) == 1);
    require(snapshot() == before);
    std::remove(path.c_str());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = scratchPath(".input");
    if (!writeFile(path, data, size)) return 0;

    kvTableFree_CLASSLOCATION();
    require(kvTableInsertEntry_CLASSLOCATION("Sentinel", "KEEP.DLL") == 1);
    const bool loaded = kvTableLoad_CLASSLOCATION(path.c_str()) == 1;
    std::remove(path.c_str());
    require(loaded == (size > 0 && size % KV_CLASSLOC_ENTRY_SIZE == 0));
    if (!loaded) {
        require(kvTableGetCount_CLASSLOCATION() == 1);
        require(std::strcmp(kvTableFind_CLASSLOCATION("sentinel"), "KEEP.DLL") == 0);
    } else {
        require(kvTableGetCount_CLASSLOCATION() == size / KV_CLASSLOC_ENTRY_SIZE);
    }

    readEveryEntry();
    editTable(data, size);
    readEveryEntry();
    checkRoundTrip();
    kvTableFree_CLASSLOCATION();
    return 0;
}
