// The scanning technology base: its five output properties and their
// defaults, batch scanning that ends through the subclass's error, the
// append rule of the output formats, and the abstract methods.
#include "kova/plr.h"
#include "tests/PropertyFixture.hpp"

#include <set>
#include <string>

namespace kova::test {
namespace {

class ScanTOTest : public PropertyTest {
  protected:
    kvObject scanner(const char* className = "TestScanner") {
        return make(className, make("ProgressSink"));
    }
    kvObject propertyOf(kvObject technology, const char* name) {
        return reinterpret_cast<kvObject>(
            kvSendMeth(&error, technology, "findPropertyByName", name));
    }
};

TEST_F(ScanTOTest, ItMakesFiveOutputPropertiesAndResetsThemToTheirDefaults) {
    kvObject scan = scanner();
    const std::pair<const char*, const char*> expected[] = {{"OutputFileAppend", "BoolProp"},
                                                            {"OutputFileFormat", "StrEnumProp"},
                                                            {"OutputFileName", "StrProp"},
                                                            {"OutputToFile", "BoolProp"},
                                                            {"Scanner", "StrProp"}};
    uint16_t id = 1;
    for (const auto& [name, className] : expected) {
        kvObject property = propertyOf(scan, name);
        ASSERT_NE(property, nullptr) << name;
        EXPECT_STREQ(kvClassName(property->cls), className);
        EXPECT_EQ(kvSendMeth(&error, property, "getId"), id++);
        EXPECT_EQ(property->flags & 0x26, 0x26) << name; // made with flags 38
        EXPECT_EQ(kvSendMeth(&error, property, "getOwner"), reinterpret_cast<kvResult>(scan));
    }
    EXPECT_EQ(kvSendMeth(&error, propertyOf(scan, "OutputFileFormat"), "getCount"), 0);
    EXPECT_EQ(text(kvSendMeth(&error, scan, "fetchProperty", "Scanner")), "");

    kvSendMeth(&error, scan, "storeProperty", "Scanner", "Flatbed");
    kvSendMeth(&error, scan, "storeProperty", "OutputToFile", 1);
    kvObject image = property("ImageStandIn", "ImageData", 0);
    kvSendMeth(&error, scan, "addProperty", image);
    EXPECT_EQ(kvSendMeth(&error, scan, "setPropertyDefaults"), 1);
    EXPECT_EQ(kvSendMeth(&error, image, "getClears"), 1);
    EXPECT_EQ(text(kvSendMeth(&error, scan, "fetchProperty", "Scanner")), "");
    EXPECT_EQ(kvSendMeth(&error, scan, "fetchProperty", "OutputToFile"), 0);
    kvSendMeth(&error, scan, "delProperty", image);
}

TEST_F(ScanTOTest, ItOffersItsImageDataAsAServiceWhenItHasOne) {
    kvObject scan = scanner();
    EXPECT_EQ(kvSendMeth(&error, scan, "registerProperties", "Scan1"), 1);
    EXPECT_EQ(PLRIsServiceProviderFQN("ImageData", "Scan1"), 0);
    EXPECT_EQ(PLRIsServiceProviderFQN("WidgetConnection", "Scan1"), 1);

    kvObject other = scanner();
    kvObject image = property("ImageStandIn", "ImageData", 0);
    kvSendMeth(&error, other, "addProperty", image);
    EXPECT_EQ(kvSendMeth(&error, other, "registerProperties", "Scan2"), 1);
    EXPECT_EQ(PLRIsServiceProviderFQN("ImageData", "Scan2"), 1);
    kvSendMeth(&error, other, "delProperty", image);
}

TEST_F(ScanTOTest, ABatchEndsWithTheSubclasssErrorLeftForTheCaller) {
    kvObject scan = scanner();
    kvSendMeth(&error, scan, "configure", 3);
    EXPECT_ERROR(kvSendMeth(&error, scan, "scanBatch"), 2, 3443);
    EXPECT_EQ(kvSendMeth(&error, scan, "getScanned"), 3);
    kvSendMeth(&error, scan, "configure", 1);
    EXPECT_ERROR(kvSendMeth(&error, scan, "scanBatch"), 0, 3443);
    EXPECT_EQ(kvSendMeth(&error, scan, "scanPage"), 0);
    EXPECT_EQ(takeError(), 3443);

    // Without a slot, or with an error standing in it, nothing is scanned.
    kvSendMeth(&error, scan, "configure", 0);
    EXPECT_EQ(kvSendMeth(nullptr, scan, "scanBatch"), -1);
    EXPECT_EQ(kvSendMeth(&error, scan, "getScanned"), 1);
    kvSendMeth(&error, scan, "scanMore"); // unknown: 3427 stands in the slot
    EXPECT_ERROR(kvSendMeth(&error, scan, "scanBatch"), -1, 3427);
    EXPECT_EQ(kvSendMeth(&error, scan, "scanPage"), 1);
    EXPECT_EQ(error, nullptr);
}

TEST_F(ScanTOTest, TheBaseClassLeavesSetupAndScanToItsSubclasses) {
    kvObject scan = scanner("ScanTO");
    EXPECT_EQ(kvSendMeth(&error, scan, "scanPage"), 0);
    EXPECT_NE(errorMessage(error).find("Class ScanTO did not override pure virtual method scan"),
              std::string::npos)
        << errorMessage(error);
    EXPECT_EQ(takeError(), 3431);
    EXPECT_EQ(kvSendMeth(&error, scan, "setup"), 0);
    EXPECT_NE(errorMessage(error).find("method setup"), std::string::npos);
    EXPECT_EQ(takeError(), 3431);
    EXPECT_EQ(kvSendMeth(&error, scan, "isFeatureAvailable", 0), 0);
}

TEST_F(ScanTOTest, OnlySomeOutputFormatsTakeAppendedPages) {
    kvObject scan = scanner();
    const std::set<int> appendable = {4, 5, 13, 14, 15, 16, 17, 18, 20, 21, 22, 23, 24, 25, 26, 28};
    for (int format = -2; format <= 40; ++format)
        EXPECT_EQ(kvSendMeth(&error, scan, "canFormatAppend", format),
                  appendable.count(format) ? 1 : 0)
            << format;
    EXPECT_EQ(kvSendMeth(&error, scan, "canFormatAppend", 0x1001C), 1); // 16-bit: 28
    EXPECT_EQ(kvSendMeth(&error, scan, "canFormatAppend", 0xFFFF), 0);
}

} // namespace
} // namespace kova::test
