// The system registry through kova/registry.h: the real one on Windows, the
// store file on POSIX (kept in the tests' own folder). Each test works below
// a key of its own and removes it.
#include "kova/registry.h"
#include "tests/KernelFixture.hpp"

#include <fstream>
#include <string>

#ifndef _WIN32
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace kova::test {
namespace {

class RegistryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        shownMessages().clear();
        kvSetMessageBoxHook(capture);
        kvRegistryDeleteKey(root);
    }
    void TearDown() override {
        kvDebugFailAllocAfter(-1);
        kvRegistryDeleteKey(root);
        kvSetMessageBoxHook(nullptr);
    }
    static int capture(const char* text, const char* caption, unsigned style) {
        shownMessages().push_back({text, caption, style});
        return KV_IDOK;
    }
    static std::string key(const std::string& below) { return std::string(root) + "\\" + below; }
    static std::string value(const std::string& path) {
        char buffer[256];
        return kvRegistryGetValue(path.c_str(), buffer, sizeof buffer) ? buffer : "<none>";
    }
    static std::string subkeys(const std::string& path) {
        std::string names;
        char name[64];
        for (unsigned i = 0; kvRegistryEnumKey(path.c_str(), i, name, sizeof name); ++i)
            names += (names.empty() ? "" : " ") + std::string(name);
        return names;
    }
    static constexpr const char* root = "KOVA\\RegistryTest";
};

TEST_F(RegistryTest, KeysHoldDefaultValuesAndAreEnumeratedByNameWithoutRegardToCase) {
    ASSERT_EQ(kvRegistrySetValue(key("Beta\\Inner").c_str(), "deep"), 1);
    ASSERT_EQ(kvRegistryCreateKey(key("alpha").c_str()), 1);
    ASSERT_EQ(kvRegistrySetValue(key("Gamma").c_str(), ""), 1);
    EXPECT_EQ(subkeys(root), "alpha Beta Gamma");
    EXPECT_EQ(value(key("BETA\\inner")), "deep");
    EXPECT_EQ(value(key("Gamma")), "");
    EXPECT_EQ(value(key("alpha")), "<none>") << "a key made without a value has none";
    EXPECT_EQ(value(key("Beta")), "<none>") << "keys made on the way have no value";
    ASSERT_EQ(kvRegistrySetValue(key("ALPHA").c_str(), "second"), 1);
    EXPECT_EQ(subkeys(root), "alpha Beta Gamma") << "the name keeps its first spelling";
    EXPECT_EQ(value(key("alpha")), "second");

    EXPECT_EQ(kvRegistryDeleteKey(key("beta").c_str()), 1);
    EXPECT_EQ(subkeys(root), "alpha Gamma");
    EXPECT_EQ(value(key("Beta\\Inner")), "<none>");
    EXPECT_EQ(kvRegistryDeleteKey(key("beta").c_str()), 0);
}

TEST_F(RegistryTest, LongValuesAndNamesAreCutToTheBuffer) {
    const std::string forty(40, 'n');
    ASSERT_EQ(kvRegistrySetValue(key(forty).c_str(), forty.c_str()), 1);
    char buffer[32];
    ASSERT_EQ(kvRegistryGetValue(key(forty).c_str(), buffer, sizeof buffer), 1);
    EXPECT_EQ(std::string(buffer), forty.substr(0, 31));
    ASSERT_EQ(kvRegistryEnumKey(root, 0, buffer, sizeof buffer), 1);
    EXPECT_EQ(std::string(buffer), forty.substr(0, 31));
    EXPECT_EQ(kvRegistryEnumKey(root, 1, buffer, sizeof buffer), 0);
}

TEST_F(RegistryTest, NullAndEmptyArgumentsAreRefused) {
    char buffer[8] = "x";
    EXPECT_EQ(kvRegistryCreateKey(nullptr), 0);
    EXPECT_EQ(kvRegistrySetValue(nullptr, "v"), 0);
    EXPECT_EQ(kvRegistrySetValue("", "v"), 0);
    EXPECT_EQ(kvRegistrySetValue(key("k").c_str(), nullptr), 0);
    EXPECT_EQ(kvRegistryGetValue(nullptr, buffer, sizeof buffer), 0);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(kvRegistryGetValue(key("k").c_str(), nullptr, 8), 0);
    EXPECT_EQ(kvRegistryGetValue(key("k").c_str(), buffer, 0), 0);
    EXPECT_EQ(kvRegistryEnumKey(nullptr, 0, buffer, sizeof buffer), 0);
    EXPECT_EQ(kvRegistryDeleteKey(nullptr), 0);
    EXPECT_EQ(kvRegistryDeleteKey(""), 0) << "the root is never deleted";
}

#ifndef _WIN32
// The store file of the POSIX registry.
class RegistryStoreTest : public RegistryTest {
  protected:
    void SetUp() override {
        RegistryTest::SetUp();
        store = (settingsFolder() / "store-test").string();
        std::filesystem::remove(store);
        std::filesystem::remove(store + ".corrupt");
        kvSetRegistryStore(store.c_str());
    }
    void TearDown() override {
        RegistryTest::TearDown();
        kvSetRegistryStore((settingsFolder() / "registry").string().c_str());
    }
    static std::string readAll(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    static void writeAll(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    }
    std::string store;
};

TEST_F(RegistryStoreTest, IsATextFileThatAnotherProcessSeesAtOnce) {
    ASSERT_EQ(kvRegistrySetValue("A\\B=C", "x%y\nz"), 1);
    EXPECT_EQ(readAll(store), "KOVA registry store 1\nA\nA\\B%3DC=x%25y%0Az\nend of store\n");
    // Another process's change: the file replaced under the reader.
    writeAll(store + ".new", "KOVA registry store 1\nA\nA\\B%3DC=changed\nend of store\n");
    std::filesystem::rename(store + ".new", store);
    EXPECT_EQ(value("A\\b=c"), "changed");
    EXPECT_EQ(kvRegistryDeleteKey("A"), 1);
}

TEST_F(RegistryStoreTest, AKeyNamedLikeTheEndLineSurvivesARewrite) {
    ASSERT_EQ(kvRegistryCreateKey("end of store\\Below"), 1);
    EXPECT_EQ(readAll(store), "KOVA registry store 1\n%65nd of store\nend of store\\Below\nend of "
                              "store\n");
    EXPECT_EQ(kvRegistryCreateKey("Later"), 1);
    EXPECT_EQ(kvRegistryDeleteKey("end of store"), 1) << "the key was read back after the rewrite";
    EXPECT_EQ(kvRegistryDeleteKey("Later"), 1);
}

TEST_F(RegistryStoreTest, ACorruptStoreIsReportedOnceReadAsEmptyAndKeptUntilAChange) {
    for (const std::string& bad : std::initializer_list<std::string>{
             "KOVA registry store 1\nA=1\n", "not a store\nend of store\n",
             "KOVA registry store 1\nA=%G1\nend of store\n",
             "KOVA registry store 1\n\\\\=1\nend of store\n",
             "KOVA registry store 1\nend of store\nA\n",
             "KOVA registry store 1\nA=1\nend of store"}) {
        SCOPED_TRACE(bad);
        writeAll(store, bad);
        shownMessages().clear();
        EXPECT_EQ(value("A"), "<none>");
        EXPECT_EQ(value("A"), "<none>");
        ASSERT_EQ(shownMessages().size(), 1u);
        EXPECT_NE(shownMessages()[0].text.find(store), std::string::npos);
        EXPECT_EQ(readAll(store), bad) << "reading never rewrites the store";

        ASSERT_EQ(kvRegistrySetValue("B", "2"), 1);
        EXPECT_EQ(readAll(store + ".corrupt"), bad) << "the unreadable store is kept aside";
        EXPECT_EQ(value("B"), "2");
        EXPECT_EQ(shownMessages().size(), 1u);
    }
}

TEST_F(RegistryStoreTest, AStoreThatIsNoFileIsReportedAndKeptAside) {
    std::filesystem::create_directory(store);
    EXPECT_EQ(value("A"), "<none>");
    EXPECT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(kvRegistrySetValue("A", "1"), 1);
    EXPECT_TRUE(std::filesystem::is_directory(store + ".corrupt"));
    std::filesystem::remove(store + ".corrupt");
}

TEST_F(RegistryStoreTest, AWriterKilledMidWriteLeavesTheOldStoreOrTheNew) {
    const std::string big(4 << 20, 'v');
    ASSERT_EQ(kvRegistrySetValue("Big", "old"), 1);
    for (int round = 0; round < 8; ++round) {
        const pid_t writer = ::fork();
        ASSERT_GE(writer, 0);
        if (writer == 0) {
            for (;;)
                kvRegistrySetValue("Big", big.c_str());
        }
        ::usleep(20000 + round * 7000);
        ::kill(writer, SIGKILL);
        ::waitpid(writer, nullptr, 0);
        const std::string now = value("Big").substr(0, 3);
        EXPECT_TRUE(now == "old" || now == "vvv") << now;
        EXPECT_TRUE(shownMessages().empty());
        ASSERT_EQ(kvRegistrySetValue("Big", "old"), 1) << "a dead writer's lock is released";
    }
    for (const auto& entry : std::filesystem::directory_iterator(settingsFolder()))
        if (entry.path().extension() == ".tmp") std::filesystem::remove(entry.path());
    EXPECT_EQ(kvRegistryDeleteKey("Big"), 1);
}

TEST_F(RegistryStoreTest, AFailedAllocationChangesNothing) {
    ASSERT_EQ(kvRegistrySetValue("Keep\\Me", "1"), 1);
    const std::string before = readAll(store);
    failEachAllocation(
        [] {
            return kvRegistrySetValue("Keep\\New\\Deeper\\Key",
                                      "a value longer than a short string") == 1;
        },
        [&] { EXPECT_EQ(readAll(store), before); });
    EXPECT_EQ(value("Keep\\New\\Deeper\\Key"), "a value longer than a short string");
    EXPECT_EQ(value("Keep\\Me"), "1");
}

TEST_F(RegistryStoreTest, NamesTooLongOrEmptyAreRefused) {
    EXPECT_EQ(kvRegistryCreateKey(std::string(256, 'k').c_str()), 0);
    EXPECT_EQ(kvRegistryCreateKey(std::string(255, 'k').c_str()), 1);
    EXPECT_EQ(kvRegistryCreateKey("A\\\\B"), 0);
    EXPECT_EQ(kvRegistryCreateKey("A\\"), 0);
    EXPECT_EQ(kvRegistryDeleteKey(std::string(255, 'k').c_str()), 1);
}
#endif

} // namespace
} // namespace kova::test
