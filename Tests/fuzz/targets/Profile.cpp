#include "VirtualMac/Machine/Profile.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "JSONMembers.h"
#include "Tests/fuzz/Target.h"
#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Machine/Machine.h"

namespace korvel::fuzz {

namespace {

using virtualmac::Journal;
using virtualmac::JournalHead;
using virtualmac::Machine;
using virtualmac::parseProfile;
using virtualmac::SMCKeyProfile;

void judgeRefusal(const std::string& error) {
  require(error.starts_with("input.json: "), "a refusal does not name the file: " + error);
  require(error.find('\n') == std::string::npos, "a refusal has two lines: " + error);
}

/// Whether the offer says what stands in the file; what is null there is absent.
bool says(const PropertyValue& value, const nlohmann::json& written) {
  if (const auto* array = value.array()) {
    return written.is_array() && std::ranges::equal(*array, written, says);
  }
  if (const auto* dictionary = value.dictionary()) {
    if (!written.is_object() || written.size() != dictionary->size()) return false;
    return std::ranges::all_of(*dictionary, [&](const auto& entry) {
      return written.contains(entry.first) && says(entry.second, written[entry.first]);
    });
  }
  if (const auto truth = value.boolean()) return written.is_boolean() && written == *truth;
  // The library takes the largest number without a sign for -1.
  if (const auto whole = value.integer()) return written.dump() == std::to_string(*whole);
  if (const auto real = value.real()) return written.is_number_float() && written == *real;
  return value.text() != nullptr ? written == *value.text() : written.is_null();
}

}  // namespace

/// The input is a profile. One that is taken makes a machine, whose journal's first line is read
/// back.
void profile(std::string_view input) {
  const auto read = parseProfile(input, "input.json");
  if (!read) return judgeRefusal(read.error());
  const auto grammar = forEachJSONMember(input, [](std::string_view, std::string_view) {});
  require(grammar.has_value(), "the other reader of JSON refuses it");
  const auto written = nlohmann::json::parse(input);
  if (written.contains("powerUI") && written["powerUI"].contains("offeredLimits"))
    require(says(read->powerUI.offeredLimits, written["powerUI"]["offeredLimits"]),
            "other limits are offered than the profile says");
  Journal journal([] { return 0.0; });
  const Machine machine(*read, journal);
  const double percent = machine.battery.exactPercent();
  require(!machine.battery.isPresent() || (percent >= 0 && percent <= 100),
          "the battery has no charge that makes sense");
  for (const SMCKeyProfile& key : read->smcKeys) {
    const auto value = machine.smc.value(key.name);
    require(value && value->size() == key.size, "a key has another size than the profile says");
  }
  const std::string line = journalHead(machine, {});
  const auto head = JournalHead::from(line);
  require(head && head->line() == line, "the journal's head does not come back");
}

}  // namespace korvel::fuzz
