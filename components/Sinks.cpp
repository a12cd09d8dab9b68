// The property link registry's sinks: the records of what each sink property
// wants, the links established on them, the provider stacks of PLRPushLink
// and PLRPopLink, and the collection of the components linked to a provider.
#include "components/LinkRegistry.hpp"
#include "kernel/Kernel.hpp"
#include "platform/Platform.hpp"

#include <cstring>

using namespace kova::plr;

namespace {

SinkRecord* sinkRecords() {
    return recordsOf<SinkRecord>(registry().sinks);
}

// Index of the first sink record that `matches`, or -1.
template <typename Match> int16_t findSink(Match matches) {
    const BlockHeader* sinks = registry().sinks;
    for (int16_t i = 0; i < countOf(sinks); ++i)
        if (matches(sinkRecords()[i])) return i;
    return -1;
}

// The record that PLRPushLink and PLRPopLink work on: the first of the
// service with that sink FQN, whichever its sink object and provider.
int16_t findSinkOfService(const char* sinkFQN, const char* service) {
    return findSink([&](const SinkRecord& record) {
        return sameService(record.service, service) && sameFQN(record.sinkFQN, sinkFQN);
    });
}

// Saves `fqn` on the record's provider stack: 0, 26 (no new stack) or 25
// (the stack cannot grow); the record is unchanged on failure.
int32_t saveOnStack(SinkRecord& record, const char* fqn) {
    BlockHeader* stack = record.stack;
    if (!stack) {
        stack = newBlock(sizeof(StackSlot), 1);
        if (!stack) return PLR_NEW_STACK_FAILED;
        stack->count = 1;
    } else if (!appendRecord(&stack, sizeof(StackSlot), maxSavedFQNs)) {
        return PLR_STACK_GROW;
    }
    record.stack = stack;
    storeName(recordsOf<StackSlot>(stack)[stack->count - 1].fqn, fqn);
    return PLR_OK;
}

// The slot that a pop reads is the one whose index equals the stack's count,
// one past the last entry that a push wrote and outside the block the push
// sized. Rather than read beyond the block, that slot is taken to hold what
// the last push saved, so that a pop undoes the last push.
const char* slotReadByPop(BlockHeader* stack) {
    return recordsOf<StackSlot>(stack)[stack->count - 1].fqn;
}

// Drops the entry a pop has read: the count goes down, and the block shrinks
// by one slot or, when empty, is freed.
void dropPopped(SinkRecord& record) {
    BlockHeader* stack = record.stack;
    if (stack->count == 1)
        freeBlock(&stack);
    else
        removeRecord(&stack, sizeof(StackSlot), static_cast<int16_t>(stack->count - 1));
    record.stack = stack;
}

// Sends "storeData" with the record's provider FQN to its sink object, if it
// has one: 0, or 34 when the sink raised (the error is deleted).
int32_t tellSink(int16_t index) {
    const kvObject sink = sinkRecords()[index].sink;
    if (!sink) return PLR_OK;
    char fqn[nameField];
    std::memcpy(fqn, sinkRecords()[index].providerFQN, nameField);
    return sendToSink(sink, "storeData", fqn) ? PLR_SINK_STORE_FAILED : PLR_OK;
}

kvObject objectAnswer(kvObject* errSlot, kvObject receiver, const char* message) {
    return reinterpret_cast<kvObject>(kvSendMeth(errSlot, receiver, message));
}

} // namespace

extern "C" {

KV_API int32_t PLRRegisterSink(kvObject sink, const char* sinkFQN, const char* service,
                               const char* providerFQN) {
    if (isBlank(sinkFQN) || isBlank(service)) return PLR_BAD_ARGUMENT;
    Registry& state = registry();
    if (!state.sinks) return PLR_NO_TABLE;
    const int16_t index = findSink([&](const SinkRecord& record) {
        return record.sink == sink && sameFQN(record.sinkFQN, sinkFQN) &&
               sameService(record.service, service);
    });
    if (index >= 0) {
        storeName(sinkRecords()[index].providerFQN, providerFQN);
        return PLR_OK;
    }
    if (!appendRecord(&state.sinks, sizeof(SinkRecord), maxSinks)) return PLR_SINK_TABLE_GROW;
    SinkRecord& record = sinkRecords()[state.sinks->count - 1];
    storeName(record.sinkFQN, sinkFQN);
    record.sink = sink;
    storeName(record.service, service);
    storeName(record.providerFQN, providerFQN);
    return PLR_OK;
}

// The record's provider stack goes with it: it is released here, since a
// stack left behind would be memory lost for good at every such removal.
KV_API int32_t PLRUnregisterSink(kvObject sink, const char* sinkFQN, const char* service) {
    if (!sink || isBlank(sinkFQN) || isBlank(service)) return PLR_BAD_ARGUMENT;
    Registry& state = registry();
    if (!state.sinks) return PLR_NO_TABLE;
    const int16_t index = findSink([&](const SinkRecord& record) {
        return record.sink == sink && sameFQN(record.sinkFQN, sinkFQN) &&
               sameService(record.service, service);
    });
    if (index < 0) return PLR_NO_SINK;
    BlockHeader* stack = sinkRecords()[index].stack;
    freeBlock(&stack);
    removeRecord(&state.sinks, sizeof(SinkRecord), index);
    return PLR_OK;
}

KV_API int32_t PLREstablishLink(const char* sinkFQN, kvObject link, const char* service,
                                kvArg reserved1, kvArg reserved2, const char* providerFQN,
                                kvObject* linkedObject) {
    (void)link, (void)reserved1, (void)reserved2;
    kvObject provider = nullptr;
    kvObject linked = nullptr;
    if (const int32_t status = lookUpProvider(service, providerFQN, &provider, &linked))
        return status;
    if (!linked) return PLR_OK;
    if (linkedObject) *linkedObject = linked;
    if (!registry().sinks) return PLR_NO_TABLE;
    const int16_t index = findSink([&](const SinkRecord& record) {
        return sameFQN(record.sinkFQN, sinkFQN) && sameService(record.service, service) &&
               sameFQN(record.providerFQN, providerFQN);
    });
    if (index < 0) return PLR_NO_SINK;
    sinkRecords()[index].linkedProvider = provider;
    sinkRecords()[index].established = 1;
    return PLR_OK;
}

KV_API int32_t PLRUnestablishLink(const char* sinkFQN, const char* service,
                                  const char* providerFQN) {
    if (isBlank(sinkFQN) || isBlank(service) || isBlank(providerFQN)) return PLR_BAD_ARGUMENT;
    if (!registry().sinks) return PLR_NO_TABLE;
    const int16_t index = findSink([&](const SinkRecord& record) {
        return sameFQN(record.sinkFQN, sinkFQN) && sameService(record.service, service) &&
               sameFQN(record.providerFQN, providerFQN);
    });
    if (index < 0) return PLR_NO_SINK;
    sinkRecords()[index].linkedProvider = nullptr;
    sinkRecords()[index].established = 0;
    return PLR_OK;
}

KV_API int32_t PLRPushLink(const char* sinkFQN, const char* service, const char* newProviderFQN) {
    if (isBlank(sinkFQN) || isBlank(service) || isBlank(newProviderFQN)) return PLR_BAD_ARGUMENT;
    if (!registry().sinks) return PLR_NO_TABLE;
    const int16_t index = findSinkOfService(sinkFQN, service);
    if (index < 0) return PLR_PUSH_NO_SINK;
    SinkRecord& record = sinkRecords()[index];
    if (const int32_t status = saveOnStack(record, record.providerFQN)) return status;
    storeName(record.providerFQN, newProviderFQN);
    return tellSink(index);
}

KV_API int32_t PLRPopLink(const char* sinkFQN, const char* service) {
    if (isBlank(sinkFQN) || isBlank(service)) return PLR_BAD_ARGUMENT;
    if (!registry().sinks) return PLR_NO_TABLE;
    const int16_t index = findSinkOfService(sinkFQN, service);
    if (index < 0) return PLR_POP_NO_SINK;
    SinkRecord& record = sinkRecords()[index];
    if (countOf(record.stack) == 0) return PLR_NOTHING_TO_POP;
    char restored[nameField];
    storeName(restored, slotReadByPop(record.stack));
    storeName(record.providerFQN, restored);
    dropPopped(record);
    return tellSink(index);
}

KV_API int32_t PLRGetCollectionOfSinks(const char* service, kvObject provider,
                                       kvObject* collection) {
    if (isBlank(service)) return PLR_BAD_ARGUMENT;
    if (!registry().sinks) return PLR_NO_TABLE;
    kvObject raised = nullptr;
    const kvObject owners = kvNewObject(&raised, "Collection", 0);
    if (!owners) {
        if (raised) kova::kernel::discardErrors(raised);
        return PLR_COLLECTION_FAILED;
    }
    // Read by index each time: an owner's answer may change the table.
    for (int16_t i = 0; i < countOf(registry().sinks); ++i) {
        const SinkRecord& record = sinkRecords()[i];
        if (!sameService(record.service, service) || record.linkedProvider != provider ||
            !record.established || !record.sink)
            continue;
        if (const kvObject owner = objectAnswer(&raised, record.sink, "getOwner"))
            kvSendMeth(&raised, owners, "addObject", owner);
    }
    const kvResult found = kvSendMeth(&raised, owners, "getCount");
    if (raised) kova::kernel::discardErrors(raised);
    // Without an out-parameter nobody would own the collection.
    if (found && collection) {
        *collection = owners;
        return PLR_OK;
    }
    kvDelObject(nullptr, owners);
    return found ? PLR_OK : PLR_NO_LINKED_SINKS;
}

} // extern "C"
