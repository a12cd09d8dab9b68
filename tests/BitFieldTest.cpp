// Bit fields: raw bits and their translation through the caller's table,
// bit numbers at and past 32, table entries of 0xFFFFFFFF, and the bit
// dialog's logic as a host's hook drives it.
#include "kova/bitdialog.h"
#include "kova/lexcls.h"
#include "tests/PropertyFixture.hpp"

#include <functional>
#include <string>
#include <vector>

namespace kova::test {
namespace {

constexpr uint32_t none = 0xFFFFFFFFu;

// Raw bit 2 stands for 0x100, bit 3 does not exist, bit 4 for 0x300.
const uint32_t table[32] = {0x1,  0x2,  0x100, none, 0x300, 0x8000, none, none,
                            none, none, none,  none, none,  none,   none, none,
                            none, none, none,  none, none,  none,   none, none,
                            none, none, none,  none, none,  none,   none, 0x80000000};
const char* const names[] = {"Zero", "One", "Two", "Three", "Four", "Five", ""};

class BitFieldTest : public PropertyTest {
  protected:
    kvObject field(const uint32_t* xlat = table, const char* const* strings = names) {
        kvObject made = property("BitField", "Options", 0);
        kvSendMeth(&error, made, "InitBitField", strings, 2, xlat, 4);
        return made;
    }
    uint32_t raw(kvObject f) { return static_cast<uint32_t>(kvSendMeth(&error, f, "fetchData")); }
    uint32_t translated(kvObject f) {
        return static_cast<uint32_t>(kvSendMeth(&error, f, "fetchXlatedData"));
    }
};

TEST_F(BitFieldTest, SettingABitOrsItsMaskAndClearingRecomputes) {
    kvObject f = field();
    kvSendMeth(&error, f, "setBit", 2);
    EXPECT_EQ(raw(f), 0x4u);
    EXPECT_EQ(translated(f), 0x100u);
    kvSendMeth(&error, f, "setBit", 3);
    EXPECT_EQ(raw(f), 0xCu);
    EXPECT_EQ(translated(f), 0x100u);
    kvSendMeth(&error, f, "setBit", 4);
    kvSendMeth(&error, f, "clearBit", 4);
    EXPECT_EQ(translated(f), 0x100u); // recomputed: 4's 0x200 goes, 2's 0x100 stays
    EXPECT_EQ(kvSendMeth(&error, f, "testBit", 3), 1);
    kvSendMeth(&error, f, "storeData", 0x80000011);
    EXPECT_EQ(translated(f), 0x80000301u);
    kvSendMeth(&error, f, "clearBit", 31);
    EXPECT_EQ(raw(f), 0x11u);
}

TEST_F(BitFieldTest, BitNumbersFrom32OnHaveNoMaskAndNoEntry) {
    kvObject f = field();
    kvSendMeth(&error, f, "storeData", 0x80000000);
    for (kvArg bit : {kvArg{32}, kvArg{40}, kvArg{-1}}) {
        kvSendMeth(&error, f, "setBit", bit);
        kvSendMeth(&error, f, "clearBit", bit);
        EXPECT_EQ(kvSendMeth(&error, f, "testBit", bit), 0);
        EXPECT_EQ(kvSendMeth(&error, f, "fetchString", bit), 0);
        EXPECT_EQ(kvSendMeth(&error, f, "setByXlatedBit", bit), 0);
        EXPECT_EQ(kvSendMeth(&error, f, "clearByXlatedBit", bit), 0);
        EXPECT_EQ(kvSendMeth(&error, f, "testByXlatedBit", bit), 0);
    }
    EXPECT_EQ(raw(f), 0x80000000u);
    EXPECT_EQ(kvSendMeth(&error, f, "testBit", 31), 1);
    EXPECT_EQ(kvSendMeth(&error, f, "testByXlatedBit", 31), 1);
}

TEST_F(BitFieldTest, TranslatedBitsReachEveryRawBitWhoseMaskHoldsThem) {
    kvObject f = field();
    EXPECT_EQ(kvSendMeth(&error, f, "setByXlatedBit", 8), 1);
    EXPECT_EQ(raw(f), 0x14u); // raw bits 2 (0x100) and 4 (0x300)
    EXPECT_EQ(kvSendMeth(&error, f, "testByXlatedBit", 9), 1);
    EXPECT_EQ(kvSendMeth(&error, f, "clearByXlatedBit", 9), 1);
    EXPECT_EQ(raw(f), 0x4u);
    EXPECT_EQ(translated(f), 0x100u);
    EXPECT_EQ(kvSendMeth(&error, f, "testByXlatedBit", 9), 0);
    EXPECT_EQ(kvSendMeth(&error, f, "clearByXlatedBit", 8), 1);
    EXPECT_EQ(raw(f), 0u);
}

TEST_F(BitFieldTest, WithoutATableOnlyTheFetchesAnswer) {
    kvObject f = field(nullptr);
    kvSendMeth(&error, f, "storeData", 5);
    kvSendMeth(&error, f, "setBit", 1);
    EXPECT_EQ(raw(f), 0u);
    EXPECT_EQ(kvSendMeth(&error, f, "testBit", 1), 0);
    EXPECT_EQ(kvSendMeth(&error, f, "setByXlatedBit", 1), 1);
    EXPECT_EQ(kvSendMeth(&error, f, "testByXlatedBit", 1), 0);
    EXPECT_EQ(text(kvSendMeth(&error, f, "fetchString", 3)), "Three");
    EXPECT_EQ(text(kvSendMeth(&error, f, "fetchString", 6)), ""); // the list's end
    EXPECT_EQ(kvSendMeth(&error, f, "fetchString", 7), 0);        // past it

    kvObject g = field(table, nullptr);
    EXPECT_EQ(kvSendMeth(&error, g, "fetchString", 0), 0);
    kvObject h = field();
    EXPECT_EQ(kvSendMeth(&error, h, "fetchString", 3), 0); // its entry is 0xFFFFFFFF
    EXPECT_EQ(text(kvSendMeth(&error, h, "fetchString", 5)), "Five");
    EXPECT_EQ(kvSendMeth(&error, h, "fetchString", 31), 0); // past the list's end
}

TEST_F(BitFieldTest, ItsRecordHoldsTheBitsNotTheTables) {
    kvObject f = field();
    kvSendMeth(&error, f, "storeData", 0x14);
    const Bytes saved = record(0, le32(0x300) + le32(0x14));
    EXPECT_EQ(recordOf(f), saved);
    kvObject g = field();
    EXPECT_EQ(readInto(g, saved), 0);
    EXPECT_EQ(raw(g), 0x14u);
    EXPECT_EQ(translated(g), 0x300u);
    EXPECT_ERROR(readInto(g, record(0, le32(1))), -1, 3432);
    EXPECT_EQ(raw(g), 0x14u);
}

TEST_F(BitFieldTest, TheLexicalClassFieldNamesItsElevenBits) {
    // The recogniser's encoding: "Number" and "Roman Numeral" share a bit.
    uint32_t xlat[32];
    std::fill(std::begin(xlat), std::end(xlat), none);
    for (uint32_t bit = 0; bit < 11; ++bit)
        xlat[bit] = 1u << (bit + 4);
    xlat[2] = xlat[1];
    kvObject lexical = property("BFLexCls", "LexClasses", 1, xlat);
    EXPECT_EQ(kvSendMeth(&error, lexical, "isA", "BitField"), -1);
    EXPECT_EQ(kvSendMeth(&error, lexical, "isPersistant"), 1);
    const char* const expected[] = {"Main",         "Number", "Roman Numeral", "Date",
                                    "Time",         "Money",  "ID Number",     "Telephone Number",
                                    "Terminal DOT", "Alpha",  "Small Text"};
    for (int bit = 0; bit < 11; ++bit)
        EXPECT_EQ(text(kvSendMeth(&error, lexical, "fetchString", bit)), expected[bit]) << bit;
    EXPECT_EQ(kvSendMeth(&error, lexical, "fetchString", 11), 0); // no table entry
    kvSendMeth(&error, lexical, "storeData", QLBF_LEXCLS_DATE | QLBF_LEXCLS_SMALL_TEXT);
    EXPECT_EQ(translated(lexical), (1u << 7) | (1u << 14));
    EXPECT_EQ(kvSendMeth(&error, lexical, "setByXlatedBit", 5), 1);
    EXPECT_EQ(raw(lexical), static_cast<uint32_t>(QLBF_LEXCLS_NUMBER | QLBF_LEXCLS_ROMAN_NUMERAL |
                                                  QLBF_LEXCLS_DATE | QLBF_LEXCLS_SMALL_TEXT));
}

// ---- the bit dialog ----

struct DialogRun {
    std::string caption;
    std::vector<std::string> labels; // the shown boxes, in order
    std::vector<int> checked;        // the shown boxes that were checked
    int hidden = 0;
    std::function<void(kvBitFieldDialog*)> user; // what the user does before closing
};
DialogRun* run = nullptr;

int recordDialog(kvBitFieldDialog* dialog) {
    if (const char* caption = kvBitFieldDialogCaption(dialog)) run->caption = caption;
    for (int id = KV_BITDLG_FIRST_BOX; id <= KV_BITDLG_LAST_BOX; ++id) {
        char label[64];
        if (!kvBitFieldDialogLabel(dialog, id, label, sizeof label)) {
            ++run->hidden;
            continue;
        }
        run->labels.push_back(label);
        if (kvBitFieldDialogIsChecked(dialog, id)) run->checked.push_back(id);
    }
    run->user(dialog);
    return 1;
}

class BitDialogTest : public BitFieldTest {
  protected:
    void SetUp() override {
        BitFieldTest::SetUp();
        run = &dialog;
        kvSetBitFieldDialogHook(recordDialog);
    }
    void TearDown() override {
        kvSetBitFieldDialogHook(nullptr);
        run = nullptr;
        BitFieldTest::TearDown();
    }
    DialogRun dialog;
};

TEST_F(BitDialogTest, ItOffersEachExistingBitUntilTheListEndsAndOKSetsWhatIsChecked) {
    kvObject f = field();
    kvSendMeth(&error, f, "storeData", 0x24); // bits 2 and 5
    dialog.user = [](kvBitFieldDialog* d) {
        EXPECT_EQ(kvBitFieldDialogCommand(d, KV_BITDLG_FIRST_BOX), 0); // toggles "Zero" on
        kvBitFieldDialogSetChecked(d, KV_BITDLG_FIRST_BOX + 4, 0);     // "Five" off
        kvBitFieldDialogSetChecked(d, KV_BITDLG_LAST_BOX, 1);          // hidden: ignored
        EXPECT_EQ(kvBitFieldDialogCommand(d, KV_BITDLG_OK), 1);
    };
    EXPECT_EQ(kvSendMeth(&error, f, "createBitFieldWindow", "Scanner options"), 1);
    EXPECT_EQ(dialog.caption, "Scanner options");
    // Bit 3 has no table entry; the list ends after bit 5.
    EXPECT_EQ(dialog.labels, (std::vector<std::string>{"Zero", "One", "Two", "Four", "Five"}));
    EXPECT_EQ(dialog.checked, (std::vector<int>{1011, 1013}));
    EXPECT_EQ(dialog.hidden, 11);
    EXPECT_EQ(raw(f), 0x5u);
    EXPECT_EQ(translated(f), 0x101u);
}

TEST_F(BitDialogTest, CancelChangesNothingAndAtMostSixteenBitsAreOffered) {
    uint32_t every[32];
    std::fill(std::begin(every), std::end(every), 1u);
    std::vector<std::string> many(20, "bit");
    std::vector<const char*> pointers;
    for (const std::string& name : many)
        pointers.push_back(name.c_str());
    pointers.push_back("");
    kvObject f = field(every, pointers.data());
    kvSendMeth(&error, f, "storeData", 0xFFFFF);
    dialog.user = [](kvBitFieldDialog* d) {
        kvBitFieldDialogSetChecked(d, KV_BITDLG_FIRST_BOX, 0);
        EXPECT_EQ(kvBitFieldDialogCommand(d, KV_BITDLG_CANCEL), 1);
        EXPECT_EQ(kvBitFieldDialogCommand(d, KV_BITDLG_OK), 1); // already closed
    };
    EXPECT_EQ(kvSendMeth(&error, f, "createBitFieldWindow", nullptr), 1);
    EXPECT_EQ(dialog.labels.size(), 16u);
    EXPECT_EQ(dialog.checked.size(), 16u);
    EXPECT_EQ(raw(f), 0xFFFFFu);
}

TEST_F(BitDialogTest, WithoutAHookPosixShowsNoDialog) {
#ifdef _WIN32
    GTEST_SKIP() << "Windows shows the kernel's dialog";
#else
    kvSetBitFieldDialogHook(nullptr);
    kvObject f = field();
    kvSendMeth(&error, f, "setBit", 1);
    EXPECT_EQ(kvSendMeth(&error, f, "createBitFieldWindow", "x"), 0);
    EXPECT_EQ(raw(f), 0x2u);
#endif
}

} // namespace
} // namespace kova::test
