// The class location table: lookup without regard to case, insertion and
// removal, the copy rules of the buffer forms, the file form, growth and
// running out of memory, and the kernel's built-in table.
#include "kova/classloc.h"
#include "kova/host.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

using Bytes = std::vector<char>;

class ClassLocationTest : public ::testing::Test {
  protected:
    void SetUp() override { kvTableFree_CLASSLOCATION(); }
    void TearDown() override {
        kvDebugFailAllocAfter(-1);
        kvTableFree_CLASSLOCATION();
        for (const fs::path& file : files_)
            fs::remove(file);
    }

    // A fresh path in the temporary folder, removed after the test.
    std::string tempFile(const std::string& name) {
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        fs::path path =
            fs::temp_directory_path() / (std::string("kova_classloc_") + test->name() + "_" + name);
        files_.push_back(path);
        return path.string();
    }

    std::string writeFile(const std::string& name, const Bytes& bytes) {
        const std::string path = tempFile(name);
        std::ofstream(path, std::ios::binary).write(bytes.data(), std::ssize(bytes));
        return path;
    }

    static Bytes readFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), {});
    }

    // One 34-byte entry as the file holds it.
    static Bytes entry(const std::string& className, const std::string& libraryName) {
        Bytes bytes(KV_CLASSLOC_ENTRY_SIZE, '\0');
        className.copy(bytes.data(), KV_CLASSLOC_CLASS_SIZE);
        libraryName.copy(bytes.data() + KV_CLASSLOC_CLASS_SIZE, KV_CLASSLOC_LIBRARY_SIZE);
        return bytes;
    }

    static Bytes concat(std::initializer_list<Bytes> parts) {
        Bytes all;
        for (const Bytes& part : parts)
            all.insert(all.end(), part.begin(), part.end());
        return all;
    }

    static std::vector<std::string> keys() {
        std::vector<std::string> names;
        for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i)
            names.emplace_back(kvTableGetKey_CLASSLOCATION(i));
        return names;
    }

    static std::string library(const char* className) {
        const char* name = kvTableFind_CLASSLOCATION(className);
        return name ? name : "<absent>";
    }

  private:
    std::vector<fs::path> files_;
};

std::string folded(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Class names made so that their order is known: "Cls0000", "Cls0001", ...
std::string numberedClass(size_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "Cls%04zu", number);
    return name;
}

TEST_F(ClassLocationTest, LooksUpClassesWithoutRegardToCase) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("DispTM", "KVDISP32.DLL"), 1);
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("AnnoLine", "KVANNO32.DLL"), 1);
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanPM", "KVSCAN32.DLL"), 1);

    EXPECT_EQ(library("disptm"), "KVDISP32.DLL");
    EXPECT_EQ(library("ANNOLINE"), "KVANNO32.DLL");
    EXPECT_EQ(library("ScanPm"), "KVSCAN32.DLL");
    EXPECT_EQ(library("Disp"), "<absent>");
    EXPECT_EQ(library("DispTMX"), "<absent>");
    EXPECT_EQ(library(""), "<absent>");
    EXPECT_EQ(kvTableFind_CLASSLOCATION(nullptr), nullptr);
}

TEST_F(ClassLocationTest, EmptyTableFindsNothingAndRefusesBadArguments) {
    EXPECT_EQ(kvTableFind_CLASSLOCATION("DispTM"), nullptr);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("DispTM"), 0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION("", "KVDISP32.DLL"), 0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION("DispTM", ""), 0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION(nullptr, "KVDISP32.DLL"), 0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION("DispTM", nullptr), 0);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 0u);
    EXPECT_EQ(GetKovaClassLocation(), 0);
    EXPECT_EQ(SetKovaClassLocation(), 0);
}

TEST_F(ClassLocationTest, InsertionKeepsOrderAndReplacesTheLibraryOfAPresentClass) {
    for (const char* name : {"zoomProp", "AnnoText", "Baton", "annoLine", "PanWidget"})
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(name, "OLD.DLL"), 1);
    EXPECT_EQ(keys(),
              (std::vector<std::string>{"annoLine", "AnnoText", "Baton", "PanWidget", "zoomProp"}));

    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ANNOTEXT", "NEW.DLL"), 1);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 5u);
    EXPECT_EQ(library("AnnoText"), "NEW.DLL");
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(1), std::string("AnnoText")) << "spelling is kept";
    EXPECT_EQ(library("annoLine"), "OLD.DLL");
}

TEST_F(ClassLocationTest, RemovalClosesTheGap) {
    for (const char* name : {"A", "B", "C", "D"})
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(name, name), 1);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("b"), 1);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("B"), 0);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("D"), 1);
    EXPECT_EQ(keys(), (std::vector<std::string>{"A", "C"}));
    EXPECT_EQ(library("C"), "C");
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(2), nullptr);

    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("B", "B2"), 1);
    EXPECT_EQ(keys(), (std::vector<std::string>{"A", "B", "C"}));
}

TEST_F(ClassLocationTest, NamesLongerThanTheirFieldsAreCut) {
    const char* longClass = "RecognitionZoneEditorWidget"; // 27 characters
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(longClass, "KVRECOGNITION.DLL"), 1);

    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(0), std::string(longClass, 20));
    EXPECT_EQ(library(longClass), "KVRECOGNITIO");
    EXPECT_EQ(library("RecognitionZoneEdito"), "KVRECOGNITIO");

    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(longClass, "K.DLL"), 1);
    EXPECT_EQ(library(longClass), "K.DLL") << "a shorter library leaves no trace of the old";
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION(longClass), 1);
}

TEST_F(ClassLocationTest, BufferCopiesWriteSizeCharactersAndATerminator) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ThumbTM", "KVTHMB32.DLL"), 1);
    auto copy = [](auto call, size_t size, int expected, const char* text) {
        char buffer[16];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(call(buffer, size), expected) << "size " << size;
        EXPECT_STREQ(buffer, text) << "size " << size;
        const size_t end = std::strlen(text) + 1;
        for (size_t i = end; i < sizeof buffer; ++i)
            EXPECT_EQ(buffer[i], '#') << "byte " << i << " with size " << size;
    };
    auto find = [](const char* name) {
        return [name](char* buffer, size_t size) {
            return kvTableFind_CLASSLOCATION2(name, buffer, size);
        };
    };
    auto key = [](size_t index) {
        return [index](char* buffer, size_t size) {
            return kvTableGetKey_CLASSLOCATION2(index, buffer, size);
        };
    };

    copy(find("thumbtm"), 15, 1, "KVTHMB32.DLL");
    copy(find("thumbtm"), 12, 1, "KVTHMB32.DLL");
    copy(find("thumbtm"), 5, 1, "KVTHM");
    copy(find("thumbtm"), 0, 1, "");
    copy(find("ThumbPM"), 15, 0, "");
    copy(find(nullptr), 15, 0, "");
    copy([](char* buffer, size_t size) { return KovaClassLocationGet4("THUMBTM", buffer, size); },
         3, 1, "KVT");

    copy(key(0), 15, 1, "ThumbTM");
    copy(key(0), 4, 1, "Thum");
    copy(key(1), 15, 0, "");
    copy(key(SIZE_MAX), 15, 0, "");

    EXPECT_EQ(kvTableFind_CLASSLOCATION2("ThumbTM", nullptr, 4), 0);
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION2(0, nullptr, 4), 0);
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(SIZE_MAX), nullptr);
}

TEST_F(ClassLocationTest, SavedTableLoadsBackByteForByte) {
    const Bytes original =
        concat({entry("AnnoRect", "KVANNO32.DLL"), entry("FileTO", "KVFILE32.DLL"),
                entry("WinPrinter", "KVPRNT32.DLL")});
    ASSERT_EQ(kvTableLoad_CLASSLOCATION(writeFile("in", original).c_str()), 1);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 3u);
    EXPECT_EQ(library("fileto"), "KVFILE32.DLL");

    const std::string saved = tempFile("out");
    ASSERT_EQ(kvTableSave_CLASSLOCATION(saved.c_str()), 1);
    EXPECT_EQ(readFile(saved), original);

    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ClipTM", "KVCLIP32.DLL"), 1);
    ASSERT_EQ(kvTableSave_CLASSLOCATION(saved.c_str()), 1) << "an existing file is overwritten";
    EXPECT_EQ(readFile(saved).size(), 4u * KV_CLASSLOC_ENTRY_SIZE);
}

TEST_F(ClassLocationTest, RefusedFilesLeaveTheTableAsItWas) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanTM", "KVSCAN32.DLL"), 1);
    Bytes oneByteTooMany = entry("DispTM", "KVDISP32.DLL");
    oneByteTooMany.push_back('x');

    EXPECT_EQ(kvTableLoad_CLASSLOCATION(writeFile("35", oneByteTooMany).c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(writeFile("empty", {}).c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(tempFile("missing").c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(fs::temp_directory_path().string().c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(""), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(nullptr), 0);

    EXPECT_EQ(keys(), std::vector<std::string>{"ScanTM"});
    EXPECT_EQ(library("ScanTM"), "KVSCAN32.DLL");
    EXPECT_EQ(
        kvTableSave_CLASSLOCATION((fs::temp_directory_path() / "no/such/dir").string().c_str()), 0);
}

TEST_F(ClassLocationTest, FileOfTwoEntriesReplacesTheTable) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanTM", "KVSCAN32.DLL"), 1);
    const Bytes bytes = concat({entry("DispPM", "KVDISP32.DLL"), entry("DispTM", "KVDISP32.DLL")});
    ASSERT_EQ(bytes.size(), 68u);
    ASSERT_EQ(kvTableLoad_CLASSLOCATION(writeFile("68", bytes).c_str()), 1);
    EXPECT_EQ(keys(), (std::vector<std::string>{"DispPM", "DispTM"}));
    EXPECT_EQ(library("ScanTM"), "<absent>");
}

TEST_F(ClassLocationTest, UnterminatedFieldsInAFileAreCutNotOverRead) {
    const Bytes full(KV_CLASSLOC_ENTRY_SIZE, 'Q');
    ASSERT_EQ(kvTableLoad_CLASSLOCATION(writeFile("full", full).c_str()), 1);
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(0), std::string(20, 'Q'));
    EXPECT_EQ(library(std::string(20, 'q').c_str()), std::string(12, 'Q'));
}

TEST_F(ClassLocationTest, GrowsBy250EntriesThenBy50) {
    const unsigned long before = kvDebugAllocCount();
    auto insertDescending = [](size_t from, size_t to) {
        for (size_t i = from; i < to; ++i)
            ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(numberedClass(1000 - i).c_str(), "L.DLL"),
                      1);
    };
    insertDescending(0, 250);
    EXPECT_EQ(kvDebugAllocCount() - before, 1u);
    insertDescending(250, 300);
    EXPECT_EQ(kvDebugAllocCount() - before, 2u);
    insertDescending(300, 301);
    EXPECT_EQ(kvDebugAllocCount() - before, 3u);

    ASSERT_EQ(kvTableGetCount_CLASSLOCATION(), 301u);
    for (size_t i = 0; i < 301; ++i) {
        ASSERT_EQ(kvTableGetKey_CLASSLOCATION(i), numberedClass(700 + i));
        ASSERT_EQ(library(numberedClass(700 + i).c_str()), "L.DLL");
    }
}

TEST_F(ClassLocationTest, FailedGrowthLeavesTheTableAsItWas) {
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION("First", "L.DLL"), 0);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 0u);
    kvDebugFailAllocAfter(-1);

    for (size_t i = 0; i < 250; ++i)
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(numberedClass(2 * i).c_str(), "L.DLL"), 1);
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION(numberedClass(7).c_str(), "L.DLL"), 0);
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION(numberedClass(8).c_str(), "NEW.DLL"), 1)
        << "replacing a library needs no memory";
    kvDebugFailAllocAfter(-1);

    ASSERT_EQ(kvTableGetCount_CLASSLOCATION(), 250u);
    for (size_t i = 0; i < 250; ++i)
        ASSERT_EQ(kvTableGetKey_CLASSLOCATION(i), numberedClass(2 * i));
    EXPECT_EQ(library(numberedClass(7).c_str()), "<absent>");
    EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION(numberedClass(7).c_str(), "L.DLL"), 1);
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(4), numberedClass(7));
}

TEST_F(ClassLocationTest, LoadingWithoutMemoryLeavesTheTableAsItWas) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanTM", "KVSCAN32.DLL"), 1);
    const std::string path = writeFile("two", concat({entry("A", "A.DLL"), entry("B", "B.DLL")}));
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(path.c_str()), 0);
    EXPECT_EQ(KovaClassLocationInit4(), 0);
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(keys(), std::vector<std::string>{"ScanTM"});
}

TEST_F(ClassLocationTest, BuiltInTableHolds181SortedComponentClasses) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("Leftover", "L.DLL"), 1);
    ASSERT_EQ(KovaClassLocationInit4(), 1);
    ASSERT_EQ(kvTableGetCount_CLASSLOCATION(), 181u);
    EXPECT_EQ(library("Leftover"), "<absent>") << "the built-in table replaces the old one";

    for (size_t i = 0; i < 181; ++i) {
        const std::string key = kvTableGetKey_CLASSLOCATION(i);
        ASSERT_FALSE(key.empty());
        ASSERT_LE(key.size(), 20u);
        if (i > 0) {
            ASSERT_LT(folded(kvTableGetKey_CLASSLOCATION(i - 1)), folded(key)) << key;
        }
        const std::string libraryName = library(key.c_str());
        EXPECT_LE(libraryName.size(), 12u) << key;
        EXPECT_EQ(libraryName.substr(libraryName.size() - 4), ".DLL") << key;
    }
    for (const char* kernelClass : {"Object", "Baron", "TM", "PM", "Property", "KOVAErr"})
        EXPECT_EQ(library(kernelClass), "<absent>") << kernelClass;

    KovaClassLocationTerm4();
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 0u);
}

} // namespace
