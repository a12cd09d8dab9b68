// printf-style formatting over argument slots, bounded on both sides: it never
// reads past the list (missing slots are 0) and never writes past the buffer.
#include "errors/MessageFormat.hpp"

#include <cstdio>
#include <cstring>

namespace {

struct Output {
    char* out;
    size_t size;   // bytes of `out`, terminator included
    size_t length; // characters written so far

    size_t room() const { return length < size ? size - length : 0; }
    void append(const char* text, size_t count) {
        const size_t fits = room() > 1 ? room() - 1 : 0;
        if (count > fits) count = fits;
        std::memcpy(out + length, text, count);
        length += count;
        out[length] = '\0';
    }
};

struct Directive {
    char pattern[32];     // the directive rebuilt for snprintf, without length modifier
    size_t patternLength; // characters in pattern
    int lengthLongs;      // number of 'l' modifiers seen
    char conversion;      // the conversion character, 0 when the text ended
};

bool isFlag(char c) {
    return c && std::strchr("-+ #0", c) != nullptr;
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

void addToPattern(Directive& d, const char* text, size_t count) {
    if (d.patternLength + count >= sizeof d.pattern) return; // an absurd directive loses its tail
    std::memcpy(d.pattern + d.patternLength, text, count);
    d.patternLength += count;
    d.pattern[d.patternLength] = '\0';
}

// Copies a run of digits (at most 4, which bounds widths to 9999) or a "*"
// replaced by the next slot's value.
const char* readNumber(const char* p, Directive& d, const kvArgs* args, size_t& next) {
    if (*p == '*') {
        char number[16];
        const int value = static_cast<int>(kvArgAt(args, next++)) % 10000;
        addToPattern(d, number,
                     static_cast<size_t>(std::snprintf(number, sizeof number, "%d", value)));
        return p + 1;
    }
    const char* start = p;
    while (isDigit(*p))
        ++p;
    addToPattern(d, start, static_cast<size_t>(p - start) > 4 ? 4 : static_cast<size_t>(p - start));
    return p;
}

// Parses the directive after a '%'; answers where the text goes on.
const char* parseDirective(const char* p, Directive& d, const kvArgs* args, size_t& next) {
    d = Directive{};
    addToPattern(d, "%", 1);
    while (isFlag(*p))
        addToPattern(d, p++, 1);
    p = readNumber(p, d, args, next);
    if (*p == '.') {
        addToPattern(d, p++, 1);
        p = readNumber(p, d, args, next);
    }
    while (*p == 'l' || *p == 'h') {
        if (*p == 'l') ++d.lengthLongs;
        ++p;
    }
    d.conversion = *p;
    return *p ? p + 1 : p;
}

// Formats one directive's value; false when the conversion is not one of ours.
bool formatValue(Output& o, Directive& d, kvArg slot) {
    char* at = o.out + o.length;
    const size_t room = o.room();
    int written = 0;
    switch (d.conversion) {
    case 'd':
    case 'i':
        if (d.lengthLongs >= 2) {
            addToPattern(d, "lld", 3);
            written = std::snprintf(at, room, d.pattern, static_cast<long long>(slot));
        } else {
            addToPattern(d, "d", 1);
            written =
                std::snprintf(at, room, d.pattern, static_cast<int>(static_cast<int32_t>(slot)));
        }
        break;
    case 'u':
    case 'x':
    case 'X':
    case 'o': {
        const char conversion[4] = {'l', 'l', d.conversion, '\0'};
        addToPattern(d, conversion, 3);
        const unsigned long long value = d.lengthLongs >= 2
                                             ? static_cast<unsigned long long>(slot)
                                             : static_cast<uint32_t>(static_cast<uintptr_t>(slot));
        written = std::snprintf(at, room, d.pattern, value);
        break;
    }
    case 'c':
        addToPattern(d, "c", 1);
        written =
            std::snprintf(at, room, d.pattern, static_cast<int>(static_cast<unsigned char>(slot)));
        break;
    case 's': {
        const auto* text = reinterpret_cast<const char*>(slot);
        addToPattern(d, "s", 1);
        written = std::snprintf(at, room, d.pattern, text ? text : "(null)");
        break;
    }
    case 'p':
        addToPattern(d, "p", 1);
        written = std::snprintf(at, room, d.pattern, reinterpret_cast<void*>(slot));
        break;
    default:
        return false;
    }
    if (written > 0)
        o.length += static_cast<size_t>(written) < room ? static_cast<size_t>(written)
                                                        : (room ? room - 1 : 0);
    return true;
}

} // namespace

namespace kova::errors {

size_t formatMessage(char* out, size_t size, const char* format, const kvArgs* args) {
    if (!out || size == 0) return 0;
    Output o{out, size, 0};
    out[0] = '\0';
    if (!format) return 0;
    size_t next = 0;
    for (const char* p = format; *p && o.room() > 1;) {
        const char* percent = std::strchr(p, '%');
        if (!percent) {
            o.append(p, std::strlen(p));
            break;
        }
        o.append(p, static_cast<size_t>(percent - p));
        if (percent[1] == '%') {
            o.append("%", 1);
            p = percent + 2;
            continue;
        }
        Directive d;
        const char* after = parseDirective(percent + 1, d, args, next);
        if (!d.conversion || !formatValue(o, d, kvArgAt(args, next))) {
            o.append(percent, static_cast<size_t>(after - percent));
        } else {
            ++next;
        }
        p = after;
    }
    return o.length;
}

} // namespace kova::errors
