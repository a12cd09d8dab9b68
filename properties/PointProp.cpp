// PointProp: a property holding one point in signed 32-bit coordinates and a
// free 32-bit word for its owner. Creation, setX, setY and hitTest take
// 16-bit coordinates, sign-extended. Every change goes through "storeData",
// so "OnStore" announces it. Saved by the base record: x, y and the extra
// word, 12 bytes after the flags word.
#include "errors/Raise.hpp"
#include "properties/PropertySupport.hpp"

#include <algorithm>
#include <cstring>

namespace {

#pragma pack(push, 1)
struct PointPropData {
    int32_t x;      // horizontal coordinate
    int32_t y;      // vertical coordinate
    uint32_t extra; // the owner's word, 0 at creation
};
#pragma pack(pop)

kvClass PointPropClass = nullptr;

KV_METHOD_TABLE(pointPropMethods,                //
                kova::method("fetchData", 0),    //
                kova::method("getExData", 0),    //
                kova::method("getX", 0),         //
                kova::method("getY", 0),         //
                kova::method("hitTest", 2),      //
                kova::method("hitTestPoint", 1), //
                kova::method("hitTestRect", 1),  //
                kova::method("objInit", 2),      //
                kova::method("objTerm", 0),      //
                kova::method("setExData", 1),    //
                kova::method("setX", 1),         //
                kova::method("setXY", 2),        //
                kova::method("setY", 1),         //
                kova::method("shiftPoint", 2),   //
                kova::method("storeData", 1));
KV_EMPTY_METHOD_TABLE(pointPropClassMethods);

PointPropData* dataOf(void* instData) {
    return static_cast<PointPropData*>(instData);
}

int32_t coordinate16(const kvArgs* args, size_t index) {
    return static_cast<int16_t>(kvArgAt(args, index));
}

// Reads `count` 32-bit values from a caller's pointer that need not be
// aligned.
template <size_t N> void readValues(const void* from, int32_t (&to)[N]) {
    std::memcpy(to, from, sizeof to);
}

kvResult storePair(kvObject* errSlot, kvObject self, int32_t x, int32_t y) {
    const int32_t pair[2] = {x, y};
    return kvSendMeth(errSlot, self, "storeData", pair);
}

kvResult nullPointer(kvObject* errSlot, kvObject self) {
    return kova::raiseError(errSlot, self, PointPropClass, 3443);
}

// Coordinate arithmetic wraps, as 32-bit machine arithmetic does.
int32_t wrappingSum(int32_t a, kvArg b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

} // namespace

// After "OnFetch", a pointer to the property's own (x, y, extra) fields.
KV_METHOD(PointProp, fetchData) {
    kvSendParentMethNA(errSlot, PointPropClass, self, "fetchData", args);
    return reinterpret_cast<kvResult>(instData);
}

KV_METHOD(PointProp, getExData) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->extra;
}

KV_METHOD(PointProp, getX) {
    (void)instData, (void)args;
    const auto* point =
        reinterpret_cast<const PointPropData*>(kvSendMeth(errSlot, self, "fetchData"));
    return point ? point->x : 0;
}

KV_METHOD(PointProp, getY) {
    (void)instData, (void)args;
    const auto* point =
        reinterpret_cast<const PointPropData*>(kvSendMeth(errSlot, self, "fetchData"));
    return point ? point->y : 0;
}

// (x, y) as 16-bit values: 1 when both equal the point's.
KV_METHOD(PointProp, hitTest) {
    (void)errSlot, (void)self;
    const PointPropData* point = dataOf(instData);
    return point->x == coordinate16(args, 0) && point->y == coordinate16(args, 1);
}

// (pointer to x, y): 1 when equal; a null pointer raises 3443 and gives 0.
KV_METHOD(PointProp, hitTestPoint) {
    const void* pair = kova::props::pointerArg<const void>(args, 0);
    if (!pair) return nullPointer(errSlot, self);
    int32_t at[2];
    readValues(pair, at);
    const PointPropData* point = dataOf(instData);
    return point->x == at[0] && point->y == at[1];
}

// (pointer to left, top, right, bottom): 1 when the point lies inside the
// normalised rectangle, edges included; a null pointer raises 3443, gives 0.
KV_METHOD(PointProp, hitTestRect) {
    const void* rectangle = kova::props::pointerArg<const void>(args, 0);
    if (!rectangle) return nullPointer(errSlot, self);
    int32_t edge[4];
    readValues(rectangle, edge);
    const PointPropData* point = dataOf(instData);
    const int32_t x = point->x;
    const int32_t y = point->y;
    return std::min(edge[0], edge[2]) <= x && x <= std::max(edge[0], edge[2]) &&
           std::min(edge[1], edge[3]) <= y && y <= std::max(edge[1], edge[3]);
}

// (x, y as 16-bit values, owner, name, id, flags): fires nothing.
KV_METHOD(PointProp, objInit) {
    const kvArgs rest = kvArgsAfter(args, 2);
    const kvResult result = kvSendParentMethNA(errSlot, PointPropClass, self, "objInit", &rest);
    PointPropData* point = dataOf(instData);
    point->x = coordinate16(args, 0);
    point->y = coordinate16(args, 1);
    point->extra = 0;
    return result;
}

KV_METHOD(PointProp, objTerm) {
    std::memset(instData, 0, sizeof(PointPropData));
    return kvSendParentMethNA(errSlot, PointPropClass, self, "objTerm", args);
}

KV_METHOD(PointProp, setExData) {
    (void)errSlot, (void)self;
    dataOf(instData)->extra = static_cast<uint32_t>(kvArgAt(args, 0));
    return 0;
}

// (x as a 16-bit value): through "storeData".
KV_METHOD(PointProp, setX) {
    return storePair(errSlot, self, coordinate16(args, 0), dataOf(instData)->y);
}

// (x, y): through "storeData".
KV_METHOD(PointProp, setXY) {
    (void)instData;
    return storePair(errSlot, self, kova::props::intArg(args, 0), kova::props::intArg(args, 1));
}

// (y as a 16-bit value): through "storeData".
KV_METHOD(PointProp, setY) {
    return storePair(errSlot, self, dataOf(instData)->x, coordinate16(args, 0));
}

// (dx, dy): moves the point through "storeData"; answers 1.
KV_METHOD(PointProp, shiftPoint) {
    const PointPropData* point = dataOf(instData);
    storePair(errSlot, self, wrappingSum(point->x, kvArgAt(args, 0)),
              wrappingSum(point->y, kvArgAt(args, 1)));
    return 1;
}

// (pointer to x, y): keeps the pair and announces the pointer with
// "OnStore"; a null pointer raises 3443. Answers 0.
KV_METHOD(PointProp, storeData) {
    const void* pair = kova::props::pointerArg<const void>(args, 0);
    if (!pair) return nullPointer(errSlot, self);
    int32_t at[2];
    readValues(pair, at);
    PointPropData* point = dataOf(instData);
    point->x = at[0];
    point->y = at[1];
    kvSendParentMethNA(errSlot, PointPropClass, self, "storeData", args);
    return 0;
}

KV_REGISTER(PointProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    PointPropClass = kvAddClass("PointProp", "Property", sizeof(PointPropData), 0,
                                pointPropMethods.get(), pointPropClassMethods.get());
    return PointPropClass;
}
