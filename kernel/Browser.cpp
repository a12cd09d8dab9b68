// Browser: a technology module that lets a tool browse the class table. It
// owns three properties, "ClassBrowser" (the classes), "MethodBrowser" (the
// chosen class's own methods) and "MethodBreak" (the chosen method's break
// switch), and keeps them in step: choosing a class gives the method browser
// that class at its first method, and choosing a method points the break
// switch at it. Any user interface that shows enumerated properties can
// show it.
#include "properties/PropertySupport.hpp"

namespace {

#pragma pack(push, 1)
struct BrowserData {
    int32_t unused; // kept for the class's instance size; no method reads it
};
#pragma pack(pop)

kvClass BrowserClass = nullptr;

KV_METHOD_TABLE(browserMethods,                     //
                kova::method("OnClassChanged", 0),  //
                kova::method("OnMethodChanged", 0), //
                kova::method("objInit", 0),         //
                kova::method("objTerm", 0));
KV_EMPTY_METHOD_TABLE(browserClassMethods);

// A property of `className` owned by the browser, added to it; null when it
// could not be made.
kvObject addNewProperty(kvObject* errSlot, kvObject self, const char* className, const char* name) {
    const kvObject made = kvNewObject(errSlot, className, self, name, 0, 0);
    if (made) kvSendMeth(errSlot, self, "addProperty", made);
    return made;
}

// Both properties, or false when either is missing.
bool findBoth(kvObject self, const char* first, const char* second, kvObject* one,
              kvObject* other) {
    *one = kova::props::findPropertyQuietly(self, first);
    *other = kova::props::findPropertyQuietly(self, second);
    return *one && *other;
}

} // namespace

// The class browser moved: the method browser takes its class and goes to
// the first method (which moves the break switch in turn).
KV_METHOD(Browser, OnClassChanged) {
    (void)instData, (void)args;
    kvObject classes = nullptr;
    kvObject methods = nullptr;
    if (!findBoth(self, "ClassBrowser", "MethodBrowser", &classes, &methods)) return 0;
    kvSendMeth(errSlot, methods, "setClass", kvSendMeth(errSlot, classes, "fetchData"));
    kvSendMeth(errSlot, methods, "setIndex", 0);
    return 0;
}

// The method browser moved: the break switch follows its method.
KV_METHOD(Browser, OnMethodChanged) {
    (void)instData, (void)args;
    kvObject methods = nullptr;
    kvObject breakSwitch = nullptr;
    if (!findBoth(self, "MethodBrowser", "MethodBreak", &methods, &breakSwitch)) return 0;
    kvSendMeth(errSlot, breakSwitch, "setMethod", kvSendMeth(errSlot, methods, "getMethod"));
    return 0;
}

// (the technology's creation arguments): then the three properties, each
// wired to the next through "OnIndexChange" and brought in step once. When
// the break switch cannot be made the browser answers 0 without it.
KV_METHOD(Browser, objInit) {
    (void)instData;
    kvSendParentMethNA(errSlot, BrowserClass, self, "objInit", args);
    if (const kvObject classes = addNewProperty(errSlot, self, "ClassBrowser", "ClassBrowser"))
        kvAddNotification(errSlot, classes, "OnIndexChange", self, "OnClassChanged", 0);
    if (const kvObject methods = addNewProperty(errSlot, self, "MethodBrowser", "MethodBrowser")) {
        kvSendMeth(errSlot, self, "OnClassChanged");
        kvAddNotification(errSlot, methods, "OnIndexChange", self, "OnMethodChanged", 0);
    }
    if (!addNewProperty(errSlot, self, "MethBreak", "MethodBreak")) return 0;
    kvSendMeth(errSlot, self, "OnMethodChanged");
    return 0;
}

KV_METHOD(Browser, objTerm) {
    (void)instData;
    return kvSendParentMethNA(errSlot, BrowserClass, self, "objTerm", args);
}

KV_REGISTER(Browser) {
    if (!kvRegisterClass("TM")) return nullptr;
    BrowserClass = kvAddClass("Browser", "TM", sizeof(BrowserData), 0, browserMethods.get(),
                              browserClassMethods.get());
    return BrowserClass;
}
