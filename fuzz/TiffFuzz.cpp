// Feeds arbitrary bytes, as a TIFF file, to TiffTag: the open, then a walk of
// every directory and of the tags it is asked for (the common tags of a page
// and the 16-bit words the input starts with), reading each tag's items; then an
// edit of a copy (adding, replacing and deleting tags, adding and deleting a
// directory), a flush, and a second open and walk of what was written.
// Besides the sanitizers' checks it traps when a promise is broken: no kernel
// failure box, errors only of the kernel's numbers, item counts delivered
// never above what was asked.
#include "fuzz/FuzzChecks.hpp"
#include "kova/host.h"
#include "kova/kernel.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using kova::fuzz::messageBoxes;
using kova::fuzz::require;
using kova::fuzz::requireKernelErrors;
using kova::fuzz::startKernelOnce;

std::string pathFor(const char* role) {
    return "/tmp/kova_fuzz_tiff_" + std::to_string(getpid()) + "_" + role + ".tif";
}

void writeFile(const std::string& path, const uint8_t* data, size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    require(file != nullptr);
    if (size) require(std::fwrite(data, 1, size, file) == size);
    std::fclose(file);
}

// The tags to ask each directory for: the common ones of a page, and the
// words at the start of the input, where a mutated entry most likely lies.
std::vector<uint16_t> candidateTags(const uint8_t* data, size_t size) {
    std::vector<uint16_t> tags = {256, 257, 258, 259, 262, 270, 273, 278, 279, 282, 65000};
    for (size_t at = 0; at + 1 < size && at < 96; at += 2)
        tags.push_back(uint16_t(data[at] | data[at + 1] << 8));
    std::sort(tags.begin(), tags.end());
    tags.erase(std::unique(tags.begin(), tags.end()), tags.end());
    return tags;
}

void walk(kvObject& error, kvObject tiff, const std::vector<uint16_t>& tags) {
    static std::vector<uint8_t> buffer(4096 * 8);
    const kvResult directories = kvSendMeth(&error, tiff, "getIFDCount");
    for (kvResult i = 0; i < directories && i < 256; ++i) {
        require(kvSendMeth(&error, tiff, "setCurIndex", i) == i);
        const kvResult entries = kvSendMeth(&error, tiff, "getIFDTagCount");
        for (uint16_t tag : tags) {
            const kvResult index = kvSendMeth(&error, tiff, "findTag", tag);
            require(index == -1 || (index >= 0 && index < entries));
            if (index < 0) continue;
            kvSendMeth(&error, tiff, "getTagType");
            const kvResult count = kvSendMeth(&error, tiff, "getTagItemCount");
            const kvResult asked = std::min<kvResult>(count, 4096);
            const kvResult got = kvSendMeth(&error, tiff, "getTagData", asked, buffer.data());
            require(got >= 0 && got <= std::max<kvResult>(asked, 0));
        }
    }
    requireKernelErrors(error);
}

void edit(kvObject& error, kvObject tiff, const std::vector<uint16_t>& tags) {
    const uint16_t shorts[3] = {1, 2, 3};
    const uint32_t rational[2] = {300, 1};
    const kvResult directories = kvSendMeth(&error, tiff, "getIFDCount");
    for (kvResult i = 0; i < directories && i < 8; ++i) {
        kvSendMeth(&error, tiff, "setCurIndex", i);
        kvSendMeth(&error, tiff, "addTag", 65000, 3, 3, shorts);
        kvSendMeth(&error, tiff, "addTag", 282, 5, 1, rational);
        if (!tags.empty()) {
            kvSendMeth(&error, tiff, "addTag", tags[size_t(i) % tags.size()], 3, 1, shorts);
            kvSendMeth(&error, tiff, "deleteTag", tags[size_t(i * 7) % tags.size()]);
        }
    }
    kvSendMeth(&error, tiff, "addIFDs", 1);
    if (directories > 2) kvSendMeth(&error, tiff, "deleteIFD", 1);
    kvSendMeth(&error, tiff, "setCurIndex", 0);
    kvSendMeth(&error, tiff, "flushIFDs");
    kvSendMeth(&error, tiff, "closeTIFF");
    requireKernelErrors(error);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startKernelOnce();
    static const std::string original = pathFor("in");
    static const std::string copy = pathFor("copy");
    writeFile(original, data, size);
    writeFile(copy, data, size);
    const std::vector<uint16_t> tags = candidateTags(data, size);

    kvObject error = nullptr;
    kvObject tiff = kvNewObject(&error, "TiffTag");
    require(tiff != nullptr);
    kvSendMeth(&error, tiff, "openTIFF", original.c_str(), 0);
    walk(error, tiff, tags);
    kvSendMeth(&error, tiff, "closeTIFF");

    if (kvSendMeth(&error, tiff, "openTIFF", copy.c_str(), 1) == 1) edit(error, tiff, tags);
    requireKernelErrors(error);
    kvSendMeth(&error, tiff, "openTIFF", copy.c_str(), 0);
    walk(error, tiff, tags);
    kvDelObject(&error, tiff);
    requireKernelErrors(error);
    require(messageBoxes == 0);
    return 0;
}
