#include "tests/KernelFixture.hpp"

namespace kova::test {

std::vector<MessageBox>& shownMessages() {
    static std::vector<MessageBox> messages;
    return messages;
}

namespace {
int captureMessageBox(const char* text, const char* caption, unsigned style) {
    shownMessages().push_back({text ? text : "", caption ? caption : "", style});
    return KV_IDOK;
}

constexpr const char* shapeLibraryClasses[] = {"Shape",    "Polygon", "Square",
                                               "Listener", "Relay",   "Broken"};
} // namespace

void KernelTest::SetUp() {
    shownMessages().clear();
    kvSetMessageBoxHook(captureMessageBox);
    kvInitialize();
    for (const char* name : shapeLibraryClasses)
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(name, "TESTSHP.DLL"), 1);
    ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("Wide", "TESTWIDE.DLL"), 1);
}

void KernelTest::TearDown() {
    kvTerminate();
    kvDebugFailAllocAfter(-1);
    kvSetMessageBoxHook(nullptr);
}

std::string KernelTest::errorMessage(kvObject error) {
    if (!error) return "<no error>";
    const auto* text = reinterpret_cast<const char*>(kvSendMeth(nullptr, error, "getMessage"));
    return text ? text : "<null message>";
}

int32_t KernelTest::errorCode(kvObject error) {
    return error ? static_cast<int32_t>(kvSendMeth(nullptr, error, "getCode")) : 0;
}

void KernelTest::clearErrors(kvObject& slot) {
    while (slot)
        kvSendMeth(&slot, slot, "deleteTopError");
}

} // namespace kova::test
