// The table of methods known to answer a text or an object (see the header).
// A class-specific entry wins over an entry for every class, so that a class
// whose method breaks the general rule can say so.
#include "tools/shell/ResultKinds.hpp"

#include <cstring>

namespace kova::shell {
namespace {

struct KnownResult {
    const char* definingClass; // null: a method of this name in any class
    const char* method;
    ResultKind kind;
};

constexpr KnownResult knownResults[] = {
    // Texts owned by the receiver.
    {nullptr, "asString", ResultKind::Text},
    {nullptr, "fetchAsString", ResultKind::Text},
    {nullptr, "getName", ResultKind::Text},
    {nullptr, "getSource", ResultKind::Text},
    {nullptr, "getMessage", ResultKind::Text},
    {nullptr, "getString", ResultKind::Text},
    {nullptr, "getKeyString", ResultKind::Text},
    {nullptr, "getIndexedString", ResultKind::Text},
    {nullptr, "getIndexedEnumString", ResultKind::Text},
    {nullptr, "getCurrentEnumString", ResultKind::Text},
    {nullptr, "fetchFQN", ResultKind::Text},
    {nullptr, "getDisplayName", ResultKind::Text},
    {nullptr, "getServiceName", ResultKind::Text},
    {nullptr, "getSinkFQN", ResultKind::Text},
    {nullptr, "getSourceFQN", ResultKind::Text},
    {"StrProp", "fetchData", ResultKind::Text},
    {"StrProp", "storeData", ResultKind::Text},
    {"IndStrProp", "fetchData", ResultKind::Text},
    {"IndStrProp", "storeData", ResultKind::Text},
    {"SourceProperty", "fetchData", ResultKind::Text},
    {"SourceProperty", "storeData", ResultKind::Text},
    // A source property's cookie is a provider's FQN; other enumerations'
    // cookies are numbers.
    {"SourceProperty", "getIndexedCookie", ResultKind::Text},
    // A character array property's text need not be terminated: shown as a
    // number, its text is read with getSize in mind by whoever asks.
    {"IndCArrayProp", "asString", ResultKind::Integer},
    // Objects.
    {nullptr, "getOwner", ResultKind::Object},
    {nullptr, "getForward", ResultKind::Object},
    {nullptr, "getNextESObj", ResultKind::Object},
    {nullptr, "getPrevESObj", ResultKind::Object},
    {nullptr, "getNextGCObj", ResultKind::Object},
    {nullptr, "getPrevGCObj", ResultKind::Object},
    {nullptr, "getCurrent", ResultKind::Object},
    {nullptr, "getFirst", ResultKind::Object},
    {nullptr, "getNext", ResultKind::Object},
    {nullptr, "getObject", ResultKind::Object},
    {nullptr, "getProperty", ResultKind::Object},
    {nullptr, "getPropByName", ResultKind::Object},
    {nullptr, "getPropCollect", ResultKind::Object},
    {nullptr, "findPropertyByName", ResultKind::Object},
    {nullptr, "getLinkedObject", ResultKind::Object},
    {nullptr, "getTM", ResultKind::Object},
    {nullptr, "getPM", ResultKind::Object},
    {"PM", "activate", ResultKind::Object},
    {nullptr, "getProperties", ResultKind::Object},
};

} // namespace

ResultKind resultKindOf(kvClass definingClass, const char* method) {
    if (!method) return ResultKind::Integer;
    const char* className = kvClassName(definingClass);
    const KnownResult* general = nullptr;
    for (const KnownResult& entry : knownResults) {
        if (std::strcmp(entry.method, method) != 0) continue;
        if (!entry.definingClass) {
            general = &entry;
        } else if (className && !std::strcmp(entry.definingClass, className)) {
            return entry.kind;
        }
    }
    return general ? general->kind : ResultKind::Integer;
}

} // namespace kova::shell
