// ServColl: the services a component offers in the property link registry.
// Each record is registered when it is added, renamed with the component's
// FQN, announced when the component's display name changes, and unregistered
// when the collection ends.
#include "errors/Raise.hpp"
#include "kova/plr.h"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

using kova::props::isBlank;
using kova::props::sameIgnoringCase;
using kova::props::textArg;

// One offered service; the two strings are owned copies.
struct ServiceRecord {
    char* service;
    kvObject provider;
    char* providerFQN;
    kvObject linkedObject;
};

#pragma pack(push, 1)
struct ServCollData {
    int16_t count;          // records
    ServiceRecord* records; // `count` records, null when none
};
#pragma pack(pop)

kvClass ServCollClass = nullptr;

KV_METHOD_TABLE(servCollMethods,                         //
                kova::method("OnDisplayNameChanged", 0), //
                kova::method("addService", 4),           //
                kova::method("changeProviderFQN", 2),    //
                kova::method("objInit", 0),              //
                kova::method("objTerm", 0));
KV_EMPTY_METHOD_TABLE(servCollClassMethods);

ServCollData* collOf(void* instData) {
    return static_cast<ServCollData*>(instData);
}

ServiceRecord* recordsOf(ServCollData* coll) {
    ServiceRecord* records;
    std::memcpy(&records, &coll->records, sizeof records);
    return records;
}

void setRecords(ServCollData* coll, ServiceRecord* records) {
    std::memcpy(&coll->records, &records, sizeof records);
}

kvResult badText(kvObject* errSlot, kvObject self, const char* label, const char* value) {
    return kova::raiseError(errSlot, self, ServCollClass, 3478, label, value ? value : "");
}

kvResult badNumber(kvObject* errSlot, kvObject self, const char* label) {
    return kova::raiseError(errSlot, self, ServCollClass, 3479, label, int32_t{0});
}

} // namespace

// Tells the registry's listeners that the display name of every provider of
// the component changed (kind 2, no FQN).
KV_METHOD(ServColl, OnDisplayNameChanged) {
    (void)self, (void)args;
    ServCollData* coll = collOf(instData);
    const kvObject notifier = PLRGetNotifierObject();
    if (!notifier) return 0;
    for (int16_t i = 0; i < coll->count; ++i)
        kvFireNotification(errSlot, notifier, recordsOf(coll)[i].service,
                           int32_t{PLR_NOTIFY_DISPLAY_NAME}, static_cast<const char*>(nullptr));
    return 0;
}

// (service name, provider object, provider FQN, linked object): registers the
// provider and keeps a record of it. Answers 1, or 0 with 3478 or 3479 (an
// argument missing), 3480 (the registry refused) or 3429. The room for the
// record and its copies is had before the registry is asked, so that a lack
// of memory leaves no registration the collection would not undo.
KV_METHOD(ServColl, addService) {
    ServCollData* coll = collOf(instData);
    const char* service = textArg(args, 0);
    const auto provider = reinterpret_cast<kvObject>(kvArgAt(args, 1));
    const char* fqn = textArg(args, 2);
    const auto linked = reinterpret_cast<kvObject>(kvArgAt(args, 3));
    if (isBlank(service)) return badText(errSlot, self, "Service Name", service);
    if (!provider) return badNumber(errSlot, self, "Provider's Object Reference");
    if (isBlank(fqn)) return badText(errSlot, self, "Provider FQN", fqn);
    if (!linked) return badNumber(errSlot, self, "Object Reference of Linked Object");

    char* serviceCopy = kova::platform::duplicate(service);
    char* fqnCopy = kova::platform::duplicate(fqn);
    auto* grown = static_cast<ServiceRecord*>(kova::platform::reallocate(
        recordsOf(coll), (static_cast<size_t>(coll->count) + 1) * sizeof(ServiceRecord)));
    if (grown) setRecords(coll, grown);
    if (!serviceCopy || !fqnCopy || !grown || coll->count == INT16_MAX) {
        kova::platform::release(serviceCopy);
        kova::platform::release(fqnCopy);
        return kova::raiseError(errSlot, self, ServCollClass, 3429);
    }
    if (PLRRegisterProperty(service, provider, fqn, linked) != PLR_OK) {
        kova::platform::release(serviceCopy);
        kova::platform::release(fqnCopy);
        return kova::raiseError(errSlot, self, ServCollClass, 3480, service, fqn);
    }
    grown[coll->count++] = ServiceRecord{serviceCopy, provider, fqnCopy, linked};
    return 1;
}

// (old FQN, new FQN): renames every record of the old FQN in the registry;
// 3481 once when any rename failed. Answers 0.
KV_METHOD(ServColl, changeProviderFQN) {
    ServCollData* coll = collOf(instData);
    const char* oldFQN = textArg(args, 0);
    const char* newFQN = textArg(args, 1);
    if (isBlank(oldFQN)) return badText(errSlot, self, "Old Provider FQN", oldFQN);
    if (isBlank(newFQN)) return badText(errSlot, self, "New Provider FQN", newFQN);
    bool failed = false;
    for (int16_t i = 0; i < coll->count; ++i) {
        ServiceRecord& record = recordsOf(coll)[i];
        if (!sameIgnoringCase(record.providerFQN, oldFQN)) continue;
        char* copy = kova::platform::duplicate(newFQN);
        if (!copy || PLRChangeFQN(record.service, record.provider, newFQN) != PLR_OK) {
            kova::platform::release(copy);
            failed = true;
            continue;
        }
        kova::platform::release(record.providerFQN);
        record.providerFQN = copy;
    }
    if (failed) kova::raiseError(errSlot, self, ServCollClass, 3481, newFQN);
    return 0;
}

KV_METHOD(ServColl, objInit) {
    kvSendParentMethNA(errSlot, ServCollClass, self, "objInit", args);
    ServCollData* coll = collOf(instData);
    coll->count = 0;
    setRecords(coll, nullptr);
    return 0;
}

KV_METHOD(ServColl, objTerm) {
    ServCollData* coll = collOf(instData);
    ServiceRecord* records = recordsOf(coll);
    for (int16_t i = 0; i < coll->count; ++i) {
        PLRUnregisterProperty(records[i].service, records[i].provider, records[i].providerFQN);
        kova::platform::release(records[i].service);
        kova::platform::release(records[i].providerFQN);
    }
    kova::platform::release(records);
    setRecords(coll, nullptr);
    coll->count = 0;
    return kvSendParentMethNA(errSlot, ServCollClass, self, "objTerm", args);
}

KV_REGISTER(ServColl) {
    if (!kvRegisterClass("Object")) return nullptr;
    ServCollClass = kvAddClass("ServColl", "Object", sizeof(ServCollData), 0, servCollMethods.get(),
                               servCollClassMethods.get());
    return ServCollClass;
}
