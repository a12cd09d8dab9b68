// Every operating-system service the library uses, behind one small interface.
// The POSIX implementation maps dynamic libraries to dlopen, resources to
// compiled-in tables, movable memory to plain handles and user interface to
// host hooks. Nothing outside this folder calls the operating system.
#pragma once

#include "kova/host.h"
#include "kova/kernel.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kova::platform {

// ---- heap: every allocation of the library goes through these ----
void* allocate(size_t size);                // uninitialised block, or null
void* allocateZeroed(size_t size);          // zero-filled block, or null
void* reallocate(void* block, size_t size); // null on failure, the old block intact
void release(void* block);                  // null does nothing
char* duplicate(const char* text);          // heap copy, or null (also for a null text)

// ---- dynamic libraries ----
// Loads a class library by its table name ("KOVA32.DLL"); on failure returns
// null and stores the system's error code in `*systemError`.
kvModule loadLibrary(const char* name, long* systemError);
// A procedure the module itself defines (never one of its dependencies'), or null.
kvProc findProcedure(kvModule module, const char* name);
void freeLibrary(kvModule module);
// The file a loaded module came from, or an empty string.
std::string moduleFileName(kvModule module);
// The full path of the running program's file, or an empty string.
std::string programFileName();
// The kernel library's own module.
kvModule kernelModule();
// The system's last error code for the calling thread.
long lastError();
// Records the error code (an errno value) of a failed runtime-library call, so
// that the next "errorSystem" reports it.
void rememberSystemError(long code);

// ---- resources ----
// The bytes of a resource of `module`, or an empty span when it has none.
std::span<const std::byte> findResource(kvModule module, const char* name, const char* type);
// Copies string resource `id` of `module` into `buffer` (at most size - 1
// characters and a terminator); answers the characters copied, 0 when absent.
int loadString(kvModule module, unsigned id, char* buffer, size_t size);

// ---- the system registry: keys under HKEY_CLASSES_ROOT, each with subkeys
// and an optional default value. Paths name keys below the root with "\\"
// between names ("KOVA\\Protocols"); names compare without regard to case, and
// subkeys are enumerated in one stable order (by name, without regard to
// case). Windows uses the real registry; POSIX a store file shared by the
// user's processes (posix/RegistryStore.cpp).
// Creates the key and any missing keys above it; true when it exists after.
bool registryCreateKey(const char* path);
// Sets the key's default value, creating the key; true when stored.
bool registrySetValue(const char* path, const char* value);
// Copies the key's default value, cut to size - 1 characters; false (and an
// empty buffer) when the key or its value is missing.
bool registryGetValue(const char* path, char* buffer, size_t size);
// Copies the name of subkey `index` of the key, cut to size - 1 characters;
// false past the last subkey or when the key is missing.
bool registryEnumKey(const char* path, unsigned index, char* buffer, size_t size);
// Whether the key exists.
bool registryKeyExists(const char* path);
// Deletes the key with all its subkeys; false when it was not there.
bool registryDeleteKey(const char* path);
// Where the registry lives, for people: the store file on POSIX.
std::string registryLocation();

// ---- INI files, with the Windows profile functions' semantics: sections and
// keys without regard to case, the first of duplicates wins, values trimmed
// and stripped of one pair of enclosing quotes. A bare file name means the
// Windows directory there and the profile folder on POSIX.
// Copies the value (or `fallback`, trailing blanks removed) cut to size - 1
// characters; answers the characters copied.
size_t profileGetString(const char* section, const char* key, const char* fallback,
                        char* buffer, size_t size, const char* file);
// The value as GetPrivateProfileIntA reads it: `fallback` when missing or
// empty, otherwise the number it starts with (0x, 0o and 0b prefixes, a sign).
unsigned profileGetInt(const char* section, const char* key, int fallback, const char* file);
// Sets the key, creating the file and section; a null value deletes the key,
// a null key the whole section. Everything else in the file is kept as it was.
bool profileWriteString(const char* section, const char* key, const char* value,
                        const char* file);
// The file a profile name stands for.
std::string profilePath(const char* file);

// ---- version resources ----
// The file version of a loaded module, four parts, most significant first.
bool fileVersion(kvModule module, uint16_t version[4]);

// ---- movable memory (handles that are locked around each use) ----
using MemoryHandle = void*;
MemoryHandle globalAlloc(size_t size);                        // zero-filled, or null
MemoryHandle globalReAlloc(MemoryHandle handle, size_t size); // null on failure, old kept
void* globalLock(MemoryHandle handle);
void globalUnlock(MemoryHandle handle);
void globalFree(MemoryHandle handle);
size_t globalSize(MemoryHandle handle);

// ---- user interface, through the host's hooks ----
int messageBox(const char* text, const char* caption, unsigned style);
bool showHelp(const char* helpFile, unsigned command, uintptr_t data);
void runErrorDialog(struct kvErrorDialog* dialog);
// Answers non-zero when the bit dialog was shown (and has closed).
int runBitFieldDialog(struct kvBitFieldDialog* dialog);
// Fills a rectangle of a device context with a solid colour (0x00BBGGRR;
// KV_COLOR_WHITE is the stock white brush). A null rectangle paints nothing.
void fillRect(kvArg deviceContext, const kvRect* rect, uint32_t colour);

// ---- system ----
uint64_t availablePhysicalMemory();
// Where the class hierarchy dump is written.
std::string hierarchyDumpPath();

// The current time in UTC.
struct SystemTime {
    uint16_t year;         // as 2026
    uint16_t month;        // 1 to 12
    uint16_t day;          // day of the month, 1 to 31
    uint16_t hour;         // 0 to 23
    uint16_t minute;       // 0 to 59
    uint16_t second;       // 0 to 59
    uint16_t milliseconds; // 0 to 999
};
SystemTime systemTime();
// A number that stays the same for every call in one process, for records
// that must not be handed to another process.
uint32_t processMarker();

} // namespace kova::platform
