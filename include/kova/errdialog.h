/** @file
 * The error dialog: shows an error stack one error at a time with Previous and
 * Next, and opens help at the shown error's help context. Its state and
 * commands are kept apart from how it is drawn: a host's dialog hook (see
 * kova/host.h) draws the fields and feeds the buttons back as commands. */
#ifndef KOVA_ERRDIALOG_H
#define KOVA_ERRDIALOG_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The dialog's control ids. */
enum {
    KV_ERRDLG_OK = 1,          /**< closes the dialog */
    KV_ERRDLG_CANCEL = 2,      /**< closes the dialog */
    KV_ERRDLG_NEXT = 1000,     /**< shows the next (older) error of the stack */
    KV_ERRDLG_PREVIOUS = 1001, /**< shows the previous (newer) error */
    KV_ERRDLG_CODE = 1003,     /**< "Native Error Number:" */
    KV_ERRDLG_MESSAGE = 1004,  /**< "Error Description:" */
    KV_ERRDLG_SCODE = 1005,    /**< "Scode:" */
    KV_ERRDLG_SOURCE = 1006,   /**< "Source:" */
    KV_ERRDLG_HELP = 1007      /**< opens help at the error's context */
};

/** The dialog template: caption, font and size in dialog units. */
#define KV_ERRDLG_CAPTION "KOVA ERROR"
/** The dialog's font face. */
#define KV_ERRDLG_FONT "MS Sans Serif"
enum { KV_ERRDLG_FONT_POINTS = 8, KV_ERRDLG_WIDTH = 259, KV_ERRDLG_HEIGHT = 141 };

/** The state of a running error dialog: the stack and the error shown. */
typedef struct kvErrorDialog kvErrorDialog;

/** Runs the dialog for the stack whose newest error is `error` and returns when
 * it is closed. */
KV_API void kvShowErrorDialog(kvObject error);

/** The error shown now. */
KV_API kvObject kvErrorDialogShown(const kvErrorDialog* dialog);
/** Copies the text of field `controlId` (1003 to 1006) into `buffer` (at most
 * size - 1 characters and a terminator); answers 0 for an unknown field. */
KV_API int kvErrorDialogFieldText(const kvErrorDialog* dialog, int controlId, char* buffer,
                                  size_t size);
/** Non-zero when the button `controlId` is enabled. */
KV_API int kvErrorDialogIsEnabled(const kvErrorDialog* dialog, int controlId);
/** Carries out a button's command; answers non-zero when the dialog closes. */
KV_API int kvErrorDialogCommand(kvErrorDialog* dialog, int controlId);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_ERRDIALOG_H */
