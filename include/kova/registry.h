/* The system registry and INI files, as the kernel uses them for matching and
 * version control, for hosts and tools that read or change the same settings.
 *
 * Registry keys live under HKEY_CLASSES_ROOT; a path names a key below it with
 * "\\" between names ("KOVA\\Protocols"), names compare without regard to
 * case, and only a key's default (unnamed) value is used. Windows uses its
 * real registry; POSIX keeps the same tree in a store file shared by the
 * user's processes (kvSetRegistryStore in kova/host.h sets where).
 *
 * INI files follow the Windows profile functions; a bare file name means the
 * Windows directory there, the profile folder on POSIX (kvSetProfileFolder). */
#ifndef KOVA_REGISTRY_H
#define KOVA_REGISTRY_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Creates the key `path` and the keys above it that are missing.
 * @return 1 when the key exists afterwards, else 0 (also for a null path). */
KV_API int kvRegistryCreateKey(const char* path);

/** Sets the default value of the key `path` to `value`, creating the key.
 * @return 1 when stored, else 0. */
KV_API int kvRegistrySetValue(const char* path, const char* value);

/** Copies the default value of the key `path` into `buffer`, cut to
 * `size` - 1 characters.
 * @return 1 when the key has a default value, else 0 with an empty buffer. */
KV_API int kvRegistryGetValue(const char* path, char* buffer, size_t size);

/** Copies the name of subkey `index` (from 0, in the registry's order) of
 * the key `path` into `buffer`, cut to `size` - 1 characters; the empty path
 * is the root.
 * @return 1 when there is such a subkey, else 0. */
KV_API int kvRegistryEnumKey(const char* path, unsigned index, char* buffer, size_t size);

/** Whether the key `path` exists.
 * @return 1 if it does, else 0. */
KV_API int kvRegistryKeyExists(const char* path);

/** Deletes the key `path` with every key below it.
 * @return 1 when it was deleted, else 0. */
KV_API int kvRegistryDeleteKey(const char* path);

/** Reads `key` of `section` of the INI file `file` into `buffer`, cut to
 * `size` - 1 characters; `fallback` (trailing blanks removed) when missing.
 * @return the number of characters copied. */
KV_API size_t kvProfileGetString(const char* section, const char* key, const char* fallback,
                                 char* buffer, size_t size, const char* file);

/** Reads `key` of `section` as a number, as GetPrivateProfileIntA does:
 * `fallback` when missing or empty, else the number the value begins with.
 * @return the number, as an unsigned 32-bit value. */
KV_API unsigned kvProfileGetInt(const char* section, const char* key, int fallback,
                                const char* file);

/** Sets `key` of `section` to `value`, creating file, section and key; a null
 * `value` deletes the key, a null `key` the section. The rest of the file is
 * kept as it was.
 * @return 1 when written, else 0. */
KV_API int kvProfileWriteString(const char* section, const char* key, const char* value,
                                const char* file);

/** Copies where the registry lives into `buffer` (cut to `size` - 1
 * characters): the store file on POSIX, "HKEY_CLASSES_ROOT" on Windows.
 * @return the number of characters copied. */
KV_API size_t kvRegistryLocation(char* buffer, size_t size);

/** Copies the path that the INI file name `file` stands for into `buffer`
 * (cut to `size` - 1 characters).
 * @return the number of characters copied. */
KV_API size_t kvProfilePath(const char* file, char* buffer, size_t size);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_REGISTRY_H */
