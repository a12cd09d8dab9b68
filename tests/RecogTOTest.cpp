// The recognition technology base: its inputs and output, the walk over a
// linked region list with progress reports as event 501 (integer division
// first, so every report inside the walk is 0), unlinked, empty and
// shrinking lists, and recognisers that take every region at once.
#include "tests/PropertyFixture.hpp"

#include <string>
#include <vector>

namespace kova::test {
namespace {

class RecogTOTest : public PropertyTest {
  protected:
    void SetUp() override {
        PropertyTest::SetUp();
        sink = make("ProgressSink");
    }
    kvObject recognizer(const char* className = "TestRecognizer") { return make(className, sink); }
    // A linked region list of `count` regions, added to (and deleted with)
    // the technology.
    kvObject regionsOf(kvObject technology, int count) {
        kvObject list = kvNewObject(&error, "RegionList", 1, technology, "RegionList", 9, 0);
        for (int i = 0; i < count; ++i) {
            const std::string name = "Region" + std::to_string(i);
            kvSendMeth(&error, list, "addProperty",
                       kvNewObject(&error, "IntProp", i, technology, name.c_str(), i, 0));
        }
        kvSendMeth(&error, technology, "addProperty", list);
        return list;
    }
    std::vector<kvArg> progress() {
        std::vector<kvArg> percents;
        const kvResult count = kvSendMeth(&error, sink, "getCount");
        for (kvResult i = 0; i < count; ++i) {
            EXPECT_EQ(kvSendMeth(&error, sink, "getEventAt", i), 501);
            percents.push_back(kvSendMeth(&error, sink, "getArgAt", i));
        }
        return percents;
    }
    kvObject sink = nullptr;
};

TEST_F(RecogTOTest, ItMakesTwoSourcesAndOneOutput) {
    kvObject recog = recognizer();
    const char* names[] = {"ImageDataSource", "RegionSource", "RecognitionData"};
    for (uint16_t id = 0; id < 3; ++id) {
        const auto property =
            reinterpret_cast<kvObject>(kvSendMeth(&error, recog, "findPropertyByName", names[id]));
        ASSERT_NE(property, nullptr) << names[id];
        EXPECT_EQ(kvSendMeth(&error, property, "getId"), id);
        EXPECT_STREQ(kvClassName(property->cls), id < 2 ? "SourceProperty" : "StrProp");
    }
    EXPECT_EQ(kvSendMeth(&error, recog, "fetchProperty", "RecognitionData"), 0);
    kvSendMeth(&error, recog, "storeProperty", "RecognitionData", "text");
    EXPECT_EQ(kvSendMeth(&error, recog, "setPropertyDefaults"), 1);
    EXPECT_EQ(kvSendMeth(&error, recog, "fetchProperty", "RecognitionData"), 0);
    EXPECT_EQ(kvSendMeth(&error, recog, "registerProperties", "Recog1"), 1);
}

TEST_F(RecogTOTest, EachRegionIsRecognisedAndProgressIsZeroUntilTheEnd) {
    kvObject recog = recognizer();
    kvObject list = regionsOf(recog, 4);
    EXPECT_EQ(kvSendMeth(&error, recog, "recognize"), 1);
    EXPECT_EQ(kvSendMeth(&error, recog, "getCalls"), 4);
    EXPECT_EQ(kvSendMeth(&error, recog, "getNullRegions"), 0);
    EXPECT_EQ(kvSendMeth(&error, recog, "getLastArg"), kvSendMeth(&error, list, "getProperty", 3));
    EXPECT_EQ(progress(), (std::vector<kvArg>{0, 0, 0, 0, 100}));
}

TEST_F(RecogTOTest, AnUnlinkedEmptyOrMissingListGetsOneNullRegion) {
    kvObject recog = recognizer();
    EXPECT_EQ(kvSendMeth(&error, recog, "recognize"), 1); // no "RegionList" at all
    kvSendMeth(&error, regionsOf(recog, 3), "setLinked", 0);
    EXPECT_EQ(kvSendMeth(&error, recog, "recognize"), 1);
    kvObject other = recognizer();
    regionsOf(other, 0);
    EXPECT_EQ(kvSendMeth(&error, other, "recognize"), 1);
    EXPECT_EQ(kvSendMeth(&error, recog, "getCalls"), 2);
    EXPECT_EQ(kvSendMeth(&error, recog, "getNullRegions"), 2);
    EXPECT_EQ(kvSendMeth(&error, other, "getNullRegions"), 1);
    EXPECT_EQ(progress(), (std::vector<kvArg>{0, 100, 0, 100, 0, 100}));
}

TEST_F(RecogTOTest, RegionsRemovedDuringTheWalkAreNotReadPastTheListsEnd) {
    kvObject recog = recognizer();
    kvSendMeth(&error, recog, "configure", 0, 1); // the first region removes the others
    regionsOf(recog, 4);
    EXPECT_EQ(kvSendMeth(&error, recog, "recognize"), 1);
    EXPECT_EQ(kvSendMeth(&error, recog, "getCalls"), 1);
    EXPECT_EQ(progress(), (std::vector<kvArg>{0, 0, 0, 0, 100}));
}

TEST_F(RecogTOTest, ASubclassWithTheFeatureReportsNoProgressAndErrorsDoNotStopTheWalk) {
    kvObject recog = recognizer();
    kvSendMeth(&error, recog, "configure", 1, 0);
    regionsOf(recog, 2);
    EXPECT_EQ(kvSendMeth(&error, recog, "recognize"), 1);
    EXPECT_EQ(progress(), std::vector<kvArg>{});

    // The base class's "recognizeSingle" fails for every region, and the
    // walk goes on.
    kvObject base = make("RecogTO", sink);
    regionsOf(base, 2);
    EXPECT_EQ(kvSendMeth(&error, base, "recognize"), 0);
    EXPECT_NE(errorMessage(error).find(
                  "Class RecogTO did not override pure virtual method recognizeSingle"),
              std::string::npos)
        << errorMessage(error);
    EXPECT_EQ(takeError(), 3431);
    EXPECT_EQ(progress(), (std::vector<kvArg>{0, 0, 100}));
    EXPECT_EQ(kvSendMeth(nullptr, base, "recognize"), 1); // no slot: nothing is pending
    EXPECT_ERROR(kvSendMeth(&error, base, "setup"), 0, 3431);
}

TEST_F(RecogTOTest, ARecogniserOfEveryRegionAtOnceGetsTheWholeList) {
    kvObject multi = recognizer("MultiRecognizer");
    EXPECT_EQ(kvSendMeth(&error, multi, "recognize"), 1);
    EXPECT_EQ(kvSendMeth(&error, multi, "getCalls"), 0);
    kvObject list = regionsOf(multi, 3);
    EXPECT_EQ(kvSendMeth(&error, multi, "recognize"), 1);
    EXPECT_EQ(kvSendMeth(&error, multi, "getCalls"), 1);
    EXPECT_EQ(kvSendMeth(&error, multi, "getLastArg"), reinterpret_cast<kvResult>(list));
    EXPECT_EQ(progress(), (std::vector<kvArg>{0, 100, 0, 100}));
}

} // namespace
} // namespace kova::test
