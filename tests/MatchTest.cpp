// Match: the protocol table copied from an INI file into "KOVA\Protocols",
// components made from it with MatchPM of TESTVER.DLL, and the table written
// back.
#include "kova/match.h"
#include "kova/registry.h"
#include "tests/KernelFixture.hpp"

#include <fstream>

namespace kova::test {
namespace {

constexpr const char* exchange = "[Protocols]\r\n"
                                 "total=2\r\n"
                                 "Protocol0=Display\r\n"
                                 "Protocol1=File\r\n"
                                 "[Protocol0]\r\n"
                                 "default=MatchPM\r\n"
                                 "total=2\r\n"
                                 "Personality0=MatchPM\r\n"
                                 "Personality1=OtherPM\r\n"
                                 "MatchPM=DispTM\r\n"
                                 "OtherPM=OtherTM\r\n"
                                 "[Protocol1]\r\n"
                                 "default=\r\n"
                                 "total=0\r\n";

class MatchTest : public KernelTest {
  protected:
    void SetUp() override {
        KernelTest::SetUp();
        kvRegistryDeleteKey("KOVA\\Protocols");
        ASSERT_EQ(kvTableInsertEntry_CLASSLOCATION("MatchPM", "TESTVER.DLL"), 1);
        ini = std::filesystem::absolute(files.tempPath()).string();
    }
    void TearDown() override {
        kvRegistryDeleteKey("KOVA\\Protocols");
        std::filesystem::remove(ini);
        std::filesystem::remove(ini + ".out");
        KernelTest::TearDown();
    }
    void load(const std::string& text) {
        std::ofstream(ini, std::ios::binary) << text;
        ASSERT_EQ(MatchInit(ini.c_str()), 1);
    }
    static std::string value(const std::string& key) {
        char buffer[64];
        return kvRegistryGetValue(("KOVA\\Protocols\\" + key).c_str(), buffer, sizeof buffer)
                   ? buffer
                   : "<none>";
    }
    static std::string technologyOf(kvObject personality) {
        return reinterpret_cast<const char*>(kvSendMeth(nullptr, personality, "getTMName"));
    }
    struct Files : FileTest {
        void TestBody() override {}
        using FileTest::tempPath;
    } files;
    std::string ini;
};

TEST_F(MatchTest, TheIniFileFillsTheRegistryTable) {
    load(exchange);
    EXPECT_EQ(value("Display"), "MatchPM");
    EXPECT_EQ(value("Display\\MatchPM"), "DispTM");
    EXPECT_EQ(value("Display\\OtherPM"), "OtherTM");
    EXPECT_EQ(value("File"), "");
}

TEST_F(MatchTest, MakeUsesTheGivenPersonalityOrTheProtocolsDefault) {
    load(exchange);
    kvObject byDefault = MatchMake(&error, "Display", nullptr);
    ASSERT_NE(byDefault, nullptr);
    made.push_back(byDefault);
    EXPECT_EQ(technologyOf(byDefault), "DispTM");
    kvObject byEmpty = MatchMake(&error, "display", "");
    ASSERT_NE(byEmpty, nullptr);
    made.push_back(byEmpty);
    kvObject named = MatchMake(&error, "Display", "MatchPM");
    ASSERT_NE(named, nullptr);
    made.push_back(named);
    EXPECT_EQ(technologyOf(named), "DispTM");

    EXPECT_EQ(MatchMake(&error, "Display", "UnknownPM"), nullptr) << "no fallback to the default";
    EXPECT_EQ(MatchMake(&error, "File", nullptr), nullptr) << "no default personality";
    EXPECT_EQ(MatchMake(&error, "Scanner", nullptr), nullptr);
    EXPECT_EQ(MatchMake(&error, nullptr, nullptr), nullptr);
    EXPECT_EQ(takeError(), 0);

    // A personality whose class cannot be made: the kernel's own report.
    EXPECT_EQ(MatchMake(&error, "Display", "OtherPM"), nullptr);
    EXPECT_FALSE(shownMessages().empty() && error == nullptr);
    clearErrors(error);
}

TEST_F(MatchTest, NamesAreCutTo31Characters) {
    const std::string forty(40, 'p');
    load("[Protocols]\ntotal=1\nProtocol0=" + forty + "\n[Protocol0]\ndefault=" + forty +
         "\ntotal=1\nPersonality0=" + forty + "\n" + forty + "=" + forty + "\n");
    const std::string cut = forty.substr(0, 31);
    EXPECT_EQ(value(cut), cut);
    EXPECT_EQ(value(cut + "\\" + cut), "") << "the technology is looked up by the cut name";
    EXPECT_EQ(value(forty), "<none>");
}

TEST_F(MatchTest, TermWritesTheTableBackNumberedInRegistryOrderAfterAWarning) {
    load(exchange);
    EXPECT_EQ(MatchTerm((ini + ".out").c_str()), 0);
    ASSERT_EQ(shownMessages().size(), 1u);
    EXPECT_EQ(shownMessages()[0].text, "Attempt to call MatchTerm");
    EXPECT_EQ(shownMessages()[0].caption, "Quillon Error");
    EXPECT_EQ(shownMessages()[0].style, static_cast<unsigned>(KV_MB_ICONSTOP));

    const std::string out = ini + ".out";
    char text[64];
    auto read = [&](const char* section, const char* key) {
        kvProfileGetString(section, key, "<none>", text, sizeof text, out.c_str());
        return std::string(text);
    };
    EXPECT_EQ(read("Protocols", "total"), "2");
    EXPECT_EQ(read("Protocols", "Protocol0"), "Display");
    EXPECT_EQ(read("Protocols", "Protocol1"), "File");
    EXPECT_EQ(read("Protocol0", "total"), "2");
    EXPECT_EQ(read("Protocol0", "default"), "MatchPM");
    EXPECT_EQ(read("Protocol0", "Personality0"), "MatchPM");
    EXPECT_EQ(read("Protocol0", "Personality1"), "OtherPM");
    EXPECT_EQ(read("Protocol0", "OtherPM"), "OtherTM");
    EXPECT_EQ(read("Protocol1", "total"), "0");
    EXPECT_EQ(read("Protocol1", "default"), "");

    // Read back, the written file makes the same table.
    kvRegistryDeleteKey("KOVA\\Protocols");
    ASSERT_EQ(MatchInit(out.c_str()), 1);
    EXPECT_EQ(value("Display\\OtherPM"), "OtherTM");
    EXPECT_EQ(value("Display"), "MatchPM");
}

TEST_F(MatchTest, ABrokenIniFileMakesWhatItCan) {
    load("[Protocols]\ntotal=3\nProtocol0=\nProtocol2=Only\n[Protocol2]\ntotal=99\n"
         "Personality5=Lone\nLone=LoneTM\ngarbage line\n\x01\x02\xff=\n");
    EXPECT_EQ(value("Only"), "");
    EXPECT_EQ(value("Only\\Lone"), "LoneTM");
    char name[32];
    EXPECT_EQ(kvRegistryEnumKey("KOVA\\Protocols", 1, name, sizeof name), 0);
    EXPECT_EQ(MatchInit(nullptr), 1) << "no file: an empty table";
}

} // namespace
} // namespace kova::test
