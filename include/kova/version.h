/* Version control of component libraries. Each library states in its string
 * resources which library files it expects in which versions; a check loads
 * those files, compares their file versions with the expected ones, and
 * reports mismatches in a log file and, when a report dialog library is
 * present, in its dialog. When checks run is decided by the settings under the
 * registry key "KOVA\\VersionControl", copied from "KOVA.INI" at start-up.
 *
 * Stating a library's own versions: its file version (a VERSIONINFO resource
 * on Windows, KV_VERSION_RESOURCE in its resource table on POSIX, see
 * kova/resources.h) and its expected-version list as string resources:
 * string KV_VERSION_LIST_ID holds the number of entries in decimal, strings
 * KV_VERSION_LIST_ID + 1, + 2, ... one entry each:
 *
 *     "TESTSHP.DLL,1,0,0,0,0,0,0,0,0"
 *
 * the file name, a comma, then nine numbers separated by "," or ".": the four
 * parts of the expected version and five numbers kept with the entry. */
#ifndef KOVA_VERSION_H
#define KOVA_VERSION_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** String number of a library's count of expected-version entries. */
#define KV_VERSION_LIST_ID 10000
/** Size of a text setting read by kvGetRegistrySetting. */
#define KV_VERSION_SETTING_SIZE 1024
/** Sizes of the texts of a check record. */
#define KV_VERSION_FILE_NAME_SIZE 1025
#define KV_VERSION_PATH_SIZE 1025
#define KV_VERSION_TEXT_SIZE 64

/** Comparison results: expected against actual, part by part. A positive
 * result means the file found is older than expected, a negative one newer;
 * 4 or -4 for the first part, down to 1 or -1 for the fourth; 0 when equal. */
#define KV_VERSION_NOT_COMPARED (-99)

/** Mode numbers of a check, named in the log's title. */
enum {
    KV_VERSION_ON_STARTUP = 0,
    KV_VERSION_ON_FIRST_USE = 1,
    KV_VERSION_ON_ERROR = 2,
    KV_VERSION_ON_OCCASION = 3
};

/** One entry of a check, in a singly linked list handed as it stands to the
 * report dialog library's "ShowVerControlDlg". */
typedef struct kvVersionCheck {
    struct kvVersionCheck* next;              /**< the next entry, or null */
    char fileName[KV_VERSION_FILE_NAME_SIZE]; /**< the file the entry names */
    /** Full path of the loaded file, or "<unable to retrieve file version info>". */
    char filePath[KV_VERSION_PATH_SIZE];
    /** The expected version as text, or "<unable to parse expected version info>". */
    char expectedText[KV_VERSION_TEXT_SIZE];
    uint16_t expected[4]; /**< expected version, most significant part first */
    uint16_t actual[4];   /**< version of the file found */
    uint32_t reserved[5]; /**< the entry's five further numbers (file time and size) */
    int32_t result;       /**< comparison result, KV_VERSION_NOT_COMPARED when none */
    kvModule module;      /**< the loaded file while the check runs */
} kvVersionCheck;

/** The report dialog's entry point, exported as "ShowVerControlDlg" by
 * "RPTDLG32.DLL" (on POSIX librptdlg32.so). */
typedef void (*kvShowVerControlDlgProc)(kvVersionCheck* first);

/** Creates the settings key and copies the settings from "KOVA.INI"
 * (sections "VersionChecking" and "VersionReporting"); a value beginning with
 * "*", or a missing one, leaves a setting as it was. Kernel start-up calls it.
 * @return 1, or 0 when "KOVA\\VersionControl" could not be created. */
KV_API int32_t kvVersionControlInit(void);

/** Resets "VersionChecking\\OnFirstUse" to "0". Kernel shut-down calls it.
 * @return 1 on success, else 0. */
KV_API int32_t kvVersionControlTerm(void);

/** Reads the setting `name` ("VersionReporting\\LogFile", ...). The out value
 * is cleared first: with `numeric` non-zero it is an int32_t that receives
 * the text as a number, else a buffer of KV_VERSION_SETTING_SIZE bytes that
 * receives the text.
 * @return 1 if read, else 0 (also for a null argument). */
KV_API int32_t kvGetRegistrySetting(const char* name, void* value, int32_t numeric);

/** Reads the file version of the module's file into `version` (four parts,
 * most significant first).
 * @return 1 on success, else 0. */
KV_API int32_t kvGetInstanceVersion(kvModule module, uint16_t version[4]);

/** Compares the kernel's own file version, stored in `actual`, with `expected`.
 * @return the comparison result; KV_VERSION_NOT_COMPARED for a null argument
 *         or an unreadable version. */
KV_API int32_t kvCheckVersionKOVA(const uint16_t expected[4], uint16_t actual[4]);

/** Checks the expected-version list of `module`: loads each file it names and
 * compares versions; reports (dialog, then log file) when kvIsVersionBad says
 * so for `level` and the worst result.
 * @param location the text naming the check in the log's title.
 * @param mode the KV_VERSION_ON_... number; others name no mode in the log.
 * @param level the verbosity level: 0 all, 1 errors only, 2 errors and warnings.
 * @return the worst result (0 to 4; newer files never count), 0 for an empty
 *         list, KV_VERSION_NOT_COMPARED when the list cannot be read. */
KV_API int32_t kvCheckVersionAPI(kvModule module, const char* location, int16_t mode,
                                 int32_t level);

/** Checks the expected-version list of the library `library` (a file name as
 * a class location table holds it, loaded for the check) and writes the
 * report, as the log file holds it but without a mode, to the file
 * `reportPath`, whatever the settings say.
 * @return the worst result as kvCheckVersionAPI answers it;
 *         KV_VERSION_NOT_COMPARED when the library or its list cannot be read. */
KV_API int32_t kvReportVersionCheck(const char* library, const char* location, int32_t level,
                                    const char* reportPath);

/** Whether a check's result must be reported at verbosity `level`.
 * @return 1 if so, else 0. */
KV_API int32_t kvIsVersionBad(int32_t level, int32_t result);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_VERSION_H */
