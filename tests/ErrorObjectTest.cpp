// Error objects: the message and help context, stacking in one slot, the
// collection list and its trimming, deletion, and the error dialog's logic.
#include "kova/errdialog.h"
#include "tests/KernelFixture.hpp"

#include <string>
#include <vector>

namespace kova::test {
namespace {

class ErrorObjectTest : public ShapeTest {
  protected:
    // The error a test examines may stay in the slot.
    void TearDown() override {
        clearErrors(error);
        ShapeTest::TearDown();
    }
    static kvObject next(kvObject e) {
        return reinterpret_cast<kvObject>(kvSendMeth(nullptr, e, "getNextESObj"));
    }
    static std::string source(kvObject e) {
        return reinterpret_cast<const char*>(kvSendMeth(nullptr, e, "getSource"));
    }
};

TEST_F(ErrorObjectTest, MessageIsFormattedAndHelpContextCutOff) {
    kvSendMeth(&error, shape, "error", "Shape", 3441, 7, "Width");
    EXPECT_EQ(errorMessage(error), "The specified index 7 is an invalid index. This error was "
                                   "encountered in an object whose name is: Width.");
    EXPECT_EQ(kvSendMeth(nullptr, error, "getHelpFileContextID"), 4016);
    EXPECT_EQ(source(error), "Shape");
    EXPECT_EQ(kvSendMeth(nullptr, error, "isA", "KOVAErr"), -1);
    clearErrors(error);

    kvSendMeth(&error, shape, "error", "Shape", 3486);
    EXPECT_EQ(errorMessage(error), "Message for error not found in registry.");
    EXPECT_EQ(kvSendMeth(nullptr, error, "getHelpFileContextID"), 0);
}

TEST_F(ErrorObjectTest, TwoErrorsInOneSlotFormAStackNewestFirst) {
    kvSendMeth(&error, shape, "error", "Shape", 3443);
    const kvObject first = error;
    kvSendMeth(&error, shape, "error", "Shape", 3429);
    const kvObject second = error;
    EXPECT_NE(first, second);
    EXPECT_EQ(next(second), first);
    EXPECT_EQ(kvSendMeth(nullptr, first, "getPrevESObj"), reinterpret_cast<kvResult>(second));
    // deleteTopError leaves the older one in the slot.
    kvSendMeth(&error, second, "deleteTopError");
    EXPECT_EQ(error, first);
    EXPECT_EQ(kvSendMeth(nullptr, first, "getPrevESObj"), 0);
    EXPECT_EQ(errorCode(error), 3443);
}

TEST_F(ErrorObjectTest, WithoutASlotAnErrorIsDeletedAtOnceAndMakeErrorHasItsOwnSource) {
    EXPECT_EQ(kvSendMeth(nullptr, shape, "error", "Shape", 3443), 0);
    EXPECT_EQ(kvSendMeth(nullptr, kvMakeError(3443), "getCode"), 3443);
    kvObject made = kvMakeError(3478, "Name", "bad");
    EXPECT_EQ(source(made), "kvMakeError");
    EXPECT_EQ(errorMessage(made), "Invalid string input; Parameter Name = bad");
    EXPECT_EQ(next(made), nullptr);
    clearErrors(made);
}

TEST_F(ErrorObjectTest, ErrorSystemReportsTheLastSystemError) {
    kvSendMeth(&error, shape, "errorSystem", "FileStream");
    EXPECT_EQ(errorCode(error), 3488);
    EXPECT_EQ(errorMessage(error).rfind("System Error: GetLastError returned ", 0), 0u);
    EXPECT_EQ(source(error), "FileStream");
}

TEST_F(ErrorObjectTest, FiftiethLiveErrorTrimsOldStacksNeverTheNewest) {
    // 49 errors, each alone in its own slot.
    std::vector<kvObject> slots(49, nullptr);
    for (kvObject& slot : slots)
        kvSendMeth(&slot, shape, "error", "Shape", 3443);
    const kvObject newestBefore = slots.back();
    EXPECT_NE(kvSendMeth(nullptr, slots.front(), "getPrevGCObj"), 0);
    kvObject fiftieth = nullptr;
    kvSendMeth(&fiftieth, shape, "error", "Shape", 3443);
    // The oldest were unlinked (but stay alive for their holders).
    EXPECT_EQ(kvSendMeth(nullptr, slots.front(), "getPrevGCObj"), 0);
    EXPECT_EQ(kvSendMeth(nullptr, slots.front(), "getNextGCObj"), 0);
    EXPECT_EQ(errorCode(slots.front()), 3443);
    EXPECT_EQ(kvSendMeth(nullptr, fiftieth, "getNextGCObj"), reinterpret_cast<kvArg>(newestBefore));
    // Every error is deleted once, whether its holder or the final collection does it.
    for (size_t i = 0; i < slots.size(); i += 2)
        clearErrors(slots[i]);
    clearErrors(fiftieth);
}

// One stack in use holds every error: it is never trimmed, however long, and
// keeps the rule while its top errors are deleted; once an error is raised
// into another slot, the old stack is trimmed whole.
TEST_F(ErrorObjectTest, ALongStackInUseIsKeptUntilAnotherSlotIsUsed) {
    for (int i = 0; i < 60; ++i)
        kvSendMeth(&error, shape, "error", "Shape", 3443);
    for (int i = 0; i < 5; ++i)
        kvSendMeth(&error, error, "deleteTopError");
    kvObject bottom = error;
    while (next(bottom))
        bottom = next(bottom);
    EXPECT_NE(kvSendMeth(nullptr, bottom, "getPrevGCObj"), 0);

    kvObject other = nullptr;
    kvSendMeth(&other, shape, "error", "Shape", 3429); // the stack in use is still the newest
    EXPECT_NE(kvSendMeth(nullptr, bottom, "getPrevGCObj"), 0);
    kvSendMeth(&other, shape, "error", "Shape", 3429);
    for (kvObject e = error; e; e = next(e)) {
        EXPECT_EQ(kvSendMeth(nullptr, e, "getPrevGCObj"), 0);
        EXPECT_EQ(kvSendMeth(nullptr, e, "getNextGCObj"), 0);
    }
    EXPECT_EQ(next(error), nullptr) << "a trimmed stack is unlinked, error by error";
    EXPECT_NE(kvSendMeth(nullptr, other, "getNextGCObj"), 0);
    clearErrors(other);
}

TEST_F(ErrorObjectTest, ErrorRaisedWhileAnErrorIsBeingMadeIsRefusedNotNested) {
    kvSendMeth(&error, shape, "error", "Shape", 3443); // every lookup is cached now
    clearErrors(error);
    // The new error's header is made, its data block is not: the 3426 that
    // follows is raised while the first error is being created.
    kvDebugFailAllocOnce(1);
    kvSendMeth(&error, shape, "error", "Shape", 3443);
    EXPECT_EQ(error, nullptr);
    ASSERT_EQ(shownMessages().size(), 2u);
    EXPECT_EQ(shownMessages()[0].text, "A system level KOVA error has occurred.  KOVA cannot "
                                       "recover.  Please terminate your application and restart.");
    EXPECT_EQ(shownMessages()[0].caption, "KOVA Error");
    EXPECT_EQ(shownMessages()[1].text, "Unable to allocate memory for error.");
    // The guard is down again: the next error is made as usual.
    kvSendMeth(&error, shape, "error", "Shape", 3443);
    EXPECT_EQ(errorCode(error), 3443);
}

TEST_F(ErrorObjectTest, GarbageCollectModeOneDeletesEveryError) {
    for (int i = 0; i < 5; ++i)
        kvSendMeth(&error, shape, "error", "Shape", 3443);
    kvSendClMeth(nullptr, kvFindClass("BaseError"), "GarbageCollect", 1);
    error = nullptr; // all gone; the sanitizer build checks nothing leaked
    kvObject fresh = nullptr;
    kvSendMeth(&fresh, shape, "error", "Shape", 3443);
    EXPECT_EQ(kvSendMeth(nullptr, fresh, "getNextGCObj"), 0);
    clearErrors(fresh);
}

TEST_F(ErrorObjectTest, OnTermIsFiredWhenAnErrorEnds) {
    kvSendMeth(&error, shape, "error", "Shape", 3443);
    kvObject watcher = listen(error, "OnTerm");
    clearErrors(error);
    EXPECT_EQ(calls(watcher), 1);
}

struct DialogRun {
    std::vector<std::string> codes;
    std::vector<std::pair<bool, bool>> enabled; // (Next, Previous) at each error
    std::string scode, source, message;
};
DialogRun* currentRun = nullptr;

void walkDialog(kvErrorDialog* dialog) {
    char text[256];
    kvErrorDialogFieldText(dialog, KV_ERRDLG_SCODE, text, sizeof text);
    currentRun->scode = text;
    kvErrorDialogFieldText(dialog, KV_ERRDLG_SOURCE, text, sizeof text);
    currentRun->source = text;
    kvErrorDialogFieldText(dialog, KV_ERRDLG_MESSAGE, text, sizeof text);
    currentRun->message = text;
    for (;;) {
        kvErrorDialogFieldText(dialog, KV_ERRDLG_CODE, text, sizeof text);
        currentRun->codes.push_back(text);
        currentRun->enabled.emplace_back(kvErrorDialogIsEnabled(dialog, KV_ERRDLG_NEXT),
                                         kvErrorDialogIsEnabled(dialog, KV_ERRDLG_PREVIOUS));
        if (!kvErrorDialogIsEnabled(dialog, KV_ERRDLG_NEXT)) break;
        EXPECT_EQ(kvErrorDialogCommand(dialog, KV_ERRDLG_NEXT), 0);
    }
    kvErrorDialogCommand(dialog, KV_ERRDLG_PREVIOUS);
    kvErrorDialogFieldText(dialog, KV_ERRDLG_CODE, text, sizeof text);
    currentRun->codes.push_back(text);
    EXPECT_NE(kvErrorDialogCommand(dialog, KV_ERRDLG_OK), 0);
}

TEST_F(ErrorObjectTest, DialogWalksTheStackAndShowsTheScode) {
    kvSendMeth(&error, shape, "error", "Shape", 3443);
    kvSendMeth(&error, shape, "error", "Shape", 3427, "spin", "Shape");
    DialogRun run;
    currentRun = &run;
    kvSetErrorDialogHook(walkDialog);
    kvShowErrorDialog(error);
    kvSetErrorDialogHook(nullptr);
    EXPECT_EQ(run.codes, (std::vector<std::string>{"3427", "3443", "3427"}));
    EXPECT_EQ(run.enabled, (std::vector<std::pair<bool, bool>>{{true, false}, {false, true}}));
    EXPECT_EQ(run.scode, "-2147218077");
    EXPECT_EQ(run.source, "Shape");
    EXPECT_EQ(run.message, "An unimplemented method spin was sent to class Shape");
}

void pressHelp(kvErrorDialog* dialog) {
    kvErrorDialogCommand(dialog, KV_ERRDLG_HELP);
}

TEST_F(ErrorObjectTest, DialogHelpOpensTheErrorsHelpFileAtItsContext) {
    kvSendMeth(&error, shape, "error", "Shape", 3470);
    kvSetHelpHook(recordHelpRequest);
    kvSetErrorDialogHook(pressHelp);
    kvShowErrorDialog(error);
    kvSetErrorDialogHook(nullptr);
    kvSetHelpHook(nullptr);
    EXPECT_EQ(helpRequest().file, "KOVAERR.HLP");
    EXPECT_EQ(helpRequest().command, 5u);
    EXPECT_EQ(helpRequest().data, 4045u);
}

} // namespace
} // namespace kova::test
