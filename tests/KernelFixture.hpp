// A started kernel for each test, with the test class library "TESTSHP.DLL"
// and "TESTWIDE.DLL" in the class location table, and every message box
// captured instead of shown.
#pragma once

#include "kova/classloc.h"
#include "kova/host.h"
#include "kova/kernel.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kova::test {

struct MessageBox {
    std::string text;
    std::string caption;
    unsigned style;
};

// Message boxes shown since the current test began.
std::vector<MessageBox>& shownMessages();

class KernelTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // The error left in `error`, checked to have `code`; answers its message.
    static std::string errorMessage(kvObject error);
    static int32_t errorCode(kvObject error);
    // Deletes the whole stack held in `slot`.
    static void clearErrors(kvObject& slot);
};

} // namespace kova::test
