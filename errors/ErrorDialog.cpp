// The error dialog's logic: which error is shown, what each field says, which
// buttons are enabled and what each command does. Drawing belongs to the
// platform or the host's hook.
#include "kova/errdialog.h"
#include "platform/Platform.hpp"

#include <cstdio>
#include <cstring>

struct kvErrorDialog {
    kvObject shown; // the error on display
    bool closed;    // set by OK or Cancel
};

namespace {

constexpr uint32_t scodeBits = 0x80040000u;
constexpr unsigned helpSetContents = 5;

kvObject neighbour(kvObject error, const char* method) {
    return error ? reinterpret_cast<kvObject>(kvSendMeth(nullptr, error, method)) : nullptr;
}

// The text of a string field, "" when the error has none.
const char* stringField(kvObject error, const char* method) {
    const auto* text = reinterpret_cast<const char*>(neighbour(error, method));
    return text ? text : "";
}

// Opens the help file the error names at its help context.
void showHelp(kvObject error) {
    uint16_t context = 0;
    char helpFile[64] = {};
    kvSendMeth(nullptr, error, "getHelpInfo", &context, helpFile, sizeof helpFile - 1);
    kova::platform::showHelp(helpFile, helpSetContents, context);
}

} // namespace

extern "C" {

KV_API void kvShowErrorDialog(kvObject error) {
    if (!error) return;
    kvErrorDialog dialog{error, false};
    kova::platform::runErrorDialog(&dialog);
}

KV_API kvObject kvErrorDialogShown(const kvErrorDialog* dialog) {
    return dialog ? dialog->shown : nullptr;
}

KV_API int kvErrorDialogFieldText(const kvErrorDialog* dialog, int controlId, char* buffer,
                                  size_t size) {
    if (!dialog || !buffer || size == 0) return 0;
    const kvObject error = dialog->shown;
    const auto code = static_cast<int32_t>(kvSendMeth(nullptr, error, "getCode"));
    switch (controlId) {
    case KV_ERRDLG_CODE:
        std::snprintf(buffer, size, "%ld", static_cast<long>(code));
        return 1;
    case KV_ERRDLG_SCODE:
        std::snprintf(
            buffer, size, "%ld",
            static_cast<long>(static_cast<int32_t>(static_cast<uint32_t>(code) | scodeBits)));
        return 1;
    case KV_ERRDLG_MESSAGE:
        std::snprintf(buffer, size, "%s", stringField(error, "getMessage"));
        return 1;
    case KV_ERRDLG_SOURCE:
        std::snprintf(buffer, size, "%s", stringField(error, "getSource"));
        return 1;
    default:
        buffer[0] = '\0';
        return 0;
    }
}

KV_API int kvErrorDialogIsEnabled(const kvErrorDialog* dialog, int controlId) {
    if (!dialog) return 0;
    switch (controlId) {
    case KV_ERRDLG_NEXT:
        return neighbour(dialog->shown, "getNextESObj") != nullptr;
    case KV_ERRDLG_PREVIOUS:
        return neighbour(dialog->shown, "getPrevESObj") != nullptr;
    case KV_ERRDLG_OK:
    case KV_ERRDLG_CANCEL:
    case KV_ERRDLG_HELP:
        return 1;
    default:
        return 0;
    }
}

KV_API int kvErrorDialogCommand(kvErrorDialog* dialog, int controlId) {
    if (!dialog) return 1;
    switch (controlId) {
    case KV_ERRDLG_OK:
    case KV_ERRDLG_CANCEL:
        dialog->closed = true;
        break;
    case KV_ERRDLG_NEXT:
    case KV_ERRDLG_PREVIOUS:
        if (kvErrorDialogIsEnabled(dialog, controlId))
            dialog->shown = neighbour(dialog->shown, controlId == KV_ERRDLG_NEXT ? "getNextESObj"
                                                                                 : "getPrevESObj");
        break;
    case KV_ERRDLG_HELP:
        showHelp(dialog->shown);
        break;
    default:
        break;
    }
    return dialog->closed;
}

} // extern "C"
