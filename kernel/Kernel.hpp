// What the kernel's own files share with one another and with the error
// classes: pieces of one mechanism that live in different files.
#pragma once

#include "kova/kernel.h"

namespace kova::kernel {

// Method cache of a class (Dispatch.cpp). `createMethodCache` answers false
// when no memory could be had; the class then works without a cache.
bool createMethodCache(kvClass cls);
void freeMethodCache(kvClass cls);

// A remembered lookup for a send that repeats one name to one receiver, as a
// subscription does at every firing. It answers for the receiver's class it
// was made for, until the classes are closed; otherwise the send looks the
// name up as any send does and remembers what it found (Dispatch.cpp).
struct SendSite {
    kvClass receiverClass;        // class the lookup was made for, null when empty
    const kvMethodRecord* method; // what the lookup found
    kvClass foundClass;           // the class defining it
    uint32_t generation;          // the close count when it was made
};
kvResult sendThroughSite(SendSite& site, kvObject* errSlot, kvObject obj, const char* name,
                         const kvArgs* args);
// The same for a parent send (see kvSendParentMethNA) that a class's
// procedure repeats with one name, such as a forwarder's "MethodNotFound"
// handing on to its parent's: the site answers for the class it was made for.
kvResult sendParentThroughSite(SendSite& site, kvObject* errSlot, kvClass cls, kvObject obj,
                               const char* name, const kvArgs* args);
// Makes every send site look its name up again (kvCloseClasses).
void forgetSendSites();

// Makes every class's cache forget the names its chain was found not to
// define and the "MethodNotFound" found for it (a class added, the classes
// closed).
void forgetMissedNames();

// True when an event of the object (after forwarding) is being fired now
// (Notify.cpp).
bool isFiring(kvObject obj);

// Drops every subscription `subscriber` holds on other objects, as
// kvDeleteNotification would (only marked in events being fired); called when
// its header is freed (Notify.cpp).
void dropSubscriptions(kvObject subscriber);

// Shows a kernel failure in a system-modal message box (Lifecycle.cpp):
// `format` is formatted with the trailing values as printf does.
void showKernelMessage(const char* caption, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

// Deletes every error of the stack whose newest error is `error` (RaiseError.cpp).
void discardErrors(kvObject error);

// Leaves an error made without a slot (kvMakeError) in `*errSlot`, stacked on
// the error already there; without a slot the error is deleted.
void storeError(kvObject* errSlot, kvObject error);

// The message box captions of kernel failures.
inline constexpr const char* kernelErrorCaption = "KOVA Kernel Error";
inline constexpr const char* criticalErrorCaption = "Critical KOVA Kernel Error";
inline constexpr const char* errorCaption = "KOVA Error";

} // namespace kova::kernel
