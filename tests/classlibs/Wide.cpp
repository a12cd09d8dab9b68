// "TESTWIDE.DLL": the class Wide with 260 methods "m000" to "m259", each
// answering its own number, for tests of the method cache at its limits.
#include "kova/kernel.h"

#define WIDE_METHOD(n)                                                                             \
    KV_METHOD(Wide, m##n) {                                                                        \
        (void)errSlot, (void)self, (void)instData, (void)args;                                     \
        return 1##n - 1000;                                                                        \
    }
#define WIDE_ENTRY(n) kova::method("m" #n, 0),
#define WIDE_TEN(X, t)                                                                             \
    X(t##0) X(t##1) X(t##2) X(t##3) X(t##4) X(t##5) X(t##6) X(t##7) X(t##8) X(t##9)
#define WIDE_ALL(X)                                                                                \
    WIDE_TEN(X, 00)                                                                                \
    WIDE_TEN(X, 01)                                                                                \
    WIDE_TEN(X, 02)                                                                                \
    WIDE_TEN(X, 03)                                                                                \
    WIDE_TEN(X, 04)                                                                                \
    WIDE_TEN(X, 05)                                                                                \
    WIDE_TEN(X, 06)                                                                                \
    WIDE_TEN(X, 07)                                                                                \
    WIDE_TEN(X, 08)                                                                                \
    WIDE_TEN(X, 09)                                                                                \
    WIDE_TEN(X, 10)                                                                                \
    WIDE_TEN(X, 11)                                                                                \
    WIDE_TEN(X, 12)                                                                                \
    WIDE_TEN(X, 13)                                                                                \
    WIDE_TEN(X, 14)                                                                                \
    WIDE_TEN(X, 15)                                                                                \
    WIDE_TEN(X, 16)                                                                                \
    WIDE_TEN(X, 17)                                                                                \
    WIDE_TEN(X, 18)                                                                                \
    WIDE_TEN(X, 19)                                                                                \
    WIDE_TEN(X, 20)                                                                                \
    WIDE_TEN(X, 21)                                                                                \
    WIDE_TEN(X, 22)                                                                                \
    WIDE_TEN(X, 23)                                                                                \
    WIDE_TEN(X, 24)                                                                                \
    WIDE_TEN(X, 25)

namespace {
kvClass WideClass;
KV_METHOD_TABLE(wideMethods, WIDE_ALL(WIDE_ENTRY));
KV_EMPTY_METHOD_TABLE(wideClassMethods);
} // namespace

WIDE_ALL(WIDE_METHOD)

KV_REGISTER(Wide) {
    if (!kvRegisterClass("Object")) return nullptr;
    WideClass = kvAddClass("Wide", "Object", 0, 0, wideMethods.get(), wideClassMethods.get());
    return WideClass;
}
