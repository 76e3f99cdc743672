#include <array>
#include <charconv>
#include <sstream>
#include <string>

#include "BatteryRegistryReader.h"
#include "Tests/fuzz/Target.h"
#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz {

namespace {

using Dictionary = PropertyValue::Dictionary;

/// `80` and `true` are what they look like, `-` is absent, `{KEY value` is a dictionary with one
/// entry, all else is a text.
PropertyValue valueFrom(std::string_view text) {
  if (text == "-") return {};
  if (text == "true") return true;
  std::int64_t number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure == std::errc() && end == text.data() + text.size()) return number;
  if (!text.starts_with('{')) return std::string(text);
  text.remove_prefix(1);
  const std::size_t space = std::min(text.find(' '), text.size());
  Dictionary one;
  one[std::string(text.substr(0, space))] =
      valueFrom(text.substr(std::min(space + 1, text.size())));
  return one;
}

}  // namespace

/// The input has a line for each entry: where it is, its key and its value, as in
/// `pack FullChargeCapacity 4500`. An entry of the root's own battery data is in `data`.
void registryMerge(std::string_view input) {
  std::istringstream lines{std::string(input)};
  std::array<Dictionary, 2> upper;  // the root and its own battery data
  Dictionary pack;
  std::vector<Dictionary> banks;
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string place, key, value;
    words >> place >> key;
    std::getline(words >> std::ws, value);
    if (place == "bank" && key.empty()) banks.emplace_back();
    Dictionary* target = place == "root" ? &upper[0] : place == "data" ? &upper[1] : nullptr;
    if (place == "pack") target = &pack;
    if (place == "bank" && !banks.empty()) target = &banks.back();
    if (target != nullptr && !key.empty()) (*target)[key] = valueFrom(value);
  }
  Dictionary root = upper[0];
  if (!upper[1].empty()) root["BatteryData"] = upper[1];
  const Dictionary result = BatteryRegistryReader::merged(root, pack, banks);
  require(result == slow::merged(root, pack, banks), "the two merges differ");
  require(BatteryRegistryReader::merged(result, pack, banks) == result,
          "merging once more changes it");
}

}  // namespace korvel::fuzz
