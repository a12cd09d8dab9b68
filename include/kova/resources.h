/** @file
 * Compiled-in resources of a module on POSIX, where modules carry no resource
 * section: a module exports an array named `kvModuleResources`, ended by an
 * entry whose data is null. Types and names are those of Windows resources:
 * a small integer (KV_RESOURCE_ID) or a string. String resources have type
 * KV_RT_STRING, the string number as name and the text as data. */
#ifndef KOVA_RESOURCES_H
#define KOVA_RESOURCES_H

#include "kova/kernel.h"

#include <stddef.h>
#include <stdint.h>

/** A resource type or name given as a small integer. */
#define KV_RESOURCE_ID(n) ((const char*)(uintptr_t)(n))
/** True when a type or name is a small integer rather than a string. */
#define KV_RESOURCE_IS_ID(p) (((uintptr_t)(p)) <= 0xFFFFu)
/** The type of string resources. */
#define KV_RT_STRING KV_RESOURCE_ID(6)
/** The type of user-data resources. */
#define KV_RT_RCDATA KV_RESOURCE_ID(10)
/** The type of version resources. */
#define KV_RT_VERSION KV_RESOURCE_ID(16)

/* A module's file version on POSIX: resource KV_VERSION_RESOURCE_ID of type
 * KV_RT_VERSION holding the text "major.minor.build.revision", each part 0 to
 * 65535. KV_VERSION_RESOURCE(2, 1, 0, 0) is that table entry; on Windows the
 * same numbers go into the FILEVERSION of a VERSIONINFO resource. */
/** The name of a module's version resource. */
#define KV_VERSION_RESOURCE_ID 1
#define KV__VERSION_TEXT(a, b, c, d) #a "." #b "." #c "." #d
/** The table entry of a module's file version a.b.c.d (POSIX). */
#define KV_VERSION_RESOURCE(a, b, c, d)                                                            \
    {                                                                                              \
        KV_RT_VERSION, KV_RESOURCE_ID(KV_VERSION_RESOURCE_ID), KV__VERSION_TEXT(a, b, c, d),       \
            sizeof(KV__VERSION_TEXT(a, b, c, d)) - 1                                               \
    }
/** A string resource entry: number and text (a string literal). */
#define KV_STRING_RESOURCE(number, text)                                                           \
    { KV_RT_STRING, KV_RESOURCE_ID(number), text, sizeof(text) - 1 }

/** One resource of a module's table. */
typedef struct kvResource {
    const char* type; /**< KV_RESOURCE_ID(n) or a type name */
    const char* name; /**< KV_RESOURCE_ID(n) or a resource name */
    const void* data; /**< the bytes; null ends the table */
    size_t size;      /**< number of bytes */
} kvResource;

#if defined(__GNUC__) && !defined(_WIN32)
#define KV__RESOURCE_SECTION __attribute__((section(".data.rel.ro.kvresources")))
#else
#define KV__RESOURCE_SECTION
#endif

#ifdef __cplusplus
extern "C" {
#endif
/** The module's own resource table, for a module that defines one with
 * KV_MODULE_RESOURCES. A module's references to it reach its own table even
 * though every module exports one under this name. The declaration names the
 * table's section as its definition does, which clang requires. */
extern KV_EXPORT KV__RESOURCE_SECTION const kvResource kvModuleResources[];
#ifdef __cplusplus
}
#endif
/** Defines the module's table: `KV_MODULE_RESOURCES = { {...}, ..., {0, 0, 0, 0} };`
 * Every module exports its table under the one name; a table in a section of
 * its own is left out of the address sanitizer's register of globals, which
 * would otherwise take the tables of two modules for one symbol defined twice. */
#define KV_MODULE_RESOURCES                                                                        \
    KV_EXTERN_C KV_EXPORT KV__RESOURCE_SECTION const kvResource kvModuleResources[]

#endif /* KOVA_RESOURCES_H */
