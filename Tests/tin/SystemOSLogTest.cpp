#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "SystemHost.h"
#include "TinMac/System/OSLogText.h"

namespace tinmac::test {

namespace {

/// Packs arguments as the compiler does.
class Buffer {
 public:
  Buffer& add(int descriptor, const void* value, std::uint8_t size) {
    ++bytes[1];
    bytes.push_back(static_cast<std::uint8_t>(descriptor));
    bytes.push_back(size);
    const auto* const first = static_cast<const std::uint8_t*>(value);
    bytes.insert(bytes.end(), first, first + size);
    return *this;
  }
  template <class Value>
  Buffer& add(int descriptor, Value value) {
    return add(descriptor, static_cast<const void*>(&value), sizeof(value));
  }
  [[nodiscard]] std::string with(const char* format) const { return osLogText(format, bytes); }

  std::vector<std::uint8_t> bytes = {2, 0};
};

constexpr int scalar = 0x00;
constexpr int privateScalar = 0x01;
constexpr int publicScalar = 0x02;
constexpr int count = 0x10;
constexpr int text = 0x20;
constexpr int privateText = 0x21;
constexpr int publicText = 0x22;

TEST(SystemOSLog, APublicTextIsTold) {
  EXPECT_EQ(Buffer().add(publicText, "restored").with("keys: %{public}s!"), "keys: restored!");
  EXPECT_EQ(Buffer().add<const char*>(publicText, nullptr).with("%{public}s"), "(null)");
}

TEST(SystemOSLog, ATextIsPrivateUnlessItIsPublic) {
  EXPECT_EQ(Buffer().add(text, "name").add(privateText, "name").with("%s and %{private}s"),
            "<private> and <private>");
}

TEST(SystemOSLog, ScalarsAreToldUnlessTheyArePrivate) {
  EXPECT_EQ(Buffer()
                .add(scalar, -5)
                .add(publicScalar, 0xffffffffU)
                .add(scalar, std::int64_t{-7})
                .add(privateScalar, 3)
                .with("%d %{public}u %lld %{private}d 100%%"),
            "-5 4294967295 -7 <private> 100%");
  EXPECT_EQ(
      Buffer().add(scalar, 0.25).add(scalar, 255U).add(scalar, int{'k'}).with("%.3f %#06x %c"),
      "0.250 0x00ff k");
}

TEST(SystemOSLog, APrecisionLimitsAText) {
  EXPECT_EQ(Buffer().add(count, 3).add(publicText, "discharge").with("%{public}.*s"), "dis");
}

TEST(SystemOSLogDeathTest, AnUnknownItemTrapsWithItsNumbers) {
  EXPECT_DEATH(Buffer().add(0x42, "object").with("%{public}s"),
               "tin-mac: os_log's buffer: an item of descriptor and size: 66, 8");
  EXPECT_DEATH(Buffer().add(scalar, std::int16_t{1}).with("%d"), "an item's kind and size: 0, 2");
}

TEST(SystemOSLogDeathTest, AnUnknownConversionOrAnnotationTraps) {
  EXPECT_DEATH(Buffer().add(0x40, "object").with("%@"), "os_log's conversion: @");
  EXPECT_DEATH(Buffer().add(scalar, 1).with("%{bool}d"), "os_log's annotation: bool");
  EXPECT_DEATH(Buffer().add(scalar, 1.0).with("%Lf"), "os_log's conversion: L");
}

TEST(SystemOSLogDeathTest, ABufferAndAFormatThatDisagreeTrap) {
  EXPECT_DEATH(Buffer().with("%d"), "items and bytes left: 0, 0");
  EXPECT_DEATH(Buffer().add(scalar, 1).with("none"), "items and bytes unused: 1, 6");
  EXPECT_DEATH(Buffer().add(text, "word").with("%{public}s"),
               "an item public and private against its format: 0, 0");
  Buffer flagged;
  flagged.bytes[0] = 0x80;
  EXPECT_DEATH(flagged.with("text"), "flags and count: 128, 0");
}

using CreateLog = const void*(const char*, const char*);
using WriteLog = void(void*, const void*, std::uint8_t, const char*, const std::uint8_t*,
                      std::uint32_t);

TEST(SystemOSLog, TheSameNamesGiveTheSameLog) {
  const auto create = bound<CreateLog>("_os_log_create");
  EXPECT_EQ(create("one", "a"), create("one", "a"));
  EXPECT_NE(create("one", "a"), create("one", "b"));
}

TEST(SystemOSLog, AMessageGoesToTheMachineUnderItsNames) {
  TestHost host;
  const void* const log = bound<CreateLog>("_os_log_create")("com.korvel", "power");
  const Buffer buffer = Buffer().add(publicText, "hot");
  bound<WriteLog>("__os_log_impl")(nullptr, log, 0x10, "%{public}s", buffer.bytes.data(),
                                   static_cast<std::uint32_t>(buffer.bytes.size()));
  const auto logged = host.logged();
  ASSERT_EQ(logged.size(), 1U);
  EXPECT_EQ(logged[0].subsystem, "com.korvel");
  EXPECT_EQ(logged[0].category, "power");
  EXPECT_EQ(logged[0].level, 0x10);
  EXPECT_EQ(logged[0].text, "hot");
}

TEST(SystemOSLog, AllLevelsButDebugAreKept) {
  const void* const log = bound<CreateLog>("_os_log_create")("com.korvel", "levels");
  const auto enabled = bound<bool(const void*, std::uint8_t)>("_os_log_type_enabled");
  for (const int level : {0x00, 0x01, 0x10, 0x11}) {
    EXPECT_TRUE(enabled(log, static_cast<std::uint8_t>(level)));
  }
  EXPECT_FALSE(enabled(log, 0x02));
  EXPECT_DEATH(enabled(log, 0x03), "tin-mac: os_log's level: 3");
  EXPECT_DEATH(enabled("no log", 0x00), "tin-mac: os_log: an object that os_log_create did not");
}

}  // namespace

}  // namespace tinmac::test
