/** @file
 * What a host application sets for the kernel: where message boxes, the error
 * dialog, help requests and painting go, and (for tests) the allocation failure switch.
 * A hook must not block; without one, the kernel writes messages to the
 * standard error stream on POSIX and uses the system's own windows on Windows. */
#ifndef KOVA_HOST_H
#define KOVA_HOST_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Message box styles and answers the kernel uses. */
enum { KV_MB_OK = 0x0000, KV_MB_ICONSTOP = 0x0010, KV_MB_SYSTEMMODAL = 0x1000, KV_IDOK = 1 };

/** Shows `text` under `caption`; answers the button pressed (KV_IDOK). */
typedef int (*kvMessageBoxHook)(const char* text, const char* caption, unsigned style);

/** Opens `helpFile` with a help viewer command and its data; non-zero for done. */
typedef int (*kvHelpHook)(const char* helpFile, unsigned command, uintptr_t data);

struct kvErrorDialog;
/** Runs the error dialog until it is closed; the dialog's state and commands
 * are in kova/errdialog.h. */
typedef void (*kvErrorDialogHook)(struct kvErrorDialog* dialog);

struct kvBitFieldDialog;
/** Runs a BitField's bit dialog until it is closed (state and commands in
 * kova/bitdialog.h); answers non-zero when the dialog was shown, 0 when it
 * could not be. */
typedef int (*kvBitFieldDialogHook)(struct kvBitFieldDialog* dialog);
/** A rectangle of a window's client area, in the layout of the system's RECT:
 * the right and bottom edges lie outside it. */
typedef struct kvRect {
    int32_t left;   /**< first column inside */
    int32_t top;    /**< first row inside */
    int32_t right;  /**< first column outside */
    int32_t bottom; /**< first row outside */
} kvRect;

/** The colour a painting hook is given for the stock white brush. */
enum { KV_COLOR_WHITE = 0x00FFFFFF };

/** Fills `rect` of the device context `deviceContext` (the host's drawing
 * target, passed through unchanged) with a solid colour 0x00BBGGRR: what a
 * personality module paints while it has no technology. */
typedef void (*kvPaintHook)(kvArg deviceContext, const kvRect* rect, uint32_t colour);

/** Each setter returns the hook it replaces; null restores the default. */
KV_API kvMessageBoxHook kvSetMessageBoxHook(kvMessageBoxHook hook);
/** Sets where help requests go; answers the hook replaced. */
KV_API kvHelpHook kvSetHelpHook(kvHelpHook hook);
/** Sets what runs the error dialog; answers the hook replaced. */
KV_API kvErrorDialogHook kvSetErrorDialogHook(kvErrorDialogHook hook);
/** Sets what runs a BitField's bit dialog; answers the hook replaced. Without
 * one, Windows shows the kernel's dialog and POSIX shows none
 * ("createBitFieldWindow" answers 0). */
KV_API kvBitFieldDialogHook kvSetBitFieldDialogHook(kvBitFieldDialogHook hook);

/** Sets the file of the registry store on POSIX, where the system registry's
 * keys (under HKEY_CLASSES_ROOT on Windows) are kept for every process of the
 * user. The default is ".kova/registry" in the user's home folder (from the
 * password database). A null or empty path restores the default. Windows uses
 * its real registry and ignores the setting. */
KV_API void kvSetRegistryStore(const char* path);

/** Sets the folder where a bare INI file name such as "KOVA.INI" is looked for
 * on POSIX, in place of the Windows directory. The default is ".kova" in the
 * user's home folder. A null or empty path restores the default. Windows
 * looks in the Windows directory and ignores the setting. */
KV_API void kvSetProfileFolder(const char* folder);
/** Sets the painting hook. Without one, Windows fills the rectangle with a
 * GDI brush of the colour; POSIX paints nothing. */
KV_API kvPaintHook kvSetPaintHook(kvPaintHook hook);

/** Allocation failure for tests: after `count` more successful allocations of
 * the library every allocation fails, until called with -1. */
KV_API void kvDebugFailAllocAfter(long count);
/** The same, but only that one allocation fails; the ones after it succeed. */
KV_API void kvDebugFailAllocOnce(long count);
/** Allocations the library has made since it was loaded. */
KV_API unsigned long kvDebugAllocCount(void);

#ifdef __cplusplus
}
#endif

#endif /* KOVA_HOST_H */
