// Formatting message texts over argument slots.
#include "errors/MessageFormat.hpp"

#include <gtest/gtest.h>

#include <string>

namespace kova::errors {
namespace {

template <typename... A> size_t formatInto(char* out, size_t size, const char* text, A... a) {
    const kova::ArgList<A...> list(a...);
    return formatMessage(out, size, text, list.get());
}

template <typename... A> std::string format(const char* text, A... a) {
    char out[10000];
    formatInto(out, sizeof out, text, a...);
    return out;
}

TEST(MessageFormat, PrintfConversionsOverSlots) {
    EXPECT_EQ(format("%s has %d sides", "square", 4), "square has 4 sides");
    EXPECT_EQ(format("%ld|%lu|%x|%c|%%", -5, 7u, 255, 'k'), "-5|7|ff|k|%");
    EXPECT_EQ(format("[%5d][%-4s][%05ld][%.2s]", 42, "ab", 3, "xyz"), "[   42][ab  ][00003][xy]");
    EXPECT_EQ(format("[%*d]", 4, 9), "[   9]");
}

TEST(MessageFormat, LongIsThirtyTwoBitsAsOnTheSystemsHost) {
    EXPECT_EQ(format("%ld", static_cast<int32_t>(0x80040000u | 3427)), "-2147218077");
    EXPECT_EQ(format("%ld", 0x1FFFFFFFFLL), "-1");
    // %lld prints the whole slot, which is 32 bits wide in the 32-bit build.
    EXPECT_EQ(format("%lld", 0x1FFFFFFFFLL), std::to_string(static_cast<kvArg>(0x1FFFFFFFFLL)));
}

TEST(MessageFormat, MissingSlotsReadAsZeroAndNullStrings) {
    EXPECT_EQ(format("%s and %d", "one"), "one and 0");
    EXPECT_EQ(format("%s", static_cast<const char*>(nullptr)), "(null)");
    char out[64];
    EXPECT_EQ(formatMessage(out, sizeof out, "%d %s", nullptr), 8u);
    EXPECT_STREQ(out, "0 (null)");
}

TEST(MessageFormat, UnknownAndFloatingDirectivesAreCopied) {
    EXPECT_EQ(format("%f %q %", 1), "%f %q %");
}

TEST(MessageFormat, OutputIsCutAtTheBuffer) {
    char out[8];
    EXPECT_EQ(formatInto(out, sizeof out, "%s!", "abcdefghij"), 7u);
    EXPECT_STREQ(out, "abcdefg");
    const std::string huge(20000, 'x');
    char big[10000];
    EXPECT_EQ(formatInto(big, sizeof big, "%s%s", huge.c_str(), huge.c_str()), 9999u);
    EXPECT_EQ(formatInto(big, sizeof big, "%99999999d", 1), 9999u);
}

} // namespace
} // namespace kova::errors
