// DIBs beside other programs: DIBs that RawImage exports, saved as BMP files,
// open in ImageMagick and Pillow with the same pixels; uncompressed BMP files
// that ImageMagick writes load through setDIB with the same pixels (its
// run-length forms are not plain rows); and the colour
// reducer's error beside ImageMagick's on the same pictures. A test skips,
// saying which, when a program is missing.
#include "tests/ImageFixture.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace kova::test {
namespace {

using Bytes = std::vector<uint8_t>;

bool run(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

bool haveImageMagick() {
    return run("command -v convert >/dev/null 2>&1");
}

// A Python that has Pillow: the one on the path, or the system's own.
std::string pillowPython() {
    for (const char* python : {"python3", "/usr/bin/python3"})
        if (run(std::string(python) + " -c 'import PIL' >/dev/null 2>&1")) return python;
    return "";
}

Bytes readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

void writeBytes(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// The pixels of a DIB as top-down red-green-blue bytes, read through its own
// colour table.
Bytes rgbOf(Dib& dib) {
    Bytes out;
    const int32_t bits = dib.header.biBitCount;
    for (int32_t y = 0; y < dib.header.biHeight; ++y) {
        const uint8_t* row = dib.row(y);
        for (int32_t x = 0; x < dib.header.biWidth; ++x) {
            if (bits == 24) {
                out.insert(out.end(), {row[3 * x + 2], row[3 * x + 1], row[3 * x]});
                continue;
            }
            const unsigned index = bits == 8   ? row[x]
                                   : bits == 4 ? (x % 2 ? row[x / 2] & 15 : row[x / 2] >> 4)
                                               : (row[x / 8] >> (7 - x % 8)) & 1;
            const kvRGBQuad c = dib.table[index];
            out.insert(out.end(), {c.rgbRed, c.rgbGreen, c.rgbBlue});
        }
    }
    return out;
}

// Mean absolute difference per sample, 0 to 255.
double meanError(const Bytes& a, const Bytes& b) {
    if (a.size() != b.size() || a.empty()) return 255;
    double sum = 0;
    for (size_t i = 0; i < a.size(); ++i)
        sum += std::abs(int(a[i]) - int(b[i]));
    return sum / double(a.size());
}

class DibInteropTest : public ImageTest {
  protected:
    void SetUp() override {
        ImageTest::SetUp();
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        // Inside the test run's own scratch folder, which no other run shares
        // (several builds, or clones, may run this test at once).
        folder_ = settingsFolder() / ("dib_" + std::string(test->name()));
        std::filesystem::create_directories(folder_);
    }
    void TearDown() override {
        std::filesystem::remove_all(folder_);
        ImageTest::TearDown();
    }
    std::string path(const std::string& name) const { return (folder_ / name).string(); }

    // The RGB bytes ImageMagick reads from `file`.
    Bytes imageMagickRgb(const std::string& file) {
        const std::string out = file + ".rgb";
        EXPECT_TRUE(run("convert '" + file + "' -depth 8 rgb:'" + out + "'")) << file;
        return readBytes(out);
    }
    // The grey levels of `file` seen through a slight blur, as ImageMagick
    // computes them.
    Bytes seenGrey(const std::string& file) {
        const std::string out = file + ".grey";
        EXPECT_TRUE(
            run("convert '" + file + "' -colorspace Gray -blur 0x1.2 -depth 8 gray:'" + out + "'"))
            << file;
        return readBytes(out);
    }
    Bytes pillowRgb(const std::string& python, const std::string& file) {
        const std::string out = file + ".pil";
        EXPECT_TRUE(
            run(python +
                " -c 'import sys; from PIL import Image; "
                "sys.stdout.buffer.write(Image.open(sys.argv[1]).convert(\"RGB\").tobytes())' '" +
                file + "' > '" + out + "'"))
            << file;
        return readBytes(out);
    }
    // A RawImage holding the BMP file's DIB (the file header dropped).
    kvObject loadBmp(const std::string& file) {
        const Bytes bmp = readBytes(file);
        EXPECT_GT(bmp.size(), 14u);
        kvObject raw = image(1, 1, 1, 1, 1);
        EXPECT_EQ(
            kvSendMeth(&error, raw, "setDIB", Dib::handleOf(Bytes(bmp.begin() + 14, bmp.end()))), 1)
            << file;
        return raw;
    }
    // The image's pixels as top-down red-green-blue bytes, read as the
    // image's own attributes say (a bilevel image's DIB always puts white
    // first, so its pixels are read here, not from an exported DIB).
    Bytes imageRgb(kvObject raw) {
        Bytes out;
        const auto bits = get(raw, "getBitsPerPixel");
        const auto photometric = get(raw, "getPhotoMetricInterp");
        const kvPaletteEntry* colours = palette(raw);
        for (int32_t y = 0; y < get(raw, "getImageHeight"); ++y) {
            const uint8_t* line = row(raw, y);
            for (int32_t x = 0; x < get(raw, "getImageWidth"); ++x) {
                if (bits == 24) {
                    const bool bgr = photometric == KV_PHOTOMETRIC_BGR;
                    out.insert(out.end(), {line[3 * x + (bgr ? 2 : 0)], line[3 * x + 1],
                                           line[3 * x + (bgr ? 0 : 2)]});
                } else if (bits == 1) {
                    const bool one = (line[x / 8] >> (7 - x % 8)) & 1;
                    const bool white = one == (photometric == KV_PHOTOMETRIC_BLACK_IS_ZERO);
                    out.insert(out.end(), 3, white ? 255 : 0);
                } else {
                    const unsigned index =
                        bits == 8 ? line[x] : (x % 2 ? line[x / 2] & 15 : line[x / 2] >> 4);
                    out.insert(out.end(),
                               {uint8_t(colours[index].red), uint8_t(colours[index].green),
                                uint8_t(colours[index].blue)});
                }
            }
        }
        return out;
    }

  private:
    std::filesystem::path folder_;
};

TEST_F(DibInteropTest, ExportedDIBsOpenInImageMagickAndPillowWithTheSamePixels) {
    if (!haveImageMagick()) GTEST_SKIP() << "ImageMagick (convert) is not installed";
    const std::string python = pillowPython();
    struct Case {
        const char* name;
        int32_t bitsPerSample, samplesPerPixel, width;
    };
    for (const Case& c : {Case{"one", 1, 1, 37}, Case{"four", 4, 1, 21}, Case{"eight", 8, 1, 19},
                          Case{"rgb", 8, 3, 23}}) {
        const int32_t bytesPerLine = (c.width * c.bitsPerSample * c.samplesPerPixel + 7) / 8;
        const int32_t height = 11;
        kvObject raw = image(bytesPerLine, height, c.bitsPerSample, c.samplesPerPixel, c.width);
        for (int32_t i = 0; i < bytesPerLine * height; ++i)
            pixels(raw)[i] = uint8_t(i * 29 + i / 7);
        if (c.samplesPerPixel == 1 && c.bitsPerSample > 1)
            for (uint32_t i = 0; i < (1u << c.bitsPerSample); ++i)
                palette(raw)[i] = {i * 3 % 256, 255 - i, i * 7 % 256};
        Dib dib = Dib::read(reinterpret_cast<kvMemHandle>(kvSendMeth(&error, raw, "getDIB")));
        const std::string file = path(std::string(c.name) + ".bmp");
        writeBytes(file, dib.bmpFile());
        const Bytes expected = rgbOf(dib);
        EXPECT_EQ(imageMagickRgb(file), expected) << c.name;
        if (!python.empty()) {
            EXPECT_EQ(pillowRgb(python, file), expected) << c.name;
        }
    }
    if (python.empty()) GTEST_SKIP() << "Pillow (python3-pil) is not installed; ImageMagick agreed";
}

TEST_F(DibInteropTest, BMPFilesWrittenByImageMagickLoadWithTheSamePixels) {
    if (!haveImageMagick()) GTEST_SKIP() << "ImageMagick (convert) is not installed";
    const std::vector<std::pair<std::string, std::string>> files = {
        {"rgb.bmp", "rose: BMP3:"},
        {"rgb-v5.bmp", "rose: BMP:"},
        {"palette.bmp", "rose: -colors 200 -type Palette -compress None BMP3:"},
        {"sixteen.bmp", "rose: -colors 16 -compress None BMP3:"},
        {"bilevel.bmp", "rose: -monochrome BMP3:"},
    };
    for (const auto& [name, options] : files) {
        const std::string file = path(name);
        ASSERT_TRUE(run("convert " + options + "'" + file + "'")) << name;
        kvObject raw = loadBmp(file);
        EXPECT_EQ(get(raw, "getImageWidth"), 70);
        EXPECT_EQ(imageRgb(raw), imageMagickRgb(file)) << name;
    }
}

// Lines of "words" (dark bars of varied width) down a page, as drawing
// primitives: a page of text without depending on installed fonts.
std::string textLines(int width, int height) {
    std::string primitives;
    unsigned seed = 12345;
    auto next = [&seed](unsigned range) {
        return (seed = seed * 1103515245 + 12345) / 65536 % range;
    };
    for (int y = 24; y + 12 < height - 80; y += 22)
        for (int x = 20; x < width - 60;) {
            const int word = 12 + int(next(50));
            primitives += "rectangle " + std::to_string(x) + "," + std::to_string(y) + " " +
                          std::to_string(x + word) + "," + std::to_string(y + 9 + int(next(3))) +
                          " ";
            x += word + 6 + int(next(4));
        }
    return primitives;
}

// Pictures for the reducer: a seeded fractal plasma and ImageMagick's own
// photograph of a rose (both scaled up), and a scanned-looking page of text
// lines with a coloured stamp on noisy off-white paper.
TEST_F(DibInteropTest, ReducerErrorStandsBesideImageMagicksOnPhotosAndScans) {
    if (!haveImageMagick()) GTEST_SKIP() << "ImageMagick (convert) is not installed";
    const std::vector<std::pair<std::string, std::string>> pictures = {
        {"plasma", "-seed 7 -size 320x240 plasma:fractal -blur 0x1"},
        {"rose", "rose: -resize 400%"},
        {"scan", "-size 480x320 xc:'#f4efe4' -seed 3 +noise Gaussian -fill '#202020' -draw '" +
                     textLines(480, 320) +
                     "' -fill '#c03030' -draw 'circle 380,250 420,250' "
                     "-blur 0x0.7"},
    };
    for (const auto& [name, recipe] : pictures) {
        const std::string original = path(name + ".bmp");
        ASSERT_TRUE(run("convert " + recipe + " -type TrueColor BMP3:'" + original + "'"));
        const Bytes truth = imageMagickRgb(original);
        for (int bits : {8, 4, 1}) {
            const std::string theirs = path(name + std::to_string(bits) + ".bmp");
            const std::string reduce =
                bits == 1 ? "-colorspace Gray -dither FloydSteinberg -monochrome"
                          : "-dither FloydSteinberg -colors " + std::to_string(1 << bits);
            ASSERT_TRUE(run("convert '" + original + "' " + reduce + " BMP3:'" + theirs + "'"));

            kvObject raw = loadBmp(original);
            ASSERT_EQ(kvSendMeth(&error, raw, "demoteImage", bits, bits == 1 ? 0 : 3), 1);
            EXPECT_EQ(get(raw, "getBitsPerPixel"), bits);
            const std::string ours = path(name + std::to_string(bits) + "-ours.bmp");
            writeBytes(ours,
                       Dib::read(reinterpret_cast<kvMemHandle>(get(raw, "getDIB"))).bmpFile());

            const double ourError = meanError(imageMagickRgb(ours), truth);
            const double theirError = meanError(imageMagickRgb(theirs), truth);
            // Dots of a bilevel picture are meant to be seen together: it is
            // also compared as grey seen through a slight blur.
            const double ourSeen = meanError(seenGrey(ours), seenGrey(original));
            const double theirSeen = meanError(seenGrey(theirs), seenGrey(original));
            std::printf("[ reducer  ] %-6s %d bits: mean error %6.2f, blurred grey %5.2f "
                        "(ImageMagick %6.2f, %5.2f)\n",
                        name.c_str(), bits, ourError, ourSeen, theirError, theirSeen);
            if (bits == 1)
                EXPECT_LE(ourSeen, theirSeen * 1.15 + 0.5) << name << bits;
            else
                EXPECT_LE(ourError, theirError * 1.15 + 0.5) << name << bits;
        }
    }
}

} // namespace
} // namespace kova::test
