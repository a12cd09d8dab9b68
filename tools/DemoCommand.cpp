// kova demo: the demo components end to end. Starts the kernel, imports the
// demo's protocol table, makes a scanner and a recognizer through Match, links
// the recognizer to the scanner's image data through the property link
// registry, scans a batch (each page recognised as it arrives), stamps the
// recognised text into the TIFF file the scanner wrote, saves the scanner's
// settings and restores them into a fresh component, and reports.
#include "tools/Command.hpp"
#include "tools/demo/Host.hpp"

#include "kova/classloc.h"
#include "kova/component.h"
#include "kova/host.h"
#include "kova/kernel.h"
#include "kova/match.h"
#include "kova/plr.h"
#include "kova/registry.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace {

const kova::tools::Command command{
    "demo", "usage: kova demo [--pages N] [--seed N] [--resolution DPI] [--output FILE]\n"
            "                 [--ini FILE] [--registry FILE] [--no-link] [--quiet]\n\n"
            "Runs the demo components: a scanner makes N pages (default 4; odd pages\n"
            "bilevel, even pages greyscale) from the seed, a recognizer linked to its\n"
            "image data reads each page's bar code and page-number field, and the pages\n"
            "go to a multi-page TIFF file (default demo.tif) with the recognised text\n"
            "as each page's ImageDescription.\n\n"
            "  --pages N        pages in the batch (0 to 65535)\n"
            "  --seed N         the batch's seed: the same seed gives the same pages\n"
            "  --resolution DPI pages of letter size at this resolution (default 300)\n"
            "  --output FILE    the TIFF file to write\n"
            "  --ini FILE       the protocol table (default DEMOSCAN.INI beside kova)\n"
            "  --registry FILE  the registry store to use (default: a private one that\n"
            "                   is removed afterwards, so the user's store is untouched)\n"
            "  --no-link        leave the recognizer unlinked (its regions read as '?')\n"
            "  --quiet          print only the report\n\n"
            "Exit status: 0 every page recognised as scanned, 1 an error or a page read\n"
            "wrongly, 2 bad usage.\n"};

// The demo library's classes, for the class location table.
constexpr const char* demoClasses[] = {"DemoErr",    "DemoRecogPM", "DemoRecogTM",
                                       "DemoRegion", "DemoScanPM",  "DemoScanTM"};
constexpr const char* demoLibrary = "DEMOSCAN.DLL";
constexpr const char* scannerFQN = "DemoScanner";
constexpr const char* recognizerFQN = "DemoRecognizer";
constexpr int32_t feederEmpty = 20000; // the scanner's end of batch

struct Options {
    unsigned pages = 4;
    unsigned long seed = 1;
    int resolution = 300;
    std::string output = "demo.tif";
    std::string ini;
    std::string registry;
    bool link = true;
    bool quiet = false;
};

bool parseNumber(const char* text, unsigned long low, unsigned long high, unsigned long& out) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 0);
    if (!*text || *end || value < low || value > high || text[0] == '-') return false;
    out = value;
    return true;
}

int parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&](const char* what) -> const char* {
            return i + 1 < argc ? argv[++i] : (command.badUsage(arg + " needs " + what), nullptr);
        };
        unsigned long number = 0;
        if (arg == "--pages") {
            const char* text = value("a page count");
            if (!text) return kova::tools::BadUsage;
            if (!parseNumber(text, 0, 65535, number))
                return command.badUsage("--pages takes 0 to 65535, not " +
                                        kova::tools::quoted(text));
            options.pages = static_cast<unsigned>(number);
        } else if (arg == "--seed") {
            const char* text = value("a number");
            if (!text) return kova::tools::BadUsage;
            if (!parseNumber(text, 0, 0x7FFFFFFF, number))
                return command.badUsage("--seed takes a number, not " + kova::tools::quoted(text));
            options.seed = number;
        } else if (arg == "--resolution") {
            const char* text = value("a resolution");
            if (!text) return kova::tools::BadUsage;
            if (!parseNumber(text, 50, 600, number))
                return command.badUsage("--resolution takes 50 to 600 dots per inch, not " +
                                        kova::tools::quoted(text));
            options.resolution = static_cast<int>(number);
        } else if (arg == "--output" || arg == "--ini" || arg == "--registry") {
            const char* text = value("a file name");
            if (!text) return kova::tools::BadUsage;
            (arg == "--output" ? options.output
             : arg == "--ini"  ? options.ini
                               : options.registry) = text;
        } else if (arg == "--no-link") {
            options.link = false;
        } else if (arg == "--quiet") {
            options.quiet = true;
        } else {
            return command.badUsage("unexpected argument " + kova::tools::quoted(arg));
        }
    }
    return -1;
}

// The protocol table that ships beside the command, or installed with it.
std::string defaultIni() {
    char program[4096];
    const uint32_t length = kvGetModuleFileName(nullptr, program, sizeof program);
    std::error_code ignored;
    const fs::path self = length > 0 && length < sizeof program ? fs::path(program) : fs::path();
    for (const fs::path& candidate :
         {self.parent_path() / "DEMOSCAN.INI", self.parent_path() / "../share/kova/DEMOSCAN.INI"})
        if (fs::exists(candidate, ignored)) return candidate.lexically_normal().string();
    return (self.parent_path() / "DEMOSCAN.INI").string();
}

// Kernel message boxes (a class that cannot be loaded, say) are part of what
// went wrong: they are printed where the report's errors go.
int printMessageBox(const char* text, const char* caption, unsigned) {
    std::fprintf(stderr, "kova demo: %s: %s\n", caption ? caption : "KOVA", text ? text : "");
    return KV_IDOK;
}

// One component: its personality, made through Match, with its technology.
struct Component {
    kvObject personality = nullptr;
    kvObject technology = nullptr;
};

class Demo {
  public:
    Demo(const Options& options) : options_(options), host_(options.pages, options.quiet) {}
    ~Demo() {
        for (kvObject* error : {&error_})
            if (*error) kvDelObject(nullptr, *error);
        for (Component* component : {&restored_, &recognizer_, &scanner_})
            if (component->personality) kvDelObject(nullptr, component->personality);
    }
    int run();

  private:
    bool failWithErrors(const std::string& what);
    bool make(Component& component, const char* protocol, const char* fqn);
    void store(const Component& component, const char* name, kvArg value);
    bool scan(unsigned& scanned);
    bool stamp();
    unsigned saveAndRestore();
    void report(unsigned scanned, unsigned restored, double seconds) const;

    const Options& options_;
    kova::tools::demo::Host host_;
    kvObject error_ = nullptr;
    Component scanner_, recognizer_, restored_;
    bool linked_ = false;
    std::string failure_;
};

bool Demo::failWithErrors(const std::string& what) {
    command.fail(what);
    if (error_) {
        std::fputs("The error stack, as the error dialog shows it:\n", stderr);
        kova::tools::demo::printErrorStack(stderr, error_);
        kvDelObject(nullptr, error_);
        error_ = nullptr;
    }
    return false;
}

bool Demo::make(Component& component, const char* protocol, const char* fqn) {
    component.personality = MatchMake(&error_, protocol, nullptr);
    if (!component.personality)
        return failWithErrors(std::string("no component could be made for the protocol ") +
                              kova::tools::quoted(protocol));
    kvSendMeth(&error_, component.personality, "registerEventDispatch",
               &kova::tools::demo::Host::dispatch);
    kvSendMeth(&error_, component.personality, "storeControl", &host_);
    kvSendMeth(&error_, component.personality, "storeFQN", fqn);
    component.technology =
        reinterpret_cast<kvObject>(kvSendMeth(&error_, component.personality, "activate"));
    if (!component.technology || error_)
        return failWithErrors(std::string("the ") + protocol + " component could not be activated");
    return true;
}

void Demo::store(const Component& component, const char* name, kvArg value) {
    kvSendMeth(&error_, component.personality, "storeProperty", name, 0, value);
}

bool Demo::scan(unsigned& scanned) {
    store(scanner_, "PageCount", options_.pages);
    store(scanner_, "Seed", static_cast<kvArg>(options_.seed));
    store(scanner_, "Resolution", options_.resolution);
    store(scanner_, "OutputToFile", 1);
    store(scanner_, "OutputFileName", reinterpret_cast<kvArg>(options_.output.c_str()));
    if (error_) return failWithErrors("the scanner's settings could not be stored");

    if (options_.link) {
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
    if (error_ && kova::tools::demo::errorCode(error_) == feederEmpty &&
        !kvSendMeth(nullptr, error_, "getNextES")) {
        kvDelObject(nullptr, error_);
        error_ = nullptr;
    }
    if (error_)
        return failWithErrors("the scan failed after " + std::to_string(scanned) + " pages");
    return true;
}

// Writes what was recognised on each page into the page's directory.
bool Demo::stamp() {
    if (host_.pages().empty()) return true;
    const kvObject tiff = kvNewObject(&error_, "TiffTag");
    if (!tiff) return failWithErrors("the TIFF tag store could not be made");
    bool done = kvSendMeth(&error_, tiff, "openTIFF", options_.output.c_str(), 1) == 1;
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
           failWithErrors("the recognised text could not be stamped into " + options_.output);
}

// Saves the scanner's settings to a stream and reads them into a fresh
// scanner; answers how many of them came back equal. Each setting travels as
// its own property record: a saved property collection restores no members
// (its reader stops at the first entry that is not the end marker).
unsigned Demo::saveAndRestore() {
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

void Demo::report(unsigned scanned, unsigned restored, double seconds) const {
    unsigned right = 0;
    for (const auto& page : host_.pages())
        right += page.matches;
    std::printf("KOVA demo: %u page%s scanned and recognised in %.2f s\n", scanned,
                scanned == 1 ? "" : "s", seconds);
    const size_t shown = host_.pages().size() > 12 ? 10 : host_.pages().size();
    for (size_t i = 0; i < shown; ++i) {
        const auto& page = host_.pages()[i];
        std::printf("  page %-5u %-36s %s\n", page.number, page.recognized.c_str(),
                    page.matches ? "matches" : "DOES NOT MATCH");
    }
    if (shown < host_.pages().size())
        std::printf("  ... %zu more pages\n", host_.pages().size() - shown);
    std::printf("  recognised correctly: %u of %u pages\n", right, scanned);
    std::printf("  links: %s\n", linked_ ? "DemoRecognizer.ImageDataSource -> DemoScanner "
                                           "(service ImageData)"
                                         : "none (the recognizer is not linked)");
    std::error_code ignored;
    if (scanned)
        std::printf("  file: %s, %ju bytes, %u pages (bilevel PackBits, greyscale uncompressed)\n",
                    options_.output.c_str(), fs::file_size(options_.output, ignored), scanned);
    std::printf("  settings saved and restored into a fresh scanner: %u of 5 equal\n", restored);
}

int Demo::run() {
    const auto start = std::chrono::steady_clock::now();
    if (!make(scanner_, "Scan", scannerFQN) || !make(recognizer_, "Recognize", recognizerFQN))
        return kova::tools::Failed;
    unsigned scanned = 0;
    if (!scan(scanned) || !stamp()) return kova::tools::Failed;
    const unsigned restored = saveAndRestore();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report(scanned, restored, seconds);
    bool allRight = scanned == options_.pages && restored == 5;
    for (const auto& page : host_.pages())
        allRight = allRight && page.matches;
    return allRight ? kova::tools::Success : kova::tools::Failed;
}

// A private registry store in a folder of its own, removed at the end.
struct PrivateStore {
    fs::path folder;
    ~PrivateStore() {
        std::error_code ignored;
        if (!folder.empty()) fs::remove_all(folder, ignored);
    }
};

} // namespace

namespace kova::tools {

int runDemo(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        std::fputs(command.usage, stdout);
        return Success;
    }
    Options options;
    if (const int usage = parseOptions(argc, argv, options); usage >= 0) return usage;
    if (options.ini.empty()) options.ini = defaultIni();

    std::error_code problem;
    if (!fs::is_regular_file(options.ini, problem))
        return command.fail("the protocol table " + kova::tools::quoted(options.ini) +
                            " is missing (give one with --ini)");

    PrivateStore store;
    if (options.registry.empty()) {
        store.folder =
            fs::temp_directory_path(problem) /
            ("kova-demo-" +
             std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
        fs::create_directories(store.folder, problem);
        if (problem) return command.fail("no private registry store: " + problem.message());
        options.registry = (store.folder / "registry").string();
        kvSetProfileFolder(store.folder.string().c_str());
    }
    kvSetRegistryStore(options.registry.c_str());
    kvSetMessageBoxHook(printMessageBox);

    kvInitialize();
    for (const char* cls : demoClasses)
        kvTableInsertEntry_CLASSLOCATION(cls, demoLibrary);
    int result = Failed;
    char personality[KV_MATCH_NAME_SIZE] = "";
    if (!MatchInit(options.ini.c_str()) ||
        !kvRegistryGetValue("KOVA\\Protocols\\Scan", personality, sizeof personality) ||
        !*personality) {
        command.fail("the protocol table " + kova::tools::quoted(options.ini) +
                     " does not map the protocols Scan and Recognize");
    } else {
        Demo demo(options);
        result = demo.run();
    }
    kvTerminate();
    kvSetMessageBoxHook(nullptr);
    return result;
}

} // namespace kova::tools
