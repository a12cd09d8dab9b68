// kova links: the property link registry of a set-up of linked components,
// the view a person needs when a link does not come up: every service with
// its providers, every sink with the provider it wants and whether the link
// is established or still waiting.
#include "kova/kernel.h"
#include "tools/Command.hpp"
#include "tools/LinkSetup.hpp"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace kova::tools {
namespace {

constexpr const char* usageText =
    "usage: kova links [--empty] [--component FQN]... [--source FQN=PROVIDER]...\n"
    "\n"
    "Starts the kernel, builds a set-up of components linked through the property\n"
    "link registry and prints the registry: each service with its providers (FQN,\n"
    "object class, display name, linked object class) and each sink (FQN, service,\n"
    "the provider FQN it wants, established or waiting).\n"
    "\n"
    "Without options the set-up is the demo: Scanner.1; Viewer.1 with a source\n"
    "property linked to Scanner.1; Printer.1 with one waiting for Fax.1.\n"
    "\n"
    "  --empty                start from no components instead of the demo\n"
    "  --component FQN        add a component (a PM activated with a TM) named FQN\n"
    "  --source FQN=PROVIDER  give component FQN (made if missing) a source property\n"
    "                         of \"WidgetConnection\" that wants PROVIDER\n"
    "\n"
    "Exit status: 0 done, 1 a component could not be made, 2 bad usage.\n";

constexpr Command command{"links", usageText};

struct Step {
    bool isSource;
    std::string fqn;
    std::string provider;
};

} // namespace

int runLinks(int argc, char** argv) {
    if (wantsHelp(argc, argv)) {
        std::fputs(usageText, stdout);
        return Success;
    }
    bool demo = true;
    std::vector<Step> steps;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--empty") {
            demo = false;
        } else if ((option == "--component" || option == "--source") && i + 1 < argc) {
            const std::string value = argv[++i];
            if (option == "--component") {
                if (value.empty()) return command.badUsage("an empty component FQN");
                steps.push_back({false, value, {}});
                continue;
            }
            const size_t equals = value.find('=');
            if (equals == std::string::npos || equals == 0 || equals + 1 == value.size())
                return command.badUsage("--source takes FQN=PROVIDER, not " + quoted(value));
            steps.push_back({true, value.substr(0, equals), value.substr(equals + 1)});
        } else {
            return command.badUsage("unexpected argument " + quoted(option));
        }
    }
    kvInitialize();
    int status = Success;
    {
        LinkSetup setup;
        if (demo && !setup.buildDemo()) status = command.fail("the demo set-up could not be made");
        for (const Step& step : steps) {
            const bool made = step.isSource ? setup.addSource(step.fqn, step.provider)
                                            : setup.addComponent(step.fqn) != nullptr;
            if (!made) status = command.fail("could not make component " + quoted(step.fqn));
        }
        printLinks(stdout);
    }
    kvTerminate();
    return status;
}

} // namespace kova::tools
