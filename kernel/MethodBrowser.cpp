// MethodBrowser: the instance methods of one class (its own table, not its
// ancestors') as an enumerated property. The cookie of a position is the
// position itself, its string the method's name; "getMethod" gives the
// method record at the chosen position. "setIndex" accepts the count itself,
// which stands for "no method".
//
// Reads stay inside the method table: a position outside it answers 0 (no
// name, no record), and only a position beyond the count, or below 0, is
// also reported, with 3441. The class handle of a record read from a stream
// is kept only when it names a class of the running class table.
#include "errors/Raise.hpp"
#include "kova/kernel.h"

#include <cstdio>

namespace {

#pragma pack(push, 1)
struct MethodBrowserData {
    kvClass cls;      // the class whose methods are browsed, or null
    int16_t current;  // the chosen position, 0 to the count
    char buffer[256]; // the last name asked for
};
#pragma pack(pop)

kvClass MethodBrowserClass = nullptr;

KV_METHOD_TABLE(methodBrowserMethods,                    //
                kova::method("fetchData", 0),            //
                kova::method("getClass", 0),             //
                kova::method("getCount", 0),             //
                kova::method("getCurIndex", 0),          //
                kova::method("getCurrent", 0),           //
                kova::method("getCurrentEnumString", 0), //
                kova::method("getCurrentString", 0),     //
                kova::method("getIndex", 0),             //
                kova::method("getIndexedCookie", 1),     //
                kova::method("getIndexedEnumString", 1), //
                kova::method("getIndexedString", 1),     //
                kova::method("getMethod", 0),            //
                kova::method("objInit", 0),              //
                kova::method("objTerm", 0),              //
                kova::method("readFromStream", 1),       //
                kova::method("resetContents", 0),        //
                kova::method("setClass", 1),             //
                kova::method("setCurIndex", 1),          //
                kova::method("setCurrent", 1),           //
                kova::method("setCurrentEnumString", 1), //
                kova::method("setIndex", 1),             //
                kova::method("storeData", 1));
KV_EMPTY_METHOD_TABLE(methodBrowserClassMethods);

MethodBrowserData* dataOf(void* instData) {
    return static_cast<MethodBrowserData*>(instData);
}

kvArg methodCount(const MethodBrowserData* browser) {
    const kvClass cls = browser->cls;
    return cls && cls->methodTable ? cls->methodTable->count : 0;
}

// The record at `index`, or null outside the table; 3441 for an index that
// is not even the "no method" position.
kvMethodRecord* recordAt(kvObject* errSlot, kvObject self, const MethodBrowserData* browser,
                         kvArg index) {
    const kvArg count = methodCount(browser);
    if (index < 0 || index > count) {
        const auto* name = reinterpret_cast<const char*>(kvSendMeth(nullptr, self, "getName"));
        kova::raiseError(errSlot, self, MethodBrowserClass, 3441, index, name);
    }
    if (index < 0 || index >= count) return nullptr;
    return &browser->cls->methodTable->records[index];
}

// The method name at `index` in the browser's buffer (a record's name fills
// its 32 bytes without a terminator when it is that long), or null.
kvResult nameAt(kvObject* errSlot, kvObject self, void* instData, kvArg index) {
    MethodBrowserData* browser = dataOf(instData);
    const kvMethodRecord* record = recordAt(errSlot, self, browser, index);
    if (!record) return 0;
    std::snprintf(browser->buffer, sizeof browser->buffer, "%.*s", int{KV_METHOD_NAME_SIZE},
                  record->name);
    return reinterpret_cast<kvResult>(browser->buffer);
}

bool isClassOfTheTable(kvClass cls) {
    for (size_t i = 0; i < kvGetClassCount(); ++i)
        if (kvGetClassAt(i) == cls) return true;
    return false;
}

} // namespace

// Sends itself "getIndex" and answers 0.
KV_METHOD(MethodBrowser, fetchData) {
    (void)instData, (void)args;
    kvSendMeth(errSlot, self, "getIndex");
    return 0;
}

KV_METHOD(MethodBrowser, getClass) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(dataOf(instData)->cls);
}

// The number of the class's own instance methods; 0 without a class.
KV_METHOD(MethodBrowser, getCount) {
    (void)errSlot, (void)self, (void)args;
    return methodCount(dataOf(instData));
}

KV_METHOD(MethodBrowser, getCurIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->current;
}

KV_METHOD(MethodBrowser, getCurrent) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "fetchData", args);
}

KV_METHOD(MethodBrowser, getCurrentEnumString) {
    (void)args;
    return nameAt(errSlot, self, instData, dataOf(instData)->current);
}

KV_METHOD(MethodBrowser, getCurrentString) {
    (void)args;
    return nameAt(errSlot, self, instData, dataOf(instData)->current);
}

KV_METHOD(MethodBrowser, getIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->current;
}

// (index): the index itself.
KV_METHOD(MethodBrowser, getIndexedCookie) {
    (void)errSlot, (void)self, (void)instData;
    return kvArgAt(args, 0);
}

KV_METHOD(MethodBrowser, getIndexedEnumString) {
    return nameAt(errSlot, self, instData, kvArgAt(args, 0));
}

// (index): the method's name, copied into the browser's buffer; 0 without a
// class.
KV_METHOD(MethodBrowser, getIndexedString) {
    return nameAt(errSlot, self, instData, kvArgAt(args, 0));
}

// The method record at the chosen position; 0 without a class or at the
// "no method" position.
KV_METHOD(MethodBrowser, getMethod) {
    (void)args;
    const MethodBrowserData* browser = dataOf(instData);
    return reinterpret_cast<kvResult>(recordAt(errSlot, self, browser, browser->current));
}

KV_METHOD(MethodBrowser, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, MethodBrowserClass, self, "objInit", args);
}

KV_METHOD(MethodBrowser, objTerm) {
    (void)instData;
    return kvSendParentMethNA(errSlot, MethodBrowserClass, self, "objTerm", args);
}

// (stream): the base record. A class handle that does not name a class of
// the running table (a record from another process, or a forged one) is
// dropped rather than followed.
KV_METHOD(MethodBrowser, readFromStream) {
    const kvResult result =
        kvSendParentMethNA(errSlot, MethodBrowserClass, self, "readFromStream", args);
    MethodBrowserData* browser = dataOf(instData);
    if (!isClassOfTheTable(browser->cls)) browser->cls = nullptr;
    return result;
}

KV_METHOD(MethodBrowser, resetContents) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

KV_METHOD(MethodBrowser, setClass) {
    (void)errSlot, (void)self;
    dataOf(instData)->cls = reinterpret_cast<kvClass>(kvArgAt(args, 0));
    return 0;
}

KV_METHOD(MethodBrowser, setCurIndex) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "setIndex", args);
}

KV_METHOD(MethodBrowser, setCurrent) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "storeData", args);
}

KV_METHOD(MethodBrowser, setCurrentEnumString) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

// (index): chosen when 0 to "getCount" (inclusive); "OnIndexChange" with
// the chosen position follows in every case. Answers 0.
KV_METHOD(MethodBrowser, setIndex) {
    MethodBrowserData* browser = dataOf(instData);
    const kvArg index = kvArgAt(args, 0);
    if (index >= 0 && index <= kvSendMeth(errSlot, self, "getCount"))
        browser->current = static_cast<int16_t>(index);
    kvFireNotification(errSlot, self, "OnIndexChange", kvArg{browser->current});
    return 0;
}

// (index): sends itself "setIndex" with it.
KV_METHOD(MethodBrowser, storeData) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "setIndex", args);
}

KV_REGISTER(MethodBrowser) {
    if (!kvRegisterClass("Property")) return nullptr;
    MethodBrowserClass = kvAddClass("MethodBrowser", "Property", sizeof(MethodBrowserData), 0,
                                    methodBrowserMethods.get(), methodBrowserClassMethods.get());
    return MethodBrowserClass;
}
