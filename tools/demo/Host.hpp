// What `kova demo` is as a host: it receives the components' events, draws the
// scan's progress, keeps what was recognised per page, and shows errors as
// the error dialog would.
#pragma once

#include "kova/kernel.h"

#include <cstdio>
#include <string>
#include <vector>

namespace kova::tools::demo {

// Event numbers of the demo components.
enum Event : int32_t { PageScanned = 500, Progress = 501, PageRecognized = 502 };

// One page as the host saw it.
struct PageReport {
    unsigned number = 0;
    std::string recognized; // "Barcode=17 PageNumber=00017"
    bool matches = false;   // both marks read the number that was scanned
};

class Host {
  public:
    Host(unsigned pageCount, bool quiet);
    ~Host();

    // The event dispatch callback that both personalities are given; the
    // control value is the Host.
    static int32_t dispatch(kvArg control, int32_t event, const kvArg* arguments);

    const std::vector<PageReport>& pages() const { return pages_; }
    unsigned progressEvents() const { return progressEvents_; }
    // Ends the progress display.
    void finishProgress();

  private:
    void pageScanned(unsigned number);
    void pageRecognized(const char* text);
    void drawProgress();

    unsigned pageCount_;
    bool quiet_;
    bool terminal_;
    unsigned progressEvents_ = 0;
    std::string pendingText_; // recognised before the scanner reports the page
    std::vector<PageReport> pages_;
};

// Prints an error stack as the error dialog shows it, newest first: number,
// message, source and scode of each error.
void printErrorStack(FILE* out, kvObject error);

// The code of an error object.
int32_t errorCode(kvObject error);

} // namespace kova::tools::demo
