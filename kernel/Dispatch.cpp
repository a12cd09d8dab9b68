// Method lookup and the sends. A name is looked up first in the per-class
// cache of 64 buckets (move-to-front, growth limited to 200 entries), then by
// binary search of the method tables of the class and its ancestors. A send
// is the system's only call mechanism, so the usual case, a name found at the
// head of its bucket, is measured once and answered without a stack frame.
// Names that no class of the chain defines are what forwarders live on: the
// cache also remembers the last such name of each bucket, and the
// "MethodNotFound" method a miss runs, so that a forwarded send searches no
// table again.
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

struct kvCacheEntry {
    kvCacheEntry* next;     // next entry of the same bucket
    kvMethodRecord* method; // the method found
    kvClass foundClass;     // the class whose table holds it
};

struct kvCacheBucket {
    kvCacheEntry* head;
    kvCacheEntry* tail;
    // The last name of this bucket that no class of the chain defines,
    // NUL-padded; empty when there is none. Beside the head, which a send
    // reads first.
    char missed[KV_METHOD_NAME_SIZE];
};

struct kvMethodCache {
    kvCacheBucket buckets[64];
    const kvMethodRecord* notFoundMethod; // "MethodNotFound" as a miss sends it, or null
    kvClass notFoundClass;                // the class defining it
    uint32_t generation;                  // the class table generation the two above hold for
};

namespace {

constexpr uint32_t cacheGrowthLimit = 200;

// A name as lookup sees it, measured once per lookup. Two words, so that it
// is handed on in registers.
struct WantedName {
    const char* text; // the name
    uint32_t length;  // bytes up to the NUL, at most 32 (names compare on 32 bytes)
    uint32_t bucket;  // its cache bucket; set only for instance-method lookup
};

uint64_t load64(const char* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

uint32_t load32(const char* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// The length of a name: its bytes up to the NUL, at most 32. Every send
// measures its name, so on x86 the name is read 16 bytes at a time, each read
// whole from a 16-byte boundary. Such a read never reaches a page the name
// does not, but it may take in bytes before the name or after its terminator,
// which the address sanitizer is told not to mind.
[[gnu::no_sanitize_address]] inline size_t nameLength(const char* name) {
#if defined(__SSE2__)
    const uintptr_t address = reinterpret_cast<uintptr_t>(name);
    const unsigned skipped = address % 16; // bytes of the first block before the name
    const auto* block = reinterpret_cast<const __m128i*>(address - skipped);
    const __m128i zero = _mm_setzero_si128();
    // One bit per zero byte of a block, lowest byte first.
    unsigned zeros =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_load_si128(block), zero)));
    zeros >>= skipped;
    size_t start = 0;           // the name's byte that bit 0 of `zeros` stands for
    size_t seen = 16 - skipped; // the name's bytes read so far
    while (!zeros) {
        if (seen >= KV_METHOD_NAME_SIZE) return KV_METHOD_NAME_SIZE;
        ++block;
        zeros =
            static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_load_si128(block), zero)));
        start = seen;
        seen += 16;
    }
    return std::min<size_t>(start + std::countr_zero(zeros), KV_METHOD_NAME_SIZE);
#else
    size_t length = 0;
    while (length < KV_METHOD_NAME_SIZE && name[length])
        ++length;
    return length;
#endif
}

// The bucket of a name: h = c + 2h over its bytes (signed, 16 bits), modulo
// 64. Only the last six bytes can reach the low six bits, so only they are read.
[[gnu::always_inline]] inline uint32_t bucketOf(const WantedName& name) {
    uint16_t h = 0;
    if (name.length >= 6) [[likely]] {
        // The six steps written out: byte i of the six counts 2^(5 - i) times,
        // and the low six bits of the sum do not depend on its wrapping.
        const auto* last = reinterpret_cast<const signed char*>(name.text + name.length - 6);
        const int sum =
            32 * last[0] + 16 * last[1] + 8 * last[2] + 4 * last[3] + 2 * last[4] + last[5];
        return static_cast<uint32_t>(sum) % 64u;
    }
    for (size_t i = 0; i < name.length; ++i)
        h = static_cast<uint16_t>(static_cast<signed char>(name.text[i]) + 2 * h);
    return h % 64u;
}

[[gnu::always_inline]] inline WantedName measureForClassMethod(const char* name) {
    return {name, static_cast<uint32_t>(nameLength(name)), 0};
}

[[gnu::always_inline]] inline WantedName measure(const char* name) {
    WantedName wanted = measureForClassMethod(name);
    wanted.bucket = bucketOf(wanted);
    return wanted;
}

// True when the first `length` bytes of `a` and `b` agree. Reads no byte
// beyond them, a word at a time where it can (the last word may overlap the
// one before it), because every send compares its name at least once.
[[gnu::always_inline]] inline bool sameBytes(const char* a, const char* b, size_t length) {
    if (length > 16) {
        for (size_t i = 0; i < length - 8; i += 8)
            if (load64(a + i) != load64(b + i)) return false;
    } else if (length >= 8) {
        if (load64(a) != load64(b)) return false;
    } else if (length >= 4) {
        return load32(a) == load32(b) && load32(a + length - 4) == load32(b + length - 4);
    } else {
        for (size_t i = 0; i < length; ++i)
            if (a[i] != b[i]) return false;
        return true;
    }
    return load64(a + length - 8) == load64(b + length - 8);
}

// What strncmp(name, wanted, 32) == 0 answers for a NUL-padded name of 32
// bytes: it ends where the wanted name does, and the bytes before agree.
[[gnu::always_inline]] inline bool isNamed(const char (&name)[KV_METHOD_NAME_SIZE],
                                           const WantedName& wanted) {
    if (wanted.length < KV_METHOD_NAME_SIZE && name[wanted.length] != '\0') return false;
    return sameBytes(name, wanted.text, wanted.length);
}

[[gnu::always_inline]] inline bool isNamed(const kvMethodRecord* method, const WantedName& wanted) {
    return isNamed(method->name, wanted);
}

int byteOrder(char a, char b) {
    return static_cast<unsigned char>(a) < static_cast<unsigned char>(b) ? -1 : 1;
}

// The sign of strncmp(method's name, wanted, 32): the first differing byte
// decides, compared unsigned. The wanted name's terminator takes part, so a
// method name that goes on beyond it sorts after it.
int compareName(const kvMethodRecord* method, const WantedName& wanted) {
    const char* a = method->name;
    const char* b = wanted.text;
    size_t i = 0;
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 8 <= wanted.length; i += 8) {
            const uint64_t difference = load64(a + i) ^ load64(b + i);
            if (!difference) continue;
            i += static_cast<size_t>(std::countr_zero(difference)) / 8;
            return byteOrder(a[i], b[i]);
        }
    }
    const size_t end = std::min<size_t>(wanted.length + 1, KV_METHOD_NAME_SIZE);
    for (; i < end; ++i)
        if (a[i] != b[i]) return byteOrder(a[i], b[i]);
    return 0;
}

bool sameName(const char* a, const char* b) {
    return std::strncmp(a, b, KV_METHOD_NAME_SIZE) == 0;
}

// The entry at the head of the bucket of `name` in the cache of `cls` when it
// holds that name, else null. Move-to-front leaves a name sent again there, so
// this is tried first, inline and without a stack frame.
[[gnu::always_inline]] inline const kvCacheEntry* headEntryFor(kvClass cls,
                                                               const WantedName& name) {
    const kvCacheEntry* head = cls->cache->buckets[name.bucket].head;
    return head && isNamed(head->method, name) ? head : nullptr;
}

// Finds a name among the entries after the head of a bucket, moving a hit to
// the front.
kvMethodRecord* cacheLookupBehindHead(kvCacheBucket& bucket, const WantedName& name,
                                      kvClass* foundClass) {
    kvCacheEntry* previous = bucket.head;
    for (kvCacheEntry* entry = previous->next; entry; previous = entry, entry = entry->next) {
        if (!isNamed(entry->method, name)) continue;
        previous->next = entry->next;
        if (bucket.tail == entry) bucket.tail = previous;
        entry->next = bucket.head;
        bucket.head = entry;
        *foundClass = entry->foundClass;
        return entry->method;
    }
    return nullptr;
}

// Remembers a method found for `name` in the bucket of its name, which is the
// bucket of `name`: the two agree on every byte the bucket depends on. Once
// 200 entries exist, a bucket already in use recycles its last entry; an
// empty bucket always gets a new one.
void cacheInsert(kvClass cls, const WantedName& name, kvMethodRecord* method, kvClass foundClass) {
    kvCacheBucket& bucket = cls->cache->buckets[name.bucket];
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

// Bumped whenever the class table changes (a class added, the classes
// closed): missed names and the "MethodNotFound" found for a class are then
// looked up afresh, since the caches cannot know what a change brings.
uint32_t classTableGeneration = 1;

[[gnu::cold, gnu::noinline]] void forgetMisses(kvMethodCache& cache) {
    for (kvCacheBucket& bucket : cache.buckets)
        std::memset(bucket.missed, 0, sizeof bucket.missed);
    cache.notFoundMethod = nullptr;
    cache.notFoundClass = nullptr;
    cache.generation = classTableGeneration;
}

// The missed names and the "MethodNotFound" of `cache`, forgotten when the
// class table has changed since they were found.
[[gnu::always_inline]] inline kvMethodCache& currentMisses(kvMethodCache& cache) {
    if (cache.generation != classTableGeneration) [[unlikely]]
        forgetMisses(cache);
    return cache;
}

// True when `name` is the missed name remembered in its bucket. The empty
// name is never remembered, since a free slot reads as empty.
[[gnu::always_inline]] inline bool isKnownMissing(kvMethodCache& cache, const WantedName& name) {
    return name.length && isNamed(currentMisses(cache).buckets[name.bucket].missed, name);
}

void rememberMissing(kvMethodCache& cache, const WantedName& name) {
    if (!name.length) return;
    char(&slot)[KV_METHOD_NAME_SIZE] = currentMisses(cache).buckets[name.bucket].missed;
    std::memset(slot, 0, sizeof slot);
    std::memcpy(slot, name.text, name.length);
}

// Binary search of one sorted method table.
kvMethodRecord* searchTable(const kvMethodTable* table, const WantedName& name) {
    if (!table || !table->records) return nullptr;
    size_t low = 0;
    size_t high = table->count;
    while (low < high) {
        const size_t mid = (low + high) / 2;
        const int order = compareName(&table->records[mid], name);
        if (order < 0)
            low = mid + 1;
        else if (order == 0)
            return &table->records[mid];
        else
            high = mid;
    }
    return nullptr;
}

// Instance method lookup once the head of the bucket has been tried: the rest
// of the bucket, then the tables of `cls` and its ancestors, a find there
// being remembered in the cache of `cls`, and a miss too.
kvMethodRecord* findBehindHead(kvClass* foundClassOut, kvClass cls, const WantedName& name) {
    if (cls->cache) {
        if (isKnownMissing(*cls->cache, name)) return nullptr;
        kvCacheBucket& bucket = cls->cache->buckets[name.bucket];
        kvClass found = nullptr;
        if (bucket.head) {
            if (kvMethodRecord* method = cacheLookupBehindHead(bucket, name, &found)) {
                if (foundClassOut) *foundClassOut = found;
                return method;
            }
        }
    }
    for (kvClass c = cls; c; c = c->parent) {
        kvMethodRecord* method = searchTable(c->methodTable, name);
        if (!method) continue;
        if (cls->cache) cacheInsert(cls, name, method, c);
        if (foundClassOut) *foundClassOut = c;
        return method;
    }
    if (cls->cache) rememberMissing(*cls->cache, name);
    return nullptr;
}

// Instance method lookup (see kvFindMethod).
kvMethodRecord* findInstanceMethod(kvClass* foundClassOut, kvClass cls, const char* text) {
    if (!cls || !text) return nullptr;
    const WantedName name = measure(text);
    if (cls->cache) {
        if (const kvCacheEntry* head = headEntryFor(cls, name)) {
            if (foundClassOut) *foundClassOut = head->foundClass;
            return head->method;
        }
    }
    return findBehindHead(foundClassOut, cls, name);
}

// Class method lookup (see kvFindMethod); class methods are not cached.
kvMethodRecord* findClassMethod(kvClass* foundClassOut, kvClass cls, const char* text) {
    if (!cls || !text) return nullptr;
    const WantedName name = measureForClassMethod(text);
    for (kvClass c = cls; c; c = c->parent) {
        if (kvMethodRecord* method = searchTable(c->classMethodTable, name)) {
            if (foundClassOut) *foundClassOut = c;
            return method;
        }
    }
    return nullptr;
}

[[gnu::always_inline]] inline kvResult callInstanceMethod(kvObject* errSlot, kvObject obj,
                                                          const kvMethodRecord* method,
                                                          kvClass foundClass, const kvArgs* args) {
    if (method->flags & KV_METHOD_NO_INSTDATA)
        return reinterpret_cast<kvNoDataProc>(method->proc)(errSlot, obj, args);
    void* instData = obj->data ? static_cast<char*>(obj->data) + foundClass->dataOffset : nullptr;
    return reinterpret_cast<kvInstanceProc>(method->proc)(errSlot, obj, instData, args);
}

// A send to a null object: shown, and answered 0. Only the bytes of the name
// that lookup would compare are shown.
[[gnu::cold, gnu::noinline]] kvResult refuseNullReceiver(const char* name) {
    kova::kernel::showKernelMessage(
        kova::kernel::kernelErrorCaption,
        "An attempt was made to send method %.32s to a null object reference.",
        name ? name : "(null)");
    return 0;
}

// The name a missing method is reported under. Lookup compares at most 32
// bytes, so a name of 32 bytes needs no terminator; such a name is copied
// with one into `spare`, so that whoever reports it reads no further.
const char* reportableName(const WantedName& name, char (&spare)[KV_METHOD_NAME_SIZE + 1]) {
    if (name.length < KV_METHOD_NAME_SIZE) return name.text;
    std::memcpy(spare, name.text, KV_METHOD_NAME_SIZE);
    spare[KV_METHOD_NAME_SIZE] = '\0';
    return spare;
}

const char* reportableName(const char* name, char (&spare)[KV_METHOD_NAME_SIZE + 1]) {
    return name ? reportableName(measureForClassMethod(name), spare) : nullptr;
}

// The "MethodNotFound" a send to an object of `cls` runs, found once per
// class table generation, as a send of that name would find it.
const kvMethodRecord* notFoundMethodOf(kvClass cls, kvClass* foundClass) {
    kvMethodCache& cache = currentMisses(*cls->cache);
    if (!cache.notFoundMethod) {
        const kvMethodRecord* method =
            findInstanceMethod(&cache.notFoundClass, cls, "MethodNotFound");
        if (!method) return nullptr;
        cache.notFoundMethod = method;
    }
    *foundClass = cache.notFoundClass;
    return cache.notFoundMethod;
}

// Hands a send that found no method to the receiver's "MethodNotFound" with the
// missing name (measured; its text may be null) and the sender's list as one
// slot. A class tree without that method ends here instead of recursing.
[[gnu::noinline]] kvResult methodNotFound(kvObject* errSlot, kvObject obj, WantedName name,
                                          const kvArgs* args) {
    constexpr char notFound[] = "MethodNotFound";
    if (name.length == sizeof notFound - 1 && sameBytes(name.text, notFound, name.length)) return 0;
    char spare[KV_METHOD_NAME_SIZE + 1];
    const kvArg slots[2] = {reinterpret_cast<kvArg>(reportableName(name, spare)),
                            reinterpret_cast<kvArg>(args)};
    const kvArgs notFoundArgs{slots, 2};
    // The usual receiver has a cache, which holds its "MethodNotFound".
    if (!obj->cls || !obj->cls->cache)
        return kvSendMethNA(errSlot, obj, "MethodNotFound", &notFoundArgs);
    kvClass found = nullptr;
    const kvMethodRecord* method = notFoundMethodOf(obj->cls, &found);
    if (!method) return 0; // as the send of "MethodNotFound" would end
    return callInstanceMethod(errSlot, obj, method, found, &notFoundArgs);
}

kvResult methodNotFound(kvObject* errSlot, kvObject obj, const char* name, const kvArgs* args) {
    return methodNotFound(errSlot, obj, name ? measureForClassMethod(name) : WantedName{}, args);
}

kvResult classMethodNotFound(kvObject* errSlot, kvClass cls, const char* name, const kvArgs* args) {
    if (name && sameName(name, "ClassMethodNotFound")) return 0;
    char spare[KV_METHOD_NAME_SIZE + 1];
    return kvSendClMeth(errSlot, cls, "ClassMethodNotFound", reportableName(name, spare), args);
}

// A send the head of its bucket did not answer. A name known to be missing,
// as every message a forwarder hands on is, goes straight to "MethodNotFound".
[[gnu::noinline]] kvResult sendBehindHead(kvObject* errSlot, kvObject obj, kvClass cls,
                                          WantedName name, const kvArgs* args) {
    if (isKnownMissing(*cls->cache, name)) return methodNotFound(errSlot, obj, name, args);
    kvClass found = nullptr;
    const kvMethodRecord* method = findBehindHead(&found, cls, name);
    if (!method) return methodNotFound(errSlot, obj, name, args);
    return callInstanceMethod(errSlot, obj, method, found, args);
}

// A send from a class without a cache, or with a null class or name.
[[gnu::noinline]] kvResult sendWithoutCache(kvObject* errSlot, kvObject obj, kvClass cls,
                                            const char* name, const kvArgs* args) {
    kvClass found = nullptr;
    const kvMethodRecord* method = findInstanceMethod(&found, cls, name);
    if (!method) return methodNotFound(errSlot, obj, name, args);
    return callInstanceMethod(errSlot, obj, method, found, args);
}

// Sends `name` to `obj`, looked up from `cls` (the receiver's class, or for a
// parent send the parent of the running class). The usual case, a name at the
// head of its bucket, is handled here without a call or a stack frame.
[[gnu::always_inline]] inline kvResult sendFrom(kvObject* errSlot, kvObject obj, kvClass cls,
                                                const char* name, const kvArgs* args) {
    if (!cls || !name || !cls->cache) return sendWithoutCache(errSlot, obj, cls, name, args);
    const WantedName wanted = measure(name);
    if (const kvCacheEntry* head = headEntryFor(cls, wanted)) [[likely]]
        return callInstanceMethod(errSlot, obj, head->method, head->foundClass, args);
    return sendBehindHead(errSlot, obj, cls, wanted, args);
}

} // namespace

namespace kova::kernel {

// Send sites made before the classes were last closed are stale: their
// records may belong to libraries no longer loaded.
static uint32_t siteGeneration = 1;

kvResult sendThroughSite(SendSite& site, kvObject* errSlot, kvObject obj, const char* name,
                         const kvArgs* args) {
    if (!obj) return refuseNullReceiver(name);
    if (site.receiverClass == obj->cls && site.generation == siteGeneration) [[likely]]
        return callInstanceMethod(errSlot, obj, site.method, site.foundClass, args);
    kvClass found = nullptr;
    const kvMethodRecord* method = findInstanceMethod(&found, obj->cls, name);
    if (!method) {
        site = SendSite{};
        return methodNotFound(errSlot, obj, name, args);
    }
    site = SendSite{obj->cls, method, found, siteGeneration};
    return callInstanceMethod(errSlot, obj, method, found, args);
}

kvResult sendParentThroughSite(SendSite& site, kvObject* errSlot, kvClass cls, kvObject obj,
                               const char* name, const kvArgs* args) {
    if (!cls || !cls->parent) return -1;
    if (!obj) return refuseNullReceiver(name);
    const kvClass from = cls->parent;
    if (site.receiverClass == from && site.generation == siteGeneration) [[likely]]
        return callInstanceMethod(errSlot, obj, site.method, site.foundClass, args);
    kvClass found = nullptr;
    const kvMethodRecord* method = findInstanceMethod(&found, from, name);
    if (!method) {
        site = SendSite{};
        return methodNotFound(errSlot, obj, name, args);
    }
    site = SendSite{from, method, found, siteGeneration};
    return callInstanceMethod(errSlot, obj, method, found, args);
}

void forgetSendSites() {
    ++siteGeneration;
}

void forgetMissedNames() {
    ++classTableGeneration;
}

bool createMethodCache(kvClass cls) {
    cls->cacheCount = 0;
    cls->cache = static_cast<kvMethodCache*>(platform::allocateZeroed(sizeof(kvMethodCache)));
    if (!cls->cache) return false;
    cls->cache->generation = classTableGeneration;
    return true;
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
    if (classMethods) return findClassMethod(foundClassOut, cls, name);
    return findInstanceMethod(foundClassOut, cls, name);
}

KV_API kvResult kvSendMethNA(kvObject* errSlot, kvObject obj, const char* name,
                             const kvArgs* args) {
    if (!obj) return refuseNullReceiver(name);
    return sendFrom(errSlot, obj, obj->cls, name, args);
}

// Runs the version of `name` inherited by `cls`, the class whose procedure is
// running (not the receiver's class): the chain of objInit and objTerm.
KV_API kvResult kvSendParentMethNA(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                   const kvArgs* args) {
    if (!cls || !cls->parent) return -1;
    if (!obj) return refuseNullReceiver(name);
    return sendFrom(errSlot, obj, cls->parent, name, args);
}

KV_API kvResult kvSendClMethNA(kvObject* errSlot, kvClass cls, const char* name,
                               const kvArgs* args) {
    if (!cls) return 0;
    const kvMethodRecord* method = findClassMethod(nullptr, cls, name);
    if (!method) return classMethodNotFound(errSlot, cls, name, args);
    return reinterpret_cast<kvClassProc>(method->proc)(errSlot, cls, args);
}

// The parent's class method runs with the parent as its receiver.
KV_API kvResult kvSendClParentMethNA(kvObject* errSlot, kvClass cls, const char* name,
                                     const kvArgs* args) {
    if (!cls || !cls->parent) return 0;
    const kvMethodRecord* method = findClassMethod(nullptr, cls->parent, name);
    if (!method) return classMethodNotFound(errSlot, cls->parent, name, args);
    return reinterpret_cast<kvClassProc>(method->proc)(errSlot, cls->parent, args);
}

} // extern "C"
