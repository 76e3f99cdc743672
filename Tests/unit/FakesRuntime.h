#pragma once

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/SmartChargeRuntime.h"

namespace korvel::test {

/// The framework with its one class. Every public field takes one thing away or changes one answer;
/// calls are kept as text, and so is how many objects the caller still owns.
class FakeSmartCharge final : public SmartChargeRuntime {
 public:
  bool loads = true;
  bool hasClass = true;
  bool classIsClass = true;
  bool hasAlloc = true;
  bool hasInit = true;
  bool allocates = true;
  bool initialises = true;
  std::set<std::string, std::less<>> responds = {
      "isMCLSupported", "isMCLCurrentlyEnabled:", "getMCLLimitWithError:",
      "availableChargeLimitsWithError:", "setMCLLimit:error:"};
  bool supported = true;
  PropertyValue offered = PropertyValue::Array{80, 85, 90, 95, 100};
  ErrorSlot offeredError;
  std::int32_t limit = 0;
  ErrorSlot limitError;
  bool accepts = true;
  bool obeys = true;  ///< The setter changes what the getter says.
  ErrorSlot setError;

  std::vector<std::string> calls;
  int ownedObjects = 0;

  HandleRef dlopen(std::string_view path, int mode) override {
    calls.push_back("dlopen " + std::string(path) + " " + std::to_string(mode));
    return loads ? 0xF000 : 0;
  }
  HandleRef classFromString(std::string_view name) override {
    calls.push_back("class " + std::string(name));
    return hasClass ? classHandle : 0;
  }
  bool isClass(HandleRef object) override {
    EXPECT_EQ(object, classHandle);
    calls.emplace_back("isClass");
    return classIsClass;
  }
  HandleRef getClassMethod(HandleRef cls, std::string_view selector) override {
    EXPECT_EQ(cls, classHandle);
    calls.push_back("class method " + std::string(selector));
    return hasAlloc ? allocHandle : 0;
  }
  HandleRef getInstanceMethod(HandleRef cls, std::string_view selector) override {
    EXPECT_EQ(cls, classHandle);
    calls.push_back("instance method " + std::string(selector));
    return hasInit ? initHandle : 0;
  }
  HandleRef callAlloc(HandleRef method, HandleRef cls) override {
    EXPECT_EQ(method, allocHandle);
    EXPECT_EQ(cls, classHandle);
    calls.emplace_back("alloc");
    if (!allocates) return 0;
    ++ownedObjects;
    return rawHandle;
  }
  HandleRef callInit(HandleRef method, HandleRef object, std::string_view clientName) override {
    EXPECT_EQ(method, initHandle);
    EXPECT_EQ(object, rawHandle);
    calls.push_back("init " + std::string(clientName));
    if (initialises) return clientHandle;
    --ownedObjects;
    return 0;
  }
  bool respondsToSelector(HandleRef object, std::string_view selector) override {
    EXPECT_EQ(object, clientHandle);
    calls.push_back("responds " + std::string(selector));
    return responds.contains(selector);
  }
  bool callBoolean(HandleRef object, std::string_view selector) override {
    EXPECT_EQ(object, clientHandle);
    calls.emplace_back(selector);
    return supported;
  }
  std::int32_t callInt32(HandleRef object, std::string_view selector, ErrorSlot& error) override {
    EXPECT_EQ(object, clientHandle);
    EXPECT_FALSE(error.has_value()) << "the slot must be empty before the call";
    calls.emplace_back(selector);
    error = limitError;
    return limit;
  }
  PropertyValue callObject(HandleRef object, std::string_view selector, ErrorSlot& error) override {
    EXPECT_EQ(object, clientHandle);
    EXPECT_FALSE(error.has_value()) << "the slot must be empty before the call";
    calls.emplace_back(selector);
    error = offeredError;
    return offered;
  }
  bool callSetUInt8(HandleRef object, std::string_view selector, std::uint8_t value,
                    ErrorSlot& error) override {
    EXPECT_EQ(object, clientHandle);
    EXPECT_FALSE(error.has_value()) << "the slot must be empty before the call";
    calls.push_back(std::string(selector) + " " + std::to_string(value));
    error = setError;
    if (accepts && obeys) limit = value;
    return accepts;
  }
  void release(HandleRef object) override {
    EXPECT_TRUE(object == clientHandle || object == rawHandle);
    --ownedObjects;
  }

 private:
  static constexpr HandleRef classHandle = 0xC000;
  static constexpr HandleRef allocHandle = 0xC001;
  static constexpr HandleRef initHandle = 0xC002;
  static constexpr HandleRef rawHandle = 0xC100;
  static constexpr HandleRef clientHandle = 0xC200;
};

}  // namespace korvel::test
