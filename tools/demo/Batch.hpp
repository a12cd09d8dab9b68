// The demo's main job as a host runs it, shared by `kova demo` and the
// benchmarks: the demo library's classes and protocol table loaded into a
// started kernel; a scanner and a recognizer made through Match; the
// recognizer linked to the scanner's image data; a batch scanned (each page
// recognised as it arrives and appended to the TIFF file); the recognised
// text stamped into the file; the scanner's settings saved and restored.
#pragma once

#include "tools/demo/Host.hpp"

#include "kova/kernel.h"

#include <functional>
#include <string>

namespace kova::tools::demo {

// The protocol table that ships beside the running program, or installed with
// it.
std::string defaultProtocolTable();

// Puts the demo library's classes in the class location table and reads the
// protocol table `ini` into the registry. False when the table does not map
// the protocol "Scan".
bool loadDemoLibrary(const std::string& ini);

struct BatchSettings {
    unsigned pages = 4;
    unsigned long seed = 1;
    int resolution = 300;
    // The scanner's ColorMode: 0 bilevel, 1 greyscale, 2 alternating (odd
    // pages bilevel), its own default.
    int colorMode = 2;
    // The scanner's Compression: 0 by page kind (PackBits bilevel pages,
    // uncompressed greyscale ones), 1 none, 32773 PackBits; its own default.
    int compression = 0;
    std::string output = "demo.tif";
    bool link = true;
};

// One component: its personality, made through Match, with its technology.
struct Component {
    kvObject personality = nullptr;
    kvObject technology = nullptr;
};

class Batch {
  public:
    // Told what failed, with the error stack that came with it (or null),
    // which the batch deletes afterwards.
    using FailureSink = std::function<void(const std::string& what, kvObject errors)>;

    Batch(const BatchSettings& settings, Host& host, FailureSink onFailure);
    ~Batch();
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    // Each answers false after telling the failure sink.
    bool makeComponents();
    bool scan(unsigned& scanned);
    bool stamp();
    // Answers how many of the scanner's five settings a fresh scanner got back
    // equal (a failure is told to the sink).
    unsigned saveAndRestore();

    bool linked() const { return linked_; }

  private:
    bool failWithErrors(const std::string& what);
    bool make(Component& component, const char* protocol, const char* fqn);
    void store(const Component& component, const char* name, kvArg value);

    const BatchSettings& settings_;
    Host& host_;
    FailureSink onFailure_;
    kvObject error_ = nullptr;
    Component scanner_, recognizer_, restored_;
    bool linked_ = false;
};

} // namespace kova::tools::demo
