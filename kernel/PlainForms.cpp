// The plain (trailing-argument) forms of the sends, creation, deletion, firing
// and kvMakeError, exported for C and foreign callers. Each takes the number of
// slots that follow, every one passed as a kvArg, collects them on the stack
// and calls the argument-list form. C++ callers reach the list forms through
// templates instead and never come here.
#include "kova/kernel.h"

#include <cstdarg>

namespace {

constexpr size_t maxPlainSlots = 64;

// Reads `argc` slots (at most 64) from a va_list into `slots`.
kvArgs collect(kvArg* slots, size_t argc, va_list ap) {
    if (argc > maxPlainSlots) argc = maxPlainSlots;
    for (size_t i = 0; i < argc; ++i)
        slots[i] = va_arg(ap, kvArg);
    return kvArgs{slots, argc};
}

} // namespace

#define KV_COLLECT(last)                                                                           \
    kvArg slots[maxPlainSlots + 2];                                                                \
    va_list ap;                                                                                    \
    va_start(ap, last);                                                                            \
    const kvArgs list = collect(slots, argc, ap);                                                  \
    va_end(ap)

extern "C" {

KV_API kvResult kvSendMeth(kvObject* errSlot, kvObject obj, const char* name, size_t argc, ...) {
    KV_COLLECT(argc);
    return kvSendMethNA(errSlot, obj, name, &list);
}

KV_API kvResult kvSendParentMeth(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                 size_t argc, ...) {
    KV_COLLECT(argc);
    return kvSendParentMethNA(errSlot, cls, obj, name, &list);
}

KV_API kvResult kvSendClMeth(kvObject* errSlot, kvClass cls, const char* name, size_t argc, ...) {
    KV_COLLECT(argc);
    return kvSendClMethNA(errSlot, cls, name, &list);
}

KV_API kvResult kvSendClParentMeth(kvObject* errSlot, kvClass cls, const char* name, size_t argc,
                                   ...) {
    KV_COLLECT(argc);
    return kvSendClParentMethNA(errSlot, cls, name, &list);
}

KV_API kvObject kvNewObject(kvObject* errSlot, const char* className, size_t argc, ...) {
    KV_COLLECT(argc);
    return kvNewObjectNA(errSlot, className, &list);
}

KV_API kvResult kvDelObject(kvObject* errSlot, kvObject obj, size_t argc, ...) {
    KV_COLLECT(argc);
    return kvDelObjectNA(errSlot, obj, &list);
}

KV_API kvObject kvMakeError(int32_t number, size_t argc, ...) {
    KV_COLLECT(argc);
    return kvMakeErrorNA(number, &list);
}

// The firing forms put the notifier and the event name in front of the slots.
#define KV_COLLECT_FIRING(last)                                                                    \
    kvArg slots[maxPlainSlots + 2];                                                                \
    slots[0] = reinterpret_cast<kvArg>(notifier);                                                  \
    slots[1] = reinterpret_cast<kvArg>(eventName);                                                 \
    va_list ap;                                                                                    \
    va_start(ap, last);                                                                            \
    const kvArgs list{slots, collect(slots + 2, argc, ap).count + 2};                              \
    va_end(ap)

KV_API void kvFireNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                               size_t argc, ...) {
    KV_COLLECT_FIRING(argc);
    kvFireNotificationNA(errSlot, &list);
}

KV_API kvResult kvFireNotificationTerm(kvObject* errSlot, kvObject notifier, const char* eventName,
                                       size_t argc, ...) {
    KV_COLLECT_FIRING(argc);
    return kvFireNotificationTermNA(errSlot, &list);
}

} // extern "C"
