// The property link registry's records and state, shared by its files:
// LinkRegistry.cpp (start, stop, the notifier, looking into the tables),
// Providers.cpp (services and their providers) and Sinks.cpp (sink records,
// links, provider stacks).
#pragma once

#include "components/RegistryBlock.hpp"
#include "kova/plr.h"

#include <cstddef>
#include <cstdint>

namespace kova::plr {

// A stored name: at most 80 characters and a terminator.
inline constexpr size_t nameField = PLR_NAME_LENGTH + 1;

#pragma pack(push, 1)
// One service of the service table.
struct ServiceEntry {
    char name[nameField];   // compared byte for byte
    BlockHeader* providers; // its provider list, null while it has no provider
};

// One provider of a service's provider list.
struct ProviderRecord {
    kvObject provider;      // the object that registered
    char fqn[nameField];    // its FQN, also its LINKID
    kvObject linkedObject;  // what a sink linking to it is handed
    uint32_t processMarker; // the process that made the record
};

// One record of the sink table.
struct SinkRecord {
    char sinkFQN[nameField];     // the sink property's FQN; compared without regard to case
    kvObject sink;               // receives "requiredLinkAvailable" and "storeData"
    char service[nameField];     // the service it needs
    char providerFQN[nameField]; // the provider it wants now
    kvObject linkedProvider;     // provider object of the established link, or null
    int32_t established;         // 1 while a link is established
    BlockHeader* stack;          // provider FQNs saved by PLRPushLink, or null
};

// One saved provider FQN of a provider stack.
struct StackSlot {
    char fqn[nameField];
};
#pragma pack(pop)

// Widths in the 32-bit build, where the records have exactly these layouts;
// the 16-bit bounds of every build are computed with them.
inline constexpr size_t serviceEntryWidth = 85;
inline constexpr size_t providerRecordWidth = 93;
inline constexpr size_t sinkRecordWidth = 259;
inline constexpr size_t stackSlotWidth = 81;
KV__LAYOUT32(sizeof(ServiceEntry) == serviceEntryWidth);
KV__LAYOUT32(offsetof(ServiceEntry, providers) == 81);
KV__LAYOUT32(sizeof(ProviderRecord) == providerRecordWidth);
KV__LAYOUT32(offsetof(ProviderRecord, fqn) == 4);
KV__LAYOUT32(offsetof(ProviderRecord, linkedObject) == 85);
KV__LAYOUT32(offsetof(ProviderRecord, processMarker) == 89);
KV__LAYOUT32(sizeof(SinkRecord) == sinkRecordWidth);
KV__LAYOUT32(offsetof(SinkRecord, sink) == 81);
KV__LAYOUT32(offsetof(SinkRecord, service) == 85);
KV__LAYOUT32(offsetof(SinkRecord, providerFQN) == 166);
KV__LAYOUT32(offsetof(SinkRecord, linkedProvider) == 247);
KV__LAYOUT32(offsetof(SinkRecord, established) == 251);
KV__LAYOUT32(offsetof(SinkRecord, stack) == 255);
static_assert(sizeof(StackSlot) == stackSlotWidth);

// At most 770 services, 704 providers per service, 253 sinks and 808 saved
// FQNs per stack.
inline constexpr int16_t maxServices = maxRecords(serviceEntryWidth);
inline constexpr int16_t maxProviders = maxRecords(providerRecordWidth);
inline constexpr int16_t maxSinks = maxRecords(sinkRecordWidth);
inline constexpr int16_t maxSavedFQNs = maxRecords(stackSlotWidth);

// The registry's process-wide state.
struct Registry {
    BlockHeader* services = nullptr; // service table, null before PLRInit
    BlockHeader* sinks = nullptr;    // sink table, null before PLRInit
    kvObject notifier = nullptr;     // fires the per-service notifications
    char** fqnCache = nullptr;       // what PLRGetServiceProviderFQNs last returned
    int16_t fqnCacheCount = 0;       // slots of fqnCache
};
Registry& registry();

// ---- names ----
// Stores at most 80 characters of `text` (null stores an empty name).
void storeName(char (&field)[nameField], const char* text);
// A stored service name against a given one: byte for byte on at most 80
// characters, so a longer given name matches its stored first 80.
bool sameService(const char* stored, const char* given);
// A stored FQN against a given one, without regard to (ASCII) case, on at
// most 80 characters. A null given name matches nothing.
bool sameFQN(const char* stored, const char* given);
// Null or empty.
inline bool isBlank(const char* text) {
    return !text || !*text;
}

// ---- lookups ----
// The service entry of that name, or null.
ServiceEntry* findService(const char* name);
// Looks a provider up by service and FQN (first match, without regard to
// case): 5, 7, 11 or 8 when absent. The provider and linked objects are
// written (when asked for) only if the record was made in this process.
int32_t lookUpProvider(const char* service, const char* fqn, kvObject* provider,
                       kvObject* linkedObject);
// True while `sink` has a record in the sink table: a sink deleted during a
// round of notifications has none and is skipped.
bool isRegisteredSink(kvObject sink);

// ---- notifying sinks ----
// Sends "requiredLinkAvailable" with `fqn` to the sinks of `service` that
// wait (not established) for `fqn`, in table order; errors are deleted.
// 9 when the list of sinks could not be made.
int32_t wakeWaitingSinks(const char* service, const char* fqn);
// Sends `message` with `argument` to `sink` and deletes what it raises;
// true when it raised something.
bool sendToSink(kvObject sink, const char* message, const char* argument);

// The list of sink objects that a round of notifications goes through,
// collected before the first is sent, since each one may change the table.
class SinkList {
  public:
    SinkList() = default;
    SinkList(const SinkList&) = delete;
    SinkList& operator=(const SinkList&) = delete;
    ~SinkList();
    // Room for `count` sinks; false when no memory could be had.
    bool reserve(int16_t count);
    void add(kvObject sink) { sinks_[count_++] = sink; }
    int16_t size() const { return count_; }
    kvObject operator[](int16_t index) const { return sinks_[index]; }

  private:
    kvObject* sinks_ = nullptr;
    int16_t count_ = 0;
};

} // namespace kova::plr
