// The registry store's tree and its text form (see the header).
#include "platform/posix/RegistryStore.hpp"

#include <algorithm>

namespace kova::platform {
namespace {

constexpr std::string_view header = "KOVA registry store 1";
constexpr std::string_view trailer = "end of store";

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// Orders names as the registry enumerates them: by name, without regard to case.
int compareNames(std::string_view a, std::string_view b) {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
        const auto x = static_cast<unsigned char>(lower(a[i]));
        const auto y = static_cast<unsigned char>(lower(b[i]));
        if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// The first subkey not ordered before `name`.
HeapVector<RegistryKey>::iterator lowerBound(RegistryKey& key, std::string_view name) {
    return std::lower_bound(key.subkeys.begin(), key.subkeys.end(), name,
                            [](const RegistryKey& subkey, std::string_view wanted) {
                                return compareNames(subkey.name, wanted) < 0;
                            });
}

RegistryKey* findSubkey(RegistryKey& key, std::string_view name) {
    auto at = lowerBound(key, name);
    return at != key.subkeys.end() && compareNames(at->name, name) == 0 ? &*at : nullptr;
}

// Splits `path` at each "\"; answers false for a name that is empty, too
// long, or a path too deep.
template <typename Visit> bool forEachName(std::string_view path, Visit visit) {
    if (path.empty()) return true;
    size_t depth = 0;
    for (;;) {
        const size_t end = path.find('\\');
        const std::string_view name = path.substr(0, end);
        if (name.empty() || name.size() > maxKeyNameLength || ++depth > maxKeyDepth) return false;
        if (!visit(name)) return false;
        if (end == std::string_view::npos) return true;
        path.remove_prefix(end + 1);
    }
}

bool needsEscape(unsigned char c) {
    return c < 0x20 || c == 0x7F || c == '%' || c == '=';
}

void appendEscaped(HeapString& out, std::string_view text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    for (char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (!needsEscape(byte)) {
            out += c;
            continue;
        }
        out += '%';
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool unescape(std::string_view text, HeapString& out) {
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        const int high = i + 1 < text.size() ? hexValue(text[i + 1]) : -1;
        const int low = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
        if (high < 0 || low < 0) return false;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

void appendKeys(HeapString& out, const RegistryKey& key, HeapString& path) {
    for (const RegistryKey& subkey : key.subkeys) {
        const size_t length = path.size();
        if (length) path += '\\';
        path += subkey.name;
        // A key named like the end line would end the store when read back;
        // its first character is escaped so that the line no longer matches.
        if (!subkey.hasValue && std::string_view(path) == trailer) {
            out += "%65";
            appendEscaped(out, std::string_view(path).substr(1));
        } else {
            appendEscaped(out, path);
        }
        if (subkey.hasValue) {
            out += '=';
            appendEscaped(out, subkey.value);
        }
        out += '\n';
        appendKeys(out, subkey, path);
        path.resize(length);
    }
}

std::string lineProblem(size_t line, const char* what) {
    return "line " + std::to_string(line) + ": " + what;
}

} // namespace

RegistryKey* findRegistryKey(RegistryKey& root, std::string_view path) {
    RegistryKey* key = &root;
    const bool valid = forEachName(path, [&](std::string_view name) {
        key = findSubkey(*key, name);
        return key != nullptr;
    });
    return valid ? key : nullptr;
}

RegistryKey* makeRegistryKey(RegistryKey& root, std::string_view path, bool& created) {
    RegistryKey* key = &root;
    const bool valid = forEachName(path, [&](std::string_view name) {
        auto at = lowerBound(*key, name);
        if (at == key->subkeys.end() || compareNames(at->name, name) != 0) {
            RegistryKey fresh;
            fresh.name.assign(name.data(), name.size());
            at = key->subkeys.insert(at, std::move(fresh));
            created = true;
        }
        key = &*at;
        return true;
    });
    return valid ? key : nullptr;
}

bool removeRegistryKey(RegistryKey& root, std::string_view path) {
    const size_t slash = path.rfind('\\');
    const std::string_view parentPath =
        slash == std::string_view::npos ? std::string_view() : path.substr(0, slash);
    const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    if (name.empty()) return false;
    RegistryKey* parent = findRegistryKey(root, parentPath);
    if (!parent) return false;
    auto at = lowerBound(*parent, name);
    if (at == parent->subkeys.end() || compareNames(at->name, name) != 0) return false;
    parent->subkeys.erase(at);
    return true;
}

bool parseRegistryStore(std::string_view text, RegistryKey& root, std::string& problem) {
    if (text.size() > maxStoreSize) {
        problem = "the file is larger than " + std::to_string(maxStoreSize) + " bytes";
        return false;
    }
    size_t lineNumber = 0;
    bool ended = false;
    HeapString path;
    HeapString value;
    while (!text.empty()) {
        ++lineNumber;
        const size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            problem = lineProblem(lineNumber, "the line has no end: the file was cut short");
            return false;
        }
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        if (ended) {
            problem = lineProblem(lineNumber, "text after the end of the store");
            return false;
        }
        if (lineNumber == 1) {
            if (line != header) {
                problem = lineProblem(1, "not a KOVA registry store");
                return false;
            }
            continue;
        }
        if (line == trailer) {
            ended = true;
            continue;
        }
        const size_t equals = line.find('=');
        if (!unescape(line.substr(0, equals), path) ||
            (equals != std::string_view::npos && !unescape(line.substr(equals + 1), value))) {
            problem = lineProblem(lineNumber, "a bad %XX escape");
            return false;
        }
        bool created = false;
        RegistryKey* key = path.empty() ? nullptr : makeRegistryKey(root, path, created);
        if (!key) {
            problem =
                lineProblem(lineNumber, "a key path with an empty, overlong or too deep name");
            return false;
        }
        if (equals != std::string_view::npos) {
            key->hasValue = true;
            key->value = value;
        }
    }
    if (!ended) {
        problem = lineNumber == 0 ? "the file is empty" : "no end line: the file was cut short";
        return false;
    }
    return true;
}

HeapString writeRegistryStore(const RegistryKey& root) {
    HeapString out;
    out.append(header.data(), header.size());
    out += '\n';
    HeapString path;
    appendKeys(out, root, path);
    out.append(trailer.data(), trailer.size());
    out += '\n';
    return out;
}

} // namespace kova::platform
