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
#define WIDE_HUNDRED(X, h)                                                                         \
    WIDE_TEN(X, h##0)                                                                              \
    WIDE_TEN(X, h##1)                                                                              \
    WIDE_TEN(X, h##2) WIDE_TEN(X, h##3) WIDE_TEN(X, h##4) WIDE_TEN(X, h##5) WIDE_TEN(X, h##6)      \
        WIDE_TEN(X, h##7) WIDE_TEN(X, h##8) WIDE_TEN(X, h##9)
#define WIDE_ALL(X)                                                                                \
    WIDE_HUNDRED(X, 0)                                                                             \
    WIDE_HUNDRED(X, 1)                                                                             \
    WIDE_TEN(X, 20) WIDE_TEN(X, 21) WIDE_TEN(X, 22) WIDE_TEN(X, 23) WIDE_TEN(X, 24) WIDE_TEN(X, 25)

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
