// Error lines: the text form in which a module gives its error messages, and
// the message table the registry makes of them.
//
// A line reads   3427 "An unimplemented method %s was sent to class %s" 4002
// an error number (-32768..32767) at the start of the line, the message text
// between the first two double quotes, taken verbatim, and a help context
// (0..65535). Blanks (spaces and tabs) may stand around the three parts. Error
// message files and error table resources hold such lines separated by line
// feeds; a carriage return before the line feed is part of the line ending.
//
// Input comes from outside the library and is read as hostile: a line is at
// most 510 characters, and a longer one is rejected whole (its tail is never
// read as a line of its own); a line holding a NUL byte or any control
// character other than a tab is rejected as binary data; text after the help
// context is rejected. Lines are read through a fixed buffer, so memory use
// does not depend on the input. A file is read to at most `maxFileSize`
// bytes, room for the 65535 messages a registration counts, each on a line of
// the greatest length; a longer input (a device or a pipe that never ends, an
// endless line) is not an error message file, and reading stops there.
//
// The parser and the readers are header-only so that the `kova errors`
// command checks files with exactly the rules the registry applies.
#pragma once

#include "kova/errreg.h"
#include "platform/Platform.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace kova::errors {

inline constexpr size_t maxLineLength = 510;      // characters, without the line ending
inline constexpr size_t messageTextSize = 256;    // a stored text holds at most 255 characters
inline constexpr size_t maxMessages = UINT16_MAX; // entries one registration can hold
// Bytes an error message file may hold: 65535 lines of 510 characters and CR LF.
inline constexpr size_t maxFileSize = maxMessages * (maxLineLength + 2);

// Why a line was or was not taken.
enum class LineVerdict {
    WellFormed,
    Blank,
    TooLong,
    BinaryData,
    NoNumber,
    NumberOutOfRange,
    NoOpeningQuote,
    NoClosingQuote,
    NoHelpContext,
    HelpContextOutOfRange,
    TextAfterHelpContext,
};

// One line as the reader gives it. `text` points into the reader's buffer and
// stays valid until the next read; it is meaningful only for a well-formed line.
struct ErrorLine {
    size_t lineNumber;     // 1 for the first line of the input
    LineVerdict verdict;   // WellFormed, or why the line is skipped
    int16_t number;        // the error number
    std::string_view text; // the message text, not yet cut to 255 characters
    uint16_t helpContext;  // the help context
};

// A sentence saying what is wrong with a line, for people reading reports.
constexpr const char* describeVerdict(LineVerdict verdict) {
    switch (verdict) {
    case LineVerdict::WellFormed:
        return "well-formed";
    case LineVerdict::Blank:
        return "blank line";
    case LineVerdict::TooLong:
        return "line longer than 510 characters";
    case LineVerdict::BinaryData:
        return "line holds a NUL byte or a control character";
    case LineVerdict::NoNumber:
        return "no error number at the start of the line";
    case LineVerdict::NumberOutOfRange:
        return "error number outside -32768..32767";
    case LineVerdict::NoOpeningQuote:
        return "no opening quote after the error number";
    case LineVerdict::NoClosingQuote:
        return "no closing quote after the message text";
    case LineVerdict::NoHelpContext:
        return "no help context after the message text";
    case LineVerdict::HelpContextOutOfRange:
        return "help context outside 0..65535";
    case LineVerdict::TextAfterHelpContext:
        return "unexpected text after the help context";
    }
    return "unknown verdict";
}

namespace detail {

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}
constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// A byte that cannot be part of a text line: NUL and the control characters,
// except the tab, which counts as a blank.
constexpr bool isBinary(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

constexpr size_t skipBlanks(std::string_view line, size_t at) {
    while (at < line.size() && isBlank(line[at]))
        ++at;
    return at;
}

// Reads the decimal digits at `at`, moving `at` past them. Answers false when
// there are none. The value saturates just above 65535, which every caller
// rejects, so long digit runs cannot overflow.
constexpr bool readDigits(std::string_view line, size_t& at, uint32_t& value) {
    const size_t start = at;
    value = 0;
    for (; at < line.size() && isDigit(line[at]); ++at)
        if (value <= UINT16_MAX) value = value * 10 + static_cast<uint32_t>(line[at] - '0');
    return at > start;
}

} // namespace detail

// Classifies one line (without its line ending) and, when it is well formed,
// fills the number, text and help context of `out`. Never reads outside `line`.
constexpr LineVerdict parseErrorLine(std::string_view line, ErrorLine& out) {
    using namespace detail;
    if (line.size() > maxLineLength) return LineVerdict::TooLong;
    for (char c : line)
        if (isBinary(c)) return LineVerdict::BinaryData;
    size_t at = skipBlanks(line, 0);
    if (at == line.size()) return LineVerdict::Blank;

    const bool negative = line[at] == '-';
    if (negative) ++at;
    uint32_t magnitude = 0;
    if (!readDigits(line, at, magnitude)) return LineVerdict::NoNumber;
    if (magnitude > (negative ? 32768u : 32767u)) return LineVerdict::NumberOutOfRange;

    at = skipBlanks(line, at);
    if (at == line.size() || line[at] != '"') return LineVerdict::NoOpeningQuote;
    const size_t textStart = at + 1;
    const size_t closingQuote = line.find('"', textStart);
    if (closingQuote == std::string_view::npos) return LineVerdict::NoClosingQuote;

    at = skipBlanks(line, closingQuote + 1);
    uint32_t helpContext = 0;
    if (!readDigits(line, at, helpContext)) return LineVerdict::NoHelpContext;
    if (helpContext > UINT16_MAX) return LineVerdict::HelpContextOutOfRange;
    if (skipBlanks(line, at) != line.size()) return LineVerdict::TextAfterHelpContext;

    const int32_t number =
        negative ? -static_cast<int32_t>(magnitude) : static_cast<int32_t>(magnitude);
    out.number = static_cast<int16_t>(number);
    out.text = line.substr(textStart, closingQuote - textStart);
    out.helpContext = static_cast<uint16_t>(helpContext);
    return LineVerdict::WellFormed;
}

// The bytes of an open stdio file, up to its end, a read error, or
// `maxFileSize` bytes; `*tooLong` is set when the file goes on past them.
class FileBytes {
  public:
    FileBytes(std::FILE* file, bool* tooLong) : file_(file), tooLong_(tooLong) {
        *tooLong_ = false;
    }
    int next() {
        if (read_ == maxFileSize) {
            if (!*tooLong_ && std::getc(file_) != EOF) *tooLong_ = true;
            return EOF;
        }
        ++read_;
        return std::getc(file_);
    }

  private:
    std::FILE* file_;
    bool* tooLong_;
    size_t read_ = 0;
};

// The bytes of a text in memory (a resource, or lines a library hands over).
// The text ends at its size or at its first NUL byte, whichever comes first,
// because such texts are commonly stored as C strings.
class TextBytes {
  public:
    TextBytes(const void* text, size_t size)
        : at_(static_cast<const unsigned char*>(text)), end_(at_ + (text ? size : 0)) {}
    int next() {
        if (at_ == end_ || *at_ == 0) return EOF;
        return *at_++;
    }

  private:
    const unsigned char* at_;
    const unsigned char* end_;
};

// Splits a byte source into lines and classifies each. `Source::next()`
// answers the next byte as an unsigned char value, or EOF at the end.
template <typename Source> class ErrorLineReader {
  public:
    explicit ErrorLineReader(Source source) : source_(source) {}
    ErrorLineReader(const ErrorLineReader&) = delete;
    ErrorLineReader& operator=(const ErrorLineReader&) = delete;

    // Reads the next line into `line`; false when the input has no more.
    // A last line without a line feed still counts; an empty input has none.
    bool next(ErrorLine& line) {
        size_t length = 0;
        bool overflowed = false;
        int c = source_.next();
        if (c == EOF) return false;
        for (; c != EOF && c != '\n'; c = source_.next()) {
            if (length < sizeof buffer_)
                buffer_[length++] = static_cast<char>(c);
            else
                overflowed = true; // keep consuming: the tail belongs to this line
        }
        if (length > 0 && buffer_[length - 1] == '\r') --length;
        line = ErrorLine{++lineNumber_, LineVerdict::TooLong, 0, {}, 0};
        if (!overflowed) line.verdict = parseErrorLine({buffer_, length}, line);
        return true;
    }

  private:
    Source source_;
    char buffer_[maxLineLength + 1]; // one spare byte, for a carriage return
    size_t lineNumber_ = 0;
};

// Hands each line of `source` in turn to `visit`, which answers false to stop
// the reading there. Answers false when `visit` stopped it.
template <typename Source, typename Visit> bool forEachLine(Source source, Visit visit) {
    ErrorLineReader<Source> reader(source);
    ErrorLine line{};
    while (reader.next(line))
        if (!visit(static_cast<const ErrorLine&>(line))) return false;
    return true;
}

// One message as the registry stores it: 260 bytes, in the order of the lines.
struct MessageEntry {
    int16_t number;             // error number
    char text[messageTextSize]; // NUL-terminated message text
    uint16_t helpContext;       // help context for the help viewer
};
static_assert(sizeof(MessageEntry) == 260);

// The messages of one registration: a movable block of entries in the order
// of their lines, owned until handed over with `release`.
class MessageTable {
  public:
    MessageTable() = default;
    MessageTable(const MessageTable&) = delete;
    MessageTable& operator=(const MessageTable&) = delete;
    ~MessageTable() { platform::globalFree(block_); }

    // Appends the well-formed line's message, its text cut to 255 characters.
    // Answers false when memory failed (the table is then as before). Lines
    // beyond the 65535th message are ignored, as a record cannot count them.
    bool add(const ErrorLine& line);

    // Reads every line of `source`, adding the well-formed ones. Answers
    // ERR_REG_OK, or ERR_REG_MEMORY when an entry could not be stored.
    template <typename Source> int addLinesOf(Source source) {
        const bool read = forEachLine(source, [this](const ErrorLine& line) {
            return line.verdict != LineVerdict::WellFormed || add(line);
        });
        return read ? ERR_REG_OK : ERR_REG_MEMORY;
    }

    uint16_t count() const { return static_cast<uint16_t>(count_); }

    // Gives up the block, trimmed to the entries it holds (null when there are
    // none); the caller frees it with globalFree.
    platform::MemoryHandle release();

  private:
    bool grow();

    platform::MemoryHandle block_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

} // namespace kova::errors
