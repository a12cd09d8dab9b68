// The indirect properties: named, observable views of fields their creator
// owns. Stores and fetches reach the creator's memory (often inside packed
// data, so unaligned), an unbound property is harmless, and saved records
// carry the field's value, never its address.
#include "tests/PropertyFixture.hpp"

namespace kova::test {
namespace {

// A creator's fields as a component would lay them out: packed, so that
// several of them sit at odd addresses.
#pragma pack(push, 1)
struct CreatorFields {
    char pad;
    int32_t count;
    int16_t small;
    uint32_t options;
    char* title;
    char code[4];
    char after[4]; // catches writes past `code`
};
#pragma pack(pop)

class IndirectPropertyTest : public PropertyTest {
  protected:
    CreatorFields fields{};
    void* at(size_t offset) { return reinterpret_cast<char*>(&fields) + offset; }
};

TEST_F(IndirectPropertyTest, IndInt32PropReadsAndWritesTheCreatorsField) {
    kvObject count = property("IndInt32Prop", "Count", 0, at(offsetof(CreatorFields, count)));
    kvObject stored = listen(count, "OnStore");
    kvObject fetched = listen(count, "OnFetch");
    kvSendMeth(&error, count, "storeData", -123456);
    EXPECT_EQ(copyOf(fields.count), -123456);
    EXPECT_EQ(argOf(stored, 2), -123456);
    fields.count = 77;
    EXPECT_EQ(kvSendMeth(&error, count, "fetchData"), 77);
    EXPECT_EQ(calls(fetched), 1);
    kvSendMeth(&error, count, "storeFromString", " 31 fish");
    EXPECT_EQ(copyOf(fields.count), 31);
    EXPECT_EQ(kvSendMeth(&error, count, "getPointer"),
              reinterpret_cast<kvResult>(at(offsetof(CreatorFields, count))));

    // Rebound, it reaches the other field only.
    int32_t other = 2;
    kvSendMeth(&error, count, "setPointer", &other);
    kvSendMeth(&error, count, "storeData", 20);
    EXPECT_EQ(copyOf(fields.count), 31);
    EXPECT_EQ(other, 20);
    kvSendMeth(&error, count, "setPointer", nullptr);
}

TEST_F(IndirectPropertyTest, IndInt16PropKeepsLow16BitsAndSignExtends) {
    kvObject small = property("IndInt16Prop", "Small", 0, at(offsetof(CreatorFields, small)));
    kvSendMeth(&error, small, "storeData", 0x12345);
    EXPECT_EQ(copyOf(fields.small), 0x2345);
    kvSendMeth(&error, small, "storeData", 0xFFFF);
    EXPECT_EQ(kvSendMeth(&error, small, "fetchData"), -1);
    EXPECT_EQ(kvSendMeth(&error, small, "asInt"), -1);
    EXPECT_EQ(text(kvSendMeth(&error, small, "asString")), "-1");
}

TEST_F(IndirectPropertyTest, IndBoolPropOwnsOnlyItsMaskBits) {
    fields.options = 0x100;
    kvObject option =
        property("IndBoolProp", "Option", 0, at(offsetof(CreatorFields, options)), 0x6);
    EXPECT_EQ(kvSendMeth(&error, option, "fetchData"), 0);
    kvSendMeth(&error, option, "storeData", 5);
    EXPECT_EQ(copyOf(fields.options), 0x106u);
    EXPECT_EQ(text(kvSendMeth(&error, option, "fetchAsString")), "True");
    kvSendMeth(&error, option, "storeFromString", "FALSE");
    EXPECT_EQ(copyOf(fields.options), 0x100u);
    fields.options = 0x4; // any masked bit makes it true
    EXPECT_EQ(kvSendMeth(&error, option, "fetchData"), -1);

    kvSendMeth(&error, option, "setMask", 0x1);
    EXPECT_EQ(kvSendMeth(&error, option, "getMask"), 1);
    EXPECT_EQ(text(kvSendMeth(&error, option, "fetchAsString")), "False");
}

TEST_F(IndirectPropertyTest, IndStrPropOwnsTheStringInTheCell) {
    kvObject title = property("IndStrProp", "Title", 0, at(offsetof(CreatorFields, title)));
    kvObject stored = listen(title, "OnStore");
    const kvResult first = kvSendMeth(&error, title, "storeData", "first");
    EXPECT_EQ(reinterpret_cast<kvResult>(fields.title), first);
    EXPECT_EQ(text(first), "first");
    EXPECT_EQ(argOf(stored, 2), first);
    // The old string is freed on every store (leak detection checks), even
    // when the new text is the cell's own string.
    kvSendMeth(&error, title, "storeData", fields.title);
    EXPECT_EQ(text(kvSendMeth(&error, title, "asString")), "first");
    kvSendMeth(&error, title, "storeData", "-8 degrees");
    EXPECT_EQ(kvSendMeth(&error, title, "asInt"), -8);

    kvDebugFailAllocOnce(0);
    EXPECT_ERROR(kvSendMeth(&error, title, "storeData", "lost"), 0, 3429);
    EXPECT_EQ(text(kvSendMeth(&error, title, "fetchData")), "-8 degrees");

    // Its end frees the string and leaves the creator no dangling pointer.
    kvDelObject(&error, title);
    std::erase(made, title);
    EXPECT_EQ(copyOf(fields.title), nullptr);
}

TEST_F(IndirectPropertyTest, IndCArrayPropCopiesBoundedAndScansBounded) {
    std::memcpy(fields.after, "999", 4);
    kvObject code = property("IndCArrayProp", "Code", 0, fields.code, 4);
    EXPECT_EQ(kvSendMeth(&error, code, "storeData", "abcdef"),
              reinterpret_cast<kvResult>(fields.code));
    EXPECT_EQ(std::string(fields.code, 4), "abcd"); // full: no terminator
    EXPECT_EQ(std::string(fields.after), "999");

    kvSendMeth(&error, code, "storeData", "ab");
    EXPECT_EQ(std::string(fields.code, 4), std::string("ab\0\0", 4));
    // Digits fill the array and more digits follow it: the scan stops at its end.
    kvSendMeth(&error, code, "storeData", "1234");
    EXPECT_EQ(kvSendMeth(&error, code, "asInt"), 1234);
    EXPECT_EQ(kvSendMeth(&error, code, "asString"), reinterpret_cast<kvResult>(fields.code));

    kvObject stored = listen(code, "OnStore");
    kvSendMeth(&error, code, "storeData", nullptr);
    EXPECT_EQ(std::string(fields.code, 4), "1234");
    EXPECT_EQ(calls(stored), 0);

    kvSendMeth(&error, code, "setSize", -3); // a negative size holds nothing
    kvSendMeth(&error, code, "storeData", "zz");
    EXPECT_EQ(std::string(fields.code, 4), "1234");
    kvSendMeth(&error, code, "setSize", 4);
    EXPECT_EQ(kvSendMeth(&error, code, "getSize"), 4);
}

TEST_F(IndirectPropertyTest, UnboundPropertiesIgnoreStoresAndFetchNothing) {
    const char* classes[] = {"IndInt32Prop", "IndInt16Prop", "IndStrProp", "IndCArrayProp"};
    for (const char* cls : classes) {
        kvObject unbound = std::strcmp(cls, "IndCArrayProp") == 0
                               ? property(cls, "Unbound", 0, nullptr, 8)
                               : property(cls, "Unbound", 0, nullptr);
        kvObject stored = listen(unbound, "OnStore");
        kvSendMeth(&error, unbound, "storeData", "12");
        EXPECT_EQ(kvSendMeth(&error, unbound, "fetchData"), 0) << cls;
        EXPECT_EQ(kvSendMeth(&error, unbound, "asInt"), 0) << cls;
        EXPECT_EQ(calls(stored), 0) << cls;
        readInto(unbound, recordOf(unbound));
    }
    kvObject option = property("IndBoolProp", "Unbound", 0, nullptr, 1);
    kvSendMeth(&error, option, "storeData", 1);
    EXPECT_EQ(kvSendMeth(&error, option, "fetchData"), 0);
    EXPECT_EQ(error, nullptr);
    EXPECT_TRUE(shownMessages().empty());
}

TEST_F(IndirectPropertyTest, RecordsCarryTheFieldsValue) {
    fields.count = 0x01020304;
    fields.small = -2;
    fields.options = 0x2;
    std::memcpy(fields.code, "wxyz", 4);
    kvObject count = property("IndInt32Prop", "Count", 1, at(offsetof(CreatorFields, count)));
    kvObject small = property("IndInt16Prop", "Small", 1, at(offsetof(CreatorFields, small)));
    kvObject option = property("IndBoolProp", "Option", 1, at(offsetof(CreatorFields, options)), 2);
    kvObject title = property("IndStrProp", "Title", 1, at(offsetof(CreatorFields, title)));
    kvObject code = property("IndCArrayProp", "Code", 1, fields.code, 4);
    kvSendMeth(&error, title, "storeData", "hey");

    EXPECT_EQ(recordOf(count), record(1, {4, 3, 2, 1}));
    EXPECT_EQ(recordOf(small), record(1, {0xFE, 0xFF}));
    EXPECT_EQ(recordOf(option), record(1, {'1'}));
    EXPECT_EQ(recordOf(title), record(1, le32(3) + bytes("hey")));
    EXPECT_EQ(recordOf(code), record(1, le32(4) + bytes("wxyz")));

    EXPECT_EQ(readInto(count, record(1, le32(9))), 0);
    EXPECT_EQ(copyOf(fields.count), 9);
    EXPECT_EQ(readInto(small, record(1, {7, 0})), 0);
    EXPECT_EQ(copyOf(fields.small), 7);
    EXPECT_EQ(readInto(option, record(1, {'0'})), 0);
    EXPECT_EQ(copyOf(fields.options), 0u);
    EXPECT_EQ(readInto(title, record(1, le32(2) + bytes("ok"))), 0);
    EXPECT_EQ(text(reinterpret_cast<kvResult>(copyOf(fields.title))), "ok");
    EXPECT_EQ(readInto(code, record(1, le32(6) + bytes("123456"))), 0);
    EXPECT_EQ(std::string(fields.code, 4), "1234");
    EXPECT_EQ(error, nullptr);

    // A cut record changes nothing.
    EXPECT_ERROR(readInto(title, record(1, le32(50) + bytes("x"))), -1, 3432);
    EXPECT_EQ(text(reinterpret_cast<kvResult>(copyOf(fields.title))), "ok");
    EXPECT_ERROR(readInto(count, record(1, {1, 2})), -1, 3432);
    EXPECT_EQ(copyOf(fields.count), 9);
}

} // namespace
} // namespace kova::test
