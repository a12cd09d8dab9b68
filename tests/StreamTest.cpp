// Streams: integers as little-endian bytes, the growable and fixed memory
// streams with their seek rules and refusals, the file stream's round trip and
// its reports of failing file calls, and the pure methods of the base class.
#include "tests/KernelFixture.hpp"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace kova::test {
namespace {

class StreamTest : public KernelTest {
  protected:
    void TearDown() override {
        for (kvObject stream : streams)
            kvDelObject(nullptr, stream);
        KernelTest::TearDown();
    }

    kvObject memStream(int16_t mode, int32_t size) {
        kvObject stream = kvNewObject(&error, "MemStream", mode, size);
        if (stream) streams.push_back(stream);
        return stream;
    }

    kvObject fileStream(const std::string& path, const char* mode) {
        kvObject stream = kvNewObject(&error, "FileStream", path.c_str(), mode);
        if (stream) streams.push_back(stream);
        return stream;
    }

    static std::vector<unsigned char> bytesOf(kvObject stream) {
        const auto* data =
            reinterpret_cast<const unsigned char*>(kvSendMeth(nullptr, stream, "getDataPtr"));
        const auto length = static_cast<size_t>(kvSendMeth(nullptr, stream, "getLength"));
        return data ? std::vector<unsigned char>(data, data + length)
                    : std::vector<unsigned char>{};
    }

    static kvResult position(kvObject stream) { return kvSendMeth(nullptr, stream, "getPos"); }

    // The error left in `error`, checked and cleared.
    int32_t takeError() {
        const int32_t code = errorCode(error);
        clearErrors(error);
        return code;
    }

    static std::string tempPath(const char* name) { return ::testing::TempDir() + name; }

    kvObject error = nullptr;
    std::vector<kvObject> streams;
};

using Bytes = std::vector<unsigned char>;

TEST_F(StreamTest, IntegersAreLittleEndianBytesOnTheStream) {
    kvObject stream = memStream(0, 0);
    kvSendMeth(&error, stream, "WriteInt32", 0x01020304);
    kvSendMeth(&error, stream, "WriteInt16", 0xA1B2);
    kvSendMeth(&error, stream, "WriteInt16", 0x12345); // only the low 16 bits
    EXPECT_EQ(bytesOf(stream), (Bytes{0x04, 0x03, 0x02, 0x01, 0xB2, 0xA1, 0x45, 0x23}));

    kvSendMeth(&error, stream, "Rewind");
    uint32_t wide = 0;
    uint16_t narrow = 0;
    EXPECT_EQ(kvSendMeth(&error, stream, "ReadInt32", &wide), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "ReadInt16", &narrow), 0);
    EXPECT_EQ(wide, 0x01020304u);
    EXPECT_EQ(narrow, 0xA1B2);

    // Two bytes left: a 32-bit read changes only the two low bytes.
    wide = 0xAAAAAAAA;
    kvSendMeth(&error, stream, "ReadInt32", &wide);
    EXPECT_EQ(wide, 0xAAAA2345u);
    EXPECT_EQ(kvSendMeth(&error, stream, "ReadInt16", static_cast<uint16_t*>(nullptr)), 0);
    EXPECT_EQ(error, nullptr);
}

TEST_F(StreamTest, GrowableStreamGrowsToExactlyWhatIsWrittenAndSeeksLopsidedFromTheEnd) {
    kvObject stream = memStream(0, 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "abc", 3), 3);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "defgh", 5), 5);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}));
    EXPECT_EQ(position(stream), 8);

    // From the start or the position, the end itself is out of reach...
    kvSendMeth(&error, stream, "Seek", 0, 3);
    kvSendMeth(&error, stream, "Seek", 0, 8);
    EXPECT_EQ(takeError(), 3438);
    EXPECT_EQ(position(stream), 3);
    kvSendMeth(&error, stream, "Seek", 1, 5);
    EXPECT_EQ(takeError(), 3438);
    kvSendMeth(&error, stream, "Seek", 1, -4);
    EXPECT_EQ(takeError(), 3438);
    EXPECT_EQ(position(stream), 3);
    kvSendMeth(&error, stream, "Seek", 1, -3);
    EXPECT_EQ(position(stream), 0);

    // ...while from the end 0 is the last byte, -1 the end, and lower lies past it.
    kvSendMeth(&error, stream, "Seek", 2, 0);
    EXPECT_EQ(position(stream), 7);
    kvSendMeth(&error, stream, "Seek", 2, -1);
    EXPECT_EQ(position(stream), 8);
    kvSendMeth(&error, stream, "Seek", 2, 1);
    EXPECT_EQ(takeError(), 3438);
    EXPECT_EQ(position(stream), 8);
    EXPECT_EQ(error, nullptr);

    kvSendMeth(&error, stream, "Seek", 2, -3);
    EXPECT_EQ(position(stream), 10);
    char buffer[4];
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 4), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "Z", 1), 1);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 0, 0, 'Z'}));
    EXPECT_EQ(error, nullptr);
}

TEST_F(StreamTest, ReadsStopAtTheEndAndRefuseEmptyNegativeAndNullRequests) {
    kvObject stream = memStream(0, 0);
    kvSendMeth(&error, stream, "Write", "0123456789", 10);
    kvSendMeth(&error, stream, "Seek", 0, 6);
    char buffer[10] = {};
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 10), 4);
    EXPECT_EQ(std::string(buffer, 4), "6789");
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 10), 0);

    kvSendMeth(&error, stream, "Rewind");
    std::memset(buffer, '.', sizeof buffer);
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 0), -1);
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, -1), -1);
    // A count is 32-bit: a slot holding 0xFFFFFFFF is -1, not four billion.
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, kvArg{0xFFFFFFFF}), -1);
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", static_cast<char*>(nullptr), 4), -1);
    EXPECT_EQ(buffer[0], '.');
    EXPECT_EQ(position(stream), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "x", 0), -1);
    EXPECT_EQ(error, nullptr); // reads never raise; an empty write is no error
}

TEST_F(StreamTest, BadWritesAndSeeksAreRefusedWithTheStreamUnchanged) {
    kvObject stream = memStream(0, 0);
    kvSendMeth(&error, stream, "Write", "abcd", 4);
    for (kvArg count : {kvArg{-1}, kvArg{0xFFFFFFFF}, kvArg{INT32_MIN}}) {
        EXPECT_EQ(kvSendMeth(&error, stream, "Write", "abcd", count), 0);
        EXPECT_EQ(takeError(), 3437);
    }
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", static_cast<char*>(nullptr), 2), 0);
    EXPECT_EQ(takeError(), 3437);

    // A seek from the end far beyond what a position can hold.
    kvSendMeth(&error, stream, "Seek", 2, INT32_MIN);
    EXPECT_EQ(takeError(), 3438);
    // A position near the limit cannot grow the block past it.
    kvSendMeth(&error, stream, "Seek", 2, -(INT32_MAX - 4));
    EXPECT_EQ(position(stream), INT32_MAX - 1);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "ab", 2), 0);
    EXPECT_EQ(takeError(), 3437);
    kvSendMeth(&error, stream, "Seek", 0, 1);
    for (kvArg origin : {kvArg{3}, kvArg{-1}, kvArg{0x7FFF}}) {
        kvSendMeth(&error, stream, "Seek", origin, 0);
        EXPECT_EQ(takeError(), 3438) << origin;
    }
    kvSendMeth(&error, stream, "Seek", 0, -1);
    EXPECT_EQ(takeError(), 3438);
    EXPECT_EQ(position(stream), 1);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c', 'd'}));
}

TEST_F(StreamTest, FixedStreamRefusesToGrow) {
    kvObject stream = memStream(1, 4);
    EXPECT_EQ(bytesOf(stream), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "12345", 5), 0);
    EXPECT_EQ(takeError(), 3437);
    EXPECT_EQ(position(stream), 0);
    EXPECT_EQ(bytesOf(stream), (Bytes{0, 0, 0, 0}));

    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "1234", 4), 4);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "5", 1), 0);
    EXPECT_EQ(takeError(), 3437);
    kvSendMeth(&error, stream, "Seek", 2, -3); // past the end of a fixed block
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "5", 1), 0);
    EXPECT_EQ(takeError(), 3437);
    EXPECT_EQ(bytesOf(stream), (Bytes{'1', '2', '3', '4'}));
}

TEST_F(StreamTest, FailedGrowthKeepsTheOldBlockLengthAndPosition) {
    kvObject stream = memStream(0, 0);
    kvSendMeth(&error, stream, "Write", "abc", 3);
    const kvResult block = kvSendMeth(&error, stream, "getDataPtr");
    kvDebugFailAllocOnce(0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "defg", 4), 0);
    EXPECT_EQ(takeError(), 3437);
    EXPECT_EQ(kvSendMeth(&error, stream, "getDataPtr"), block);
    EXPECT_EQ(position(stream), 3);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "defg", 4), 4);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g'}));
}

TEST_F(StreamTest, CreationWithABadModeSizeOrNoMemoryLeavesAStreamWithoutABlock) {
    const auto expectBlockless = [&](kvObject stream) {
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(takeError(), 3429);
        EXPECT_EQ(kvSendMeth(&error, stream, "getDataPtr"), 0);
        char buffer[2];
        EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 2), -1);
        EXPECT_EQ(kvSendMeth(&error, stream, "Write", "ab", 2), -1);
        EXPECT_EQ(error, nullptr);
    };
    expectBlockless(memStream(2, 0));
    expectBlockless(memStream(0, -5));
    expectBlockless(memStream(1, -1));

    // Fail each allocation of a creation in turn: the object is missing
    // (header or data block) or lives without a block and says so.
    bool sawBlockFailure = false;
    for (long n = 0; n < 20; ++n) {
        kvDebugFailAllocOnce(n);
        kvObject stream = kvNewObject(&error, "MemStream", 1, 16);
        kvDebugFailAllocAfter(-1);
        if (!stream) {
            clearErrors(error);
            continue;
        }
        const bool hasBlock = kvSendMeth(&error, stream, "getDataPtr") != 0;
        if (!hasBlock) {
            EXPECT_EQ(errorCode(error), 3429);
        }
        sawBlockFailure |= !hasBlock;
        clearErrors(error);
        kvDelObject(&error, stream);
    }
    EXPECT_TRUE(sawBlockFailure);
}

TEST_F(StreamTest, BaseStreamIsPureButBuildsItsIntegerMethodsOnThem) {
    kvObject stream = kvNewObject(&error, "Stream");
    ASSERT_NE(stream, nullptr);
    streams.push_back(stream);
    char buffer[2];
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 2), 0);
    EXPECT_EQ(errorMessage(error), "Class Stream did not override pure virtual method Read");
    EXPECT_EQ(takeError(), 3431);
    kvSendMeth(&error, stream, "WriteInt32", 7);
    EXPECT_EQ(errorMessage(error), "Class Stream did not override pure virtual method Write");
    EXPECT_EQ(takeError(), 3431);
    kvSendMeth(&error, stream, "Rewind");
    EXPECT_EQ(errorMessage(error), "Class Stream did not override pure virtual method Seek");
    EXPECT_EQ(takeError(), 3431);
}

TEST_F(StreamTest, FileStreamRoundTrip) {
    const std::string path = tempPath("kova_stream_round_trip.bin");
    kvObject stream = fileStream(path, "w+b");
    ASSERT_NE(kvSendMeth(&error, stream, "getFilePtr"), 0);
    kvSendMeth(&error, stream, "WriteInt32", 0x01020304);
    kvSendMeth(&error, stream, "WriteInt16", 0xBEEF);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "tail", 4), 4);
    EXPECT_EQ(position(stream), 10);
    kvSendMeth(&error, stream, "Seek", 0, 2);
    EXPECT_EQ(kvSendMeth(&error, stream, "getLength"), 10);
    EXPECT_EQ(position(stream), 2); // finding the length keeps the position

    kvSendMeth(&error, stream, "Rewind");
    uint32_t wide = 0;
    uint16_t narrow = 0;
    kvSendMeth(&error, stream, "ReadInt32", &wide);
    kvSendMeth(&error, stream, "ReadInt16", &narrow);
    EXPECT_EQ(wide, 0x01020304u);
    EXPECT_EQ(narrow, 0xBEEF);
    char buffer[10] = {};
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 10), 4); // a short read at the end
    EXPECT_EQ(std::string(buffer, 4), "tail");
    kvSendMeth(&error, stream, "Seek", 2, -4);
    EXPECT_EQ(position(stream), 6);
    EXPECT_EQ(error, nullptr);

    kvDelObject(&error, stream);
    streams.clear();
    std::FILE* file = std::fopen(path.c_str(), "rb");
    ASSERT_NE(file, nullptr);
    unsigned char bytes[16];
    EXPECT_EQ(std::fread(bytes, 1, sizeof bytes, file), 10u);
    std::fclose(file);
    EXPECT_EQ(Bytes(bytes, bytes + 6), (Bytes{0x04, 0x03, 0x02, 0x01, 0xEF, 0xBE}));
    std::remove(path.c_str());
}

TEST_F(StreamTest, FileStreamOnAMissingFileLivesOnAndAnswersZero) {
    kvObject stream = fileStream(tempPath("no_such_folder/missing.bin"), "rb");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(errorCode(error), 3488);
    EXPECT_EQ(errorMessage(error), "System Error: GetLastError returned " + std::to_string(ENOENT));
    clearErrors(error);

    char buffer[4];
    EXPECT_EQ(kvSendMeth(&error, stream, "getFilePtr"), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 4), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "abcd", 4), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Seek", 0, 0), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "getPos"), 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "getLength"), 0);
    EXPECT_EQ(error, nullptr);

    streams.push_back(kvNewObject(&error, "FileStream", static_cast<const char*>(nullptr), "rb"));
    EXPECT_NE(streams.back(), nullptr);
    EXPECT_EQ(errorMessage(error), "System Error: GetLastError returned " + std::to_string(EINVAL));
    streams.push_back(kvNewObject(nullptr, "FileStream", "x", static_cast<const char*>(nullptr)));
}

TEST_F(StreamTest, FailingFileCallsReportTheSystemError) {
    const std::string path = tempPath("kova_stream_failures.bin");
    const auto expectSystemError = [&](int code) {
        EXPECT_EQ(errorMessage(error),
                  "System Error: GetLastError returned " + std::to_string(code));
        clearErrors(error);
    };
    kvObject writer = fileStream(path, "wb");
    char buffer[4];
    EXPECT_EQ(kvSendMeth(&error, writer, "Read", buffer, 4), 0); // not open for reading
    expectSystemError(EBADF);
    EXPECT_EQ(kvSendMeth(&error, writer, "Write", buffer, -1), 0);
    expectSystemError(EINVAL);
    kvSendMeth(&error, writer, "Seek", 5, 0);
    expectSystemError(EINVAL);
    kvSendMeth(&error, writer, "Seek", 0, -10);
    expectSystemError(EINVAL);

    kvObject reader = fileStream(path, "rb");
    EXPECT_EQ(kvSendMeth(&error, reader, "Write", "abcd", 4), 0); // not open for writing
    expectSystemError(EBADF);
    EXPECT_EQ(kvSendMeth(&error, reader, "Read", static_cast<char*>(nullptr), 4), 0);
    expectSystemError(EINVAL);
    EXPECT_EQ(kvSendMeth(&error, reader, "Read", buffer, 0), 0);
    EXPECT_EQ(error, nullptr);
    std::remove(path.c_str());
}

} // namespace
} // namespace kova::test
