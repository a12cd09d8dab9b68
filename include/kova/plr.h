/** @file
 * The property link registry: the process-wide directory through which one
 * component's property (a sink) finds and binds to what another component
 * offers (a provider).
 *
 * Providers register under a service name with their FQN (fully qualified
 * name, also called their LINKID) and the object a linked sink is handed.
 * Sinks register the service they need and the FQN of the provider they
 * want; a provider registering (or taking a new FQN) wakes the sinks that
 * wait for it with "requiredLinkAvailable". Every name is stored with at most
 * 80 characters (longer ones are cut). Service names match case-sensitively,
 * FQNs without regard to case, except in PLRIsServiceProviderFQN.
 *
 * Every function answers one of the PLR_* status numbers below (0 for
 * success) unless its comment says otherwise; the registry makes no error
 * objects. Out-parameters are written only on success unless stated.
 *
 * The notifier object (PLRGetNotifierObject) fires, for each change of a
 * service's providers, the notification named after the service with two
 * slots: a PLR_NOTIFY_* kind and a provider FQN. */
#ifndef KOVA_PLR_H
#define KOVA_PLR_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Status numbers of the registry's functions. */
enum {
    PLR_OK = 0,              /**< success */
    PLR_NEW_LIST_FAILED = 2, /**< the first provider list of a service could not be allocated */
    PLR_SERVICE_TABLE_ACCESS = 3,   /**< the service table could not be accessed */
    PLR_PROVIDER_LIST_ACCESS = 4,   /**< a provider list could not be accessed */
    PLR_NO_TABLE = 5,               /**< the registry is not started (PLRInit) */
    PLR_NO_SERVICE = 7,             /**< no service of that name */
    PLR_NO_PROVIDER = 8,            /**< no such provider in the service */
    PLR_LIST_MEMORY = 9,            /**< out of memory while building a returned list */
    PLR_NO_PROVIDERS = 11,          /**< the service has no providers */
    PLR_SINK_TABLE_ACCESS = 14,     /**< the sink table could not be accessed */
    PLR_INIT_FAILED = 15,           /**< PLRInit could not allocate a table */
    PLR_STACK_ACCESS = 17,          /**< a provider stack could not be accessed */
    PLR_NOTHING_TO_POP = 18,        /**< the sink's provider stack is empty */
    PLR_INDEX_OUT_OF_RANGE = 19,    /**< a record index is out of range */
    PLR_PUSH_NO_SINK = 20,          /**< PLRPushLink: no such sink record */
    PLR_BAD_ARGUMENT = 21,          /**< a required argument is null or an empty string */
    PLR_NO_SINK = 22,               /**< no such sink record */
    PLR_SERVICE_TABLE_GROW = 23,    /**< the service table could not grow */
    PLR_PROVIDER_LIST_GROW = 24,    /**< a provider list could not grow */
    PLR_STACK_GROW = 25,            /**< a provider stack could not grow */
    PLR_NEW_STACK_FAILED = 26,      /**< a provider stack could not be allocated */
    PLR_SINK_TABLE_GROW = 27,       /**< the sink table could not grow */
    PLR_PROVIDER_LIST_MISSING = 28, /**< a provider list is missing on write-back */
    PLR_ALREADY_REGISTERED = 29,    /**< internal: the provider object is already registered */
    PLR_POP_NO_SINK = 30,           /**< PLRPopLink: no such sink record */
    PLR_COLLECTION_FAILED = 32,     /**< the Collection of sinks could not be created */
    PLR_NO_LINKED_SINKS = 33,       /**< no linked sinks were found */
    PLR_SINK_STORE_FAILED = 34      /**< the sink's "storeData" raised an error (deleted) */
};

/** Kinds of the notifier object's per-service notifications. */
enum {
    PLR_NOTIFY_REGISTERED = 0,   /**< a provider was registered; the FQN is its */
    PLR_NOTIFY_UNREGISTERED = 1, /**< a provider was unregistered; the FQN is its */
    PLR_NOTIFY_DISPLAY_NAME = 2  /**< a provider's display name changed; the FQN is null */
};

/** Longest name the registry stores; longer names are cut to this length. */
enum { PLR_NAME_LENGTH = 80 };

/** Starts the registry: the notifier object, the service table and the sink
 * table, each only if absent (so a second call makes only what is missing).
 * 15 if a table could not be allocated. Called by kvCoreInitialize. */
KV_API int32_t PLRInit(void);

/** Frees every table, provider list, provider stack and the provider-FQN list
 * cache, and deletes the notifier object; afterwards the registry is as
 * before PLRInit. Always 0. Called by kvCoreTerminate. */
KV_API int32_t PLRTerm(void);

/** Registers `provider` as a provider of `service` under `providerFQN`,
 * handing `linkedObject` to the sinks that link to it. The service is made on
 * first use. When the object is already a provider of the service the call
 * renames it (PLRChangeFQN). Fires the PLR_NOTIFY_REGISTERED notification
 * and sends "requiredLinkAvailable" to the sinks waiting for that FQN (their
 * errors are deleted); 9 when the list of those sinks could not be made. All
 * four arguments must be non-null (21). */
KV_API int32_t PLRRegisterProperty(const char* service, kvObject provider, const char* providerFQN,
                                   kvObject linkedObject);

/** Removes the provider record of `provider` under `providerFQN` and fires
 * PLR_NOTIFY_UNREGISTERED. The service stays known. Sink records are not
 * touched. */
KV_API int32_t PLRUnregisterProperty(const char* service, kvObject provider,
                                     const char* providerFQN);

/** Renames the provider that `provider` registered under `service`. Sinks
 * established on the old FQN are sent "storeData" with the old FQN; sinks
 * waiting for the new FQN are woken. */
KV_API int32_t PLRChangeFQN(const char* service, kvObject provider, const char* newFQN);

/** Copies of the provider FQNs of `service` in registration order: `*count`
 * and `*fqns`. The array belongs to the registry and stays valid until the
 * next call of this function or PLRTerm. An unknown service answers 7 with
 * both outputs set to 0; a service whose last provider left answers 11. */
KV_API int32_t PLRGetServiceProviderFQNs(const char* service, int16_t* count, char*** fqns);

/** 1 if `service` has a provider of exactly `providerFQN` (case-sensitively),
 * else 0. */
KV_API int32_t PLRIsServiceProviderFQN(const char* service, const char* providerFQN);

/** Chooses the provider a sink links to by default. The rules are taken in
 * order up to a null one: "self" gives `ownFQN`, "none" an empty string,
 * "any" the first provider FQN other than `ownFQN`, any other rule is a class
 * name and gives the first other provider whose object answers "isA" to it.
 * Answers the FQN (owned by the registry or the caller), or null. */
KV_API const char* PLRGetDefaultLINKID(const char* service, const char* ownFQN,
                                       const char* const* rules);

/** A new automatic LINKID: nine characters made from the current time (UTC)
 * and a counter, in a static buffer that the next call overwrites. Always 0. */
KV_API int32_t PLRCreateLINKID(char** linkId);

/** The provider object registered under `providerFQN` in `*provider`. A record
 * made in another process is not handed out (still 0). */
KV_API int32_t PLRGetObjectFromLINKID(const char* service, const char* providerFQN,
                                      kvObject* provider);

/** The display name of the provider of `providerFQN` ("getDisplayName") in
 * `*displayName`. A null FQN gives "<None>" and 0; an unknown provider
 * "<None>" and -1; a null out-pointer -1; a null service 7. */
KV_API int32_t PLRGetDisplayNameFromLINKID(const char* service, const char* providerFQN,
                                           const char** displayName);

/** Records (or, for a sink already recorded with this object, FQN and
 * service, updates) the wish of `sink` for the provider `providerFQN`. */
KV_API int32_t PLRRegisterSink(kvObject sink, const char* sinkFQN, const char* service,
                               const char* providerFQN);

/** Removes the sink record of `sink` under `sinkFQN` and `service`. */
KV_API int32_t PLRUnregisterSink(kvObject sink, const char* sinkFQN, const char* service);

/** Resolves the link of the sink `sinkFQN` to `providerFQN`: the provider's
 * linked object goes to `*linkedObject` and the sink record is marked
 * established. `link` and the two reserved slots are ignored. A provider
 * without a linked object answers 0 and changes nothing. */
KV_API int32_t PLREstablishLink(const char* sinkFQN, kvObject link, const char* service,
                                kvArg reserved1, kvArg reserved2, const char* providerFQN,
                                kvObject* linkedObject);

/** Marks the sink record no longer established. */
KV_API int32_t PLRUnestablishLink(const char* sinkFQN, const char* service,
                                  const char* providerFQN);

/** Saves the sink's wanted provider FQN on its provider stack, switches it to
 * `newProviderFQN` and sends the sink object "storeData" with it (34 when
 * that raises; the error is deleted). */
KV_API int32_t PLRPushLink(const char* sinkFQN, const char* service, const char* newProviderFQN);

/** Restores the provider FQN saved by the last PLRPushLink and sends the sink
 * object "storeData" with it (34 when that raises). 18 when nothing is saved. */
KV_API int32_t PLRPopLink(const char* sinkFQN, const char* service);

/** A new Collection (the caller's) of the owners ("getOwner") of the sinks
 * established on `provider` under `service`; 33 when there are none. */
KV_API int32_t PLRGetCollectionOfSinks(const char* service, kvObject provider,
                                       kvObject* collection);

/** The notifier object, or null before PLRInit. */
KV_API kvObject PLRGetNotifierObject(void);

/* ---- looking into the tables, for tools and diagnostics ---- */

/** One provider record as the registry holds it; the strings are the
 * registry's and change with it. */
typedef struct PLRProviderInfo {
    kvObject provider;      /**< the object that registered */
    const char* fqn;        /**< its FQN (LINKID) */
    kvObject linkedObject;  /**< what a linked sink is handed */
    uint32_t processMarker; /**< the process that made the record */
} PLRProviderInfo;

/** One sink record as the registry holds it; the strings are the registry's. */
typedef struct PLRSinkInfo {
    const char* sinkFQN;     /**< the sink's FQN */
    kvObject sink;           /**< the sink property object */
    const char* service;     /**< the service it needs */
    const char* providerFQN; /**< the provider it wants now */
    kvObject linkedProvider; /**< provider object of the established link, or null */
    int32_t established;     /**< 1 while a link is established */
    int16_t savedCount;      /**< provider FQNs saved by PLRPushLink */
} PLRSinkInfo;

/** Number of services (0 before PLRInit). */
KV_API int16_t PLRGetServiceCount(void);

/** The name of service `index` in registration order, or null. */
KV_API const char* PLRGetServiceName(int16_t index);

/** Number of providers of `service` (0 when unknown or without providers). */
KV_API int16_t PLRGetProviderCount(const char* service);

/** Provider `index` of `service` in registration order into `*info`: 0, or
 * 5, 7, 11, 19 (index out of range) or 21 (null argument). */
KV_API int32_t PLRGetProviderInfo(const char* service, int16_t index, PLRProviderInfo* info);

/** Number of sink records (0 before PLRInit). */
KV_API int16_t PLRGetSinkCount(void);

/** Sink record `index` in table order into `*info`: 0, or 5, 19 or 21. */
KV_API int32_t PLRGetSinkInfo(int16_t index, PLRSinkInfo* info);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_PLR_H */
