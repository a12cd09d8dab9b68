// The tests' fixtures. KernelTest: a started kernel for each test, with the
// test class libraries "TESTSHP.DLL", "TESTWIDE.DLL", "TESTSGL.DLL",
// "TESTTECH.DLL" and "TESTLNK.DLL" in the class location table, every message box captured
// instead of shown, an error slot, and the objects the test makes deleted
// after it. FileTest: for the
// tables that live in files, without a kernel; the files are removed after
// the test.
#pragma once

#include "kova/classloc.h"
#include "kova/host.h"
#include "kova/kernel.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kova::test {

struct MessageBox {
    std::string text;
    std::string caption;
    unsigned style;
};

// The folder of this test program's registry store and INI files
// (kvSetRegistryStore, kvSetProfileFolder), removed when the tests end.
const std::filesystem::path& settingsFolder();

// Message boxes shown since the current test began.
std::vector<MessageBox>& shownMessages();

// What a help hook was last asked to show, and what it answers.
struct HelpRequest {
    std::string file;
    unsigned command = 0;
    uintptr_t data = 0;
    int answer = 1;
};
HelpRequest& helpRequest();
// A help hook that records its request in helpRequest().
int recordHelpRequest(const char* file, unsigned command, uintptr_t data);

class KernelTest : public ::testing::Test {
  protected:
    void SetUp() override;
    // Expects `error` to be empty: a test takes every error it causes. Then
    // deletes what `make` made in the order it was made:
    // a notifier goes before the subscribers made after it, so its "OnTerm"
    // still reaches them.
    void TearDown() override;

    kvObject error = nullptr;   // the slot the test's sends report to
    std::vector<kvObject> made; // deleted after the test

    // An object of `className` made with `args` (null when creation failed).
    template <typename... A> kvObject make(const char* className, A... args) {
        kvObject obj = kvNewObject(&error, className, args...);
        if (obj) made.push_back(obj);
        return obj;
    }
    // A Listener from TESTSHP.DLL that answers `answer` and, by `mode`, also
    // unsubscribes itself (1), deletes `target` or the notifier (2) or fires
    // the event again (3).
    kvObject listener(kvArg answer = 0, kvArg mode = 0, kvObject target = nullptr);
    // A Listener subscribed to `event` of `notifier` with "onEvent".
    kvObject listen(kvObject notifier, const char* event, kvArg answer = 0);
    static kvArg calls(kvObject listener);
    // The listener's slot `index` of the last notification: 0 the notifier,
    // 1 the event name, then the firing's own slots.
    static kvArg argOf(kvObject listener, kvArg index);

    // The code of the newest error in the slot, 0 for none; the slot is then
    // cleared.
    int32_t takeError();
    static std::string errorMessage(kvObject error);
    static int32_t errorCode(kvObject error);
    // Deletes the whole stack held in `slot`.
    static void clearErrors(kvObject& slot);
};

// Expects `call` to answer `answer` and to leave the error `code` (0 for
// none) newest in the fixture's slot, which is then cleared.
#define EXPECT_ERROR(call, answer, code)                                                           \
    do {                                                                                           \
        EXPECT_EQ(call, answer);                                                                   \
        EXPECT_EQ(takeError(), code);                                                              \
    } while (0)

// Makes the n-th allocation of `step` fail, for n = 0, 1, ... until `step`
// answers that it succeeded; after each failure `unchanged` checks that the
// failed step left nothing changed. Answers the number of failures.
template <typename Step, typename Check> int failEachAllocation(Step step, Check unchanged) {
    for (int n = 0; n < 200; ++n) {
        kvDebugFailAllocOnce(n);
        const bool done = step();
        kvDebugFailAllocAfter(-1);
        if (done) return n;
        unchanged();
    }
    ADD_FAILURE() << "the step never succeeded";
    return 200;
}

// A kernel test around one Shape of 3 sides from TESTSHP.DLL.
class ShapeTest : public KernelTest {
  protected:
    void SetUp() override;
    kvObject shape = nullptr;
};

class FileTest : public ::testing::Test {
  protected:
    // Removes the files and ends any allocation failure.
    void TearDown() override;
    // A fresh path in the temporary folder, named after the test.
    std::string tempPath();
    // A fresh file holding `bytes` as they are.
    std::string writeFile(std::string_view bytes);
    static std::string readFile(const std::string& path);

  private:
    std::vector<std::filesystem::path> files_;
};

} // namespace kova::test
