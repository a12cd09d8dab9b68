// The bit dialog without a host hook on Windows: the kernel's dialog template
// 103, driven by the dialog's logic in properties/BitFieldDialog.cpp.
#include "kova/bitdialog.h"
#include "platform/Platform.hpp"
#include "platform/win32/ResourceIds.h"

#include <windows.h>

namespace {

// Writes the caption, the shown boxes' labels and checks; hides the rest.
void showBoxes(HWND window, const kvBitFieldDialog* dialog) {
    if (const char* caption = kvBitFieldDialogCaption(dialog)) ::SetWindowTextA(window, caption);
    for (int id = KV_BITDLG_FIRST_BOX; id <= KV_BITDLG_LAST_BOX; ++id) {
        char label[256];
        if (!kvBitFieldDialogLabel(dialog, id, label, sizeof label)) {
            ::ShowWindow(::GetDlgItem(window, id), SW_HIDE);
            continue;
        }
        ::SetDlgItemTextA(window, id, label);
        ::CheckDlgButton(window, id,
                         kvBitFieldDialogIsChecked(dialog, id) ? BST_CHECKED : BST_UNCHECKED);
    }
}

INT_PTR CALLBACK bitFieldDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        ::SetWindowLongPtrA(window, DWLP_USER, lParam);
        showBoxes(window, reinterpret_cast<const kvBitFieldDialog*>(lParam));
        return TRUE;
    }
    if (message != WM_COMMAND || HIWORD(wParam) != BN_CLICKED) return FALSE;
    auto* dialog = reinterpret_cast<kvBitFieldDialog*>(::GetWindowLongPtrA(window, DWLP_USER));
    const int control = LOWORD(wParam);
    // An automatic check box has already changed its own state: the logic
    // takes the state the user sees rather than toggling on its own.
    if (control >= KV_BITDLG_FIRST_BOX && control <= KV_BITDLG_LAST_BOX) {
        kvBitFieldDialogSetChecked(dialog, control,
                                   ::IsDlgButtonChecked(window, control) == BST_CHECKED);
        return TRUE;
    }
    if (kvBitFieldDialogCommand(dialog, control)) ::EndDialog(window, 1);
    return TRUE;
}

} // namespace

namespace kova::platform {

int defaultBitFieldDialog(kvBitFieldDialog* dialog) {
    const auto instance = static_cast<HINSTANCE>(kernelModule());
    const INT_PTR answer =
        ::DialogBoxParamA(instance, MAKEINTRESOURCEA(KV_BITDLG_TEMPLATE_ID), ::GetActiveWindow(),
                          bitFieldDialogProc, reinterpret_cast<LPARAM>(dialog));
    return answer == -1 || answer == 0 ? 0 : 1;
}

} // namespace kova::platform
