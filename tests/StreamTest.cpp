// Streams: integers as little-endian bytes, the growable and fixed memory
// streams with their seek rules and refusals, the file stream's round trip and
// its reports of failing file calls.
#include "tests/KernelFixture.hpp"

#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

namespace kova::test {
namespace {

using Bytes = std::vector<unsigned char>;

class StreamTest : public KernelTest {
  protected:
    static Bytes bytesOf(kvObject stream) {
        const auto* data =
            reinterpret_cast<const unsigned char*>(kvSendMeth(nullptr, stream, "getDataPtr"));
        return data ? Bytes(data, data + kvSendMeth(nullptr, stream, "getLength")) : Bytes{};
    }
    static kvResult position(kvObject stream) { return kvSendMeth(nullptr, stream, "getPos"); }
    // The message of the newest error is the system error `code`; the slot is then cleared.
    void expectSystemError(int code) {
        EXPECT_EQ(errorMessage(error),
                  "System Error: GetLastError returned " + std::to_string(code));
        clearErrors(error);
    }
};

TEST_F(StreamTest, IntegersAreLittleEndianBytesOnTheStream) {
    kvObject stream = make("MemStream", 0, 0);
    kvSendMeth(&error, stream, "WriteInt32", 0x01020304);
    kvSendMeth(&error, stream, "WriteInt16", 0x12345); // only the low 16 bits
    EXPECT_EQ(bytesOf(stream), (Bytes{0x04, 0x03, 0x02, 0x01, 0x45, 0x23}));

    kvSendMeth(&error, stream, "Seek", 0, 2);
    uint16_t narrow = 0;
    uint32_t wide = 0xAAAAAAAA;
    kvSendMeth(&error, stream, "ReadInt16", &narrow);
    kvSendMeth(&error, stream, "ReadInt32", &wide); // two bytes left: only they change
    EXPECT_EQ(narrow, 0x0102);
    EXPECT_EQ(wide, 0xAAAA2345u);
}

TEST_F(StreamTest, GrowableStreamGrowsExactlyAndSeeksLopsidedlyFromTheEnd) {
    kvObject stream = make("MemStream", 0, 0);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "abc", 3), 3);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "defgh", 5), 5);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}));

    // From the start or the position, the end itself is out of reach...
    kvSendMeth(&error, stream, "Seek", 0, 3);
    for (auto [origin, offset] : {std::pair{0, 8}, {0, -1}, {1, 5}, {1, -4}, {3, 0}, {2, 1}}) {
        kvSendMeth(&error, stream, "Seek", origin, offset);
        EXPECT_EQ(takeError(), 3438) << origin << "," << offset;
        EXPECT_EQ(position(stream), 3);
    }
    // ...while from the end 0 is the last byte, -1 the end, and lower lies past it.
    kvSendMeth(&error, stream, "Seek", 2, 0);
    EXPECT_EQ(position(stream), 7);
    kvSendMeth(&error, stream, "Seek", 2, -1);
    EXPECT_EQ(position(stream), 8);
    kvSendMeth(&error, stream, "Seek", 2, -3);
    EXPECT_EQ(position(stream), 10);
    char buffer[4];
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 4), 0);
    // Growth from past the end zero-fills the gap; a source inside the block moves with it.
    const auto* block = reinterpret_cast<const char*>(kvSendMeth(&error, stream, "getDataPtr"));
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", block + 1, 2), 2);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 0, 0, 'b', 'c'}));
}

TEST_F(StreamTest, ReadsStopAtTheEndAndBadRequestsTouchNothing) {
    kvObject stream = make("MemStream", 0, 0);
    kvSendMeth(&error, stream, "Write", "0123456789", 10);
    kvSendMeth(&error, stream, "Seek", 0, 6);
    char buffer[10] = {};
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 10), 4);
    EXPECT_EQ(std::string(buffer, 4), "6789");
    kvSendMeth(&error, stream, "Rewind");
    // A count is 32-bit: a slot holding 0xFFFFFFFF is -1, not four billion.
    for (kvArg count : {kvArg{0}, kvArg{-1}, static_cast<kvArg>(0xFFFFFFFFu)})
        EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, count), -1) << count;
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", nullptr, 4), -1);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "x", 0), -1);
    EXPECT_EQ(error, nullptr); // reads never raise; an empty write is no error
    for (kvArg count : {kvArg{-1}, static_cast<kvArg>(0xFFFFFFFFu), kvArg{INT32_MIN}})
        EXPECT_ERROR(kvSendMeth(&error, stream, "Write", "abcd", count), 0, 3437);
    kvSendMeth(&error, stream, "Write", nullptr, 2);
    EXPECT_EQ(takeError(), 3437);
    kvSendMeth(&error, stream, "Seek", 2, INT32_MIN); // beyond any position
    EXPECT_EQ(takeError(), 3438);
    kvSendMeth(&error, stream, "Seek", 2, -(INT32_MAX - 10)); // the largest position
    EXPECT_ERROR(kvSendMeth(&error, stream, "Write", "ab", 2), 0, 3437);
    EXPECT_EQ(bytesOf(stream), (Bytes{'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'}));
}

TEST_F(StreamTest, FixedStreamRefusesToGrow) {
    kvObject stream = make("MemStream", 1, 4);
    EXPECT_ERROR(kvSendMeth(&error, stream, "Write", "12345", 5), 0, 3437);
    EXPECT_EQ(position(stream), 0);
    EXPECT_EQ(bytesOf(stream), (Bytes{0, 0, 0, 0}));
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "1234", 4), 4);
    kvSendMeth(&error, stream, "Seek", 2, -3); // past the end of a fixed block
    EXPECT_ERROR(kvSendMeth(&error, stream, "Write", "5", 1), 0, 3437);
    EXPECT_EQ(bytesOf(stream), (Bytes{'1', '2', '3', '4'}));
}

TEST_F(StreamTest, NoMemoryOrABadModeLeavesTheStreamAsItWas) {
    kvObject stream = make("MemStream", 0, 0);
    kvSendMeth(&error, stream, "Write", "abc", 3);
    const kvResult block = kvSendMeth(&error, stream, "getDataPtr");
    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, stream, "Write", "defg", 4), 0, 3437);
    EXPECT_EQ(kvSendMeth(&error, stream, "getDataPtr"), block);
    EXPECT_EQ(position(stream), 3);
    EXPECT_EQ(bytesOf(stream), (Bytes{'a', 'b', 'c'}));

    for (auto [mode, size] : {std::pair{2, 0}, {0, -5}}) {
        kvObject blockless = make("MemStream", mode, size);
        EXPECT_EQ(takeError(), 3429);
        EXPECT_EQ(kvSendMeth(&error, blockless, "Write", "ab", 2), -1);
    }
    // Fail each allocation of a creation in turn: no object, or one without a
    // block that says so.
    bool sawBlockFailure = false;
    for (long n = 0; n < 20; ++n) {
        kvDebugFailAllocOnce(n);
        kvObject fresh = make("MemStream", 1, 16);
        kvDebugFailAllocAfter(-1);
        const bool blockless = fresh && !kvSendMeth(&error, fresh, "getDataPtr");
        if (blockless) {
            EXPECT_EQ(errorCode(error), 3429);
        }
        sawBlockFailure |= blockless;
        clearErrors(error);
    }
    EXPECT_TRUE(sawBlockFailure);
}

TEST_F(StreamTest, BaseStreamIsPure) {
    kvObject stream = make("Stream", 0, 0);
    kvSendMeth(&error, stream, "WriteInt32", 7);
    EXPECT_EQ(errorMessage(error), "Class Stream did not override pure virtual method Write");
    EXPECT_EQ(takeError(), 3431);
}

TEST_F(StreamTest, FileStreamRoundTrip) {
    const std::string path = ::testing::TempDir() + "kova_stream_round_trip.bin";
    kvObject stream = make("FileStream", path.c_str(), "w+b");
    ASSERT_NE(kvSendMeth(&error, stream, "getFilePtr"), 0);
    kvSendMeth(&error, stream, "WriteInt32", 0x01020304);
    EXPECT_EQ(kvSendMeth(&error, stream, "Write", "tail56", 6), 6);
    kvSendMeth(&error, stream, "Seek", 0, 2);
    EXPECT_EQ(kvSendMeth(&error, stream, "getLength"), 10);
    EXPECT_EQ(position(stream), 2); // finding the length keeps the position
    kvSendMeth(&error, stream, "Seek", 2, -4);
    uint32_t value = 0;
    char buffer[10] = {};
    kvSendMeth(&error, stream, "ReadInt32", &value);
    EXPECT_EQ(value, 0x36356C69u); // "il56"
    kvSendMeth(&error, stream, "Rewind");
    kvSendMeth(&error, stream, "ReadInt32", &value);
    EXPECT_EQ(value, 0x01020304u);
    kvSendMeth(&error, stream, "Seek", 1, 2);
    EXPECT_EQ(kvSendMeth(&error, stream, "Read", buffer, 10), 4); // short at the end: no error
    EXPECT_EQ(std::string(buffer), "il56");
    EXPECT_EQ(error, nullptr);
    std::remove(path.c_str());
}

TEST_F(StreamTest, FileStreamReportsFailingFileCallsAndLivesOnWithoutAFile) {
    const std::string path = ::testing::TempDir() + "kova_stream_failures.bin";
    kvObject missing = make("FileStream", "/no/such/dir/file", "rb");
    ASSERT_NE(missing, nullptr);
    expectSystemError(ENOENT);
    char buffer[4];
    for (const char* method : {"getFilePtr", "getPos", "getLength"})
        EXPECT_EQ(kvSendMeth(&error, missing, method), 0);
    EXPECT_EQ(kvSendMeth(&error, missing, "Read", buffer, 4), 0);
    EXPECT_EQ(kvSendMeth(&error, missing, "Write", buffer, 4), 0);
    EXPECT_EQ(kvSendMeth(&error, missing, "Seek", 0, 0), 0);
    EXPECT_EQ(error, nullptr);

    kvObject writer = make("FileStream", path.c_str(), "wb");
    EXPECT_EQ(kvSendMeth(&error, writer, "Read", buffer, 4), 0); // not open for reading
    expectSystemError(EBADF);
    EXPECT_EQ(kvSendMeth(&error, writer, "Write", buffer, -1), 0);
    expectSystemError(EINVAL);
    kvSendMeth(&error, writer, "Seek", 5, 0);
    expectSystemError(EINVAL);
    kvSendMeth(&error, writer, "Seek", 0, -10);
    expectSystemError(EINVAL);
    kvObject reader = make("FileStream", path.c_str(), "rb");
    EXPECT_EQ(kvSendMeth(&error, reader, "Write", "abcd", 4), 0); // not open for writing
    expectSystemError(EBADF);
    std::remove(path.c_str());
}

} // namespace
} // namespace kova::test
