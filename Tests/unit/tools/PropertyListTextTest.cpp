#include "VirtualMac/Tools/PropertyListText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace virtualmac {
namespace {

using korvel::PropertyValue;
using testing::HasSubstr;

constexpr std::string_view head =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
    "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";

std::string refusalOf(const std::string& text) {
  const auto read = propertyListFrom(text);
  return read ? "read" : read.error();
}

TEST(PropertyListTextTest, ReadsEveryTypeThatABatteryHas) {
  const auto read = propertyListFrom(
      std::string(head) +
      "<!-- <array> -->\n<dict><key>flag</key><true/><key>no</key><false/><key>whole</key>"
      "<integer>-479</integer><key>wrapped</key><integer>18446744073709551137</integer><key>part"
      "</key><real>1.5</real><key>words</key><string>a &amp; b</string><key>bytes</key><data>AQI="
      "</data><key>list</key><array><integer>1</integer><array/></array><key>none</key><dict/>"
      "</dict>\n</plist>\n");
  ASSERT_TRUE(read) << read.error();
  EXPECT_EQ((*read)["flag"], PropertyValue(true));
  EXPECT_EQ((*read)["no"], PropertyValue(false));
  EXPECT_EQ((*read)["whole"], PropertyValue(-479));
  EXPECT_EQ((*read)["part"], PropertyValue(1.5));
  EXPECT_EQ((*read)["words"], PropertyValue("a & b"));
  EXPECT_EQ((*read)["bytes"], PropertyValue(PropertyValue::Data{1, 2}));
  EXPECT_EQ((*read)["list"],
            PropertyValue(PropertyValue::Array{1, PropertyValue(PropertyValue::Array())}));
  EXPECT_EQ((*read)["none"], PropertyValue(PropertyValue::Dictionary()));
}

TEST(PropertyListTextTest, NoPartOfAListIsTakenForTheWhole) {
  const std::string list =
      std::string(head) + "<array><dict><key>a</key><integer>17</integer></dict></array>";
  ASSERT_EQ(refusalOf(list + "</plist>"), "read");
  for (std::size_t size = 0; size < list.size(); ++size) {
    EXPECT_NE(refusalOf(list.substr(0, size)), "read") << size;
    EXPECT_NE(refusalOf(list.substr(0, size) + "</plist>"), "read") << size;
  }
}

TEST(PropertyListTextTest, SaysWhatIsWrong) {
  EXPECT_THAT(refusalOf(" \n"), HasSubstr("is empty: ioreg found no AppleSmartBattery"));
  EXPECT_THAT(refusalOf("+-o AppleSmartBattery  <class AppleSmartBattery>"),
              HasSubstr("prints without -a"));
  EXPECT_THAT(refusalOf("bplist00"), HasSubstr("plutil -convert xml1"));
  EXPECT_THAT(refusalOf("{\"a\": 1}"), HasSubstr("no property list in XML"));
  EXPECT_THAT(refusalOf("<plist><array>"), HasSubstr("it was cut"));
  EXPECT_THAT(refusalOf("<plist><array></plist>"), HasSubstr("not closed or not known"));
  EXPECT_THAT(refusalOf("<plist><battery>1</battery></plist>"),
              HasSubstr("not closed or not known"));
}

std::string nested(std::size_t levels, const std::string& between = "") {
  std::string opened;
  std::string closed;
  for (std::size_t level = 0; level < levels; ++level) opened += "<array>" + between;
  for (std::size_t level = 0; level < levels; ++level) closed += "</array>";
  return "<plist>" + opened + closed + "</plist>";
}

TEST(PropertyListTextTest, WhatIsNestedTooDeepIsNotEvenParsed) {
  EXPECT_EQ(refusalOf(nested(512)), "read");
  EXPECT_THAT(refusalOf(nested(513)), HasSubstr("nested more than 512 deep"));
  EXPECT_THAT(refusalOf(nested(50'000)), HasSubstr("nested more than 512 deep"));
  EXPECT_THAT(refusalOf(nested(513, "<!-- </array> -->")), HasSubstr("nested more than 512 deep"));
}

}  // namespace
}  // namespace virtualmac
