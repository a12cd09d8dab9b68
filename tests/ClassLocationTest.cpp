// The class location table: lookup without regard to case, insertion and
// removal, the copy rules of the buffer forms, the file form, growth and
// running out of memory, and the kernel's built-in table.
#include "tests/KernelFixture.hpp"

#include <cstdio>
#include <cstring>
#include <filesystem>

namespace kova::test {
namespace {

class ClassLocationTest : public FileTest {
  protected:
    void SetUp() override { kvTableFree_CLASSLOCATION(); }
    void TearDown() override {
        kvTableFree_CLASSLOCATION();
        FileTest::TearDown();
    }

    // One 34-byte entry as the file holds it.
    static std::string entry(const std::string& className, const std::string& libraryName) {
        std::string bytes(KV_CLASSLOC_ENTRY_SIZE, '\0');
        className.copy(bytes.data(), KV_CLASSLOC_CLASS_SIZE);
        libraryName.copy(bytes.data() + KV_CLASSLOC_CLASS_SIZE, KV_CLASSLOC_LIBRARY_SIZE);
        return bytes;
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
};

// Class names made so that their order is known: "Cls0000", "Cls0001", ...
std::string numberedClass(size_t number) {
    char name[32];
    std::snprintf(name, sizeof name, "Cls%04zu", number);
    return name;
}

TEST_F(ClassLocationTest, LooksUpClassesWithoutRegardToCaseAndRefusesBadArguments) {
    EXPECT_EQ(kvTableFind_CLASSLOCATION("DispTM"), nullptr);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("DispTM"), 0);
    EXPECT_EQ(GetKovaClassLocation(), 0);
    EXPECT_EQ(SetKovaClassLocation(), 0);
    for (auto [className, libraryName] : {std::pair<const char*, const char*>{"", "KVDISP32.DLL"},
                                          {"DispTM", ""},
                                          {nullptr, "KVDISP32.DLL"},
                                          {"DispTM", nullptr}})
        EXPECT_EQ(kvTableInsertEntry_CLASSLOCATION(className, libraryName), 0);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 0u);

    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("DispTM", "KVDISP32.DLL"), 1);
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("AnnoLine", "KVANNO32.DLL"), 1);
    EXPECT_EQ(library("disptm"), "KVDISP32.DLL");
    EXPECT_EQ(library("ANNOLINE"), "KVANNO32.DLL");
    for (const char* absent : {"Disp", "DispTMX", ""})
        EXPECT_EQ(library(absent), "<absent>") << absent;
    EXPECT_EQ(kvTableFind_CLASSLOCATION(nullptr), nullptr);
}

TEST_F(ClassLocationTest, InsertionKeepsOrderAndRemovalClosesTheGap) {
    for (const char* name : {"zoomProp", "AnnoText", "Baton", "annoLine", "PanWidget"})
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(name, "OLD.DLL"), 1);
    EXPECT_EQ(keys(),
              (std::vector<std::string>{"annoLine", "AnnoText", "Baton", "PanWidget", "zoomProp"}));
    // A present class gets the new library and keeps its spelling.
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ANNOTEXT", "NEW.DLL"), 1);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 5u);
    EXPECT_EQ(library("AnnoText"), "NEW.DLL");
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(1), std::string("AnnoText"));
    EXPECT_EQ(library("annoLine"), "OLD.DLL");

    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("baton"), 1);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("Baton"), 0);
    EXPECT_EQ(kvTableRemoveEntry_CLASSLOCATION("zoomProp"), 1);
    EXPECT_EQ(keys(), (std::vector<std::string>{"annoLine", "AnnoText", "PanWidget"}));
    EXPECT_EQ(library("PanWidget"), "OLD.DLL");
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(3), nullptr);
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("Baton", "B2"), 1);
    EXPECT_EQ(keys(), (std::vector<std::string>{"annoLine", "AnnoText", "Baton", "PanWidget"}));
}

// A class name holds 20 characters and a library name 12, in the table and in
// a file, whose fields need not be terminated.
TEST_F(ClassLocationTest, NamesLongerThanTheirFieldsAreCut) {
    const char* longClass = "RecognitionZoneEditorWidget"; // 27 characters
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(longClass, "KVRECOGNITION.DLL"), 1);
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(0), std::string(longClass, 20));
    EXPECT_EQ(library(longClass), "KVRECOGNITIO");
    EXPECT_EQ(library("RecognitionZoneEdito"), "KVRECOGNITIO");
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(longClass, "K.DLL"), 1);
    EXPECT_EQ(library(longClass), "K.DLL") << "a shorter library leaves no trace of the old";

    ASSERT_EQ(kvTableLoad_CLASSLOCATION(writeFile(std::string(34, 'Q')).c_str()), 1);
    EXPECT_EQ(kvTableGetKey_CLASSLOCATION(0), std::string(20, 'Q'));
    EXPECT_EQ(library(std::string(20, 'q').c_str()), std::string(12, 'Q'));
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

TEST_F(ClassLocationTest, AFileReplacesTheTableAndASavedTableLoadsBackByteForByte) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanTM", "KVSCAN32.DLL"), 1);
    const std::string original = entry("AnnoRect", "KVANNO32.DLL") +
                                 entry("FileTO", "KVFILE32.DLL") +
                                 entry("WinPrinter", "KVPRNT32.DLL");
    ASSERT_EQ(original.size(), 3u * 34);
    ASSERT_EQ(kvTableLoad_CLASSLOCATION(writeFile(original).c_str()), 1);
    EXPECT_EQ(keys(), (std::vector<std::string>{"AnnoRect", "FileTO", "WinPrinter"}));
    EXPECT_EQ(library("fileto"), "KVFILE32.DLL");
    EXPECT_EQ(library("ScanTM"), "<absent>");

    const std::string saved = tempPath();
    ASSERT_EQ(kvTableSave_CLASSLOCATION(saved.c_str()), 1);
    EXPECT_EQ(readFile(saved), original);
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ClipTM", "KVCLIP32.DLL"), 1);
    ASSERT_EQ(kvTableSave_CLASSLOCATION(saved.c_str()), 1) << "an existing file is overwritten";
    EXPECT_EQ(readFile(saved).size(), 4u * 34);
}

TEST_F(ClassLocationTest, RefusedFilesLeaveTheTableAsItWas) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanTM", "KVSCAN32.DLL"), 1);
    std::string oneByteTooMany = entry("DispTM", "KVDISP32.DLL");
    oneByteTooMany.push_back('x');

    EXPECT_EQ(kvTableLoad_CLASSLOCATION(writeFile(oneByteTooMany).c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(writeFile("").c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(tempPath().c_str()), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(std::filesystem::temp_directory_path().string().c_str()),
              0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(""), 0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(nullptr), 0);

    EXPECT_EQ(keys(), std::vector<std::string>{"ScanTM"});
    EXPECT_EQ(library("ScanTM"), "KVSCAN32.DLL");
    EXPECT_EQ(kvTableSave_CLASSLOCATION(
                  (std::filesystem::temp_directory_path() / "no/such/dir").string().c_str()),
              0);
}

// A table holds at most what a 16-bit count addresses; reading stops one byte
// past that, so an input that never ends is refused too.
TEST_F(ClassLocationTest, AFileLongerThanATableCanBeIsRefused) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("ScanTM", "KVSCAN32.DLL"), 1);
    std::string largest(size_t{KV_CLASSLOC_MAX_ENTRIES} * 34, '\0');
    for (size_t i = 0; i < largest.size(); i += 34)
        largest[i] = 'C';
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(writeFile(largest + std::string(34, 'C')).c_str()), 0);
#ifndef _WIN32
    EXPECT_EQ(kvTableLoad_CLASSLOCATION("/dev/zero"), 0);
#endif
    EXPECT_EQ(keys(), std::vector<std::string>{"ScanTM"});
    ASSERT_EQ(kvTableLoad_CLASSLOCATION(writeFile(largest).c_str()), 1);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), size_t{KV_CLASSLOC_MAX_ENTRIES});
}

// The table's first block holds 250 entries; the 251st needs a larger one.
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
    const std::string path = writeFile(entry("A", "A.DLL") + entry("B", "B.DLL"));
    kvDebugFailAllocAfter(0);
    EXPECT_EQ(kvTableLoad_CLASSLOCATION(path.c_str()), 0);
    EXPECT_EQ(KovaClassLocationInit4(), 0);
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(keys(), std::vector<std::string>{"ScanTM"});
}

// Its rows are checked against their source when the library is built and
// by the platform tests; here, how it replaces and leaves the table.
TEST_F(ClassLocationTest, BuiltInTableReplacesTheTableAndNamesNoKernelClass) {
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("Leftover", "L.DLL"), 1);
    ASSERT_EQ(KovaClassLocationInit4(), 1);
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 181u);
    EXPECT_EQ(library("Leftover"), "<absent>");
    for (const char* kernelClass : {"Object", "Baron", "TM", "PM", "Property", "KOVAErr"})
        EXPECT_EQ(library(kernelClass), "<absent>") << kernelClass;
    KovaClassLocationTerm4();
    EXPECT_EQ(kvTableGetCount_CLASSLOCATION(), 0u);
}

} // namespace
} // namespace kova::test
