/** @file
 * The error registry: maps (registration handle, error number) to a message
 * text and a help context. Modules register their texts from an error message
 * file, an error table resource or a library; every function answers one of
 * the status codes below. */
#ifndef KOVA_ERRREG_H
#define KOVA_ERRREG_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    ERR_REG_OK = 0,
    ERR_REG_UNKNOWN = 1,
    ERR_REG_CANT_OPEN_FILE = 2,
    ERR_REG_CANT_LOCATE_FILE = 3,
    ERR_REG_NOT_REGISTERED = 4,
    ERR_REG_MEMORY = 5,
    ERR_REG_NO_RECORDS = 6,
    ERR_REG_NULL_POINTER = 7,
    ERR_REG_RECORD_NOT_FOUND = 8,
    ERR_REG_INVALID_LINE = 9,
    ERR_REG_HELP_FAILED = 10,
    ERR_REG_CANT_FIND_RESOURCE = 11,
    ERR_REG_CANT_LOAD_RESOURCE = 12,
    ERR_REG_CANT_LOCK_RESOURCE = 13,
    ERR_REG_INVALID_INFO_LINE = 14,
    ERR_REG_NO_MESSAGE = 15,
    ERR_REG_NULL_INSTANCE = 16,
    ERR_REG_INVALID_HANDLE = 17
};

/** The procedure that ErrRegisterDLL calls in a library: it gives the error
 * lines in the error table resource's form (lines separated by line feeds),
 * stores their length in `*sizeOut`, and returns null when it has none. The
 * text stays owned by the library. */
typedef const char* (*ErrLinesProc)(size_t* sizeOut);

/** Registers the error texts of module `moduleName` from an error message
 * file and gives a handle for them in `*handleOut`. A file is read to at most
 * 33,553,920 bytes (65535 lines of 510 characters and a line ending, the
 * most messages a registration counts); one that goes on past them (a device
 * or a pipe that never ends) is refused with ERR_REG_INVALID_LINE.
 * @param moduleName the registering module's name
 * @param fileName the error message file
 * @param helpFile the help file the texts' help contexts refer to (may be null)
 * @param handleOut receives the registration handle
 * @return ERR_REG_OK or the reason it failed */
KV_API int ErrRegisterFile(const char* moduleName, const char* fileName, const char* helpFile,
                           uint16_t* handleOut);
/** Registers error texts from an error table resource `resourceName` of type
 * `resourceType` in module `instance`; otherwise as ErrRegisterFile. */
KV_API int ErrRegisterRes(const char* moduleName, kvModule instance, const char* resourceName,
                          const char* resourceType, const char* helpFile, uint16_t* handleOut);
/** Registers error texts given by procedure `procedureName` (an
 * ErrLinesProc) of library `libraryName`; otherwise as ErrRegisterFile. */
KV_API int ErrRegisterDLL(const char* moduleName, const char* libraryName,
                          const char* procedureName, const char* helpFile, uint16_t* handleOut);
/** Drops a registration made by ErrRegisterFile; a status code. */
KV_API int ErrUnRegisterFile(uint16_t handle);
/** Drops a registration made by ErrRegisterRes; a status code. */
KV_API int ErrUnRegisterRes(uint16_t handle);
/** Drops a registration made by ErrRegisterDLL and releases its library;
 * a status code. */
KV_API int ErrUnRegisterDLL(uint16_t handle);
/** Copies the message text of `errorNumber` of a registration into `buffer`
 * (cut to `bufferSize`); a status code. */
KV_API int ErrGetMsg(uint16_t handle, int16_t errorNumber, char* buffer, size_t bufferSize);
/** Gives the help context of `errorNumber` and copies the registration's
 * help file name into `helpFileBuffer`; a status code. */
KV_API int ErrGetHelpInfo(uint16_t handle, int16_t errorNumber, uint16_t* helpContextOut,
                          char* helpFileBuffer, size_t bufferSize);
/** Opens the registration's help file at the help context of `errorNumber`
 * (through the host's help hook); a status code. */
KV_API int ErrShowHelp(uint16_t handle, int16_t errorNumber);
/** Copies the text that explains a status code of the registry into
 * `buffer`; a status code. */
KV_API int ErrGetRegErrorString(int code, char* buffer, size_t bufferSize);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_ERRREG_H */
