// Point properties and point collections: 16-bit creation and hit-test
// coordinates, stores announced through "storeData", normalised rectangles
// with their edges, the shared bounds rectangle, and the collection's type
// checks.
#include "tests/PropertyFixture.hpp"

#include <array>
#include <cstring>

namespace kova::test {
namespace {

class PointPropTest : public PropertyTest {
  protected:
    kvObject point(int32_t x, int32_t y) { return property("PointProp", "P", 0, x, y); }
    std::array<int32_t, 2> xy(kvObject p) {
        return {static_cast<int32_t>(kvSendMeth(&error, p, "getX")),
                static_cast<int32_t>(kvSendMeth(&error, p, "getY"))};
    }
    std::array<int32_t, 4> bounds(kvObject points) {
        std::array<int32_t, 4> box{};
        std::memcpy(box.data(),
                    reinterpret_cast<const void*>(kvSendMeth(&error, points, "getBounds")),
                    sizeof box);
        return box;
    }
};

TEST_F(PointPropTest, CreationAndSingleCoordinatesAreSixteenBitAndSignExtended) {
    EXPECT_EQ(xy(point(0xFFFF, 32767)), (std::array<int32_t, 2>{-1, 32767}));
    EXPECT_EQ(xy(point(-32768, 0x18000)), (std::array<int32_t, 2>{-32768, -32768}));
    kvObject p = point(1, 2);
    kvObject stored = listen(p, "OnStore");
    kvSendMeth(&error, p, "setX", 0xFFFF);
    kvSendMeth(&error, p, "setY", 0x8000);
    EXPECT_EQ(xy(p), (std::array<int32_t, 2>{-1, -32768}));
    kvSendMeth(&error, p, "setXY", 100000, -100000); // the pair is 32-bit
    EXPECT_EQ(xy(p), (std::array<int32_t, 2>{100000, -100000}));
    EXPECT_EQ(kvSendMeth(&error, p, "shiftPoint", -100000, 100001), 1);
    EXPECT_EQ(xy(p), (std::array<int32_t, 2>{0, 1}));
    EXPECT_EQ(calls(stored), 4);

    // hitTest compares 16-bit coordinates, so 0xFFFF hits -1.
    kvSendMeth(&error, p, "setXY", -1, 32767);
    EXPECT_EQ(kvSendMeth(&error, p, "hitTest", 0xFFFF, 32767), 1);
    EXPECT_EQ(kvSendMeth(&error, p, "hitTest", 0xFFFF, -32767), 0);
    kvSendMeth(&error, p, "setExData", 0xDEADBEEF);
    EXPECT_EQ(static_cast<uint32_t>(kvSendMeth(&error, p, "getExData")), 0xDEADBEEF);
}

TEST_F(PointPropTest, RectanglesAreNormalisedAndIncludeTheirEdges) {
    kvObject p = point(5, 5);
    const int32_t reversed[4] = {10, 10, 0, 0};
    EXPECT_EQ(kvSendMeth(&error, p, "hitTestRect", reversed), 1);
    kvSendMeth(&error, p, "setXY", 0, 10);
    EXPECT_EQ(kvSendMeth(&error, p, "hitTestRect", reversed), 1);
    kvSendMeth(&error, p, "setXY", 11, 10);
    EXPECT_EQ(kvSendMeth(&error, p, "hitTestRect", reversed), 0);
    const int32_t pair[2] = {11, 10};
    EXPECT_EQ(kvSendMeth(&error, p, "hitTestPoint", pair), 1);
    EXPECT_ERROR(kvSendMeth(&error, p, "hitTestRect", nullptr), 0, 3443);
    EXPECT_ERROR(kvSendMeth(&error, p, "hitTestPoint", nullptr), 0, 3443);
    kvObject stored = listen(p, "OnStore");
    EXPECT_ERROR(kvSendMeth(&error, p, "storeData", nullptr), 0, 3443);
    EXPECT_EQ(calls(stored), 0);
    EXPECT_EQ(recordOf(p), record(p->flags, le32(11) + le32(10) + le32(0)));
}

TEST_F(PointPropTest, ACollectionBoundsItsPointsFromTheInvertedStart) {
    kvObject points = make("PointCollection", 0);
    EXPECT_EQ(bounds(points), (std::array<int32_t, 4>{32767, 32767, -32767, -32767}));
    kvObject a = point(1, 2);
    kvObject b = point(-3, 7);
    EXPECT_EQ(kvSendMeth(&error, points, "addObject", a), 1);
    EXPECT_EQ(kvSendMeth(&error, points, "addObject", b), 1);
    EXPECT_EQ(bounds(points), (std::array<int32_t, 4>{-3, 2, 1, 7}));
    // -32768 lies beyond even the inverted start.
    kvObject c = point(-32768, -32768);
    kvSendMeth(&error, points, "addObject", c);
    EXPECT_EQ(bounds(points), (std::array<int32_t, 4>{-32768, -32768, 1, 7}));

    EXPECT_EQ(kvSendMeth(&error, points, "hitTest", -3, 7), reinterpret_cast<kvResult>(b));
    EXPECT_EQ(kvSendMeth(&error, points, "hitTest", 0x8000, 0x8000), reinterpret_cast<kvResult>(c));
    EXPECT_EQ(kvSendMeth(&error, points, "hitTest", 9, 9), 0);
    const int32_t everything[4] = {-40000, -40000, 40000, 40000};
    EXPECT_EQ(kvSendMeth(&error, points, "hitTestRect", everything), reinterpret_cast<kvResult>(a));
    const int32_t pair[2] = {1, 2};
    EXPECT_EQ(kvSendMeth(&error, points, "hitTestPoint", pair), reinterpret_cast<kvResult>(a));
    const int32_t shift[2] = {10, -10};
    EXPECT_EQ(kvSendMeth(&error, points, "shiftPoints", shift), 1);
    EXPECT_EQ(bounds(points), (std::array<int32_t, 4>{-32758, -32778, 11, -3}));
    for (const char* method : {"hitTestPoint", "hitTestRect", "shiftPoints"})
        EXPECT_ERROR(kvSendMeth(&error, points, method, nullptr), 0, 3443);
}

TEST_F(PointPropTest, ACollectionTakesOnlyPointProperties) {
    kvObject points = make("PointCollection", 0);
    kvObject title = property("StrProp", "Title", 0, "abc");
    EXPECT_ERROR(kvSendMeth(&error, points, "addObject", title), 0, 3444);
    EXPECT_ERROR(kvSendMeth(&error, points, "addObject", nullptr), 0, 3443);
    EXPECT_ERROR(kvSendMeth(&error, points, "insertObject", title, 0), 0, 3444);
    EXPECT_EQ(kvSendMeth(&error, points, "getCount"), 0);
    kvObject p = point(1, 1);
    EXPECT_EQ(kvSendMeth(&error, points, "insertObject", p, 0), 1);
    // The append's own failure is reported through the answer too, also
    // to a caller without a slot.
    EXPECT_EQ(kvSendMeth(&error, points, "addObject", p), 1); // fills the method caches
    for (kvObject* slot : {&error, static_cast<kvObject*>(nullptr)}) {
        const kvResult count = kvSendMeth(&error, points, "getCount");
        EXPECT_GE(failEachAllocation([&] { return kvSendMeth(slot, points, "addObject", p) == 1; },
                                     [&] {
                                         if (slot) {
                                             EXPECT_EQ(takeError(), 3429);
                                         }
                                         EXPECT_EQ(kvSendMeth(&error, points, "getCount"), count);
                                     }),
                  1);
    }
}

} // namespace
} // namespace kova::test
