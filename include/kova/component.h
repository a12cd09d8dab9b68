/** @file
 * The component model's host interface: what a host application sees of a
 * component's personality module (class PM). The host makes the component,
 * gives it its control handle ("storeControl"), its event dispatch callback
 * ("registerEventDispatch"), the technology class ("setTMName") and its FQN
 * ("storeFQN"), stores properties and then sends it "activate". The
 * personality module reports to the host through the callback. */
#ifndef KOVA_COMPONENT_H
#define KOVA_COMPONENT_H

#include "kova/kernel.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The host's event dispatch callback: `control` is what the host gave
 * "storeControl", `event` a KV_EVENT_* number, `arguments` the event's
 * further argument slots (as the event's description lists them). Its
 * answer is the answer of "fireEvent". */
typedef int32_t (*kvEventDispatch)(kvArg control, int32_t event, const kvArg* arguments);

/** Events a personality module fires itself. */
enum {
    /** An error is about to be reported. Slots: code, message, result code
     * (code | 0x80040000), source, help file, help context, and a pointer to
     * a 16-bit action the host may set (KV_ERROR_ACTION_*). */
    KV_EVENT_ERROR_REPORTING = 1,
    /** An error has been reported. Slots: code, message, result code, source,
     * help file, help context. */
    KV_EVENT_ERROR_REPORTED = 2,
    /** The host is asked for the component's display name. Slot: an 80-byte
     * buffer to fill with a terminated name. */
    KV_EVENT_DISPLAY_NAME = 3
};

/** Flags of "processError". */
enum {
    KV_ERROR_NO_REPORTING_EVENT = 1, /**< do not fire KV_EVENT_ERROR_REPORTING */
    KV_ERROR_NO_DISPLAY = 2,         /**< do not show the error */
    KV_ERROR_QUIET = 4,              /**< fire no KV_EVENT_ERROR_REPORTED; answer 0 */
    KV_ERROR_KEEP = 8                /**< leave the error in its slot */
};

/** What "processError" makes of the action a host sets. Actions 0, 1 and 3
 * show the error; 0, -1, 2 and 3 fire KV_EVENT_ERROR_REPORTED and answer the
 * error's code. */
enum {
    KV_ERROR_ACTION_DEFAULT = 0, /**< show, report, answer the code */
    KV_ERROR_ACTION_SILENT = -1, /**< report and answer the code without showing */
    KV_ERROR_ACTION_SHOW = 1,    /**< show only; answer 0 */
    KV_ERROR_ACTION_REPORT = 2,  /**< report and answer the code without showing */
    KV_ERROR_ACTION_ALL = 3      /**< as the default */
};

/** The bits ORed into an error's code to make the result code a host sees. */
#define KV_ERROR_RESULT_BITS 0x80040000u

/** The service every technology module offers under its component's FQN. */
#define KV_WIDGET_CONNECTION "WidgetConnection"

#ifdef __cplusplus
}
#endif

#endif /* KOVA_COMPONENT_H */
