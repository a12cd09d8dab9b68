// Carrying out the shell's statements on the running kernel (see the header).
#include "tools/shell/Session.hpp"

#include "kova/classloc.h"
#include "kova/host.h"
#include "kova/match.h"
#include "tools/shell/Display.hpp"
#include "tools/shell/ShellWatch.hpp"

#include <algorithm>
#include <cstring>
#include <set>

namespace kova::shell {

struct Session::Watch {
    Session* session;
    std::string label; // "p OnStore"
    std::string event;
    kvObject watcher = nullptr;
};

namespace {

// Kernel messages go to the session that is running; the count tells a
// statement whether one came while it ran.
FILE* messageOut = nullptr;
unsigned long messagesShown = 0;

// Events whose firing slots are texts, so that a watch shows them as texts.
bool eventSlotIsText(std::string_view event, size_t slot) {
    return event == "OnWillChangeName" && slot < 2;
}

const char* helpText =
    "Statements:\n"
    "  VAR = new CLASS ARGS...     make an object (the variable is optional)\n"
    "  [VAR =] VAR METHOD ARGS...  send a method to the variable's object\n"
    "  [VAR =] CLASS! METHOD ARGS  send a class method\n"
    "  [VAR =] match PROTOCOL [PERSONALITY]  make a component's personality module\n"
    "  del VAR                     delete the variable's object\n"
    "  load CLASS                  register a class, loading its library\n"
    "  classes                     list the classes\n"
    "  methods CLASS               list a class's methods with argument counts\n"
    "  watch VAR EVENT             print every firing of EVENT on the object\n"
    "  errors                      print the error slot's stack and clear it\n"
    "  save VAR FILE, read VAR FILE  write or read the object through a FileStream\n"
    "  VAR                         print the variable's value\n"
    "  vars, help, quit\n"
    "Arguments: 12, -3, 0x1F, \"text\", 1.5 (a float, passed by pointer), null, VAR.\n";

} // namespace

Session::Session(FILE* out) : out_(out) {
    messageOut = out;
    previousMessageHook_ = kvSetMessageBoxHook(&Session::showMessage);
    // The subscriber class lives in the shell's own class library.
    kvTableInsertEntry_CLASSLOCATION(watchClassName, watchLibraryName);
    terminationWatch_ =
        kvNewObject(&errorSlot_, watchClassName,
                    reinterpret_cast<void*>(&Session::heardTermination), static_cast<void*>(this));
    if (errorSlot_) {
        printErrorStack(out_, errorSlot_, nullptr);
        deleteErrorStack(&errorSlot_);
    }
}

Session::~Session() {
    kvObject cleanup = nullptr;
    while (!made_.empty()) {
        const kvObject object = made_.back();
        made_.pop_back();
        kvDelObject(&cleanup, object);
    }
    for (const auto& watch : watches_)
        kvDelObject(&cleanup, watch->watcher);
    if (terminationWatch_) kvDelObject(&cleanup, terminationWatch_);
    deleteErrorStack(&cleanup);
    deleteErrorStack(&errorSlot_);
    kvSetMessageBoxHook(previousMessageHook_);
    messageOut = nullptr;
}

int Session::showMessage(const char* text, const char* caption, unsigned) {
    ++messagesShown;
    if (!messageOut) return KV_IDOK;
    std::string shown = text ? text : "";
    while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r'))
        shown.pop_back();
    std::fprintf(messageOut, "%s: %s\n", caption ? caption : "KOVA", shown.c_str());
    return KV_IDOK;
}

kvResult Session::heardTermination(void* session, const kvArgs* firing) {
    static_cast<Session*>(session)->forget(reinterpret_cast<kvObject>(kvArgAt(firing, 0)));
    return 0;
}

kvResult Session::heardWatch(void* context, const kvArgs* firing) {
    const auto* watch = static_cast<const Watch*>(context);
    std::string line = "[" + watch->label + "]";
    for (size_t i = 2; i < (firing ? firing->count : 0); ++i) {
        const auto kind =
            eventSlotIsText(watch->event, i - 2) ? ResultKind::Text : ResultKind::Integer;
        line += " " + shownValue(kvArgAt(firing, i), kind);
    }
    std::fprintf(watch->session->out_, "%s\n", line.c_str());
    return 0;
}

bool Session::runLine(std::string_view line) {
    const ParseResult parsed = parseStatement(line);
    if (const auto* error = std::get_if<SyntaxError>(&parsed))
        return complain(line, error->column, "syntax error: " + error->message);
    return run(std::get<Statement>(parsed), line);
}

bool Session::run(const Statement& statement, std::string_view line) {
    switch (statement.kind) {
    case Statement::Empty:
        return true;
    case Statement::New:
        return runNew(statement, line);
    case Statement::Send:
    case Statement::ClassSend:
        return runSend(statement, line);
    case Statement::Match:
        return runMatch(statement);
    case Statement::Delete:
        return runDelete(statement, line);
    case Statement::Load:
        return runLoad(statement);
    case Statement::Classes:
        return runClasses();
    case Statement::Methods:
        return runMethods(statement);
    case Statement::Watch:
        return runWatch(statement, line);
    case Statement::Errors:
        return runErrors();
    case Statement::Save:
    case Statement::Read:
        return runStreamed(statement, line);
    case Statement::Show:
        return runShow(statement, line);
    case Statement::Variables:
        return runVariables();
    case Statement::Help:
        return runHelp();
    case Statement::Quit:
        quit_ = true;
        return true;
    }
    return false;
}

bool Session::complain(std::string_view line, size_t column, const std::string& message) {
    std::fprintf(out_, "  %.*s\n  %*s^\n%s (column %s)\n", static_cast<int>(line.size()),
                 line.data(), static_cast<int>(column > 0 ? column - 1 : 0), "", message.c_str(),
                 std::to_string(column).c_str());
    return false;
}

kvObject Session::objectOf(const std::string& name, size_t column, std::string_view line) {
    const auto found = variables_.find(name);
    if (found == variables_.end()) {
        complain(line, column, "no variable '" + name + "'");
        return nullptr;
    }
    if (found->second.kind != ResultKind::Object || !found->second.slot) {
        complain(line, column, "'" + name + "' holds no object");
        return nullptr;
    }
    return reinterpret_cast<kvObject>(found->second.slot);
}

bool Session::slotsFor(const std::vector<Argument>& args, std::string_view line,
                       std::vector<kvArg>& slots) {
    for (const Argument& argument : args) {
        switch (argument.kind) {
        case Argument::Integer:
            slots.push_back(static_cast<kvArg>(argument.integer));
            break;
        case Argument::Null:
            slots.push_back(0);
            break;
        case Argument::String:
            texts_.push_back(argument.text);
            slots.push_back(reinterpret_cast<kvArg>(texts_.back().c_str()));
            break;
        case Argument::Float:
            floats_.push_back(static_cast<float>(argument.real));
            slots.push_back(reinterpret_cast<kvArg>(&floats_.back()));
            break;
        case Argument::Variable: {
            const auto found = variables_.find(argument.text);
            if (found == variables_.end())
                return complain(line, argument.column, "no variable '" + argument.text + "'");
            slots.push_back(found->second.slot);
            break;
        }
        }
    }
    return true;
}

bool Session::settle(kvObject slotBefore, unsigned long messagesBefore) {
    const bool raised = errorSlot_ != slotBefore;
    if (raised) printErrorStack(out_, errorSlot_, slotBefore);
    return !raised && messagesShown == messagesBefore;
}

void Session::assign(const std::string& name, kvResult value, ResultKind kind) {
    Value held{kind, value};
    if (kind == ResultKind::Text && value) {
        // The text belongs to the object that answered it and may change or
        // go; the variable keeps a copy that lives as long as the session.
        texts_.emplace_back(reinterpret_cast<const char*>(value));
        held.slot = reinterpret_cast<kvArg>(texts_.back().c_str());
    }
    if (kind == ResultKind::Object) hearTermination(reinterpret_cast<kvObject>(value));
    variables_[name] = held;
}

void Session::track(kvObject object) {
    made_.push_back(object);
    hearTermination(object);
}

// Objects that announce their end ("OnTerm": properties, errors, components)
// may be deleted by an owner or by a send; the session then forgets them.
void Session::hearTermination(kvObject object) {
    if (!terminationWatch_ || !object || !heard_.insert(object).second) return;
    kvObject subscribeSlot = nullptr;
    kvAddNotification(&subscribeSlot, object, "OnTerm", terminationWatch_, watchMethodName, 0);
    deleteErrorStack(&subscribeSlot);
}

void Session::forget(kvObject object) {
    heard_.erase(object);
    std::erase(made_, object);
    std::erase_if(variables_, [object](const auto& entry) {
        return entry.second.kind == ResultKind::Object &&
               entry.second.slot == reinterpret_cast<kvArg>(object);
    });
}

bool Session::runNew(const Statement& statement, std::string_view line) {
    std::vector<kvArg> slots;
    if (!slotsFor(statement.args, line, slots)) return false;
    const kvArgs list{slots.data(), slots.size()};
    const kvObject slotBefore = errorSlot_;
    const unsigned long messagesBefore = messagesShown;
    const kvObject object = kvNewObjectNA(&errorSlot_, statement.name.c_str(), &list);
    return made(statement, object, slotBefore, messagesBefore);
}

// Prints the object made by "new" or "match" (assigned when asked) and
// answers whether it was made cleanly.
bool Session::made(const Statement& statement, kvObject object, kvObject slotBefore,
                   unsigned long messagesBefore) {
    const auto value = reinterpret_cast<kvResult>(object);
    if (object) track(object);
    if (!statement.assignTo.empty()) {
        if (object) assign(statement.assignTo, value, ResultKind::Object);
        std::fprintf(out_, "%s = %s\n", statement.assignTo.c_str(),
                     shownValue(value, ResultKind::Object).c_str());
    } else {
        std::fprintf(out_, "= %s\n", shownValue(value, ResultKind::Object).c_str());
    }
    return settle(slotBefore, messagesBefore) && object;
}

// The personality module the protocol table names, made by MatchMake.
bool Session::runMatch(const Statement& statement) {
    const kvObject slotBefore = errorSlot_;
    const unsigned long messagesBefore = messagesShown;
    const kvObject object = MatchMake(&errorSlot_, statement.target.c_str(),
                                      statement.name.empty() ? nullptr : statement.name.c_str());
    return made(statement, object, slotBefore, messagesBefore);
}

bool Session::runSend(const Statement& statement, std::string_view line) {
    const bool toClass = statement.kind == Statement::ClassSend;
    kvObject object = nullptr;
    kvClass cls = nullptr;
    const kvObject slotBefore = errorSlot_;
    const unsigned long messagesBefore = messagesShown;
    if (toClass) {
        cls = kvRegisterClass(statement.target.c_str());
        if (!cls) return complain(line, statement.targetColumn, "no class " + statement.target);
    } else {
        object = objectOf(statement.target, statement.targetColumn, line);
        if (!object) return false;
        cls = object->cls;
    }
    std::vector<kvArg> slots;
    if (!slotsFor(statement.args, line, slots)) return false;
    const kvArgs list{slots.data(), slots.size()};

    kvClass definingClass = nullptr;
    kvFindMethod(&definingClass, cls, statement.name.c_str(), toClass ? 1 : 0);
    const ResultKind kind = resultKindOf(definingClass, statement.name.c_str());
    const kvResult result = toClass
                                ? kvSendClMethNA(&errorSlot_, cls, statement.name.c_str(), &list)
                                : kvSendMethNA(&errorSlot_, object, statement.name.c_str(), &list);
    // The send may have deleted the object (a method that ends its receiver);
    // "OnTerm" has then made the session forget it.
    const std::string shown = shownValue(result, kind);
    if (!statement.assignTo.empty()) {
        assign(statement.assignTo, result, kind);
        std::fprintf(out_, "%s = %s\n", statement.assignTo.c_str(), shown.c_str());
    } else {
        std::fprintf(out_, "= %s\n", shown.c_str());
    }
    return settle(slotBefore, messagesBefore);
}

bool Session::runDelete(const Statement& statement, std::string_view line) {
    const kvObject object = objectOf(statement.target, statement.targetColumn, line);
    if (!object) return false;
    const kvObject slotBefore = errorSlot_;
    const unsigned long messagesBefore = messagesShown;
    kvDelObject(&errorSlot_, object);
    forget(object);
    return settle(slotBefore, messagesBefore);
}

bool Session::runLoad(const Statement& statement) {
    const unsigned long messagesBefore = messagesShown;
    const kvClass cls = kvRegisterClass(statement.target.c_str());
    if (!cls) return false;
    std::fprintf(out_, "%s (parent %s)\n", cls->name, cls->parent ? cls->parent->name : "none");
    return messagesShown == messagesBefore;
}

bool Session::runClasses() {
    for (size_t i = 0; i < kvGetClassCount(); ++i) {
        const kvClass cls = kvGetClassAt(i);
        std::fprintf(out_, "%s%s%s%s\n", cls->name, cls->parent ? " (" : "",
                     cls->parent ? cls->parent->name : "", cls->parent ? ")" : "");
    }
    return true;
}

namespace {

void printTable(FILE* out, const char* className, const char* what, const kvMethodTable* table) {
    if (!table || !table->count) return;
    std::fprintf(out, "%s %s:", className, what);
    for (uint16_t i = 0; i < table->count; ++i)
        std::fprintf(out, " %.32s(%u)", table->records[i].name, table->records[i].argCount);
    std::fprintf(out, "\n");
}

} // namespace

bool Session::runMethods(const Statement& statement) {
    const unsigned long messagesBefore = messagesShown;
    const kvClass cls = kvRegisterClass(statement.target.c_str());
    if (!cls) return false;
    for (kvClass c = cls; c; c = c->parent) {
        printTable(out_, c->name, "methods", c->methodTable);
        printTable(out_, c->name, "class methods", c->classMethodTable);
    }
    return messagesShown == messagesBefore;
}

bool Session::runWatch(const Statement& statement, std::string_view line) {
    const kvObject object = objectOf(statement.target, statement.targetColumn, line);
    if (!object) return false;
    auto watch = std::make_unique<Watch>();
    watch->session = this;
    watch->label = statement.target + " " + statement.name;
    watch->event = statement.name;
    const kvObject slotBefore = errorSlot_;
    const unsigned long messagesBefore = messagesShown;
    watch->watcher =
        kvNewObject(&errorSlot_, watchClassName, reinterpret_cast<void*>(&Session::heardWatch),
                    static_cast<void*>(watch.get()));
    if (watch->watcher) {
        kvAddNotification(&errorSlot_, object, statement.name.c_str(), watch->watcher,
                          watchMethodName, 0);
        watches_.push_back(std::move(watch));
    }
    return settle(slotBefore, messagesBefore);
}

bool Session::runErrors() {
    if (!errorSlot_) {
        std::fprintf(out_, "no errors\n");
        return true;
    }
    printErrorStack(out_, errorSlot_, nullptr);
    deleteErrorStack(&errorSlot_);
    return true;
}

// save VAR FILE and read VAR FILE: the object writes or reads itself
// ("writeToStream", "readFromStream") through a FileStream on the file.
bool Session::runStreamed(const Statement& statement, std::string_view line) {
    const kvObject object = objectOf(statement.target, statement.targetColumn, line);
    if (!object) return false;
    const bool saving = statement.kind == Statement::Save;
    const kvObject slotBefore = errorSlot_;
    const unsigned long messagesBefore = messagesShown;
    const kvObject stream =
        kvNewObject(&errorSlot_, "FileStream", statement.name.c_str(), saving ? "wb" : "rb");
    if (!stream) {
        settle(slotBefore, messagesBefore);
        return false;
    }
    if (errorSlot_ == slotBefore) {
        kvSendMeth(&errorSlot_, object, saving ? "writeToStream" : "readFromStream", stream);
        const kvResult bytes = kvSendMeth(&errorSlot_, stream, "getPos");
        std::fprintf(out_, "%s %ld bytes %s %s\n", saving ? "wrote" : "read",
                     static_cast<long>(bytes), saving ? "to" : "from", statement.name.c_str());
    }
    kvDelObject(&errorSlot_, stream);
    return settle(slotBefore, messagesBefore);
}

bool Session::runShow(const Statement& statement, std::string_view line) {
    const auto found = variables_.find(statement.target);
    if (found == variables_.end())
        return complain(line, statement.targetColumn, "no variable '" + statement.target + "'");
    std::fprintf(out_, "%s = %s\n", statement.target.c_str(),
                 shownValue(found->second.slot, found->second.kind).c_str());
    return true;
}

bool Session::runVariables() {
    for (const auto& [name, value] : variables_)
        std::fprintf(out_, "%s = %s\n", name.c_str(), shownValue(value.slot, value.kind).c_str());
    return true;
}

bool Session::runHelp() {
    std::fputs(helpText, out_);
    return true;
}

std::vector<std::string> Session::variableNames() const {
    std::vector<std::string> names;
    for (const auto& entry : variables_)
        names.push_back(entry.first);
    return names;
}

std::vector<std::string> Session::classNames() const {
    std::vector<std::string> names;
    for (size_t i = 0; i < kvGetClassCount(); ++i)
        names.emplace_back(kvGetClassAt(i)->name);
    // Classes not loaded yet are known only where the class location table
    // names them (the kernel's own are found without an entry).
    for (size_t i = 0; i < kvTableGetCount_CLASSLOCATION(); ++i)
        if (const char* name = kvTableGetKey_CLASSLOCATION(i)) names.emplace_back(name);
    return names;
}

std::vector<std::string> Session::methodNames(std::string_view target, bool classMethods) const {
    kvClass cls = nullptr;
    if (classMethods) {
        cls = kvFindClass(std::string(target).c_str());
    } else {
        const auto found = variables_.find(target);
        if (found != variables_.end() && found->second.kind == ResultKind::Object &&
            found->second.slot)
            cls = reinterpret_cast<kvObject>(found->second.slot)->cls;
    }
    std::set<std::string> names;
    for (; cls; cls = cls->parent) {
        const kvMethodTable* table = classMethods ? cls->classMethodTable : cls->methodTable;
        for (uint16_t i = 0; table && i < table->count; ++i)
            names.emplace(table->records[i].name,
                          strnlen(table->records[i].name, KV_METHOD_NAME_SIZE));
    }
    return {names.begin(), names.end()};
}

} // namespace kova::shell
