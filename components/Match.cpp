// Match: the protocol table under "KOVA\Protocols" (protocol key with the
// default personality as its value, personality keys below it with the
// technology class as theirs), filled from an INI file, written back to one,
// and read to make a component's personality module.
#include "kova/match.h"
#include "platform/Platform.hpp"

#include <cstdio>
#include <string>

namespace {

constexpr const char* protocolsKey = "KOVA\\Protocols";
constexpr const char* protocolsSection = "Protocols";

using Name = char[KV_MATCH_NAME_SIZE];

std::string keyOf(const char* protocol, const char* personality = nullptr) {
    std::string path = std::string(protocolsKey) + "\\" + protocol;
    if (personality) path.append("\\").append(personality);
    return path;
}

// "Protocol3", "Personality0": the INI keys and section names of the table.
std::string numbered(const char* stem, unsigned index) {
    char text[32];
    std::snprintf(text, sizeof text, "%s%u", stem, index);
    return text;
}

bool technologyOf(const char* protocol, const char* personality, Name& technology) {
    return kova::platform::registryGetValue(keyOf(protocol, personality).c_str(), technology,
                                            sizeof technology);
}

void writeNumber(const char* section, const char* key, unsigned number, const char* file) {
    char text[16];
    std::snprintf(text, sizeof text, "%u", number);
    kova::platform::profileWriteString(section, key, text, file);
}

} // namespace

extern "C" {

KV_API int32_t MatchInit(const char* iniPath) {
    const unsigned total = kova::platform::profileGetInt(protocolsSection, "total", 0, iniPath);
    if (!kova::platform::registryCreateKey("KOVA") ||
        !kova::platform::registryCreateKey(protocolsKey))
        return 0;
    for (unsigned i = 0; i < total; ++i) {
        Name protocol;
        const std::string section = numbered("Protocol", i);
        kova::platform::profileGetString(protocolsSection, section.c_str(), "", protocol,
                                         sizeof protocol, iniPath);
        // An entry without a name names no key: it would be the table's own.
        if (!protocol[0] || !kova::platform::registryCreateKey(keyOf(protocol).c_str())) continue;
        Name personality;
        kova::platform::profileGetString(section.c_str(), "default", "", personality,
                                         sizeof personality, iniPath);
        kova::platform::registrySetValue(keyOf(protocol).c_str(), personality);
        const unsigned count = kova::platform::profileGetInt(section.c_str(), "total", 0, iniPath);
        for (unsigned j = 0; j < count; ++j) {
            Name name;
            kova::platform::profileGetString(section.c_str(), numbered("Personality", j).c_str(),
                                             "", name, sizeof name, iniPath);
            if (!name[0]) continue;
            Name technology;
            kova::platform::profileGetString(section.c_str(), name, "", technology,
                                             sizeof technology, iniPath);
            kova::platform::registrySetValue(keyOf(protocol, name).c_str(), technology);
        }
    }
    return 1;
}

KV_API kvObject MatchMake(kvObject* errSlot, const char* protocol, const char* personality) {
    if (!protocol || !*protocol) return nullptr;
    Name fallback = {};
    Name technology = {};
    // A personality that is given but unknown has no fallback to the default.
    if (!personality || !*personality) {
        if (!kova::platform::registryGetValue(keyOf(protocol).c_str(), fallback, sizeof fallback) ||
            !fallback[0])
            return nullptr;
        personality = fallback;
    }
    if (!technologyOf(protocol, personality, technology)) return nullptr;
    kvObject made = kvNewObject(errSlot, personality);
    if (made) kvSendMeth(errSlot, made, "setTMName", static_cast<const char*>(technology));
    return made;
}

KV_API int32_t MatchTerm(const char* iniPath) {
    kova::platform::messageBox("Attempt to call MatchTerm", "Quillon Error", KV_MB_ICONSTOP);
    if (!kova::platform::registryKeyExists(protocolsKey)) return 0;
    Name protocol;
    unsigned i = 0;
    for (; kova::platform::registryEnumKey(protocolsKey, i, protocol, sizeof protocol); ++i) {
        const std::string section = numbered("Protocol", i);
        kova::platform::profileWriteString(protocolsSection, section.c_str(), protocol, iniPath);
        const std::string protocolKey = keyOf(protocol);
        Name personality;
        unsigned j = 0;
        for (; kova::platform::registryEnumKey(protocolKey.c_str(), j, personality,
                                               sizeof personality);
             ++j) {
            Name technology;
            technologyOf(protocol, personality, technology);
            kova::platform::profileWriteString(section.c_str(), numbered("Personality", j).c_str(),
                                               personality, iniPath);
            kova::platform::profileWriteString(section.c_str(), personality, technology, iniPath);
        }
        writeNumber(section.c_str(), "total", j, iniPath);
        Name fallback;
        kova::platform::registryGetValue(protocolKey.c_str(), fallback, sizeof fallback);
        kova::platform::profileWriteString(section.c_str(), "default", fallback, iniPath);
    }
    writeNumber(protocolsSection, "total", i, iniPath);
    return 0;
}

} // extern "C"
