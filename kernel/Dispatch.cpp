// Method lookup and the sends. A name is looked up first in the per-class
// cache of 64 buckets (move-to-front, growth limited to 200 entries), then by
// binary search of the method tables of the class and its ancestors.
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <cstring>

struct kvCacheEntry {
    kvCacheEntry* next;     // next entry of the same bucket
    kvMethodRecord* method; // the method found
    kvClass foundClass;     // the class whose table holds it
};

struct kvCacheBucket {
    kvCacheEntry* head;
    kvCacheEntry* tail;
};

struct kvMethodCache {
    kvCacheBucket buckets[64];
};

namespace {

constexpr uint32_t cacheGrowthLimit = 200;

// The bucket of a name: h = c + 2h over its bytes (signed, 16 bits), modulo
// 64. Only the last six bytes can reach the low six bits, so only they are read.
unsigned bucketOf(const char* name) {
    const size_t length = ::strnlen(name, KV_METHOD_NAME_SIZE);
    uint16_t h = 0;
    for (size_t i = length > 6 ? length - 6 : 0; i < length; ++i)
        h = static_cast<uint16_t>(static_cast<signed char>(name[i]) + 2 * h);
    return h % 64u;
}

bool sameName(const char* a, const char* b) {
    return std::strncmp(a, b, KV_METHOD_NAME_SIZE) == 0;
}

// Finds a name in a class's cache, moving a hit to the front of its bucket.
kvMethodRecord* cacheLookup(kvMethodCache* cache, const char* name, kvClass* foundClass) {
    kvCacheBucket& bucket = cache->buckets[bucketOf(name)];
    kvCacheEntry* previous = nullptr;
    for (kvCacheEntry* entry = bucket.head; entry; previous = entry, entry = entry->next) {
        if (!sameName(entry->method->name, name)) continue;
        if (previous) {
            previous->next = entry->next;
            if (bucket.tail == entry) bucket.tail = previous;
            entry->next = bucket.head;
            bucket.head = entry;
        }
        *foundClass = entry->foundClass;
        return entry->method;
    }
    return nullptr;
}

// Remembers a found method. Once 200 entries exist, a bucket already in use
// recycles its last entry; an empty bucket always gets a new one.
void cacheInsert(kvClass cls, kvMethodRecord* method, kvClass foundClass) {
    kvCacheBucket& bucket = cls->cache->buckets[bucketOf(method->name)];
    kvCacheEntry* entry = nullptr;
    if (cls->cacheCount >= cacheGrowthLimit && bucket.head) {
        kvCacheEntry* previous = nullptr;
        for (entry = bucket.head; entry->next; entry = entry->next)
            previous = entry;
        if (previous) {
            previous->next = nullptr;
            bucket.tail = previous;
            entry->next = bucket.head;
            bucket.head = entry;
        }
    } else {
        entry = static_cast<kvCacheEntry*>(kova::platform::allocate(sizeof(kvCacheEntry)));
        if (!entry) return; // the method is still found, only not remembered
        entry->next = bucket.head;
        bucket.head = entry;
        if (!bucket.tail) bucket.tail = entry;
        ++cls->cacheCount;
    }
    entry->method = method;
    entry->foundClass = foundClass;
}

// Binary search of one sorted method table.
kvMethodRecord* searchTable(const kvMethodTable* table, const char* name) {
    if (!table || !table->records) return nullptr;
    size_t low = 0;
    size_t high = table->count;
    while (low < high) {
        const size_t mid = (low + high) / 2;
        const int order = std::strncmp(table->records[mid].name, name, KV_METHOD_NAME_SIZE);
        if (order < 0)
            low = mid + 1;
        else if (order == 0)
            return &table->records[mid];
        else
            high = mid;
    }
    return nullptr;
}

kvResult callInstanceMethod(kvObject* errSlot, kvObject obj, const kvMethodRecord* method,
                            kvClass foundClass, const kvArgs* args) {
    if (method->flags & KV_METHOD_NO_INSTDATA)
        return reinterpret_cast<kvNoDataProc>(method->proc)(errSlot, obj, args);
    void* instData = obj->data ? static_cast<char*>(obj->data) + foundClass->dataOffset : nullptr;
    return reinterpret_cast<kvInstanceProc>(method->proc)(errSlot, obj, instData, args);
}

bool refuseNullReceiver(kvObject obj, const char* name) {
    if (obj) return false;
    kova::kernel::showKernelMessage(
        kova::kernel::kernelErrorCaption,
        "An attempt was made to send method %s to a null object reference.",
        name ? name : "(null)");
    return true;
}

// Hands a send that found no method to the receiver's "MethodNotFound" with the
// missing name and the sender's list as one slot. A class tree without that
// method ends here instead of recursing.
kvResult methodNotFound(kvObject* errSlot, kvObject obj, const char* name, const kvArgs* args) {
    if (name && sameName(name, "MethodNotFound")) return 0;
    return kvSendMeth(errSlot, obj, "MethodNotFound", name, args);
}

kvResult classMethodNotFound(kvObject* errSlot, kvClass cls, const char* name, const kvArgs* args) {
    if (name && sameName(name, "ClassMethodNotFound")) return 0;
    return kvSendClMeth(errSlot, cls, "ClassMethodNotFound", name, args);
}

} // namespace

namespace kova::kernel {

bool createMethodCache(kvClass cls) {
    cls->cacheCount = 0;
    cls->cache = static_cast<kvMethodCache*>(platform::allocateZeroed(sizeof(kvMethodCache)));
    return cls->cache != nullptr;
}

void freeMethodCache(kvClass cls) {
    if (!cls->cache) return;
    for (kvCacheBucket& bucket : cls->cache->buckets) {
        for (kvCacheEntry* entry = bucket.head; entry;) {
            kvCacheEntry* next = entry->next;
            platform::release(entry);
            entry = next;
        }
    }
    platform::release(cls->cache);
    cls->cache = nullptr;
    cls->cacheCount = 0;
}

} // namespace kova::kernel

extern "C" {

// Finds the method a send of `name` to an object of `cls` would run (or the
// class method, when `classMethods` is non-zero) and the class defining it.
KV_API kvMethodRecord* kvFindMethod(kvClass* foundClassOut, kvClass cls, const char* name,
                                    int classMethods) {
    if (!cls || !name) return nullptr;
    kvClass found = nullptr;
    if (!classMethods && cls->cache) {
        if (kvMethodRecord* method = cacheLookup(cls->cache, name, &found)) {
            if (foundClassOut) *foundClassOut = found;
            return method;
        }
    }
    for (kvClass c = cls; c; c = c->parent) {
        kvMethodRecord* method =
            searchTable(classMethods ? c->classMethodTable : c->methodTable, name);
        if (!method) continue;
        if (!classMethods && cls->cache) cacheInsert(cls, method, c);
        if (foundClassOut) *foundClassOut = c;
        return method;
    }
    return nullptr;
}

KV_API kvResult kvSendMethNA(kvObject* errSlot, kvObject obj, const char* name,
                             const kvArgs* args) {
    if (refuseNullReceiver(obj, name)) return 0;
    kvClass found = nullptr;
    const kvMethodRecord* method = kvFindMethod(&found, obj->cls, name, 0);
    if (!method) return methodNotFound(errSlot, obj, name, args);
    return callInstanceMethod(errSlot, obj, method, found, args);
}

// Runs the version of `name` inherited by `cls`, the class whose procedure is
// running (not the receiver's class): the chain of objInit and objTerm.
KV_API kvResult kvSendParentMethNA(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                   const kvArgs* args) {
    if (!cls || !cls->parent) return -1;
    if (refuseNullReceiver(obj, name)) return 0;
    kvClass found = nullptr;
    const kvMethodRecord* method = kvFindMethod(&found, cls->parent, name, 0);
    if (!method) return methodNotFound(errSlot, obj, name, args);
    return callInstanceMethod(errSlot, obj, method, found, args);
}

KV_API kvResult kvSendClMethNA(kvObject* errSlot, kvClass cls, const char* name,
                               const kvArgs* args) {
    if (!cls) return 0;
    const kvMethodRecord* method = kvFindMethod(nullptr, cls, name, 1);
    if (!method) return classMethodNotFound(errSlot, cls, name, args);
    return reinterpret_cast<kvClassProc>(method->proc)(errSlot, cls, args);
}

// The parent's class method runs with the parent as its receiver.
KV_API kvResult kvSendClParentMethNA(kvObject* errSlot, kvClass cls, const char* name,
                                     const kvArgs* args) {
    if (!cls || !cls->parent) return 0;
    const kvMethodRecord* method = kvFindMethod(nullptr, cls->parent, name, 1);
    if (!method) return classMethodNotFound(errSlot, cls->parent, name, args);
    return reinterpret_cast<kvClassProc>(method->proc)(errSlot, cls->parent, args);
}

} // extern "C"
