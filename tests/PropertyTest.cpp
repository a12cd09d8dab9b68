// The property base class: its fields and persistence, the notifications of
// store, fetch, rename and deletion (with the rename veto), the pure value
// methods, the base saved record, and its out-of-memory paths.
#include "tests/KernelFixture.hpp"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kova::test {
namespace {

class PropertyTest : public KernelTest {
  protected:
    void TearDown() override {
        for (kvObject object : objects)
            kvDelObject(nullptr, object);
        KernelTest::TearDown();
    }

    kvObject keep(kvObject object) {
        if (object) objects.push_back(object);
        return object;
    }

    kvObject property(const char* name, kvArg id = 0, kvArg flags = 0, kvObject owner = nullptr) {
        return keep(kvNewObject(&error, "Property", owner, name, id, flags));
    }

    // A listener subscribed to `event` of `notifier`, answering `answer`.
    kvObject listenTo(kvObject notifier, const char* event, kvArg answer = 0) {
        kvObject listener = keep(kvNewObject(&error, "Listener"));
        kvSendMeth(&error, listener, "configure", answer, 0, 0);
        kvAddNotification(&error, notifier, event, listener, "onEvent", 1);
        return listener;
    }

    static kvArg lastArg(kvObject listener, kvArg index) {
        return kvSendMeth(nullptr, listener, "getArg", index);
    }

    static kvResult calls(kvObject listener) { return kvSendMeth(nullptr, listener, "getCalls"); }

    static std::string nameOf(kvObject prop) {
        const auto* name = reinterpret_cast<const char*>(kvSendMeth(nullptr, prop, "getName"));
        return name ? name : "<null>";
    }

    static std::vector<unsigned char> bytesOf(kvObject stream) {
        const auto* data =
            reinterpret_cast<const unsigned char*>(kvSendMeth(nullptr, stream, "getDataPtr"));
        const auto length = static_cast<size_t>(kvSendMeth(nullptr, stream, "getLength"));
        return std::vector<unsigned char>(data, data + length);
    }

    kvObject error = nullptr;
    std::vector<kvObject> objects;
};

TEST_F(PropertyTest, CreationFillsTheFieldsAndOnlyTheCreatorsFlags) {
    kvObject owner = keep(kvNewObject(&error, "Listener"));
    char name[] = "Alpha";
    kvObject prop = property(name, 0x12345, KV_OBJ_PERSISTENT, owner);
    ASSERT_NE(prop, nullptr);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 0x2345);
    EXPECT_EQ(kvSendMeth(&error, prop, "getOwner"), reinterpret_cast<kvResult>(owner));
    EXPECT_EQ(nameOf(prop), "Alpha");
    EXPECT_NE(kvSendMeth(&error, prop, "getName"), reinterpret_cast<kvResult>(name)); // a copy
    EXPECT_EQ(kvSendMeth(&error, prop, "isPersistant"), 1);

    EXPECT_EQ(kvSendMeth(&error, prop, "setId", 0x12345), 0);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 0x2345);
    kvSendMeth(&error, prop, "setOwner", nullptr);
    EXPECT_EQ(kvSendMeth(&error, prop, "getOwner"), 0);

    kvObject plain = property(nullptr, 0, 0x0008 | KV_OBJ_FORWARDER | KV_OBJ_SILENT);
    EXPECT_EQ(kvSendMeth(&error, plain, "isPersistant"), 0);
    EXPECT_EQ(kvSendMeth(&error, plain, "getName"), 0);
    EXPECT_EQ(plain->flags, 0x0008); // the kernel's bits are not the creator's to set
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, RenameIsVetoedOnlyBy200AndNeverToAnEmptyName) {
    kvObject prop = property("Alpha");
    kvObject watcher = listenTo(prop, "OnWillChangeName", 200);
    const kvResult oldName = kvSendMeth(&error, prop, "getName");
    EXPECT_EQ(kvSendMeth(&error, prop, "setName", "Beta"), 0);
    EXPECT_EQ(nameOf(prop), "Alpha");
    EXPECT_EQ(lastArg(watcher, 2), oldName);
    EXPECT_STREQ(reinterpret_cast<const char*>(lastArg(watcher, 3)), "Beta");

    kvSendMeth(&error, watcher, "configure", 1, 0, 0); // any other answer lets it through
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(nameOf(prop), "Beta");

    kvSendMeth(&error, prop, "setName", "");
    kvSendMeth(&error, prop, "setName", nullptr);
    EXPECT_EQ(nameOf(prop), "Beta");
    EXPECT_EQ(calls(watcher), 4); // asked even about names it will not get
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, StoreAndFetchAreAnnouncedAndValueMethodsArePure) {
    kvObject prop = property("Alpha");
    kvObject stores = listenTo(prop, "OnStore");
    kvObject fetches = listenTo(prop, "OnFetch");
    EXPECT_EQ(kvSendMeth(&error, prop, "storeData", 42), 0);
    EXPECT_EQ(calls(stores), 1);
    EXPECT_EQ(lastArg(stores, 0), reinterpret_cast<kvArg>(prop));
    EXPECT_EQ(lastArg(stores, 2), 42);
    EXPECT_EQ(kvSendMeth(&error, prop, "fetchData"), 0);
    EXPECT_EQ(calls(fetches), 1);
    EXPECT_EQ(error, nullptr);

    for (const char* method : {"asInt", "asString"}) {
        EXPECT_EQ(kvSendMeth(&error, prop, method), 0);
        EXPECT_EQ(errorCode(error), 3430) << method;
        EXPECT_EQ(errorMessage(error), "Required property method missing");
        clearErrors(error);
    }
}

TEST_F(PropertyTest, OnTermIsFiredWhileTheNameStillExists) {
    kvObject prop = kvNewObject(&error, "Property", nullptr, "Alpha", 1, 0);
    const kvResult name = kvSendMeth(&error, prop, "getName");
    kvObject terms = listenTo(prop, "OnTerm");
    // During its own "OnTerm" the property tries to rename itself; the vetoing
    // watcher sees the name the property still holds at that moment.
    kvAddNotification(&error, prop, "OnTerm", prop, "setName", 5);
    kvObject watcher = listenTo(prop, "OnWillChangeName", 200);
    kvDelObject(&error, prop);
    EXPECT_EQ(calls(terms), 1);
    EXPECT_EQ(lastArg(terms, 0), reinterpret_cast<kvArg>(prop));
    EXPECT_EQ(calls(watcher), 1);
    EXPECT_EQ(lastArg(watcher, 2), name);
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, SavedRecordIsTheFlagsWordThenTheOwnClassesRawData) {
    kvObject owner = keep(kvNewObject(&error, "Listener"));
    kvObject prop = property("Alpha", 0x0102, KV_OBJ_PERSISTENT | 0x0008, owner);
    kvObject stream = keep(kvNewObject(&error, "MemStream", 0, 0));
    EXPECT_EQ(kvSendMeth(&error, prop, "writeToStream", stream), 0);

    // flags, owner, name pointer, id: the slice as it lies in memory.
    std::vector<unsigned char> expected{0x09, 0x00};
    const kvResult namePointer = kvSendMeth(&error, prop, "getName");
    const auto* ownerBytes = reinterpret_cast<const unsigned char*>(&owner);
    const auto* nameBytes = reinterpret_cast<const unsigned char*>(&namePointer);
    expected.insert(expected.end(), ownerBytes, ownerBytes + sizeof owner);
    expected.insert(expected.end(), nameBytes, nameBytes + sizeof(void*));
    expected.insert(expected.end(), {0x02, 0x01});
    EXPECT_EQ(bytesOf(stream), expected);
    EXPECT_EQ(kvFindClass("Property")->instanceSize, expected.size() - 2);

    // Read back into another property: flags and id come back; the owner and
    // name, which are addresses in the record, stay the reader's own.
    kvObject copy = property("Beta", 7);
    kvSendMeth(&error, stream, "Rewind");
    EXPECT_EQ(kvSendMeth(&error, copy, "readFromStream", stream), 0);
    EXPECT_EQ(copy->flags, KV_OBJ_PERSISTENT | 0x0008);
    EXPECT_EQ(kvSendMeth(&error, copy, "getId"), 0x0102);
    EXPECT_EQ(nameOf(copy), "Beta");
    EXPECT_EQ(kvSendMeth(&error, copy, "getOwner"), 0);
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, HostileOrShortRecordsCannotCorruptTheReader) {
    kvObject reader = property("Alpha", 5);
    kvObject watcher = listenTo(reader, "OnStore");
    kvObject stream = keep(kvNewObject(&error, "MemStream", 0, 0));
    // A flags word with every kernel bit, then only half of a slice.
    kvSendMeth(&error, stream, "WriteInt16", 0xFFFF);
    kvSendMeth(&error, stream, "Write", "\x01\x02\x03\x04", 4);
    kvSendMeth(&error, stream, "Rewind");
    kvSendMeth(&error, reader, "readFromStream", stream);
    EXPECT_EQ(reader->flags & KV_OBJ_FORWARDER, 0);
    EXPECT_NE(reader->flags & KV_OBJ_HAS_EVENTS, 0); // its subscriptions still work
    EXPECT_EQ(kvSendMeth(&error, reader, "isPersistant"), 1);
    EXPECT_EQ(kvSendMeth(&error, reader, "getId"), 5);
    kvSendMeth(&error, reader, "storeData", 1);
    EXPECT_EQ(calls(watcher), 1);
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, NoMemoryKeepsTheOldNameAndTheOldRecord) {
    kvObject prop = property("Alpha", 5);
    kvDebugFailAllocOnce(0);
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(errorCode(error), 3429);
    EXPECT_EQ(nameOf(prop), "Alpha");
    clearErrors(error);

    kvObject stream = keep(kvNewObject(&error, "MemStream", 0, 0));
    kvObject source = property("Gamma", 9);
    kvSendMeth(&error, source, "writeToStream", stream);
    kvSendMeth(&error, stream, "Rewind");
    kvSendMeth(&error, prop, "readFromStream", stream); // the sends are cached now
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 9);
    kvSendMeth(&error, prop, "setId", 5);
    kvSendMeth(&error, stream, "Rewind");
    kvDebugFailAllocOnce(0);
    kvSendMeth(&error, prop, "readFromStream", stream);
    EXPECT_EQ(errorCode(error), 3429);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 5);
    clearErrors(error);

    // Creation whose name cannot be copied gives a nameless property.
    bool sawNameless = false;
    for (long n = 0; n < 20 && !sawNameless; ++n) {
        kvDebugFailAllocOnce(n);
        kvObject made = kvNewObject(&error, "Property", nullptr, "Delta", 1, 0);
        kvDebugFailAllocAfter(-1);
        if (made && kvSendMeth(&error, made, "getName") == 0) {
            sawNameless = true;
            EXPECT_EQ(errorCode(error), 3429);
        }
        clearErrors(error);
        kvDelObject(&error, made);
    }
    EXPECT_TRUE(sawNameless);
}

} // namespace
} // namespace kova::test
