// The kova shell's statement parser and its completion. What the shell does
// with statements is checked by the scripts in tests/shell against their
// transcripts.
#include "tests/KernelFixture.hpp"
#include "tools/shell/Completion.hpp"
#include "tools/shell/Session.hpp"
#include "tools/shell/Statement.hpp"

#include <cstdio>

namespace kova::shell {
namespace {

Statement parsed(std::string_view line) {
    ParseResult result = parseStatement(line);
    EXPECT_TRUE(std::holds_alternative<Statement>(result)) << line;
    return std::holds_alternative<Statement>(result) ? std::get<Statement>(result) : Statement{};
}

SyntaxError refused(std::string_view line) {
    ParseResult result = parseStatement(line);
    EXPECT_TRUE(std::holds_alternative<SyntaxError>(result)) << line;
    return std::holds_alternative<SyntaxError>(result) ? std::get<SyntaxError>(result)
                                                       : SyntaxError{0, ""};
}

TEST(ShellParser, AnAssignedCreationKeepsEveryKindOfArgumentWithItsColumn) {
    const Statement s = parsed("p = new IntProp -5 0x1F \"a \\\"b\\\"\" 1.5 null q");
    EXPECT_EQ(s.kind, Statement::New);
    EXPECT_EQ(s.assignTo, "p");
    EXPECT_EQ(s.name, "IntProp");
    ASSERT_EQ(s.args.size(), 6u);
    EXPECT_EQ(s.args[0].integer, -5);
    EXPECT_EQ(s.args[1].integer, 31);
    EXPECT_EQ(s.args[2].kind, Argument::String);
    EXPECT_EQ(s.args[2].text, "a \"b\"");
    EXPECT_EQ(s.args[3].kind, Argument::Float);
    EXPECT_DOUBLE_EQ(s.args[3].real, 1.5);
    EXPECT_EQ(s.args[4].kind, Argument::Null);
    EXPECT_EQ(s.args[5].kind, Argument::Variable);
    EXPECT_EQ(s.args[5].column, 44u);
}

TEST(ShellParser, SendsToObjectsAndClassesAndTheStatementWords) {
    EXPECT_EQ(parsed("p storeData 7").kind, Statement::Send);
    const Statement classSend = parsed("IntProp! classInit");
    EXPECT_EQ(classSend.kind, Statement::ClassSend);
    EXPECT_EQ(classSend.target, "IntProp");
    EXPECT_EQ(classSend.name, "classInit");
    EXPECT_EQ(parsed("IntProp ! classInit").kind, Statement::ClassSend);
    EXPECT_EQ(parsed("watch p OnStore").name, "OnStore");
    EXPECT_EQ(parsed("save p \"a file.bin\"").name, "a file.bin");
    EXPECT_EQ(parsed("read p ../data/x-1.bin").name, "../data/x-1.bin");
    EXPECT_EQ(parsed("   # only a comment").kind, Statement::Empty);
    EXPECT_EQ(parsed("p").kind, Statement::Show);
    EXPECT_EQ(parsed("errors # and a comment").kind, Statement::Errors);
}

TEST(ShellParser, MistakesPointAtTheirColumn) {
    EXPECT_EQ(refused("p storeData 0x").column, 13u);
    EXPECT_EQ(refused("p storeData 12abc").column, 13u);
    EXPECT_EQ(refused("p storeData \"open").column, 13u);
    EXPECT_EQ(refused("p storeData \"bad \\q\"").column, 18u);
    EXPECT_EQ(refused("errors now").column, 8u);
    EXPECT_EQ(refused("del").column, 4u);
    EXPECT_EQ(refused("1x = new IntProp").column, 1u);
    EXPECT_EQ(refused("p = 5 fetchData").column, 5u);
    EXPECT_EQ(refused("p storeData 0x10000000000000000").message, "number out of range");
    EXPECT_EQ(refused("p storeData 1e999").message, "number out of range");
}

class ShellCompletion : public test::KernelTest {
  protected:
    void SetUp() override {
        KernelTest::SetUp();
        output = std::tmpfile();
        ASSERT_NE(output, nullptr);
    }
    void TearDown() override {
        std::fclose(output);
        KernelTest::TearDown();
    }
    FILE* output = nullptr;
};

TEST_F(ShellCompletion, OffersWhatFitsWhereTheWordStands) {
    Session session(output);
    ASSERT_TRUE(session.runLine("width = new IntProp 5 0 \"Width\" 1 1"));
    ASSERT_TRUE(session.runLine("wide = width fetchData"));
    using Names = std::vector<std::string>;
    EXPECT_EQ(completionsFor(session, "", "wi"), (Names{"wide", "width"}));
    EXPECT_EQ(completionsFor(session, "width ", "fetch"), (Names{"fetchAsString", "fetchData"}));
    EXPECT_EQ(completionsFor(session, "x = width ", "getN"), (Names{"getName"}));
    EXPECT_EQ(completionsFor(session, "new ", "IntP"), (Names{"IntProp"}));
    EXPECT_EQ(completionsFor(session, "IntProp! ", "class"), (Names{"classInit", "classTerm"}));
    EXPECT_EQ(completionsFor(session, "watch width ", "OnSt"), (Names{"OnStore"}));
    EXPECT_EQ(completionsFor(session, "width storeData ", "wid"), (Names{"wide", "width"}));
    EXPECT_TRUE(completionsFor(session, "wide ", "").empty()); // holds a number, not an object
}

} // namespace
} // namespace kova::shell
