// Links and source properties: a source property registers its component as
// a sink, its Link links on demand and forwards what it does not understand
// to the provider's linked object, the provider's end unlinks it, and the
// providers of the service are offered as an enumeration behind "<None>".
#include "tests/ComponentFixture.hpp"

#include <algorithm>

namespace kova::test {
namespace {

class LinkTest : public ComponentTest {
  protected:
    // A Link of `service` owned by `owner` (a Probe, which counts "OnLinked").
    kvObject link(const char* service, kvObject owner) {
        return make("Link", service, 0, owner, "TheLink", 0, 0);
    }
    static bool isLinked(kvObject link) { return kvSendMeth(nullptr, link, "isLinked") != 0; }
    static std::string lastMessage(kvObject probe) {
        return textOf(kvSendMeth(nullptr, probe, "getLastMessage"));
    }
    // The "Input" source property of a TestTM.
    kvObject inputOf(kvObject tm) {
        return objectOf(kvSendMeth(&error, tm, "findPropertyByName", "Input"));
    }
};

TEST_F(LinkTest, ALinkForwardsToTheLinkedObjectOnceItsProviderIsThere) {
    kvObject owner = make("Probe"), provider = make("Probe"), linked = make("Probe");
    kvObject theLink = link("Svc", owner);
    ASSERT_NE(theLink, nullptr);
    EXPECT_EQ(kvSendMeth(&error, theLink, "setSinkFQN", "View.Source"), 0);
    ASSERT_EQ(PLRRegisterSink(make("Probe"), "View.Source", "Svc", "Prov"), PLR_OK);
    EXPECT_EQ(kvSendMeth(&error, theLink, "setSourceFQN", "Prov"), 1); // not there yet
    EXPECT_FALSE(isLinked(theLink));
    EXPECT_EQ(kvSendMeth(&error, theLink, "respondsTo", "ping"), -1);
    EXPECT_EQ(takeError(), 3451);

    ASSERT_EQ(PLRRegisterProperty("Svc", provider, "Prov", linked), PLR_OK);
    EXPECT_EQ(kvSendMeth(&error, theLink, "requiredLinkAvailable", "PROV"), 0); // exact only
    EXPECT_FALSE(isLinked(theLink));
    EXPECT_EQ(kvSendMeth(&error, theLink, "requiredLinkAvailable", "Prov"), 0);
    EXPECT_TRUE(isLinked(theLink));
    EXPECT_EQ(objectOf(kvSendMeth(&error, theLink, "getLinkedObject")), linked);
    EXPECT_EQ(lastMessage(owner), "OnLinked");
    EXPECT_EQ(kvSendMeth(&error, owner, "getLastArg"), reinterpret_cast<kvArg>(theLink));
    EXPECT_EQ(kvSendMeth(&error, theLink, "ping", 41), 42);
    EXPECT_NE(kvSendMeth(&error, theLink, "respondsTo", "ping"), 0);

    PLRSinkInfo sink{};
    ASSERT_EQ(PLRGetSinkInfo(0, &sink), PLR_OK);
    EXPECT_EQ(sink.established, 1);
    EXPECT_EQ(kvSendMeth(&error, theLink, "unLink"), 0);
    EXPECT_EQ(lastMessage(owner), "OnUnlinked");
    ASSERT_EQ(PLRGetSinkInfo(0, &sink), PLR_OK);
    EXPECT_EQ(sink.established, 0);
    made.erase(std::find(made.begin(), made.end(), theLink));
    kvDelObject(&error, theLink);
}

TEST_F(LinkTest, TheFirstForwardedMessageMakesTheLink) {
    kvObject owner = make("Probe"), provider = make("Probe"), linked = make("Collection", 0);
    kvObject theLink = link("Svc", owner);
    kvSendMeth(&error, theLink, "setSinkFQN", "View.Source");
    ASSERT_EQ(PLRRegisterSink(owner, "View.Source", "Svc", "prov"), PLR_OK);
    kvSendMeth(&error, theLink, "setSourceFQN", "prov");
    // The registry matches FQNs without regard to case, the Link exactly: the
    // registry's wake-up does not link, the next message does.
    ASSERT_EQ(PLRRegisterProperty("Svc", provider, "Prov", linked), PLR_OK);
    EXPECT_FALSE(isLinked(theLink));
    kvObject member = make("Probe");
    EXPECT_EQ(kvSendMeth(&error, theLink, "addObjectNotification", member), 1); // as "addObject"
    EXPECT_TRUE(isLinked(theLink));
    EXPECT_EQ(kvSendMeth(&error, linked, "getCount"), 1);
    EXPECT_EQ(kvSendMeth(&error, theLink, "getCount"), 1);
    // The link ends before its owner and its linked object do.
    made.erase(std::find(made.begin(), made.end(), theLink));
    kvDelObject(&error, theLink);
}

TEST_F(LinkTest, MissingNamesAreReportedAndAMissingSinkFQNDoesNothing) {
    kvObject theLink = link("Svc", nullptr);
    EXPECT_EQ(kvSendMeth(&error, theLink, "makeLink"), 0); // no sink FQN: nothing to do
    kvSendMeth(&error, theLink, "setSinkFQN", "S");
    EXPECT_EQ(kvSendMeth(&error, theLink, "makeLink"), 0);
    EXPECT_EQ(errorMessage(error),
              "Property Linking Error: Source FQN not set on Link property <TheLink> owned by "
              "<(null)>");
    EXPECT_EQ(takeError(), 3472);
    kvObject serviceless = link("", nullptr);
    kvSendMeth(&error, serviceless, "setSinkFQN", "S");
    EXPECT_EQ(kvSendMeth(&error, serviceless, "setSourceFQN", "P"), 0);
    EXPECT_EQ(takeError(), 3473);
    EXPECT_EQ(kvSendMeth(&error, serviceless, "getServiceName"), 0);
}

TEST_F(LinkTest, AComponentsSourcePropertyLinksToAnotherComponent) {
    kvObject scanner = component("Scanner.1");
    kvObject viewer = component("Viewer.1");
    kvObject input = inputOf(viewer);
    ASSERT_NE(input, nullptr);
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "fetchData")), "<None>");

    EXPECT_EQ(textOf(kvSendMeth(&error, input, "storeData", "Scanner.1")), "Scanner.1");
    const kvObject theLink =
        objectOf(kvSendMeth(&error, viewer, "findPropertyByName", "InputLink"));
    ASSERT_NE(theLink, nullptr);
    EXPECT_TRUE(isLinked(theLink));
    EXPECT_EQ(objectOf(kvSendMeth(&error, theLink, "getLinkedObject")), scanner);
    EXPECT_EQ(textOf(kvSendMeth(&error, theLink, "getSinkFQN")), "Viewer.1");
    // Forwarded: the scanner's technology answers with its own property.
    EXPECT_EQ(kvSendMeth(&error, theLink, "fetchProperty", "Width"), 100);

    kvObject owners = nullptr;
    ASSERT_EQ(PLRGetCollectionOfSinks("ImageData", scanner, &owners), PLR_OK);
    made.push_back(owners);
    EXPECT_EQ(objectOf(kvSendMeth(&error, owners, "getObject", 0)), viewer);

    // Storing nothing means "<None>", and the sink record wants "<None>".
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "storeData", "")), "<None>");
    EXPECT_FALSE(isLinked(theLink));
    PLRSinkInfo sink{};
    ASSERT_EQ(PLRGetSinkInfo(0, &sink), PLR_OK);
    EXPECT_STREQ(sink.providerFQN, "<None>");
}

TEST_F(LinkTest, TheProvidersEndBreaksTheLink) {
    kvObject scannerPM = personality("Scanner.1");
    kvSendMeth(&error, scannerPM, "activate");
    kvObject viewer = component("Viewer.1");
    kvObject input = inputOf(viewer);
    kvSendMeth(&error, input, "storeData", "Scanner.1");
    const kvObject theLink =
        objectOf(kvSendMeth(&error, viewer, "findPropertyByName", "InputLink"));
    ASSERT_TRUE(isLinked(theLink));

    made.erase(std::find(made.begin(), made.end(), scannerPM));
    kvDelObject(&error, scannerPM);
    EXPECT_FALSE(isLinked(theLink));
    EXPECT_EQ(kvSendMeth(&error, theLink, "getLinkedObject"), 0);
    EXPECT_EQ(PLRGetProviderCount("ImageData"), 1); // only the viewer's own
    // A message to the unlinked Link finds no provider and says so.
    EXPECT_EQ(kvSendMeth(&error, theLink, "fetchProperty", "Width"), 0);
    EXPECT_EQ(takeError(), 3451);
}

TEST_F(LinkTest, AProviderDeletedWhileALinkForwardsToItUnlinksTheLink) {
    static kvObject doomed = nullptr;
    kvObject scannerPM = personality("Scanner.1");
    kvSendMeth(&error, scannerPM, "activate");
    doomed = scannerPM;
    made.erase(std::find(made.begin(), made.end(), scannerPM));
    kvObject viewer = component("Viewer.1");
    kvSendMeth(&error, inputOf(viewer), "storeData", "Scanner.1");
    const kvObject theLink =
        objectOf(kvSendMeth(&error, viewer, "findPropertyByName", "InputLink"));
    ASSERT_TRUE(isLinked(theLink));
    // The scanner's host deletes the scanner when it hears an event that the
    // Link forwarded to the scanner's technology.
    kvSendMeth(
        &error, scannerPM, "registerEventDispatch", +[](kvArg, int32_t, const kvArg*) -> int32_t {
            kvDelObject(nullptr, doomed);
            return 5;
        });
    EXPECT_EQ(kvSendMeth(&error, theLink, "fireEvent", 9), 5);
    EXPECT_FALSE(isLinked(theLink));
}

TEST_F(LinkTest, TheEnumerationListsTheProvidersAfterNone) {
    kvObject viewer = component("Viewer.1");
    kvObject input = inputOf(viewer);
    displayName() = "Scanner";
    component("Scanner.1");
    EXPECT_EQ(kvSendMeth(&error, input, "getCount"), 3); // "<None>", Viewer.1, Scanner.1
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getIndexedCookie", 0)), "<None>");
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getIndexedCookie", 2)), "Scanner.1");
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getString", 2)), "Scanner");
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getString", 0)), "<None>"); // the value
    EXPECT_EQ(kvSendMeth(&error, input, "getCurIndex"), 0);

    EXPECT_EQ(kvSendMeth(&error, input, "setCurIndex", 3), 0); // the count: nothing changes
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "fetchData")), "<None>");
    kvObject watcher = listen(input, "OnTableChange");
    EXPECT_EQ(kvSendMeth(&error, input, "setCurIndex", 2), 0);
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "fetchData")), "Scanner.1");
    EXPECT_EQ(kvSendMeth(&error, input, "getCurIndex"), 2);
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getCurrentEnumString")), "Scanner");

    // A third provider: the registry's notification makes the table stale.
    component("Printer.1");
    EXPECT_EQ(calls(watcher), 2); // a technology offers two services
    EXPECT_EQ(kvSendMeth(&error, input, "getCount"), 4);
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getIndexedCookie", 3)), "Printer.1");

    kvSendMeth(&error, input, "storeData", "Elsewhere.1");
    EXPECT_EQ(kvSendMeth(&error, input, "getCurIndex"), 4); // not listed: the count
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "getCurrentEnumString")), "<None>");
    EXPECT_EQ(textOf(kvSendMeth(&error, input, "fetchData")), "<None>");
}

TEST_F(LinkTest, ASourcePropertyPassesForAStringEnumerationOnly) {
    kvObject input = inputOf(component("Viewer.1"));
    EXPECT_EQ(kvSendMeth(&error, input, "isA", "StrEnumProp"), 1);
    EXPECT_EQ(kvSendMeth(&error, input, "isA", "strlistprop"), 1);
    EXPECT_EQ(kvSendMeth(&error, input, "isA", "Property"), 0);
    EXPECT_EQ(kvSendMeth(&error, input, "isA", "SourceProperty"), 0);
}

TEST_F(LinkTest, SinkFQNsReachOnlyPropertiesOfExactlyClassSourceProperty) {
    kvObject baron = make("Baron");
    kvObject exact = kvNewObject(&error, "SourceProperty", "L1", "Svc", baron, "Exact", 0, 0);
    kvObject sub = kvNewObject(&error, "SubSource", "L2", "Svc", baron, "Sub", 0, 0);
    kvSendMeth(&error, baron, "addProperty", exact);
    kvSendMeth(&error, baron, "addProperty", sub);
    kvSendMeth(&error, exact, "storeData", "P");
    kvSendMeth(&error, sub, "storeData", "P");
    EXPECT_EQ(kvSendMeth(&error, baron, "setSinkFQNOnSourceProperties", "Me"), 0);
    EXPECT_EQ(PLRGetSinkCount(), 1);
    PLRSinkInfo sink{};
    ASSERT_EQ(PLRGetSinkInfo(0, &sink), PLR_OK);
    EXPECT_EQ(sink.sink, exact);
    EXPECT_STREQ(sink.sinkFQN, "Me");
    EXPECT_STREQ(sink.providerFQN, "P");
}

} // namespace
} // namespace kova::test
