/* The object kernel: classes registered at run time, methods sent by name,
 * objects with per-class instance data, named notifications.
 *
 * Compiles as C and as C++. From C++ the plain send, creation, deletion and
 * firing functions are variadic templates that turn each argument into a slot;
 * from C the same names are macros over exported functions that take the
 * number of slots after the fixed arguments. */
#ifndef KOVA_KERNEL_H
#define KOVA_KERNEL_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(KOVA_BUILDING_KERNEL)
#define KV_API __declspec(dllexport)
#else
#define KV_API __declspec(dllimport)
#endif
#define KV_EXPORT __declspec(dllexport)
#else
#define KV_API __attribute__((visibility("default")))
/* Exported, yet the module's own references bind to its own definition: the
 * kernel looks these names up in each module (method procedures, registration
 * procedures, the resource table), and another module exporting the same name
 * must not stand in for them, as a DLL's own references never are. */
#define KV_EXPORT __attribute__((visibility("protected")))
#endif

#ifdef __cplusplus
#define KV_EXTERN_C extern "C"
extern "C" {
#else
#define KV_EXTERN_C
#endif

/* Records shared with class libraries and files have exact layouts; the build
 * checks them. KV__LAYOUT32 checks a layout of the 32-bit build, where
 * pointers are 4 bytes wide. */
#ifdef __cplusplus
#define KV__STATIC_ASSERT(condition) static_assert(condition, #condition)
#else
#define KV__STATIC_ASSERT(condition) _Static_assert(condition, #condition)
#endif
#define KV__LAYOUT32(condition) KV__STATIC_ASSERT(sizeof(void*) != 4 || (condition))

/* One argument slot and one method result: pointer-sized, so an integer, a
 * pointer or an object travels in one slot. Floating values travel by pointer. */
typedef intptr_t kvArg;
typedef intptr_t kvResult;

typedef struct kvObjectHeader* kvObject;
typedef struct kvClassRecord* kvClass;
typedef void* kvModule;

/* An argument list: `count` slots from `slot`. Reading past the end gives 0;
 * the rest of a list after its first k slots is a view, not a copy; a list is
 * handed on as one slot holding a `const kvArgs*`. */
typedef struct kvArgs {
    const kvArg* slot; /* the first slot, or null for an empty list */
    size_t count;      /* number of slots */
} kvArgs;

/* The slot at `index`, or 0 when the list is null or shorter. */
static inline kvArg kvArgAt(const kvArgs* args, size_t index) {
    return (args && index < args->count) ? args->slot[index] : 0;
}

/* The list without its first `skip` slots (empty when it has fewer). */
static inline kvArgs kvArgsAfter(const kvArgs* args, size_t skip) {
    kvArgs rest = {0, 0};
    if (args && skip < args->count) {
        rest.slot = args->slot + skip;
        rest.count = args->count - skip;
    }
    return rest;
}

/* Method procedures. `errSlot` is the caller's error cell (may be null). */
typedef void (*kvProc)(void);
typedef kvResult (*kvInstanceProc)(kvObject* errSlot, kvObject self, void* instData,
                                   const kvArgs* args);
typedef kvResult (*kvNoDataProc)(kvObject* errSlot, kvObject self, const kvArgs* args);
typedef kvResult (*kvClassProc)(kvObject* errSlot, kvClass cls, const kvArgs* args);

enum {
    KV_METHOD_NAME_SIZE = 32, /* method names are compared on at most this many bytes */
    KV_CLASS_NAME_SIZE = 20,  /* class names hold at most 19 characters */
    KV_EVENT_NAME_SIZE = 26   /* event names hold at most 25 characters */
};

/* Method record flags. */
enum {
    KV_METHOD_NO_INSTDATA = 0x0001, /* procedure takes (errSlot, self, args) */
    KV_METHOD_BREAK = 0x0002        /* breakpoint switch, read by debugging aids */
};

/* One method of a class's table. Tables are sorted by name in byte order. */
typedef struct kvMethodRecord {
    char name[KV_METHOD_NAME_SIZE]; /* method name, NUL-padded */
    uint16_t flags;                 /* KV_METHOD_* bits */
    uint16_t argCount;              /* named arguments; informational only */
    kvProc proc;                    /* filled in when the class is added */
} kvMethodRecord;
KV__LAYOUT32(sizeof(kvMethodRecord) == 40);
KV__LAYOUT32(offsetof(kvMethodRecord, flags) == 32);
KV__LAYOUT32(offsetof(kvMethodRecord, argCount) == 34);
KV__LAYOUT32(offsetof(kvMethodRecord, proc) == 36);

#pragma pack(push, 1)
/* A class's method table: a count followed, unpadded, by the records. */
typedef struct kvMethodTable {
    uint16_t count;          /* number of records */
    kvMethodRecord* records; /* `count` records sorted by name */
} kvMethodTable;
#pragma pack(pop)
KV__LAYOUT32(sizeof(kvMethodTable) == 6);
KV__LAYOUT32(offsetof(kvMethodTable, records) == 2);

struct kvMethodCache;
struct kvEvent;

/* A class: one record of the process-wide class table. The name directly
 * follows the flags word, so a handle gives its name without a lookup. */
struct kvClassRecord {
    uint16_t flags;                  /* free for the class's own per-class state */
    char name[KV_CLASS_NAME_SIZE];   /* class name */
    kvClass parent;                  /* parent class, null for the root class Object */
    kvMethodTable* methodTable;      /* instance methods */
    kvMethodTable* classMethodTable; /* class methods */
    uint16_t instanceSize;           /* bytes of instance data this class adds */
    uint16_t dataOffset;             /* where this class's data starts in an object's block */
    kvModule library;                /* class library holding the procedures */
    uint32_t cacheCount;             /* method cache entries ever allocated */
    struct kvMethodCache* cache;     /* 64 buckets of found methods, or null */
};
KV__LAYOUT32(sizeof(struct kvClassRecord) == 52);
KV__LAYOUT32(offsetof(struct kvClassRecord, name) == 2);
KV__LAYOUT32(offsetof(struct kvClassRecord, parent) == 24);
KV__LAYOUT32(offsetof(struct kvClassRecord, methodTable) == 28);
KV__LAYOUT32(offsetof(struct kvClassRecord, classMethodTable) == 32);
KV__LAYOUT32(offsetof(struct kvClassRecord, instanceSize) == 36);
KV__LAYOUT32(offsetof(struct kvClassRecord, dataOffset) == 38);
KV__LAYOUT32(offsetof(struct kvClassRecord, library) == 40);
KV__LAYOUT32(offsetof(struct kvClassRecord, cacheCount) == 44);
KV__LAYOUT32(offsetof(struct kvClassRecord, cache) == 48);

/* Object flags owned by the kernel. */
enum {
    KV_OBJ_HAS_EVENTS = 0x0010,     /* at least one notification event exists */
    KV_OBJ_SILENT = 0x0040,         /* firing does nothing */
    KV_OBJ_NEEDS_CLEANING = 0x0100, /* a subscription was deleted during a firing */
    KV_OBJ_FORWARDER = 0x2000,      /* notification operations act on "getForward" */
    KV_OBJ_PERSISTENT = 0x0001      /* a persistent property */
};

/* An object: a header naming its class and owning one instance data block.
 * Each class of the chain owns the bytes from its dataOffset on; the root
 * class owns the first 2, so a slice has no particular alignment and classes
 * declare their instance data inside #pragma pack(push, 1) ... pack(pop). */
struct kvObjectHeader {
    uint16_t flags;         /* KV_OBJ_* bits and class-owned bits */
    void* data;             /* instance data block, null when the chain adds none */
    kvClass cls;            /* the object's class */
    uint16_t ownDataOffset; /* the class's dataOffset at creation */
    struct kvEvent* events; /* notification events, null when none */
};
KV__LAYOUT32(sizeof(struct kvObjectHeader) == 20);
KV__LAYOUT32(offsetof(struct kvObjectHeader, data) == 4);
KV__LAYOUT32(offsetof(struct kvObjectHeader, cls) == 8);
KV__LAYOUT32(offsetof(struct kvObjectHeader, ownDataOffset) == 12);
KV__LAYOUT32(offsetof(struct kvObjectHeader, events) == 16);

/* The name of a class, read from its handle. */
static inline const char* kvClassName(kvClass cls) {
    return cls ? cls->name : 0;
}

/* ---- class table ---- */
KV_API kvClass kvAddClass(const char* name, const char* parentName, uint16_t instanceSize,
                          kvArg reserved, kvMethodTable* methodTable,
                          kvMethodTable* classMethodTable);
KV_API kvClass kvFindClass(const char* name);
KV_API kvClass kvRegisterClass(const char* name);
KV_API void kvCloseClasses(void);
KV_API kvMethodRecord* kvFindMethod(kvClass* foundClassOut, kvClass cls, const char* name,
                                    int classMethods);
/* Number of classes in the class table and the class at `index` (null when
 * out of range), for browsers and dumps. */
KV_API size_t kvGetClassCount(void);
KV_API kvClass kvGetClassAt(size_t index);
KV_API void kvPrintHierarchy(size_t index);

/* ---- sends (the argument-list forms) ---- */
KV_API kvResult kvSendMethNA(kvObject* errSlot, kvObject obj, const char* name, const kvArgs* args);
KV_API kvResult kvSendParentMethNA(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                   const kvArgs* args);
KV_API kvResult kvSendClMethNA(kvObject* errSlot, kvClass cls, const char* name,
                               const kvArgs* args);
KV_API kvResult kvSendClParentMethNA(kvObject* errSlot, kvClass cls, const char* name,
                                     const kvArgs* args);

/* ---- objects ---- */
KV_API kvObject kvAllocObject(void);
KV_API kvResult kvFreeObject(kvObject obj);
KV_API kvObject kvNewObjectNA(kvObject* errSlot, const char* className, const kvArgs* args);
KV_API kvResult kvDelObjectNA(kvObject* errSlot, kvObject obj, const kvArgs* args);
KV_API void* hRealloc(void* block, kvArg unused, size_t size);
KV_API char* utilSetString(char** slot, const char* text);

/* ---- notifications ---- */
KV_API kvResult kvAddNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                                  kvObject subscriber, const char* methodName, int16_t priority);
KV_API kvResult kvDeleteNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                                     kvObject subscriber, const char* methodName);
/* `args` is the whole list: notifier, event name, then the firing's own slots. */
KV_API void kvFireNotificationNA(kvObject* errSlot, const kvArgs* args);
KV_API kvResult kvFireNotificationTermNA(kvObject* errSlot, const kvArgs* args);
KV_API void kvClearNotifications(kvObject obj);
KV_API void kvCleanObject(kvObject obj);
KV_API kvObject kvResolveForwards(kvObject obj);

/* ---- errors without an object ---- */
KV_API kvObject kvMakeErrorNA(int32_t number, const kvArgs* args);

/* ---- lifecycle, parameters, debugging ---- */
KV_API kvResult kvInitialize(void);
KV_API kvResult kvTerminate(void);
KV_API kvClass kvCoreInitialize(void);
KV_API void kvCoreTerminate(void);
KV_API kvModule kvGetKOVAInstance(void);
KV_API int32_t kvGetParam(const int32_t* list, int16_t id, int32_t defaultValue);
KV_API int32_t kvSetParam(int32_t* list, int16_t id, int32_t value);
KV_API int kvDebugShouldMethodBreak(kvObject obj, const char* methodName, const char* className);
KV_API void kvClassSetBreak(kvClass cls);
KV_API void kvClassClearBreak(kvClass cls);
KV_API void kvObjectSetBreak(kvObject obj);
KV_API void kvObjectClearBreak(kvObject obj);
KV_API void kvMethodSetBreak(kvClass cls, const char* methodName);
KV_API void kvMethodClearBreak(kvClass cls, const char* methodName);

/* ---- the plain forms, exported for C and foreign callers ----
 * Each takes the number of trailing slots, then the slots themselves, every one
 * passed as a kvArg. C callers use the macros below, which count and convert. */
#ifndef __cplusplus
KV_API kvResult kvSendMeth(kvObject* errSlot, kvObject obj, const char* name, size_t argc, ...);
KV_API kvResult kvSendParentMeth(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                 size_t argc, ...);
KV_API kvResult kvSendClMeth(kvObject* errSlot, kvClass cls, const char* name, size_t argc, ...);
KV_API kvResult kvSendClParentMeth(kvObject* errSlot, kvClass cls, const char* name, size_t argc,
                                   ...);
KV_API kvObject kvNewObject(kvObject* errSlot, const char* className, size_t argc, ...);
KV_API kvResult kvDelObject(kvObject* errSlot, kvObject obj, size_t argc, ...);
KV_API void kvFireNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                               size_t argc, ...);
KV_API kvResult kvFireNotificationTerm(kvObject* errSlot, kvObject notifier, const char* eventName,
                                       size_t argc, ...);
KV_API kvObject kvMakeError(int32_t number, size_t argc, ...);
#endif

#ifdef __cplusplus
} /* extern "C" */
#endif

/* A method procedure, defined with its exported name written once:
 *   KV_METHOD(IntProp, storeData) { ... uses errSlot, self, instData, args ... }
 * Every procedure asks kvDebugShouldMethodBreak on entry. */
#if defined(__GNUC__) && (defined(__i386__) || defined(__x86_64__))
#define KV_DEBUG_TRAP() __asm__ volatile("int3")
#elif defined(_MSC_VER)
#define KV_DEBUG_TRAP() __debugbreak()
#else
#define KV_DEBUG_TRAP() ((void)0)
#endif

#define KV__BREAK_CHECK(obj, cls, meth)                                                            \
    do {                                                                                           \
        if (kvDebugShouldMethodBreak((obj), #meth, #cls)) KV_DEBUG_TRAP();                         \
    } while (0)

#define KV_METHOD(cls, meth)                                                                       \
    static kvResult cls##meth##_body(kvObject* errSlot, kvObject self, void* instData,             \
                                     const kvArgs* args);                                          \
    KV_EXTERN_C KV_EXPORT kvResult cls##meth##_(kvObject* errSlot, kvObject self, void* instData,  \
                                                const kvArgs* args);                               \
    KV_EXTERN_C KV_EXPORT kvResult cls##meth##_(kvObject* errSlot, kvObject self, void* instData,  \
                                                const kvArgs* args) {                              \
        KV__BREAK_CHECK(self, cls, meth);                                                          \
        return cls##meth##_body(errSlot, self, instData, args);                                    \
    }                                                                                              \
    static kvResult cls##meth##_body(kvObject* errSlot, kvObject self, void* instData,             \
                                     const kvArgs* args)

/* A method flagged KV_METHOD_NO_INSTDATA. */
#define KV_METHOD_NO_DATA(cls, meth)                                                               \
    static kvResult cls##meth##_body(kvObject* errSlot, kvObject self, const kvArgs* args);        \
    KV_EXTERN_C KV_EXPORT kvResult cls##meth##_(kvObject* errSlot, kvObject self,                  \
                                                const kvArgs* args);                               \
    KV_EXTERN_C KV_EXPORT kvResult cls##meth##_(kvObject* errSlot, kvObject self,                  \
                                                const kvArgs* args) {                              \
        KV__BREAK_CHECK(self, cls, meth);                                                          \
        return cls##meth##_body(errSlot, self, args);                                              \
    }                                                                                              \
    static kvResult cls##meth##_body(kvObject* errSlot, kvObject self, const kvArgs* args)

/* A class method. */
#define KV_CLASS_METHOD(cls, meth)                                                                 \
    static kvResult cls##meth##C_body(kvObject* errSlot, kvClass self, const kvArgs* args);        \
    KV_EXTERN_C KV_EXPORT kvResult cls##meth##C_(kvObject* errSlot, kvClass self,                  \
                                                 const kvArgs* args);                              \
    KV_EXTERN_C KV_EXPORT kvResult cls##meth##C_(kvObject* errSlot, kvClass self,                  \
                                                 const kvArgs* args) {                             \
        KV__BREAK_CHECK(0, cls, meth);                                                             \
        return cls##meth##C_body(errSlot, self, args);                                             \
    }                                                                                              \
    static kvResult cls##meth##C_body(kvObject* errSlot, kvClass self, const kvArgs* args)

/* A class's registration procedure, "register" + class name. */
#define KV_REGISTER(cls)                                                                           \
    KV_EXTERN_C KV_EXPORT kvClass register##cls(void);                                             \
    KV_EXTERN_C KV_EXPORT kvClass register##cls(void)

#ifndef __cplusplus
/* ---- C: the plain forms as macros that count and convert their slots ----
 * Each trailing argument becomes one kvArg; a floating value does not compile. */
#define KV__SLOT(x)                                                                                \
    ((kvArg)(x) + 0 * (kvArg)sizeof(struct {                                                       \
                      int floats_travel_by_pointer : _Generic((x), float                           \
                                                              : -1, double                         \
                                                              : -1, long double                    \
                                                              : -1, default : 1);                  \
                  }))
#define KV__N(_1, _2, _3, _4, _5, _6, _7, _8, _9, _10, _11, _12, _13, _14, _15, _16, n, ...) n
#define KV_NARGS(...)                                                                              \
    KV__N(__VA_ARGS__ __VA_OPT__(, ) 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0)
#define KV__CAT(a, b) KV__CAT2(a, b)
#define KV__CAT2(a, b) a##b
#define KV__S0()
#define KV__S1(a) , KV__SLOT(a)
#define KV__S2(a, ...) , KV__SLOT(a) KV__S1(__VA_ARGS__)
#define KV__S3(a, ...) , KV__SLOT(a) KV__S2(__VA_ARGS__)
#define KV__S4(a, ...) , KV__SLOT(a) KV__S3(__VA_ARGS__)
#define KV__S5(a, ...) , KV__SLOT(a) KV__S4(__VA_ARGS__)
#define KV__S6(a, ...) , KV__SLOT(a) KV__S5(__VA_ARGS__)
#define KV__S7(a, ...) , KV__SLOT(a) KV__S6(__VA_ARGS__)
#define KV__S8(a, ...) , KV__SLOT(a) KV__S7(__VA_ARGS__)
#define KV__S9(a, ...) , KV__SLOT(a) KV__S8(__VA_ARGS__)
#define KV__S10(a, ...) , KV__SLOT(a) KV__S9(__VA_ARGS__)
#define KV__S11(a, ...) , KV__SLOT(a) KV__S10(__VA_ARGS__)
#define KV__S12(a, ...) , KV__SLOT(a) KV__S11(__VA_ARGS__)
#define KV__S13(a, ...) , KV__SLOT(a) KV__S12(__VA_ARGS__)
#define KV__S14(a, ...) , KV__SLOT(a) KV__S13(__VA_ARGS__)
#define KV__S15(a, ...) , KV__SLOT(a) KV__S14(__VA_ARGS__)
#define KV__S16(a, ...) , KV__SLOT(a) KV__S15(__VA_ARGS__)
/* ", n, slot1, slot2, ..." for the trailing arguments of a plain form */
#define KV__SLOTS(...) , KV_NARGS(__VA_ARGS__) KV__CAT(KV__S, KV_NARGS(__VA_ARGS__))(__VA_ARGS__)

/* An empty trailing list is allowed: kvSendMeth(&err, obj, "print"). */
#define kvSendMeth(errSlot, obj, name, ...) (kvSendMeth)(errSlot, obj, name KV__SLOTS(__VA_ARGS__))
#define kvSendParentMeth(errSlot, cls, obj, name, ...)                                             \
    (kvSendParentMeth)(errSlot, cls, obj, name KV__SLOTS(__VA_ARGS__))
#define kvSendClMeth(errSlot, cls, name, ...)                                                      \
    (kvSendClMeth)(errSlot, cls, name KV__SLOTS(__VA_ARGS__))
#define kvSendClParentMeth(errSlot, cls, name, ...)                                                \
    (kvSendClParentMeth)(errSlot, cls, name KV__SLOTS(__VA_ARGS__))
#define kvNewObject(errSlot, className, ...)                                                       \
    (kvNewObject)(errSlot, className KV__SLOTS(__VA_ARGS__))
#define kvDelObject(errSlot, obj, ...) (kvDelObject)(errSlot, obj KV__SLOTS(__VA_ARGS__))
#define kvFireNotification(errSlot, notifier, eventName, ...)                                      \
    (kvFireNotification)(errSlot, notifier, eventName KV__SLOTS(__VA_ARGS__))
#define kvFireNotificationTerm(errSlot, notifier, eventName, ...)                                  \
    (kvFireNotificationTerm)(errSlot, notifier, eventName KV__SLOTS(__VA_ARGS__))
#define kvMakeError(number, ...) (kvMakeError)(number KV__SLOTS(__VA_ARGS__))
#endif /* !__cplusplus */

#ifdef __cplusplus
#include "kova/kernel.hpp"
#endif

#endif /* KOVA_KERNEL_H */
