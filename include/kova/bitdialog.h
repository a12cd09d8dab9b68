/** @file
 * The bit dialog of a BitField property: a column of up to 16 check boxes,
 * one per option bit the field offers, with OK and Cancel. Its state and
 * commands are kept apart from how it is drawn: on Windows the kernel's
 * dialog template 103 draws it; elsewhere (or whenever a host sets one) the
 * host's bit dialog hook (see kvSetBitFieldDialogHook in kova/host.h) draws
 * the caption, labels and boxes and feeds the user's changes back. */
#ifndef KOVA_BITDIALOG_H
#define KOVA_BITDIALOG_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The dialog's control ids: check box k (0 to 15) is KV_BITDLG_FIRST_BOX + k. */
enum {
    KV_BITDLG_FIRST_BOX = 1009, /**< the first check box */
    KV_BITDLG_LAST_BOX = 1024,  /**< the sixteenth check box */
    KV_BITDLG_OK = 1025,        /**< sets the field's bits from the boxes and closes */
    KV_BITDLG_CANCEL = 1026,    /**< closes, changing nothing */
    KV_BITDLG_BOXES = 16        /**< at most this many bits are offered */
};

/** The state of a running bit dialog: its field, caption and boxes. */
typedef struct kvBitFieldDialog kvBitFieldDialog;

/** The dialog's caption, as given to "createBitFieldWindow" (may be null). */
KV_API const char* kvBitFieldDialogCaption(const kvBitFieldDialog* dialog);
/** Copies the label of check box `controlId` into `buffer` (at most size - 1
 * characters and a terminator); answers 1 when the box is shown, 0 when it is
 * hidden or not a check box (the buffer then holds an empty string). */
KV_API int kvBitFieldDialogLabel(const kvBitFieldDialog* dialog, int controlId, char* buffer,
                                 size_t size);
/** Non-zero when the shown check box `controlId` is checked. */
KV_API int kvBitFieldDialogIsChecked(const kvBitFieldDialog* dialog, int controlId);
/** Checks (non-zero) or clears the shown check box `controlId`, as the user
 * did; a hidden box or another control is left alone. */
KV_API void kvBitFieldDialogSetChecked(kvBitFieldDialog* dialog, int controlId, int checked);
/** Carries out a control's command: a check box toggles, OK sets the field's
 * bits from the boxes, OK and Cancel close. Answers non-zero when the dialog
 * closes. */
KV_API int kvBitFieldDialogCommand(kvBitFieldDialog* dialog, int controlId);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_BITDIALOG_H */
