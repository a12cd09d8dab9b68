/** @file
 * The object kernel: classes registered at run time, methods sent by name,
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
/** Marks a function the kernel library exports (and its users import). */
#define KV_API __attribute__((visibility("default")))
/** Marks a name a module exports for the kernel to find: method procedures,
 * "register<Class>", the resource table. Exported, yet the module's own
 * references bind to its own definition, as a DLL's always do, so that no
 * other module exporting the same name can stand in for it. */
#define KV_EXPORT __attribute__((visibility("protected")))
#endif

#ifdef __cplusplus
#define KV_EXTERN_C extern "C"
extern "C" {
#else
/** C linkage for an exported procedure defined in a C++ file. */
#define KV_EXTERN_C
#endif

/** Records shared with class libraries and files have exact layouts; the build
 * checks them. KV__LAYOUT32 checks a layout of the 32-bit build, where
 * pointers are 4 bytes wide. */
#ifdef __cplusplus
#define KV__STATIC_ASSERT(condition) static_assert(condition, #condition)
#else
#define KV__STATIC_ASSERT(condition) _Static_assert(condition, #condition)
#endif
#define KV__LAYOUT32(condition) KV__STATIC_ASSERT(sizeof(void*) != 4 || (condition))

/** One argument slot and one method result: pointer-sized, so an integer, a
 * pointer or an object travels in one slot. Floating values travel by pointer. */
typedef intptr_t kvArg;
/** A method's result: pointer-sized, like an argument slot. */
typedef intptr_t kvResult;

/** An object: a handle to its header (struct kvObjectHeader). */
typedef struct kvObjectHeader* kvObject;
/** A class: a handle to its record in the class table (struct kvClassRecord). */
typedef struct kvClassRecord* kvClass;
/** A loaded module (class library, the kernel library itself). */
typedef void* kvModule;

/** An argument list: `count` slots from `slot`. Reading past the end gives 0;
 * the rest of a list after its first k slots is a view, not a copy; a list is
 * handed on as one slot holding a `const kvArgs*`. */
typedef struct kvArgs {
    const kvArg* slot; /**< the first slot, or null for an empty list */
    size_t count;      /**< number of slots */
} kvArgs;

/** The slot at `index`, or 0 when the list is null or shorter. */
static inline kvArg kvArgAt(const kvArgs* args, size_t index) {
    return (args && index < args->count) ? args->slot[index] : 0;
}

/** The list without its first `skip` slots (empty when it has fewer). */
static inline kvArgs kvArgsAfter(const kvArgs* args, size_t skip) {
    kvArgs rest = {0, 0};
    if (args && skip < args->count) {
        rest.slot = args->slot + skip;
        rest.count = args->count - skip;
    }
    return rest;
}

/** Method procedures. `errSlot` is the caller's error cell (may be null). */
typedef void (*kvProc)(void);
/** An instance method's procedure: the caller's error slot, the receiver, the
 * slice of its instance data that belongs to the defining class, the arguments. */
typedef kvResult (*kvInstanceProc)(kvObject* errSlot, kvObject self, void* instData,
                                   const kvArgs* args);
/** An instance method flagged KV_METHOD_NO_INSTDATA: no instance data. */
typedef kvResult (*kvNoDataProc)(kvObject* errSlot, kvObject self, const kvArgs* args);
/** A class method's procedure: the error slot, the class, the arguments. */
typedef kvResult (*kvClassProc)(kvObject* errSlot, kvClass cls, const kvArgs* args);

enum {
    KV_METHOD_NAME_SIZE = 32, /**< method names are compared on at most this many bytes */
    KV_CLASS_NAME_SIZE = 20,  /**< class names hold at most 19 characters */
    KV_EVENT_NAME_SIZE = 26   /**< event names hold at most 25 characters */
};

/** Method record flags. */
enum {
    KV_METHOD_NO_INSTDATA = 0x0001, /**< procedure takes (errSlot, self, args) */
    KV_METHOD_BREAK = 0x0002        /**< breakpoint switch, read by debugging aids */
};

/** One method of a class's table. Tables are sorted by name in byte order. */
typedef struct kvMethodRecord {
    char name[KV_METHOD_NAME_SIZE]; /**< method name, NUL-padded */
    uint16_t flags;                 /**< KV_METHOD_* bits */
    uint16_t argCount;              /**< named arguments; informational only */
    kvProc proc;                    /**< filled in when the class is added */
} kvMethodRecord;
KV__LAYOUT32(sizeof(kvMethodRecord) == 40);
KV__LAYOUT32(offsetof(kvMethodRecord, flags) == 32);
KV__LAYOUT32(offsetof(kvMethodRecord, argCount) == 34);
KV__LAYOUT32(offsetof(kvMethodRecord, proc) == 36);

#pragma pack(push, 1)
/** A class's method table: a count followed, unpadded, by the records. */
typedef struct kvMethodTable {
    uint16_t count;          /**< number of records */
    kvMethodRecord* records; /**< `count` records sorted by name */
} kvMethodTable;
#pragma pack(pop)
KV__LAYOUT32(sizeof(kvMethodTable) == 6);
KV__LAYOUT32(offsetof(kvMethodTable, records) == 2);

struct kvMethodCache;
struct kvEvent;

/** A class: one record of the process-wide class table. The name directly
 * follows the flags word, so a handle gives its name without a lookup. */
struct kvClassRecord {
    uint16_t flags;                  /**< free for the class's own per-class state */
    char name[KV_CLASS_NAME_SIZE];   /**< class name */
    kvClass parent;                  /**< parent class, null for the root class Object */
    kvMethodTable* methodTable;      /**< instance methods */
    kvMethodTable* classMethodTable; /**< class methods */
    uint16_t instanceSize;           /**< bytes of instance data this class adds */
    uint16_t dataOffset;             /**< where this class's data starts in an object's block */
    kvModule library;                /**< class library holding the procedures */
    uint32_t cacheCount;             /**< method cache entries ever allocated */
    struct kvMethodCache* cache;     /**< 64 buckets of found methods, or null */
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

/** Object flags owned by the kernel. */
enum {
    KV_OBJ_HAS_EVENTS = 0x0010,     /**< at least one notification event exists */
    KV_OBJ_SILENT = 0x0040,         /**< firing does nothing */
    KV_OBJ_NEEDS_CLEANING = 0x0100, /**< a subscription was deleted during a firing */
    KV_OBJ_FORWARDER = 0x2000,      /**< notification operations act on "getForward" */
    KV_OBJ_PERSISTENT = 0x0001      /**< a persistent property */
};

/** An object: a header naming its class and owning one instance data block.
 * Each class of the chain owns the bytes from its dataOffset on; the root
 * class owns the first 2, so a slice has no particular alignment and classes
 * declare their instance data inside \#pragma pack(push, 1) ... pack(pop). */
struct kvObjectHeader {
    uint16_t flags;         /**< KV_OBJ_* bits and class-owned bits */
    void* data;             /**< instance data block, null when the chain adds none */
    kvClass cls;            /**< the object's class */
    uint16_t ownDataOffset; /**< the class's dataOffset at creation */
    struct kvEvent* events; /**< notification events, null when none */
};
KV__LAYOUT32(sizeof(struct kvObjectHeader) == 20);
KV__LAYOUT32(offsetof(struct kvObjectHeader, data) == 4);
KV__LAYOUT32(offsetof(struct kvObjectHeader, cls) == 8);
KV__LAYOUT32(offsetof(struct kvObjectHeader, ownDataOffset) == 12);
KV__LAYOUT32(offsetof(struct kvObjectHeader, events) == 16);

/** The name of a class, read from its handle. */
static inline const char* kvClassName(kvClass cls) {
    return cls ? cls->name : 0;
}

/* ---- class table ---- */
/** Adds a class to the class table, binding the procedures of its method
 * tables ("<Class><method>_" and "<Class><method>C_") from the class's own
 * library, and sends it "classInit". Called by a class's register procedure.
 * @param name class name (1 to 19 characters)
 * @param parentName name of the parent class, already registered (null for none)
 * @param instanceSize bytes of instance data the class adds
 * @param reserved ignored; pass 0
 * @param methodTable instance methods sorted by name; written in place
 * @param classMethodTable class methods sorted by name; written in place
 * @return the new class; the existing class unchanged when the name is taken;
 *         null after a kernel message when the library or a procedure is missing */
KV_API kvClass kvAddClass(const char* name, const char* parentName, uint16_t instanceSize,
                          kvArg reserved, kvMethodTable* methodTable,
                          kvMethodTable* classMethodTable);
/** The class of that name in the class table (exact comparison; null means
 * "Object"), or null when it is not registered. */
KV_API kvClass kvFindClass(const char* name);
/** The class of that name, registered first from the library the class
 * location table names (else the kernel's own) when it is not in the class
 * table yet; null, after a kernel message, when it cannot be found. */
KV_API kvClass kvRegisterClass(const char* name);
/** Ends every class, newest first: each gets "classTerm", its library
 * reference is released, and the class table is emptied. */
KV_API void kvCloseClasses(void);
/** Finds the method a send of `name` to class `cls` would run, searching the
 * class and then its ancestors.
 * @param foundClassOut receives the class whose table holds the method (may be null)
 * @param cls where the search starts
 * @param name the method name
 * @param classMethods non-zero to search the class-method tables (without the cache)
 * @return the method record, or null when no class of the chain has it */
KV_API kvMethodRecord* kvFindMethod(kvClass* foundClassOut, kvClass cls, const char* name,
                                    int classMethods);
/** Number of classes in the class table and the class at `index` (null when
 * out of range), for browsers and dumps. */
KV_API size_t kvGetClassCount(void);
/** The class at `index` of the class table, or null when out of range. */
KV_API kvClass kvGetClassAt(size_t index);
/** Appends the subtree of the class at `index` of the class table, with its
 * methods, to the dump file "classdump.txt" in the current directory. */
KV_API void kvPrintHierarchy(size_t index);

/* ---- sends (the argument-list forms) ---- */
/** Sends method `name` to `obj` with an argument list: looks it up in the
 * object's class and its ancestors and runs it.
 * @param errSlot the caller's error slot, receives errors (may be null)
 * @param obj the receiver; a null receiver is reported in a kernel message
 * @param name the method name
 * @param args the arguments (may be null for none)
 * @return the method's result; an unknown method leaves error 3427 and answers 0 */
KV_API kvResult kvSendMethNA(kvObject* errSlot, kvObject obj, const char* name, const kvArgs* args);
/** Sends `name` to `obj`, starting the search in the parent of `cls` (the
 * class of the calling method), so an override can call what it overrides.
 * Answers -1 when `cls` has no parent. */
KV_API kvResult kvSendParentMethNA(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                   const kvArgs* args);
/** Sends the class method `name` to class `cls` with an argument list. */
KV_API kvResult kvSendClMethNA(kvObject* errSlot, kvClass cls, const char* name,
                               const kvArgs* args);
/** Sends the class method `name`, starting the search in the parent of `cls`;
 * answers 0 when `cls` has no parent. */
KV_API kvResult kvSendClParentMethNA(kvObject* errSlot, kvClass cls, const char* name,
                                     const kvArgs* args);

/* ---- objects ---- */
/** Allocates an empty object header (no class, no data); null when memory
 * is short. Used by the root class's "objectCreate". */
KV_API kvObject kvAllocObject(void);
/** Frees an object header and its instance data block, without sending
 * anything. */
KV_API kvResult kvFreeObject(kvObject obj);
/** Makes an object of class `className` (registered on demand): allocates
 * it and its instance data, then sends it "objInit" with `args`.
 * @return the object, or null with the reason in `*errSlot` or a kernel message */
KV_API kvObject kvNewObjectNA(kvObject* errSlot, const char* className, const kvArgs* args);
/** Deletes `obj`: sends it "objTerm" with `args`, then frees it. */
KV_API kvResult kvDelObjectNA(kvObject* errSlot, kvObject obj, const kvArgs* args);
/** Resizes a block of the library's allocator (a null block allocates);
 * `unused` is ignored. Answers the block, or null with the old one kept. */
KV_API void* hRealloc(void* block, kvArg unused, size_t size);
/** Replaces the heap string held in `*slot` by a heap copy of `text` and
 * answers the copy. A null `text` frees the old string, clears the slot and
 * answers null; a failed allocation or a null `slot` answers null and keeps
 * the old string. */
KV_API char* utilSetString(char** slot, const char* text);

/* ---- notifications ---- */
/** Subscribes `subscriber` to event `eventName` of `notifier`: each firing
 * sends it `methodName` with the notifier, the event name and the firing's
 * slots. Subscribers are called in order of priority.
 * @return 0; a duplicate subscription leaves error 3467 */
KV_API kvResult kvAddNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                                  kvObject subscriber, const char* methodName, int16_t priority);
/** Removes a subscription made by kvAddNotification; a missing one leaves an
 * error. During a firing the entry is only marked and removed afterwards. */
KV_API kvResult kvDeleteNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                                     kvObject subscriber, const char* methodName);
/** `args` is the whole list: notifier, event name, then the firing's own slots. */
KV_API void kvFireNotificationNA(kvObject* errSlot, const kvArgs* args);
/** Fires like kvFireNotificationNA, but stops at the first subscriber that
 * answers non-zero and answers that value (a veto); 0 when all answered 0. */
KV_API kvResult kvFireNotificationTermNA(kvObject* errSlot, const kvArgs* args);
/** Removes every event and subscription of `obj`. */
KV_API void kvClearNotifications(kvObject obj);
/** Removes the subscriptions of `obj` that were deleted during a firing. */
KV_API void kvCleanObject(kvObject obj);
/** The object a forwarder passes notification operations to, following
 * "getForward" from forwarder to forwarder; `obj` itself when it is none. */
KV_API kvObject kvResolveForwards(kvObject obj);

/* ---- errors without an object ---- */
/** Makes a new error object (class KOVAErr, source "kvMakeError") with error
 * number `number` and the message's values in `args`; the caller keeps it. */
KV_API kvObject kvMakeErrorNA(int32_t number, const kvArgs* args);

/* ---- lifecycle, parameters, debugging ---- */
/** Starts the kernel: counts the uses, and the first use starts the core
 * (kvCoreInitialize). Answers 0. Every use ends with kvTerminate. */
KV_API kvResult kvInitialize(void);
/** Ends one use of the kernel; the last stops the core (kvCoreTerminate).
 * Answers 0. */
KV_API kvResult kvTerminate(void);
/** Starts the core: fills the class location table, the component tables,
 * and registers the error classes. Answers the class BaseError. */
KV_API kvClass kvCoreInitialize(void);
/** Stops the core: deletes the remaining errors, closes every class (newest
 * first) and frees the tables. */
KV_API void kvCoreTerminate(void);
/** The kernel library's own module. */
KV_API kvModule kvGetKOVAInstance(void);
/** Copies the full path of the file a loaded module came from into `buffer`
 * (at most `size` - 1 characters, always terminated when `size` > 0); a null
 * module names the running program, so that a host can find the files it
 * ships beside itself. Answers the length of the whole path, which is `size`
 * or more when it did not fit, or 0 when the module's file is unknown or the
 * buffer is null. */
KV_API uint32_t kvGetModuleFileName(kvModule module, char* buffer, uint32_t size);
/** In a list of (id, value) pairs ended by id -1, the value paired with `id`
 * among the first 32 pairs; `defaultValue` when the list is null or has none. */
KV_API int32_t kvGetParam(const int32_t* list, int16_t id, int32_t defaultValue);
/** Replaces the value paired with `id` in a list of (id, value) pairs and
 * answers the old value; -1 when the list is null or has no such id. */
KV_API int32_t kvSetParam(int32_t* list, int16_t id, int32_t value);
/** Asked by every method procedure on entry whether to stop in a debugger;
 * answers 0, since no breakpoints are kept. */
KV_API int kvDebugShouldMethodBreak(kvObject obj, const char* methodName, const char* className);
/** Breakpoint switch for debuggers on a class; takes no action. */
KV_API void kvClassSetBreak(kvClass cls);
/** Breakpoint switch for debuggers on a class; takes no action. */
KV_API void kvClassClearBreak(kvClass cls);
/** Breakpoint switch for debuggers on an object; takes no action. */
KV_API void kvObjectSetBreak(kvObject obj);
/** Breakpoint switch for debuggers on an object; takes no action. */
KV_API void kvObjectClearBreak(kvObject obj);
/** Breakpoint switch for debuggers on a method; takes no action. */
KV_API void kvMethodSetBreak(kvClass cls, const char* methodName);
/** Breakpoint switch for debuggers on a method; takes no action. */
KV_API void kvMethodClearBreak(kvClass cls, const char* methodName);

/* ---- the plain forms, exported for C and foreign callers ----
 * Each takes the number of trailing slots, then the slots themselves, every one
 * passed as a kvArg. C callers use the macros below, which count and convert. */
#ifndef __cplusplus
/** kvSendMethNA with `argc` trailing slots (C and foreign callers). */
KV_API kvResult kvSendMeth(kvObject* errSlot, kvObject obj, const char* name, size_t argc, ...);
/** kvSendParentMethNA with `argc` trailing slots. */
KV_API kvResult kvSendParentMeth(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                 size_t argc, ...);
/** kvSendClMethNA with `argc` trailing slots. */
KV_API kvResult kvSendClMeth(kvObject* errSlot, kvClass cls, const char* name, size_t argc, ...);
/** kvSendClParentMethNA with `argc` trailing slots. */
KV_API kvResult kvSendClParentMeth(kvObject* errSlot, kvClass cls, const char* name, size_t argc,
                                   ...);
/** kvNewObjectNA with `argc` trailing slots. */
KV_API kvObject kvNewObject(kvObject* errSlot, const char* className, size_t argc, ...);
/** kvDelObjectNA with `argc` trailing slots. */
KV_API kvResult kvDelObject(kvObject* errSlot, kvObject obj, size_t argc, ...);
/** Fires event `eventName` of `notifier` with `argc` trailing slots. */
KV_API void kvFireNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                               size_t argc, ...);
/** kvFireNotificationTermNA with `argc` trailing slots. */
KV_API kvResult kvFireNotificationTerm(kvObject* errSlot, kvObject notifier, const char* eventName,
                                       size_t argc, ...);
/** kvMakeErrorNA with `argc` trailing slots. */
KV_API kvObject kvMakeError(int32_t number, size_t argc, ...);
#endif

#ifdef __cplusplus
} /* extern "C" */
#endif

#if defined(__GNUC__) && (defined(__i386__) || defined(__x86_64__))
/** Stops in a debugger. */
#define KV_DEBUG_TRAP() __asm__ volatile("int3")
#elif defined(_MSC_VER)
/** Stops in a debugger. */
#define KV_DEBUG_TRAP() __debugbreak()
#else
/** Stops in a debugger (nothing where no trap is known). */
#define KV_DEBUG_TRAP() ((void)0)
#endif

#define KV__BREAK_CHECK(obj, cls, meth)                                                            \
    do {                                                                                           \
        if (kvDebugShouldMethodBreak((obj), #meth, #cls)) KV_DEBUG_TRAP();                         \
    } while (0)

/** A method procedure, defined with its exported name written once:
 *   KV_METHOD(IntProp, storeData) { ... uses errSlot, self, instData, args ... }
 * Every procedure asks kvDebugShouldMethodBreak on entry. */
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

/** A method flagged KV_METHOD_NO_INSTDATA. */
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

/** A class method. */
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

/** A class's registration procedure, "register" + class name. */
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
/** The number of arguments given (0 to 16). */
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
/** ", n, slot1, slot2, ..." for the trailing arguments of a plain form */
#define KV__SLOTS(...) , KV_NARGS(__VA_ARGS__) KV__CAT(KV__S, KV_NARGS(__VA_ARGS__))(__VA_ARGS__)

/** An empty trailing list is allowed: kvSendMeth(&err, obj, "print"). */
#define kvSendMeth(errSlot, obj, name, ...) (kvSendMeth)(errSlot, obj, name KV__SLOTS(__VA_ARGS__))
/** C: kvSendParentMeth with its slots counted and converted. */
#define kvSendParentMeth(errSlot, cls, obj, name, ...)                                             \
    (kvSendParentMeth)(errSlot, cls, obj, name KV__SLOTS(__VA_ARGS__))
/** C: kvSendClMeth with its slots counted and converted. */
#define kvSendClMeth(errSlot, cls, name, ...)                                                      \
    (kvSendClMeth)(errSlot, cls, name KV__SLOTS(__VA_ARGS__))
/** C: kvSendClParentMeth with its slots counted and converted. */
#define kvSendClParentMeth(errSlot, cls, name, ...)                                                \
    (kvSendClParentMeth)(errSlot, cls, name KV__SLOTS(__VA_ARGS__))
/** C: kvNewObject with its slots counted and converted. */
#define kvNewObject(errSlot, className, ...)                                                       \
    (kvNewObject)(errSlot, className KV__SLOTS(__VA_ARGS__))
/** C: kvDelObject with its slots counted and converted. */
#define kvDelObject(errSlot, obj, ...) (kvDelObject)(errSlot, obj KV__SLOTS(__VA_ARGS__))
/** C: kvFireNotification with its slots counted and converted. */
#define kvFireNotification(errSlot, notifier, eventName, ...)                                      \
    (kvFireNotification)(errSlot, notifier, eventName KV__SLOTS(__VA_ARGS__))
/** C: kvFireNotificationTerm with its slots counted and converted. */
#define kvFireNotificationTerm(errSlot, notifier, eventName, ...)                                  \
    (kvFireNotificationTerm)(errSlot, notifier, eventName KV__SLOTS(__VA_ARGS__))
/** C: kvMakeError with its slots counted and converted. */
#define kvMakeError(number, ...) (kvMakeError)(number KV__SLOTS(__VA_ARGS__))
#endif /* !__cplusplus */

#ifdef __cplusplus
#include "kova/kernel.hpp"
#endif

#endif /* KOVA_KERNEL_H */
