// The error registry: maps (registration handle, error number) to a message
// text and a help context.
//
// Registration records lie in one movable block, locked around each use, in
// registration order; the block holds exactly as many records as are counted
// (or more, after a failed trim) and is freed when the last record goes. A
// registration either completes or leaves the registry as it was: the
// messages are read into a table of their own first, and the record is added
// only when everything it needs has been had. Every function answers a status
// code; nothing is shown and no error objects are made.
#include "errors/ErrorLines.hpp"
#include "kova/errreg.h"
#include "kova/resources.h"
#include "platform/Platform.hpp"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

namespace platform = kova::platform;
using kova::errors::FileBytes;
using kova::errors::MessageEntry;
using kova::errors::MessageTable;
using kova::errors::TextBytes;
using platform::MemoryHandle;

constexpr size_t nameSize = 256;       // module, file and help file names: 255 characters
constexpr size_t sourceNameSize = 260; // resource or library name: 259 characters
constexpr unsigned helpContextCommand = 1;

// Where a registration's texts came from.
enum RegistrationKind : uint8_t { fromFile = 1, fromResource = 2, fromLibrary = 3 };

// One registered module.
struct RegistrationRecord {
    uint16_t handle;                 // what the module passes to every lookup
    char moduleName[nameSize];       // the module's name; registrations are found by it
    uint16_t refCount;               // registrations minus unregistrations
    uint8_t kind;                    // a RegistrationKind
    char fileName[nameSize];         // the error message file, for file registrations
    char sourceName[sourceNameSize]; // the resource or library, for the other kinds
    uint16_t messageCount;           // entries in `messages`
    MemoryHandle messages;           // movable block of MessageEntry, in line order
    char helpFile[nameSize];         // what ErrShowHelp opens
};

// The texts of the status codes, by code; the letters are part of the interface.
constexpr const char* statusTexts[] = {
    "No error",
    "Unknown error in Error Registry.",
    "Couldn't open file containing error messages to be registered",
    "Couldn't locate the file containing error messages to be registered.",
    "Module has not been previously registered or has been unregsitered.",
    "MNV Memory Manager Error.",
    "Error Registry has no regitration records yet.",
    "Null pointer passed in function argument.",
    "Registration record not found.",
    "Registration error message file contains invalid line.",
    "Failed to show help.",
    "Couldn't find error table resource.",
    "Couldn't load error table resource.",
    "Couldn't lock error table resource.",
    "An error info line contains invalid data pertaining to the error.",
    "No error message found for the specified error id.",
    "NULL instance handle to resource passed to resource manager.",
    "Invalid Error Registry Handle.",
};
static_assert(std::size(statusTexts) == ERR_REG_INVALID_HANDLE + 1);

// The process-wide registry.
struct Registry {
    MemoryHandle records = nullptr; // movable block of RegistrationRecord, or null
    uint16_t count = 0;             // records in use
    uint16_t nextHandle = 1;        // the handle the next new record receives
};
Registry registry;

// The record block, locked for as long as this object lives.
class LockedRecords {
  public:
    LockedRecords()
        : records_(static_cast<RegistrationRecord*>(platform::globalLock(registry.records))) {}
    ~LockedRecords() { platform::globalUnlock(registry.records); }
    LockedRecords(const LockedRecords&) = delete;
    LockedRecords& operator=(const LockedRecords&) = delete;

    RegistrationRecord* begin() const { return records_; }
    RegistrationRecord* end() const { return records_ ? records_ + registry.count : nullptr; }

  private:
    RegistrationRecord* records_;
};

// Copies at most size - 1 characters of `text` (null reads as empty) and a
// terminator into `buffer`; a zero size writes nothing.
void copyText(char* buffer, size_t size, const char* text) {
    if (size == 0) return;
    size_t length = 0;
    for (; text && length < size - 1 && text[length]; ++length)
        buffer[length] = text[length];
    buffer[length] = '\0';
}

// A resource name as people write it: the name itself, or "#id" for a number.
void copyResourceName(char (&field)[sourceNameSize], const char* name) {
    if (KV_RESOURCE_IS_ID(name))
        std::snprintf(field, sizeof field, "#%u",
                      static_cast<unsigned>(reinterpret_cast<uintptr_t>(name)));
    else
        copyText(field, sizeof field, name);
}

bool isHandleInUse(uint16_t handle) {
    LockedRecords records;
    return std::any_of(records.begin(), records.end(),
                       [handle](const RegistrationRecord& r) { return r.handle == handle; });
}

// Takes the next handle from the counter. After the counter wraps, 0 (never a
// handle) and handles still held by live records are passed over; the caller
// has made sure a free handle exists.
uint16_t takeHandle() {
    while (registry.nextHandle == 0 || isHandleInUse(registry.nextHandle))
        ++registry.nextHandle;
    return registry.nextHandle++;
}

// Counts a repeated registration of `moduleName`, if there is a record for it:
// a repeat raises the reference count by 2. Answers whether there was one.
bool countRepeatedRegistration(const char* moduleName) {
    char name[nameSize];
    copyText(name, sizeof name, moduleName);
    LockedRecords records;
    for (RegistrationRecord& record : records) {
        if (std::strcmp(record.moduleName, name) != 0) continue;
        record.refCount = static_cast<uint16_t>(std::min(record.refCount + 2, UINT16_MAX));
        return true;
    }
    return false;
}

// Makes room in the block for one more record; false (and nothing changed)
// when there is no memory or every handle is taken.
bool reserveRecord() {
    if (registry.count == UINT16_MAX) return false;
    const size_t needed = (registry.count + 1) * sizeof(RegistrationRecord);
    if (platform::globalSize(registry.records) >= needed) return true;
    MemoryHandle block = platform::globalReAlloc(registry.records, needed);
    if (!block) return false;
    registry.records = block;
    return true;
}

// What a new registration is called and where its texts came from.
struct Origin {
    const char* moduleName;
    RegistrationKind kind;
    const char* fileName;     // file registrations, else null
    const char* resourceName; // resource registrations, else null
    const char* libraryName;  // library registrations, else null
    const char* helpFile;     // may be null
};

// Appends the record of a new registration, taking over the table's messages.
// The caller has reserved room for it. Answers the record's handle.
uint16_t appendRecord(const Origin& origin, MessageTable& messages) {
    RegistrationRecord record{};
    record.handle = takeHandle();
    copyText(record.moduleName, sizeof record.moduleName, origin.moduleName);
    record.refCount = 1;
    record.kind = origin.kind;
    copyText(record.fileName, sizeof record.fileName, origin.fileName);
    if (origin.resourceName) copyResourceName(record.sourceName, origin.resourceName);
    if (origin.libraryName)
        copyText(record.sourceName, sizeof record.sourceName, origin.libraryName);
    record.messageCount = messages.count();
    record.messages = messages.release();
    copyText(record.helpFile, sizeof record.helpFile, origin.helpFile);

    auto* records = static_cast<RegistrationRecord*>(platform::globalLock(registry.records));
    records[registry.count] = record;
    platform::globalUnlock(registry.records);
    ++registry.count;
    return record.handle;
}

// Registers a module whose messages `readMessages(MessageTable&)` supplies,
// answering its status. A module already registered only has its count
// raised (the handle is then not written). On any failure the registry is
// left as it was.
template <typename ReadMessages>
int registerModule(const Origin& origin, ReadMessages readMessages, uint16_t* handleOut) {
    if (countRepeatedRegistration(origin.moduleName)) return ERR_REG_OK;
    MessageTable messages;
    if (const int status = readMessages(messages); status != ERR_REG_OK) return status;
    if (!reserveRecord()) return ERR_REG_MEMORY;
    *handleOut = appendRecord(origin, messages);
    return ERR_REG_OK;
}

// Reads the messages of an error message file into `messages`. A file that
// opens but cannot be read (a directory, say) counts as one that cannot be
// opened; one longer than an error message file can be (maxFileSize) is
// refused as holding an invalid line.
int readFileMessages(const char* fileName, MessageTable& messages) {
    std::FILE* file = std::fopen(fileName, "r");
    if (!file) return ERR_REG_CANT_OPEN_FILE;
    bool tooLong = false;
    int status = messages.addLinesOf(FileBytes(file, &tooLong));
    if (status == ERR_REG_OK && std::ferror(file)) status = ERR_REG_CANT_OPEN_FILE;
    if (status == ERR_REG_OK && tooLong) status = ERR_REG_INVALID_LINE;
    std::fclose(file);
    return status;
}

// Reads the messages of an error table resource of `instance`. A resource that
// cannot be found (or holds nothing) gives ERR_REG_CANT_FIND_RESOURCE; the
// platform finds, loads and locks a resource in one step.
int readResourceMessages(kvModule instance, const char* name, const char* type,
                         MessageTable& messages) {
    const auto bytes = platform::findResource(instance, name, type);
    if (bytes.empty()) return ERR_REG_CANT_FIND_RESOURCE;
    return messages.addLinesOf(TextBytes(bytes.data(), bytes.size()));
}

// Reads the messages a library's ErrLinesProc gives. The library is loaded for
// the call only: a library that cannot be loaded gives
// ERR_REG_CANT_LOCATE_FILE, a missing procedure ERR_REG_CANT_FIND_RESOURCE
// and a procedure that gives no lines ERR_REG_CANT_LOAD_RESOURCE.
int readLibraryMessages(const char* libraryName, const char* procedureName,
                        MessageTable& messages) {
    kvModule library = platform::loadLibrary(libraryName, nullptr);
    if (!library) return ERR_REG_CANT_LOCATE_FILE;
    int status = ERR_REG_CANT_FIND_RESOURCE;
    // kvProc is the generic procedure type; the library's contract fixes the real one.
    if (auto giveLines =
            reinterpret_cast<ErrLinesProc>(platform::findProcedure(library, procedureName))) {
        size_t size = 0;
        const char* text = giveLines(&size);
        // The text belongs to the library, so it is read before the library goes.
        status = text ? messages.addLinesOf(TextBytes(text, size)) : ERR_REG_CANT_LOAD_RESOURCE;
    }
    platform::freeLibrary(library);
    return status;
}

int registerFile(const char* moduleName, const char* fileName, const char* helpFile,
                 uint16_t* handleOut) {
    const Origin origin{moduleName, fromFile, fileName, nullptr, nullptr, helpFile};
    return registerModule(
        origin, [&](MessageTable& messages) { return readFileMessages(fileName, messages); },
        handleOut);
}

int registerResource(const char* moduleName, kvModule instance, const char* resourceName,
                     const char* resourceType, const char* helpFile, uint16_t* handleOut) {
    const Origin origin{moduleName, fromResource, nullptr, resourceName, nullptr, helpFile};
    return registerModule(
        origin,
        [&](MessageTable& messages) {
            return readResourceMessages(instance, resourceName, resourceType, messages);
        },
        handleOut);
}

int registerLibrary(const char* moduleName, const char* libraryName, const char* procedureName,
                    const char* helpFile, uint16_t* handleOut) {
    const Origin origin{moduleName, fromLibrary, nullptr, nullptr, libraryName, helpFile};
    return registerModule(
        origin,
        [&](MessageTable& messages) {
            return readLibraryMessages(libraryName, procedureName, messages);
        },
        handleOut);
}

// Drops one registration of `handle`. When its count reaches 0 the record's
// messages are freed and the last record moves into its place, so records
// stay contiguous (their order is not kept); the block goes with the last record.
int dropRegistration(uint16_t handle) {
    if (handle == 0) return ERR_REG_INVALID_HANDLE;
    {
        LockedRecords records;
        RegistrationRecord* record =
            std::find_if(records.begin(), records.end(),
                         [handle](const RegistrationRecord& r) { return r.handle == handle; });
        if (record == records.end()) return ERR_REG_RECORD_NOT_FOUND;
        if (--record->refCount > 0) return ERR_REG_OK;
        platform::globalFree(record->messages);
        RegistrationRecord* last = records.end() - 1;
        if (record != last) *record = *last;
        *last = RegistrationRecord{};
    }
    if (--registry.count == 0) {
        platform::globalFree(registry.records);
        registry.records = nullptr;
    }
    return ERR_REG_OK;
}

// What a lookup finds: copies, so that no block stays locked.
struct FoundMessage {
    char text[kova::errors::messageTextSize];
    uint16_t helpContext;
    char helpFile[nameSize];
};

// Fills `found` from the first entry of `number` among the messages of the
// registration `handle`, in line order. Answers ERR_REG_INVALID_HANDLE for
// handle 0, ERR_REG_NO_RECORDS when nothing is registered,
// ERR_REG_RECORD_NOT_FOUND for an unknown handle and ERR_REG_NO_MESSAGE when
// the registration has no entry for the number.
int findMessage(uint16_t handle, int16_t number, FoundMessage& found) {
    if (handle == 0) return ERR_REG_INVALID_HANDLE;
    if (registry.count == 0) return ERR_REG_NO_RECORDS;
    LockedRecords records;
    const RegistrationRecord* record =
        std::find_if(records.begin(), records.end(),
                     [handle](const RegistrationRecord& r) { return r.handle == handle; });
    if (record == records.end()) return ERR_REG_RECORD_NOT_FOUND;
    if (record->messageCount == 0) return ERR_REG_NO_MESSAGE;
    const auto* first = static_cast<const MessageEntry*>(platform::globalLock(record->messages));
    const MessageEntry* entry =
        std::find_if(first, first + record->messageCount,
                     [number](const MessageEntry& e) { return e.number == number; });
    const bool isFound = entry != first + record->messageCount;
    if (isFound) {
        copyText(found.text, sizeof found.text, entry->text);
        found.helpContext = entry->helpContext;
        copyText(found.helpFile, sizeof found.helpFile, record->helpFile);
    }
    platform::globalUnlock(record->messages);
    return isFound ? ERR_REG_OK : ERR_REG_NO_MESSAGE;
}

int copyMessage(uint16_t handle, int16_t errorNumber, char* buffer, size_t bufferSize) {
    FoundMessage found;
    const int status = findMessage(handle, errorNumber, found);
    if (status == ERR_REG_OK) copyText(buffer, bufferSize, found.text);
    return status;
}

// A size of 0 or above 256 stands for a buffer of 256 bytes, which holds any
// help file name.
int copyHelpInfo(uint16_t handle, int16_t errorNumber, uint16_t* helpContextOut,
                 char* helpFileBuffer, size_t bufferSize) {
    FoundMessage found;
    const int status = findMessage(handle, errorNumber, found);
    if (status != ERR_REG_OK) return status;
    if (helpContextOut) *helpContextOut = found.helpContext;
    const size_t size = (bufferSize == 0 || bufferSize > nameSize) ? nameSize : bufferSize;
    copyText(helpFileBuffer, size, found.helpFile);
    return ERR_REG_OK;
}

int showHelp(uint16_t handle, int16_t errorNumber) {
    FoundMessage found;
    const int status = findMessage(handle, errorNumber, found);
    if (status != ERR_REG_OK) return status;
    if (!platform::showHelp(found.helpFile, helpContextCommand, found.helpContext))
        return ERR_REG_HELP_FAILED;
    return ERR_REG_OK;
}

// Codes without a text of their own (negative, or 18 and up) read as code 1.
void copyStatusText(int code, char* buffer, size_t bufferSize) {
    const bool isKnown = code >= 0 && code < static_cast<int>(std::size(statusTexts));
    copyText(buffer, bufferSize, statusTexts[isKnown ? code : ERR_REG_UNKNOWN]);
}

} // namespace

extern "C" KV_API int ErrRegisterFile(const char* moduleName, const char* fileName,
                                      const char* helpFile, uint16_t* handleOut) {
    if (!moduleName || !fileName || !handleOut) return ERR_REG_NULL_POINTER;
    return registerFile(moduleName, fileName, helpFile, handleOut);
}

extern "C" KV_API int ErrRegisterRes(const char* moduleName, kvModule instance,
                                     const char* resourceName, const char* resourceType,
                                     const char* helpFile, uint16_t* handleOut) {
    if (!moduleName || !resourceName || !resourceType || !handleOut) return ERR_REG_NULL_POINTER;
    if (!instance) return ERR_REG_NULL_INSTANCE;
    return registerResource(moduleName, instance, resourceName, resourceType, helpFile, handleOut);
}

extern "C" KV_API int ErrRegisterDLL(const char* moduleName, const char* libraryName,
                                     const char* procedureName, const char* helpFile,
                                     uint16_t* handleOut) {
    if (!moduleName || !libraryName || !procedureName || !handleOut) return ERR_REG_NULL_POINTER;
    return registerLibrary(moduleName, libraryName, procedureName, helpFile, handleOut);
}

extern "C" KV_API int ErrUnRegisterFile(uint16_t handle) {
    return dropRegistration(handle);
}
extern "C" KV_API int ErrUnRegisterRes(uint16_t handle) {
    return dropRegistration(handle);
}
extern "C" KV_API int ErrUnRegisterDLL(uint16_t handle) {
    return dropRegistration(handle);
}

extern "C" KV_API int ErrGetMsg(uint16_t handle, int16_t errorNumber, char* buffer,
                                size_t bufferSize) {
    if (!buffer) return ERR_REG_NULL_POINTER;
    return copyMessage(handle, errorNumber, buffer, bufferSize);
}

extern "C" KV_API int ErrGetHelpInfo(uint16_t handle, int16_t errorNumber, uint16_t* helpContextOut,
                                     char* helpFileBuffer, size_t bufferSize) {
    if (!helpFileBuffer) return ERR_REG_NULL_POINTER;
    return copyHelpInfo(handle, errorNumber, helpContextOut, helpFileBuffer, bufferSize);
}

extern "C" KV_API int ErrShowHelp(uint16_t handle, int16_t errorNumber) {
    return showHelp(handle, errorNumber);
}

extern "C" KV_API int ErrGetRegErrorString(int code, char* buffer, size_t bufferSize) {
    if (!buffer) return ERR_REG_NULL_POINTER;
    copyStatusText(code, buffer, bufferSize);
    return ERR_REG_OK;
}
