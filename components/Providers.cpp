// The property link registry's services and providers: registering,
// renaming and removing providers, listing a service's provider FQNs,
// choosing a default provider, looking providers up by LINKID, and making
// automatic LINKIDs.
#include "components/LinkRegistry.hpp"
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <cstring>

using namespace kova::plr;
namespace platform = kova::platform;

namespace {

constexpr const char* noneDisplayName = "<None>";

// A service entry of that name, appended (with no providers) when absent:
// 0, or 23 when the service table cannot grow.
int32_t serviceFor(const char* name, ServiceEntry** entry) {
    *entry = findService(name);
    if (*entry) return PLR_OK;
    Registry& state = registry();
    if (!appendRecord(&state.services, sizeof(ServiceEntry), maxServices))
        return PLR_SERVICE_TABLE_GROW;
    *entry = &recordsOf<ServiceEntry>(state.services)[state.services->count - 1];
    storeName((*entry)->name, name);
    return PLR_OK;
}

// Index of the provider record of `provider` in the list, or -1.
int16_t indexOfObject(BlockHeader* list, kvObject provider) {
    const auto* records = recordsOf<ProviderRecord>(list);
    for (int16_t i = 0; i < countOf(list); ++i)
        if (records[i].provider == provider) return i;
    return -1;
}

// Appends a provider record: 0, 2 (no first list) or 24 (the list cannot grow).
int32_t appendProvider(ServiceEntry* entry, kvObject provider, const char* fqn,
                       kvObject linkedObject) {
    BlockHeader* list = entry->providers;
    if (!list) {
        list = newBlock(sizeof(ProviderRecord), 1);
        if (!list) return PLR_NEW_LIST_FAILED;
        list->count = 1;
    } else if (!appendRecord(&list, sizeof(ProviderRecord), maxProviders)) {
        return PLR_PROVIDER_LIST_GROW;
    }
    entry->providers = list;
    ProviderRecord& record = recordsOf<ProviderRecord>(list)[list->count - 1];
    record.provider = provider;
    storeName(record.fqn, fqn);
    record.linkedObject = linkedObject;
    record.processMarker = platform::processMarker();
    return PLR_OK;
}

void fireServiceNotification(const char* service, int32_t kind, const char* fqn) {
    const kvObject notifier = registry().notifier;
    if (!notifier) return;
    kvObject raised = nullptr;
    kvFireNotification(&raised, notifier, service, kind, fqn);
    if (raised) kova::kernel::discardErrors(raised);
}

// The rule names compare as written, except "self", which any case names.
bool isRule(const char* rule, const char* name) {
    return std::strcmp(rule, name) == 0;
}

bool isSelfRule(const char* rule) {
    return sameFQN("self", rule);
}

// True when `object` answers "isA" to `className` with non-zero.
bool isOfClass(kvObject object, const char* className) {
    if (!object) return false;
    kvObject raised = nullptr;
    const kvResult answer = kvSendMeth(&raised, object, "isA", className);
    if (raised) kova::kernel::discardErrors(raised);
    return answer != 0;
}

// Applies one rule of PLRGetDefaultLINKID to the provider FQN cache that the
// caller has just filled. The cache is read afresh at each step, since the
// "isA" sent to a provider may run code that lists the providers again.
const char* applyRule(const char* rule, const char* service, const char* ownFQN) {
    static const char noProvider[] = "";
    if (isSelfRule(rule)) return ownFQN;
    if (isRule(rule, "none")) return noProvider;
    const bool any = isRule(rule, "any");
    const Registry& state = registry();
    for (int16_t i = 0; i < state.fqnCacheCount; ++i) {
        const char* fqn = state.fqnCache[i];
        if (!fqn || sameFQN(fqn, ownFQN)) continue;
        if (any) return fqn;
        kvObject provider = nullptr;
        if (lookUpProvider(service, fqn, &provider, nullptr) != PLR_OK) continue;
        if (isOfClass(provider, rule) && i < state.fqnCacheCount && state.fqnCache[i] == fqn)
            return fqn;
    }
    return nullptr;
}

} // namespace

extern "C" {

KV_API int32_t PLRRegisterProperty(const char* service, kvObject provider, const char* providerFQN,
                                   kvObject linkedObject) {
    if (!registry().services) return PLR_NO_TABLE;
    if (!service || !provider || !providerFQN || !linkedObject) return PLR_BAD_ARGUMENT;
    ServiceEntry* entry = nullptr;
    if (const int32_t status = serviceFor(service, &entry)) return status;
    if (indexOfObject(entry->providers, provider) >= 0)
        return PLRChangeFQN(service, provider, providerFQN);
    if (const int32_t status = appendProvider(entry, provider, providerFQN, linkedObject))
        return status;
    fireServiceNotification(service, PLR_NOTIFY_REGISTERED, providerFQN);
    return wakeWaitingSinks(service, providerFQN);
}

KV_API int32_t PLRUnregisterProperty(const char* service, kvObject provider,
                                     const char* providerFQN) {
    if (!service || !providerFQN) return PLR_BAD_ARGUMENT;
    if (!registry().services) return PLR_NO_TABLE;
    ServiceEntry* entry = findService(service);
    if (!entry) return PLR_NO_SERVICE;
    BlockHeader* list = entry->providers;
    if (!list || list->count == 0) return PLR_NO_PROVIDERS;
    const auto* records = recordsOf<ProviderRecord>(list);
    int16_t index = -1;
    for (int16_t i = 0; i < list->count && index < 0; ++i)
        if (sameFQN(records[i].fqn, providerFQN) && records[i].provider == provider) index = i;
    if (index < 0) return PLR_NO_PROVIDER;
    if (list->count == 1) {
        freeBlock(&list);
    } else {
        removeRecord(&list, sizeof(ProviderRecord), index);
    }
    entry->providers = list;
    fireServiceNotification(service, PLR_NOTIFY_UNREGISTERED, providerFQN);
    return PLR_OK;
}

KV_API int32_t PLRChangeFQN(const char* service, kvObject provider, const char* newFQN) {
    if (!service || !provider || !newFQN) return PLR_BAD_ARGUMENT;
    if (!registry().services) return PLR_NO_TABLE;
    ServiceEntry* entry = findService(service);
    if (!entry) return PLR_NO_SERVICE;
    if (!entry->providers || entry->providers->count == 0) return PLR_NO_PROVIDERS;
    const int16_t index = indexOfObject(entry->providers, provider);
    if (index < 0) return PLR_NO_PROVIDER;
    ProviderRecord& record = recordsOf<ProviderRecord>(entry->providers)[index];
    char oldFQN[nameField];
    std::memcpy(oldFQN, record.fqn, nameField);

    // The sinks established on the old name are listed before anything
    // changes, so that a lack of memory leaves the provider as it was.
    SinkList established;
    if (oldFQN[0]) {
        BlockHeader* sinks = registry().sinks;
        const auto* records = recordsOf<SinkRecord>(sinks);
        auto onOldName = [&](const SinkRecord& sink) {
            return sink.established && sink.sink && sameService(sink.service, service) &&
                   sameFQN(sink.providerFQN, oldFQN);
        };
        int16_t count = 0;
        for (int16_t i = 0; i < countOf(sinks); ++i)
            if (onOldName(records[i])) ++count;
        if (count && !established.reserve(count)) return PLR_LIST_MEMORY;
        for (int16_t i = 0; i < countOf(sinks); ++i)
            if (onOldName(records[i])) established.add(records[i].sink);
    }
    storeName(record.fqn, newFQN);

    // The old name, not the new one, goes to the established sinks: each
    // takes it as its wanted provider again and relinks through it.
    for (int16_t i = 0; i < established.size(); ++i)
        if (isRegisteredSink(established[i])) sendToSink(established[i], "storeData", oldFQN);
    return wakeWaitingSinks(service, newFQN);
}

KV_API int32_t PLRGetServiceProviderFQNs(const char* service, int16_t* count, char*** fqns) {
    if (!service || !count || !fqns) return PLR_BAD_ARGUMENT;
    Registry& state = registry();
    if (!state.services) return PLR_NO_TABLE;
    const ServiceEntry* entry = findService(service);
    if (!entry) {
        *count = 0;
        *fqns = nullptr;
        return PLR_NO_SERVICE;
    }
    BlockHeader* list = entry->providers;
    if (!list) return PLR_NO_PROVIDERS;
    if (list->count == 0) {
        *count = 0;
        *fqns = nullptr;
        return PLR_OK;
    }
    for (int16_t i = 0; i < state.fqnCacheCount; ++i)
        platform::release(state.fqnCache[i]);
    platform::release(state.fqnCache);
    state.fqnCache = nullptr;
    state.fqnCacheCount = 0;

    const int16_t providers = list->count;
    auto* array = static_cast<char**>(
        platform::allocateZeroed(static_cast<size_t>(providers) * sizeof(char*)));
    if (!array) return PLR_LIST_MEMORY;
    const auto* records = recordsOf<ProviderRecord>(list);
    for (int16_t i = 0; i < providers; ++i)
        array[i] = platform::duplicate(records[i].fqn);
    state.fqnCache = array;
    state.fqnCacheCount = providers;
    *count = providers;
    *fqns = array;
    return PLR_OK;
}

KV_API int32_t PLRIsServiceProviderFQN(const char* service, const char* providerFQN) {
    if (isBlank(service) || !providerFQN) return 0;
    const ServiceEntry* entry = findService(service);
    if (!entry) return 0;
    const auto* records = recordsOf<ProviderRecord>(entry->providers);
    for (int16_t i = 0; i < countOf(entry->providers); ++i)
        if (std::strncmp(records[i].fqn, providerFQN, PLR_NAME_LENGTH) == 0) return 1;
    return 0;
}

KV_API const char* PLRGetDefaultLINKID(const char* service, const char* ownFQN,
                                       const char* const* rules) {
    if (!service || !ownFQN || !rules) return nullptr;
    int16_t count = 0;
    char** fqns = nullptr;
    if (PLRGetServiceProviderFQNs(service, &count, &fqns) != PLR_OK || count == 0) return nullptr;
    for (; *rules; ++rules)
        if (const char* chosen = applyRule(*rules, service, ownFQN)) return chosen;
    return nullptr;
}

KV_API int32_t PLRCreateLINKID(char** linkId) {
    static char buffer[10];
    static int8_t counter = 0;
    const platform::SystemTime now = platform::systemTime();
    const auto character = [](unsigned value) { return static_cast<char>(value + 33); };
    buffer[0] = static_cast<char>(static_cast<uint8_t>(now.year - 1957));
    buffer[1] = character(now.day);
    buffer[2] = character(now.month);
    buffer[3] = character(now.hour);
    buffer[4] = character(now.minute);
    buffer[5] = character(now.second);
    buffer[6] = character(now.milliseconds % 64);
    buffer[7] = character(now.milliseconds / 64);
    buffer[8] = character(static_cast<unsigned>(counter));
    buffer[9] = '\0';
    if (++counter > 95) counter = 0;
    if (linkId) *linkId = buffer;
    return PLR_OK;
}

KV_API int32_t PLRGetObjectFromLINKID(const char* service, const char* providerFQN,
                                      kvObject* provider) {
    return lookUpProvider(service, providerFQN, provider, nullptr);
}

KV_API int32_t PLRGetDisplayNameFromLINKID(const char* service, const char* providerFQN,
                                           const char** displayName) {
    if (!service) return PLR_NO_SERVICE;
    if (!displayName) return -1;
    if (!providerFQN) {
        *displayName = noneDisplayName;
        return PLR_OK;
    }
    kvObject provider = nullptr;
    lookUpProvider(service, providerFQN, &provider, nullptr);
    if (!provider) {
        *displayName = noneDisplayName;
        return -1;
    }
    kvObject raised = nullptr;
    *displayName = reinterpret_cast<const char*>(kvSendMeth(&raised, provider, "getDisplayName"));
    if (raised) kova::kernel::discardErrors(raised);
    return PLR_OK;
}

} // extern "C"
