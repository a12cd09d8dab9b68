// A set-up of components linked through the property link registry, built in
// the running kernel for people to look at ("kova links", the shell): each
// component is a personality module (PM) activated with the base technology
// (TM), so its technology offers "WidgetConnection" under its FQN; a source
// property on a component wants another component's FQN. The host side (the
// display names the components ask for) is played by the set-up itself.
#pragma once

#include "kova/kernel.h"

#include <cstdio>
#include <deque>
#include <string>
#include <vector>

namespace kova::tools {

class LinkSetup {
  public:
    LinkSetup() = default;
    LinkSetup(const LinkSetup&) = delete;
    LinkSetup& operator=(const LinkSetup&) = delete;
    // Deletes the components it made (their links and registrations go too).
    ~LinkSetup();

    // A component named `fqn`, made and activated; null when it could not be.
    // Its display name is the FQN up to its first dot.
    kvObject addComponent(const std::string& fqn);
    // Gives the component `fqn` (made first if missing) a source property of
    // "WidgetConnection" that wants `providerFQN`, and sends one message
    // through its link, as a user of the link would. False on failure.
    bool addSource(const std::string& fqn, const std::string& providerFQN);
    // Scanner.1 and Viewer.1, the viewer linked to the scanner, and Printer.1
    // waiting for Fax.1, which does not exist.
    bool buildDemo();

  private:
    kvObject find(const std::string& fqn) const;

    std::deque<std::string> names_;    // FQNs, kept for the host callback
    std::vector<kvObject> components_; // personality modules, in making order
};

// Prints the registry's services with their providers (FQN, object class,
// display name) and its sinks (FQN, service, provider wanted, established or
// waiting, and the provider linked to).
void printLinks(FILE* out);

} // namespace kova::tools
