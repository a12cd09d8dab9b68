// What the TIFF tests share: a builder of TIFF files in either byte order,
// and a started kernel with a TiffTag, temporary files and readers of a
// tag's items.
#pragma once

#include "tests/KernelFixture.hpp"

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace kova::test {

using TiffBytes = std::vector<uint8_t>;

// What a command prints on its standard output and error, and its exit
// status; a status of -1 when it cannot be run.
struct Output {
    std::string text;
    int status = -1;
};

inline Output run(const std::string& commandLine) {
    Output output;
#ifdef _WIN32
    (void)commandLine;
#else
    std::FILE* pipe = popen((commandLine + " 2>&1").c_str(), "r");
    if (!pipe) return output;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.text.append(buffer, got);
    output.status = pclose(pipe);
#endif
    return output;
}

inline bool haveTool(const char* name) {
#ifdef _WIN32
    (void)name;
    return false;
#else
    return run(std::string("command -v ") + name + " >/dev/null").status == 0;
#endif
}

// Builds a TIFF file: the header, then each directory followed by the items
// that do not fit in its entries, every directory on an even offset and
// linked to the next.
class TiffFile {
  public:
    explicit TiffFile(bool bigEndian = false) : big(bigEndian) {}

    // Starts a new directory; entries go to the newest one.
    TiffFile& directory() {
        directories.emplace_back();
        return *this;
    }
    // An entry of `type` whose items are `values` (a rational is two values).
    TiffFile& entry(uint16_t tag, uint16_t type, std::vector<uint32_t> values) {
        const uint32_t count = type == 5 ? uint32_t(values.size() / 2) : uint32_t(values.size());
        directories.back().push_back({tag, type, count, encode(type, values)});
        return *this;
    }
    TiffFile& ascii(uint16_t tag, const std::string& text) {
        TiffBytes items(text.begin(), text.end());
        items.push_back(0);
        directories.back().push_back({tag, 2, uint32_t(items.size()), items});
        return *this;
    }
    // An entry whose count and value field are given as they are.
    TiffFile& raw(uint16_t tag, uint16_t type, uint32_t count, uint32_t value) {
        TiffBytes field;
        put32(field, value);
        directories.back().push_back({tag, type, count, field, true});
        return *this;
    }

    TiffBytes bytes() const {
        TiffBytes out = {uint8_t(big ? 'M' : 'I'), uint8_t(big ? 'M' : 'I')};
        put16(out, 42);
        put32(out, directories.empty() ? 0 : 8);
        for (size_t d = 0; d < directories.size(); ++d) {
            const auto& entries = directories[d];
            const size_t start = out.size();
            size_t data = start + 2 + entries.size() * 12 + 4;
            put16(out, uint16_t(entries.size()));
            TiffBytes outside;
            for (const Item& item : entries) {
                put16(out, item.tag);
                put16(out, item.type);
                put32(out, item.count);
                if (item.asIs || item.items.size() <= 4) {
                    TiffBytes field = item.items;
                    field.resize(4, 0);
                    out.insert(out.end(), field.begin(), field.end());
                } else {
                    put32(out, uint32_t(data + outside.size()));
                    outside.insert(outside.end(), item.items.begin(), item.items.end());
                    if (outside.size() % 2) outside.push_back(0);
                }
            }
            const size_t next = data + outside.size();
            put32(out, d + 1 < directories.size() ? uint32_t(next) : 0);
            out.insert(out.end(), outside.begin(), outside.end());
        }
        return out;
    }

    void put16(TiffBytes& out, uint16_t value) const {
        if (big) value = uint16_t(value << 8 | value >> 8);
        out.push_back(uint8_t(value));
        out.push_back(uint8_t(value >> 8));
    }
    void put32(TiffBytes& out, uint32_t value) const {
        put16(out, uint16_t(big ? value >> 16 : value));
        put16(out, uint16_t(big ? value : value >> 16));
    }

  private:
    struct Item {
        uint16_t tag;
        uint16_t type;
        uint32_t count;
        TiffBytes items; // in the file's order
        bool asIs = false;
    };

    TiffBytes encode(uint16_t type, const std::vector<uint32_t>& values) const {
        TiffBytes out;
        for (uint32_t value : values) {
            if (type == 3)
                put16(out, uint16_t(value));
            else if (type == 4 || type == 5)
                put32(out, value);
            else
                out.push_back(uint8_t(value));
        }
        return out;
    }

    bool big;
    std::vector<std::vector<Item>> directories;
};

class TiffTest : public KernelTest {
  protected:
    void SetUp() override {
        KernelTest::SetUp();
        tiff = make("TiffTag");
        ASSERT_NE(tiff, nullptr);
    }
    void TearDown() override {
        KernelTest::TearDown();
        for (const auto& path : paths)
            std::filesystem::remove(path);
    }

    // A fresh path in the temporary folder, removed after the test.
    std::string tempPath(const std::string& suffix = ".tif") {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        std::string name = std::string("kova_") + info->test_suite_name() + "_" + info->name() +
                           "_" + std::to_string(paths.size()) + suffix;
        for (char& c : name)
            if (c == '/') c = '_';
        paths.push_back((std::filesystem::temp_directory_path() / name).string());
        std::filesystem::remove(paths.back());
        return paths.back();
    }
    std::string writeFile(const TiffBytes& bytes) {
        const std::string path = tempPath();
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        return path;
    }
    static TiffBytes readFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return TiffBytes(std::istreambuf_iterator<char>(in), {});
    }

    kvResult open(const std::string& path, int update = 0) {
        return kvSendMeth(&error, tiff, "openTIFF", path.c_str(), update);
    }
    kvResult send(const char* method) { return kvSendMeth(&error, tiff, method); }
    template <typename... A> kvResult send(const char* method, A... args) {
        return kvSendMeth(&error, tiff, method, args...);
    }
    // The items of `tag` in the selected directory, each widened to 32 bits
    // (a rational as two), as getTagData delivers them.
    std::vector<uint32_t> items(uint16_t tag) {
        if (send("findTag", tag) < 0) return {};
        const auto type = send("getTagType");
        const auto count = send("getTagItemCount");
        std::vector<uint8_t> buffer(size_t(count) * 8 + 8);
        const auto got = send("getTagData", count, buffer.data());
        std::vector<uint32_t> values;
        for (kvResult i = 0; i < got * (type == 5 ? 2 : 1); ++i) {
            if (type == 3) {
                uint16_t value;
                std::memcpy(&value, &buffer[size_t(i) * 2], 2);
                values.push_back(value);
            } else if (type == 4 || type == 5) {
                uint32_t value;
                std::memcpy(&value, &buffer[size_t(i) * 4], 4);
                values.push_back(value);
            } else {
                values.push_back(buffer[size_t(i)]);
            }
        }
        return values;
    }

    kvObject tiff = nullptr;

  private:
    std::vector<std::string> paths;
};

} // namespace kova::test
