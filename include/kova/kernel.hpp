/// @file
/// The plain send, creation, deletion and firing forms for C++: variadic
/// templates that turn each argument into one slot and call the argument-list
/// form, so a send costs no counting and no va_list. Included by kernel.h.
#ifndef KOVA_KERNEL_HPP
#define KOVA_KERNEL_HPP

#include <array>
#include <cstring>
#include <type_traits>

namespace kova {

/// One argument as a slot: integers, enumerations, pointers and objects.
template <typename T> constexpr kvArg toArg(T value) {
    static_assert(!std::is_floating_point_v<T>,
                  "floating values travel by pointer: pass the address of the value");
    if constexpr (std::is_null_pointer_v<T>) {
        return 0;
    } else if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<kvArg>(value);
    } else {
        static_assert(std::is_integral_v<T> || std::is_enum_v<T>,
                      "an argument slot holds an integer, a pointer or an object");
        return static_cast<kvArg>(value);
    }
}

/// A list of slots built on the caller's stack.
template <typename... A> struct ArgList {
    std::array<kvArg, sizeof...(A) + 1> slots; ///< one spare so an empty list has storage
    kvArgs list;                               ///< the list over `slots`
    /// Converts each argument with toArg.
    explicit ArgList(A... a) : slots{toArg(a)..., 0}, list{slots.data(), sizeof...(A)} {}
    ArgList(const ArgList&) = delete;
    ArgList& operator=(const ArgList&) = delete;
    /// The list, for the argument-list forms of the sends.
    const kvArgs* get() const { return &list; }
};

/// A method table entry; `proc` is filled in when the class is added.
constexpr kvMethodRecord method(const char* name, uint16_t argCount, uint16_t flags = 0) {
    kvMethodRecord record{};
    for (size_t i = 0; i < KV_METHOD_NAME_SIZE && name[i]; ++i)
        record.name[i] = name[i];
    record.flags = flags;
    record.argCount = argCount;
    return record;
}

/// True when the records are in strictly ascending byte order of their names,
/// which the binary search of method lookup depends on.
template <size_t N> constexpr bool isSortedByName(const std::array<kvMethodRecord, N>& records) {
    for (size_t i = 1; i < N; ++i) {
        const kvMethodRecord& a = records[i - 1];
        const kvMethodRecord& b = records[i];
        for (size_t k = 0; k < KV_METHOD_NAME_SIZE; ++k) {
            const auto ca = static_cast<unsigned char>(a.name[k]);
            const auto cb = static_cast<unsigned char>(b.name[k]);
            if (ca < cb) break;
            if (ca > cb || k == KV_METHOD_NAME_SIZE - 1 || ca == 0) return false;
        }
    }
    return true;
}

/// A method table is written in place when its class is added (the procedures
/// are filled in), so each table is a writable copy of a constexpr list whose
/// order the build checks.
template <size_t N> struct MethodTable {
    std::array<kvMethodRecord, N> records; ///< the records, procedures filled in by kvAddClass
    kvMethodTable table;                   ///< the table header over `records`
    /// Copies the checked list.
    constexpr explicit MethodTable(const std::array<kvMethodRecord, N>& list)
        : records(list), table{static_cast<uint16_t>(N), N ? records.data() : nullptr} {}
    MethodTable(const MethodTable&) = delete;
    MethodTable& operator=(const MethodTable&) = delete;
    /// The table to give kvAddClass.
    kvMethodTable* get() { return &table; }
};

} // namespace kova

/// Declares `var`, a writable method table for the listed records, and proves at
/// build time that they are sorted:
///   KV_METHOD_TABLE(objectMethods, kova::method("isA", 1), kova::method("print", 0));
#define KV_METHOD_TABLE(var, ...)                                                                  \
    static constexpr auto var##List = std::to_array<kvMethodRecord>({__VA_ARGS__});                \
    static_assert(kova::isSortedByName(var##List), "method table of " #var " is not sorted");      \
    static constinit kova::MethodTable<var##List.size()> var {                                     \
        var##List                                                                                  \
    }

/// A class with no class methods passes an empty table.
#define KV_EMPTY_METHOD_TABLE(var)                                                                 \
    static constinit kova::MethodTable<0> var {                                                    \
        std::array<kvMethodRecord, 0> {}                                                           \
    }

/// Sends `name` to `obj` with the arguments as slots (see kvSendMethNA).
template <typename... A>
inline kvResult kvSendMeth(kvObject* errSlot, kvObject obj, const char* name, A... a) {
    const kova::ArgList<A...> list(a...);
    return kvSendMethNA(errSlot, obj, name, list.get());
}

/// Sends `name` from above `cls` with the arguments as slots (see kvSendParentMethNA).
template <typename... A>
inline kvResult kvSendParentMeth(kvObject* errSlot, kvClass cls, kvObject obj, const char* name,
                                 A... a) {
    const kova::ArgList<A...> list(a...);
    return kvSendParentMethNA(errSlot, cls, obj, name, list.get());
}

/// Sends the class method `name` with the arguments as slots (see kvSendClMethNA).
template <typename... A>
inline kvResult kvSendClMeth(kvObject* errSlot, kvClass cls, const char* name, A... a) {
    const kova::ArgList<A...> list(a...);
    return kvSendClMethNA(errSlot, cls, name, list.get());
}

/// Sends the class method from above `cls` with the arguments as slots.
template <typename... A>
inline kvResult kvSendClParentMeth(kvObject* errSlot, kvClass cls, const char* name, A... a) {
    const kova::ArgList<A...> list(a...);
    return kvSendClParentMethNA(errSlot, cls, name, list.get());
}

/// Makes an object of `className` with the arguments as slots (see kvNewObjectNA).
template <typename... A>
inline kvObject kvNewObject(kvObject* errSlot, const char* className, A... a) {
    const kova::ArgList<A...> list(a...);
    return kvNewObjectNA(errSlot, className, list.get());
}

/// Deletes `obj`, sending "objTerm" with the arguments as slots (see kvDelObjectNA).
template <typename... A> inline kvResult kvDelObject(kvObject* errSlot, kvObject obj, A... a) {
    const kova::ArgList<A...> list(a...);
    return kvDelObjectNA(errSlot, obj, list.get());
}

/// Fires `eventName` of `notifier` with the arguments as slots (see kvFireNotificationNA).
template <typename... A>
inline void kvFireNotification(kvObject* errSlot, kvObject notifier, const char* eventName,
                               A... a) {
    const kova::ArgList<kvObject, const char*, A...> list(notifier, eventName, a...);
    kvFireNotificationNA(errSlot, list.get());
}

/// Fires with a veto (see kvFireNotificationTermNA), the arguments as slots.
template <typename... A>
inline kvResult kvFireNotificationTerm(kvObject* errSlot, kvObject notifier, const char* eventName,
                                       A... a) {
    const kova::ArgList<kvObject, const char*, A...> list(notifier, eventName, a...);
    return kvFireNotificationTermNA(errSlot, list.get());
}

/// Makes an error object with the message's values as slots (see kvMakeErrorNA).
template <typename... A> inline kvObject kvMakeError(int32_t number, A... a) {
    const kova::ArgList<A...> list(a...);
    return kvMakeErrorNA(number, list.get());
}

#endif // KOVA_KERNEL_HPP
