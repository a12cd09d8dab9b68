// IndStrProp: an indirect property exposing a string-pointer cell that its
// creator owns. The property owns the string the cell points to: every store
// frees it and puts a heap copy of the new string (or null) in the cell, and
// the property's end frees it and clears the cell. The creator must therefore
// put in the cell only strings the property made. Without a cell, stores do
// nothing and fetches answer null.
//
// Its saved record after the flags word is a 32-bit length and the
// characters, as a StrProp's; reading it replaces the cell's string without
// notifications.
#include "errors/Raise.hpp"
#include "platform/Platform.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

#pragma pack(push, 1)
struct IndStrPropData {
    void* target; // the creator's char* cell, not owned; may be null
};
#pragma pack(pop)

kvClass IndStrPropClass = nullptr;

KV_METHOD_TABLE(indStrPropMethods,                 //
                kova::method("asInt", 0),          //
                kova::method("asString", 0),       //
                kova::method("fetchData", 0),      //
                kova::method("getPointer", 0),     //
                kova::method("objInit", 1),        //
                kova::method("objTerm", 0),        //
                kova::method("readFromStream", 1), //
                kova::method("setPointer", 1),     //
                kova::method("storeData", 1),      //
                kova::method("writeToStream", 1));
KV_EMPTY_METHOD_TABLE(indStrPropClassMethods);

char* heldString(const void* instData) {
    const void* cell = kova::props::indirectTarget(instData);
    return cell ? kova::props::loadFrom<char*>(cell) : nullptr;
}

// Frees the cell's string and puts `text` (owned from now on) in its place.
void replaceString(void* cell, char* text) {
    kova::platform::release(kova::props::loadFrom<char*>(cell));
    kova::props::storeTo(cell, text);
}

kvResult fetchText(kvObject* errSlot, kvObject self, void* instData, const kvArgs* args) {
    kvSendParentMethNA(errSlot, IndStrPropClass, self, "fetchData", args);
    return reinterpret_cast<kvResult>(heldString(instData));
}

} // namespace

// The fetched string read as a decimal number; 0 for none or no digits.
KV_METHOD(IndStrProp, asInt) {
    (void)instData, (void)args;
    const auto* text = reinterpret_cast<const char*>(kvSendMeth(errSlot, self, "fetchData"));
    return kova::props::parseLong(text);
}

KV_METHOD(IndStrProp, asString) {
    return fetchText(errSlot, self, instData, args);
}

KV_METHOD(IndStrProp, fetchData) {
    return fetchText(errSlot, self, instData, args);
}

KV_METHOD(IndStrProp, getPointer) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(kova::props::indirectTarget(instData));
}

// (pointer to the cell, owner, name, id, flags)
KV_METHOD(IndStrProp, objInit) {
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, IndStrPropClass, self, "objInit", &rest);
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

KV_METHOD(IndStrProp, objTerm) {
    if (void* cell = kova::props::indirectTarget(instData)) replaceString(cell, nullptr);
    return kvSendParentMethNA(errSlot, IndStrPropClass, self, "objTerm", args);
}

// (stream): the cell's string is replaced only by a complete record;
// otherwise -1 (3432 or 3429 raised) and everything as it was.
KV_METHOD(IndStrProp, readFromStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    uint16_t flags = 0;
    kova::props::CountedRun run;
    if (!kova::props::readFlags(errSlot, self, IndStrPropClass, stream, &flags) ||
        !kova::props::readCounted(errSlot, self, IndStrPropClass, stream, &run))
        return -1;
    kova::props::adoptFlags(self, flags);
    if (void* cell = kova::props::indirectTarget(instData))
        replaceString(cell, run.bytes);
    else
        kova::platform::release(run.bytes);
    return 0;
}

KV_METHOD(IndStrProp, setPointer) {
    (void)errSlot, (void)self;
    kova::props::setIndirectTarget(instData, kova::props::pointerArg<void>(args, 0));
    return 0;
}

// (text): puts a heap copy (null stays null) in the cell, announces it with
// "OnStore" and answers it. Without memory for the copy the cell keeps its
// string, 3429 is raised and nothing is announced.
KV_METHOD(IndStrProp, storeData) {
    void* cell = kova::props::indirectTarget(instData);
    if (!cell) return 0;
    char* copy = nullptr;
    if (!kova::props::copyText(errSlot, self, IndStrPropClass, kova::props::textArg(args, 0),
                               &copy))
        return 0;
    replaceString(cell, copy);
    kvSendParentMeth(errSlot, IndStrPropClass, self, "storeData", copy);
    return reinterpret_cast<kvResult>(copy);
}

KV_METHOD(IndStrProp, writeToStream) {
    const auto stream = reinterpret_cast<kvObject>(kvArgAt(args, 0));
    const char* text = heldString(instData);
    kova::props::writeFlags(errSlot, self, stream);
    kova::props::writeCounted(errSlot, stream, text, text ? std::strlen(text) : 0);
    return 0;
}

KV_REGISTER(IndStrProp) {
    if (!kvRegisterClass("Property")) return nullptr;
    IndStrPropClass = kvAddClass("IndStrProp", "Property", sizeof(IndStrPropData), 0,
                                 indStrPropMethods.get(), indStrPropClassMethods.get());
    return IndStrPropClass;
}
