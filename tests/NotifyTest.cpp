// Notifications: delivery order, arguments, the Term form, subscribers that
// unsubscribe or delete the notifier mid-firing, and failures. The notifier
// is the fixture's Shape.
#include "tests/KernelFixture.hpp"

#include <string>

namespace kova::test {
namespace {

using NotifyTest = ShapeTest;

TEST_F(NotifyTest, LowerPriorityFirstAndEqualPrioritiesInOrderAdded) {
    kvObject a = listener(), b = listener(), c = listener();
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", a, "onEvent", 5), 1);
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", b, "onEvent", 3), 0);
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", c, "onEvent", 3), 0);
    EXPECT_TRUE(shape->flags & KV_OBJ_HAS_EVENTS);
    // The Term form stops at the first non-zero answer: all answer 0, so
    // everyone is reached; then c answers and a is not reached.
    EXPECT_EQ(kvFireNotificationTerm(&error, shape, "OnStore"), 0);
    EXPECT_EQ(calls(a) + calls(b) + calls(c), 3);
    kvSendMeth(&error, c, "configure", 300, 0, nullptr);
    EXPECT_EQ(kvFireNotificationTerm(&error, shape, "OnStore"), 300);
    EXPECT_EQ(calls(b), 2); // b (priority 3, added first) came before c
    EXPECT_EQ(calls(c), 2);
    EXPECT_EQ(calls(a), 1); // priority 5, never reached the second time
    for (kvObject o : {a, b, c})
        kvDeleteNotification(&error, shape, "OnStore", o, "onEvent");
    EXPECT_FALSE(shape->flags & KV_OBJ_HAS_EVENTS);
}

TEST_F(NotifyTest, SubscriberReceivesNotifierEventNameAndExtraSlots) {
    kvObject l = listen(shape, "OnStore");
    kvFireNotification(&error, shape, "OnStore", 42, "extra");
    EXPECT_EQ(argOf(l, 0), reinterpret_cast<kvArg>(shape));
    EXPECT_STREQ(reinterpret_cast<const char*>(argOf(l, 1)), "OnStore");
    EXPECT_EQ(argOf(l, 2), 42);
    EXPECT_STREQ(reinterpret_cast<const char*>(argOf(l, 3)), "extra");
}

TEST_F(NotifyTest, FiringWithoutSubscribersOrWhileSilencedDoesNothing) {
    kvFireNotification(&error, shape, "OnNothing");
    kvObject l = listen(shape, "OnStore");
    kvFireNotification(&error, shape, "OnOther");
    shape->flags |= KV_OBJ_SILENT;
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(kvFireNotificationTerm(&error, shape, "OnStore"), 0);
    EXPECT_EQ(calls(l), 0);
    shape->flags &= ~KV_OBJ_SILENT;
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(l), 1);
}

TEST_F(NotifyTest, DuplicateSubscriptionIs3467) {
    kvObject l = listener();
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", l, "onEvent", 2), 1);
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", l, "onEvent", 2), -1);
    EXPECT_EQ(errorMessage(error),
              "An object of class Listener duplicitously attempted to add the OnStore "
              "notification on an object of class Shape. The request was ignored since an "
              "identical notification already exists.");
    EXPECT_EQ(takeError(), 3467);
    // The duplicate test only sees records ahead of the insertion place.
    kvObject other = listener();
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", other, "onEvent", 1), 0);
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", l, "onEvent", 0), 0);
    EXPECT_EQ(error, nullptr);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(l), 2);
    kvDeleteNotification(&error, shape, "OnStore", l, "onEvent");
    kvDeleteNotification(&error, shape, "OnStore", l, "onEvent");
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", other, "onEvent"), 1);
    EXPECT_EQ(shape->events, nullptr);
}

TEST_F(NotifyTest, PriorityAtTheEndMarkerIsSilentlyNotAdded) {
    kvObject l = listener();
    EXPECT_EQ(kvAddNotification(&error, shape, "OnStore", l, "onEvent", 32767), 0);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(l), 0);
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", l, "onEvent"), -1);
}

TEST_F(NotifyTest, SubscriberDeletingItsSubscriptionMidFiringIsSkippedThenRemoved) {
    kvObject quitter = listener(0, 1);
    kvObject stayer = listener();
    kvAddNotification(&error, shape, "OnStore", quitter, "onEvent", 1);
    kvAddNotification(&error, shape, "OnStore", stayer, "onEvent", 2);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_FALSE(shape->flags & KV_OBJ_NEEDS_CLEANING); // cleaned after the firing
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(quitter), 1);
    EXPECT_EQ(calls(stayer), 2);
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", stayer, "onEvent"), 1);
}

TEST_F(NotifyTest, DeletingTheNotifierMidFiringIs3470AndItStaysUsable) {
    kvAddNotification(&error, shape, "OnStore", listener(0, 2), "onEvent", 1);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(errorMessage(error), "Can not delete a notifying object");
    EXPECT_EQ(takeError(), 3470);
    EXPECT_EQ(kvSendMeth(nullptr, shape, "getSides"), 3);
}

TEST_F(NotifyTest, EveryFiringToAMissingMethodIsReportedAndFoundMethodsKeepWorking) {
    kvObject l = listener();
    kvAddNotification(&error, shape, "OnStore", l, "noSuchMethod", 1);
    kvAddNotification(&error, shape, "OnStore", l, "onEvent", 2);
    for (int firing = 1; firing <= 3; ++firing) {
        kvFireNotification(&error, shape, "OnStore", firing);
        EXPECT_EQ(errorMessage(error), "An unimplemented method noSuchMethod was sent to class "
                                       "Listener");
        EXPECT_EQ(takeError(), 3427);
        EXPECT_EQ(argOf(l, 2), firing);
    }
    EXPECT_EQ(calls(l), 3);
}

TEST_F(NotifyTest, AnEventNeverReentersItself) {
    kvObject refirer = listener(0, 3);
    kvAddNotification(&error, shape, "OnStore", refirer, "onEvent", 1);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(refirer), 1);
}

TEST_F(NotifyTest, BadArgumentsAre3443AndEventNamesEndAt25Characters) {
    kvObject l = listener();
    EXPECT_EQ(kvDeleteNotification(&error, shape, nullptr, l, "onEvent"), -1);
    EXPECT_EQ(errorMessage(error), "Invalid input error");
    EXPECT_EQ(takeError(), 3443);
    EXPECT_ERROR(kvAddNotification(&error, nullptr, "OnStore", l, "onEvent", 1), -1, 3443);
    const std::string longest(25, 'E');
    EXPECT_EQ(kvAddNotification(&error, shape, longest.c_str(), l, "onEvent", 1), 1);
    kvFireNotification(&error, shape, longest.c_str());
    EXPECT_EQ(calls(l), 1);
    const std::string tooLong(26, 'E');
    EXPECT_ERROR(kvAddNotification(&error, shape, tooLong.c_str(), l, "onEvent", 1), -1, 3443);
    kvFireNotification(&error, shape, tooLong.c_str());
    EXPECT_EQ(calls(l), 1);
}

TEST_F(NotifyTest, OutOfMemoryIs3429AndLeavesNoHalfMadeEvent) {
    kvObject l = listener();
    kvRegisterClass("KOVAErr");
    const int failures = failEachAllocation(
        [&] { return kvAddNotification(&error, shape, "OnStore", l, "onEvent", 1) == 1; },
        [&] {
            EXPECT_EQ(errorMessage(error), "Out of memory");
            EXPECT_EQ(takeError(), 3429);
            EXPECT_EQ(shape->events, nullptr);
        });
    EXPECT_GE(failures, 3); // the event, its end record, the subscriber
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", l, "onEvent"), 1);
}

// A subscriber deleted without unsubscribing leaves every list it was in, so
// no later firing sends to freed memory.
TEST_F(NotifyTest, ADeletedSubscriberLeavesItsNotifiersLists) {
    kvObject other = make("Shape", 4);
    kvObject gone = kvNewObject(&error, "Listener");
    kvObject stays = listener();
    kvAddNotification(&error, shape, "OnStore", gone, "onEvent", 1);
    kvAddNotification(&error, shape, "OnTerm", gone, "onOther", 1);
    kvAddNotification(&error, shape, "OnStore", stays, "onEvent", 2);
    kvAddNotification(&error, other, "OnStore", gone, "onEvent", 1);
    kvAddNotification(&error, other, "OnStore", gone, "onOther", 2);
    kvDelObject(&error, gone);
    EXPECT_EQ(other->events, nullptr);
    EXPECT_FALSE(other->flags & KV_OBJ_HAS_EVENTS);
    kvFireNotification(&error, shape, "OnStore");
    kvFireNotification(&error, shape, "OnTerm");
    kvFireNotification(&error, other, "OnStore");
    EXPECT_EQ(calls(stays), 1);
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", stays, "onEvent"), 1);
}

TEST_F(NotifyTest, ASubscriberDeletedMidFiringIsSkippedThenRemoved) {
    kvObject later = kvNewObject(&error, "Listener");
    kvObject deleter = listener(0, 2, later);
    kvObject last = listener();
    kvAddNotification(&error, shape, "OnStore", deleter, "onEvent", 1);
    kvAddNotification(&error, shape, "OnStore", later, "onEvent", 2);
    kvAddNotification(&error, shape, "OnStore", last, "onEvent", 3);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(last), 1);
    EXPECT_FALSE(shape->flags & KV_OBJ_NEEDS_CLEANING);
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", deleter, "onEvent"), 0);
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", last, "onEvent"), 1);
}

// Clearing follows the rule of deletion: the event being fired keeps its
// records, skipped from then on, until its firing ends.
TEST_F(NotifyTest, ClearingTheNotifierMidFiringSkipsTheRestAndFreesAfterwards) {
    kvObject clearer = listener(0, 4);
    kvObject after = listener();
    kvAddNotification(&error, shape, "OnStore", clearer, "onEvent", 1);
    kvAddNotification(&error, shape, "OnStore", after, "onEvent", 2);
    kvAddNotification(&error, shape, "OnTerm", after, "onOther", 1);
    kvFireNotification(&error, shape, "OnStore");
    EXPECT_EQ(calls(clearer), 1);
    EXPECT_EQ(calls(after), 0);
    EXPECT_EQ(shape->events, nullptr);
    kvFireNotification(&error, shape, "OnStore");
    kvFireNotification(&error, shape, "OnTerm");
    EXPECT_EQ(calls(clearer) + calls(after), 1);
    // The subscribers hold nothing on the shape any more.
    EXPECT_EQ(kvDeleteNotification(&error, shape, "OnStore", after, "onEvent"), -1);
}

TEST_F(NotifyTest, FreeingAnObjectClearsItsLists) {
    kvObject other = kvNewObject(&error, "Shape", 4);
    kvObject l = listener();
    kvAddNotification(&error, other, "OnStore", l, "onEvent", 1);
    kvAddNotification(&error, other, "OnTerm", l, "onOther", 1);
    kvDelObject(&error, other); // nothing leaks: checked by the sanitizer build
}

} // namespace
} // namespace kova::test
