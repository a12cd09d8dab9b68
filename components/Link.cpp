// Link: the property through which a component reaches a provider of another
// component. It is a PropForw whose forward object, once linked, is the
// provider's linked object: every message that Link and its ancestors do not
// understand goes on to it, and the first such message that reaches an
// unlinked Link makes the link on demand. The linked object's "OnTerm"
// breaks the link; the owner hears "OnLinked" and "OnUnlinked".
#include "errors/Raise.hpp"
#include "kernel/Kernel.hpp"
#include "kova/plr.h"
#include "platform/Platform.hpp"
#include "properties/PrivateSlot.hpp"
#include "properties/PropertySupport.hpp"

#include <cstring>

namespace {

using kova::props::isBlank;
using kova::props::textArg;

#pragma pack(push, 1)
struct LinkData {
    char* sinkFQN;     // FQN of the sink this link serves, or null
    char* sourceFQN;   // LINKID of the provider wanted, or null
    char* serviceName; // the service the provider is found through; set at creation
    int32_t linked;    // 1 from a successful makeLink until unLink
};
#pragma pack(pop)

kvClass LinkClass = nullptr;

constexpr const char* termEvent = "OnTerm";
constexpr const char* termHandler = "OnTerminate";

KV_METHOD_TABLE(linkMethods,                                 //
                kova::method("MethodNotFound", 2),           //
                kova::method("OnTerminate", 0),              //
                kova::method("addNotification", 0),          //
                kova::method("addObjectNotification", 0),    //
                kova::method("deleteNotification", 0),       //
                kova::method("deleteObjectNotification", 0), //
                kova::method("getLinkedObject", 0),          //
                kova::method("getServiceName", 0),           //
                kova::method("getSinkFQN", 0),               //
                kova::method("getSourceFQN", 0),             //
                kova::method("isLinked", 0),                 //
                kova::method("makeLink", 0),                 //
                kova::method("objInit", 1),                  //
                kova::method("objTerm", 0),                  //
                kova::method("requiredLinkAvailable", 1),    //
                kova::method("respondsTo", 1),               //
                kova::method("setSinkFQN", 1),               //
                kova::method("setSourceFQN", 1),             //
                kova::method("unLink", 0));
KV_EMPTY_METHOD_TABLE(linkClassMethods);

LinkData* linkOf(void* instData) {
    return static_cast<LinkData*>(instData);
}

kvObject objectAnswer(kvObject* errSlot, kvObject receiver, const char* message) {
    return reinterpret_cast<kvObject>(kvSendMeth(errSlot, receiver, message));
}

const char* textAnswer(kvObject* errSlot, kvObject receiver, const char* message) {
    return reinterpret_cast<const char*>(kvSendMeth(errSlot, receiver, message));
}

// Replaces an owned string of the (packed) instance data through an aligned
// slot; answers false when the copy could not be made (the old string stays).
bool replaceText(char** field, const char* text) {
    char* slot = nullptr;
    std::memcpy(&slot, field, sizeof slot);
    const bool copied = utilSetString(&slot, text) != nullptr || !text;
    std::memcpy(field, &slot, sizeof slot);
    return copied;
}

// Hands a notification method's whole argument list on to the linked object
// under `name`, through MethodNotFound, so that it links first if it must.
kvResult forwardAs(kvObject* errSlot, kvObject self, const char* name, const kvArgs* args) {
    return kvSendMeth(errSlot, self, "MethodNotFound", name, args);
}

} // namespace

// (method name, the sender's argument list). Every message forwarded through
// a link passes here, so the parent's method is looked up once.
KV_METHOD(Link, MethodNotFound) {
    if (!linkOf(instData)->linked) kvSendMeth(errSlot, self, "makeLink");
    static kova::kernel::SendSite parentNotFound;
    return kova::kernel::sendParentThroughSite(parentNotFound, errSlot, LinkClass, self,
                                               "MethodNotFound", args);
}

// The linked object is ending.
KV_METHOD(Link, OnTerminate) {
    (void)instData, (void)args;
    kvSendMeth(errSlot, self, "unLink");
    return 0;
}

KV_METHOD(Link, addNotification) {
    (void)instData;
    return forwardAs(errSlot, self, "addNotification", args);
}

// Forwarded under the shorter name "addObject", which linked collections answer.
KV_METHOD(Link, addObjectNotification) {
    (void)instData;
    return forwardAs(errSlot, self, "addObject", args);
}

KV_METHOD(Link, deleteNotification) {
    (void)instData;
    return forwardAs(errSlot, self, "deleteNotification", args);
}

KV_METHOD(Link, deleteObjectNotification) {
    (void)instData;
    return forwardAs(errSlot, self, "deleteObjectNotification", args);
}

KV_METHOD(Link, getLinkedObject) {
    (void)instData, (void)args;
    return kvSendMeth(errSlot, self, "getForward");
}

KV_METHOD(Link, getServiceName) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(linkOf(instData)->serviceName);
}

KV_METHOD(Link, getSinkFQN) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(linkOf(instData)->sinkFQN);
}

KV_METHOD(Link, getSourceFQN) {
    (void)errSlot, (void)self, (void)args;
    return reinterpret_cast<kvResult>(linkOf(instData)->sourceFQN);
}

KV_METHOD(Link, isLinked) {
    (void)errSlot, (void)self, (void)args;
    return linkOf(instData)->linked;
}

// Asks the registry for the provider's linked object and forwards to it from
// then on. 0 when linked or when there is nothing to link (no sink FQN yet;
// 3472 or 3473 when the source FQN or the service is missing); 1 when the
// registry has no such provider yet, which is no error: the registry sends
// "requiredLinkAvailable" when it comes. A provider record that hands out no
// linked object (one made by another process) counts as absent, since a
// subscription to a null object cannot be made.
KV_METHOD(Link, makeLink) {
    (void)args;
    LinkData* link = linkOf(instData);
    // The names serve only the messages; an owner that has none is no failure.
    kova::PrivateSlot quiet;
    const kvObject owner = objectAnswer(errSlot, self, "getOwner");
    const char* ownerName = owner ? textAnswer(quiet.get(), owner, "getName") : nullptr;
    const char* ownName = textAnswer(quiet.get(), self, "getName");
    if (isBlank(link->sinkFQN)) return 0;
    if (isBlank(link->sourceFQN))
        return kova::raiseError(errSlot, self, LinkClass, 3472, ownName, ownerName);
    if (isBlank(link->serviceName))
        return kova::raiseError(errSlot, self, LinkClass, 3473, ownName, ownerName);
    kvObject linkedObject = nullptr;
    if (PLREstablishLink(link->sinkFQN, self, link->serviceName, 0, 0, link->sourceFQN,
                         &linkedObject) != PLR_OK ||
        !linkedObject)
        return 1;
    link->linked = 1;
    if (const kvObject previous = objectAnswer(errSlot, self, "getForward"))
        kvDeleteNotification(errSlot, previous, termEvent, self, termHandler);
    kvSendMeth(errSlot, self, "setForward", linkedObject);
    kvAddNotification(errSlot, linkedObject, termEvent, self, termHandler, 0);
    if (owner) kvSendMeth(errSlot, owner, "OnLinked", self);
    return 0;
}

// (service name, then PropForw's arguments: target, owner, name, id, flags)
KV_METHOD(Link, objInit) {
    LinkData* link = linkOf(instData);
    std::memset(link, 0, sizeof *link);
    const kvArgs rest = kvArgsAfter(args, 1);
    kvSendParentMethNA(errSlot, LinkClass, self, "objInit", &rest);
    const char* service = textArg(args, 0);
    if (!isBlank(service) && !replaceText(&link->serviceName, service))
        kova::raiseError(errSlot, self, LinkClass, 3429);
    return 0;
}

KV_METHOD(Link, objTerm) {
    LinkData* link = linkOf(instData);
    kvSendMeth(errSlot, self, "unLink");
    replaceText(&link->sinkFQN, nullptr);
    replaceText(&link->sourceFQN, nullptr);
    replaceText(&link->serviceName, nullptr);
    return kvSendParentMethNA(errSlot, LinkClass, self, "objTerm", args);
}

// (provider FQN): a provider has come; links if it is the one wanted,
// compared exactly. Always 0.
KV_METHOD(Link, requiredLinkAvailable) {
    const char* fqn = textArg(args, 0);
    const char* source = linkOf(instData)->sourceFQN;
    if (fqn && source && std::strcmp(fqn, source) == 0) kvSendMeth(errSlot, self, "makeLink");
    return 0;
}

// (method name): the linked object's answer; -1 with 3451 while unlinked.
KV_METHOD(Link, respondsTo) {
    (void)instData;
    const kvObject linked = objectAnswer(errSlot, self, "getForward");
    if (!linked) {
        kova::raiseError(errSlot, self, LinkClass, 3451);
        return -1;
    }
    return kvSendMethNA(errSlot, linked, "respondsTo", args);
}

// (FQN): keeps a copy; a null FQN or the current one changes nothing; -1
// with 3429 when the copy cannot be made.
KV_METHOD(Link, setSinkFQN) {
    LinkData* link = linkOf(instData);
    const char* fqn = textArg(args, 0);
    if (!fqn || (link->sinkFQN && std::strcmp(fqn, link->sinkFQN) == 0)) return 0;
    if (!replaceText(&link->sinkFQN, fqn)) {
        kova::raiseError(errSlot, self, LinkClass, 3429);
        return -1;
    }
    return 0;
}

// (FQN): unlinks and takes the new provider FQN; a non-empty one is linked
// to at once (makeLink's answer). A null FQN changes nothing.
KV_METHOD(Link, setSourceFQN) {
    LinkData* link = linkOf(instData);
    const char* fqn = textArg(args, 0);
    if (!fqn) return 0;
    // Copied first: the caller may pass the old value, and unlinking tells
    // the owner, which may change it.
    char* copy = isBlank(fqn) ? nullptr : kova::platform::duplicate(fqn);
    kvSendMeth(errSlot, self, "unLink");
    replaceText(&link->sourceFQN, nullptr);
    if (isBlank(fqn)) return 0;
    if (!copy) return kova::raiseError(errSlot, self, LinkClass, 3429);
    std::memcpy(&link->sourceFQN, &copy, sizeof copy);
    return kvSendMeth(errSlot, self, "makeLink");
}

KV_METHOD(Link, unLink) {
    (void)args;
    LinkData* link = linkOf(instData);
    if (!link->linked) return 0;
    if (const kvObject owner = objectAnswer(errSlot, self, "getOwner"))
        kvSendMeth(errSlot, owner, "OnUnlinked", self);
    if (const kvObject linked = objectAnswer(errSlot, self, "getForward")) {
        kvDeleteNotification(errSlot, linked, termEvent, self, termHandler);
        PLRUnestablishLink(link->sinkFQN, link->serviceName, link->sourceFQN);
        kvSendMeth(errSlot, self, "setForward", nullptr);
    }
    link->linked = 0;
    return 0;
}

KV_REGISTER(Link) {
    if (!kvRegisterClass("PropForw")) return nullptr;
    LinkClass = kvAddClass("Link", "PropForw", sizeof(LinkData), 0, linkMethods.get(),
                           linkClassMethods.get());
    return LinkClass;
}
