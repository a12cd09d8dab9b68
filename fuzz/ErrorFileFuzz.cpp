// Feeds arbitrary bytes to the error registry as an error message file, then
// looks up every number the file's lines give and unregisters. Besides the
// sanitizers' checks it traps when the registry breaks its own promises: each
// well-formed line's number answers the text and help context of the first
// line with that number (texts cut to 255 characters), a file with no
// well-formed lines still registers, and a registration made while memory runs
// out either completes or leaves nothing behind.
#include "errors/ErrorLines.hpp"
#include "fuzz/FuzzChecks.hpp"
#include "kova/errreg.h"
#include "kova/host.h"

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

using kova::errors::ErrorLine;
using kova::errors::LineVerdict;

// A path of this process's own, so that parallel fuzzing jobs do not meet.
const std::string& scratchPath() {
    static const std::string path = [] {
        const char* folder = std::getenv("TMPDIR");
        return std::string(folder ? folder : "/tmp") + "/kova_errfile_fuzz_" +
               std::to_string(::getpid()) + ".err";
    }();
    return path;
}

bool writeFile(const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(scratchPath().c_str(), "wb");
    if (!file) return false;
    const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && written;
}

struct Expected {
    int16_t number;
    std::string text;
    uint16_t helpContext;
};

// The first well-formed line of each number, read from the file as it lies.
std::vector<Expected> expectedMessages() {
    std::vector<Expected> expected;
    std::FILE* file = std::fopen(scratchPath().c_str(), "r");
    require(file != nullptr);
    size_t previousLine = 0;
    bool tooLong = false;
    kova::errors::forEachLine(kova::errors::FileBytes(file, &tooLong), [&](const ErrorLine& line) {
        require(line.lineNumber == previousLine + 1);
        previousLine = line.lineNumber;
        if (line.verdict != LineVerdict::WellFormed) return true;
        require(line.text.size() <= kova::errors::maxLineLength);
        bool seen = false;
        for (const Expected& e : expected)
            seen = seen || e.number == line.number;
        if (!seen)
            expected.push_back(
                {line.number, std::string(line.text.substr(0, 255)), line.helpContext});
        return true;
    });
    std::fclose(file);
    return expected;
}

void checkLookups(uint16_t handle, const std::vector<Expected>& expected) {
    char text[256];
    char helpFile[256];
    uint16_t helpContext = 0;
    for (const Expected& e : expected) {
        require(ErrGetMsg(handle, e.number, text, sizeof text) == ERR_REG_OK);
        require(e.text == text);
        require(ErrGetHelpInfo(handle, e.number, &helpContext, helpFile, 0) == ERR_REG_OK);
        require(helpContext == e.helpContext);
        require(std::strcmp(helpFile, "FUZZ.HLP") == 0);
    }
    if (expected.empty()) require(ErrGetMsg(handle, 0, text, sizeof text) == ERR_REG_NO_MESSAGE);
}

// Registers under allocation failure after `allowed` allocations: either it
// completes, or it fails with the memory status and nothing is registered.
void registerWhileMemoryRunsOut(long allowed, const std::vector<Expected>& expected) {
    uint16_t handle = 0;
    kvDebugFailAllocAfter(allowed);
    const int status = ErrRegisterFile("fuzz", scratchPath().c_str(), "FUZZ.HLP", &handle);
    kvDebugFailAllocAfter(-1);
    if (status == ERR_REG_MEMORY) {
        require(handle == 0);
        return;
    }
    require(status == ERR_REG_OK);
    checkLookups(handle, expected);
    require(ErrUnRegisterFile(handle) == ERR_REG_OK);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!writeFile(data, size)) return 0;
    const std::vector<Expected> expected = expectedMessages();

    uint16_t handle = 0;
    require(ErrRegisterFile("fuzz", scratchPath().c_str(), "FUZZ.HLP", &handle) == ERR_REG_OK);
    require(handle != 0);
    checkLookups(handle, expected);
    require(ErrUnRegisterFile(handle) == ERR_REG_OK);
    require(ErrUnRegisterFile(handle) == ERR_REG_RECORD_NOT_FOUND);

    registerWhileMemoryRunsOut(static_cast<long>(size % 7), expected);
    return 0;
}
