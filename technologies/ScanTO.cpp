// ScanTO: the abstract technology module of scanning components. It gives
// every scanner technology the same five output properties and their
// defaults, single-page and batch scanning built on the abstract "scan", and
// the rule for which output file formats take appended pages. A concrete
// scanner is a subclass that supplies "setup" and "scan"; scanned pages are
// delivered to the component's "ImageData" property, which ScanTO only
// offers as a service and clears.
#include "errors/Raise.hpp"
#include "properties/PropertySupport.hpp"

#include <cstdint>

namespace {

kvClass ScanTOClass = nullptr;

// The flags every ScanTO property is made with.
constexpr kvArg propertyFlags = 38;

// The class's instance data: two bytes that no method uses.
constexpr uint16_t instanceSize = 2;

KV_METHOD_TABLE(scanTOMethods,                          //
                kova::method("canFormatAppend", 1),     //
                kova::method("isFeatureAvailable", 1),  //
                kova::method("objInit", 0),             //
                kova::method("objTerm", 0),             //
                kova::method("registerProperties", 1),  //
                kova::method("scan", 1),                //
                kova::method("scanBatch", 0),           //
                kova::method("scanPage", 0),            //
                kova::method("setPropertyDefaults", 0), //
                kova::method("setup", 0));
KV_EMPTY_METHOD_TABLE(scanTOClassMethods);

// Output formats whose files take appended pages, by format code.
constexpr bool appendable(int16_t format) {
    switch (format) {
    case 4:
    case 5:
    case 13:
    case 14:
    case 15:
    case 16:
    case 17:
    case 18:
    case 20:
    case 21:
    case 22:
    case 23:
    case 24:
    case 25:
    case 26:
    case 28:
        return true;
    default:
        return false;
    }
}

// Makes a property with `own` leading creation arguments, owned by the
// technology, and adds it. A property that cannot be made is skipped
// without a word.
template <typename... A>
void addNewProperty(kvObject* errSlot, kvObject self, const char* className, const char* name,
                    kvArg id, A... own) {
    kvObject quiet = nullptr;
    const kvObject made = kvNewObject(&quiet, className, own..., self, name, id, propertyFlags);
    kova::props::discardErrorsAbove(&quiet, nullptr);
    if (made) kvSendMeth(errSlot, self, "addProperty", made);
}

kvResult pureMethod(kvObject* errSlot, kvObject self, const char* method) {
    return kova::raiseError(errSlot, self, ScanTOClass, 3431, kvClassName(self->cls), method);
}

} // namespace

// (format code, 16-bit): 1 when files of that format take appended pages.
KV_METHOD(ScanTO, canFormatAppend) {
    (void)errSlot, (void)self, (void)instData;
    return appendable(static_cast<int16_t>(kvArgAt(args, 0))) ? 1 : 0;
}

KV_METHOD(ScanTO, isFeatureAvailable) {
    (void)errSlot, (void)self, (void)instData, (void)args;
    return 0;
}

// (the technology's creation arguments): then the five output properties,
// in id order.
KV_METHOD(ScanTO, objInit) {
    (void)instData;
    kvSendParentMethNA(errSlot, ScanTOClass, self, "objInit", args);
    addNewProperty(errSlot, self, "BoolProp", "OutputFileAppend", 1);
    addNewProperty(errSlot, self, "StrEnumProp", "OutputFileFormat", 2);
    addNewProperty(errSlot, self, "StrProp", "OutputFileName", 3, "");
    addNewProperty(errSlot, self, "BoolProp", "OutputToFile", 4);
    addNewProperty(errSlot, self, "StrProp", "Scanner", 5, "");
    return 0;
}

KV_METHOD(ScanTO, objTerm) {
    (void)instData;
    return kvSendParentMethNA(errSlot, ScanTOClass, self, "objTerm", args);
}

// (value for "addService"): the technology's services, then its
// "ImageData" property, when it has one, as the service "ImageData". 1 when
// no error is pending afterwards, else 0.
KV_METHOD(ScanTO, registerProperties) {
    (void)instData;
    return kova::props::noErrorPendingAfter(errSlot, [&](kvObject* slot) {
        kvSendParentMethNA(slot, ScanTOClass, self, "registerProperties", args);
        if (const kvObject image = kova::props::findPropertyQuietly(self, "ImageData"))
            kvSendMeth(slot, self, "addService", "ImageData", self, kvArgAt(args, 0), image);
    });
}

// (page number): pure; subclasses deliver the page.
KV_METHOD(ScanTO, scan) {
    (void)instData, (void)args;
    return pureMethod(errSlot, self, "scan");
}

// Scans pages 1, 2, ... until a page fails, and answers the number scanned
// before the failure, whose error stays in the caller's slot. Without a
// slot, or with an error already standing in it, nothing is scanned and the
// answer is -1. The count stops short of overflowing should a subclass
// never fail.
KV_METHOD(ScanTO, scanBatch) {
    (void)instData, (void)args;
    int32_t page = 0;
    while (errSlot && !*errSlot && page < INT32_MAX) {
        ++page;
        kvSendMeth(errSlot, self, "scan", page);
    }
    return page - 1;
}

KV_METHOD(ScanTO, scanPage) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "scan", 1);
}

// The technology's defaults, then the image cleared and the output
// properties reset. 1 when no error is pending afterwards, else 0.
KV_METHOD(ScanTO, setPropertyDefaults) {
    (void)instData;
    return kova::props::noErrorPendingAfter(errSlot, [&](kvObject* slot) {
        kvSendParentMethNA(slot, ScanTOClass, self, "setPropertyDefaults", args);
        if (const kvObject image = kova::props::findPropertyQuietly(self, "ImageData"))
            kvSendMeth(slot, image, "clearImage");
        kvSendMeth(slot, self, "storeProperty", "OutputFileAppend", 0);
        kvSendMeth(slot, self, "storeProperty", "OutputFileName", "");
        kvSendMeth(slot, self, "storeProperty", "OutputToFile", 0);
        kvSendMeth(slot, self, "storeProperty", "Scanner", "");
    });
}

// Pure; subclasses set the scanner up.
KV_METHOD(ScanTO, setup) {
    (void)instData, (void)args;
    return pureMethod(errSlot, self, "setup");
}

KV_REGISTER(ScanTO) {
    if (!kvRegisterClass("TM")) return nullptr;
    ScanTOClass =
        kvAddClass("ScanTO", "TM", instanceSize, 0, scanTOMethods.get(), scanTOClassMethods.get());
    return ScanTOClass;
}
