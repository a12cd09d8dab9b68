/* Numbers of the kernel's Windows resources that both the resource scripts and
 * the C++ sources name. Read by the resource compiler too: definitions only. */
#ifndef KOVA_PLATFORM_WIN32_RESOURCEIDS_H
#define KOVA_PLATFORM_WIN32_RESOURCEIDS_H

#define KV_ERRDLG_TEMPLATE_ID 100 /* the error dialog's template */
#define KV_BITDLG_TEMPLATE_ID 103 /* a BitField's bit dialog */

#endif
