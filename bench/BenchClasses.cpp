// "KVBENCH.DLL": the classes the benchmark program sends to.
//   BenchA (Object)             the far ancestor: 64 methods "farValue00" to "farValue63"
//   BenchB (BenchA)             8 methods of its own
//   BenchC (BenchB)             8 methods of its own, among them "getValue"
//   BenchD00..BenchD31 (BenchC) 4 methods each; a send of "farValueNN" to one of
//                               them searches 4 tables and finds it 3 classes up
//   BenchLeaf (BenchC)          overrides "getValue"; "onBench" for notifications;
//                               "leftNeighbour" and "rightNeighbour" share a cache
//                               bucket; class method "classValue"
//   BenchSmall (Object)         4 bytes of data and the usual objInit/objTerm chain
//   BenchPM (Object)            a personality module for Match: keeps the
//                               technology name "setTMName" gives it
// Every class has a table of realistic size, so a lookup that misses a table
// pays for a real binary search and not for an empty one.
#include "kova/kernel.h"

namespace {

kvClass BenchAClass, BenchBClass, BenchCClass, BenchLeafClass, BenchSmallClass, BenchPMClass;

#pragma pack(push, 1)
struct SliceData {
    int32_t value;
};
struct PersonalityData {
    char technology[32];
};
struct LeafData {
    int32_t value;
    int32_t notifications; // "onBench" calls received
};
#pragma pack(pop)

KV_EMPTY_METHOD_TABLE(noMethods);

} // namespace

#define BENCH_TEN(X, t)                                                                            \
    X(t##0) X(t##1) X(t##2) X(t##3) X(t##4) X(t##5) X(t##6) X(t##7) X(t##8) X(t##9)
#define BENCH_SIXTY_FOUR(X)                                                                        \
    BENCH_TEN(X, 0)                                                                                \
    BENCH_TEN(X, 1)                                                                                \
    BENCH_TEN(X, 2) BENCH_TEN(X, 3) BENCH_TEN(X, 4) BENCH_TEN(X, 5) X(60) X(61) X(62) X(63)

// Each "farValueNN" answers NN.
#define FAR_METHOD(n)                                                                              \
    KV_METHOD(BenchA, farValue##n) {                                                               \
        (void)errSlot, (void)self, (void)instData, (void)args;                                     \
        return 1##n - 100;                                                                         \
    }
#define FAR_ENTRY(n) kova::method("farValue" #n, 0),

BENCH_SIXTY_FOUR(FAR_METHOD)

namespace {
KV_METHOD_TABLE(benchAMethods, BENCH_SIXTY_FOUR(FAR_ENTRY));
} // namespace

// Methods that only give BenchB and BenchC tables to search.
#define SLICE_METHOD(cls, meth)                                                                    \
    KV_METHOD(cls, meth) {                                                                         \
        (void)errSlot, (void)self, (void)args;                                                     \
        return static_cast<SliceData*>(instData)->value;                                           \
    }

SLICE_METHOD(BenchB, bMethod0)
SLICE_METHOD(BenchB, bMethod1)
SLICE_METHOD(BenchB, bMethod2)
SLICE_METHOD(BenchB, bMethod3)
SLICE_METHOD(BenchB, bMethod4)
SLICE_METHOD(BenchB, bMethod5)
SLICE_METHOD(BenchB, bMethod6)
SLICE_METHOD(BenchB, bMethod7)
SLICE_METHOD(BenchC, cMethod0)
SLICE_METHOD(BenchC, cMethod1)
SLICE_METHOD(BenchC, cMethod2)
SLICE_METHOD(BenchC, cMethod3)
SLICE_METHOD(BenchC, cMethod4)
SLICE_METHOD(BenchC, cMethod5)
SLICE_METHOD(BenchC, cMethod6)
SLICE_METHOD(BenchC, getValue)

namespace {
KV_METHOD_TABLE(benchBMethods, //
                kova::method("bMethod0", 0), kova::method("bMethod1", 0),
                kova::method("bMethod2", 0), kova::method("bMethod3", 0),
                kova::method("bMethod4", 0), kova::method("bMethod5", 0),
                kova::method("bMethod6", 0), kova::method("bMethod7", 0));
KV_METHOD_TABLE(benchCMethods, //
                kova::method("cMethod0", 0), kova::method("cMethod1", 0),
                kova::method("cMethod2", 0), kova::method("cMethod3", 0),
                kova::method("cMethod4", 0), kova::method("cMethod5", 0),
                kova::method("cMethod6", 0), kova::method("getValue", 0));
} // namespace

// One of the 32 receivers of first sends: a class of its own per receiver, so
// that each starts with an empty cache.
#define BENCH_D_CLASS(n)                                                                           \
    SLICE_METHOD(BenchD##n, dMethod0)                                                              \
    SLICE_METHOD(BenchD##n, dMethod1)                                                              \
    SLICE_METHOD(BenchD##n, dMethod2)                                                              \
    SLICE_METHOD(BenchD##n, dMethod3)                                                              \
    KV_METHOD_TABLE(benchD##n##Methods, kova::method("dMethod0", 0), kova::method("dMethod1", 0),  \
                    kova::method("dMethod2", 0), kova::method("dMethod3", 0));                     \
    KV_REGISTER(BenchD##n) {                                                                       \
        if (!kvRegisterClass("BenchC")) return nullptr;                                            \
        return kvAddClass("BenchD" #n, "BenchC", sizeof(SliceData), 0, benchD##n##Methods.get(),   \
                          noMethods.get());                                                        \
    }

BENCH_TEN(BENCH_D_CLASS, 0)
BENCH_TEN(BENCH_D_CLASS, 1)
BENCH_TEN(BENCH_D_CLASS, 2)
BENCH_D_CLASS(30)
BENCH_D_CLASS(31)

KV_METHOD(BenchLeaf, getValue) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<LeafData*>(instData)->value;
}

KV_METHOD(BenchLeaf, leftNeighbour) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<LeafData*>(instData)->value - 1;
}

KV_METHOD(BenchLeaf, onBench) {
    (void)errSlot, (void)self, (void)args;
    ++static_cast<LeafData*>(instData)->notifications;
    return 0;
}

KV_METHOD(BenchLeaf, rightNeighbour) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<LeafData*>(instData)->value + 1;
}

KV_CLASS_METHOD(BenchLeaf, classValue) {
    (void)errSlot, (void)args;
    return self == BenchLeafClass ? 1 : 0;
}

// (value, ...)
KV_METHOD(BenchSmall, objInit) {
    kvSendParentMethNA(errSlot, BenchSmallClass, self, "objInit", args);
    static_cast<SliceData*>(instData)->value = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

KV_METHOD(BenchSmall, objTerm) {
    (void)instData;
    return kvSendParentMethNA(errSlot, BenchSmallClass, self, "objTerm", args);
}

namespace {
KV_METHOD_TABLE(benchLeafMethods,                 //
                kova::method("getValue", 0),      //
                kova::method("leftNeighbour", 0), //
                kova::method("onBench", 0),       //
                kova::method("rightNeighbour", 0));
KV_METHOD_TABLE(benchLeafClassMethods, //
                kova::method("classValue", 0));
KV_METHOD_TABLE(benchSmallMethods,          //
                kova::method("objInit", 1), //
                kova::method("objTerm", 0));
} // namespace

KV_METHOD(BenchPM, setTMName) {
    (void)errSlot, (void)self;
    auto* data = static_cast<PersonalityData*>(instData);
    const char* name = reinterpret_cast<const char*>(kvArgAt(args, 0));
    size_t i = 0;
    for (; name && name[i] && i + 1 < sizeof data->technology; ++i)
        data->technology[i] = name[i];
    data->technology[i] = '\0';
    return 0;
}

namespace {
KV_METHOD_TABLE(benchPMMethods, kova::method("setTMName", 1));
} // namespace

KV_REGISTER(BenchPM) {
    if (!kvRegisterClass("Object")) return nullptr;
    BenchPMClass = kvAddClass("BenchPM", "Object", sizeof(PersonalityData), 0, benchPMMethods.get(),
                              noMethods.get());
    return BenchPMClass;
}

KV_REGISTER(BenchA) {
    if (!kvRegisterClass("Object")) return nullptr;
    BenchAClass =
        kvAddClass("BenchA", "Object", sizeof(SliceData), 0, benchAMethods.get(), noMethods.get());
    return BenchAClass;
}

KV_REGISTER(BenchB) {
    if (!kvRegisterClass("BenchA")) return nullptr;
    BenchBClass =
        kvAddClass("BenchB", "BenchA", sizeof(SliceData), 0, benchBMethods.get(), noMethods.get());
    return BenchBClass;
}

KV_REGISTER(BenchC) {
    if (!kvRegisterClass("BenchB")) return nullptr;
    BenchCClass =
        kvAddClass("BenchC", "BenchB", sizeof(SliceData), 0, benchCMethods.get(), noMethods.get());
    return BenchCClass;
}

KV_REGISTER(BenchLeaf) {
    if (!kvRegisterClass("BenchC")) return nullptr;
    BenchLeafClass = kvAddClass("BenchLeaf", "BenchC", sizeof(LeafData), 0, benchLeafMethods.get(),
                                benchLeafClassMethods.get());
    return BenchLeafClass;
}

KV_REGISTER(BenchSmall) {
    if (!kvRegisterClass("Object")) return nullptr;
    BenchSmallClass = kvAddClass("BenchSmall", "Object", sizeof(SliceData), 0,
                                 benchSmallMethods.get(), noMethods.get());
    return BenchSmallClass;
}
