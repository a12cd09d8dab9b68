// A started kernel with components: personality modules of class PM with a
// technology from TESTLNK.DLL, and a host callback that records the events.
#pragma once

#include "kova/component.h"
#include "kova/plr.h"
#include "tests/KernelFixture.hpp"

#include <string>
#include <vector>

namespace kova::test {

// What the host callback saw.
struct HostEvent {
    kvArg control;
    int32_t event;
    std::vector<kvArg> slots; // the first eight further slots
    std::string message;      // the message of an error event
};

class ComponentTest : public KernelTest {
  protected:
    void SetUp() override {
        KernelTest::SetUp();
        events().clear();
        displayName() = "Host Name";
        nextAction() = 0;
    }

    static std::vector<HostEvent>& events() {
        static std::vector<HostEvent> seen;
        return seen;
    }
    // What the callback writes into the buffer of the display name event.
    static std::string& displayName() {
        static std::string name;
        return name;
    }
    // The action the callback sets for the error reporting event.
    static int16_t& nextAction() {
        static int16_t action = 0;
        return action;
    }
    static int32_t host(kvArg control, int32_t event, const kvArg* arguments) {
        HostEvent seen{control, event, {}, {}};
        for (int i = 0; i < 8 && arguments; ++i)
            seen.slots.push_back(arguments[i]);
        if ((event == KV_EVENT_ERROR_REPORTING || event == KV_EVENT_ERROR_REPORTED) && arguments[1])
            seen.message = reinterpret_cast<const char*>(arguments[1]);
        events().push_back(seen);
        if (event == KV_EVENT_DISPLAY_NAME)
            std::snprintf(reinterpret_cast<char*>(arguments[0]), 80, "%s", displayName().c_str());
        if (event == KV_EVENT_ERROR_REPORTING)
            *reinterpret_cast<int16_t*>(arguments[6]) = nextAction();
        return 7;
    }

    // A personality of the technology `tmClass`, with control 1 and the
    // recording callback, named `fqn` (none for null), not yet activated.
    kvObject personality(const char* fqn, const char* tmClass = "TestTM") {
        kvObject pm = make("PM");
        kvSendMeth(&error, pm, "storeControl", 1);
        kvSendMeth(&error, pm, "registerEventDispatch", &host);
        kvSendMeth(&error, pm, "setTMName", tmClass);
        if (fqn) kvSendMeth(&error, pm, "storeFQN", fqn);
        return pm;
    }
    // An activated component; answers its technology.
    kvObject component(const char* fqn, const char* tmClass = "TestTM") {
        return reinterpret_cast<kvObject>(
            kvSendMeth(&error, personality(fqn, tmClass), "activate"));
    }
    static kvObject objectOf(kvResult answer) { return reinterpret_cast<kvObject>(answer); }
    static std::string textOf(kvResult answer) {
        const auto* text = reinterpret_cast<const char*>(answer);
        return text ? text : "<null>";
    }
};

} // namespace kova::test
