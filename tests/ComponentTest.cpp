// Components: a personality module (PM) made by the host, its technology
// (TM) made at activation with the properties stored before it, the FQN that
// registers and later renames their services, the host's events through its
// callback and event mask, error processing, painting without a technology,
// and the services collection (ServColl).
#include "kova/version.h"
#include "tests/ComponentFixture.hpp"

#include <algorithm>
#include <cstring>

namespace kova::test {
namespace {

int32_t widthOf(kvObject tm) {
    return static_cast<int32_t>(kvSendMeth(nullptr, tm, "fetchProperty", "Width"));
}

TEST_F(ComponentTest, PropertiesStoredBeforeActivationReachTheTechnology) {
    kvObject pm = personality("Scanner.1");
    EXPECT_EQ(kvSendMeth(&error, pm, "storeProperty", "Width", 2, 640), 0);
    EXPECT_EQ(kvSendMeth(&error, pm, "fetchProperty", "Width"), 640); // pending, in "TMProps"
    EXPECT_EQ(kvSendMeth(&error, pm, "getRunMode"), 1);
    kvSendMeth(&error, pm, "setRunMode", 3);
    EXPECT_EQ(kvSendMeth(&error, pm, "getTM"), 0);

    kvObject tm = objectOf(kvSendMeth(&error, pm, "activate"));
    ASSERT_NE(tm, nullptr);
    EXPECT_STREQ(kvClassName(tm->cls), "TestTM");
    EXPECT_EQ(objectOf(kvSendMeth(&error, tm, "getPM")), pm);
    EXPECT_EQ(objectOf(kvSendMeth(&error, pm, "activate")), tm); // once only
    EXPECT_EQ(widthOf(tm), 640); // after the defaults: the host's value wins
    EXPECT_EQ(kvSendMeth(&error, tm, "getRunMode"), 3);
    EXPECT_EQ(kvSendMeth(&error, pm, "getRunMode"), 0); // asks the technology, answers 0
    EXPECT_EQ(textOf(kvSendMeth(&error, tm, "fetchFQN")), "Scanner.1");

    EXPECT_EQ(kvSendMeth(&error, pm, "storeProperty", "Width", 2, 800), 0);
    EXPECT_EQ(widthOf(tm), 800);
    EXPECT_EQ(kvSendMeth(&error, pm, "fetchProperty", "Width"), 800);
    EXPECT_EQ(objectOf(kvSendMeth(&error, pm, "findPropertyByName", "Width")),
              objectOf(kvSendMeth(&error, tm, "findPropertyByName", "Width")));
    EXPECT_EQ(kvSendMeth(&error, pm, "fireMethod", "getRunMode"), 3);
}

TEST_F(ComponentTest, TheTechnologyOffersItselfUnderTheComponentsFQN) {
    kvObject pm = personality("Scanner.1");
    EXPECT_EQ(PLRGetServiceCount(), 0); // nothing before the technology exists
    kvObject tm = objectOf(kvSendMeth(&error, pm, "activate"));
    kvObject found = nullptr;
    ASSERT_EQ(PLRGetObjectFromLINKID(KV_WIDGET_CONNECTION, "Scanner.1", &found), PLR_OK);
    EXPECT_EQ(found, tm);
    ASSERT_EQ(PLRGetObjectFromLINKID("ImageData", "Scanner.1", &found), PLR_OK);

    // A second FQN renames rather than registers again.
    EXPECT_EQ(kvSendMeth(&error, pm, "storeFQN", "Scanner.2"), 1);
    EXPECT_EQ(PLRGetProviderCount(KV_WIDGET_CONNECTION), 1);
    EXPECT_EQ(PLRIsServiceProviderFQN(KV_WIDGET_CONNECTION, "Scanner.2"), 1);
    EXPECT_EQ(PLRIsServiceProviderFQN("ImageData", "Scanner.2"), 1);
    EXPECT_EQ(kvSendMeth(&error, pm, "storeFQN", ""), 1); // ignored
    EXPECT_EQ(textOf(kvSendMeth(&error, pm, "fetchFQN")), "Scanner.2");
    // The display name comes from the host.
    const char* name = nullptr;
    EXPECT_EQ(PLRGetDisplayNameFromLINKID(KV_WIDGET_CONNECTION, "Scanner.2", &name), PLR_OK);
    EXPECT_STREQ(name, "Host Name");

    made.erase(std::find(made.begin(), made.end(), pm));
    kvDelObject(&error, pm);
    EXPECT_EQ(PLRGetProviderCount(KV_WIDGET_CONNECTION), 0);
}

TEST_F(ComponentTest, EventsGoThroughTheHostsCallbackUnlessMasked) {
    kvObject pm = make("PM");
    EXPECT_EQ(kvSendMeth(&error, pm, "fireEvent", 5), 0);
    EXPECT_EQ(takeError(), 3477);
    kvSendMeth(&error, pm, "storeControl", 9);
    EXPECT_EQ(kvSendMeth(&error, pm, "fireEvent", 5), 0);
    EXPECT_EQ(takeError(), 3475);
    kvSendMeth(&error, pm, "registerEventDispatch", &host);
    EXPECT_EQ(kvSendMeth(&error, pm, "fireEvent", 5, 11, 12), 7);
    ASSERT_EQ(events().size(), 1u);
    EXPECT_EQ(events()[0].control, 9);
    EXPECT_EQ(events()[0].event, 5);
    EXPECT_EQ(events()[0].slots[1], 12);

    kvSendMeth(&error, pm, "setEventMaskState", 5, 1);
    kvSendMeth(&error, pm, "setEventMaskState", 5, 1);
    kvSendMeth(&error, pm, "setEventMaskState", 6, 1);
    EXPECT_EQ(kvSendMeth(&error, pm, "getEventMaskState", 5), 1);
    EXPECT_EQ(kvSendMeth(&error, pm, "fireEvent", 5), 0);
    kvSendMeth(&error, pm, "setEventMaskState", 5, 0);
    EXPECT_EQ(kvSendMeth(&error, pm, "getEventMaskState", 5), 0);
    EXPECT_EQ(kvSendMeth(&error, pm, "getEventMaskState", 6), 1);
    EXPECT_EQ(kvSendMeth(&error, pm, "fireEvent", 5), 7);
    EXPECT_EQ(events().size(), 2u);

    displayName() = std::string(100, 'n'); // kept terminated within 80 bytes
    EXPECT_EQ(textOf(kvSendMeth(&error, pm, "getDisplayName")), std::string(79, 'n'));
}

TEST_F(ComponentTest, ErrorsAreReportedToTheHostAsItsFlagsAndActionsSay) {
    kvObject pm = personality(nullptr);
    kvSetErrorDialogHook([](kvErrorDialog*) { events().push_back({0, -1, {}, {}}); });
    auto raised = [] { return kvMakeError(3443); };

    kvObject slot = raised();
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", &slot, 0), 3443);
    EXPECT_EQ(slot, nullptr);
    ASSERT_EQ(events().size(), 3u); // reporting, the dialog, reported
    EXPECT_EQ(events()[0].event, KV_EVENT_ERROR_REPORTING);
    EXPECT_EQ(events()[0].slots[0], 3443);
    EXPECT_EQ(events()[0].message, "Invalid input error");
    EXPECT_EQ(static_cast<uint32_t>(events()[0].slots[2]), 0x80040000u | 3443u);
    EXPECT_EQ(events()[1].event, -1);
    EXPECT_EQ(events()[2].event, KV_EVENT_ERROR_REPORTED);
    EXPECT_EQ(events()[2].message, "Invalid input error"); // outlives the deleted error

    // Action 1: shown, not reported, answer 0. Action 5: nothing but deletion.
    events().clear();
    nextAction() = 1;
    slot = raised();
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", &slot, 0), 0);
    EXPECT_EQ(events().size(), 2u);
    nextAction() = 5;
    slot = raised();
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", &slot, 0), 0);
    EXPECT_EQ(slot, nullptr);

    // Flags 1, 2 and 4: the host hears nothing; 8 keeps the error.
    events().clear();
    nextAction() = 0;
    slot = raised();
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", &slot, 1 | 2 | 4 | 8), 0);
    EXPECT_TRUE(events().empty());
    ASSERT_NE(slot, nullptr);
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", &slot, 1 | 2 | 4), 0);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", &slot, 0), 0);
    EXPECT_EQ(kvSendMeth(&error, pm, "processError", nullptr, 0), 0);
    kvSetErrorDialogHook(nullptr);
}

TEST_F(ComponentTest, WithoutATechnologyThePersonalityPaintsItsBackColour) {
    static std::vector<uint32_t> colours;
    colours.clear();
    const kvPaintHook old = kvSetPaintHook(+[](kvArg, const kvRect* rect, uint32_t colour) {
        if (rect && rect->right == 10) colours.push_back(colour);
    });
    kvObject pm = personality(nullptr);
    const kvRect area{0, 0, 10, 10};
    kvSendMeth(&error, pm, "paint", 0, 1, &area);
    kvSendMeth(&error, pm, "storeProperty", "BackColor", 2, 0x0000FF);
    kvSendMeth(&error, pm, "paint", 0, 1, &area);
    EXPECT_EQ(colours, (std::vector<uint32_t>{KV_COLOR_WHITE, 0x0000FF}));
    kvSetPaintHook(old);
}

TEST_F(ComponentTest, ABaronKeepsItsPropertiesAndReportsBadNames) {
    kvObject baron = make("Baron");
    EXPECT_EQ(textOf(kvSendMeth(&error, baron, "getName")), "Baron");
    kvObject width = kvNewObject(&error, "IntProp", 5, baron, "Width", 1, 0);
    EXPECT_EQ(kvSendMeth(&error, baron, "addProperty", width), 0);
    EXPECT_EQ(kvSendMeth(&error, baron, "storeProperty", "width", 6), 0);
    EXPECT_EQ(kvSendMeth(&error, baron, "fetchProperty", "Width"), 6);
    EXPECT_EQ(kvSendMeth(&error, baron, "fetchProperty", "Height"), 0);
    EXPECT_EQ(kvSendMeth(&error, baron, "findPropertyByName", ""), 0);
    EXPECT_EQ(takeError(), 3497);
    EXPECT_EQ(kvSendMeth(&error, baron, "getModuleInstance"), 0);

    uint16_t* none = nullptr;
    uint16_t parts[4] = {}, kernel[4] = {};
    EXPECT_EQ(kvSendMeth(&error, baron, "getKovaVersion", parts, parts + 1, parts + 2, none), 0);
    EXPECT_EQ(takeError(), 3443);
    const int32_t known = kvGetInstanceVersion(kvGetKOVAInstance(), kernel);
    EXPECT_EQ(kvSendMeth(&error, baron, "getKovaVersion", parts, parts + 1, parts + 2, parts + 3),
              known);
    EXPECT_EQ(std::memcmp(parts, kernel, sizeof parts), 0);
    // A version check needs a non-zero setting and a module to read.
    EXPECT_EQ(kvSendMeth(&error, baron, "checkVersionAPI", 1, 0), 0);
    EXPECT_EQ(kvSendMeth(&error, baron, "checkVersionAPI", 1, 1), KV_VERSION_NOT_COMPARED);
}

TEST_F(ComponentTest, AServiceCollectionChecksItsArgumentsAndAnnouncesDisplayNames) {
    kvObject baron = make("Baron");
    kvObject linked = make("Probe");
    kvSendMeth(&error, baron, "addService", "Svc", baron, "", linked);
    EXPECT_EQ(errorMessage(error), "Invalid string input; Parameter Provider FQN = ");
    EXPECT_EQ(takeError(), 3478);
    kvSendMeth(&error, baron, "addService", "Svc", nullptr, "F", linked);
    EXPECT_EQ(errorMessage(error),
              "Invalid numerical input; Parameter Provider's Object Reference = 0");
    EXPECT_EQ(takeError(), 3479);
    kvSendMeth(&error, baron, "addService", "Svc", baron, "F", linked);
    EXPECT_EQ(PLRGetProviderCount("Svc"), 1);

    kvObject watcher = make("Probe");
    kvAddNotification(&error, PLRGetNotifierObject(), "Svc", watcher, "onEvent", 1);
    kvSendMeth(&error, baron, "OnDisplayNameChanged");
    EXPECT_EQ(kvSendMeth(&error, watcher, "getLastArg"), PLR_NOTIFY_DISPLAY_NAME);

    kvSendMeth(&error, baron, "changeFQN", "f", "G");
    EXPECT_EQ(PLRIsServiceProviderFQN("Svc", "G"), 1);
    kvSendMeth(&error, baron, "changeFQN", "G", "");
    EXPECT_EQ(takeError(), 3478);

    PLRTerm(); // the registry refuses now
    PLRInit();
    kvSendMeth(&error, make("Baron"), "addService", "Svc", baron, "F", linked);
    EXPECT_EQ(takeError(), 0);
    PLRTerm();
    kvSendMeth(&error, make("Baron"), "addService", "Svc", baron, "F", linked);
    EXPECT_EQ(errorMessage(error),
              "Failed to register service with PLR; Service Name = Svc; Provider FQN = F");
    EXPECT_EQ(takeError(), 3480);
    PLRInit();
}

} // namespace
} // namespace kova::test
