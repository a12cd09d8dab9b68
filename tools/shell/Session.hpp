// A kova shell session: the variables, the texts and floats handed to the
// kernel, the objects made and the watches set, and the one error slot every
// send of the session uses. It carries out parsed statements on a running
// kernel (the caller starts and stops the kernel around it) and prints what
// happened to one output stream. It knows nothing of terminals.
//
// The error slot keeps its stack between statements, as a program's would:
// a send that fails prints the errors it added on top, and "errors" prints the
// whole stack and clears it.
#pragma once

#include "kova/host.h"
#include "kova/kernel.h"
#include "tools/shell/ResultKinds.hpp"
#include "tools/shell/Statement.hpp"

#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kova::shell {

class Session {
  public:
    explicit Session(FILE* out);
    // Deletes, newest first, the objects the session made that still exist,
    // then its watches, then whatever is left in the error slot.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Parses and carries out one line. Answers false when the line failed: a
    // syntax error, an unknown name, an error left in the slot, or a kernel
    // message shown while it ran.
    bool runLine(std::string_view line);
    bool quitRequested() const { return quit_; }

    // For completion: the names of the session's variables, of the classes in
    // the class table or the class location table, and of the methods a variable's object (or, for
    // `classMethods`, a class) answers, its ancestors' included.
    std::vector<std::string> variableNames() const;
    std::vector<std::string> classNames() const;
    std::vector<std::string> methodNames(std::string_view target, bool classMethods) const;

  private:
    struct Value {
        ResultKind kind = ResultKind::Integer;
        kvArg slot = 0;
    };
    struct Watch;

    bool run(const Statement& statement, std::string_view line);
    bool runNew(const Statement& statement, std::string_view line);
    bool runSend(const Statement& statement, std::string_view line);
    bool runMatch(const Statement& statement);
    bool made(const Statement& statement, kvObject object, kvObject slotBefore,
              unsigned long messagesBefore);
    bool runDelete(const Statement& statement, std::string_view line);
    bool runLoad(const Statement& statement);
    bool runClasses();
    bool runMethods(const Statement& statement);
    bool runWatch(const Statement& statement, std::string_view line);
    bool runErrors();
    bool runStreamed(const Statement& statement, std::string_view line);
    bool runShow(const Statement& statement, std::string_view line);
    bool runVariables();
    bool runHelp();

    // Reports a mistake at `column` of `line`, under a copy of the line.
    bool complain(std::string_view line, size_t column, const std::string& message);
    // The object held by the variable `name`, or null after complaining.
    kvObject objectOf(const std::string& name, size_t column, std::string_view line);
    // The slots for the arguments, or false after complaining.
    bool slotsFor(const std::vector<Argument>& args, std::string_view line,
                  std::vector<kvArg>& slots);
    // Finishes a statement that sent something: prints the errors the send
    // added and any kernel message; answers whether it went through cleanly.
    bool settle(kvObject slotBefore, unsigned long messagesBefore);
    void assign(const std::string& name, kvResult value, ResultKind kind);
    void track(kvObject object);
    void hearTermination(kvObject object);
    // Forgets an object that is gone: the session no longer deletes it, and
    // no variable holds it any longer.
    void forget(kvObject object);

    static kvResult heardTermination(void* session, const kvArgs* firing);
    static kvResult heardWatch(void* watch, const kvArgs* firing);
    static int showMessage(const char* text, const char* caption, unsigned style);

    FILE* out_;
    kvObject errorSlot_ = nullptr;
    std::map<std::string, Value, std::less<>> variables_;
    std::deque<std::string> texts_; // strings given to the kernel, alive until the end
    std::deque<float> floats_;      // floats given by pointer, alive until the end
    std::vector<kvObject> made_;    // objects made by "new" that still exist, oldest first
    std::set<kvObject> heard_;      // objects whose "OnTerm" the session hears
    std::vector<std::unique_ptr<Watch>> watches_;
    kvObject terminationWatch_ = nullptr; // hears "OnTerm" of the objects made
    bool quit_ = false;
    kvMessageBoxHook previousMessageHook_ = nullptr; // given back at the end
};

} // namespace kova::shell
