// The property base class: its fields and flags, the notifications of store,
// fetch, rename and deletion with the rename veto, the pure value methods, the
// base saved record, and its out-of-memory paths.
#include "tests/PropertyFixture.hpp"

namespace kova::test {
namespace {

TEST_F(PropertyTest, FieldsFlagsAndTheAnnouncedStoreAndFetch) {
    kvObject owner = listener();
    kvObject prop = make("Property", owner, "Alpha", 0x12345, KV_OBJ_PERSISTENT);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 0x2345);
    EXPECT_EQ(kvSendMeth(&error, prop, "getOwner"), reinterpret_cast<kvResult>(owner));
    EXPECT_EQ(nameOf(prop), "Alpha");
    EXPECT_EQ(kvSendMeth(&error, prop, "isPersistant"), 1);
    kvSendMeth(&error, prop, "setId", 0x12345);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 0x2345);

    kvObject stores = listen(prop, "OnStore");
    kvObject fetches = listen(prop, "OnFetch");
    EXPECT_EQ(kvSendMeth(&error, prop, "storeData", 42), 0);
    EXPECT_EQ(argOf(stores, 2), 42);
    EXPECT_EQ(kvSendMeth(&error, prop, "fetchData"), 0);
    EXPECT_EQ(calls(fetches), 1);

    kvObject plain =
        make("Property", nullptr, nullptr, 0, 0x0008 | KV_OBJ_FORWARDER | KV_OBJ_SILENT);
    EXPECT_EQ(kvSendMeth(&error, plain, "getName"), 0);
    EXPECT_EQ(plain->flags, 0x0008); // the kernel's bits are not the creator's to set
    EXPECT_EQ(error, nullptr);
    for (const char* method : {"asInt", "asString"}) {
        EXPECT_EQ(kvSendMeth(&error, plain, method), 0);
        EXPECT_EQ(errorCode(error), 3430) << method;
        clearErrors(error);
    }
}

TEST_F(PropertyTest, RenameIsVetoedOnlyBy200AndNeverToAnEmptyName) {
    kvObject prop = make("Property", nullptr, "Alpha", 0, 0);
    kvObject watcher = listen(prop, "OnWillChangeName", 200);
    const kvResult oldName = kvSendMeth(&error, prop, "getName");
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(nameOf(prop), "Alpha");
    EXPECT_EQ(argOf(watcher, 2), oldName);
    EXPECT_STREQ(reinterpret_cast<const char*>(argOf(watcher, 3)), "Beta");

    kvSendMeth(&error, watcher, "configure", 1, 0, 0); // any other answer lets it through
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(nameOf(prop), "Beta");
    kvSendMeth(&error, prop, "setName", "");
    kvSendMeth(&error, prop, "setName", nullptr);
    EXPECT_EQ(nameOf(prop), "Beta");
}

TEST_F(PropertyTest, OnTermIsFiredWhileTheNameStillExists) {
    kvObject prop = kvNewObject(&error, "Property", nullptr, "Alpha", 1, 0);
    const kvResult name = kvSendMeth(&error, prop, "getName");
    // In its own "OnTerm" the property tries to rename itself; the vetoing
    // watcher is shown the name the property holds at that moment.
    kvAddNotification(&error, prop, "OnTerm", prop, "setName", 5);
    kvObject watcher = listen(prop, "OnWillChangeName", 200);
    kvDelObject(&error, prop);
    EXPECT_EQ(calls(watcher), 1);
    EXPECT_EQ(argOf(watcher, 2), name);
}

TEST_F(PropertyTest, SavedRecordIsTheFlagsWordThenTheOwnClassesRawData) {
    kvObject owner = listener();
    kvObject prop = make("Property", owner, "Alpha", 0x0102, KV_OBJ_PERSISTENT | 0x0008);
    // Then owner, name pointer and id, as they lie in memory.
    const kvResult name = kvSendMeth(&error, prop, "getName");
    Bytes expected = record(0x0009);
    expected.insert(expected.end(), reinterpret_cast<uint8_t*>(&owner),
                    reinterpret_cast<uint8_t*>(&owner + 1));
    expected.insert(expected.end(), reinterpret_cast<const uint8_t*>(&name),
                    reinterpret_cast<const uint8_t*>(&name + 1));
    const Bytes saved = recordOf(prop);
    EXPECT_EQ(saved, expected + le16(0x0102));

    // Read back: flags and id return; owner and name, addresses in the record,
    // stay the reader's own; the kernel's bits of the header stay as they were.
    kvObject copy = make("Property", nullptr, "Beta", 7, 0);
    kvObject watcher = listen(copy, "OnStore");
    readInto(copy, saved);
    EXPECT_EQ(copy->flags, KV_OBJ_HAS_EVENTS | KV_OBJ_PERSISTENT | 0x0008);
    EXPECT_EQ(kvSendMeth(&error, copy, "getId"), 0x0102);
    EXPECT_EQ(nameOf(copy), "Beta");
    EXPECT_EQ(kvSendMeth(&error, copy, "getOwner"), 0);

    // A record cut short changes nothing of the slice.
    readInto(copy, record(0xFFFF, {1, 2})); // 2 bytes of the slice's own
    EXPECT_EQ(kvSendMeth(&error, copy, "getId"), 0x0102);
    EXPECT_EQ(copy->flags & KV_OBJ_FORWARDER, 0);
    kvSendMeth(&error, copy, "storeData", 1);
    EXPECT_EQ(calls(watcher), 1);
}

TEST_F(PropertyTest, NoMemoryKeepsTheOldNameAndTheOldRecord) {
    kvObject prop = make("Property", nullptr, "Alpha", 5, 0);
    kvDebugFailAllocOnce(0);
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(takeError(), 3429);
    EXPECT_EQ(nameOf(prop), "Alpha");

    const Bytes saved = recordOf(make("Property", nullptr, "Gamma", 9, 0));
    readInto(prop, saved); // the sends are cached now
    kvSendMeth(&error, prop, "setId", 5);
    kvObject stream = streamWith(saved);
    kvDebugFailAllocOnce(0);
    kvSendMeth(&error, prop, "readFromStream", stream);
    EXPECT_EQ(takeError(), 3429);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 5);

    bool sawNameless = false; // creation whose name cannot be copied
    for (long n = 0; n < 20; ++n) {
        kvDebugFailAllocOnce(n);
        kvObject fresh = make("Property", nullptr, "Delta", 1, 0);
        kvDebugFailAllocAfter(-1);
        if (fresh && !kvSendMeth(&error, fresh, "getName")) {
            sawNameless = true;
            EXPECT_EQ(errorCode(error), 3429);
        }
        clearErrors(error);
    }
    EXPECT_TRUE(sawNameless);
}

} // namespace
} // namespace kova::test
