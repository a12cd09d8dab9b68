// PM: the personality module, the half of a component that a host sees. It
// holds the host's control handle and event callback, the window handle,
// the run mode and the component's FQN; it makes its technology module (TM)
// when activated and from then on forwards run mode, window, painting and
// properties to it. Properties stored before that wait in "TMProps" and reach
// the technology at activation.
#include "errors/Raise.hpp"
#include "kernel/Kernel.hpp"
#include "kova/component.h"
#include "kova/errdialog.h"
#include "kova/plr.h"
#include "kova/version.h"
#include "platform/Platform.hpp"
#include "properties/PrivateSlot.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

using kova::props::objectArg;
using kova::props::textArg;

#pragma pack(push, 1)
struct PMData {
    kvObject technology;          // made by activate or set by setTM; null before
    char* fqn;                    // the component's FQN, or null
    kvArg control;                // the host's control handle, handed back to the callback
    char* displayName;            // what getDisplayName last answered
    char* technologyClass;        // the TM subclass activate makes
    int32_t activated;            // 1 once activate has made the technology
    kvObject pending;             // "TMProps": properties stored before the technology exists
    int16_t runMode;              // kept until the technology exists; 1 by default
    kvArg window;                 // kept until the technology exists
    int32_t propertiesRegistered; // 1 once the technology was sent registerProperties
    int32_t* maskedEvents;        // events not dispatched to the host
    int32_t maskedCount;          // entries of maskedEvents
    kvEventDispatch dispatch;     // the host's callback, or null
};
#pragma pack(pop)

kvClass PMClass = nullptr;

constexpr size_t displayNameSize = 80;
constexpr size_t helpFileSize = 64;

KV_METHOD_TABLE(pmMethods,                                //
                kova::method("OnDisplayNameChanged", 0),  //
                kova::method("activate", 0),              //
                kova::method("displayError", 1),          //
                kova::method("fetchControl", 0),          //
                kova::method("fetchFQN", 0),              //
                kova::method("fetchProperty", 1),         //
                kova::method("findPropertyByName", 1),    //
                kova::method("fireEvent", 1),             //
                kova::method("fireMethod", 1),            //
                kova::method("getDisplayName", 0),        //
                kova::method("getEventMaskState", 1),     //
                kova::method("getRunMode", 0),            //
                kova::method("getTM", 0),                 //
                kova::method("objInit", 0),               //
                kova::method("objTerm", 0),               //
                kova::method("paint", 3),                 //
                kova::method("popLink", 2),               //
                kova::method("processError", 2),          //
                kova::method("pushLink", 3),              //
                kova::method("registerEventDispatch", 1), //
                kova::method("setEventMaskState", 2),     //
                kova::method("setHWND", 1),               //
                kova::method("setPropertyDefaults", 0),   //
                kova::method("setRunMode", 1),            //
                kova::method("setTM", 1),                 //
                kova::method("setTMName", 1),             //
                kova::method("storeControl", 1),          //
                kova::method("storeFQN", 1),              //
                kova::method("storeProperty", 3));
KV_EMPTY_METHOD_TABLE(pmClassMethods);

PMData* pmOf(void* instData) {
    return static_cast<PMData*>(instData);
}

// The packed instance data's owned strings and arrays go through aligned
// copies of their pointers.
template <typename T> T* load(T* const* field) {
    T* value;
    std::memcpy(&value, field, sizeof value);
    return value;
}

template <typename T> void keep(T** field, T* value) {
    std::memcpy(field, &value, sizeof value);
}

// Replaces an owned string; false when the copy could not be made.
bool replaceText(char** field, const char* text) {
    char* slot = load(field);
    const bool copied = utilSetString(&slot, text) != nullptr || !text;
    keep(field, slot);
    return copied;
}

int32_t findMasked(const PMData* pm, int32_t event) {
    const int32_t* events = load(&pm->maskedEvents);
    for (int32_t i = 0; i < pm->maskedCount; ++i)
        if (events[i] == event) return i;
    return -1;
}

// The personality's own property of that name, found by Baron's lookup;
// null, with the lookup's error forgotten, when it has none.
kvObject ownProperty(kvObject self, const char* name) {
    kova::PrivateSlot absent;
    return reinterpret_cast<kvObject>(
        kvSendParentMeth(absent.get(), PMClass, self, "findPropertyByName", name));
}

kvObject pendingProperty(const PMData* pm, const char* name) {
    if (!pm->pending || !name || !*name) return nullptr;
    kova::PrivateSlot absent;
    return reinterpret_cast<kvObject>(kvSendMeth(absent.get(), pm->pending, "getPropByName", name));
}

// Hands every pending property's value to the technology, by name.
void deliverPending(kvObject technology, kvObject pending) {
    kova::PrivateSlot walk; // getNext past the last member reports it there
    const auto members =
        reinterpret_cast<kvObject>(kvSendMeth(walk.get(), pending, "getPropCollect"));
    if (!members) return;
    kvSendMeth(walk.get(), members, "reset");
    auto property = reinterpret_cast<kvObject>(kvSendMeth(walk.get(), members, "getCurrent"));
    while (property) {
        kvSendMeth(walk.get(), property, "exchangeData", technology);
        property = reinterpret_cast<kvObject>(kvSendMeth(walk.get(), members, "getNext"));
    }
}

// What an error object says of itself, for the host. The texts are copies:
// the error may be deleted before the last event that carries them.
struct ErrorFacts {
    int32_t code = 0;
    char* message = nullptr;
    uint32_t resultCode = 0;
    char* source = nullptr;
    char helpFile[helpFileSize + 1] = {};
    int32_t helpContext = 0;

    ErrorFacts() = default;
    ErrorFacts(const ErrorFacts&) = delete;
    ErrorFacts& operator=(const ErrorFacts&) = delete;
    ~ErrorFacts() {
        kova::platform::release(message);
        kova::platform::release(source);
    }
};

void readFacts(kvObject* errSlot, kvObject error, ErrorFacts& facts) {
    facts.code = static_cast<int32_t>(kvSendMeth(errSlot, error, "getCode"));
    facts.message = kova::platform::duplicate(
        reinterpret_cast<const char*>(kvSendMeth(errSlot, error, "getMessage")));
    facts.source = kova::platform::duplicate(
        reinterpret_cast<const char*>(kvSendMeth(errSlot, error, "getSource")));
    facts.helpContext = static_cast<int32_t>(kvSendMeth(errSlot, error, "getHelpFileContextID"));
    kova::PrivateSlot noHelpFile; // an error class may have none
    kvSendMeth(noHelpFile.get(), error, "getHelpFileName", facts.helpFile,
               static_cast<int32_t>(helpFileSize));
    facts.helpFile[helpFileSize] = '\0';
    facts.resultCode = static_cast<uint32_t>(facts.code) | KV_ERROR_RESULT_BITS;
}

bool isShowingAction(int16_t action) {
    return action == 0 || action == 1 || action == 3;
}

bool isReportingAction(int16_t action) {
    return action == 0 || action == -1 || action == 2 || action == 3;
}

} // namespace

KV_METHOD(PM, OnDisplayNameChanged) {
    kvSendParentMethNA(errSlot, PMClass, self, "OnDisplayNameChanged", args);
    if (const kvObject technology = pmOf(instData)->technology)
        kvSendMethNA(errSlot, technology, "OnDisplayNameChanged", args);
    return 0;
}

// Makes the technology once: an instance of the class set by setTMName with
// the personality as its first argument, given the FQN, run mode, property
// defaults, window and the properties stored so far. Answers the technology,
// or null when it could not be made.
KV_METHOD(PM, activate) {
    (void)args;
    PMData* pm = pmOf(instData);
    if (pm->activated && pm->technology) return reinterpret_cast<kvResult>(pm->technology);
    const char* className = load(&pm->technologyClass);
    const kvObject technology = className ? kvNewObject(errSlot, className, self) : nullptr;
    if (!technology) return 0;
    pm->technology = technology;
    pm->activated = 1;
    if (const char* fqn = load(&pm->fqn)) {
        char* copy = kova::platform::duplicate(fqn);
        if (copy) {
            kvSendMeth(errSlot, self, "storeFQN", copy);
            if (!pm->propertiesRegistered)
                kvSendMeth(errSlot, technology, "registerProperties", copy);
            kova::platform::release(copy);
        } else {
            kova::raiseError(errSlot, self, PMClass, 3429);
        }
    }
    kvSendMeth(errSlot, self, "setRunMode", pm->runMode);
    kvSendMeth(errSlot, self, "setPropertyDefaults");
    kvSendMeth(errSlot, self, "OnDisplayNameChanged");
    if (pm->window) kvSendMeth(errSlot, self, "setHWND", pm->window);
    if (pm->pending) deliverPending(technology, pm->pending);
    return reinterpret_cast<kvResult>(technology);
}

// (error object): the error dialog, on the error's stack.
KV_METHOD(PM, displayError) {
    (void)errSlot, (void)self, (void)instData;
    if (const kvObject error = objectArg(args, 0)) kvShowErrorDialog(error);
    return 0;
}

KV_METHOD(PM, fetchControl) {
    (void)errSlot, (void)self, (void)args;
    return pmOf(instData)->control;
}

KV_METHOD(PM, fetchFQN) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(load(&pmOf(instData)->fqn));
}

// (name): the personality's own property first, then the technology's, then
// a property stored before the technology existed.
KV_METHOD(PM, fetchProperty) {
    const PMData* pm = pmOf(instData);
    const char* name = textArg(args, 0);
    if (const kvObject own = ownProperty(self, name)) return kvSendMeth(errSlot, own, "fetchData");
    if (pm->technology) return kvSendMethNA(errSlot, pm->technology, "fetchProperty", args);
    const kvObject pending = pendingProperty(pm, name);
    return pending ? kvSendMeth(errSlot, pending, "fetchData") : 0;
}

KV_METHOD(PM, findPropertyByName) {
    const PMData* pm = pmOf(instData);
    const char* name = textArg(args, 0);
    if (const kvObject own = ownProperty(self, name)) return reinterpret_cast<kvResult>(own);
    if (pm->technology) return kvSendMethNA(errSlot, pm->technology, "findPropertyByName", args);
    return reinterpret_cast<kvResult>(pendingProperty(pm, name));
}

// (event number, further arguments): the host's callback answers, unless
// the event is masked (0). 0 with 3477 without a control, 3475 without a
// callback.
KV_METHOD(PM, fireEvent) {
    const PMData* pm = pmOf(instData);
    if (!pm->control) return kova::raiseError(errSlot, self, PMClass, 3477);
    const kvEventDispatch dispatch = pm->dispatch;
    if (!dispatch) return kova::raiseError(errSlot, self, PMClass, 3475);
    const auto event = static_cast<int32_t>(kvArgAt(args, 0));
    if (findMasked(pm, event) >= 0) return 0;
    const kvArgs further = kvArgsAfter(args, 1);
    return dispatch(pm->control, event, further.slot);
}

// (method name, its arguments): sent to the technology once activated.
KV_METHOD(PM, fireMethod) {
    (void)self;
    const PMData* pm = pmOf(instData);
    if (!pm->activated || !pm->technology) return 0;
    const kvArgs rest = kvArgsAfter(args, 1);
    return kvSendMethNA(errSlot, pm->technology, textArg(args, 0), &rest);
}

// Asks the host (event 3) to fill an 80-byte buffer with the name, keeps a
// copy and answers it. The buffer is not cleared between requests, so a host
// that writes nothing leaves the last name; it is kept terminated.
KV_METHOD(PM, getDisplayName) {
    (void)args;
    static char buffer[displayNameSize];
    PMData* pm = pmOf(instData);
    kvSendMeth(errSlot, self, "fireEvent", int32_t{KV_EVENT_DISPLAY_NAME}, buffer);
    buffer[displayNameSize - 1] = '\0';
    if (!replaceText(&pm->displayName, buffer)) kova::raiseError(errSlot, self, PMClass, 3429);
    return reinterpret_cast<kvResult>(load(&pm->displayName));
}

KV_METHOD(PM, getEventMaskState) {
    (void)errSlot, (void)self;
    return findMasked(pmOf(instData), static_cast<int32_t>(kvArgAt(args, 0))) >= 0 ? 1 : 0;
}

// The stored mode before there is a technology; with one it is asked, but
// the answer is 0, as it has always been.
KV_METHOD(PM, getRunMode) {
    (void)self;
    const PMData* pm = pmOf(instData);
    if (!pm->technology) return pm->runMode;
    kvSendMethNA(errSlot, pm->technology, "getRunMode", args);
    return 0;
}

KV_METHOD(PM, getTM) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(pmOf(instData)->technology);
}

KV_METHOD(PM, objInit) {
    PMData* pm = pmOf(instData);
    std::memset(pm, 0, sizeof *pm);
    kvSendParentMethNA(errSlot, PMClass, self, "objInit", args);
    pm->runMode = 1;
    pm->pending = kvNewObject(errSlot, "CollectProp", 1, self, "TMProps", 0, 0);
    return 0;
}

KV_METHOD(PM, objTerm) {
    PMData* pm = pmOf(instData);
    replaceText(&pm->fqn, nullptr);
    if (const kvObject technology = pm->technology) {
        pm->technology = nullptr;
        kvDelObject(errSlot, technology);
    }
    replaceText(&pm->displayName, nullptr);
    if (const kvObject pending = pm->pending) {
        pm->pending = nullptr;
        kvDelObject(errSlot, pending);
    }
    pm->control = 0;
    pm->dispatch = nullptr;
    replaceText(&pm->technologyClass, nullptr);
    kova::platform::release(load(&pm->maskedEvents));
    keep(&pm->maskedEvents, static_cast<int32_t*>(nullptr));
    pm->maskedCount = 0;
    return kvSendParentMethNA(errSlot, PMClass, self, "objTerm", args);
}

// (target, device context, rectangle): the technology paints; without one
// the rectangle is filled with the colour of the "BackColor" property, or
// white when that is 0.
KV_METHOD(PM, paint) {
    const PMData* pm = pmOf(instData);
    if (pm->technology) return kvSendMethNA(errSlot, pm->technology, "paint", args);
    const auto colour =
        static_cast<uint32_t>(kvSendMeth(errSlot, self, "fetchProperty", "BackColor"));
    kova::platform::fillRect(kvArgAt(args, 1), reinterpret_cast<const kvRect*>(kvArgAt(args, 2)),
                             colour ? colour : uint32_t{KV_COLOR_WHITE});
    return 0;
}

KV_METHOD(PM, popLink) {
    (void)errSlot, (void)self, (void)instData;
    return PLRPopLink(textArg(args, 0), textArg(args, 1));
}

// (slot holding an error, flags): tells the host of the error (event 1, whose
// handler may choose the action), shows it, deletes it, tells the host it was
// reported (event 2), each unless a flag says otherwise. Answers the error's
// code for the reporting actions, else 0; 0 with the quiet flag.
KV_METHOD(PM, processError) {
    (void)instData;
    auto* slot = reinterpret_cast<kvObject*>(kvArgAt(args, 0));
    const auto flags = static_cast<int32_t>(kvArgAt(args, 1));
    if (!slot || !*slot) return 0;
    const kvObject error = *slot;
    ErrorFacts facts;
    readFacts(errSlot, error, facts);
    int32_t onError = 0;
    if (kvGetRegistrySetting("VersionChecking\\OnError", &onError, 1) && onError) {
        kova::PrivateSlot checkFailed;
        kvSendMeth(checkFailed.get(), self, "checkVersionAPI", int32_t{KV_VERSION_ON_ERROR},
                   onError);
    }
    int16_t action = 0;
    if (!(flags & KV_ERROR_NO_REPORTING_EVENT))
        kvSendMeth(errSlot, self, "fireEvent", int32_t{KV_EVENT_ERROR_REPORTING}, facts.code,
                   facts.message, facts.resultCode, facts.source, facts.helpFile, facts.helpContext,
                   &action);
    if (!(flags & KV_ERROR_NO_DISPLAY) && isShowingAction(action))
        kvSendMeth(errSlot, self, "displayError", error);
    if (!(flags & KV_ERROR_KEEP)) {
        *slot = nullptr;
        kova::kernel::discardErrors(error);
    }
    if (!(flags & KV_ERROR_QUIET) && isReportingAction(action))
        kvSendMeth(errSlot, self, "fireEvent", int32_t{KV_EVENT_ERROR_REPORTED}, facts.code,
                   facts.message, facts.resultCode, facts.source, facts.helpFile,
                   facts.helpContext);
    if (flags & KV_ERROR_QUIET) return 0;
    return isReportingAction(action) ? facts.code : 0;
}

KV_METHOD(PM, pushLink) {
    (void)errSlot, (void)self, (void)instData;
    return PLRPushLink(textArg(args, 0), textArg(args, 1), textArg(args, 2));
}

KV_METHOD(PM, registerEventDispatch) {
    (void)errSlot, (void)self;
    pmOf(instData)->dispatch = reinterpret_cast<kvEventDispatch>(kvArgAt(args, 0));
    return 1;
}

// (event number, masked): a masked event is not dispatched to the host.
// Answers 1, or 0 with 3429 when the list cannot grow.
KV_METHOD(PM, setEventMaskState) {
    PMData* pm = pmOf(instData);
    const auto event = static_cast<int32_t>(kvArgAt(args, 0));
    const int32_t at = findMasked(pm, event);
    int32_t* events = load(&pm->maskedEvents);
    if (kvArgAt(args, 1)) {
        if (at >= 0) return 1;
        auto* grown = static_cast<int32_t*>(kova::platform::reallocate(
            events, (static_cast<size_t>(pm->maskedCount) + 1) * sizeof(int32_t)));
        if (!grown) return kova::raiseError(errSlot, self, PMClass, 3429);
        grown[pm->maskedCount++] = event;
        keep(&pm->maskedEvents, grown);
        return 1;
    }
    if (at < 0) return 1;
    std::memmove(events + at, events + at + 1,
                 static_cast<size_t>(pm->maskedCount - at - 1) * sizeof(int32_t));
    if (--pm->maskedCount == 0) {
        kova::platform::release(events);
        keep(&pm->maskedEvents, static_cast<int32_t*>(nullptr));
    } else if (auto* smaller = static_cast<int32_t*>(kova::platform::reallocate(
                   events, static_cast<size_t>(pm->maskedCount) * sizeof(int32_t)))) {
        keep(&pm->maskedEvents, smaller);
    }
    return 1;
}

KV_METHOD(PM, setHWND) {
    (void)self;
    PMData* pm = pmOf(instData);
    if (pm->technology)
        kvSendMethNA(errSlot, pm->technology, "setHWND", args);
    else
        pm->window = kvArgAt(args, 0);
    return 0;
}

KV_METHOD(PM, setPropertyDefaults) {
    (void)self;
    if (const kvObject technology = pmOf(instData)->technology)
        kvSendMethNA(errSlot, technology, "setPropertyDefaults", args);
    return 0;
}

KV_METHOD(PM, setRunMode) {
    (void)self;
    PMData* pm = pmOf(instData);
    const auto mode = static_cast<int16_t>(kvArgAt(args, 0));
    if (pm->technology)
        kvSendMeth(errSlot, pm->technology, "setRunMode", mode);
    else
        pm->runMode = mode;
    return 1;
}

KV_METHOD(PM, setTM) {
    (void)errSlot, (void)self;
    pmOf(instData)->technology = objectArg(args, 0);
    return 1;
}

KV_METHOD(PM, setTMName) {
    if (!replaceText(&pmOf(instData)->technologyClass, textArg(args, 0)))
        kova::raiseError(errSlot, self, PMClass, 3429);
    return 0;
}

KV_METHOD(PM, storeControl) {
    (void)errSlot, (void)self;
    pmOf(instData)->control = kvArgAt(args, 0);
    return 1;
}

// (FQN): names the component. The first FQN registers the services of both
// modules under it; a later one renames them in the registry rather than
// registering them again. A null or empty FQN is ignored. Answers 1.
KV_METHOD(PM, storeFQN) {
    PMData* pm = pmOf(instData);
    const char* fqn = textArg(args, 0);
    if (!fqn || !*fqn) return 1;
    const kvObject technology = pm->technology;
    if (technology) kvSendMeth(errSlot, technology, "setSinkFQNOnSourceProperties", fqn);
    kvSendMeth(errSlot, self, "setSinkFQNOnSourceProperties", fqn);
    if (char* old = load(&pm->fqn)) {
        if (technology) kvSendMeth(errSlot, technology, "changeFQN", old, fqn);
        kvSendMeth(errSlot, self, "changeFQN", old, fqn);
        if (!replaceText(&pm->fqn, fqn)) kova::raiseError(errSlot, self, PMClass, 3429);
        return 1;
    }
    if (!replaceText(&pm->fqn, fqn)) return kova::raiseError(errSlot, self, PMClass, 3429), 1;
    kvSendMeth(errSlot, self, "registerProperties", fqn);
    if (technology) {
        kvSendMeth(errSlot, technology, "registerProperties", fqn);
        pm->propertiesRegistered = 1;
    }
    return 1;
}

// (name, type, value): into the personality's own property, else the
// technology's, else a pending property (UniProp) that waits in "TMProps".
// A pending property takes the value with "storeDataType" in its own order
// of arguments (value, type).
KV_METHOD(PM, storeProperty) {
    PMData* pm = pmOf(instData);
    const char* name = textArg(args, 0);
    const kvArg type = kvArgAt(args, 1);
    const kvArg value = kvArgAt(args, 2);
    if (const kvObject own = ownProperty(self, name)) {
        kvSendMeth(errSlot, own, "storeData", value);
        return 0;
    }
    if (pm->technology) {
        kvSendMeth(errSlot, pm->technology, "storeProperty", name, value);
        return 0;
    }
    if (const kvObject pending = pendingProperty(pm, name)) {
        kvSendMeth(errSlot, pending, "storeDataType", value, type);
        return 0;
    }
    if (!pm->pending || !name || !*name) return 0;
    const kvObject added = kvNewObject(errSlot, "UniProp", self, name, 0, 0);
    if (!added) return 0;
    kvSendMeth(errSlot, added, "storeDataType", value, type);
    if (kvSendMeth(errSlot, pm->pending, "addProperty", added) != 0) kvDelObject(errSlot, added);
    return 0;
}

KV_REGISTER(PM) {
    if (!kvRegisterClass("Baron")) return nullptr;
    PMClass = kvAddClass("PM", "Baron", sizeof(PMData), 0, pmMethods.get(), pmClassMethods.get());
    return PMClass;
}
