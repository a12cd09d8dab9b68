#include "tests/KernelFixture.hpp"

#include <chrono>
#include <fstream>
#include <iterator>

namespace kova::test {

namespace {
// Every kernel the tests start keeps its registry store and finds "KOVA.INI"
// in a folder of this test program's own, never in the user's.
class PrivateSettingsFolder : public ::testing::Environment {
  public:
    void SetUp() override {
        std::filesystem::create_directories(settingsFolder());
        kvSetRegistryStore((settingsFolder() / "registry").string().c_str());
        kvSetProfileFolder(settingsFolder().string().c_str());
    }
    void TearDown() override {
        std::error_code ignored;
        std::filesystem::remove_all(settingsFolder(), ignored);
    }
};
[[maybe_unused]] auto* const privateSettings =
    ::testing::AddGlobalTestEnvironment(new PrivateSettingsFolder);
} // namespace

const std::filesystem::path& settingsFolder() {
    static const std::filesystem::path folder =
        std::filesystem::temp_directory_path() /
        ("kova-tests-" +
         std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    return folder;
}

std::vector<MessageBox>& shownMessages() {
    static std::vector<MessageBox> messages;
    return messages;
}

HelpRequest& helpRequest() {
    static HelpRequest request;
    return request;
}

int recordHelpRequest(const char* file, unsigned command, uintptr_t data) {
    helpRequest().file = file ? file : "<null>";
    helpRequest().command = command;
    helpRequest().data = data;
    return helpRequest().answer;
}

namespace {
int captureMessageBox(const char* text, const char* caption, unsigned style) {
    shownMessages().push_back({text ? text : "", caption ? caption : "", style});
    return KV_IDOK;
}

struct LibraryRow {
    const char* className;
    const char* library;
};

constexpr LibraryRow testLibraryRows[] = {{"Shape", "TESTSHP.DLL"},
                                          {"Polygon", "TESTSHP.DLL"},
                                          {"Square", "TESTSHP.DLL"},
                                          {"Listener", "TESTSHP.DLL"},
                                          {"Broken", "TESTSHP.DLL"},
                                          {"CountedName", "TESTSHP.DLL"},
                                          {"Endless", "TESTSHP.DLL"},
                                          {"Wide", "TESTWIDE.DLL"},
                                          {"Solo", "TESTSGL.DLL"},
                                          {"Duet", "TESTSGL.DLL"},
                                          {"Echo", "TESTSGL.DLL"},
                                          {"Probe", "TESTLNK.DLL"},
                                          {"TestScanner", "TESTTECH.DLL"},
                                          {"TestRecognizer", "TESTTECH.DLL"},
                                          {"MultiRecognizer", "TESTTECH.DLL"},
                                          {"RegionList", "TESTTECH.DLL"},
                                          {"ProgressSink", "TESTTECH.DLL"},
                                          {"ImageStandIn", "TESTTECH.DLL"},
                                          {"TestTM", "TESTLNK.DLL"},
                                          {"SubSource", "TESTLNK.DLL"}};
} // namespace

void KernelTest::SetUp() {
    shownMessages().clear();
    helpRequest() = {};
    kvSetMessageBoxHook(captureMessageBox);
    kvInitialize();
    for (const LibraryRow& row : testLibraryRows)
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION(row.className, row.library), 1);
}

void KernelTest::TearDown() {
    kvDebugFailAllocAfter(-1);
    EXPECT_EQ(errorCode(error), 0) << "an error was left in the slot: " << errorMessage(error);
    clearErrors(error);
    for (kvObject obj : made)
        kvDelObject(nullptr, obj);
    kvTerminate();
    kvSetMessageBoxHook(nullptr);
}

kvObject KernelTest::listener(kvArg answer, kvArg mode, kvObject target) {
    kvObject obj = make("Listener");
    kvSendMeth(&error, obj, "configure", answer, mode, target);
    return obj;
}

kvObject KernelTest::listen(kvObject notifier, const char* event, kvArg answer) {
    kvObject subscriber = listener(answer);
    kvAddNotification(&error, notifier, event, subscriber, "onEvent", 1);
    return subscriber;
}

kvArg KernelTest::calls(kvObject listener) {
    return kvSendMeth(nullptr, listener, "getCalls");
}

kvArg KernelTest::argOf(kvObject listener, kvArg index) {
    return kvSendMeth(nullptr, listener, "getArg", index);
}

int32_t KernelTest::takeError() {
    const int32_t code = errorCode(error);
    clearErrors(error);
    return code;
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

void ShapeTest::SetUp() {
    KernelTest::SetUp();
    shape = make("Shape", 3);
    ASSERT_NE(shape, nullptr);
}

void FileTest::TearDown() {
    kvDebugFailAllocAfter(-1);
    helpRequest() = {};
    for (const std::filesystem::path& file : files_)
        std::filesystem::remove(file);
}

std::string FileTest::tempPath() {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    files_.push_back(std::filesystem::temp_directory_path() /
                     ("kova_" + std::string(test->test_suite_name()) + "_" + test->name() + "_" +
                      std::to_string(files_.size())));
    return files_.back().string();
}

std::string FileTest::writeFile(std::string_view bytes) {
    const std::string path = tempPath();
    std::ofstream(path, std::ios::binary).write(bytes.data(), std::ssize(bytes));
    return path;
}

std::string FileTest::readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace kova::test
