// Named notifications. An object's header holds its events; each event holds
// its subscribers in priority order, ended by a record of priority 32767.
// A subscription deleted during a firing is only marked, and the lists are
// cleaned when the firing is over.
//
// The kernel also knows, for each subscriber, which notifiers hold records of
// it: an object deleted without unsubscribing would otherwise stay in its
// notifiers' lists, and their next firing would send to freed memory. Its
// subscriptions are dropped when its header is freed, as kvDeleteNotification
// drops them. That index is kept beside the records, so sends and firings
// never touch it.
#include "kernel/Kernel.hpp"
#include "kernel/PairTable.hpp"
#include "platform/Platform.hpp"

#include <cstring>

struct kvSubscriber {
    kvSubscriber* next;               // next subscriber, in delivery order
    kvObject subscriber;              // receiver of the method; 0 once deleted mid-firing
    int16_t priority;                 // lower first; 32767 marks the end record
    char method[KV_METHOD_NAME_SIZE]; // method sent to the subscriber
};
KV__LAYOUT32(sizeof(kvSubscriber) == 44);
KV__LAYOUT32(offsetof(kvSubscriber, subscriber) == 4);
KV__LAYOUT32(offsetof(kvSubscriber, priority) == 8);
KV__LAYOUT32(offsetof(kvSubscriber, method) == 10);

struct kvEvent {
    kvEvent* next;                 // next event of the same object
    char name[KV_EVENT_NAME_SIZE]; // event name
    uint16_t flags;                // eventFiring while being fired
    kvSubscriber* subscribers;     // ends with the end record
};
KV__LAYOUT32(sizeof(kvEvent) == 36);
KV__LAYOUT32(offsetof(kvEvent, name) == 4);
KV__LAYOUT32(offsetof(kvEvent, flags) == 30);
KV__LAYOUT32(offsetof(kvEvent, subscribers) == 32);

namespace {

constexpr uint16_t eventFiring = 0x0001;
// The event's object cleared its lists while the event was being fired: the
// firing frees the event when it ends and no longer touches the object.
constexpr uint16_t eventOrphaned = 0x0002;
constexpr int16_t endPriority = 32767;
// A chain of forwarders longer than this is taken for a cycle.
constexpr int maxForwardHops = 256;

bool isEndRecord(const kvSubscriber* record) {
    return record->next == nullptr;
}

bool validEventName(const char* name) {
    return name && ::strnlen(name, KV_EVENT_NAME_SIZE) < KV_EVENT_NAME_SIZE;
}

// strncmp(event's name, name, 26) == 0, compared here because every firing
// looks its event up. An event's name ends within its field, so no byte of
// `name` after the first mismatch or terminator is read.
bool sameEventName(const kvEvent* event, const char* name) {
    for (size_t i = 0; i < KV_EVENT_NAME_SIZE; ++i) {
        if (event->name[i] != name[i]) return false;
        if (name[i] == '\0') return true;
    }
    return true;
}

bool sameMethod(const kvSubscriber* record, const char* method) {
    return std::strncmp(record->method, method, KV_METHOD_NAME_SIZE) == 0;
}

// Finds an event of the object and moves it to the front of its list.
kvEvent* findEvent(kvObject obj, const char* name) {
    kvEvent* previous = nullptr;
    for (kvEvent* event = obj->events; event; previous = event, event = event->next) {
        if (!sameEventName(event, name)) continue;
        if (previous) {
            previous->next = event->next;
            event->next = obj->events;
            obj->events = event;
        }
        return event;
    }
    return nullptr;
}

// Each subscription remembers the lookup of its method in a small table beside
// the records (which keep their documented layout), so a firing sends to a
// subscriber without looking the name up again. A slot serves one record at a
// time; two records sharing a slot only cost each other their lookups.
struct RememberedSend {
    const kvSubscriber* record;  // the subscription the slot serves
    kova::kernel::SendSite site; // its method, as last looked up
};
RememberedSend rememberedSends[256];

RememberedSend& slotOf(const kvSubscriber* record) {
    const auto address = reinterpret_cast<uintptr_t>(record);
    return rememberedSends[((address >> 4) ^ (address >> 12)) % 256];
}

kova::kernel::SendSite& sendSiteOf(const kvSubscriber* record) {
    RememberedSend& slot = slotOf(record);
    if (slot.record != record) slot = RememberedSend{record, {}};
    return slot.site;
}

// Frees a subscriber record; its remembered send goes with it, so a record
// made later at the same address starts afresh.
void releaseSubscriber(kvSubscriber* record) {
    RememberedSend& slot = slotOf(record);
    if (slot.record == record) slot = RememberedSend{};
    kova::platform::release(record);
}

void freeEvent(kvEvent* event) {
    for (kvSubscriber* record = event->subscribers; record;) {
        kvSubscriber* next = record->next;
        releaseSubscriber(record);
        record = next;
    }
    kova::platform::release(event);
}

// Which notifiers hold records of a subscriber. The entry (subscriber,
// notifier) counts the records of the subscriber in the notifier's lists and
// links the subscriber's notifiers into a list headed by (subscriber, null).
struct Tie {
    uint32_t records;  // live records of the subscriber on the notifier; 0 in the head
    kvObject previous; // the neighbouring notifiers in the subscriber's list
    kvObject next;
};
kova::kernel::PairTable<Tie> ties;

// Counts one more record of `subscriber` on `notifier`; false when no memory
// could be had.
bool tie(kvObject subscriber, kvObject notifier) {
    if (Tie* known = ties.find(subscriber, notifier)) {
        ++known->records;
        return true;
    }
    if (!ties.insert(subscriber, nullptr)) return false;
    Tie* fresh = ties.insert(subscriber, notifier);
    Tie* head = ties.find(subscriber, nullptr); // the insertion may have moved it
    if (!fresh) {
        if (!head->next) ties.erase(subscriber, nullptr);
        return false;
    }
    fresh->records = 1;
    fresh->next = head->next;
    if (head->next) ties.find(subscriber, head->next)->previous = notifier;
    head->next = notifier;
    return true;
}

// Counts one record of `subscriber` on `notifier` less.
void untie(kvObject subscriber, kvObject notifier) {
    Tie* known = ties.find(subscriber, notifier);
    if (!known || --known->records > 0) return;
    const kvObject previous = known->previous;
    const kvObject next = known->next;
    ties.erase(subscriber, notifier);
    ties.find(subscriber, previous)->next = next; // `previous` is null for the head
    if (next) ties.find(subscriber, next)->previous = previous;
    if (!ties.find(subscriber, nullptr)->next) ties.erase(subscriber, nullptr);
}

void unlinkEvent(kvObject obj, kvEvent* event) {
    for (kvEvent** link = &obj->events; *link; link = &(*link)->next) {
        if (*link == event) {
            *link = event->next;
            return;
        }
    }
}

// A new event with only its end record, or null when memory ran out.
kvEvent* newEvent(const char* name) {
    auto* event = static_cast<kvEvent*>(kova::platform::allocateZeroed(sizeof(kvEvent)));
    auto* end = static_cast<kvSubscriber*>(kova::platform::allocateZeroed(sizeof(kvSubscriber)));
    if (!event || !end) {
        kova::platform::release(event);
        kova::platform::release(end);
        return nullptr;
    }
    std::strncpy(event->name, name, KV_EVENT_NAME_SIZE - 1);
    end->priority = endPriority;
    event->subscribers = end;
    return event;
}

// Inserts a subscription before the first record of higher priority. A record
// ahead of that place with the same subscriber and method is a duplicate
// (answered with the duplicate); a priority that finds no place before the end
// record is dropped (answered null, nothing inserted).
kvSubscriber* insertSubscriber(kvEvent* event, kvSubscriber* fresh, bool* inserted) {
    *inserted = false;
    for (kvSubscriber** link = &event->subscribers; *link; link = &(*link)->next) {
        kvSubscriber* record = *link;
        if (record->subscriber == fresh->subscriber && sameMethod(record, fresh->method))
            return record;
        if (record->priority > fresh->priority) {
            fresh->next = record;
            *link = fresh;
            *inserted = true;
            return nullptr;
        }
    }
    return nullptr;
}

// Removes the marked records of the events not being fired now; answers
// whether any marked record had to be left for later.
bool removeMarkedSubscribers(kvObject obj) {
    bool leftForLater = false;
    for (kvEvent** link = &obj->events; *link;) {
        kvEvent* event = *link;
        if (event->flags & eventFiring) {
            leftForLater = true;
            link = &event->next;
            continue;
        }
        for (kvSubscriber** record = &event->subscribers; !isEndRecord(*record);) {
            if ((*record)->subscriber) {
                record = &(*record)->next;
                continue;
            }
            kvSubscriber* dead = *record;
            *record = dead->next;
            releaseSubscriber(dead);
        }
        if (isEndRecord(event->subscribers)) {
            *link = event->next;
            freeEvent(event);
        } else {
            link = &event->next;
        }
    }
    return leftForLater;
}

// The method name of a subscription as a terminated string. The field holds a
// 32-byte name without terminator, and only such a name is copied, to
// `spare`; a record is not freed while its event is being fired, so any other
// name is handed to the send where it lies.
const char* sendableMethod(const kvSubscriber* record, char (&spare)[KV_METHOD_NAME_SIZE + 1]) {
    if (record->method[KV_METHOD_NAME_SIZE - 1] == '\0') return record->method;
    std::memcpy(spare, record->method, KV_METHOD_NAME_SIZE);
    spare[KV_METHOD_NAME_SIZE] = '\0';
    return spare;
}

// Sends each subscriber of the event its method with the firing's list. With
// `stopAtAnswer`, stops at the first non-zero answer and returns it.
kvResult fire(kvObject* errSlot, const kvArgs* args, bool stopAtAnswer) {
    const auto notifier = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const auto* name = reinterpret_cast<const char*>(kvArgAt(args, 1));
    if (!notifier || !name) return 0;
    if (!(notifier->flags & KV_OBJ_HAS_EVENTS) || (notifier->flags & KV_OBJ_SILENT)) return 0;
    // A name too long to be an event's matches no event, so it needs checking
    // only before a forwarder is asked for its target.
    kvObject holder = notifier;
    if (notifier->flags & KV_OBJ_FORWARDER) {
        if (!validEventName(name)) return 0;
        holder = kvResolveForwards(notifier);
        if (!holder) return 0;
    }
    kvEvent* event = findEvent(holder, name);
    if (!event || (event->flags & eventFiring)) return 0;

    event->flags |= eventFiring;
    kvResult answer = 0;
    for (kvSubscriber* record = event->subscribers; !isEndRecord(record);) {
        kvSubscriber* next = record->next;
        if (record->subscriber) {
            char spare[KV_METHOD_NAME_SIZE + 1];
            answer = kova::kernel::sendThroughSite(sendSiteOf(record), errSlot, record->subscriber,
                                                   sendableMethod(record, spare), args);
            if (stopAtAnswer && answer) break;
        }
        record = next;
    }
    event->flags &= static_cast<uint16_t>(~eventFiring);
    if (event->flags & eventOrphaned) {
        freeEvent(event);
        return stopAtAnswer ? answer : 0;
    }
    if (holder->flags & KV_OBJ_NEEDS_CLEANING) kvCleanObject(holder);
    return stopAtAnswer ? answer : 0;
}

// Drops every record of `subscriber` in the lists of `notifier` as
// kvDeleteNotification drops one: records of an event being fired are only
// marked, and the rest are freed with the events they leave empty.
void dropRecords(kvObject notifier, kvObject subscriber) {
    for (kvEvent** eventLink = &notifier->events; *eventLink;) {
        kvEvent* event = *eventLink;
        const bool firing = event->flags & eventFiring;
        for (kvSubscriber** link = &event->subscribers; !isEndRecord(*link);) {
            kvSubscriber* record = *link;
            if (record->subscriber != subscriber) {
                link = &record->next;
                continue;
            }
            untie(subscriber, notifier);
            if (firing) {
                record->subscriber = nullptr;
                notifier->flags |= KV_OBJ_NEEDS_CLEANING;
                link = &record->next;
            } else {
                *link = record->next;
                releaseSubscriber(record);
            }
        }
        if (!firing && isEndRecord(event->subscribers)) {
            *eventLink = event->next;
            freeEvent(event);
        } else {
            eventLink = &event->next;
        }
    }
    if (!notifier->events) notifier->flags &= static_cast<uint16_t>(~KV_OBJ_HAS_EVENTS);
}

} // namespace

namespace kova::kernel {

void dropSubscriptions(kvObject subscriber) {
    while (const Tie* head = ties.find(subscriber, nullptr)) {
        const kvObject notifier = head->next;
        dropRecords(notifier, subscriber);
        // Every record was found, so the tie is gone; this only guards the loop.
        while (ties.find(subscriber, notifier))
            untie(subscriber, notifier);
    }
}

bool isFiring(kvObject obj) {
    const kvObject holder = kvResolveForwards(obj);
    if (!holder) return false;
    for (const kvEvent* event = holder->events; event; event = event->next)
        if (event->flags & eventFiring) return true;
    return false;
}

} // namespace kova::kernel

extern "C" {

KV_API kvObject kvResolveForwards(kvObject obj) {
    for (int hops = 0; obj && (obj->flags & KV_OBJ_FORWARDER); ++hops) {
        if (hops == maxForwardHops) return nullptr;
        obj = reinterpret_cast<kvObject>(kvSendMeth(nullptr, obj, "getForward"));
    }
    return obj;
}

// Answers 1 when this subscription gave the notifier (as named) its first
// event, 0 for any other success, -1 on failure (with an error in the slot for
// lack of memory, a duplicate or a null argument).
KV_API kvResult kvAddNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                                  kvObject subscriber, const char* methodName, int16_t priority) {
    using kova::kernel::storeError;
    if (!notifier || !validEventName(eventName) || !subscriber || !methodName) {
        storeError(errSlot, kvMakeError(3443));
        return -1;
    }
    const kvObject holder = kvResolveForwards(notifier);
    if (!holder) return -1;

    kvEvent* event = findEvent(holder, eventName);
    bool eventIsNew = false;
    if (!event) {
        event = newEvent(eventName);
        if (!event) {
            storeError(errSlot, kvMakeError(3429));
            return -1;
        }
        event->next = holder->events;
        holder->events = event;
        eventIsNew = true;
    }
    auto* fresh = static_cast<kvSubscriber*>(kova::platform::allocateZeroed(sizeof(kvSubscriber)));
    if (!fresh) {
        if (eventIsNew) {
            unlinkEvent(holder, event);
            freeEvent(event);
        }
        storeError(errSlot, kvMakeError(3429));
        return -1;
    }
    if (!tie(subscriber, holder)) {
        kova::platform::release(fresh);
        if (eventIsNew) {
            unlinkEvent(holder, event);
            freeEvent(event);
        }
        storeError(errSlot, kvMakeError(3429));
        return -1;
    }
    fresh->subscriber = subscriber;
    fresh->priority = priority;
    std::memcpy(fresh->method, methodName, ::strnlen(methodName, KV_METHOD_NAME_SIZE));

    bool inserted = false;
    if (insertSubscriber(event, fresh, &inserted)) {
        untie(subscriber, holder);
        kova::platform::release(fresh);
        storeError(errSlot, kvMakeError(3467, kvClassName(subscriber->cls), eventName,
                                        kvClassName(notifier->cls)));
        return -1;
    }
    if (!inserted) {
        untie(subscriber, holder);
        kova::platform::release(fresh);
    }
    if (inserted && !(notifier->flags & KV_OBJ_HAS_EVENTS)) {
        notifier->flags |= KV_OBJ_HAS_EVENTS;
        return 1;
    }
    return 0;
}

// Answers 1 when the notifier has no events left, 0 when the subscription was
// removed and others remain, -1 when it was not found, only marked (during a
// firing) or an argument was null.
KV_API kvResult kvDeleteNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                                     kvObject subscriber, const char* methodName) {
    if (!notifier || !eventName || !subscriber || !methodName) {
        kova::kernel::storeError(errSlot, kvMakeError(3443));
        return -1;
    }
    const kvObject holder = kvResolveForwards(notifier);
    if (!holder) return -1;
    for (kvEvent* event = holder->events; event; event = event->next) {
        if (!sameEventName(event, eventName)) continue;
        for (kvSubscriber** link = &event->subscribers; !isEndRecord(*link);
             link = &(*link)->next) {
            kvSubscriber* record = *link;
            if (record->subscriber != subscriber || !sameMethod(record, methodName)) continue;
            untie(subscriber, holder);
            if (event->flags & eventFiring) {
                record->subscriber = nullptr;
                holder->flags |= KV_OBJ_NEEDS_CLEANING;
                return -1;
            }
            *link = record->next;
            releaseSubscriber(record);
            if (!isEndRecord(event->subscribers)) return 0;
            unlinkEvent(holder, event);
            freeEvent(event);
            if (holder->events) return 0;
            holder->flags &= static_cast<uint16_t>(~KV_OBJ_HAS_EVENTS);
            return 1;
        }
    }
    return -1;
}

KV_API void kvFireNotificationNA(kvObject* errSlot, const kvArgs* args) {
    fire(errSlot, args, false);
}

KV_API kvResult kvFireNotificationTermNA(kvObject* errSlot, const kvArgs* args) {
    return fire(errSlot, args, true);
}

// An event being fired keeps its records, all marked, until its firing ends;
// it is no longer the object's, so the object may be freed meanwhile.
KV_API void kvClearNotifications(kvObject obj) {
    if (!obj) return;
    for (kvEvent* event = obj->events; event;) {
        kvEvent* next = event->next;
        for (kvSubscriber* record = event->subscribers; !isEndRecord(record);
             record = record->next) {
            if (record->subscriber) untie(record->subscriber, obj);
            record->subscriber = nullptr;
        }
        if (event->flags & eventFiring) {
            event->flags |= eventOrphaned;
            event->next = nullptr;
        } else {
            freeEvent(event);
        }
        event = next;
    }
    obj->events = nullptr;
}

// Events being fired keep their marked records (and the object its flag)
// until their firing ends, so a firing never walks freed records.
KV_API void kvCleanObject(kvObject obj) {
    const kvObject holder = kvResolveForwards(obj);
    if (!holder) return;
    if (!removeMarkedSubscribers(holder))
        holder->flags &= static_cast<uint16_t>(~KV_OBJ_NEEDS_CLEANING);
}

} // extern "C"
