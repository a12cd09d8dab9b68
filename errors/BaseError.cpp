// BaseError: an error object (source, number, formatted message, help
// context). Errors raised into one slot form a stack, newest first; every live
// error is also on one process-wide collection list, which is trimmed when it
// grows to 50.
#include "errors/MessageFormat.hpp"
#include "kernel/Kernel.hpp"
#include "kernel/PairTable.hpp"
#include "platform/Platform.hpp"

#include <cstdlib>
#include <cstring>

namespace {

#pragma pack(push, 1)
struct BaseErrorData {
    char* source;           // heap copy of the raiser's class name (or "kvMakeError")
    int32_t code;           // error number
    char* message;          // heap copy of the formatted message
    uint16_t helpContextID; // help context cut from the message text
    kvObject nextGC;        // next older error on the collection list
    kvObject prevGC;        // next newer error on the collection list
    kvObject nextES;        // next older error of the same stack
    kvObject prevES;        // next newer error of the same stack
};
#pragma pack(pop)

kvClass BaseErrorClass = nullptr;

// The collection list (reset by "classInit").
struct Collection {
    long count;      // live errors on the list
    kvObject newest; // head of the list
    kvObject oldest; // tail of the list
};
Collection live{};

// Errors trimmed from the collection list. They stay alive for whoever holds
// them, and are deleted by the final collection if nobody has by then. Each
// one's place in the array is kept beside it, so that deleting any of many
// retired errors costs the same.
struct Retired {
    kvObject* errors; // heap array
    size_t count;
    size_t capacity;
};
Retired retired{};
kova::kernel::PairTable<size_t> retiredPlaces; // (error, null) -> index in `retired`

void retire(kvObject error) {
    if (retired.count == retired.capacity) {
        const size_t capacity = retired.capacity ? 2 * retired.capacity : 16;
        auto* grown = static_cast<kvObject*>(
            kova::platform::reallocate(retired.errors, capacity * sizeof(kvObject)));
        if (!grown) return; // then only its holder can delete it
        retired.errors = grown;
        retired.capacity = capacity;
    }
    size_t* place = retiredPlaces.insert(error, nullptr);
    if (!place) return;
    *place = retired.count;
    retired.errors[retired.count++] = error;
}

void forgetRetired(kvObject error) {
    const size_t* place = retiredPlaces.find(error, nullptr);
    if (!place) return;
    const size_t index = *place;
    const kvObject last = retired.errors[--retired.count];
    retired.errors[index] = last;
    if (last != error) *retiredPlaces.find(last, nullptr) = index;
    retiredPlaces.erase(error, nullptr);
}

void freeRetiredList() {
    kova::platform::release(retired.errors);
    retired = Retired{};
    retiredPlaces.clear();
}

// The top of the stack holding one error, as the trimming walk last found it.
// It is kept true as errors are pushed on that top or leave the lists, so
// that while one stack holds every error, each "Add" finds the oldest error's
// top without walking the whole stack.
struct KnownTop {
    kvObject from; // the error whose stack it is, or null
    kvObject top;  // the newest error of that stack
};
KnownTop known{};

constexpr long trimAt = 50; // an "Add" that reaches this count trims the list
constexpr long trimDownTo = 26;
constexpr size_t messageBufferSize = 10000;
constexpr const char* messageNotFound = "Message for error not found in registry.";

KV_METHOD_TABLE(baseErrorMethods,                        //
                kova::method("Add", 0),                  //
                kova::method("AddToStack", 1),           //
                kova::method("deleteTopError", 0),       //
                kova::method("getCode", 0),              //
                kova::method("getHelpFileContextID", 0), //
                kova::method("getHelpInfo", 3),          //
                kova::method("getMessage", 0),           //
                kova::method("getNextESObj", 0),         //
                kova::method("getNextGCObj", 0),         //
                kova::method("getPrevESObj", 0),         //
                kova::method("getPrevGCObj", 0),         //
                kova::method("getSource", 0),            //
                kova::method("objInit", 0),              //
                kova::method("objTerm", 0),              //
                kova::method("setNextESObj", 1),         //
                kova::method("setNextGCObj", 1),         //
                kova::method("setPrevESObj", 1),         //
                kova::method("setPrevGCObj", 1));

KV_METHOD_TABLE(baseErrorClassMethods,             //
                kova::method("Delete", 1),         //
                kova::method("GarbageCollect", 1), //
                kova::method("classInit", 0),      //
                kova::method("classTerm", 0));

// The BaseError slice of an error's data block.
BaseErrorData* dataOf(kvObject error) {
    return reinterpret_cast<BaseErrorData*>(static_cast<char*>(error->data) +
                                            BaseErrorClass->dataOffset);
}

bool onCollectionList(kvObject error) {
    const BaseErrorData* e = dataOf(error);
    return e->nextGC || e->prevGC || live.newest == error;
}

// Unlinks an error from the collection list and its stack and clears its
// links; the object stays. An error not on the list is left alone.
void unlink(kvObject error) {
    if (!error || live.count == 0 || !onCollectionList(error)) return;
    BaseErrorData* e = dataOf(error);
    if (error == known.from) known = KnownTop{};
    if (error == known.top) known.top = e->nextES;
    --live.count;
    if (e->prevGC) dataOf(e->prevGC)->nextGC = e->nextGC;
    if (e->nextGC) dataOf(e->nextGC)->prevGC = e->prevGC;
    if (live.newest == error) live.newest = e->nextGC;
    if (live.oldest == error) live.oldest = e->prevGC;
    if (e->prevES) dataOf(e->prevES)->nextES = e->nextES;
    if (e->nextES) dataOf(e->nextES)->prevES = e->prevES;
    e->nextGC = e->prevGC = e->nextES = e->prevES = nullptr;
}

void deleteEveryError() {
    for (kvObject error = live.oldest; error;) {
        const kvObject newer = dataOf(error)->prevGC;
        unlink(error);
        kvDelObject(nullptr, error);
        error = newer;
    }
    while (retired.count) {
        const kvObject error = retired.errors[retired.count - 1];
        forgetRetired(error);
        kvDelObject(nullptr, error);
    }
    freeRetiredList();
}

kvObject topOfStack(kvObject error) {
    if (error == known.from) return known.top;
    kvObject top = error;
    while (dataOf(top)->prevES)
        top = dataOf(top)->prevES;
    known = KnownTop{error, top};
    return top;
}

// Trims whole stacks, oldest first, until fewer than 26 errors are listed.
// The stack holding the newest error is the one in use and is never touched.
void trimOldStacks() {
    kvObject current = live.oldest;
    while (live.count >= trimDownTo && current && current != live.newest) {
        const kvObject top = topOfStack(current);
        if (top == live.newest) return;
        kvObject continueFrom = nullptr;
        for (kvObject error = top; error;) {
            const kvObject older = dataOf(error)->nextES;
            if (!older) continueFrom = dataOf(error)->prevGC;
            unlink(error);
            retire(error);
            error = older;
        }
        current = continueFrom;
    }
}

kvObject argObject(const kvArgs* args, size_t index) {
    return reinterpret_cast<kvObject>(kvArgAt(args, index));
}

// Loads the text of `code` from the error's module and cuts the help context
// off its end: the digits after the last blank, when they make a non-zero
// number.
uint16_t loadMessageText(kvObject self, int32_t code, char* text) {
    text[0] = '\0';
    if (!kvFindMethod(nullptr, self->cls, "getModuleInstance", 0)) return 0;
    const auto module = reinterpret_cast<kvModule>(kvSendMeth(nullptr, self, "getModuleInstance"));
    if (!module || code < 0) return 0;
    kova::platform::loadString(module, static_cast<unsigned>(code), text, messageBufferSize);
    char* blank = std::strrchr(text, ' ');
    if (!blank) return 0;
    const unsigned long context = std::strtoul(blank + 1, nullptr, 10);
    if (context == 0) return 0;
    *blank = '\0';
    return static_cast<uint16_t>(context);
}

} // namespace

// (source, code, message arguments as one slot): fills the error, puts it on
// the collection list and, when the slot already holds an error, on top of it.
KV_METHOD(BaseError, objInit) {
    const kvArgs rest = kvArgsAfter(args, 3);
    kvSendParentMethNA(errSlot, BaseErrorClass, self, "objInit", &rest);
    auto* e = static_cast<BaseErrorData*>(instData);
    e->source = kova::platform::duplicate(reinterpret_cast<const char*>(kvArgAt(args, 0)));
    e->code = static_cast<int32_t>(kvArgAt(args, 1));

    auto* text = static_cast<char*>(kova::platform::allocate(messageBufferSize));
    auto* message = static_cast<char*>(kova::platform::allocate(messageBufferSize));
    if (text && message) {
        e->helpContextID = loadMessageText(self, e->code, text);
        const auto* messageArgs = reinterpret_cast<const kvArgs*>(kvArgAt(args, 2));
        kova::errors::formatMessage(message, messageBufferSize, text, messageArgs);
        e->message = kova::platform::duplicate(*message ? message : messageNotFound);
    }
    kova::platform::release(text);
    kova::platform::release(message);

    kvSendMeth(nullptr, self, "Add");
    if (errSlot && *errSlot) kvSendMeth(nullptr, self, "AddToStack", *errSlot);
    return 0;
}

KV_METHOD(BaseError, objTerm) {
    kvFireNotification(errSlot, self, "OnTerm");
    kvSendClMeth(nullptr, BaseErrorClass, "Delete", self);
    forgetRetired(self);
    auto* e = static_cast<BaseErrorData*>(instData);
    kova::platform::release(e->source);
    kova::platform::release(e->message);
    e->source = e->message = nullptr;
    return kvSendParentMethNA(errSlot, BaseErrorClass, self, "objTerm", args);
}

KV_METHOD(BaseError, Add) {
    (void)errSlot, (void)args;
    if (++live.count >= trimAt) kvSendClMeth(nullptr, BaseErrorClass, "GarbageCollect", 2);
    auto* e = static_cast<BaseErrorData*>(instData);
    if (!live.newest) {
        live.newest = live.oldest = self;
    } else {
        e->nextGC = live.newest;
        dataOf(live.newest)->prevGC = self;
        live.newest = self;
    }
    return 0;
}

// (older): links the receiver in front of `older` in its stack.
KV_METHOD(BaseError, AddToStack) {
    (void)errSlot;
    const kvObject older = argObject(args, 0);
    if (!older || older == self) return 0;
    auto* e = static_cast<BaseErrorData*>(instData);
    BaseErrorData* o = dataOf(older);
    if (e->nextES || e->prevES || self == known.from || self == known.top)
        known = KnownTop{}; // the receiver leaves a stack without unlinking
    else if (older == known.top)
        known.top = self;
    e->nextES = older;
    e->prevES = o->prevES;
    if (o->prevES) dataOf(o->prevES)->nextES = self;
    o->prevES = self;
    return 0;
}

KV_METHOD(BaseError, deleteTopError) {
    (void)args;
    const kvObject older = static_cast<BaseErrorData*>(instData)->nextES;
    kvSendClMeth(nullptr, BaseErrorClass, "Delete", self);
    kvDelObject(nullptr, self);
    if (errSlot) *errSlot = older;
    return 0;
}

// (context out, buffer, length): the help context, and the help file's name
// as the error's class gives it ("getHelpFileName").
KV_METHOD(BaseError, getHelpInfo) {
    auto* context = reinterpret_cast<uint16_t*>(kvArgAt(args, 0));
    if (context) *context = static_cast<BaseErrorData*>(instData)->helpContextID;
    if (!kvFindMethod(nullptr, self->cls, "getHelpFileName", 0)) return 0;
    return kvSendMeth(errSlot, self, "getHelpFileName", kvArgAt(args, 1), kvArgAt(args, 2));
}

#define KV_FIELD_GETTER(method, field, type)                                                       \
    KV_METHOD(BaseError, method) {                                                                 \
        (void)errSlot, (void)self, (void)args;                                                     \
        return (kvResult)(type)(static_cast<BaseErrorData*>(instData)->field);                     \
    }
// A link set by hand may change any stack.
#define KV_FIELD_SETTER(method, field)                                                             \
    KV_METHOD(BaseError, method) {                                                                 \
        (void)errSlot, (void)self;                                                                 \
        static_cast<BaseErrorData*>(instData)->field = argObject(args, 0);                         \
        known = KnownTop{};                                                                        \
        return 0;                                                                                  \
    }

KV_FIELD_GETTER(getCode, code, int32_t)
KV_FIELD_GETTER(getHelpFileContextID, helpContextID, uint16_t)
KV_FIELD_GETTER(getMessage, message, uintptr_t)
KV_FIELD_GETTER(getNextESObj, nextES, uintptr_t)
KV_FIELD_GETTER(getNextGCObj, nextGC, uintptr_t)
KV_FIELD_GETTER(getPrevESObj, prevES, uintptr_t)
KV_FIELD_GETTER(getPrevGCObj, prevGC, uintptr_t)
KV_FIELD_GETTER(getSource, source, uintptr_t)
KV_FIELD_SETTER(setNextESObj, nextES)
KV_FIELD_SETTER(setNextGCObj, nextGC)
KV_FIELD_SETTER(setPrevESObj, prevES)
KV_FIELD_SETTER(setPrevGCObj, prevGC)

KV_CLASS_METHOD(BaseError, Delete) {
    (void)errSlot, (void)self;
    unlink(argObject(args, 0));
    return 0;
}

// (mode): 1 deletes every error; any other mode trims old stacks.
KV_CLASS_METHOD(BaseError, GarbageCollect) {
    (void)errSlot, (void)self;
    if (kvArgAt(args, 0) == 1)
        deleteEveryError();
    else if (live.count > 0)
        trimOldStacks();
    return 0;
}

KV_CLASS_METHOD(BaseError, classInit) {
    (void)errSlot, (void)self, (void)args;
    live = Collection{};
    known = KnownTop{};
    return 0;
}

KV_CLASS_METHOD(BaseError, classTerm) {
    (void)errSlot, (void)self, (void)args;
    return 0;
}

KV_REGISTER(BaseError) {
    if (!kvRegisterClass("Object")) return nullptr;
    BaseErrorClass = kvAddClass("BaseError", "Object", sizeof(BaseErrorData), 0,
                                baseErrorMethods.get(), baseErrorClassMethods.get());
    return BaseErrorClass;
}
