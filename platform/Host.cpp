// The host's hooks for message boxes, help, the error dialog and painting. A hook the
// host sets is always used; without one the platform's default runs.
#include "platform/Platform.hpp"

namespace kova::platform {
int defaultMessageBox(const char* text, const char* caption, unsigned style);
bool defaultShowHelp(const char* helpFile, unsigned command, uintptr_t data);
void defaultErrorDialog(kvErrorDialog* dialog);
int defaultBitFieldDialog(kvBitFieldDialog* dialog);
void defaultFillRect(kvArg deviceContext, const kvRect* rect, uint32_t colour);
} // namespace kova::platform

namespace {
kvMessageBoxHook messageBoxHook = nullptr;
kvHelpHook helpHook = nullptr;
kvErrorDialogHook errorDialogHook = nullptr;
kvBitFieldDialogHook bitFieldDialogHook = nullptr;
kvPaintHook paintHook = nullptr;

template <typename Hook> Hook replace(Hook& slot, Hook hook) {
    Hook old = slot;
    slot = hook;
    return old;
}
} // namespace

namespace kova::platform {

int messageBox(const char* text, const char* caption, unsigned style) {
    return messageBoxHook ? messageBoxHook(text, caption, style)
                          : defaultMessageBox(text, caption, style);
}

bool showHelp(const char* helpFile, unsigned command, uintptr_t data) {
    return helpHook ? helpHook(helpFile, command, data) != 0
                    : defaultShowHelp(helpFile, command, data);
}

void runErrorDialog(kvErrorDialog* dialog) {
    if (errorDialogHook)
        errorDialogHook(dialog);
    else
        defaultErrorDialog(dialog);
}

int runBitFieldDialog(kvBitFieldDialog* dialog) {
    return bitFieldDialogHook ? bitFieldDialogHook(dialog) : defaultBitFieldDialog(dialog);
}

void fillRect(kvArg deviceContext, const kvRect* rect, uint32_t colour) {
    if (paintHook)
        paintHook(deviceContext, rect, colour);
    else
        defaultFillRect(deviceContext, rect, colour);
}

} // namespace kova::platform

extern "C" KV_API kvMessageBoxHook kvSetMessageBoxHook(kvMessageBoxHook hook) {
    return replace(messageBoxHook, hook);
}
extern "C" KV_API kvHelpHook kvSetHelpHook(kvHelpHook hook) {
    return replace(helpHook, hook);
}
extern "C" KV_API kvErrorDialogHook kvSetErrorDialogHook(kvErrorDialogHook hook) {
    return replace(errorDialogHook, hook);
}
extern "C" KV_API kvBitFieldDialogHook kvSetBitFieldDialogHook(kvBitFieldDialogHook hook) {
    return replace(bitFieldDialogHook, hook);
}

extern "C" KV_API kvPaintHook kvSetPaintHook(kvPaintHook hook) {
    return replace(paintHook, hook);
}
