// When version checks run: the first instance of a component class and a
// personality module's error (see VersionCheck.hpp).
#include "components/VersionCheck.hpp"
#include "kova/kernel.h"

namespace {

// One name, so that its address is the same on every first use.
constexpr char onFirstUse[] = "VersionChecking\\OnFirstUse";

int32_t numericSetting(const char* name) {
    int32_t value = 0;
    kvGetRegistrySetting(name, &value, 1);
    return value;
}

} // namespace

namespace kova::components {

void checkVersionsOnFirstInstance(kvObject* errSlot, kvObject component) {
    if (const int32_t value = numericSetting(onFirstUse)) {
        const auto mode = static_cast<int16_t>(reinterpret_cast<uintptr_t>(onFirstUse) & 0xFFFF);
        kvSendMeth(errSlot, component, "checkVersionAPI", static_cast<kvArg>(mode),
                   static_cast<kvArg>(value));
        return;
    }
    if (const int32_t value = numericSetting("VersionChecking\\OnStartUp"))
        kvSendMeth(errSlot, component, "checkVersionAPI", static_cast<kvArg>(KV_VERSION_ON_STARTUP),
                   static_cast<kvArg>(value));
}

void checkVersionsOnError(kvObject* errSlot, kvObject personality) {
    if (const int32_t value = numericSetting("VersionChecking\\OnError"))
        kvSendMeth(errSlot, personality, "checkVersionAPI", static_cast<kvArg>(KV_VERSION_ON_ERROR),
                   static_cast<kvArg>(value));
}

} // namespace kova::components
