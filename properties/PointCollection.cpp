// PointCollection: a Collection that holds only point properties and answers
// geometric questions over all of them: the bounding box, hit tests that
// find the first point hit, and shifting every point. Points are visited in
// index order through sends, so a subclass of PointProp takes part with its
// own methods.
#include "errors/Raise.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

kvClass PointCollectionClass = nullptr;

// The rectangle that "getBounds" answers, shared by every point collection
// and overwritten by the next call: left, top, right, bottom.
int32_t sharedBounds[4];

KV_METHOD_TABLE(pointCollectionMethods,                                 //
                kova::method("addObject", 1, KV_METHOD_NO_INSTDATA),    //
                kova::method("getBounds", 0, KV_METHOD_NO_INSTDATA),    //
                kova::method("hitTest", 2, KV_METHOD_NO_INSTDATA),      //
                kova::method("hitTestPoint", 1, KV_METHOD_NO_INSTDATA), //
                kova::method("hitTestRect", 1, KV_METHOD_NO_INSTDATA),  //
                kova::method("insertObject", 2, KV_METHOD_NO_INSTDATA), //
                kova::method("shiftPoints", 1, KV_METHOD_NO_INSTDATA));
KV_EMPTY_METHOD_TABLE(pointCollectionClassMethods);

kvObject pointAt(kvObject self, kvResult index) {
    return reinterpret_cast<kvObject>(kvSendMeth(nullptr, self, "getObject", index));
}

kvResult pointCount(kvObject self) {
    return kvSendMeth(nullptr, self, "getCount");
}

// 3443 for a null object, 3444 for one that is not a point property; true
// when the object may join the collection.
bool isPoint(kvObject* errSlot, kvObject self, kvObject object) {
    const int32_t refusal = !object                                                ? 3443
                            : kvSendMeth(errSlot, object, "isA", "PointProp") == 0 ? 3444
                                                                                   : 0;
    if (refusal) kova::raiseError(errSlot, self, PointCollectionClass, refusal);
    return refusal == 0;
}

// The first point that answers `method` with the arguments non-zero, or 0.
template <typename... A>
kvResult firstHit(kvObject* errSlot, kvObject self, const char* method, A... values) {
    const kvResult count = pointCount(self);
    for (kvResult i = 0; i < count; ++i) {
        const kvObject point = pointAt(self, i);
        if (point && kvSendMeth(errSlot, point, method, values...))
            return reinterpret_cast<kvResult>(point);
    }
    return 0;
}

kvResult nullPointer(kvObject* errSlot, kvObject self) {
    return kova::raiseError(errSlot, self, PointCollectionClass, 3443);
}

} // namespace

// (object): appends a point property. 3443 for a null object, 3444 for any
// other class; both answer 0. Otherwise 1 when no error is pending after the
// append, else 0.
KV_METHOD_NO_DATA(PointCollection, addObject) {
    const auto object = kova::props::pointerArg<kvObjectHeader>(args, 0);
    if (!isPoint(errSlot, self, object)) return 0;
    return kova::props::noErrorPendingAfter(errSlot, [&](kvObject* slot) {
        kvSendParentMethNA(slot, PointCollectionClass, self, "addObject", args);
    });
}

// The bounding box of the points, read through their "fetchData", in the
// shared rectangle. It starts inverted (32767, 32767, -32767, -32767), which
// is what an empty collection answers.
KV_METHOD_NO_DATA(PointCollection, getBounds) {
    (void)args;
    int32_t box[4] = {32767, 32767, -32767, -32767};
    const kvResult count = pointCount(self);
    for (kvResult i = 0; i < count; ++i) {
        const kvObject point = pointAt(self, i);
        const auto* fields =
            point ? reinterpret_cast<const void*>(kvSendMeth(errSlot, point, "fetchData"))
                  : nullptr;
        if (!fields) continue;
        int32_t at[2];
        std::memcpy(at, fields, sizeof at);
        if (at[0] < box[0]) box[0] = at[0];
        if (at[0] > box[2]) box[2] = at[0];
        if (at[1] < box[1]) box[1] = at[1];
        if (at[1] > box[3]) box[3] = at[1];
    }
    std::memcpy(sharedBounds, box, sizeof box);
    return reinterpret_cast<kvResult>(sharedBounds);
}

// (x, y as 16-bit values): the first point at them, or 0.
KV_METHOD_NO_DATA(PointCollection, hitTest) {
    return firstHit(errSlot, self, "hitTest", kvArgAt(args, 0), kvArgAt(args, 1));
}

// (pointer to x, y): the first point there, or 0; null raises 3443.
KV_METHOD_NO_DATA(PointCollection, hitTestPoint) {
    const kvArg pair = kvArgAt(args, 0);
    if (!pair) return nullPointer(errSlot, self);
    return firstHit(errSlot, self, "hitTestPoint", pair);
}

// (pointer to a rectangle): the first point inside it, or 0; null raises
// 3443.
KV_METHOD_NO_DATA(PointCollection, hitTestRect) {
    const kvArg rectangle = kvArgAt(args, 0);
    if (!rectangle) return nullPointer(errSlot, self);
    return firstHit(errSlot, self, "hitTestRect", rectangle);
}

// (object, index): the same type checks as "addObject", so that every
// member answers the point methods; then Collection's insertion.
KV_METHOD_NO_DATA(PointCollection, insertObject) {
    if (!isPoint(errSlot, self, kova::props::pointerArg<kvObjectHeader>(args, 0))) return 0;
    return kvSendParentMethNA(errSlot, PointCollectionClass, self, "insertObject", args);
}

// (pointer to dx, dy): shifts every point; 1 when no error is pending
// afterwards, else 0. A null pointer raises 3443.
KV_METHOD_NO_DATA(PointCollection, shiftPoints) {
    const void* pair = kova::props::pointerArg<const void>(args, 0);
    if (!pair) return nullPointer(errSlot, self);
    int32_t delta[2];
    std::memcpy(delta, pair, sizeof delta);
    return kova::props::noErrorPendingAfter(errSlot, [&](kvObject* slot) {
        const kvResult count = pointCount(self);
        for (kvResult i = 0; i < count; ++i)
            if (const kvObject point = pointAt(self, i))
                kvSendMeth(slot, point, "shiftPoint", delta[0], delta[1]);
    });
}

KV_REGISTER(PointCollection) {
    if (!kvRegisterClass("Collection")) return nullptr;
    PointCollectionClass =
        kvAddClass("PointCollection", "Collection", 0, 0, pointCollectionMethods.get(),
                   pointCollectionClassMethods.get());
    return PointCollectionClass;
}
