#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/IORegistry.h"

namespace korvel::test {

/// A service and its descendants. Counts what the caller holds; a release too many fails the test.
class FakeRegistry final : public IORegistry {
 public:
  struct Entry {
    std::string className;
    PropertyValue properties;
    KernReturn code = kernSuccess;  ///< Of reading the properties.
    std::string alsoConformsTo = {};
  };

  Entry service{"AppleSmartBattery", PropertyValue::Dictionary{}};
  std::vector<Entry> descendants;
  KernReturn iteratorCode = kernSuccess;
  std::string plane;          ///< Of the last iterator.
  std::uint32_t options = 0;  ///< Of the last iterator.

  ObjectRef getMatchingService(std::string_view className) override {
    if (className != service.className) return 0;
    ++held[serviceName];
    return serviceName;
  }
  PropertyValue createProperty(ObjectRef entry, std::string_view key) override {
    return at(entry).properties[key];
  }
  KernReturn createProperties(ObjectRef entry, PropertyValue& properties) override {
    const Entry& read = at(entry);
    if (read.code == kernSuccess) properties = read.properties;
    return read.code;
  }
  KernReturn createIterator(ObjectRef entry, std::string_view planeName, std::uint32_t flags,
                            ObjectRef& iterator) override {
    EXPECT_EQ(entry, serviceName);
    plane = planeName;
    options = flags;
    if (iteratorCode != kernSuccess) return iteratorCode;
    iterator = iteratorName;
    ++held[iteratorName];
    return kernSuccess;
  }
  ObjectRef iteratorNext(ObjectRef iterator) override {
    EXPECT_EQ(iterator, iteratorName);
    if (walked == descendants.size()) return 0;
    const auto name = firstDescendant + static_cast<ObjectRef>(walked++);
    ++held[name];
    return name;
  }
  bool conformsTo(ObjectRef object, std::string_view className) override {
    const Entry& entry = at(object);
    return entry.className == className || entry.alsoConformsTo == className;
  }
  KernReturn objectRelease(ObjectRef object) override {
    EXPECT_GT(held[object], 0) << "released what was not held";
    --held[object];
    return kernSuccess;
  }

  static constexpr ObjectRef serviceName = 100;
  /// Objects that the caller has not released.
  [[nodiscard]] int leaked() const {
    int total = 0;
    for (const auto& [name, references] : held) total += references;
    return total;
  }

 private:
  static constexpr ObjectRef iteratorName = 101;
  static constexpr ObjectRef firstDescendant = 200;

  [[nodiscard]] const Entry& at(ObjectRef object) const {
    return object == serviceName ? service : descendants.at(object - firstDescendant);
  }

  std::map<ObjectRef, int> held;
  std::size_t walked = 0;
};

}  // namespace korvel::test
