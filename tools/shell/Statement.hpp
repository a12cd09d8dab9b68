// One line of the kova shell, parsed: what to do, with which names and
// arguments, and the column of each piece so that complaints can point at it.
// Parsing knows nothing of the kernel; the session (Session.hpp) carries a
// statement out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kova::shell {

// An argument as typed. Columns count from 1.
struct Argument {
    enum Kind { Integer, Float, String, Variable, Null };
    Kind kind = Null;
    int64_t integer = 0; // Integer: the value (hexadecimal up to the pointer width)
    double real = 0;     // Float: the value, passed as a 32-bit float by pointer
    std::string text;    // String: the characters; Variable: the name
    size_t column = 0;
};

struct Statement {
    enum Kind {
        Empty,     // blank line or comment
        New,       // [var =] new CLASS args
        Send,      // [var =] VAR METHOD args
        ClassSend, // [var =] CLASS! METHOD args
        Match,     // [var =] match PROTOCOL [PERSONALITY]
        Delete,    // del VAR
        Load,      // load CLASS
        Classes,   // classes
        Methods,   // methods CLASS
        Watch,     // watch VAR EVENT
        Errors,    // errors
        Save,      // save VAR FILE
        Read,      // read VAR FILE
        Show,      // VAR: prints the variable's value
        Variables, // vars
        Help,      // help
        Quit       // quit, exit
    };
    Kind kind = Empty;
    std::string assignTo; // variable receiving the result, or empty
    std::string target;   // the variable or class the statement acts on
    std::string name;     // the method, class, event or file name; a personality
    std::vector<Argument> args;
    size_t targetColumn = 0;
    size_t nameColumn = 0;
};

struct SyntaxError {
    size_t column; // where the line stops making sense, from 1
    std::string message;
};

using ParseResult = std::variant<Statement, SyntaxError>;

// Parses one line. Never throws; a line that is not a statement gives the
// column of the first piece that does not fit.
ParseResult parseStatement(std::string_view line);

// The statement words, for help and completion.
const std::vector<std::string_view>& statementWords();

} // namespace kova::shell
