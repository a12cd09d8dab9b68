// IRngProp: an integer property confined to a range. The range rule holds
// for (minimum, maximum, step, value) when step > 0, minimum <= maximum, the
// range is a whole number of steps, and the value lies in the range on a step
// from the minimum. Differences are taken in signed 32 bits with wrap-around
// (never undefined), so a range spanning all 32 bits has a span of -1.
//
// Creation leaves the value 0: the value is stored (and refused) before the
// bounds exist. Bounds set one by one are kept even when they break the rule;
// the caller learns of it through the error and sets the others.
#include "errors/Raise.hpp"
#include "properties/PropertySupport.hpp"

namespace {

#pragma pack(push, 1)
struct IRngPropData {
    int32_t minimum; // smallest value allowed
    int32_t maximum; // largest value allowed
    int32_t step;    // distance between allowed values, counted from the minimum
};
#pragma pack(pop)

kvClass IRngPropClass = nullptr;
char rangeText[16]; // the text form of the last value asked for, shared by all IRngProps

KV_METHOD_TABLE(iRngPropMethods,                       //
                kova::method("OnRangeCheck", 1),       //
                kova::method("fetchAsString", 0),      //
                kova::method("fetchData", 0),          //
                kova::method("getMax", 0),             //
                kova::method("getMin", 0),             //
                kova::method("getStep", 0),            //
                kova::method("objInit", 3),            //
                kova::method("setMax", 1),             //
                kova::method("setMin", 1),             //
                kova::method("setMinMaxStepValue", 4), //
                kova::method("setStep", 1),            //
                kova::method("storeData", 1),          //
                kova::method("storeFromString", 1));
KV_EMPTY_METHOD_TABLE(iRngPropClassMethods);

IRngPropData* dataOf(void* instData) {
    return static_cast<IRngPropData*>(instData);
}

// a - b in 32 bits with wrap-around.
int32_t difference(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

bool ruleHolds(const IRngPropData& range, int32_t value) {
    if (range.step <= 0 || range.minimum > range.maximum) return false;
    if (difference(range.maximum, range.minimum) % range.step != 0) return false;
    if (value < range.minimum || value > range.maximum) return false;
    return difference(value, range.minimum) % range.step == 0;
}

// Tells "OnRangeCheck" subscribers of a refused value or bound and raises
// `number` with it and the property's name; answers -1.
kvResult refuse(kvObject* errSlot, kvObject self, int32_t number, int32_t offered) {
    kvFireNotification(errSlot, self, "OnRangeCheck", offered);
    kova::raiseError(errSlot, self, IRngPropClass, number, offered, kova::props::nameOf(self));
    return -1;
}

// Stores one bound, then checks the rule against the current value; a broken
// rule is reported with `number` but the bound stays.
kvResult setBound(kvObject* errSlot, kvObject self, void* instData, int32_t IRngPropData::*bound,
                  int32_t number, int32_t value) {
    IRngPropData* range = dataOf(instData);
    range->*bound = value;
    const auto current = static_cast<int32_t>(kvSendMeth(errSlot, self, "fetchData"));
    if (ruleHolds(*range, current)) return 0;
    return refuse(errSlot, self, number, value);
}

} // namespace

// (value): a hook for subclasses, told of every refused value or bound.
KV_METHOD(IRngProp, OnRangeCheck) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(IRngProp, fetchAsString) {
    (void)instData, (void)args;
    return kova::props::fetchedNumberText(errSlot, self, rangeText);
}

KV_METHOD(IRngProp, fetchData) {
    (void)instData;
    return kvSendParentMethNA(errSlot, IRngPropClass, self, "fetchData", args);
}

KV_METHOD(IRngProp, getMax) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->maximum;
}

KV_METHOD(IRngProp, getMin) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->minimum;
}

KV_METHOD(IRngProp, getStep) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->step;
}

// (minimum, maximum, step, value, owner, name, id, flags). The parent stores
// the value while the bounds are still 0, which the rule refuses; that
// refusal is expected and its errors are forgotten, so the value stays 0. A
// minimum that cannot satisfy the rule itself is reported with 3463, and the
// bounds are kept anyway.
KV_METHOD(IRngProp, objInit) {
    const kvObject before = errSlot ? *errSlot : nullptr;
    const kvArgs rest = kvArgsAfter(args, 3);
    kvSendParentMethNA(errSlot, IRngPropClass, self, "objInit", &rest);
    kova::props::discardErrorsAbove(errSlot, before);

    const IRngPropData range{kova::props::intArg(args, 0), kova::props::intArg(args, 1),
                             kova::props::intArg(args, 2)};
    if (!ruleHolds(range, range.minimum))
        kova::raiseError(errSlot, self, IRngPropClass, 3463, range.minimum,
                         kova::props::nameOf(self));
    *dataOf(instData) = range;
    return 0;
}

KV_METHOD(IRngProp, setMax) {
    return setBound(errSlot, self, instData, &IRngPropData::maximum, 3462,
                    kova::props::intArg(args, 0));
}

KV_METHOD(IRngProp, setMin) {
    return setBound(errSlot, self, instData, &IRngPropData::minimum, 3461,
                    kova::props::intArg(args, 0));
}

// (minimum, maximum, step, value): sets everything at once without checking
// the rule; the value still passes IntProp's "OnWillStore" veto.
KV_METHOD(IRngProp, setMinMaxStepValue) {
    *dataOf(instData) = IRngPropData{kova::props::intArg(args, 0), kova::props::intArg(args, 1),
                                     kova::props::intArg(args, 2)};
    kvSendParentMeth(errSlot, IRngPropClass, self, "storeData", kova::props::intArg(args, 3));
    return 0;
}

KV_METHOD(IRngProp, setStep) {
    return setBound(errSlot, self, instData, &IRngPropData::step, 3460,
                    kova::props::intArg(args, 0));
}

// (value): a value outside the rule is refused with 3463 and answers -1.
KV_METHOD(IRngProp, storeData) {
    const int32_t value = kova::props::intArg(args, 0);
    if (!ruleHolds(*dataOf(instData), value)) return refuse(errSlot, self, 3463, value);
    kvSendParentMeth(errSlot, IRngPropClass, self, "storeData", value);
    return 0;
}

KV_METHOD(IRngProp, storeFromString) {
    (void)instData;
    return kova::props::storeNumberText(errSlot, self, args);
}

KV_REGISTER(IRngProp) {
    if (!kvRegisterClass("IntProp")) return nullptr;
    IRngPropClass = kvAddClass("IRngProp", "IntProp", sizeof(IRngPropData), 0,
                               iRngPropMethods.get(), iRngPropClassMethods.get());
    return IRngPropClass;
}
