// Object headers, creation and deletion. An object is a header naming its
// class plus one instance data block shared by every class of its chain; it
// is created by its class's "objectCreate" and ended by its own "objTerm".
#include "kernel/Kernel.hpp"
#include "kova/classloc.h"
#include "platform/Platform.hpp"

#include <cstring>

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
// subscriber cannot delete the notifier under its own feet.
KV_API kvResult kvDelObjectNA(kvObject* errSlot, kvObject obj, const kvArgs* args) {
    if (!obj) return 0;
    if (kova::kernel::isFiring(obj)) {
        kova::kernel::storeError(errSlot, kvMakeError(3470));
        return -1;
    }
    return kvSendMethNA(errSlot, obj, "objTerm", args);
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
