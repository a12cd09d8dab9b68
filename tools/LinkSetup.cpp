// Components linked through the registry for people to look at, and the
// registry shown as a person needs it when a link does not come up.
#include "tools/LinkSetup.hpp"

#include "kova/component.h"
#include "kova/plr.h"

#include <cstring>

namespace kova::tools {
namespace {

// The host's side of every component of a set-up: the control handle is the
// component's FQN, and its display name the FQN up to the first dot.
int32_t answerHost(kvArg control, int32_t event, const kvArg* arguments) {
    if (event != KV_EVENT_DISPLAY_NAME || !control || !arguments) return 0;
    const std::string fqn = *reinterpret_cast<const std::string*>(control);
    const std::string name = fqn.substr(0, fqn.find('.'));
    std::snprintf(reinterpret_cast<char*>(arguments[0]), 80, "%s", name.c_str());
    return 1;
}

const char* orNone(const char* text) {
    return text && *text ? text : "-";
}

std::string classOf(kvObject obj) {
    return obj ? kvClassName(obj->cls) : "-";
}

} // namespace

LinkSetup::~LinkSetup() {
    for (kvObject component : components_)
        kvDelObject(nullptr, component);
}

kvObject LinkSetup::find(const std::string& fqn) const {
    for (kvObject component : components_) {
        const auto* own = reinterpret_cast<const char*>(kvSendMeth(nullptr, component, "fetchFQN"));
        if (own && fqn == own) return component;
    }
    return nullptr;
}

kvObject LinkSetup::addComponent(const std::string& fqn) {
    if (kvObject existing = find(fqn)) return existing;
    kvObject error = nullptr;
    kvObject pm = kvNewObject(&error, "PM");
    if (!pm) return nullptr;
    names_.push_back(fqn);
    kvSendMeth(&error, pm, "storeControl", &names_.back());
    kvSendMeth(&error, pm, "registerEventDispatch", &answerHost);
    kvSendMeth(&error, pm, "setTMName", "TM");
    kvSendMeth(&error, pm, "storeFQN", fqn.c_str());
    const bool activated = kvSendMeth(&error, pm, "activate") != 0;
    if (error) kvSendMeth(nullptr, error, "deleteTopError");
    if (!activated) {
        kvDelObject(nullptr, pm);
        return nullptr;
    }
    components_.push_back(pm);
    return pm;
}

bool LinkSetup::addSource(const std::string& fqn, const std::string& providerFQN) {
    const kvObject pm = addComponent(fqn);
    if (!pm) return false;
    kvObject error = nullptr;
    const std::string name = "Source" + std::to_string(components_.size());
    kvObject source = kvNewObject(&error, "SourceProperty", (name + "Link").c_str(),
                                  KV_WIDGET_CONNECTION, pm, name.c_str(), 0, 0);
    bool made = source && kvSendMeth(&error, pm, "addProperty", source) == 0;
    if (made) {
        kvSendMeth(&error, source, "setSinkFQN", fqn.c_str());
        kvSendMeth(&error, source, "storeData", providerFQN.c_str());
        // One message through the link, as a user of the link sends it; an
        // absent provider answers with an error, which is the point.
        kvObject unanswered = nullptr;
        kvSendMeth(&unanswered, source, "fireMethodOnLinkedProperty", "getRunMode", 0);
        while (unanswered)
            kvSendMeth(&unanswered, unanswered, "deleteTopError");
    } else if (source) {
        kvDelObject(nullptr, source);
    }
    while (error)
        kvSendMeth(&error, error, "deleteTopError");
    return made;
}

bool LinkSetup::buildDemo() {
    return addComponent("Scanner.1") && addSource("Viewer.1", "Scanner.1") &&
           addSource("Printer.1", "Fax.1");
}

void printLinks(FILE* out) {
    const int16_t services = PLRGetServiceCount();
    std::fprintf(out, "Services: %d\n", services);
    for (int16_t s = 0; s < services; ++s) {
        const char* service = PLRGetServiceName(s);
        const int16_t providers = PLRGetProviderCount(service);
        std::fprintf(out, "  %s (%d provider%s)\n", service, providers, providers == 1 ? "" : "s");
        for (int16_t p = 0; p < providers; ++p) {
            PLRProviderInfo info{};
            if (PLRGetProviderInfo(service, p, &info) != PLR_OK) continue;
            const char* displayName = nullptr;
            PLRGetDisplayNameFromLINKID(service, info.fqn, &displayName);
            std::fprintf(out, "    %-24s %-12s \"%s\"  linked object: %s\n", info.fqn,
                         classOf(info.provider).c_str(), orNone(displayName),
                         classOf(info.linkedObject).c_str());
        }
    }
    const int16_t sinks = PLRGetSinkCount();
    std::fprintf(out, "Sinks: %d\n", sinks);
    for (int16_t i = 0; i < sinks; ++i) {
        PLRSinkInfo info{};
        if (PLRGetSinkInfo(i, &info) != PLR_OK) continue;
        std::fprintf(out, "  %-24s %s -> %-16s %s", info.sinkFQN, info.service,
                     orNone(info.providerFQN), info.established ? "established" : "waiting");
        if (info.established)
            std::fprintf(out, " (%s)", classOf(info.linkedProvider).c_str());
        else if (!PLRIsServiceProviderFQN(info.service, info.providerFQN))
            std::fprintf(out, " (no provider of that FQN)");
        if (info.savedCount) std::fprintf(out, " [%d saved]", info.savedCount);
        std::fputc('\n', out);
    }
}

} // namespace kova::tools
