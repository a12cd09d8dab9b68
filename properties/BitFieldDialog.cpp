// The bit dialog's logic: which boxes are shown, with which labels and
// checks, and what OK and Cancel do. Drawing belongs to the platform or the
// host's hook; the dialog's state is filled by BitField when it opens.
#include "properties/BitFieldDialog.hpp"

#include <cstdio>
#include <cstring>

namespace {

// The index of the box in use with the control id `controlId`, or -1.
int boxOf(const kvBitFieldDialog* dialog, int controlId) {
    if (!dialog) return -1;
    const int box = controlId - KV_BITDLG_FIRST_BOX;
    return box >= 0 && box < dialog->boxes ? box : -1;
}

// OK: the field's bits are cleared, then each checked box sets its bit.
void applyBoxes(kvBitFieldDialog* dialog) {
    std::memset(dialog->bitValues, 0, 2 * sizeof(uint32_t));
    for (int box = 0; box < dialog->boxes; ++box)
        if (dialog->checked[box])
            kvSendMeth(dialog->errSlot, dialog->field, "setBit", dialog->bitOfBox[box]);
}

} // namespace

extern "C" {

KV_API const char* kvBitFieldDialogCaption(const kvBitFieldDialog* dialog) {
    return dialog ? dialog->caption : nullptr;
}

KV_API int kvBitFieldDialogLabel(const kvBitFieldDialog* dialog, int controlId, char* buffer,
                                 size_t size) {
    if (!buffer || size == 0) return 0;
    buffer[0] = '\0';
    const int box = boxOf(dialog, controlId);
    if (box < 0) return 0;
    std::snprintf(buffer, size, "%s", dialog->labelOfBox[box]);
    return 1;
}

KV_API int kvBitFieldDialogIsChecked(const kvBitFieldDialog* dialog, int controlId) {
    const int box = boxOf(dialog, controlId);
    return box >= 0 && dialog->checked[box];
}

KV_API void kvBitFieldDialogSetChecked(kvBitFieldDialog* dialog, int controlId, int checked) {
    const int box = boxOf(dialog, controlId);
    if (box >= 0) dialog->checked[box] = checked != 0;
}

KV_API int kvBitFieldDialogCommand(kvBitFieldDialog* dialog, int controlId) {
    if (!dialog) return 1;
    if (const int box = boxOf(dialog, controlId); box >= 0) {
        dialog->checked[box] = !dialog->checked[box];
    } else if (controlId == KV_BITDLG_OK && !dialog->closed) {
        applyBoxes(dialog);
        dialog->closed = true;
    } else if (controlId == KV_BITDLG_CANCEL) {
        dialog->closed = true;
    }
    return dialog->closed;
}

} // extern "C"
