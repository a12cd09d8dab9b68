// The error dialog without a host hook on POSIX: the whole stack is written to
// the standard error stream, newest first, and the dialog closes at once.
#include "kova/errdialog.h"
#include "platform/Platform.hpp"

#include <cstdio>

namespace kova::platform {

void defaultErrorDialog(kvErrorDialog* dialog) {
    constexpr int fields[] = {KV_ERRDLG_CODE, KV_ERRDLG_SCODE, KV_ERRDLG_SOURCE, KV_ERRDLG_MESSAGE};
    constexpr const char* labels[] = {
        "Native Error Number:", "Scode:", "Source:", "Error Description:"};
    std::fprintf(stderr, "%s\n", KV_ERRDLG_CAPTION);
    for (;;) {
        char text[10000];
        for (size_t i = 0; i < sizeof fields / sizeof fields[0]; ++i) {
            kvErrorDialogFieldText(dialog, fields[i], text, sizeof text);
            std::fprintf(stderr, "  %-21s %s\n", labels[i], text);
        }
        if (!kvErrorDialogIsEnabled(dialog, KV_ERRDLG_NEXT)) break;
        kvErrorDialogCommand(dialog, KV_ERRDLG_NEXT);
    }
    kvErrorDialogCommand(dialog, KV_ERRDLG_OK);
}

} // namespace kova::platform
