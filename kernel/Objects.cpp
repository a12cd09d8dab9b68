// Object headers, creation and deletion. An object is a header naming its
// class plus one instance data block shared by every class of its chain; it
// is created by its class's "objectCreate" and ended by its own "objTerm".
#include "kernel/Kernel.hpp"
#include "kova/classloc.h"
#include "platform/Platform.hpp"

#include <cstring>

namespace {

// Deletions nest: an object's "objTerm" deletes what the object owns, whose
// own "objTerm" deletes what it owns, and so on, each level taking its frames
// on the C stack. So that deleting a structure nested thousands deep (a chain
// of collections, each owning the next) cannot overflow the stack, a deletion
// nested more than deepestDeletion deep is queued instead, and the outermost
// deletion ends the queued objects, in the order they were queued, once its
// own object is ended. Such an object therefore ends after the deletion that
// asked for it has returned, but before the outermost deletion returns; its
// errors go to the outermost deletion's slot. Without memory for the queue
// an object is ended at once, as deletions always were.
constexpr int deepestDeletion = 32;
int deletionDepth = 0; // deletions under way, one inside another

struct QueuedDeletion {
    kvObject obj;
    kvArg* args; // heap copy of the deletion's arguments, null for none
    size_t count;
};
QueuedDeletion* queue = nullptr;
size_t queueHead = 0;     // next to be ended
size_t queueTail = 0;     // one past the last queued
size_t queueCapacity = 0; // records the block holds

kvResult endObject(kvObject* errSlot, kvObject obj, const kvArgs* args) {
    ++deletionDepth;
    const kvResult answer = kvSendMethNA(errSlot, obj, "objTerm", args);
    --deletionDepth;
    return answer;
}

bool queueDeletion(kvObject obj, const kvArgs* args) {
    const size_t count = args ? args->count : 0;
    kvArg* copy = nullptr;
    if (count) {
        copy = static_cast<kvArg*>(kova::platform::allocate(count * sizeof(kvArg)));
        if (!copy) return false;
        std::memcpy(copy, args->slot, count * sizeof(kvArg));
    }
    if (queueTail == queueCapacity) {
        const size_t capacity = queueCapacity ? queueCapacity * 2 : 64;
        auto* grown = static_cast<QueuedDeletion*>(
            kova::platform::reallocate(queue, capacity * sizeof(QueuedDeletion)));
        if (!grown) {
            kova::platform::release(copy);
            return false;
        }
        queue = grown;
        queueCapacity = capacity;
    }
    queue[queueTail++] = {obj, copy, count};
    return true;
}

// Ends the queued objects, and those their deletions queue in turn.
void endQueuedObjects(kvObject* errSlot) {
    while (queueHead < queueTail) {
        const QueuedDeletion next = queue[queueHead++];
        const kvArgs args{next.args, next.count};
        endObject(errSlot, next.obj, &args);
        kova::platform::release(next.args);
    }
    kova::platform::release(queue);
    queue = nullptr;
    queueHead = queueTail = queueCapacity = 0;
}

} // namespace

extern "C" {

KV_API kvObject kvAllocObject(void) {
    return static_cast<kvObject>(kova::platform::allocateZeroed(sizeof(kvObjectHeader)));
}

// Frees the header and its notification lists; the data block is the
// caller's to free ("objectDestroy" frees it first). The object's own
// subscriptions to other objects go too: a notifier must never be left
// holding a freed subscriber.
KV_API kvResult kvFreeObject(kvObject obj) {
    if (!obj) return 0;
    kvClearNotifications(obj);
    kova::kernel::dropSubscriptions(obj);
    kova::platform::release(obj);
    return 0;
}

KV_API kvObject kvNewObjectNA(kvObject* errSlot, const char* className, const kvArgs* args) {
    const kvClass cls = kvRegisterClass(className);
    if (!cls) return nullptr;
    return reinterpret_cast<kvObject>(kvSendClMethNA(errSlot, cls, "objectCreate", args));
}

// Deletion is refused while the object is firing a notification, so that a
// subscriber cannot delete the notifier under its own feet. A deletion nested
// more than deepestDeletion deep in other deletions is queued and carried out
// by the outermost one (see above); it answers -1, as "objTerm" does.
KV_API kvResult kvDelObjectNA(kvObject* errSlot, kvObject obj, const kvArgs* args) {
    if (!obj) return 0;
    if (kova::kernel::isFiring(obj)) {
        kova::kernel::storeError(errSlot, kvMakeError(3470));
        return -1;
    }
    if (deletionDepth >= deepestDeletion && queueDeletion(obj, args)) return -1;
    const kvResult answer = endObject(errSlot, obj, args);
    if (deletionDepth == 0) endQueuedObjects(errSlot);
    return answer;
}

// Resizes a heap block; a size of 0 frees it and answers null.
KV_API void* hRealloc(void* block, kvArg, size_t size) {
    if (size == 0) {
        kova::platform::release(block);
        return nullptr;
    }
    return kova::platform::reallocate(block, size);
}

// Replaces the string held in *slot by a copy of `text`; a failed copy keeps
// the old string.
KV_API char* utilSetString(char** slot, const char* text) {
    if (!slot) return nullptr;
    if (!text) {
        kova::platform::release(*slot);
        *slot = nullptr;
        return nullptr;
    }
    char* copy = kova::platform::duplicate(text);
    if (!copy) return nullptr;
    kova::platform::release(*slot);
    *slot = copy;
    return copy;
}

} // extern "C"
