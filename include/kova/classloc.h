/** @file
 * The class location table: which class library holds which class.
 * A process-wide table of (class name, library file name) pairs kept sorted by
 * class name without regard to case, filled at start-up from the kernel's
 * built-in table and editable, loadable and savable as a file of 34-byte
 * entries. Every function answers 1 (or a pointer) for success and 0 (or null)
 * for failure, without messages. */
#ifndef KOVA_CLASSLOC_H
#define KOVA_CLASSLOC_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

enum {
    KV_CLASSLOC_CLASS_SIZE = 21,   /**< class name field: at most 20 characters */
    KV_CLASSLOC_LIBRARY_SIZE = 13, /**< library file field: an 8.3 name */
    KV_CLASSLOC_ENTRY_SIZE = 34,   /**< one entry, in the resource and the file */
    KV_CLASSLOC_RESOURCE_ID = 104, /**< the kernel's user-data resource holding its table */
    /** The most entries a table file may hold: what a 16-bit count addresses.
     * A longer file (2,228,190 bytes and more) is refused, and reading stops
     * there, so a device or a pipe that never ends cannot fill the memory. */
    KV_CLASSLOC_MAX_ENTRIES = 65535
};

/** One entry, exactly as it lies in the resource and the file. */
typedef struct kvClassLocation {
    char className[KV_CLASSLOC_CLASS_SIZE];     /**< NUL-padded */
    char libraryName[KV_CLASSLOC_LIBRARY_SIZE]; /**< NUL-padded */
} kvClassLocation;
KV__STATIC_ASSERT(sizeof(kvClassLocation) == KV_CLASSLOC_ENTRY_SIZE);
KV__STATIC_ASSERT(offsetof(kvClassLocation, libraryName) == 21);

/** Fills the table from the kernel's own table resource (104); 1 or 0. */
KV_API int KovaClassLocationInit4(void);
/** Frees the table, as kvTableFree_CLASSLOCATION. */
KV_API void KovaClassLocationTerm4(void);
/** Copies the library name of a class, as kvTableFind_CLASSLOCATION2. */
KV_API int KovaClassLocationGet4(const char* className, char* buffer, size_t size);
/** Kept for old callers; takes no action and answers 0. */
KV_API int GetKovaClassLocation(void);
/** Kept for old callers; takes no action and answers 0. */
KV_API int SetKovaClassLocation(void);

/** Replaces the table by the entries of a file (34-byte entries, no
 * header); a file that is empty, not a whole number of entries or longer than
 * KV_CLASSLOC_MAX_ENTRIES entries is refused and the table kept. The entries
 * are taken as they lie: a file that is not sorted loads, and look-ups in it
 * may miss classes. Answers 1 or 0. */
KV_API int kvTableLoad_CLASSLOCATION(const char* fileName);
/** Writes the entries in use to a file, created or overwritten; 1 or 0. */
KV_API int kvTableSave_CLASSLOCATION(const char* fileName);
/** Adds (class, library) at its sorted place, or replaces the library name
 * of a class already present; each name is cut to its field. 1 or 0. */
KV_API int kvTableInsertEntry_CLASSLOCATION(const char* className, const char* libraryName);
/** Removes the entry of a class; 1, or 0 when it is absent. */
KV_API int kvTableRemoveEntry_CLASSLOCATION(const char* className);
/** The library name of a class (found without regard to case), or null. */
KV_API const char* kvTableFind_CLASSLOCATION(const char* className);
/** Copies the library name of a class into `buffer`: at most `size`
 * characters and then a terminator, so the buffer holds `size` + 1 bytes; an
 * empty string when the class is absent. Answers 1 when found, else 0. */
KV_API int kvTableFind_CLASSLOCATION2(const char* className, char* buffer, size_t size);
/** The number of entries in use. */
KV_API size_t kvTableGetCount_CLASSLOCATION(void);
/** The class name of entry `index`, or null when out of range. */
KV_API const char* kvTableGetKey_CLASSLOCATION(size_t index);
/** Copies the class name of entry `index` as kvTableFind_CLASSLOCATION2
 * copies a library name; 1, or 0 when out of range. */
KV_API int kvTableGetKey_CLASSLOCATION2(size_t index, char* buffer, size_t size);
/** The library name of entry `index`, or null when out of range: the rows of
 * a table as they lie, whether or not it is sorted. */
KV_API const char* kvTableGetLibrary_CLASSLOCATION(size_t index);
/** Frees the entries; the table is then empty. */
KV_API void kvTableFree_CLASSLOCATION(void);

/** Loads the library that holds `className` and finds its "register<Class>"
 * procedure (given to `registerProcOut` when not null). Failures are shown in
 * a message box; the result is then null. */
KV_API kvModule kvLoadClassLibrary(const char* className, kvProc* registerProcOut);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_CLASSLOC_H */
