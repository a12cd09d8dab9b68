// The property link registry's life (PLRInit, PLRTerm), its notifier object,
// the name rules shared by its functions, the rounds of notifications to
// sinks, and the read-only view of the tables that tools use.
#include "components/LinkRegistry.hpp"
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <cstring>

namespace kova::plr {
namespace {

char foldCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void freeProviderLists(BlockHeader* services) {
    if (!services) return;
    auto* entries = recordsOf<ServiceEntry>(services);
    for (int16_t i = 0; i < services->count; ++i) {
        BlockHeader* list = entries[i].providers;
        freeBlock(&list);
        entries[i].providers = nullptr;
    }
}

void freeProviderStacks(BlockHeader* sinks) {
    if (!sinks) return;
    auto* records = recordsOf<SinkRecord>(sinks);
    for (int16_t i = 0; i < sinks->count; ++i) {
        BlockHeader* stack = records[i].stack;
        freeBlock(&stack);
        records[i].stack = nullptr;
    }
}

void freeFQNCache(Registry& state) {
    for (int16_t i = 0; i < state.fqnCacheCount; ++i)
        platform::release(state.fqnCache[i]);
    platform::release(state.fqnCache);
    state.fqnCache = nullptr;
    state.fqnCacheCount = 0;
}

SinkRecord* sinkAt(int16_t index) {
    BlockHeader* sinks = registry().sinks;
    if (!sinks || index < 0 || index >= sinks->count) return nullptr;
    return &recordsOf<SinkRecord>(sinks)[index];
}

} // namespace

Registry& registry() {
    static Registry state;
    return state;
}

void storeName(char (&field)[nameField], const char* text) {
    std::memset(field, 0, sizeof field);
    if (text) std::memcpy(field, text, ::strnlen(text, PLR_NAME_LENGTH));
}

bool sameService(const char* stored, const char* given) {
    return given && std::strncmp(stored, given, PLR_NAME_LENGTH) == 0;
}

bool sameFQN(const char* stored, const char* given) {
    if (!given) return false;
    for (size_t i = 0; i < PLR_NAME_LENGTH; ++i) {
        if (foldCase(stored[i]) != foldCase(given[i])) return false;
        if (!stored[i]) return true;
    }
    return true;
}

ServiceEntry* findService(const char* name) {
    BlockHeader* services = registry().services;
    if (!services || !name) return nullptr;
    auto* entries = recordsOf<ServiceEntry>(services);
    for (int16_t i = 0; i < services->count; ++i)
        if (sameService(entries[i].name, name)) return &entries[i];
    return nullptr;
}

int32_t lookUpProvider(const char* service, const char* fqn, kvObject* provider,
                       kvObject* linkedObject) {
    if (!registry().services) return PLR_NO_TABLE;
    const ServiceEntry* entry = findService(service);
    if (!entry) return PLR_NO_SERVICE;
    BlockHeader* list = entry->providers;
    if (!list || list->count == 0) return PLR_NO_PROVIDERS;
    const auto* records = recordsOf<ProviderRecord>(list);
    for (int16_t i = 0; i < list->count; ++i) {
        if (!sameFQN(records[i].fqn, fqn)) continue;
        if (records[i].processMarker == platform::processMarker()) {
            if (provider) *provider = records[i].provider;
            if (linkedObject) *linkedObject = records[i].linkedObject;
        }
        return PLR_OK;
    }
    return PLR_NO_PROVIDER;
}

bool isRegisteredSink(kvObject sink) {
    BlockHeader* sinks = registry().sinks;
    if (!sinks || !sink) return false;
    const auto* records = recordsOf<SinkRecord>(sinks);
    for (int16_t i = 0; i < sinks->count; ++i)
        if (records[i].sink == sink) return true;
    return false;
}

bool sendToSink(kvObject sink, const char* message, const char* argument) {
    kvObject raised = nullptr;
    kvSendMeth(&raised, sink, message, argument);
    if (!raised) return false;
    kernel::discardErrors(raised);
    return true;
}

int32_t wakeWaitingSinks(const char* service, const char* fqn) {
    BlockHeader* sinks = registry().sinks;
    if (!sinks) return PLR_OK;
    const auto* records = recordsOf<SinkRecord>(sinks);
    auto waits = [&](const SinkRecord& record) {
        return sameService(record.service, service) && sameFQN(record.providerFQN, fqn) &&
               !record.established && record.sink;
    };
    int16_t waiting = 0;
    for (int16_t i = 0; i < sinks->count; ++i)
        if (waits(records[i])) ++waiting;
    if (waiting == 0) return PLR_OK;
    SinkList list;
    if (!list.reserve(waiting)) return PLR_LIST_MEMORY;
    for (int16_t i = 0; i < sinks->count; ++i)
        if (waits(records[i])) list.add(records[i].sink);
    for (int16_t i = 0; i < list.size(); ++i)
        if (isRegisteredSink(list[i])) sendToSink(list[i], "requiredLinkAvailable", fqn);
    return PLR_OK;
}

SinkList::~SinkList() {
    platform::release(sinks_);
}

bool SinkList::reserve(int16_t count) {
    sinks_ =
        static_cast<kvObject*>(platform::allocate(static_cast<size_t>(count) * sizeof(kvObject)));
    return sinks_ != nullptr;
}

} // namespace kova::plr

using namespace kova::plr;

extern "C" {

KV_API int32_t PLRInit(void) {
    Registry& state = registry();
    if (!state.notifier) {
        kvObject raised = nullptr;
        state.notifier = kvNewObject(&raised, "Object");
        if (raised) kova::kernel::discardErrors(raised);
    }
    if (!state.services) state.services = newBlock(sizeof(ServiceEntry), 0);
    if (!state.sinks) state.sinks = newBlock(sizeof(SinkRecord), 0);
    return state.notifier && state.services && state.sinks ? PLR_OK : PLR_INIT_FAILED;
}

KV_API int32_t PLRTerm(void) {
    Registry& state = registry();
    freeProviderLists(state.services);
    freeBlock(&state.services);
    freeProviderStacks(state.sinks);
    freeBlock(&state.sinks);
    freeFQNCache(state);
    if (state.notifier) {
        kvObject raised = nullptr;
        kvDelObject(&raised, state.notifier);
        if (raised) kova::kernel::discardErrors(raised);
        state.notifier = nullptr;
    }
    return PLR_OK;
}

KV_API kvObject PLRGetNotifierObject(void) {
    return registry().notifier;
}

KV_API int16_t PLRGetServiceCount(void) {
    return countOf(registry().services);
}

KV_API const char* PLRGetServiceName(int16_t index) {
    BlockHeader* services = registry().services;
    if (!services || index < 0 || index >= services->count) return nullptr;
    return recordsOf<ServiceEntry>(services)[index].name;
}

KV_API int16_t PLRGetProviderCount(const char* service) {
    const ServiceEntry* entry = findService(service);
    return entry ? countOf(entry->providers) : 0;
}

KV_API int32_t PLRGetProviderInfo(const char* service, int16_t index, PLRProviderInfo* info) {
    if (!service || !info) return PLR_BAD_ARGUMENT;
    if (!registry().services) return PLR_NO_TABLE;
    const ServiceEntry* entry = findService(service);
    if (!entry) return PLR_NO_SERVICE;
    if (!entry->providers) return PLR_NO_PROVIDERS;
    if (index < 0 || index >= entry->providers->count) return PLR_INDEX_OUT_OF_RANGE;
    const ProviderRecord& record = recordsOf<ProviderRecord>(entry->providers)[index];
    *info = PLRProviderInfo{record.provider, record.fqn, record.linkedObject, record.processMarker};
    return PLR_OK;
}

KV_API int16_t PLRGetSinkCount(void) {
    return countOf(registry().sinks);
}

KV_API int32_t PLRGetSinkInfo(int16_t index, PLRSinkInfo* info) {
    if (!info) return PLR_BAD_ARGUMENT;
    if (!registry().sinks) return PLR_NO_TABLE;
    const SinkRecord* record = sinkAt(index);
    if (!record) return PLR_INDEX_OUT_OF_RANGE;
    *info = PLRSinkInfo{record->sinkFQN,       record->sink,           record->service,
                        record->providerFQN,   record->linkedProvider, record->established,
                        countOf(record->stack)};
    return PLR_OK;
}

} // extern "C"
