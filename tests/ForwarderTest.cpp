// Forwarders: methods a forwarder does not know reach its target, which
// answers with its own data; notification operations act on the target; a
// forwarder without a target sends nowhere, and one that reaches itself again
// reports an error instead of delivering.
#include "tests/KernelFixture.hpp"

#include <cstring>

namespace kova::test {
namespace {

class ForwarderTest : public KernelTest {
  protected:
    void TearDown() override {
        // Deleting asks a forwarder for its target, which may be gone already.
        for (kvObject obj : made)
            if (obj->flags & KV_OBJ_FORWARDER) kvSendMeth(nullptr, obj, "setForward", nullptr);
        KernelTest::TearDown();
    }

    kvObject echo(int32_t value) { return make("Echo", value); }
    kvObject forw(kvObject target) { return make("Forw", target); }
    // A property forwarder named "link" with id 7, owned by nobody.
    kvObject propForw(kvObject target) { return make("PropForw", target, nullptr, "link", 7, 0); }
    static kvObject forwardOf(kvObject forwarder) {
        return reinterpret_cast<kvObject>(kvSendMeth(nullptr, forwarder, "getForward"));
    }
};

TEST_F(ForwarderTest, UnknownMethodsReachTheTargetWithItsDataAndArguments) {
    kvObject target = echo(100);
    kvObject forwarder = forw(target);
    ASSERT_NE(forwarder, nullptr);
    EXPECT_TRUE(forwarder->flags & KV_OBJ_FORWARDER);
    EXPECT_EQ(forwardOf(forwarder), target);

    EXPECT_EQ(kvSendMeth(&error, forwarder, "sum", 20, 3), 123);
    EXPECT_EQ(kvSendMeth(&error, forwarder, "argCount", 1, 2, 3, 4, 5), 5);
    EXPECT_EQ(kvSendMeth(&error, forwarder, "getSelf"), reinterpret_cast<kvResult>(target));
    EXPECT_EQ(kvSendMeth(&error, forwarder, "storeData", 7), 1);
    EXPECT_EQ(kvSendMeth(&error, target, "fetchData"), 7);

    // Methods of Object are the forwarder's own.
    EXPECT_EQ(kvSendMeth(&error, forwarder, "isA", "Echo"), 0);
    EXPECT_EQ(kvSendMeth(&error, forwarder, "respondsTo", "sum"), 0);
    EXPECT_EQ(kvSendMeth(&error, forwarder, "setForward", echo(50)), 1);
    EXPECT_EQ(kvSendMeth(&error, forwarder, "sum", 0, 0), 50);

    kvObject outer = forw(forwarder); // a chain of two
    EXPECT_EQ(kvSendMeth(&error, outer, "sum", 1, 1), 52);
    EXPECT_EQ(error, nullptr);

    // What the target does not know either is reported by the target.
    EXPECT_EQ(kvSendMeth(&error, outer, "fly"), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method fly was sent to class Echo");
    EXPECT_EQ(takeError(), 3427);
}

TEST_F(ForwarderTest, SubscriptionsThroughAForwarderLandOnItsTarget) {
    kvObject target = echo(1);
    kvObject forwarder = forw(target);
    kvObject subscriber = listener();
    EXPECT_EQ(kvAddNotification(&error, forwarder, "OnStore", subscriber, "onEvent", 1), 1);
    EXPECT_NE(target->events, nullptr);
    EXPECT_EQ(forwarder->events, nullptr);
    EXPECT_EQ(kvResolveForwards(forwarder), target);

    // Firing tests the flag of the object as named, then uses the target's lists.
    kvFireNotification(&error, forwarder, "OnStore", 5);
    EXPECT_EQ(calls(subscriber), 1);
    EXPECT_EQ(argOf(subscriber, 2), 5);
    EXPECT_EQ(kvDeleteNotification(&error, forwarder, "OnStore", subscriber, "onEvent"), 1);
    EXPECT_EQ(target->events, nullptr);
}

// A Forw without a target sends to a null object: the kernel's message box and
// the answer 0, no error. A PropForw reports the missing link as error 3451.
TEST_F(ForwarderTest, WithoutATargetNothingIsDelivered) {
    kvObject forwarder = forw(nullptr);
    ASSERT_NE(forwarder, nullptr);
    EXPECT_EQ(kvSendMeth(&error, forwarder, "sum", 1, 2), 0);
    EXPECT_EQ(error, nullptr);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].text,
              "An attempt was made to send method sum to a null object reference.");
    EXPECT_EQ(shownMessages()[0].caption, "KOVA Kernel Error");
    EXPECT_EQ(kvResolveForwards(forwarder), nullptr);
    EXPECT_EQ(kvAddNotification(&error, forwarder, "OnStore", forwarder, "sum", 1), -1);

    shownMessages().clear();
    kvObject link = propForw(nullptr);
    EXPECT_ERROR(kvSendMeth(&error, link, "fetchData"), 0, 3451);
    EXPECT_ERROR(kvSendMeth(&error, link, "storeData", 5), 0, 3451);
    EXPECT_ERROR(kvSendMeth(&error, link, "sum", 1, 2), 0, 3451);
    EXPECT_TRUE(shownMessages().empty()) << "reported as errors, not message boxes";
}

// A forwarder that reaches itself again would pass a message round forever:
// the ring is cut and the method reported as unimplemented, once.
TEST_F(ForwarderTest, RingsOfForwardersReportTheMethodOnce) {
    kvObject self = forw(nullptr);
    kvSendMeth(&error, self, "setForward", self);
    EXPECT_EQ(kvSendMeth(&error, self, "sum", 1, 2), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method sum was sent to class Forw");
    EXPECT_EQ(takeError(), 3427);
    EXPECT_EQ(kvResolveForwards(self), nullptr);
    EXPECT_EQ(kvAddNotification(&error, self, "OnStore", listener(), "onEvent", 1), -1);
    clearErrors(error);

    kvObject link = propForw(nullptr);
    kvSendMeth(&error, link, "setForward", link);
    EXPECT_EQ(kvSendMeth(&error, link, "fetchData"), 0);
    EXPECT_EQ(errorMessage(error), "An unimplemented method fetchData was sent to class PropForw");
    EXPECT_EQ(takeError(), 3427);

    // A ring through both kinds: a, link, b and a again.
    kvObject a = forw(nullptr);
    kvObject b = forw(a);
    kvSendMeth(&error, link, "setForward", b);
    kvSendMeth(&error, a, "setForward", link);
    for (kvObject start : {a, link}) {
        EXPECT_EQ(kvSendMeth(&error, start, "sum", 1, 2), 0);
        ASSERT_EQ(errorCode(error), 3427);
        kvSendMeth(&error, error, "deleteTopError");
        EXPECT_EQ(error, nullptr) << "one error for the whole ring";
    }
    EXPECT_TRUE(shownMessages().empty());

    // The ring broken, the same forwarders deliver again.
    kvSendMeth(&error, b, "setForward", echo(40));
    EXPECT_EQ(kvSendMeth(&error, a, "sum", 1, 2), 43);
}

TEST_F(ForwarderTest, APropertyForwarderSendsOnFetchStoreAndUnknownMethods) {
    kvObject target = echo(3);
    kvObject link = propForw(target);
    ASSERT_NE(link, nullptr);
    EXPECT_TRUE(link->flags & KV_OBJ_FORWARDER);
    EXPECT_EQ(forwardOf(link), target);
    EXPECT_EQ(kvSendMeth(&error, link, "fetchData"), 3);
    EXPECT_EQ(kvSendMeth(&error, link, "storeData", 9), 1) << "the target's answer";
    EXPECT_EQ(kvSendMeth(&error, target, "fetchData"), 9);
    EXPECT_EQ(kvSendMeth(&error, link, "sum", 1, 1), 11);

    // Property's own methods are answered by the forwarder.
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSendMeth(&error, link, "getName")), "link");
    EXPECT_EQ(kvSendMeth(&error, link, "getId"), 7);
    EXPECT_EQ(kvSendMeth(&error, link, "setForward", echo(20)), 0);
    EXPECT_EQ(kvSendMeth(&error, link, "fetchData"), 20);
}

// A saved record carries the target's address from another time: reading
// one back must not make the forwarder send there.
TEST_F(ForwarderTest, ReadingASavedRecordKeepsThePropertyForwardersTarget) {
    kvObject target = echo(4);
    kvObject link = propForw(target);
    kvObject stream = make("MemStream", 0, 0);
    ASSERT_NE(stream, nullptr);
    unsigned char garbage[sizeof(kvObject)];
    std::memset(garbage, 0x41, sizeof garbage);
    kvSendMeth(&error, stream, "WriteInt16", 0);
    kvSendMeth(&error, stream, "Write", garbage, int32_t{sizeof garbage});
    kvSendMeth(&error, stream, "Rewind");
    kvSendMeth(&error, link, "readFromStream", stream);
    EXPECT_EQ(forwardOf(link), target);
    EXPECT_TRUE(link->flags & KV_OBJ_FORWARDER) << "a record does not unmake a forwarder";
    EXPECT_EQ(kvSendMeth(&error, link, "fetchData"), 4);
}

} // namespace
} // namespace kova::test
