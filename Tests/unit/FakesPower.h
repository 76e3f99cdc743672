#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/PowerAssertions.h"
#include "Platform/PowerSettings.h"
#include "Platform/RootPowerDomain.h"

namespace korvel::test {

/// Assertions with identifiers from 501, timed out by the properties that they were made with.
class FakeAssertions final : public PowerAssertions {
 public:
  struct Creation {
    PropertyValue properties;
    std::uint32_t id;  ///< 0: refused.
  };

  std::vector<Creation> creations;
  std::vector<std::uint32_t> releases;
  std::map<std::size_t, KernReturn> creationCodes;  ///< By creation number, from 1.
  std::map<std::uint32_t, KernReturn> releaseCodes;
  std::function<void()> beforeCall = [] {};

  KernReturn createWithProperties(const PropertyValue& properties, std::uint32_t& id) override {
    beforeCall();
    EXPECT_EQ(id, 0U) << "the identifier must start at 0";
    const auto code = creationCodes.find(creations.size() + 1);
    if (code != creationCodes.end()) {
      creations.push_back({properties, 0});
      return code->second;
    }
    id = nextID++;
    creations.push_back({properties, id});
    secondsLeft[id] = properties["TimeoutSeconds"].real().value_or(1e9);
    return kernSuccess;
  }
  KernReturn release(std::uint32_t id) override {
    beforeCall();
    releases.push_back(id);
    if (const auto code = releaseCodes.find(id); code != releaseCodes.end()) return code->second;
    return secondsLeft.erase(id) == 1 ? kernSuccess : ioReturnBadArgument;
  }

  /// The types of the assertions in force, in order of creation.
  [[nodiscard]] std::vector<std::string> inForce() const {
    std::vector<std::string> types;
    for (const Creation& creation : creations) {
      if (secondsLeft.contains(creation.id)) {
        types.push_back(*creation.properties["AssertType"].text());
      }
    }
    return types;
  }
  /// Lets time pass: the system ends what has timed out and asked to be released then.
  void pass(double seconds) {
    for (const Creation& creation : creations) {
      const auto left = secondsLeft.find(creation.id);
      if (left == secondsLeft.end()) continue;
      left->second -= seconds;
      const std::string* action = creation.properties["TimeoutAction"].text();
      if (left->second <= 0 && action != nullptr && *action == "TimeoutActionRelease") {
        secondsLeft.erase(left);
      }
    }
  }

 private:
  std::uint32_t nextID = 501;
  std::map<std::uint32_t, double> secondsLeft;
};

class FakePowerSettings final : public PowerSettings {
 public:
  PropertyValue stored;
  KernReturn code = kernSuccess;
  std::vector<std::string> calls;

  KernReturn setSystemPowerSetting(std::string_view key, bool value) override {
    calls.push_back(std::string(key) + (value ? " on" : " off"));
    if (code == kernSuccess) stored = PropertyValue::Dictionary{{std::string(key), value}};
    return code;
  }
  PropertyValue copySystemPowerSettings() override {
    calls.emplace_back("copy");
    return stored;
  }
};

/// The root power domain of one registered program. Keeps the calls as text, and puts those of the
/// callbacks among them.
class FakeRootDomain final : public RootPowerDomain {
 public:
  std::vector<std::string> calls;
  bool givesConnection = true;
  bool givesPort = true;
  bool givesSource = true;

  ConnectionRef registerForSystemPower(void* refcon, HandleRef& port, InterestCallback callback,
                                       ObjectRef& notifier) override {
    calls.emplace_back("register");
    EXPECT_EQ(port, 0U);
    EXPECT_EQ(notifier, 0U);
    if (!givesConnection) return 0;
    context = refcon;
    registered = callback;
    if (givesPort) port = 0x9000;
    notifier = 77;
    return 55;
  }
  HandleRef notificationPortGetRunLoopSource(HandleRef port) override {
    calls.push_back("source of " + hex(port));
    return givesSource ? 0xA000 : 0;
  }
  HandleRef mainRunLoop() override { return 0xB000; }
  void runLoopAddSource(HandleRef runLoop, HandleRef source) override {
    calls.push_back("add " + hex(source) + " to " + hex(runLoop));
    attached = true;
  }
  void runLoopRemoveSource(HandleRef runLoop, HandleRef source) override {
    calls.push_back("remove " + hex(source) + " from " + hex(runLoop));
    attached = false;
  }
  KernReturn allowPowerChange(ConnectionRef rootPort, std::intptr_t notificationID) override {
    calls.push_back("allow " + std::to_string(rootPort) + " " + std::to_string(notificationID));
    return kernSuccess;
  }
  KernReturn deregisterForSystemPower(ObjectRef& notifier) override {
    calls.push_back("deregister " + std::to_string(notifier));
    notifier = 0;
    return kernSuccess;
  }
  KernReturn serviceClose(ConnectionRef rootPort) override {
    calls.push_back("close " + std::to_string(rootPort));
    return kernSuccess;
  }
  void notificationPortDestroy(HandleRef port) override { calls.push_back("destroy " + hex(port)); }

  /// Delivers a message as the main run loop would.
  void deliver(std::uint32_t message, std::uintptr_t argument) {
    ASSERT_TRUE(attached) << "nothing listens";
    registered(context, 1, message, argument);
  }
  /// The same with another reference constant.
  void deliverTo(void* refcon, std::uint32_t message) { registered(refcon, 1, message, 0); }

 private:
  static std::string hex(HandleRef handle) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (; handle != 0; handle /= 16) text.insert(text.begin(), digits[handle % 16]);
    return text;
  }

  void* context = nullptr;
  InterestCallback registered = nullptr;
  bool attached = false;
};

}  // namespace korvel::test
