// A stand-in for the version report dialog library, "RPTDLG32.DLL": instead
// of a dialog it keeps what it was shown, which the tests read through
// "reportDialogShown" while they hold the library loaded.
#include "kova/version.h"

#include <cstdio>

namespace {
int shownCount = 0;                             // calls of ShowVerControlDlg
int recordCount = 0;                            // records in the last list shown
char firstFile[KV_VERSION_FILE_NAME_SIZE] = {}; // the first record's file name
} // namespace

extern "C" KV_EXPORT void ShowVerControlDlg(kvVersionCheck* first) {
    ++shownCount;
    recordCount = 0;
    for (const kvVersionCheck* record = first; record; record = record->next)
        ++recordCount;
    std::snprintf(firstFile, sizeof firstFile, "%s", first ? first->fileName : "");
}

// Answers the number of calls; `records` and `file` receive the last list's
// length and first file name.
extern "C" KV_EXPORT int reportDialogShown(int* records, const char** file) {
    *records = recordCount;
    *file = firstFile;
    return shownCount;
}
