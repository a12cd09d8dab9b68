// The host side of `kova demo` (see Host.hpp).
#include "tools/demo/Host.hpp"

#include "kova/errdialog.h"
#include "kova/host.h"

#include <cstring>
#include <unistd.h>

namespace kova::tools::demo {

namespace {

// Reads every page of the dialog, pressing Next until it is disabled.
FILE* dialogOut = stderr;
void printDialog(kvErrorDialog* dialog) {
    constexpr struct {
        int id;
        const char* label;
    } fields[] = {{KV_ERRDLG_CODE, "Native Error Number"},
                  {KV_ERRDLG_MESSAGE, "Error Description"},
                  {KV_ERRDLG_SOURCE, "Source"},
                  {KV_ERRDLG_SCODE, "Scode"}};
    for (int shown = 0; shown < 64; ++shown) {
        char text[512];
        for (const auto& field : fields)
            if (kvErrorDialogFieldText(dialog, field.id, text, sizeof text))
                std::fprintf(dialogOut, "  %-20s %s\n", field.label, text);
        if (!kvErrorDialogIsEnabled(dialog, KV_ERRDLG_NEXT)) break;
        std::fputs("  --\n", dialogOut);
        kvErrorDialogCommand(dialog, KV_ERRDLG_NEXT);
    }
    kvErrorDialogCommand(dialog, KV_ERRDLG_OK);
}

} // namespace

Host::Host(unsigned pageCount, bool quiet)
    : pageCount_(pageCount), quiet_(quiet), terminal_(isatty(STDERR_FILENO)) {}

Host::~Host() = default;

int32_t Host::dispatch(kvArg control, int32_t event, const kvArg* arguments) {
    auto* host = reinterpret_cast<Host*>(control);
    if (!host) return 0;
    switch (event) {
    case PageScanned:
        host->pageScanned(arguments ? static_cast<unsigned>(arguments[0]) : 0);
        break;
    case Progress:
        ++host->progressEvents_;
        break;
    case PageRecognized:
        host->pageRecognized(arguments ? reinterpret_cast<const char*>(arguments[0]) : nullptr);
        break;
    default:
        break;
    }
    return 0;
}

// The recognizer follows the scanner's image data, so a page's text arrives
// while the page is delivered, just before the scanner reports it.
void Host::pageRecognized(const char* text) {
    pendingText_ = text ? text : "";
}

void Host::pageScanned(unsigned number) {
    PageReport page;
    page.number = number;
    page.recognized = pendingText_;
    char expected[64];
    std::snprintf(expected, sizeof expected, "Barcode=%u PageNumber=%05u", number, number % 100000);
    page.matches = pendingText_ == expected;
    pendingText_.clear();
    pages_.push_back(page);
    drawProgress();
}

void Host::drawProgress() {
    if (quiet_) return;
    const unsigned done = static_cast<unsigned>(pages_.size());
    if (!terminal_) {
        std::fprintf(stderr, "page %u of %u scanned and recognised\n", done, pageCount_);
        return;
    }
    constexpr unsigned width = 30;
    const unsigned filled = pageCount_ ? done * width / pageCount_ : width;
    std::string bar(filled, '#');
    bar.resize(width, '.');
    std::fprintf(stderr, "\r  [%s] %u/%u pages", bar.c_str(), done, pageCount_);
    std::fflush(stderr);
}

void Host::finishProgress() {
    if (!quiet_ && terminal_ && !pages_.empty()) std::fputc('\n', stderr);
}

void printErrorStack(FILE* out, kvObject error) {
    if (!error) return;
    dialogOut = out;
    const kvErrorDialogHook previous = kvSetErrorDialogHook(printDialog);
    kvShowErrorDialog(error);
    kvSetErrorDialogHook(previous);
}

int32_t errorCode(kvObject error) {
    return error ? static_cast<int32_t>(kvSendMeth(nullptr, error, "getCode")) : 0;
}

} // namespace kova::tools::demo
