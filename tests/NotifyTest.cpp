// Notifications: delivery order, arguments, the Term form, subscribers that
// unsubscribe or delete the notifier mid-firing, forwarders and failures.
#include "tests/KernelFixture.hpp"

#include <cstring>
#include <string>

namespace kova::test {
namespace {

class NotifyTest : public KernelTest {
  protected:
    kvObject error = nullptr;
    kvObject notifier = nullptr;

    void SetUp() override {
        KernelTest::SetUp();
        notifier = kvNewObject(&error, "Shape", 3);
        ASSERT_NE(notifier, nullptr);
    }
    void TearDown() override {
        clearErrors(error);
        kvDelObject(nullptr, notifier);
        KernelTest::TearDown();
    }

    kvObject listener(kvArg answer = 0, kvArg mode = 0, kvObject target = nullptr) {
        kvObject made = kvNewObject(&error, "Listener");
        kvSendMeth(&error, made, "configure", answer, mode, target);
        return made;
    }
    static kvArg calls(kvObject listener) { return kvSendMeth(nullptr, listener, "getCalls"); }
};

TEST_F(NotifyTest, LowerPriorityFirstAndEqualPrioritiesInOrderAdded) {
    kvObject a = listener(), b = listener(), c = listener();
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", a, "onEvent", 5), 1);
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", b, "onEvent", 3), 0);
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", c, "onEvent", 3), 0);
    EXPECT_TRUE(notifier->flags & KV_OBJ_HAS_EVENTS);
    // The Term form stops at the first non-zero answer: b answers 0, c 0, a 0,
    // so everyone is reached; then make c answer and a is not reached.
    EXPECT_EQ(kvFireNotificationTerm(&error, notifier, "OnStore"), 0);
    EXPECT_EQ(calls(a) + calls(b) + calls(c), 3);
    kvSendMeth(&error, c, "configure", 300, 0, nullptr);
    EXPECT_EQ(kvFireNotificationTerm(&error, notifier, "OnStore"), 300);
    EXPECT_EQ(calls(b), 2); // b (priority 3, added first) came before c
    EXPECT_EQ(calls(c), 2);
    EXPECT_EQ(calls(a), 1); // priority 5, never reached the second time
    EXPECT_EQ(error, nullptr);
    for (kvObject o : {a, b, c}) {
        kvDeleteNotification(&error, notifier, "OnStore", o, "onEvent");
        kvDelObject(&error, o);
    }
    EXPECT_FALSE(notifier->flags & KV_OBJ_HAS_EVENTS);
}

TEST_F(NotifyTest, SubscriberReceivesNotifierEventNameAndExtraSlots) {
    kvObject l = listener();
    kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 1);
    kvFireNotification(&error, notifier, "OnStore", 42, "extra");
    EXPECT_EQ(kvSendMeth(nullptr, l, "getArg", 0), reinterpret_cast<kvArg>(notifier));
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSendMeth(nullptr, l, "getArg", 1)), "OnStore");
    EXPECT_EQ(kvSendMeth(nullptr, l, "getArg", 2), 42);
    EXPECT_STREQ(reinterpret_cast<const char*>(kvSendMeth(nullptr, l, "getArg", 3)), "extra");
    kvDeleteNotification(&error, notifier, "OnStore", l, "onEvent");
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, FiringWithoutSubscribersOrWhileSilencedDoesNothing) {
    kvObject l = listener();
    kvFireNotification(&error, notifier, "OnNothing");
    kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 1);
    kvFireNotification(&error, notifier, "OnOther");
    notifier->flags |= KV_OBJ_SILENT;
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(kvFireNotificationTerm(&error, notifier, "OnStore"), 0);
    EXPECT_EQ(calls(l), 0);
    notifier->flags &= ~KV_OBJ_SILENT;
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(calls(l), 1);
    EXPECT_EQ(kvDeleteNotification(&error, notifier, "OnStore", l, "onEvent"), 1);
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, DuplicateSubscriptionIs3467) {
    kvObject l = listener();
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 2), 1);
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 2), -1);
    EXPECT_EQ(errorCode(error), 3467);
    EXPECT_EQ(errorMessage(error),
              "An object of class Listener duplicitously attempted to add the OnStore "
              "notification on an object of class Shape. The request was ignored since an "
              "identical notification already exists.");
    // The duplicate test only sees records ahead of the insertion place.
    kvObject other = listener();
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", other, "onEvent", 1), 0);
    clearErrors(error);
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 0), 0);
    EXPECT_EQ(error, nullptr);
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(calls(l), 2);
    kvDeleteNotification(&error, notifier, "OnStore", l, "onEvent");
    kvDeleteNotification(&error, notifier, "OnStore", l, "onEvent");
    EXPECT_EQ(kvDeleteNotification(&error, notifier, "OnStore", other, "onEvent"), 1);
    EXPECT_EQ(notifier->events, nullptr);
    kvDelObject(&error, l);
    kvDelObject(&error, other);
}

TEST_F(NotifyTest, PriorityAtTheEndMarkerIsSilentlyNotAdded) {
    kvObject l = listener();
    EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 32767), 0);
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(calls(l), 0);
    EXPECT_EQ(kvDeleteNotification(&error, notifier, "OnStore", l, "onEvent"), -1);
    EXPECT_EQ(error, nullptr);
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, SubscriberDeletingItsSubscriptionMidFiringIsSkippedThenRemoved) {
    kvObject quitter = listener(0, 1);
    kvObject stayer = listener();
    kvAddNotification(&error, notifier, "OnStore", quitter, "onEvent", 1);
    kvAddNotification(&error, notifier, "OnStore", stayer, "onEvent", 2);
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(calls(quitter), 1);
    EXPECT_EQ(calls(stayer), 1);
    EXPECT_FALSE(notifier->flags & KV_OBJ_NEEDS_CLEANING); // cleaned after the firing
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(calls(quitter), 1);
    EXPECT_EQ(calls(stayer), 2);
    EXPECT_EQ(kvDeleteNotification(&error, notifier, "OnStore", stayer, "onEvent"), 1);
    kvDelObject(&error, quitter);
    kvDelObject(&error, stayer);
}

TEST_F(NotifyTest, DeletingTheNotifierMidFiringIs3470AndItStaysUsable) {
    kvObject deleter = listener(0, 2);
    kvAddNotification(&error, notifier, "OnStore", deleter, "onEvent", 1);
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(errorCode(error), 3470);
    EXPECT_EQ(errorMessage(error), "Can not delete a notifying object");
    EXPECT_EQ(kvSendMeth(nullptr, notifier, "getSides"), 3);
    clearErrors(error);
    kvDeleteNotification(&error, notifier, "OnStore", deleter, "onEvent");
    kvDelObject(&error, deleter);
}

TEST_F(NotifyTest, EveryFiringToAMissingMethodIsReportedAndFoundMethodsKeepWorking) {
    kvObject l = listener();
    kvAddNotification(&error, notifier, "OnStore", l, "noSuchMethod", 1);
    kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 2);
    for (int firing = 1; firing <= 3; ++firing) {
        kvFireNotification(&error, notifier, "OnStore", firing);
        EXPECT_EQ(errorCode(error), 3427);
        EXPECT_EQ(errorMessage(error), "An unimplemented method noSuchMethod was sent to class "
                                       "Listener");
        EXPECT_EQ(kvSendMeth(nullptr, l, "getArg", 2), firing);
        clearErrors(error);
    }
    EXPECT_EQ(calls(l), 3);
    kvDeleteNotification(&error, notifier, "OnStore", l, "noSuchMethod");
    kvDeleteNotification(&error, notifier, "OnStore", l, "onEvent");
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, AnEventNeverReentersItself) {
    kvObject refirer = listener(0, 3);
    kvAddNotification(&error, notifier, "OnStore", refirer, "onEvent", 1);
    kvFireNotification(&error, notifier, "OnStore");
    EXPECT_EQ(calls(refirer), 1);
    kvDeleteNotification(&error, notifier, "OnStore", refirer, "onEvent");
    kvDelObject(&error, refirer);
}

TEST_F(NotifyTest, ForwarderSubscriptionsLandOnItsTarget) {
    kvObject relay = kvNewObject(&error, "Relay");
    kvSendMeth(&error, relay, "setForward", notifier);
    kvObject l = listener();
    EXPECT_EQ(kvAddNotification(&error, relay, "OnStore", l, "onEvent", 1), 1);
    EXPECT_EQ(relay->events, nullptr);
    EXPECT_NE(notifier->events, nullptr);
    EXPECT_EQ(kvResolveForwards(relay), notifier);
    // Firing tests the flag of the object as named, then uses the target's lists.
    kvFireNotification(&error, relay, "OnStore");
    EXPECT_EQ(calls(l), 1);
    EXPECT_EQ(kvDeleteNotification(&error, relay, "OnStore", l, "onEvent"), 1);
    // A forwarder cycle resolves to nothing instead of hanging.
    kvSendMeth(&error, relay, "setForward", relay);
    EXPECT_EQ(kvResolveForwards(relay), nullptr);
    EXPECT_EQ(kvAddNotification(&error, relay, "OnStore", l, "onEvent", 1), -1);
    kvDelObject(&error, relay);
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, BadArgumentsAre3443AndLongNamesAreRefused) {
    kvObject l = listener();
    EXPECT_EQ(kvDeleteNotification(&error, notifier, nullptr, l, "onEvent"), -1);
    EXPECT_EQ(errorCode(error), 3443);
    EXPECT_EQ(errorMessage(error), "Invalid input error");
    clearErrors(error);
    EXPECT_EQ(kvAddNotification(&error, nullptr, "OnStore", l, "onEvent", 1), -1);
    clearErrors(error);
    const std::string longest(25, 'E');
    EXPECT_EQ(kvAddNotification(&error, notifier, longest.c_str(), l, "onEvent", 1), 1);
    kvFireNotification(&error, notifier, longest.c_str());
    EXPECT_EQ(calls(l), 1);
    const std::string tooLong(26, 'E');
    EXPECT_EQ(kvAddNotification(&error, notifier, tooLong.c_str(), l, "onEvent", 1), -1);
    EXPECT_EQ(errorCode(error), 3443);
    kvFireNotification(&error, notifier, tooLong.c_str());
    EXPECT_EQ(calls(l), 1);
    kvDeleteNotification(&error, notifier, longest.c_str(), l, "onEvent");
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, OutOfMemoryIs3429AndLeavesNoHalfMadeEvent) {
    kvObject l = listener();
    kvRegisterClass("KOVAErr");
    for (long failAt = 0; failAt < 2; ++failAt) {
        kvDebugFailAllocOnce(failAt);
        EXPECT_EQ(kvAddNotification(&error, notifier, "OnStore", l, "onEvent", 1), -1);
        kvDebugFailAllocAfter(-1);
        EXPECT_EQ(errorCode(error), 3429);
        EXPECT_EQ(errorMessage(error), "Out of memory");
        EXPECT_EQ(notifier->events, nullptr);
        clearErrors(error);
    }
    kvDelObject(&error, l);
}

TEST_F(NotifyTest, FreeingAnObjectClearsItsLists) {
    kvObject other = kvNewObject(&error, "Shape", 4);
    kvObject l = listener();
    kvAddNotification(&error, other, "OnStore", l, "onEvent", 1);
    kvAddNotification(&error, other, "OnTerm", l, "onOther", 1);
    kvDelObject(&error, other); // nothing leaks: checked by the sanitizer build
    kvDelObject(&error, l);
    EXPECT_EQ(error, nullptr);
}

} // namespace
} // namespace kova::test
