#include <string>

#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz::slow {

namespace {

using Dictionary = PropertyValue::Dictionary;

bool has(const Dictionary& entries, const std::string& key) {
  return entries.count(key) == 1 && !entries.at(key).isAbsent();
}

Dictionary inner(const Dictionary& entries, const std::string& key) {
  return has(entries, key) && entries.at(key).dictionary() != nullptr
             ? *entries.at(key).dictionary()
             : Dictionary();
}

}  // namespace

Dictionary merged(Dictionary root, Dictionary pack, const std::vector<Dictionary>& banks) {
  Dictionary data = std::move(pack);
  for (const auto& [key, value] : inner(root, "BatteryData")) data[key] = value;
  for (const std::string key : {"AppleRawCurrentCapacity", "AppleRawMaxCapacity",
                                "NominalChargeCapacity", "DesignCapacity", "Temperature"}) {
    if (!has(root, key) && has(data, key)) root[key] = data.at(key);
  }
  for (const auto& [key, other] : {std::pair{"AppleRawMaxCapacity", "FullChargeCapacity"},
                                   std::pair{"AppleRawCurrentCapacity", "RemainingCapacity"}}) {
    if (!has(root, key) && has(data, other)) root[key] = data.at(other);
  }
  Dictionary lifetime = inner(data, "LifetimeData");
  for (const Dictionary& bank : banks) {
    const Dictionary of = inner(bank, "LifetimeData");
    if (!has(lifetime, "TimeAtHighSoc") && has(of, "TimeAtHighSoc"))
      lifetime["TimeAtHighSoc"] = of.at("TimeAtHighSoc");
  }
  if (!lifetime.empty()) data["LifetimeData"] = lifetime;
  for (const std::string key : {"CellVoltage", "WeightedRa", "Qmax"}) {
    PropertyValue::Array all;
    for (const Dictionary& bank : banks) {
      if (has(bank, key) && bank.at(key).integer()) all.push_back(bank.at(key));
    }
    if (!has(data, key) && !all.empty()) data[key] = all;
  }
  root["BatteryData"] = data;
  return root;
}

}  // namespace korvel::fuzz::slow
