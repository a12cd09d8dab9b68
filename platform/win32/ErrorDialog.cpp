// The error dialog without a host hook on Windows: the kernel's dialog
// template, driven by the dialog's logic in errors/ErrorDialog.cpp.
#include "kova/errdialog.h"
#include "platform/Platform.hpp"
#include "platform/win32/ResourceIds.h"

#include <windows.h>

namespace {

// Writes the shown error's fields and enables Next and Previous for it.
void showError(HWND window, const kvErrorDialog* dialog) {
    constexpr int fields[] = {KV_ERRDLG_CODE, KV_ERRDLG_SCODE, KV_ERRDLG_SOURCE, KV_ERRDLG_MESSAGE};
    char text[10000];
    for (int field : fields) {
        kvErrorDialogFieldText(dialog, field, text, sizeof text);
        ::SetDlgItemTextA(window, field, text);
    }
    for (int button : {KV_ERRDLG_NEXT, KV_ERRDLG_PREVIOUS}) {
        HWND control = ::GetDlgItem(window, button);
        const bool enabled = kvErrorDialogIsEnabled(dialog, button) != 0;
        // A button that goes grey under the keyboard focus would leave the
        // keyboard without a target: the focus moves to OK.
        if (!enabled && ::GetFocus() == control)
            ::SendMessageA(window, WM_NEXTDLGCTL,
                           reinterpret_cast<WPARAM>(::GetDlgItem(window, KV_ERRDLG_OK)), TRUE);
        ::EnableWindow(control, enabled);
    }
}

INT_PTR CALLBACK errorDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        ::SetWindowLongPtrA(window, DWLP_USER, lParam);
        showError(window, reinterpret_cast<const kvErrorDialog*>(lParam));
        return TRUE;
    }
    // Only button presses are commands: the edit controls report their own
    // changes through WM_COMMAND as well, each time a field is written.
    if (message != WM_COMMAND || HIWORD(wParam) != BN_CLICKED) return FALSE;
    auto* dialog = reinterpret_cast<kvErrorDialog*>(::GetWindowLongPtrA(window, DWLP_USER));
    const int control = LOWORD(wParam);
    if (kvErrorDialogCommand(dialog, control))
        ::EndDialog(window, control);
    else if (control == KV_ERRDLG_NEXT || control == KV_ERRDLG_PREVIOUS)
        showError(window, dialog);
    return TRUE;
}

} // namespace

namespace kova::platform {

void defaultErrorDialog(kvErrorDialog* dialog) {
    const auto instance = static_cast<HINSTANCE>(kernelModule());
    ::DialogBoxParamA(instance, MAKEINTRESOURCEA(KV_ERRDLG_TEMPLATE_ID), ::GetActiveWindow(),
                      errorDialogProc, reinterpret_cast<LPARAM>(dialog));
}

} // namespace kova::platform
