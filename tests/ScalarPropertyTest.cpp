// The properties that hold one value of their own: integers and ranges,
// truth values, floats, strings, blocks and tagged values. Their stores,
// vetoes, text forms, saved records, and what they do with bad input.
#include "properties/BlobProp.hpp"
#include "tests/PropertyFixture.hpp"

#include <climits>
#include <cmath>

namespace kova::test {
namespace {

using ScalarPropertyTest = PropertyTest;

// ---- IntProp ----

TEST_F(ScalarPropertyTest, IntPropStoreIsOfferedThenAnnouncedAndAVetoOf300IsReported) {
    kvObject width = property("IntProp", "Width", 0, 12);
    kvObject guard = listen(width, "OnWillStore");
    kvObject stored = listen(width, "OnStore");
    kvObject fetched = listen(width, "OnFetch");
    EXPECT_EQ(kvSendMeth(&error, width, "storeData", -40), 0);
    EXPECT_EQ(argOf(guard, 2), -40);
    EXPECT_EQ(argOf(stored, 2), -40);
    EXPECT_EQ(kvSendMeth(&error, width, "asInt"), -40);
    EXPECT_EQ(text(kvSendMeth(&error, width, "asString")), "-40");
    EXPECT_EQ(text(kvSendMeth(&error, width, "fetchAsString")), "-40");
    EXPECT_EQ(calls(fetched), 3);

    kvSendMeth(&error, guard, "configure", 300, 0, nullptr);
    EXPECT_EQ(kvSendMeth(&error, width, "storeData", 7), 0);
    EXPECT_NE(errorMessage(error).find("numerical property Width; The value is: 7."),
              std::string::npos)
        << errorMessage(error);
    EXPECT_EQ(takeError(), 3496);
    kvSendMeth(&error, guard, "configure", 1, 0, nullptr); // any other answer refuses silently
    EXPECT_EQ(kvSendMeth(&error, width, "storeData", 8), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(kvSendMeth(&error, width, "fetchData"), -40);
    EXPECT_EQ(calls(stored), 1);
}

TEST_F(ScalarPropertyTest, IntPropReadsTextAsAtolDoesAndSaturatesOverlongNumbers) {
    kvObject width = property("IntProp", "Width", 0, 12);
    const std::pair<const char*, int32_t> cases[] = {{"  -42px", -42},
                                                     {"+17", 17},
                                                     {"abc", 0},
                                                     {"", 0},
                                                     {"- 5", 0},
                                                     {"-2147483648", INT32_MIN},
                                                     {"99999999999999999999", INT32_MAX},
                                                     {"-99999999999999999999", INT32_MIN}};
    for (const auto& [input, expected] : cases) {
        kvSendMeth(&error, width, "storeFromString", input);
        EXPECT_EQ(kvSendMeth(&error, width, "fetchData"), expected) << input;
    }
    kvSendMeth(&error, width, "storeFromString", nullptr);
    EXPECT_EQ(kvSendMeth(&error, width, "fetchData"), INT32_MIN);
}

// ---- IRngProp ----

TEST_F(ScalarPropertyTest, IRngPropAcceptsOnlyValuesOnItsSteps) {
    kvObject level = property("IRngProp", "Level", 0, 0, 10, 5, 0);
    kvObject rangeCheck = listen(level, "OnRangeCheck");
    for (int32_t value : {0, 5, 10})
        EXPECT_EQ(kvSendMeth(&error, level, "storeData", value), 0);
    EXPECT_EQ(kvSendMeth(&error, level, "storeData", 3), -1);
    EXPECT_NE(
        errorMessage(error).find("3 is not in the range of valid values for the property Level"),
        std::string::npos);
    EXPECT_EQ(takeError(), 3463);
    EXPECT_EQ(argOf(rangeCheck, 2), 3);
    for (const char* outside : {"-5", "15"})
        EXPECT_ERROR(kvSendMeth(&error, level, "storeFromString", outside), -1, 3463);
    EXPECT_EQ(kvSendMeth(&error, level, "storeFromString", nullptr), 0);
    EXPECT_EQ(text(kvSendMeth(&error, level, "fetchAsString")), "10");
    EXPECT_EQ(calls(rangeCheck), 3);
}

TEST_F(ScalarPropertyTest, IRngPropCreationLeavesValueZeroAndChecksOnlyTheBounds) {
    kvObject older = kvMakeError(3443);
    error = older;
    kvObject level = property("IRngProp", "Level", 0, 0, 10, 1, 5);
    EXPECT_EQ(kvSendMeth(nullptr, level, "fetchData"), 0);
    EXPECT_EQ(error, older); // the refused creation store leaves no trace, older errors stay
    EXPECT_EQ(takeError(), 3443);

    // 10 is not a multiple of 3: the bounds are reported and kept, and no value fits.
    kvObject thirds = property("IRngProp", "Thirds", 0, 0, 10, 3, 0);
    EXPECT_EQ(takeError(), 3463);
    EXPECT_EQ(kvSendMeth(nullptr, thirds, "getStep"), 3);
    for (int32_t value : {0, 3, 9, 10})
        EXPECT_ERROR(kvSendMeth(&error, thirds, "storeData", value), -1, 3463);
    property("IRngProp", "Inverted", 0, 10, 0, 1, 0);
    EXPECT_EQ(takeError(), 3463);
    property("IRngProp", "NoStep", 0, 0, 10, 0, 0);
    EXPECT_EQ(takeError(), 3463);
}

TEST_F(ScalarPropertyTest, IRngPropBoundsAreKeptEvenWhenTheyBreakTheRule) {
    kvObject level = property("IRngProp", "Level", 0, 0, 10, 1, 0);
    kvSendMeth(&error, level, "storeData", 5);
    kvObject rangeCheck = listen(level, "OnRangeCheck");
    EXPECT_ERROR(kvSendMeth(&error, level, "setMax", 3), -1, 3462);
    EXPECT_EQ(kvSendMeth(nullptr, level, "getMax"), 3);
    EXPECT_EQ(argOf(rangeCheck, 2), 3);

    EXPECT_EQ(kvSendMeth(&error, level, "setMax", 10), 0);
    EXPECT_ERROR(kvSendMeth(&error, level, "setMin", 6), -1, 3461);
    EXPECT_EQ(kvSendMeth(nullptr, level, "getMin"), 6);
    EXPECT_EQ(kvSendMeth(&error, level, "setMin", 1), 0);
    EXPECT_EQ(kvSendMeth(&error, level, "setStep", 2), -1); // 5 - 1 is a multiple of 2, 10 - 1 not
    EXPECT_EQ(takeError(), 3460);
    EXPECT_EQ(kvSendMeth(nullptr, level, "getStep"), 2);
    EXPECT_EQ(kvSendMeth(&error, level, "fetchData"), 5);

    // All at once the rule is not checked, but the value still meets the veto.
    EXPECT_EQ(kvSendMeth(&error, level, "setMinMaxStepValue", 20, 10, 0, 99), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_EQ(kvSendMeth(&error, level, "fetchData"), 99);
    EXPECT_EQ(kvSendMeth(nullptr, level, "getMin"), 20);
    listen(level, "OnWillStore", 300);
    kvSendMeth(&error, level, "setMinMaxStepValue", 0, 10, 1, 4);
    EXPECT_EQ(takeError(), 3496);
    EXPECT_EQ(kvSendMeth(&error, level, "fetchData"), 99);
}

TEST_F(ScalarPropertyTest, IRngPropSpanningAll32BitsKeepsItsArithmeticDefined) {
    kvObject all = property("IRngProp", "All", 0, INT32_MIN, INT32_MAX, 1, 0);
    EXPECT_EQ(error, nullptr);
    for (int32_t value : {INT32_MIN, -1, 0, INT32_MAX}) {
        EXPECT_EQ(kvSendMeth(&error, all, "storeData", value), 0);
        EXPECT_EQ(kvSendMeth(&error, all, "fetchData"), value);
    }
    // The span wraps to -1 in 32 bits, so only a step of 1 divides it.
    EXPECT_ERROR(kvSendMeth(&error, all, "setStep", 3), -1, 3460);
}

// ---- BoolProp ----

TEST_F(ScalarPropertyTest, BoolPropHoldsItsValueInTheFlagsWord) {
    kvObject visible = property("BoolProp", "Visible", KV_OBJ_PERSISTENT);
    kvObject stored = listen(visible, "OnStore");
    kvSendMeth(&error, visible, "storeData", 2);
    EXPECT_EQ(kvSendMeth(&error, visible, "fetchData"), -1);
    EXPECT_EQ(text(kvSendMeth(&error, visible, "fetchAsString")), "True");
    EXPECT_EQ(visible->flags & (0x0008 | KV_OBJ_PERSISTENT), 0x0008 | KV_OBJ_PERSISTENT);
    EXPECT_EQ(calls(stored), 1);
    EXPECT_EQ(recordOf(visible), record(0x0019, {'1'})); // the flags word and one character
    kvSendMeth(&error, visible, "storeData", 0);
    EXPECT_EQ(text(kvSendMeth(&error, visible, "fetchAsString")), "False");
    EXPECT_EQ(visible->flags & (0x0008 | KV_OBJ_PERSISTENT), KV_OBJ_PERSISTENT);

    kvObject copy = property("BoolProp", "On", 0x0008);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), -1);
    EXPECT_EQ(readInto(copy, record(0x0009, {'0'})), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), 0);
    EXPECT_EQ(readInto(copy, record(0x0001, {'1'})), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), -1);
    EXPECT_ERROR(readInto(copy, record(0x0009, {'x'})), -1, 3443);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), -1);
}

TEST_F(ScalarPropertyTest, BoolPropReadsOnlyTheFourTruthWords) {
    kvObject visible = property("BoolProp", "Visible", 0);
    const std::pair<const char*, kvResult> accepted[] = {{"TRUE", -1}, {"false", 0}, {"1", -1},
                                                         {"0", 0},     {"True", -1}, {"FaLsE", 0}};
    for (const auto& [input, expected] : accepted) {
        EXPECT_EQ(kvSendMeth(&error, visible, "storeFromString", input), 0) << input;
        EXPECT_EQ(kvSendMeth(&error, visible, "fetchData"), expected) << input;
    }
    kvSendMeth(&error, visible, "storeData", 1);
    for (const char* refused : {"yes", "", "true ", "10", "truex", static_cast<const char*>(0)})
        EXPECT_ERROR(kvSendMeth(&error, visible, "storeFromString", refused), -1, 3443);
    EXPECT_EQ(kvSendMeth(&error, visible, "fetchData"), -1);
}

// ---- RealProp ----

TEST_F(ScalarPropertyTest, RealPropCopiesFloatsInAndHandsOutACopy) {
    kvObject scale = property("RealProp", "Scale", 0);
    kvObject stored = listen(scale, "OnStore");
    float offered = 2.0f;
    kvSendMeth(&error, scale, "storeData", &offered);
    offered = 9.0f;
    const auto* fetched = reinterpret_cast<const float*>(kvSendMeth(&error, scale, "fetchData"));
    ASSERT_NE(fetched, nullptr);
    EXPECT_EQ(*fetched, 2.0f);
    // The stored float, then the fetched copy; the flags show the subscription.
    EXPECT_EQ(recordOf(scale), record(KV_OBJ_HAS_EVENTS, {0, 0, 0, 0x40, 0, 0, 0, 0x40}));
    EXPECT_EQ(kvSendMeth(&error, scale, "storeData", nullptr), 0);
    EXPECT_EQ(calls(stored), 1);

    const std::pair<const char*, const char*> texts[] = {
        {"1.5", "1.5"}, {"1e300", "inf"}, {"scale", "0"}};
    for (const auto& [input, shown] : texts) {
        kvSendMeth(&error, scale, "storeFromString", input);
        EXPECT_EQ(text(kvSendMeth(&error, scale, "fetchAsString")), shown);
    }
    EXPECT_EQ(calls(stored), 1); // text stores are silent
}

// ---- StrProp ----

TEST_F(ScalarPropertyTest, StrPropKeepsItsOwnCopies) {
    char initial[] = "abc";
    kvObject title = property("StrProp", "Title", 0, initial);
    initial[0] = 'x';
    EXPECT_EQ(text(kvSendMeth(&error, title, "fetchData")), "abc");
    kvObject stored = listen(title, "OnStore");

    const kvResult copy = kvSendMeth(&error, title, "storeData", "  12 apples");
    EXPECT_EQ(text(copy), "  12 apples");
    EXPECT_EQ(argOf(stored, 2), copy);
    EXPECT_EQ(kvSendMeth(&error, title, "asInt"), 12);
    EXPECT_EQ(kvSendMeth(&error, title, "asString"), copy);
    EXPECT_EQ(kvSendMeth(&error, title, "fetchAsString"), copy);
    // Storing its own string back must copy before it lets go of the old one.
    kvSendMeth(&error, title, "storeFromString", kvSendMeth(&error, title, "fetchData"));
    EXPECT_EQ(text(kvSendMeth(&error, title, "fetchData")), "  12 apples");

    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, title, "storeData", "lost"), 0, 3429);
    EXPECT_EQ(calls(stored), 2); // not announced

    // A first read fills the method caches, so the next allocation is the string's.
    const Bytes saved = record(0, le32(3) + bytes("new"));
    readInto(property("StrProp", "Warm", 0, nullptr), saved);
    kvObject stream = streamWith(saved);
    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, title, "readFromStream", stream), -1, 3429);
    EXPECT_EQ(text(kvSendMeth(&error, title, "fetchData")), "  12 apples");

    EXPECT_EQ(kvSendMeth(&error, title, "storeData", nullptr), 0);
    EXPECT_EQ(kvSendMeth(&error, title, "fetchData"), 0);
    EXPECT_EQ(kvSendMeth(&error, title, "asInt"), 0);
}

TEST_F(ScalarPropertyTest, StrPropRecordIsLengthAndCharacters) {
    kvObject title = property("StrProp", "Title", KV_OBJ_PERSISTENT, "abc");
    EXPECT_EQ(recordOf(title), record(0x0001, {3, 0, 0, 0, 'a', 'b', 'c'}));
    kvObject none = property("StrProp", "None", 0, nullptr);
    EXPECT_EQ(recordOf(none), record(0, le32(0)));

    kvObject stored = listen(none, "OnStore");
    EXPECT_EQ(readInto(none, recordOf(title)), 0);
    EXPECT_EQ(text(kvSendMeth(&error, none, "fetchData")), "abc");
    EXPECT_EQ(kvSendMeth(&error, none, "isPersistant"), 1);
    EXPECT_EQ(readInto(none, record(0, le32(0))), 0);
    EXPECT_EQ(text(kvSendMeth(&error, none, "fetchData")), ""); // a saved null reads back empty
    EXPECT_EQ(calls(stored), 0);
    EXPECT_EQ(error, nullptr);

    // A length beyond what the stream holds is refused, however large; one
    // beyond what a read of saved data may take is refused before reading.
    for (uint32_t claimed : {4u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
        EXPECT_ERROR(readInto(none, record(0x0001, le32(claimed) + bytes("xyz"))), -1,
                     claimed == 4 ? 3432 : 3443);
        EXPECT_EQ(text(kvSendMeth(&error, none, "fetchData")), "");
        EXPECT_EQ(kvSendMeth(&error, none, "isPersistant"), 0);
    }

    // A long one is read across pieces.
    std::string longText(100000, 'q');
    longText[54321] = 'Z';
    EXPECT_EQ(readInto(none, recordOf(property("StrProp", "Long", 0, longText.c_str()))), 0);
    EXPECT_EQ(text(kvSendMeth(&error, none, "fetchData")), longText);
}

// ---- BlobProp ----

TEST_F(ScalarPropertyTest, BlobPropCopiesBlocksAndHandsOutItsOwnPair) {
    kvObject picture = property("BlobProp", "Picture", 0);
    kvObject stored = listen(picture, "OnStore");
    uint8_t data[] = {1, 2, 0, 4};
    kvBlob offered{data, sizeof data};
    const kvResult block = kvSendMeth(&error, picture, "storeData", &offered);
    ASSERT_NE(block, 0);
    EXPECT_NE(reinterpret_cast<void*>(block), data);
    data[0] = 9;
    const auto* held = reinterpret_cast<const kvBlob*>(kvSendMeth(&error, picture, "fetchData"));
    EXPECT_EQ(argOf(stored, 2), reinterpret_cast<kvArg>(held));
    EXPECT_EQ(copyOf(held->data), reinterpret_cast<void*>(block));
    EXPECT_EQ(copyOf(held->size), 4u);
    // Storing its own pair back copies before letting go of the old block.
    kvSendMeth(&error, picture, "storeData", held);
    EXPECT_EQ(std::memcmp(held->data, "\x01\x02\x00\x04", 4), 0);

    kvBlob shorter{data, 2};
    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, picture, "storeData", &shorter), 0, 3429);
    EXPECT_EQ(kvSendMeth(&error, picture, "getSize"), 4);

    // The record holds the bytes, never the address.
    const Bytes saved = recordOf(picture);
    EXPECT_EQ(saved, record(KV_OBJ_HAS_EVENTS, {4, 0, 0, 0, 1, 2, 0, 4}));
    kvObject copy = property("BlobProp", "Copy", 0);
    EXPECT_EQ(readInto(copy, saved), 0);
    const auto* read = reinterpret_cast<const kvBlob*>(kvSendMeth(&error, copy, "fetchData"));
    ASSERT_EQ(copyOf(read->size), 4u);
    EXPECT_EQ(std::memcmp(read->data, "\x01\x02\x00\x04", 4), 0);

    for (kvBlob empty : {kvBlob{nullptr, 8}, kvBlob{data, 0}}) {
        EXPECT_EQ(kvSendMeth(&error, picture, "storeData", &empty), 0);
        EXPECT_EQ(kvSendMeth(&error, picture, "getSize"), 0);
    }
    kvSendMeth(&error, picture, "storeData", nullptr);
    EXPECT_EQ(copyOf(held->data), nullptr);
    EXPECT_EQ(readInto(copy, record(0, le32(0))), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "getSize"), 0);
}

// ---- UniProp ----

TEST_F(ScalarPropertyTest, UniPropHoldsOneValueOfAnyTypeWithoutNotifications) {
    kvObject any = property("UniProp", "Any", 0);
    kvObject stored = listen(any, "OnStore");
    EXPECT_EQ(kvSendMeth(&error, any, "fetchData"), 0);
    char source[] = "text";
    kvSendMeth(&error, any, "storeString", source);
    const kvResult held = kvSendMeth(&error, any, "fetchData");
    EXPECT_NE(reinterpret_cast<char*>(held), source);
    EXPECT_EQ(text(held), "text");
    // Replacing a string frees it; leak detection checks every store below.
    kvSendMeth(&error, any, "storeString", "again");
    kvSendMeth(&error, any, "storeInt", -7);
    EXPECT_EQ(kvSendMeth(&error, any, "fetchData"), -7);
    for (float real : {2.9f, -2.9f, 1e20f, NAN}) {
        kvSendMeth(&error, any, "storeFloat", &real);
        const kvResult expected = std::isnan(real) ? 0 : real > 1e10f ? INT32_MAX : int32_t(real);
        EXPECT_EQ(kvSendMeth(&error, any, "fetchData"), expected) << real;
    }
    kvSendMeth(&error, any, "setCurIndex", 3);
    EXPECT_EQ(kvSendMeth(&error, any, "fetchData"), 3);

    // storeDataType chooses by the type number; an index is not stored this way.
    kvSendMeth(&error, any, "storeDataType", "word", 1);
    EXPECT_EQ(text(kvSendMeth(&error, any, "fetchData")), "word");
    kvSendMeth(&error, any, "storeDataType", 42, 2);
    EXPECT_EQ(kvSendMeth(&error, any, "fetchData"), 42);
    float real = 7.5f;
    kvSendMeth(&error, any, "storeDataType", &real, 4);
    kvSendMeth(&error, any, "storeDataType", 5, 3);
    kvSendMeth(&error, any, "storeDataType", 5, 99);
    EXPECT_EQ(kvSendMeth(&error, any, "fetchData"), 7);
    EXPECT_EQ(calls(stored), 0);
}

TEST_F(ScalarPropertyTest, UniPropExchangeNamesTheTargetMethodByType) {
    kvObject any = property("UniProp", "Any", 0);
    kvObject target = listener();
    // The listener knows neither method, so the kernel's report names the one sent.
    const std::pair<const char*, const char*> cases[] = {{"storeInt", "storeProperty"},
                                                         {"setCurIndex", "setCurIndex"}};
    for (const auto& [store, sent] : cases) {
        kvSendMeth(&error, any, store, 1);
        EXPECT_EQ(kvSendMeth(&error, any, "exchangeData", target), 0);
        EXPECT_NE(errorMessage(error).find(sent), std::string::npos) << errorMessage(error);
        EXPECT_EQ(takeError(), 3427);
    }
    kvSendMeth(&error, property("UniProp", "Empty", 0), "exchangeData", target);
    kvSendMeth(&error, any, "exchangeData", nullptr);
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(shownMessages().empty());
}

TEST_F(ScalarPropertyTest, UniPropRecordCarriesTypeAndValue) {
    kvObject any = property("UniProp", "Any", 0);
    kvObject copy = property("UniProp", "Copy", 0);
    kvSendMeth(&error, any, "storeString", "hi");
    EXPECT_EQ(recordOf(any), record(0, le32(1) + le32(2) + bytes("hi")));
    EXPECT_EQ(readInto(copy, recordOf(any)), 0);
    EXPECT_EQ(text(kvSendMeth(&error, copy, "fetchData")), "hi");
    float real = -2.5f;
    kvSendMeth(&error, any, "storeFloat", &real);
    EXPECT_EQ(recordOf(any), record(0, le32(4) + Bytes{0, 0, 0x20, 0xC0}));
    EXPECT_EQ(readInto(copy, recordOf(any)), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), -2);
    kvSendMeth(&error, any, "setCurIndex", 6);
    EXPECT_EQ(readInto(copy, recordOf(any)), 0);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), 6);

    EXPECT_ERROR(readInto(copy, record(0, le32(17) + le32(1))), -1, 3443);
    EXPECT_EQ(kvSendMeth(&error, copy, "fetchData"), 6);
}

// ---- every class with a record of its own ----

// Feeds every prefix of a valid record, and then noise, to each class that
// reads its own record: a cut record is refused whole, and nothing reads or
// writes outside its memory (the sanitizers watch).
TEST_F(ScalarPropertyTest, OwnRecordsSurviveCutAndNoisyStreams) {
    uint8_t data[] = {1, 2, 3};
    kvBlob blob{data, sizeof data};
    const auto filled = [&](const char* cls) {
        kvObject made =
            std::strcmp(cls, "StrProp") == 0 ? property(cls, "P", 0, "abc") : property(cls, "P", 0);
        if (std::strcmp(cls, "BoolProp") == 0) kvSendMeth(&error, made, "storeData", 1);
        if (std::strcmp(cls, "BlobProp") == 0) kvSendMeth(&error, made, "storeData", &blob);
        if (std::strcmp(cls, "UniProp") == 0) kvSendMeth(&error, made, "storeString", "abc");
        return made;
    };
    uint32_t state = 12345;
    const auto noise = [&state](size_t length) {
        Bytes random(length);
        for (auto& b : random) {
            state = state * 1103515245u + 12345u;
            b = static_cast<uint8_t>(state >> 16);
        }
        return random;
    };
    for (const char* cls : {"StrProp", "BoolProp", "BlobProp", "UniProp"}) {
        const Bytes whole = recordOf(filled(cls));
        kvObject target = filled(cls);
        const Bytes before = recordOf(target);
        for (size_t cut = 0; cut < whole.size(); ++cut) {
            EXPECT_EQ(readInto(target, {whole.begin(), whole.begin() + long(cut)}), -1)
                << cls << cut;
            EXPECT_EQ(takeError(), 3432) << cls << cut;
            EXPECT_EQ(recordOf(target), before) << cls << cut;
        }
        EXPECT_EQ(readInto(target, whole), 0) << cls;
        for (size_t length = 0; length < 64; ++length) {
            readInto(target, noise(length));
            clearErrors(error);
        }
        EXPECT_FALSE(target->flags & (KV_OBJ_FORWARDER | KV_OBJ_SILENT)) << cls;
    }
}

} // namespace
} // namespace kova::test
