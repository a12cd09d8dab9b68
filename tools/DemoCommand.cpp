// kova demo: the demo components end to end. Starts the kernel, imports the
// demo's protocol table, makes a scanner and a recognizer through Match, links
// the recognizer to the scanner's image data through the property link
// registry, scans a batch (each page recognised as it arrives), stamps the
// recognised text into the TIFF file the scanner wrote, saves the scanner's
// settings and restores them into a fresh component, and reports.
#include "tools/Command.hpp"
#include "tools/demo/Batch.hpp"

#include "kova/host.h"
#include "kova/kernel.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace fs = std::filesystem;

namespace {

const kova::tools::Command command{
    "demo", "usage: kova demo [--pages N] [--seed N] [--resolution DPI] [--kind KIND]\n"
            "                 [--compression C] [--output FILE] [--ini FILE]\n"
            "                 [--registry FILE] [--no-link] [--quiet]\n\n"
            "Runs the demo components: a scanner makes N pages (default 4; odd pages\n"
            "bilevel, even pages greyscale) from the seed, a recognizer linked to its\n"
            "image data reads each page's bar code and page-number field, and the pages\n"
            "go to a multi-page TIFF file (default demo.tif) with the recognised text\n"
            "as each page's ImageDescription.\n\n"
            "  --pages N        pages in the batch (0 to 65535; the file holds at most\n"
            "                   4 GB, some 950 pages at 300 dpi)\n"
            "  --seed N         the batch's seed: the same seed gives the same pages\n"
            "  --resolution DPI pages of letter size at this resolution (default 300)\n"
            "  --kind KIND      bilevel, greyscale or alternating pages (the default)\n"
            "  --compression C  the pages' strips: auto (the default: PackBits for\n"
            "                   bilevel pages, none for greyscale), none or packbits\n"
            "  --output FILE    the TIFF file to write\n"
            "  --ini FILE       the protocol table (default DEMOSCAN.INI beside kova)\n"
            "  --registry FILE  the registry store to use (default: a private one that\n"
            "                   is removed afterwards, so the user's store is untouched)\n"
            "  --no-link        leave the recognizer unlinked (its regions read as '?')\n"
            "  --quiet          print only the report\n\n"
            "Exit status: 0 every page recognised as scanned, 1 an error or a page read\n"
            "wrongly, 2 bad usage.\n"};

// The batch's own settings, and what only the command needs.
struct Options {
    kova::tools::demo::BatchSettings batch;
    std::string ini;
    std::string registry;
    bool quiet = false;
};

bool parseNumber(const char* text, unsigned long low, unsigned long high, unsigned long& out) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text, &end, 0);
    if (!*text || *end || value < low || value > high || text[0] == '-') return false;
    out = value;
    return true;
}

// The words of --kind and --compression and the scanner's values for them.
struct Choice {
    const char* word;
    int value;
};
constexpr Choice pageKinds[] = {{"bilevel", 0}, {"greyscale", 1}, {"alternating", 2}};
constexpr Choice compressions[] = {{"auto", 0}, {"none", 1}, {"packbits", 32773}};

template <size_t N> int choiceOf(const char* word, const Choice (&choices)[N]) {
    for (const Choice& choice : choices)
        if (!std::strcmp(word, choice.word)) return choice.value;
    return -1;
}

// What the file's pages are, for the report.
std::string describePages(int colorMode, int compression) {
    const char* bilevel = compression == 1 ? "bilevel uncompressed" : "bilevel PackBits";
    const char* grey = compression == 32773 ? "greyscale PackBits" : "greyscale uncompressed";
    if (colorMode == 0) return bilevel;
    if (colorMode == 1) return grey;
    return std::string(bilevel) + ", " + grey;
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
            options.batch.pages = static_cast<unsigned>(number);
        } else if (arg == "--seed") {
            const char* text = value("a number");
            if (!text) return kova::tools::BadUsage;
            if (!parseNumber(text, 0, 0x7FFFFFFF, number))
                return command.badUsage("--seed takes a number, not " + kova::tools::quoted(text));
            options.batch.seed = number;
        } else if (arg == "--resolution") {
            const char* text = value("a resolution");
            if (!text) return kova::tools::BadUsage;
            if (!parseNumber(text, 50, 600, number))
                return command.badUsage("--resolution takes 50 to 600 dots per inch, not " +
                                        kova::tools::quoted(text));
            options.batch.resolution = static_cast<int>(number);
        } else if (arg == "--kind" || arg == "--compression") {
            const bool kind = arg == "--kind";
            const char* text = value(kind ? "a page kind" : "a compression");
            if (!text) return kova::tools::BadUsage;
            const int chosen = kind ? choiceOf(text, pageKinds) : choiceOf(text, compressions);
            if (chosen < 0)
                return command.badUsage(
                    arg + " takes " +
                    (kind ? "bilevel, greyscale or alternating" : "auto, none or packbits") +
                    ", not " + kova::tools::quoted(text));
            (kind ? options.batch.colorMode : options.batch.compression) = chosen;
        } else if (arg == "--output" || arg == "--ini" || arg == "--registry") {
            const char* text = value("a file name");
            if (!text) return kova::tools::BadUsage;
            (arg == "--output" ? options.batch.output
             : arg == "--ini"  ? options.ini
                               : options.registry) = text;
        } else if (arg == "--no-link") {
            options.batch.link = false;
        } else if (arg == "--quiet") {
            options.quiet = true;
        } else {
            return command.badUsage("unexpected argument " + kova::tools::quoted(arg));
        }
    }
    return -1;
}

// Kernel message boxes (a class that cannot be loaded, say) are part of what
// went wrong: they are printed where the report's errors go.
int printMessageBox(const char* text, const char* caption, unsigned) {
    std::fprintf(stderr, "kova demo: %s: %s\n", caption ? caption : "KOVA", text ? text : "");
    return KV_IDOK;
}

using kova::tools::demo::Batch;

class Demo {
  public:
    Demo(const Options& options)
        : options_(options), host_(options.batch.pages, options.quiet),
          batch_(options.batch, host_, printFailure) {}
    int run();

  private:
    static void printFailure(const std::string& what, kvObject errors);
    void report(unsigned scanned, unsigned restored, double seconds) const;

    const Options& options_;
    kova::tools::demo::Host host_;
    Batch batch_;
};

void Demo::printFailure(const std::string& what, kvObject errors) {
    command.fail(what);
    if (errors) {
        std::fputs("The error stack, as the error dialog shows it:\n", stderr);
        kova::tools::demo::printErrorStack(stderr, errors);
    }
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
    std::printf("  links: %s\n", batch_.linked() ? "DemoRecognizer.ImageDataSource -> DemoScanner "
                                                   "(service ImageData)"
                                                 : "none (the recognizer is not linked)");
    std::error_code ignored;
    if (scanned)
        std::printf("  file: %s, %ju bytes, %u page%s (%s)\n", options_.batch.output.c_str(),
                    fs::file_size(options_.batch.output, ignored), scanned, scanned == 1 ? "" : "s",
                    describePages(options_.batch.colorMode, options_.batch.compression).c_str());
    std::printf("  settings saved and restored into a fresh scanner: %u of 5 equal\n", restored);
}

int Demo::run() {
    const auto start = std::chrono::steady_clock::now();
    if (!batch_.makeComponents()) return kova::tools::Failed;
    unsigned scanned = 0;
    if (!batch_.scan(scanned) || !batch_.stamp()) return kova::tools::Failed;
    const unsigned restored = batch_.saveAndRestore();
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    report(scanned, restored, seconds);
    bool allRight = scanned == options_.batch.pages && restored == 5;
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
    if (options.ini.empty()) options.ini = kova::tools::demo::defaultProtocolTable();

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
    int result = Failed;
    if (!kova::tools::demo::loadDemoLibrary(options.ini)) {
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
