// A small class library for the kernel's tests, "TESTSHP.DLL":
//   Shape (Object)    sides; answers "describe", "getSides", "setSides", "area"
//   Polygon (Shape)   adds nothing
//   Square (Polygon)  side; overrides "area" and "getSides" (which asks its parent)
//   Listener (Object) a subscriber that records what it is sent
//   Broken (Object)   lists a method whose procedure the library lacks
//   CountedName (IntProp) counts how often it is asked for its name
//   Endless (Stream)  a stream that never ends: it delivers a pattern, then
//                     the pattern from a given offset on, over and over
#include "kova/kernel.h"

#include <cstring>

namespace {

kvClass ShapeClass, PolygonClass, SquareClass, ListenerClass, CountedNameClass, EndlessClass;

// A class's slice starts wherever its ancestors' data ends (Object owns the
// first 2 bytes), so instance data is declared packed.
#pragma pack(push, 1)
struct ShapeData {
    int32_t sides;
    int32_t initCalls; // how often objInit ran on this slice
};
struct SquareData {
    int32_t side;
};
struct ListenerData {
    int32_t calls;         // notifications received
    kvArg lastArgs[4];     // notifier, event name and two extra slots of the last one
    int32_t answer;        // what "onEvent" answers
    int32_t mode;          // what "onEvent" does besides counting
    kvObject deleteTarget; // object deleted in mode "deleteObject"
};
struct CountedNameData {
    int32_t nameCalls; // "getName" sends received
};
struct EndlessData {
    const uint8_t* pattern; // the caller's bytes, delivered in turn
    uint32_t length;        // of the pattern
    uint32_t repeatFrom;    // where the pattern starts again after its end
    uint32_t at;            // next byte of the pattern
    uint64_t delivered;     // bytes read so far
};
#pragma pack(pop)

enum ListenerMode : int32_t {
    justCount = 0,
    unsubscribeSelf = 1, // deletes its own subscription to the event it receives
    deleteNotifier = 2,  // tries to delete the notifier
    fireAgain = 3,       // fires the same event on the same notifier again
    clearNotifier = 4    // clears every list of the notifier (kvClearNotifications)
};

KV_METHOD_TABLE(shapeMethods,                    //
                kova::method("area", 0),         //
                kova::method("describe", 0),     //
                kova::method("getInitCalls", 0), //
                kova::method("getSides", 0),     //
                kova::method("objInit", 1),      //
                kova::method("setSides", 1));
KV_METHOD_TABLE(shapeClassMethods, //
                kova::method("unitSides", 0));
KV_EMPTY_METHOD_TABLE(noMethods);
KV_METHOD_TABLE(squareMethods,               //
                kova::method("area", 0),     //
                kova::method("getSides", 0), //
                kova::method("objInit", 2));
KV_METHOD_TABLE(listenerMethods,              //
                kova::method("configure", 3), //
                kova::method("getArg", 1),    //
                kova::method("getCalls", 0),  //
                kova::method("onEvent", 0),   //
                kova::method("onOther", 0));
KV_METHOD_TABLE(countedNameMethods,         //
                kova::method("getName", 0), //
                kova::method("getNameCalls", 0));
KV_METHOD_TABLE(endlessMethods,                  //
                kova::method("Read", 2),         //
                kova::method("Seek", 2),         //
                kova::method("Write", 2),        //
                kova::method("getDelivered", 0), //
                kova::method("objInit", 3));
KV_METHOD_TABLE(brokenMethods, //
                kova::method("missingProcedure", 0));

} // namespace

KV_METHOD(Shape, area) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(Shape, describe) {
    (void)errSlot, (void)instData, (void)args;
    return reinterpret_cast<kvResult>(kvClassName(self->cls));
}

KV_METHOD(Shape, getInitCalls) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<ShapeData*>(instData)->initCalls;
}

KV_METHOD(Shape, getSides) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<ShapeData*>(instData)->sides;
}

// (sides, ...)
KV_METHOD(Shape, objInit) {
    kvSendParentMethNA(errSlot, ShapeClass, self, "objInit", args);
    auto* shape = static_cast<ShapeData*>(instData);
    shape->sides = static_cast<int32_t>(kvArgAt(args, 0));
    ++shape->initCalls;
    return 0;
}

KV_METHOD(Shape, setSides) {
    (void)errSlot, (void)self;
    static_cast<ShapeData*>(instData)->sides = static_cast<int32_t>(kvArgAt(args, 0));
    return 0;
}

KV_CLASS_METHOD(Shape, unitSides) {
    (void)errSlot, (void)args;
    return self == ShapeClass ? 1 : 2;
}

KV_METHOD(Square, area) {
    (void)errSlot, (void)self, (void)args;
    const int32_t side = static_cast<SquareData*>(instData)->side;
    return side * side;
}

// The square's own answer is ten times its parent's, so a test can tell the
// two versions apart.
KV_METHOD(Square, getSides) {
    (void)instData;
    return 10 * kvSendParentMethNA(errSlot, SquareClass, self, "getSides", args);
}

// (sides, side)
KV_METHOD(Square, objInit) {
    kvSendParentMethNA(errSlot, SquareClass, self, "objInit", args);
    static_cast<SquareData*>(instData)->side = static_cast<int32_t>(kvArgAt(args, 1));
    return 0;
}

// (answer, mode, deleteTarget)
KV_METHOD(Listener, configure) {
    (void)errSlot, (void)self;
    auto* listener = static_cast<ListenerData*>(instData);
    listener->answer = static_cast<int32_t>(kvArgAt(args, 0));
    listener->mode = static_cast<int32_t>(kvArgAt(args, 1));
    listener->deleteTarget = reinterpret_cast<kvObject>(kvArgAt(args, 2));
    return 0;
}

KV_METHOD(Listener, getArg) {
    (void)errSlot, (void)self;
    const auto index = static_cast<size_t>(kvArgAt(args, 0));
    return index < 4 ? static_cast<ListenerData*>(instData)->lastArgs[index] : 0;
}

KV_METHOD(Listener, getCalls) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<ListenerData*>(instData)->calls;
}

// (notifier, event name, extra...): counts, remembers the slots, acts on its mode.
KV_METHOD(Listener, onEvent) {
    auto* listener = static_cast<ListenerData*>(instData);
    ++listener->calls;
    for (size_t i = 0; i < 4; ++i)
        listener->lastArgs[i] = kvArgAt(args, i);
    const auto notifier = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const auto* event = reinterpret_cast<const char*>(kvArgAt(args, 1));
    switch (listener->mode) {
    case unsubscribeSelf:
        kvDeleteNotification(errSlot, notifier, event, self, "onEvent");
        break;
    case deleteNotifier: {
        const kvObject target = listener->deleteTarget; // a packed field: read it by value
        kvDelObject(errSlot, target ? target : notifier);
        break;
    }
    case fireAgain:
        kvFireNotification(errSlot, notifier, event);
        break;
    case clearNotifier:
        kvClearNotifications(notifier);
        break;
    default:
        break;
    }
    return listener->answer;
}

KV_METHOD(Listener, onOther) {
    (void)errSlot, (void)self, (void)args;
    ++static_cast<ListenerData*>(instData)->calls;
    return 0;
}

KV_METHOD(CountedName, getName) {
    ++static_cast<CountedNameData*>(instData)->nameCalls;
    return kvSendParentMethNA(errSlot, CountedNameClass, self, "getName", args);
}

KV_METHOD(CountedName, getNameCalls) {
    (void)errSlot, (void)self, (void)args;
    return static_cast<CountedNameData*>(instData)->nameCalls;
}

// (buffer, count): fills the buffer whole, whatever the count.
KV_METHOD(Endless, Read) {
    (void)errSlot, (void)self;
    auto* endless = static_cast<EndlessData*>(instData);
    auto* buffer = reinterpret_cast<uint8_t*>(kvArgAt(args, 0));
    const auto count = static_cast<uint32_t>(kvArgAt(args, 1));
    if (!endless->length) return 0;
    for (uint32_t i = 0; i < count; ++i) {
        buffer[i] = endless->pattern[endless->at];
        if (++endless->at == endless->length) endless->at = endless->repeatFrom;
    }
    endless->delivered += count;
    return count;
}

KV_METHOD(Endless, Seek) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(Endless, Write) {
    (void)errSlot, (void)self, (void)instData;
    return kvArgAt(args, 1);
}

// Saturates rather than wraps on a 32-bit host.
KV_METHOD(Endless, getDelivered) {
    (void)errSlot, (void)self, (void)args;
    const uint64_t delivered = static_cast<EndlessData*>(instData)->delivered;
    return delivered > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<kvResult>(delivered);
}

// (pattern, length, repeat-from offset, ...)
KV_METHOD(Endless, objInit) {
    const kvArgs rest = kvArgsAfter(args, 3);
    kvSendParentMethNA(errSlot, EndlessClass, self, "objInit", &rest);
    auto* endless = static_cast<EndlessData*>(instData);
    endless->pattern = reinterpret_cast<const uint8_t*>(kvArgAt(args, 0));
    endless->length = static_cast<uint32_t>(kvArgAt(args, 1));
    endless->repeatFrom = static_cast<uint32_t>(kvArgAt(args, 2));
    return 0;
}

KV_REGISTER(Shape) {
    if (!kvRegisterClass("Object")) return nullptr;
    ShapeClass = kvAddClass("Shape", "Object", sizeof(ShapeData), 0, shapeMethods.get(),
                            shapeClassMethods.get());
    return ShapeClass;
}

KV_REGISTER(Polygon) {
    if (!kvRegisterClass("Shape")) return nullptr;
    PolygonClass = kvAddClass("Polygon", "Shape", 0, 0, noMethods.get(), noMethods.get());
    return PolygonClass;
}

KV_REGISTER(Square) {
    if (!kvRegisterClass("Polygon")) return nullptr;
    SquareClass = kvAddClass("Square", "Polygon", sizeof(SquareData), 0, squareMethods.get(),
                             noMethods.get());
    return SquareClass;
}

KV_REGISTER(Listener) {
    if (!kvRegisterClass("Object")) return nullptr;
    ListenerClass = kvAddClass("Listener", "Object", sizeof(ListenerData), 0, listenerMethods.get(),
                               noMethods.get());
    return ListenerClass;
}

KV_REGISTER(Broken) {
    if (!kvRegisterClass("Object")) return nullptr;
    return kvAddClass("Broken", "Object", 0, 0, brokenMethods.get(), noMethods.get());
}

KV_REGISTER(CountedName) {
    if (!kvRegisterClass("IntProp")) return nullptr;
    CountedNameClass = kvAddClass("CountedName", "IntProp", sizeof(CountedNameData), 0,
                                  countedNameMethods.get(), noMethods.get());
    return CountedNameClass;
}

KV_REGISTER(Endless) {
    if (!kvRegisterClass("Stream")) return nullptr;
    EndlessClass = kvAddClass("Endless", "Stream", sizeof(EndlessData), 0, endlessMethods.get(),
                              noMethods.get());
    return EndlessClass;
}
