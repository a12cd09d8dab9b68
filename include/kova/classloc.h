/* The class location table: which class library holds which class.
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
    KV_CLASSLOC_CLASS_SIZE = 21,   /* class name field: at most 20 characters */
    KV_CLASSLOC_LIBRARY_SIZE = 13, /* library file field: an 8.3 name */
    KV_CLASSLOC_ENTRY_SIZE = 34,   /* one entry, in the resource and the file */
    KV_CLASSLOC_RESOURCE_ID = 104  /* the kernel's user-data resource holding its table */
};

/* One entry, exactly as it lies in the resource and the file. */
typedef struct kvClassLocation {
    char className[KV_CLASSLOC_CLASS_SIZE];     /* NUL-padded */
    char libraryName[KV_CLASSLOC_LIBRARY_SIZE]; /* NUL-padded */
} kvClassLocation;
KV__STATIC_ASSERT(sizeof(kvClassLocation) == KV_CLASSLOC_ENTRY_SIZE);
KV__STATIC_ASSERT(offsetof(kvClassLocation, libraryName) == 21);

KV_API int KovaClassLocationInit4(void);
KV_API void KovaClassLocationTerm4(void);
KV_API int KovaClassLocationGet4(const char* className, char* buffer, size_t size);
KV_API int GetKovaClassLocation(void);
KV_API int SetKovaClassLocation(void);

KV_API int kvTableLoad_CLASSLOCATION(const char* fileName);
KV_API int kvTableSave_CLASSLOCATION(const char* fileName);
KV_API int kvTableInsertEntry_CLASSLOCATION(const char* className, const char* libraryName);
KV_API int kvTableRemoveEntry_CLASSLOCATION(const char* className);
KV_API const char* kvTableFind_CLASSLOCATION(const char* className);
KV_API int kvTableFind_CLASSLOCATION2(const char* className, char* buffer, size_t size);
KV_API size_t kvTableGetCount_CLASSLOCATION(void);
KV_API const char* kvTableGetKey_CLASSLOCATION(size_t index);
KV_API int kvTableGetKey_CLASSLOCATION2(size_t index, char* buffer, size_t size);
KV_API void kvTableFree_CLASSLOCATION(void);

/* Loads the library that holds `className` and finds its "register<Class>"
 * procedure (given to `registerProcOut` when not null). Failures are shown in
 * a message box; the result is then null. */
KV_API kvModule kvLoadClassLibrary(const char* className, kvProc* registerProcOut);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_CLASSLOC_H */
