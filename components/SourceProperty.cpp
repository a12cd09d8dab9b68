// SourceProperty: a component's property whose value is the FQN of the
// provider it wants ("<None>" for none). It registers itself as a sink in the
// property link registry, owns the Link that stands in for the provider's
// linked object, and offers the providers of its service as an enumeration
// for a pick list: row 0 is "<None>", rows 1 to n the providers in
// registration order, each keyed by a copy of its display name. The
// enumeration is rebuilt after the registry announces a change of the
// service's providers.
#include "errors/Raise.hpp"
#include "kova/plr.h"
#include "platform/Platform.hpp"
#include "properties/PrivateSlot.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

using kova::props::isBlank;
using kova::props::sameIgnoringCase;
using kova::props::textArg;

#pragma pack(push, 1)
struct SourcePropertyData {
    char* serviceName; // the service whose providers it chooses among
    char* linkName;    // the name its Link is made with
    kvObject link;     // its Link, made on demand, or null
    char* sinkFQN;     // its own FQN as a sink, or null
    char* value;       // the chosen provider FQN, "<None>" when none
    kvObject cache;    // the enumeration (a StrTable), or null
    int32_t stale;     // 1 when the enumeration must be rebuilt before use
};
#pragma pack(pop)

kvClass SourcePropertyClass = nullptr;

constexpr const char* noProvider = "<None>";
constexpr int16_t uniqueStrings = 102;
constexpr const char* changeHandler = "OnPLRChange";
constexpr const char* ownerTermHandler = "OnOwnerTerminate";

KV_METHOD_TABLE(sourcePropertyMethods,                         //
                kova::method("OnOwnerTerminate", 0),           //
                kova::method("OnPLRChange", 0),                //
                kova::method("clearEnumCache", 0),             //
                kova::method("createLinkObject", 0),           //
                kova::method("fetchData", 0),                  //
                kova::method("fireMethodOnLinkedProperty", 2), //
                kova::method("getCount", 0),                   //
                kova::method("getCurIndex", 0),                //
                kova::method("getCurrentEnumString", 0),       //
                kova::method("getIndexedCookie", 1),           //
                kova::method("getIndexedEnumString", 1),       //
                kova::method("getIndexedString", 1),           //
                kova::method("getString", 1),                  //
                kova::method("isA", 1),                        //
                kova::method("killLinkObject", 0),             //
                kova::method("objInit", 2),                    //
                kova::method("objTerm", 0),                    //
                kova::method("refreshEnumCache", 0),           //
                kova::method("requiredLinkAvailable", 1),      //
                kova::method("setCurIndex", 1),                //
                kova::method("setSinkFQN", 1),                 //
                kova::method("setSourceFQNOnLink", 1),         //
                kova::method("storeData", 1));
KV_EMPTY_METHOD_TABLE(sourcePropertyClassMethods);

SourcePropertyData* sourceOf(void* instData) {
    return static_cast<SourcePropertyData*>(instData);
}

kvObject ownerOf(kvObject* errSlot, kvObject self) {
    return reinterpret_cast<kvObject>(kvSendMeth(errSlot, self, "getOwner"));
}

// Replaces an owned string of the (packed) instance data through an aligned
// slot; answers false when the copy could not be made (the old one stays).
bool replaceText(char** field, const char* text) {
    char* slot = nullptr;
    std::memcpy(&slot, field, sizeof slot);
    const bool copied = utilSetString(&slot, text) != nullptr || !text;
    std::memcpy(field, &slot, sizeof slot);
    return copied;
}

// The Link, made first if there is none yet (which may still fail: null).
kvObject linkOf(kvObject* errSlot, kvObject self, SourcePropertyData* source) {
    if (!source->link) kvSendMeth(errSlot, self, "createLinkObject");
    return source->link;
}

kvResult rowCount(kvObject* errSlot, const SourcePropertyData* source) {
    return source->cache ? kvSendMeth(errSlot, source->cache, "getCount") : 0;
}

} // namespace

// The owner is ending: its Link goes with it.
KV_METHOD(SourceProperty, OnOwnerTerminate) {
    (void)instData, (void)args;
    kvSendMeth(errSlot, self, "killLinkObject");
    return 0;
}

// The registry's notification of the service: the providers changed.
KV_METHOD(SourceProperty, OnPLRChange) {
    (void)args;
    sourceOf(instData)->stale = 1;
    kvFireNotification(errSlot, self, "OnTableChange");
    kvFireNotification(errSlot, self, "OnIndexChange");
    return 0;
}

// Frees the display-name copies the rows are keyed by, then empties the rows.
KV_METHOD(SourceProperty, clearEnumCache) {
    (void)self, (void)args;
    const kvObject cache = sourceOf(instData)->cache;
    if (!cache) return 0;
    const kvResult rows = kvSendMeth(errSlot, cache, "getCount");
    for (kvResult i = 0; i < rows; ++i)
        kova::platform::release(reinterpret_cast<char*>(kvSendMeth(errSlot, cache, "getKey", i)));
    return kvSendMeth(errSlot, cache, "resetContents");
}

// Makes the Link (a property of the same owner) and listens for the owner's
// end. A subscription left from an earlier Link is kept as it is.
KV_METHOD(SourceProperty, createLinkObject) {
    (void)args;
    SourcePropertyData* source = sourceOf(instData);
    const kvObject owner = ownerOf(errSlot, self);
    const kvObject link =
        kvNewObject(errSlot, "Link", source->serviceName, 0, owner, source->linkName, 0, 0);
    if (link && owner) {
        kvSendMeth(errSlot, owner, "addProperty", link);
        kova::PrivateSlot already;
        kvAddNotification(already.get(), owner, "OnTerm", self, ownerTermHandler, 0);
    }
    source->link = link;
    return 0;
}

KV_METHOD(SourceProperty, fetchData) {
    kvSendParentMethNA(errSlot, SourcePropertyClass, self, "fetchData", args);
    return reinterpret_cast<kvResult>(sourceOf(instData)->value);
}

// (method name, one argument): sent to the Link; -1 when there is none.
KV_METHOD(SourceProperty, fireMethodOnLinkedProperty) {
    const kvObject link = linkOf(errSlot, self, sourceOf(instData));
    if (!link) return -1;
    kvSendMeth(errSlot, link, textArg(args, 0), kvArgAt(args, 1));
    return 0;
}

KV_METHOD(SourceProperty, getCount) {
    (void)args;
    kvSendMeth(errSlot, self, "refreshEnumCache");
    return rowCount(errSlot, sourceOf(instData));
}

// The row of the value, or the row count when the value is not among them.
KV_METHOD(SourceProperty, getCurIndex) {
    (void)self, (void)args;
    const SourcePropertyData* source = sourceOf(instData);
    if (!source->cache) return 0;
    const kvResult row = kvSendMeth(errSlot, source->cache, "findString", source->value);
    return row >= 0 ? row : rowCount(errSlot, source);
}

// The display name of the value's row; a value not among the rows is
// replaced by "<None>", which is answered.
KV_METHOD(SourceProperty, getCurrentEnumString) {
    (void)args;
    SourcePropertyData* source = sourceOf(instData);
    kvSendMeth(errSlot, self, "refreshEnumCache");
    if (!source->cache) return 0;
    const kvResult row = kvSendMeth(errSlot, source->cache, "findString", source->value);
    if (row >= 0) return kvSendMeth(errSlot, source->cache, "getKey", row);
    return kvSendMeth(errSlot, self, "storeData", nullptr);
}

// (index): the provider FQN of that row, or the value.
KV_METHOD(SourceProperty, getIndexedCookie) {
    SourcePropertyData* source = sourceOf(instData);
    kvSendMeth(errSlot, self, "refreshEnumCache");
    const kvResult fqn =
        source->cache ? kvSendMeth(errSlot, source->cache, "getString", kvArgAt(args, 0)) : 0;
    return fqn ? fqn : reinterpret_cast<kvResult>(source->value);
}

KV_METHOD(SourceProperty, getIndexedEnumString) {
    (void)instData;
    kvSendMeth(errSlot, self, "refreshEnumCache");
    return kvSendMeth(errSlot, self, "getString", kvArgAt(args, 0));
}

KV_METHOD(SourceProperty, getIndexedString) {
    (void)instData;
    return kvSendMeth(errSlot, self, "getString", kvArgAt(args, 0));
}

// (16-bit index): the display name of that row, or the value ("fetchData")
// when the row has none, as row 0 has not.
KV_METHOD(SourceProperty, getString) {
    SourcePropertyData* source = sourceOf(instData);
    kvSendMeth(errSlot, self, "refreshEnumCache");
    const auto index = static_cast<int16_t>(kvArgAt(args, 0));
    const kvResult name = source->cache ? kvSendMeth(errSlot, source->cache, "getKey", index) : 0;
    return name ? name : kvSendMeth(errSlot, self, "fetchData");
}

// A source property passes for a string enumeration, so that a user interface
// shows it as a pick list. For any other class the parent is asked and its
// answer dropped: the answer is 0.
KV_METHOD(SourceProperty, isA) {
    (void)instData;
    const char* name = textArg(args, 0);
    if (name && (sameIgnoringCase(name, "StrListProp") || sameIgnoringCase(name, "StrEnumProp")))
        return 1;
    kvSendParentMethNA(errSlot, SourcePropertyClass, self, "isA", args);
    return 0;
}

// Takes the Link out of the owner's properties and deletes it; -1 without an
// owner.
KV_METHOD(SourceProperty, killLinkObject) {
    (void)args;
    SourcePropertyData* source = sourceOf(instData);
    const kvObject owner = ownerOf(errSlot, self);
    if (!owner) return -1;
    if (const kvObject link = source->link) {
        kvSendMeth(errSlot, owner, "delProperty", link);
        source->link = nullptr;
        kvDelObject(errSlot, link);
    }
    return 0;
}

// (link name, service name, then Property's arguments: owner, name, id, flags)
KV_METHOD(SourceProperty, objInit) {
    SourcePropertyData* source = sourceOf(instData);
    std::memset(source, 0, sizeof *source);
    const kvArgs rest = kvArgsAfter(args, 2);
    kvSendParentMethNA(errSlot, SourcePropertyClass, self, "objInit", &rest);
    if (!replaceText(&source->linkName, textArg(args, 0)) ||
        !replaceText(&source->serviceName, textArg(args, 1)) ||
        !replaceText(&source->value, noProvider))
        kova::raiseError(errSlot, self, SourcePropertyClass, 3429);
    return 0;
}

// Besides what the property owns, its subscription to the owner's "OnTerm"
// is removed (the owner would otherwise call a deleted property), and a Link
// made without an owner, which killLinkObject leaves, is deleted here.
KV_METHOD(SourceProperty, objTerm) {
    SourcePropertyData* source = sourceOf(instData);
    const kvObject owner = ownerOf(errSlot, self);
    kvSendMeth(errSlot, self, "killLinkObject");
    if (const kvObject orphan = source->link) { // no owner to take it from
        source->link = nullptr;
        kvDelObject(errSlot, orphan);
    }
    PLRUnregisterSink(self, source->sinkFQN, source->serviceName);
    if (owner) {
        kova::PrivateSlot absent;
        kvDeleteNotification(absent.get(), owner, "OnTerm", self, ownerTermHandler);
    }
    if (source->cache) {
        if (const kvObject notifier = PLRGetNotifierObject()) {
            kova::PrivateSlot absent;
            kvDeleteNotification(absent.get(), notifier, source->serviceName, self, changeHandler);
        }
        kvSendMeth(errSlot, self, "clearEnumCache");
        const kvObject cache = source->cache;
        source->cache = nullptr;
        kvDelObject(errSlot, cache);
    }
    replaceText(&source->serviceName, nullptr);
    replaceText(&source->linkName, nullptr);
    replaceText(&source->sinkFQN, nullptr);
    replaceText(&source->value, nullptr);
    return kvSendParentMethNA(errSlot, SourcePropertyClass, self, "objTerm", args);
}

// Rebuilds the enumeration when the registry has announced a change since
// the last build; the first use makes it and starts listening. The rows are
// added before the display names are asked for, so that a provider's answer
// cannot pull the registry's list of FQNs from under the loop.
KV_METHOD(SourceProperty, refreshEnumCache) {
    (void)args;
    SourcePropertyData* source = sourceOf(instData);
    if (!source->cache) {
        source->cache = kvNewObject(errSlot, "StrTable", uniqueStrings);
        if (!source->cache) return 0;
        if (const kvObject notifier = PLRGetNotifierObject()) {
            // A service name longer than an event name cannot be listened to;
            // the enumeration then goes stale only by the registry's silence.
            kova::PrivateSlot refused;
            kvAddNotification(refused.get(), notifier, source->serviceName, self, changeHandler, 1);
        }
        source->stale = 1;
    }
    if (!source->stale) return 0;
    const kvObject cache = source->cache;
    kvSendMeth(errSlot, self, "clearEnumCache");
    kvSendMeth(errSlot, cache, "addKey", noProvider, nullptr);
    int16_t count = 0;
    char** fqns = nullptr;
    if (PLRGetServiceProviderFQNs(source->serviceName, &count, &fqns) == PLR_OK) {
        kova::PrivateSlot repeated; // two providers may share an FQN
        for (int16_t i = 0; i < count; ++i)
            if (fqns[i]) kvSendMeth(repeated.get(), cache, "addKey", fqns[i], nullptr);
    }
    const kvResult rows = kvSendMeth(errSlot, cache, "getCount");
    for (kvResult row = 1; row < rows; ++row) {
        const auto* fqn =
            reinterpret_cast<const char*>(kvSendMeth(errSlot, cache, "getString", row));
        const char* displayName = nullptr;
        PLRGetDisplayNameFromLINKID(source->serviceName, fqn, &displayName);
        char* copy = kova::platform::duplicate(displayName);
        if (kvSendMeth(errSlot, cache, "setKey", row, copy) < 0) kova::platform::release(copy);
    }
    source->stale = 0;
    return 0;
}

// (provider FQN): the registry says it has come; the Link decides.
KV_METHOD(SourceProperty, requiredLinkAvailable) {
    const kvObject link = linkOf(errSlot, self, sourceOf(instData));
    if (link) kvSendMeth(errSlot, link, "requiredLinkAvailable", kvArgAt(args, 0));
    return 0;
}

// (16-bit index): chooses the provider of that row. The index equal to the
// row count changes nothing. The 3441 test (a negative index not less than
// the count) is kept as it has always been written, though no count meets it.
KV_METHOD(SourceProperty, setCurIndex) {
    const SourcePropertyData* source = sourceOf(instData);
    const auto index = static_cast<int16_t>(kvArgAt(args, 0));
    const kvResult count = rowCount(errSlot, source);
    if (index == count) return 0;
    if (index < 0 && index >= count) {
        const auto* name = reinterpret_cast<const char*>(kvSendMeth(errSlot, self, "getName"));
        return kova::raiseError(errSlot, self, SourcePropertyClass, 3441, int32_t{index}, name);
    }
    const kvResult fqn = source->cache ? kvSendMeth(errSlot, source->cache, "getString", index) : 0;
    kvSendMeth(errSlot, self, "storeData", fqn);
    return 0;
}

// (FQN): takes a new sink FQN, moving its sink record; -1 with 3429 when the
// copy cannot be made.
KV_METHOD(SourceProperty, setSinkFQN) {
    SourcePropertyData* source = sourceOf(instData);
    const char* fqn = textArg(args, 0);
    if (!fqn || (source->sinkFQN && std::strcmp(fqn, source->sinkFQN) == 0)) return 0;
    if (!isBlank(source->sinkFQN) && !isBlank(source->serviceName))
        PLRUnregisterSink(self, source->sinkFQN, source->serviceName);
    if (!replaceText(&source->sinkFQN, fqn)) {
        kova::raiseError(errSlot, self, SourcePropertyClass, 3429);
        return -1;
    }
    if (!isBlank(source->sinkFQN) && !isBlank(source->serviceName) && !isBlank(source->value))
        PLRRegisterSink(self, source->sinkFQN, source->serviceName, source->value);
    if (const kvObject link = linkOf(errSlot, self, source))
        kvSendMeth(errSlot, link, "setSinkFQN", fqn);
    return 0;
}

// (provider FQN): the sink record wants it, and the Link moves to it.
KV_METHOD(SourceProperty, setSourceFQNOnLink) {
    SourcePropertyData* source = sourceOf(instData);
    const char* fqn = textArg(args, 0);
    PLRRegisterSink(self, source->sinkFQN, source->serviceName, fqn);
    const kvObject link = linkOf(errSlot, self, source);
    return link ? kvSendMeth(errSlot, link, "setSourceFQN", fqn) : 0;
}

// (provider FQN): the value; null or empty means "<None>". Every change of
// provider, the registry's included, comes through here: the sink record is
// updated and the Link relinks. Answers the value.
KV_METHOD(SourceProperty, storeData) {
    SourcePropertyData* source = sourceOf(instData);
    const char* fqn = textArg(args, 0);
    if (!replaceText(&source->value, isBlank(fqn) ? noProvider : fqn))
        return kova::raiseError(errSlot, self, SourcePropertyClass, 3429);
    kvSendParentMethNA(errSlot, SourcePropertyClass, self, "storeData", args);
    kvFireNotification(errSlot, self, "OnIndexChange");
    kvSendMeth(errSlot, self, "setSourceFQNOnLink", source->value);
    return reinterpret_cast<kvResult>(source->value);
}

KV_REGISTER(SourceProperty) {
    if (!kvRegisterClass("Property")) return nullptr;
    SourcePropertyClass = kvAddClass("SourceProperty", "Property", sizeof(SourcePropertyData), 0,
                                     sourcePropertyMethods.get(), sourcePropertyClassMethods.get());
    return SourcePropertyClass;
}
