// The property link registry: services and their providers, sinks waiting
// for a provider and woken when it comes, established links, provider
// stacks, the per-service notifications, the name rules (80 characters,
// service names by case, FQNs without) and the 16-bit table bounds.
#include "kova/plr.h"
#include "tests/KernelFixture.hpp"

#include <set>
#include <string>

namespace kova::test {
namespace {

using ProbeAction = void (*)(kvObject*, kvObject, const char*, void*);

class LinkRegistryTest : public KernelTest {
  protected:
    // A Probe answering "getOwner", "getDisplayName" and "isA" as given.
    kvObject probe(kvObject owner = nullptr, const char* displayName = nullptr,
                   const char* className = nullptr) {
        kvObject made = make("Probe");
        kvSendMeth(&error, made, "setUp", owner, displayName, className);
        return made;
    }
    static void onMessage(kvObject probe, ProbeAction action, void* context = nullptr) {
        kvSendMeth(nullptr, probe, "setAction", action, context);
    }
    static std::string lastText(kvObject probe) {
        return reinterpret_cast<const char*>(kvSendMeth(nullptr, probe, "getLastText"));
    }
    static std::string lastMessage(kvObject probe) {
        return reinterpret_cast<const char*>(kvSendMeth(nullptr, probe, "getLastMessage"));
    }
    static kvArg sequence(kvObject probe) { return kvSendMeth(nullptr, probe, "getSequence"); }
    static kvArg lastArg(kvObject probe) { return kvSendMeth(nullptr, probe, "getLastArg"); }

    static std::vector<std::string> providerFQNs(const char* service) {
        int16_t count = 0;
        char** fqns = nullptr;
        if (PLRGetServiceProviderFQNs(service, &count, &fqns) != PLR_OK) return {};
        return std::vector<std::string>(fqns, fqns + count);
    }
    static PLRSinkInfo sinkInfo(int16_t index) {
        PLRSinkInfo info{};
        EXPECT_EQ(PLRGetSinkInfo(index, &info), PLR_OK);
        return info;
    }
    // A subscriber to the notifier's notification named after `service`.
    kvObject watch(const char* service) {
        kvObject watcher = probe();
        EXPECT_GE(kvAddNotification(&error, PLRGetNotifierObject(), service, watcher, "onEvent", 1),
                  0);
        return watcher;
    }
};

std::string repeated(char c, size_t count) {
    return std::string(count, c);
}

TEST_F(LinkRegistryTest, StartsWithTheKernelAndStopsToNothing) {
    const kvObject notifier = PLRGetNotifierObject();
    ASSERT_NE(notifier, nullptr);
    EXPECT_STREQ(kvClassName(notifier->cls), "Object");
    EXPECT_EQ(PLRInit(), PLR_OK); // makes only what is missing
    EXPECT_EQ(PLRGetNotifierObject(), notifier);
    EXPECT_EQ(PLRRegisterProperty("Svc", probe(), "A", probe()), PLR_OK);

    EXPECT_EQ(PLRTerm(), PLR_OK);
    EXPECT_EQ(PLRGetNotifierObject(), nullptr);
    kvObject found = nullptr;
    EXPECT_EQ(PLRGetObjectFromLINKID("Svc", "A", &found), PLR_NO_TABLE);
    EXPECT_EQ(PLRRegisterProperty("Svc", probe(), "A", probe()), PLR_NO_TABLE);
    EXPECT_EQ(PLRRegisterSink(probe(), "sink", "Svc", "A"), PLR_NO_TABLE);
    EXPECT_EQ(PLRPushLink("sink", "Svc", "B"), PLR_NO_TABLE);
    EXPECT_EQ(PLRGetServiceCount(), 0);
    EXPECT_EQ(PLRIsServiceProviderFQN("Svc", "A"), 0);

    EXPECT_EQ(PLRInit(), PLR_OK);
    EXPECT_EQ(PLRGetServiceCount(), 0);
    EXPECT_EQ(PLRGetObjectFromLINKID("Svc", "A", &found), PLR_NO_SERVICE);
}

TEST_F(LinkRegistryTest, ProvidersAreFoundByFQNWithoutRegardToCase) {
    kvObject scanner = probe(), image = probe();
    kvObject watcher = watch("ImageData");
    ASSERT_EQ(PLRRegisterProperty("ImageData", scanner, "Scan.1", image), PLR_OK);
    EXPECT_EQ(calls(watcher), 1);
    EXPECT_EQ(lastArg(watcher), PLR_NOTIFY_REGISTERED);
    EXPECT_EQ(lastText(watcher), "Scan.1");

    kvObject found = nullptr, linked = nullptr;
    EXPECT_EQ(PLRGetObjectFromLINKID("ImageData", "SCAN.1", &found), PLR_OK);
    EXPECT_EQ(found, scanner);
    EXPECT_EQ(PLRIsServiceProviderFQN("ImageData", "Scan.1"), 1);
    EXPECT_EQ(PLRIsServiceProviderFQN("ImageData", "SCAN.1"), 0);
    EXPECT_EQ(PLRIsServiceProviderFQN("imagedata", "Scan.1"), 0); // services by case
    EXPECT_EQ(PLRGetObjectFromLINKID("imagedata", "Scan.1", &found), PLR_NO_SERVICE);
    EXPECT_EQ(PLRGetObjectFromLINKID("ImageData", "Scan.2", &found), PLR_NO_PROVIDER);

    // Establishing hands out the linked object, not the provider.
    ASSERT_EQ(PLRRegisterSink(probe(), "View.1.Source", "ImageData", "scan.1"), PLR_OK);
    EXPECT_EQ(PLREstablishLink("View.1.Source", nullptr, "ImageData", 0, 0, "Scan.1", &linked),
              PLR_OK);
    EXPECT_EQ(linked, image);
    EXPECT_EQ(sinkInfo(0).linkedProvider, scanner);
    EXPECT_EQ(sinkInfo(0).established, 1);
}

TEST_F(LinkRegistryTest, NamesAreStoredAndComparedOnTheirFirst80Characters) {
    const std::string fqn100 = repeated('f', 100);
    const std::string service81 = repeated('s', 80) + "X";
    kvObject provider = probe();
    ASSERT_EQ(PLRRegisterProperty(service81.c_str(), provider, fqn100.c_str(), provider), PLR_OK);
    EXPECT_EQ(std::string(PLRGetServiceName(0)), repeated('s', 80));
    EXPECT_EQ(providerFQNs(service81.c_str()), std::vector<std::string>{repeated('f', 80)});
    // Both the given long names and their stored forms find the record.
    const std::string service80 = repeated('s', 80);
    kvObject found = nullptr;
    EXPECT_EQ(PLRGetObjectFromLINKID(service80.c_str(), repeated('F', 80).c_str(), &found), PLR_OK);
    EXPECT_EQ(PLRGetObjectFromLINKID((service80 + "Y").c_str(), fqn100.c_str(), &found), PLR_OK);
    EXPECT_EQ(PLRIsServiceProviderFQN(service80.c_str(), (repeated('f', 80) + "g").c_str()), 1);
    EXPECT_EQ(PLRGetObjectFromLINKID(service80.c_str(), repeated('f', 79).c_str(), &found),
              PLR_NO_PROVIDER);
    EXPECT_EQ(PLRGetServiceCount(), 1);
}

TEST_F(LinkRegistryTest, ASecondRegistrationOfAnObjectRenamesIt) {
    kvObject provider = probe(), waiting = probe();
    kvObject watcher = watch("Svc");
    ASSERT_EQ(PLRRegisterProperty("Svc", provider, "Old", provider), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(waiting, "sink", "Svc", "New"), PLR_OK);
    EXPECT_EQ(calls(waiting), 0); // a sink registering after its provider is not woken

    EXPECT_EQ(PLRRegisterProperty("Svc", provider, "New", provider), PLR_OK);
    EXPECT_EQ(calls(watcher), 1); // no second kind-0 notification
    EXPECT_EQ(providerFQNs("Svc"), std::vector<std::string>{"New"});
    EXPECT_EQ(calls(waiting), 1);
    EXPECT_EQ(lastMessage(waiting), "requiredLinkAvailable");
    EXPECT_EQ(lastText(waiting), "New");
}

TEST_F(LinkRegistryTest, ARenameSendsTheOldNameToTheSinksEstablishedOnIt) {
    kvObject provider = probe(), onOld = probe(), waitingOnOld = probe();
    ASSERT_EQ(PLRRegisterProperty("Svc", provider, "Old", provider), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(onOld, "a", "Svc", "old"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(waitingOnOld, "b", "Svc", "Old"), PLR_OK);
    kvObject linked = nullptr;
    ASSERT_EQ(PLREstablishLink("a", nullptr, "Svc", 0, 0, "Old", &linked), PLR_OK);

    EXPECT_EQ(PLRChangeFQN("Svc", provider, "Renamed"), PLR_OK);
    EXPECT_EQ(calls(onOld), 1);
    EXPECT_EQ(lastMessage(onOld), "storeData");
    EXPECT_EQ(lastText(onOld), "Old");
    EXPECT_EQ(calls(waitingOnOld), 0);
    EXPECT_EQ(std::string(sinkInfo(0).providerFQN), "old"); // sink records keep their wish

    EXPECT_EQ(PLRChangeFQN("Svc", probe(), "X"), PLR_NO_PROVIDER);
    EXPECT_EQ(PLRChangeFQN("None", provider, "X"), PLR_NO_SERVICE);
    EXPECT_EQ(PLRChangeFQN("Svc", provider, nullptr), PLR_BAD_ARGUMENT);
}

TEST_F(LinkRegistryTest, UnregisteringTheLastProviderLeavesTheServiceKnown) {
    kvObject a = probe(), b = probe();
    ASSERT_EQ(PLRRegisterProperty("Svc", a, "A", a), PLR_OK);
    ASSERT_EQ(PLRRegisterProperty("Svc", b, "B", b), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(probe(), "sink", "Svc", "A"), PLR_OK);
    kvObject linked = nullptr;
    ASSERT_EQ(PLREstablishLink("sink", nullptr, "Svc", 0, 0, "A", &linked), PLR_OK);
    kvObject watcher = watch("Svc");

    EXPECT_EQ(PLRUnregisterProperty("Svc", b, "A"), PLR_NO_PROVIDER); // FQN and object must match
    EXPECT_EQ(PLRUnregisterProperty("Svc", a, "a"), PLR_OK);
    EXPECT_EQ(lastArg(watcher), PLR_NOTIFY_UNREGISTERED);
    EXPECT_EQ(lastText(watcher), "a");
    EXPECT_EQ(providerFQNs("Svc"), std::vector<std::string>{"B"});
    EXPECT_EQ(sinkInfo(0).established, 1); // sink records are not touched

    EXPECT_EQ(PLRUnregisterProperty("Svc", b, "B"), PLR_OK);
    int16_t count = 5;
    char** fqns = nullptr;
    EXPECT_EQ(PLRGetServiceProviderFQNs("Svc", &count, &fqns), PLR_NO_PROVIDERS);
    EXPECT_EQ(PLRUnregisterProperty("Svc", b, "B"), PLR_NO_PROVIDERS);
    EXPECT_EQ(PLRGetServiceProviderFQNs("Other", &count, &fqns), PLR_NO_SERVICE);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(fqns, nullptr);
    EXPECT_EQ(PLRGetServiceCount(), 1);
}

TEST_F(LinkRegistryTest, WaitingSinksAreWokenInTableOrderAndTheirErrorsDeleted) {
    kvObject first = probe(), raising = probe(), established = probe(), other = probe();
    kvObject last = probe();
    ASSERT_EQ(PLRRegisterSink(first, "s1", "Svc", "Prov"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(raising, "s2", "Svc", "PROV"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(other, "s3", "Svc", "Other"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(established, "s4", "Svc", "Prov"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(last, "s5", "Svc", "prov"), PLR_OK);
    onMessage(raising, [](kvObject* errSlot, kvObject self, const char*, void*) {
        kvSendMeth(errSlot, self, "error", "Probe", 3443);
    });
    kvObject earlier = probe();
    ASSERT_EQ(PLRRegisterProperty("Svc", earlier, "Prov", earlier), PLR_OK);
    kvObject linked = nullptr;
    ASSERT_EQ(PLREstablishLink("s4", nullptr, "Svc", 0, 0, "Prov", &linked), PLR_OK);
    ASSERT_EQ(PLRUnregisterProperty("Svc", earlier, "Prov"), PLR_OK);
    for (kvObject sink : {first, raising, last})
        kvSendMeth(nullptr, sink, "setUp", nullptr, nullptr, nullptr);
    const kvArg before = calls(first);

    kvObject provider = probe();
    EXPECT_EQ(PLRRegisterProperty("Svc", provider, "Prov", provider), PLR_OK);
    EXPECT_EQ(calls(first), before + 1);
    EXPECT_EQ(calls(other), 0);
    EXPECT_EQ(calls(established), 1); // only the first time, while it waited
    EXPECT_LT(sequence(first), sequence(raising));
    EXPECT_LT(sequence(raising), sequence(last));
}

TEST_F(LinkRegistryTest, ASinkRemovedDuringARoundIsNotSentTo) {
    kvObject a = probe(), b = probe();
    ASSERT_EQ(PLRRegisterSink(a, "a", "Svc", "P"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(b, "b", "Svc", "P"), PLR_OK);
    onMessage(
        a,
        [](kvObject*, kvObject, const char*, void* other) {
            PLRUnregisterSink(static_cast<kvObject>(other), "b", "Svc");
        },
        b);
    kvObject provider = probe();
    EXPECT_EQ(PLRRegisterProperty("Svc", provider, "P", provider), PLR_OK);
    EXPECT_EQ(calls(a), 1);
    EXPECT_EQ(calls(b), 0);
    EXPECT_EQ(PLRGetSinkCount(), 1);
}

TEST_F(LinkRegistryTest, AProviderRemovedByTheNotificationOfItsOwnArrivalStaysRemoved) {
    kvObject provider = probe(), sink = probe();
    ASSERT_EQ(PLRRegisterSink(sink, "s", "Svc", "P"), PLR_OK);
    onMessage(
        sink,
        [](kvObject*, kvObject, const char*, void* gone) {
            PLRUnregisterProperty("Svc", static_cast<kvObject>(gone), "P");
        },
        provider);
    EXPECT_EQ(PLRRegisterProperty("Svc", provider, "P", provider), PLR_OK);
    EXPECT_EQ(calls(sink), 1);
    EXPECT_EQ(PLRGetProviderCount("Svc"), 0);
}

TEST_F(LinkRegistryTest, DefaultLinkIdFollowsTheRulesInOrder) {
    kvObject self = probe(), plain = probe(), special = probe(nullptr, nullptr, "ScanTO");
    ASSERT_EQ(PLRRegisterProperty("Svc", self, "Me", self), PLR_OK);
    ASSERT_EQ(PLRRegisterProperty("Svc", plain, "Plain", plain), PLR_OK);
    ASSERT_EQ(PLRRegisterProperty("Svc", special, "Special", special), PLR_OK);
    auto choose = [](std::vector<const char*> rules, const char* own = "me") {
        rules.push_back(nullptr);
        const char* chosen = PLRGetDefaultLINKID("Svc", own, rules.data());
        return chosen ? std::string(chosen) : std::string("<null>");
    };
    EXPECT_EQ(choose({"SELF"}, "NotAProvider"), "NotAProvider");
    const char* none[] = {"none", nullptr};
    ASSERT_NE(PLRGetDefaultLINKID("Svc", "me", none), nullptr);
    EXPECT_EQ(choose({"none"}), "");
    EXPECT_EQ(choose({"any"}), "Plain"); // never the caller's own
    EXPECT_EQ(choose({"any"}, "Other"), "Me");
    EXPECT_EQ(choose({"ScanTO", "any"}), "Special");
    EXPECT_EQ(choose({"Object", "self"}), "Plain"); // every provider is an Object
    EXPECT_EQ(choose({"RecogTO", "self"}), "me");
    EXPECT_EQ(choose({"RecogTO"}), "<null>");
    EXPECT_EQ(choose({}), "<null>");
    EXPECT_EQ(PLRGetDefaultLINKID("Nothing", "me", none), nullptr);
    EXPECT_EQ(PLRGetDefaultLINKID(nullptr, "me", none), nullptr);
}

TEST_F(LinkRegistryTest, AutomaticLinkIdsAreNineCharactersOfTimeAndACounter) {
    char* first = nullptr;
    ASSERT_EQ(PLRCreateLINKID(&first), PLR_OK);
    const std::string firstId = first;
    ASSERT_EQ(firstId.size(), 9u);
    EXPECT_GE(static_cast<unsigned char>(firstId[0]), 2024 - 1957); // the year
    EXPECT_GE(firstId[2], '!' + 1);                                 // the month, 1 to 12
    EXPECT_LE(firstId[2], '!' + 12);
    std::set<char> counters{firstId[8]};
    for (int i = 1; i < 96; ++i) {
        char* id = nullptr;
        PLRCreateLINKID(&id);
        EXPECT_EQ(id, first); // the same static buffer
        counters.insert(id[8]);
    }
    EXPECT_EQ(counters.size(), 96u); // the ninth character runs over 96 values
    char* next = nullptr;
    PLRCreateLINKID(&next);
    EXPECT_EQ(next[8], firstId[8]);
}

TEST_F(LinkRegistryTest, DisplayNamesComeFromTheProvider) {
    kvObject provider = probe(nullptr, "Scanner One");
    ASSERT_EQ(PLRRegisterProperty("Svc", provider, "P", provider), PLR_OK);
    const char* name = nullptr;
    EXPECT_EQ(PLRGetDisplayNameFromLINKID("Svc", "p", &name), PLR_OK);
    EXPECT_STREQ(name, "Scanner One");
    EXPECT_EQ(PLRGetDisplayNameFromLINKID("Svc", nullptr, &name), PLR_OK);
    EXPECT_STREQ(name, "<None>");
    name = nullptr;
    EXPECT_EQ(PLRGetDisplayNameFromLINKID("Svc", "Q", &name), -1);
    EXPECT_STREQ(name, "<None>");
    EXPECT_EQ(PLRGetDisplayNameFromLINKID("Svc", "P", nullptr), -1);
    EXPECT_EQ(PLRGetDisplayNameFromLINKID(nullptr, "P", &name), PLR_NO_SERVICE);
}

TEST_F(LinkRegistryTest, SinksMoveBetweenWaitingAndEstablished) {
    kvObject sink = probe(), provider = probe(), owner = probe();
    kvSendMeth(&error, sink, "setUp", owner, nullptr, nullptr);
    ASSERT_EQ(PLRRegisterProperty("Svc", provider, "P", provider), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(sink, "S", "Svc", "P"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(sink, "s", "Svc", "p"), PLR_OK); // the same record, a new wish
    EXPECT_EQ(PLRGetSinkCount(), 1);
    EXPECT_EQ(std::string(sinkInfo(0).providerFQN), "p");

    kvObject owners = nullptr;
    EXPECT_EQ(PLRGetCollectionOfSinks("Svc", provider, &owners), PLR_NO_LINKED_SINKS);
    EXPECT_EQ(owners, nullptr);
    kvObject linked = nullptr;
    EXPECT_EQ(PLREstablishLink("S", nullptr, "Svc", 0, 0, "P", &linked), PLR_OK);
    EXPECT_EQ(PLRRegisterSink(sink, "S", "Svc", "P"), PLR_OK); // keeps the state
    EXPECT_EQ(sinkInfo(0).established, 1);

    ASSERT_EQ(PLRGetCollectionOfSinks("Svc", provider, &owners), PLR_OK);
    made.push_back(owners);
    EXPECT_EQ(kvSendMeth(&error, owners, "getCount"), 1);
    EXPECT_EQ(kvSendMeth(&error, owners, "getObject", 0), reinterpret_cast<kvResult>(owner));
    EXPECT_EQ(PLRGetCollectionOfSinks("Svc", provider, nullptr), PLR_OK);

    EXPECT_EQ(PLRUnestablishLink("S", "Svc", "Q"), PLR_NO_SINK);
    EXPECT_EQ(PLRUnestablishLink("S", "Svc", "P"), PLR_OK);
    EXPECT_EQ(sinkInfo(0).established, 0);
    EXPECT_EQ(sinkInfo(0).linkedProvider, nullptr);
    EXPECT_EQ(PLREstablishLink("other", nullptr, "Svc", 0, 0, "P", &linked), PLR_NO_SINK);

    // A provider without a linked object cannot be linked to; nothing changes.
    EXPECT_EQ(PLRUnregisterSink(sink, "S", "Svc"), PLR_OK);
    EXPECT_EQ(PLRUnregisterSink(sink, "S", "Svc"), PLR_NO_SINK);
    EXPECT_EQ(PLRGetSinkCount(), 0);
}

TEST_F(LinkRegistryTest, PushAndPopSwitchASinkAndRestoreItsProvider) {
    kvObject sink = probe();
    ASSERT_EQ(PLRRegisterSink(sink, "S", "Svc", "First"), PLR_OK);
    EXPECT_EQ(PLRPopLink("S", "Svc"), PLR_NOTHING_TO_POP);
    EXPECT_EQ(PLRPushLink("S", "Svc", "Second"), PLR_OK);
    EXPECT_EQ(lastText(sink), "Second");
    EXPECT_EQ(PLRPushLink("s", "Svc", "Third"), PLR_OK);
    EXPECT_EQ(sinkInfo(0).savedCount, 2);
    EXPECT_EQ(std::string(sinkInfo(0).providerFQN), "Third");

    EXPECT_EQ(PLRPopLink("S", "Svc"), PLR_OK);
    EXPECT_EQ(std::string(sinkInfo(0).providerFQN), "Second");
    EXPECT_EQ(lastText(sink), "Second");
    EXPECT_EQ(PLRPopLink("S", "Svc"), PLR_OK);
    EXPECT_EQ(std::string(sinkInfo(0).providerFQN), "First");
    EXPECT_EQ(sinkInfo(0).savedCount, 0);
    EXPECT_EQ(PLRPopLink("S", "Svc"), PLR_NOTHING_TO_POP);
    EXPECT_EQ(PLRPushLink("T", "Svc", "X"), PLR_PUSH_NO_SINK);
    EXPECT_EQ(PLRPopLink("T", "Svc"), PLR_POP_NO_SINK);

    // A sink whose "storeData" raises: 34, and its error is gone.
    onMessage(sink, [](kvObject* errSlot, kvObject self, const char*, void*) {
        kvSendMeth(errSlot, self, "error", "Probe", 3443);
    });
    EXPECT_EQ(PLRPushLink("S", "Svc", "Fourth"), PLR_SINK_STORE_FAILED);
    EXPECT_EQ(PLRPopLink("S", "Svc"), PLR_SINK_STORE_FAILED);
    EXPECT_EQ(std::string(sinkInfo(0).providerFQN), "First");
    // A stack left on a sink goes with its record.
    EXPECT_EQ(PLRPushLink("S", "Svc", "Fifth"), PLR_SINK_STORE_FAILED);
    EXPECT_EQ(PLRUnregisterSink(sink, "S", "Svc"), PLR_OK);
}

TEST_F(LinkRegistryTest, NullAndEmptyArgumentsGiveStatusNumbers) {
    kvObject p = probe();
    int16_t count = 0;
    char** fqns = nullptr;
    kvObject out = nullptr;
    EXPECT_EQ(PLRRegisterProperty(nullptr, p, "F", p), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRRegisterProperty("S", nullptr, "F", p), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRRegisterProperty("S", p, nullptr, p), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRRegisterProperty("S", p, "F", nullptr), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRGetServiceCount(), 0); // nothing half-done
    EXPECT_EQ(PLRUnregisterProperty(nullptr, p, "F"), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRUnregisterProperty("S", p, nullptr), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRGetServiceProviderFQNs(nullptr, &count, &fqns), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRGetServiceProviderFQNs("S", nullptr, &fqns), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLRIsServiceProviderFQN("", "F"), 0);
    EXPECT_EQ(PLRIsServiceProviderFQN(nullptr, "F"), 0);
    EXPECT_EQ(PLRIsServiceProviderFQN("S", nullptr), 0);
    EXPECT_EQ(PLRGetObjectFromLINKID(nullptr, "F", &out), PLR_NO_SERVICE);
    EXPECT_EQ(PLRCreateLINKID(nullptr), PLR_OK);
    for (const char* blank : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(PLRRegisterSink(p, blank, "S", "F"), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRRegisterSink(p, "K", blank, "F"), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRUnregisterSink(p, blank, "S"), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRUnregisterSink(p, "K", blank), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRUnestablishLink(blank, "S", "F"), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRUnestablishLink("K", "S", blank), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRPushLink("K", "S", blank), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRPushLink(blank, "S", "F"), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRPopLink("K", blank), PLR_BAD_ARGUMENT);
        EXPECT_EQ(PLRGetCollectionOfSinks(blank, p, &out), PLR_BAD_ARGUMENT);
    }
    EXPECT_EQ(PLRUnregisterSink(nullptr, "K", "S"), PLR_BAD_ARGUMENT);
    EXPECT_EQ(PLREstablishLink(nullptr, nullptr, nullptr, 0, 0, nullptr, &out), PLR_NO_SERVICE);
    EXPECT_EQ(PLRGetSinkCount(), 0);
    EXPECT_EQ(out, nullptr);
}

// Fills `service` with providers up to the bound; answers the status of one more.
int32_t overfillProviders(const char* service, std::vector<kvObject>& objects, int count) {
    for (int i = 0; i < count; ++i) {
        const std::string fqn = "P" + std::to_string(i);
        if (PLRRegisterProperty(service, objects[i], fqn.c_str(), objects[i]) != PLR_OK) return -1;
    }
    return PLRRegisterProperty(service, objects[count], "Over", objects[count]);
}

TEST_F(LinkRegistryTest, TablesStopAtTheir16BitBoundsAndStayAsTheyWere) {
    // 770 services of 85 bytes fit in 65,535 bytes with the header; 771 do not.
    kvObject p = probe();
    for (int i = 0; i < 770; ++i)
        ASSERT_EQ(PLRRegisterProperty(("S" + std::to_string(i)).c_str(), p, "F", p), PLR_OK) << i;
    EXPECT_EQ(PLRRegisterProperty("S770", p, "F", p), PLR_SERVICE_TABLE_GROW);
    EXPECT_EQ(PLRGetServiceCount(), 770);
    EXPECT_EQ(std::string(PLRGetServiceName(769)), "S769");

    // 704 providers of 93 bytes per service.
    PLRTerm();
    PLRInit();
    std::vector<kvObject> objects;
    for (int i = 0; i < 705; ++i)
        objects.push_back(reinterpret_cast<kvObject>(static_cast<uintptr_t>(0x1000 + 16 * i)));
    EXPECT_EQ(overfillProviders("Svc", objects, 704), PLR_PROVIDER_LIST_GROW);
    EXPECT_EQ(PLRGetProviderCount("Svc"), 704);

    // 253 sinks of 259 bytes.
    for (int i = 0; i < 253; ++i)
        ASSERT_EQ(PLRRegisterSink(p, ("K" + std::to_string(i)).c_str(), "Svc", "F"), PLR_OK);
    EXPECT_EQ(PLRRegisterSink(p, "K253", "Svc", "F"), PLR_SINK_TABLE_GROW);
    EXPECT_EQ(PLRGetSinkCount(), 253);

    // 808 saved FQNs of 81 bytes per stack; the sink record has no sink object.
    ASSERT_EQ(PLRUnregisterSink(p, "K0", "Svc"), PLR_OK);
    ASSERT_EQ(PLRRegisterSink(nullptr, "Stacked", "Svc", "F"), PLR_OK);
    for (int i = 0; i < 808; ++i)
        ASSERT_EQ(PLRPushLink("Stacked", "Svc", "G"), PLR_OK) << i;
    EXPECT_EQ(PLRPushLink("Stacked", "Svc", "H"), PLR_STACK_GROW);
    EXPECT_EQ(sinkInfo(252).savedCount, 808);
    EXPECT_EQ(std::string(sinkInfo(252).providerFQN), "G");
}

TEST_F(LinkRegistryTest, AFailedAllocationLeavesTheTablesAsTheyWere) {
    kvObject p = probe(), q = probe(), sink = probe();
    ASSERT_EQ(PLRRegisterSink(sink, "S", "Svc", "Q"), PLR_OK);
    ASSERT_EQ(PLRRegisterProperty("Svc", p, "P", p), PLR_OK);
    // A new service (table growth), then the first provider list.
    std::vector<int32_t> statuses;
    failEachAllocation(
        [&] {
            const int32_t status = PLRRegisterProperty("New", p, "P", p);
            statuses.push_back(status);
            return status == PLR_OK;
        },
        [&] { EXPECT_EQ(PLRGetProviderCount("New"), 0); });
    EXPECT_EQ(statuses.front(), PLR_SERVICE_TABLE_GROW);
    EXPECT_EQ(statuses[1], PLR_NEW_LIST_FAILED);
    // A second provider (list growth), then the list of the sinks to wake,
    // which fails after the provider is in.
    statuses.clear();
    failEachAllocation(
        [&] {
            const int32_t status = PLRRegisterProperty("Svc", q, "Q", q);
            statuses.push_back(status);
            return status != PLR_PROVIDER_LIST_GROW;
        },
        [&] { EXPECT_EQ(PLRGetProviderCount("Svc"), 1); });
    EXPECT_EQ(statuses.front(), PLR_PROVIDER_LIST_GROW);
    EXPECT_EQ(statuses.back(), PLR_LIST_MEMORY);
    EXPECT_EQ(calls(sink), 0);

    failEachAllocation([&] { return PLRRegisterSink(q, "T", "Svc", "P") != PLR_SINK_TABLE_GROW; },
                       [&] { EXPECT_EQ(PLRGetSinkCount(), 1); });
    failEachAllocation([&] { return PLRPushLink("T", "Svc", "A") != PLR_NEW_STACK_FAILED; },
                       [&] { EXPECT_EQ(std::string(sinkInfo(1).providerFQN), "P"); });
    failEachAllocation([&] { return PLRPushLink("T", "Svc", "B") != PLR_STACK_GROW; },
                       [&] { EXPECT_EQ(std::string(sinkInfo(1).providerFQN), "A"); });
    // A rename lists the sinks established on the old name before it renames.
    kvObject linked = nullptr;
    ASSERT_EQ(PLRRegisterSink(sink, "U", "Svc", "P"), PLR_OK);
    ASSERT_EQ(PLREstablishLink("U", nullptr, "Svc", 0, 0, "P", &linked), PLR_OK);
    failEachAllocation([&] { return PLRChangeFQN("Svc", p, "R") != PLR_LIST_MEMORY; },
                       [&] { EXPECT_EQ(PLRIsServiceProviderFQN("Svc", "P"), 1); });

    PLRTerm();
    failEachAllocation([&] { return PLRInit() == PLR_OK; }, [] {});
    EXPECT_NE(PLRGetNotifierObject(), nullptr);
}

} // namespace
} // namespace kova::test
