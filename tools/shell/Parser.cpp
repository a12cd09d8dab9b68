// The kova shell's statements, read from one line. Words are split at blanks;
// a double-quoted string keeps its blanks and knows \" \\ \n \t; '=' and '!'
// stand alone; '#' outside a string starts a comment. A word is then read as
// a name, a number, or (only where a file is expected) a path.
#include "tools/shell/Statement.hpp"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace kova::shell {
namespace {

struct Token {
    enum Kind { Word, Quoted, Equals, Bang, End };
    Kind kind = End;
    std::string text;
    size_t column = 0;
};

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

bool endsWord(char c) {
    return isBlank(c) || c == '"' || c == '=' || c == '!' || c == '#';
}

bool isNameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

bool isName(std::string_view word) {
    if (word.empty() || !isNameStart(word[0])) return false;
    for (char c : word)
        if (!isNameStart(c) && !(c >= '0' && c <= '9')) return false;
    return true;
}

// Splits the line into tokens, or answers where a string is left open or a
// character is not understood.
std::variant<std::vector<Token>, SyntaxError> tokenize(std::string_view line) {
    std::vector<Token> tokens;
    size_t i = 0;
    while (i < line.size()) {
        const char c = line[i];
        const size_t column = i + 1;
        if (isBlank(c)) {
            ++i;
        } else if (c == '#') {
            break;
        } else if (c == '=' || c == '!') {
            tokens.push_back({c == '=' ? Token::Equals : Token::Bang, std::string(1, c), column});
            ++i;
        } else if (c == '"') {
            std::string text;
            for (++i;; ++i) {
                if (i >= line.size()) return SyntaxError{column, "string not closed"};
                if (line[i] == '"') break;
                if (line[i] != '\\') {
                    text += line[i];
                    continue;
                }
                if (++i >= line.size()) return SyntaxError{column, "string not closed"};
                switch (line[i]) {
                case 'n':
                    text += '\n';
                    break;
                case 't':
                    text += '\t';
                    break;
                case '"':
                    text += '"';
                    break;
                case '\\':
                    text += '\\';
                    break;
                default:
                    return SyntaxError{i, "unknown escape in string"};
                }
            }
            ++i;
            tokens.push_back({Token::Quoted, std::move(text), column});
        } else {
            const size_t start = i;
            while (i < line.size() && !endsWord(line[i]))
                ++i;
            tokens.push_back({Token::Word, std::string(line.substr(start, i - start)), column});
        }
    }
    tokens.push_back({Token::End, "", line.size() + 1});
    return tokens;
}

// Decimal integers take a sign; hexadecimal ones (0x) are unsigned and may
// use the whole pointer width, so that 0xFFFFFFFF is one slot on 32 bits.
// Anything with a point or an exponent is a float.
std::variant<Argument, SyntaxError> readNumber(const Token& token) {
    const std::string& text = token.text;
    Argument argument;
    argument.column = token.column;
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    if (hex) {
        const unsigned long long value = std::strtoull(begin + 2, &end, 16);
        if (*end || end == begin + 2) return SyntaxError{token.column, "not a number"};
        if (errno == ERANGE || value > std::numeric_limits<uintptr_t>::max())
            return SyntaxError{token.column, "number out of range"};
        argument.kind = Argument::Integer;
        argument.integer = static_cast<int64_t>(value);
        return argument;
    }
    if (text.find_first_of(".eE") != std::string::npos) {
        const double value = std::strtod(begin, &end);
        if (*end) return SyntaxError{token.column, "not a number"};
        if (errno == ERANGE || value > std::numeric_limits<float>::max() ||
            value < -std::numeric_limits<float>::max())
            return SyntaxError{token.column, "number out of range"};
        argument.kind = Argument::Float;
        argument.real = value;
        return argument;
    }
    const long long value = std::strtoll(begin, &end, 10);
    if (*end || end == begin) return SyntaxError{token.column, "not a number"};
    if (errno == ERANGE || value < std::numeric_limits<intptr_t>::min() ||
        value > std::numeric_limits<intptr_t>::max())
        return SyntaxError{token.column, "number out of range"};
    argument.kind = Argument::Integer;
    argument.integer = value;
    return argument;
}

std::variant<Argument, SyntaxError> readArgument(const Token& token) {
    if (token.kind == Token::Quoted) {
        Argument argument;
        argument.kind = Argument::String;
        argument.text = token.text;
        argument.column = token.column;
        return argument;
    }
    if (token.kind != Token::Word) return SyntaxError{token.column, "argument expected"};
    if (token.text == "null") {
        Argument argument;
        argument.column = token.column;
        return argument;
    }
    if (isName(token.text)) {
        Argument argument;
        argument.kind = Argument::Variable;
        argument.text = token.text;
        argument.column = token.column;
        return argument;
    }
    return readNumber(token);
}

// Walks the tokens of one statement.
class StatementReader {
  public:
    explicit StatementReader(std::vector<Token> tokens) : tokens_(std::move(tokens)) {}

    ParseResult read() {
        Statement statement;
        if (peek().kind == Token::End) return statement;
        if (peek().kind == Token::Word && peek(1).kind == Token::Equals) {
            if (!isName(peek().text)) return SyntaxError{peek().column, "variable name expected"};
            statement.assignTo = next().text;
            next();
            if (peek().kind == Token::End)
                return SyntaxError{peek().column, "new or a send expected after '='"};
            if (peek().kind == Token::Word && peek().text == "new") return readNew(statement);
            if (peek().kind == Token::Word && peek().text == "match") return readMatch(statement);
            return readSend(statement);
        }
        const Token& first = peek();
        if (first.kind != Token::Word) return SyntaxError{first.column, "statement expected"};
        if (peek(1).kind == Token::Bang) return readSend(statement);
        const std::string& word = first.text;
        if (word == "new") return readNew(statement);
        if (word == "match") return readMatch(statement);
        if (word == "del") return readWithNames(statement, Statement::Delete, "variable", nullptr);
        if (word == "load") return readWithNames(statement, Statement::Load, "class name", nullptr);
        if (word == "methods")
            return readWithNames(statement, Statement::Methods, "class name", nullptr);
        if (word == "watch")
            return readWithNames(statement, Statement::Watch, "variable", "event name");
        if (word == "save") return readWithFile(statement, Statement::Save);
        if (word == "read") return readWithFile(statement, Statement::Read);
        if (word == "classes") return readAlone(statement, Statement::Classes);
        if (word == "errors") return readAlone(statement, Statement::Errors);
        if (word == "vars") return readAlone(statement, Statement::Variables);
        if (word == "help") return readAlone(statement, Statement::Help);
        if (word == "quit" || word == "exit") return readAlone(statement, Statement::Quit);
        if (peek(1).kind == Token::End && isName(word)) {
            statement.kind = Statement::Show;
            statement.targetColumn = first.column;
            statement.target = next().text;
            return statement;
        }
        return readSend(statement);
    }

  private:
    const Token& peek(size_t ahead = 0) const {
        const size_t at = position_ + ahead;
        return at < tokens_.size() ? tokens_[at] : tokens_.back();
    }
    const Token& next() {
        const Token& token = peek();
        if (position_ + 1 < tokens_.size()) ++position_;
        return token;
    }

    std::variant<std::string, SyntaxError> expectName(const char* what, size_t* column) {
        const Token& token = next();
        *column = token.column;
        if (token.kind != Token::Word || !isName(token.text))
            return SyntaxError{token.column, std::string(what) + " expected"};
        return token.text;
    }

    ParseResult finish(Statement& statement) {
        if (peek().kind != Token::End) return SyntaxError{peek().column, "unexpected text"};
        return std::move(statement);
    }

    ParseResult readArguments(Statement& statement) {
        while (peek().kind != Token::End) {
            auto argument = readArgument(next());
            if (auto* error = std::get_if<SyntaxError>(&argument)) return *error;
            statement.args.push_back(std::get<Argument>(std::move(argument)));
        }
        return std::move(statement);
    }

    ParseResult readNew(Statement& statement) {
        next(); // "new"
        statement.kind = Statement::New;
        auto name = expectName("class name", &statement.nameColumn);
        if (auto* error = std::get_if<SyntaxError>(&name)) return *error;
        statement.name = std::get<std::string>(name);
        return readArguments(statement);
    }

    // match PROTOCOL [PERSONALITY]: the protocol in `target`, the personality
    // (empty for the protocol's default) in `name`.
    ParseResult readMatch(Statement& statement) {
        next();
        statement.kind = Statement::Match;
        auto protocol = expectName("protocol name", &statement.targetColumn);
        if (auto* error = std::get_if<SyntaxError>(&protocol)) return *error;
        statement.target = std::get<std::string>(protocol);
        if (peek().kind != Token::End) {
            auto personality = expectName("personality name", &statement.nameColumn);
            if (auto* error = std::get_if<SyntaxError>(&personality)) return *error;
            statement.name = std::get<std::string>(personality);
        }
        return finish(statement);
    }

    // VAR METHOD args, or CLASS! METHOD args.
    ParseResult readSend(Statement& statement) {
        auto target = expectName("variable or class name", &statement.targetColumn);
        if (auto* error = std::get_if<SyntaxError>(&target)) return *error;
        statement.target = std::get<std::string>(target);
        statement.kind = Statement::Send;
        if (peek().kind == Token::Bang) {
            next();
            statement.kind = Statement::ClassSend;
        }
        auto method = expectName("method name", &statement.nameColumn);
        if (auto* error = std::get_if<SyntaxError>(&method)) return *error;
        statement.name = std::get<std::string>(method);
        return readArguments(statement);
    }

    // A statement word followed by one name (target) and optionally a second.
    ParseResult readWithNames(Statement& statement, Statement::Kind kind, const char* first,
                              const char* second) {
        next();
        statement.kind = kind;
        auto target = expectName(first, &statement.targetColumn);
        if (auto* error = std::get_if<SyntaxError>(&target)) return *error;
        statement.target = std::get<std::string>(target);
        if (second) {
            auto name = expectName(second, &statement.nameColumn);
            if (auto* error = std::get_if<SyntaxError>(&name)) return *error;
            statement.name = std::get<std::string>(name);
        }
        return finish(statement);
    }

    // save VAR FILE, read VAR FILE: the file is a quoted string or one word.
    ParseResult readWithFile(Statement& statement, Statement::Kind kind) {
        next();
        statement.kind = kind;
        auto target = expectName("variable", &statement.targetColumn);
        if (auto* error = std::get_if<SyntaxError>(&target)) return *error;
        statement.target = std::get<std::string>(target);
        const Token& file = next();
        statement.nameColumn = file.column;
        if (file.kind != Token::Word && file.kind != Token::Quoted)
            return SyntaxError{file.column, "file name expected"};
        if (file.text.empty()) return SyntaxError{file.column, "file name expected"};
        statement.name = file.text;
        return finish(statement);
    }

    ParseResult readAlone(Statement& statement, Statement::Kind kind) {
        next();
        statement.kind = kind;
        return finish(statement);
    }

    std::vector<Token> tokens_;
    size_t position_ = 0;
};

} // namespace

ParseResult parseStatement(std::string_view line) {
    auto tokens = tokenize(line);
    if (auto* error = std::get_if<SyntaxError>(&tokens)) return *error;
    return StatementReader(std::get<std::vector<Token>>(std::move(tokens))).read();
}

const std::vector<std::string_view>& statementWords() {
    static const std::vector<std::string_view> words = {
        "classes", "del",  "errors", "exit", "help", "load", "methods",
        "new",     "quit", "read",   "save", "vars", "watch"};
    return words;
}

} // namespace kova::shell
