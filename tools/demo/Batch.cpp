// The demo's main job as a host runs it (see Batch.hpp).
#include "tools/demo/Batch.hpp"

#include "kova/classloc.h"
#include "kova/component.h"
#include "kova/match.h"
#include "kova/registry.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace kova::tools::demo {

namespace {

// The demo library's classes, for the class location table.
constexpr const char* demoClasses[] = {"DemoErr",    "DemoRecogPM", "DemoRecogTM",
                                       "DemoRegion", "DemoScanPM",  "DemoScanTM"};
constexpr const char* demoLibrary = "DEMOSCAN.DLL";
constexpr const char* scannerFQN = "DemoScanner";
constexpr const char* recognizerFQN = "DemoRecognizer";
constexpr int32_t feederEmpty = 20000; // the scanner's end of batch

} // namespace

std::string defaultProtocolTable() {
    char program[4096];
    const uint32_t length = kvGetModuleFileName(nullptr, program, sizeof program);
    std::error_code ignored;
    const fs::path self = length > 0 && length < sizeof program ? fs::path(program) : fs::path();
    for (const fs::path& candidate :
         {self.parent_path() / "DEMOSCAN.INI", self.parent_path() / "../share/kova/DEMOSCAN.INI"})
        if (fs::exists(candidate, ignored)) return candidate.lexically_normal().string();
    return (self.parent_path() / "DEMOSCAN.INI").string();
}

bool loadDemoLibrary(const std::string& ini) {
    for (const char* cls : demoClasses)
        kvTableInsertEntry_CLASSLOCATION(cls, demoLibrary);
    char personality[KV_MATCH_NAME_SIZE] = "";
    return MatchInit(ini.c_str()) &&
           kvRegistryGetValue("KOVA\\Protocols\\Scan", personality, sizeof personality) &&
           *personality;
}

Batch::Batch(const BatchSettings& settings, Host& host, FailureSink onFailure)
    : settings_(settings), host_(host), onFailure_(std::move(onFailure)) {}

Batch::~Batch() {
    if (error_) kvDelObject(nullptr, error_);
    for (Component* component : {&restored_, &recognizer_, &scanner_})
        if (component->personality) kvDelObject(nullptr, component->personality);
}

bool Batch::failWithErrors(const std::string& what) {
    onFailure_(what, error_);
    if (error_) kvDelObject(nullptr, error_);
    error_ = nullptr;
    return false;
}

bool Batch::make(Component& component, const char* protocol, const char* fqn) {
    component.personality = MatchMake(&error_, protocol, nullptr);
    if (!component.personality)
        return failWithErrors(std::string("no component could be made for the protocol '") +
                              protocol + "'");
    kvSendMeth(&error_, component.personality, "registerEventDispatch", &Host::dispatch);
    kvSendMeth(&error_, component.personality, "storeControl", &host_);
    kvSendMeth(&error_, component.personality, "storeFQN", fqn);
    component.technology =
        reinterpret_cast<kvObject>(kvSendMeth(&error_, component.personality, "activate"));
    if (!component.technology || error_)
        return failWithErrors(std::string("the ") + protocol + " component could not be activated");
    return true;
}

bool Batch::makeComponents() {
    return make(scanner_, "Scan", scannerFQN) && make(recognizer_, "Recognize", recognizerFQN);
}

void Batch::store(const Component& component, const char* name, kvArg value) {
    kvSendMeth(&error_, component.personality, "storeProperty", name, 0, value);
}

bool Batch::scan(unsigned& scanned) {
    store(scanner_, "PageCount", settings_.pages);
    store(scanner_, "Seed", static_cast<kvArg>(settings_.seed));
    store(scanner_, "ColorMode", settings_.colorMode);
    store(scanner_, "Compression", settings_.compression);
    store(scanner_, "Resolution", settings_.resolution);
    store(scanner_, "OutputToFile", 1);
    store(scanner_, "OutputFileName", reinterpret_cast<kvArg>(settings_.output.c_str()));
    if (error_) return failWithErrors("the scanner's settings could not be stored");

    if (settings_.link) {
        store(recognizer_, "ImageDataSource", reinterpret_cast<kvArg>(scannerFQN));
        // The regions to read: the recognizer's own form.
        store(recognizer_, "RegionSource", reinterpret_cast<kvArg>(recognizerFQN));
        const kvObject link = reinterpret_cast<kvObject>(
            kvSendMeth(&error_, recognizer_.technology, "findPropertyByName", "ImageData"));
        linked_ = link && kvSendMeth(&error_, link, "isLinked");
        if (error_) return failWithErrors("the recognizer could not be linked to the scanner");
    }

    const kvResult result = kvSendMeth(&error_, scanner_.personality, "fireMethod", "scanBatch");
    host_.finishProgress();
    scanned = static_cast<unsigned>(result < 0 ? 0 : result);
    // The batch ends through the scanner's own error: the feeder is empty.
    if (error_ && errorCode(error_) == feederEmpty && !kvSendMeth(nullptr, error_, "getNextES")) {
        kvDelObject(nullptr, error_);
        error_ = nullptr;
    }
    if (error_)
        return failWithErrors("the scan failed after " + std::to_string(scanned) + " pages");
    return true;
}

// Writes what was recognised on each page into the page's directory.
bool Batch::stamp() {
    if (host_.pages().empty()) return true;
    const kvObject tiff = kvNewObject(&error_, "TiffTag");
    if (!tiff) return failWithErrors("the TIFF tag store could not be made");
    bool done = kvSendMeth(&error_, tiff, "openTIFF", settings_.output.c_str(), 1) == 1;
    for (size_t i = 0; done && i < host_.pages().size(); ++i) {
        const std::string& text = host_.pages()[i].recognized;
        done = kvSendMeth(&error_, tiff, "setCurIndex", static_cast<kvArg>(i)) >= 0 &&
               kvSendMeth(&error_, tiff, "addTag", 270, 2, static_cast<kvArg>(text.size() + 1),
                          text.c_str()) >= 0;
    }
    if (done) kvSendMeth(&error_, tiff, "flushIFDs");
    kvSendMeth(&error_, tiff, "closeTIFF");
    done = done && !error_;
    kvDelObject(nullptr, tiff);
    return done ||
           failWithErrors("the recognised text could not be stamped into " + settings_.output);
}

// Each setting travels as its own property record: a saved property
// collection restores no members (its reader stops at the first entry that is
// not the end marker).
unsigned Batch::saveAndRestore() {
    static constexpr const char* names[] = {"PageCount", "Seed", "ColorMode", "Resolution",
                                            "Compression"};
    const kvObject stream = kvNewObject(&error_, "MemStream", 0, 0);
    if (!stream) return 0;
    auto propertyOf = [&](const Component& component, const char* name) {
        return reinterpret_cast<kvObject>(
            kvSendMeth(&error_, component.technology, "findPropertyByName", name));
    };
    for (const char* name : names)
        kvSendMeth(&error_, propertyOf(scanner_, name), "writeToStream", stream);
    unsigned equal = 0;
    if (!error_ && make(restored_, "Scan", "DemoScanner.restored")) {
        kvSendMeth(&error_, stream, "Rewind");
        for (const char* name : names)
            kvSendMeth(&error_, propertyOf(restored_, name), "readFromStream", stream);
        for (const char* name : names)
            equal += kvSendMeth(nullptr, scanner_.technology, "fetchProperty", name) ==
                     kvSendMeth(nullptr, restored_.technology, "fetchProperty", name);
    }
    kvDelObject(nullptr, stream);
    if (error_) failWithErrors("the scanner's settings could not be saved and restored");
    return equal;
}

} // namespace kova::tools::demo
