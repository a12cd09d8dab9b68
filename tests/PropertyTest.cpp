// The property base class: its fields and flags, the notifications of store,
// fetch, rename and deletion with the rename veto, the pure value methods, the
// base saved record, and its out-of-memory paths.
#include "tests/KernelFixture.hpp"

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
        objects.push_back(object);
        return object;
    }

    kvObject property(const char* name, kvArg id = 0, kvArg flags = 0, kvObject owner = nullptr) {
        return keep(kvNewObject(&error, "Property", owner, name, id, flags));
    }

    // A listener subscribed to `event` of `notifier` that answers `answer`.
    kvObject listenTo(kvObject notifier, const char* event, kvArg answer = 0) {
        kvObject listener = keep(kvNewObject(&error, "Listener"));
        kvSendMeth(&error, listener, "configure", answer, 0, 0);
        kvAddNotification(&error, notifier, event, listener, "onEvent", 1);
        return listener;
    }

    static kvArg lastArg(kvObject listener, kvArg i) {
        return kvSendMeth(nullptr, listener, "getArg", i);
    }
    static kvResult calls(kvObject listener) { return kvSendMeth(nullptr, listener, "getCalls"); }
    static std::string nameOf(kvObject prop) {
        const auto* name = reinterpret_cast<const char*>(kvSendMeth(nullptr, prop, "getName"));
        return name ? name : "<null>";
    }

    kvObject error = nullptr;
    std::vector<kvObject> objects;
};

TEST_F(PropertyTest, FieldsFlagsAndTheAnnouncedStoreAndFetch) {
    kvObject owner = keep(kvNewObject(&error, "Listener"));
    kvObject prop = property("Alpha", 0x12345, KV_OBJ_PERSISTENT, owner);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 0x2345);
    EXPECT_EQ(kvSendMeth(&error, prop, "getOwner"), reinterpret_cast<kvResult>(owner));
    EXPECT_EQ(nameOf(prop), "Alpha");
    EXPECT_EQ(kvSendMeth(&error, prop, "isPersistant"), 1);
    kvSendMeth(&error, prop, "setId", 0x12345);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 0x2345);

    kvObject stores = listenTo(prop, "OnStore");
    kvObject fetches = listenTo(prop, "OnFetch");
    EXPECT_EQ(kvSendMeth(&error, prop, "storeData", 42), 0);
    EXPECT_EQ(lastArg(stores, 2), 42);
    EXPECT_EQ(kvSendMeth(&error, prop, "fetchData"), 0);
    EXPECT_EQ(calls(fetches), 1);

    kvObject plain = property(nullptr, 0, 0x0008 | KV_OBJ_FORWARDER | KV_OBJ_SILENT);
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
    kvObject prop = property("Alpha");
    kvObject watcher = listenTo(prop, "OnWillChangeName", 200);
    const kvResult oldName = kvSendMeth(&error, prop, "getName");
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(nameOf(prop), "Alpha");
    EXPECT_EQ(lastArg(watcher, 2), oldName);
    EXPECT_STREQ(reinterpret_cast<const char*>(lastArg(watcher, 3)), "Beta");

    kvSendMeth(&error, watcher, "configure", 1, 0, 0); // any other answer lets it through
    kvSendMeth(&error, prop, "setName", "Beta");
    EXPECT_EQ(nameOf(prop), "Beta");
    kvSendMeth(&error, prop, "setName", "");
    kvSendMeth(&error, prop, "setName", nullptr);
    EXPECT_EQ(nameOf(prop), "Beta");
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, OnTermIsFiredWhileTheNameStillExists) {
    kvObject prop = kvNewObject(&error, "Property", nullptr, "Alpha", 1, 0);
    const kvResult name = kvSendMeth(&error, prop, "getName");
    // In its own "OnTerm" the property tries to rename itself; the vetoing
    // watcher is shown the name the property holds at that moment.
    kvAddNotification(&error, prop, "OnTerm", prop, "setName", 5);
    kvObject watcher = listenTo(prop, "OnWillChangeName", 200);
    kvDelObject(&error, prop);
    EXPECT_EQ(calls(watcher), 1);
    EXPECT_EQ(lastArg(watcher, 2), name);
    EXPECT_EQ(error, nullptr);
}

TEST_F(PropertyTest, SavedRecordIsTheFlagsWordThenTheOwnClassesRawData) {
    kvObject owner = keep(kvNewObject(&error, "Listener"));
    kvObject prop = property("Alpha", 0x0102, KV_OBJ_PERSISTENT | 0x0008, owner);
    kvObject stream = keep(kvNewObject(&error, "MemStream", 0, 0));
    kvSendMeth(&error, prop, "writeToStream", stream);

    std::vector<unsigned char> expected{0x09, 0x00}; // then owner, name pointer, id
    const kvResult name = kvSendMeth(&error, prop, "getName");
    expected.insert(expected.end(), reinterpret_cast<unsigned char*>(&owner),
                    reinterpret_cast<unsigned char*>(&owner + 1));
    expected.insert(expected.end(), reinterpret_cast<const unsigned char*>(&name),
                    reinterpret_cast<const unsigned char*>(&name + 1));
    expected.insert(expected.end(), {0x02, 0x01});
    const auto* data =
        reinterpret_cast<const unsigned char*>(kvSendMeth(&error, stream, "getDataPtr"));
    ASSERT_EQ(kvSendMeth(&error, stream, "getLength"), static_cast<kvResult>(expected.size()));
    EXPECT_EQ(std::vector<unsigned char>(data, data + expected.size()), expected);

    // Read back: flags and id return; owner and name, addresses in the record,
    // stay the reader's own; the kernel's bits of the header stay as they were.
    kvObject copy = property("Beta", 7);
    kvObject watcher = listenTo(copy, "OnStore");
    kvSendMeth(&error, stream, "Rewind");
    kvSendMeth(&error, copy, "readFromStream", stream);
    EXPECT_EQ(copy->flags, KV_OBJ_HAS_EVENTS | KV_OBJ_PERSISTENT | 0x0008);
    EXPECT_EQ(kvSendMeth(&error, copy, "getId"), 0x0102);
    EXPECT_EQ(nameOf(copy), "Beta");
    EXPECT_EQ(kvSendMeth(&error, copy, "getOwner"), 0);

    // A record cut short changes nothing of the slice.
    kvObject cut = keep(kvNewObject(&error, "MemStream", 0, 0));
    kvSendMeth(&error, cut, "Write", "\xFF\xFF\x01\x02", 4); // flags, then 2 bytes of 18
    kvSendMeth(&error, cut, "Rewind");
    kvSendMeth(&error, copy, "readFromStream", cut);
    EXPECT_EQ(kvSendMeth(&error, copy, "getId"), 0x0102);
    EXPECT_EQ(copy->flags & KV_OBJ_FORWARDER, 0);
    kvSendMeth(&error, copy, "storeData", 1);
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
    kvSendMeth(&error, property("Gamma", 9), "writeToStream", stream);
    kvSendMeth(&error, stream, "Rewind");
    kvSendMeth(&error, prop, "readFromStream", stream); // the sends are cached now
    kvSendMeth(&error, prop, "setId", 5);
    kvSendMeth(&error, stream, "Rewind");
    kvDebugFailAllocOnce(0);
    kvSendMeth(&error, prop, "readFromStream", stream);
    EXPECT_EQ(errorCode(error), 3429);
    EXPECT_EQ(kvSendMeth(&error, prop, "getId"), 5);
    clearErrors(error);

    bool sawNameless = false; // creation whose name cannot be copied
    for (long n = 0; n < 20; ++n) {
        kvDebugFailAllocOnce(n);
        kvObject made = keep(kvNewObject(&error, "Property", nullptr, "Delta", 1, 0));
        kvDebugFailAllocAfter(-1);
        if (made && !kvSendMeth(&error, made, "getName")) {
            sawNameless = true;
            EXPECT_EQ(errorCode(error), 3429);
        }
        clearErrors(error);
    }
    EXPECT_TRUE(sawNameless);
}

} // namespace
} // namespace kova::test
