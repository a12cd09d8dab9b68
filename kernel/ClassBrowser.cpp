// ClassBrowser: the class table as an enumerated property, so that any user
// interface that shows an enumeration can pick a class. Positions are the
// class table's, in the order classes were added; the cookie of a position
// is its class handle, its string the class name. "setIndex" accepts the
// count itself, which stands for "no class".
//
// Reads stay inside the class table: a position outside it answers 0 (no
// class, no name), and only a position beyond the count, or below 0, is
// also reported, with 3441.
#include "errors/Raise.hpp"
#include "kova/kernel.h"

#include <cstdio>

namespace {

#pragma pack(push, 1)
struct ClassBrowserData {
    int16_t current;  // the chosen position, 0 to the count
    char buffer[256]; // the last name asked for
};
#pragma pack(pop)

kvClass ClassBrowserClass = nullptr;

KV_METHOD_TABLE(classBrowserMethods,                     //
                kova::method("fetchData", 0),            //
                kova::method("getCount", 0),             //
                kova::method("getCurIndex", 0),          //
                kova::method("getCurrent", 0),           //
                kova::method("getCurrentEnumString", 0), //
                kova::method("getCurrentString", 0),     //
                kova::method("getIndex", 0),             //
                kova::method("getIndexedCookie", 1),     //
                kova::method("getIndexedEnumString", 1), //
                kova::method("getIndexedString", 1),     //
                kova::method("objInit", 0),              //
                kova::method("objTerm", 0),              //
                kova::method("setCurIndex", 1),          //
                kova::method("setCurrent", 1),           //
                kova::method("setCurrentEnumString", 1), //
                kova::method("setIndex", 1),             //
                kova::method("storeData", 1));
KV_EMPTY_METHOD_TABLE(classBrowserClassMethods);

ClassBrowserData* dataOf(void* instData) {
    return static_cast<ClassBrowserData*>(instData);
}

kvArg classCount() {
    return static_cast<kvArg>(kvGetClassCount());
}

// The class at `index`, or null outside the table; 3441 for an index that
// is not even the "no class" position.
kvClass classAt(kvObject* errSlot, kvObject self, kvArg index) {
    if (index < 0 || index > classCount()) {
        const auto* name = reinterpret_cast<const char*>(kvSendMeth(nullptr, self, "getName"));
        kova::raiseError(errSlot, self, ClassBrowserClass, 3441, index, name);
    }
    return index >= 0 ? kvGetClassAt(static_cast<size_t>(index)) : nullptr;
}

// The name of the class at `index` in the browser's buffer, or null.
kvResult nameAt(kvObject* errSlot, kvObject self, void* instData, kvArg index) {
    const kvClass cls = classAt(errSlot, self, index);
    if (!cls) return 0;
    char* buffer = dataOf(instData)->buffer;
    std::snprintf(buffer, sizeof(ClassBrowserData::buffer), "%s", kvClassName(cls));
    return reinterpret_cast<kvResult>(buffer);
}

} // namespace

// The class handle at the chosen position; null at the "no class" position.
KV_METHOD(ClassBrowser, fetchData) {
    (void)args;
    return reinterpret_cast<kvResult>(classAt(errSlot, self, dataOf(instData)->current));
}

KV_METHOD(ClassBrowser, getCount) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return classCount();
}

KV_METHOD(ClassBrowser, getCurIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->current;
}

KV_METHOD(ClassBrowser, getCurrent) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "fetchData", args);
}

KV_METHOD(ClassBrowser, getCurrentEnumString) {
    (void)args;
    return nameAt(errSlot, self, instData, dataOf(instData)->current);
}

KV_METHOD(ClassBrowser, getCurrentString) {
    (void)args;
    return nameAt(errSlot, self, instData, dataOf(instData)->current);
}

KV_METHOD(ClassBrowser, getIndex) {
    (void)errSlot, (void)self, (void)args;
    return dataOf(instData)->current;
}

// (index): the class handle there.
KV_METHOD(ClassBrowser, getIndexedCookie) {
    (void)instData;
    return reinterpret_cast<kvResult>(classAt(errSlot, self, kvArgAt(args, 0)));
}

KV_METHOD(ClassBrowser, getIndexedEnumString) {
    return nameAt(errSlot, self, instData, kvArgAt(args, 0));
}

// (index): the class name there, copied into the browser's buffer.
KV_METHOD(ClassBrowser, getIndexedString) {
    return nameAt(errSlot, self, instData, kvArgAt(args, 0));
}

KV_METHOD(ClassBrowser, objInit) {
    (void)instData;
    return kvSendParentMethNA(errSlot, ClassBrowserClass, self, "objInit", args);
}

KV_METHOD(ClassBrowser, objTerm) {
    (void)instData;
    return kvSendParentMethNA(errSlot, ClassBrowserClass, self, "objTerm", args);
}

KV_METHOD(ClassBrowser, setCurIndex) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "setIndex", args);
}

// (index): "storeData" with it, which looks for a class of that handle.
KV_METHOD(ClassBrowser, setCurrent) {
    (void)instData;
    return kvSendMethNA(errSlot, self, "storeData", args);
}

KV_METHOD(ClassBrowser, setCurrentEnumString) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

// (index): chosen when 0 to the count (inclusive); "OnIndexChange" with the
// chosen position follows in every case. Answers 0.
KV_METHOD(ClassBrowser, setIndex) {
    ClassBrowserData* browser = dataOf(instData);
    const kvArg index = kvArgAt(args, 0);
    if (index >= 0 && index <= classCount()) browser->current = static_cast<int16_t>(index);
    kvFireNotification(errSlot, self, "OnIndexChange", kvArg{browser->current});
    return 0;
}

// (class handle): chooses its position; a handle not in the table changes
// nothing. Answers 0.
KV_METHOD(ClassBrowser, storeData) {
    (void)instData;
    const auto cls = reinterpret_cast<kvClass>(kvArgAt(args, 0));
    for (size_t i = 0; cls && i < kvGetClassCount(); ++i) {
        if (kvGetClassAt(i) == cls) {
            kvSendMeth(errSlot, self, "setIndex", i);
            break;
        }
    }
    return 0;
}

KV_REGISTER(ClassBrowser) {
    if (!kvRegisterClass("Property")) return nullptr;
    ClassBrowserClass = kvAddClass("ClassBrowser", "Property", sizeof(ClassBrowserData), 0,
                                   classBrowserMethods.get(), classBrowserClassMethods.get());
    return ClassBrowserClass;
}
