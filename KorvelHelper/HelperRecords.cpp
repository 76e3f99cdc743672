#include "HelperRecords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "JSONMembers.h"

namespace korvel {

namespace {

using JSON = nlohmann::json;

// ---- Writing ----

struct JSONMember {
  std::string_view key;
  std::string value;
};
using DateText = std::string (*)(Date);

std::string jsonText(std::string_view text) {
  const std::string quoted = JSON(text).dump(-1, ' ', false, JSON::error_handler_t::replace);
  std::string escaped;
  escaped.reserve(quoted.size());
  for (const char character : quoted) {
    if (character == '/') escaped += '\\';
    escaped += character;
  }
  return escaped;
}

std::string jsonBoolean(bool value) { return value ? "true" : "false"; }

// An exponent stands only where plain digits would be absurdly many.
std::string jsonDateNumber(Date date) {
  const double seconds = date.secondsSinceReference;
  const double size = std::fabs(seconds);
  const bool plain = size == 0 || (size >= 1e-5 && size < 1e16);
  std::array<char, 64> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), seconds,
                                 plain ? std::chars_format::fixed : std::chars_format::scientific);
  return {digits.data(), end.ptr};
}

std::string jsonDateText(Date date) { return jsonText(iso8601Text(date)); }

std::vector<JSONMember> members(const HelperState& state, DateText dateText) {
  std::vector<JSONMember> list = {{"chargeLimit", std::to_string(state.chargeLimit)},
                                  {"sailingBand", std::to_string(state.sailingBand)},
                                  {"forceDischargeActive", jsonBoolean(state.forceDischargeActive)},
                                  {"heatPauseActive", jsonBoolean(state.heatPauseActive)},
                                  {"lastWriteAt", dateText(state.lastWriteAt)},
                                  {"lastWriteVerified", jsonBoolean(state.lastWriteVerified)}};
  if (const auto& reason = state.lastDischargeAbortReason) {
    list.push_back({"lastDischargeAbortReason", jsonText(*reason)});
  }
  if (const auto& moment = state.lastDischargeAbortAt) {
    list.push_back({"lastDischargeAbortAt", dateText(*moment)});
  }
  list.push_back({"topUpActive", jsonBoolean(state.topUpActive)});
  list.push_back({"sleepDisabledByKorvel", jsonBoolean(state.sleepDisabledByKorvel)});
  if (const auto& version = state.helperVersion) {
    list.push_back({"helperVersion", jsonText(*version)});
  }
  return list;
}

std::string compact(const std::vector<JSONMember>& list) {
  std::string text = "{";
  for (const JSONMember& member : list) {
    if (text.size() > 1) text += ',';
    text.append("\"").append(member.key).append("\":").append(member.value);
  }
  return text += '}';
}

std::string pretty(const std::vector<JSONMember>& list) {
  std::string text = "{";
  for (const JSONMember& member : list) {
    text += text.size() > 1 ? ",\n" : "\n";
    text.append("  \"").append(member.key).append("\" : ").append(member.value);
  }
  return text += "\n}";
}

// Neither form has a notation for "not a number" and infinities.
bool datesAreFinite(const HelperState& state) {
  return std::isfinite(state.lastWriteAt.secondsSinceReference) &&
         (!state.lastDischargeAbortAt ||
          std::isfinite(state.lastDischargeAbortAt->secondsSinceReference));
}

// ---- Reading ----

/// Decodes one value. An array or an object is no field's value, and is not looked into. A value
/// without a meaning, a number beyond every type or half a surrogate pair, comes out discarded.
JSON decoded(std::string_view written) {
  if (written.starts_with('{') || written.starts_with('[')) return JSON::array();
  return JSON::parse(written, nullptr, false);
}

/// The first value of every key, as it is written: only a field's value is ever decoded.
using WrittenMembers = std::map<std::string, std::string_view, std::less<>>;

using DateReading = std::optional<Date> (*)(const JSON&);

std::optional<Date> dateOfNumber(const JSON& value) {
  return value.is_number() ? std::optional(Date{value.get<double>()}) : std::nullopt;
}

std::optional<std::string> textOf(const JSON& value) {
  return value.is_string() ? std::optional(value.get<std::string>()) : std::nullopt;
}

std::optional<Date> dateOfText(const JSON& value) {
  const std::optional<std::string> text = textOf(value);
  return text ? dateFromISO8601(*text) : std::nullopt;
}

std::optional<std::int64_t> integerOf(const JSON& value) {
  if (value.is_number_unsigned()) {
    const auto whole = value.get<std::uint64_t>();
    return std::in_range<std::int64_t>(whole) ? std::optional(static_cast<std::int64_t>(whole))
                                              : std::nullopt;
  }
  if (value.is_number_integer()) return value.get<std::int64_t>();
  if (!value.is_number_float()) return std::nullopt;
  // From 2^53 on a real stands for more than one whole number.
  const auto real = value.get<double>();
  if (std::trunc(real) != real || std::fabs(real) >= 0x1p53) return std::nullopt;
  return static_cast<std::int64_t>(real);
}

std::optional<bool> booleanOf(const JSON& value) {
  return value.is_boolean() ? std::optional(value.get<bool>()) : std::nullopt;
}

/// Assigns collected members to fields and remembers the first that does not fit.
class FieldReader {
 public:
  explicit FieldReader(const WrittenMembers& source) : members(source) {}

  template <class Field, class Reading>
  void required(std::string_view key, Field& field, Reading reading, std::string_view wanted) {
    const auto found = members.find(key);
    if (found == members.end()) return fail("missing key \"" + std::string(key) + '"');
    assign(key, decoded(found->second), field, reading, wanted);
  }
  template <class Field, class Reading>
  void tolerated(std::string_view key, Field& field, Reading reading, std::string_view wanted) {
    const auto found = members.find(key);
    if (found == members.end()) return;
    const JSON value = decoded(found->second);
    if (!value.is_null()) assign(key, value, field, reading, wanted);
  }
  [[nodiscard]] const std::string& error() const { return failure; }

 private:
  template <class Field, class Reading>
  void assign(std::string_view key, const JSON& written, Field& field, Reading reading,
              std::string_view wanted) {
    auto value = reading(written);
    if (!value) return fail("key \"" + std::string(key) + "\" is not " + std::string(wanted));
    field = *std::move(value);
  }
  void fail(std::string text) {
    if (failure.empty()) failure = std::move(text);
  }

  const WrittenMembers& members;
  std::string failure;
};

/// Parses `text` and lets `fill` set the fields of a fresh record.
template <class Record, class Fill>
std::expected<Record, std::string> decode(std::string_view text, Fill fill) {
  WrittenMembers members;
  const auto walked = forEachJSONMember(text, [&](std::string_view name, std::string_view value) {
    if (const JSON key = decoded(name); key.is_string())
      members.try_emplace(key.get<std::string>(), value);
  });
  if (!walked) return std::unexpected(walked.error());
  FieldReader fields(members);
  Record record;
  fill(fields, record);
  if (!fields.error().empty()) return std::unexpected(fields.error());
  return record;
}

std::expected<HelperState, std::string> decodeState(std::string_view text, DateReading dateOf,
                                                    std::string_view wantedDate) {
  const auto fill = [&](FieldReader& fields, HelperState& state) {
    constexpr std::string_view boolean = "a Boolean";
    constexpr std::string_view integer = "an integer";
    constexpr std::string_view string = "a string";
    fields.required("chargeLimit", state.chargeLimit, integerOf, integer);
    fields.required("sailingBand", state.sailingBand, integerOf, integer);
    fields.required("forceDischargeActive", state.forceDischargeActive, booleanOf, boolean);
    fields.required("heatPauseActive", state.heatPauseActive, booleanOf, boolean);
    fields.required("lastWriteAt", state.lastWriteAt, dateOf, wantedDate);
    fields.tolerated("lastWriteVerified", state.lastWriteVerified, booleanOf, boolean);
    fields.tolerated("lastDischargeAbortReason", state.lastDischargeAbortReason, textOf, string);
    fields.tolerated("lastDischargeAbortAt", state.lastDischargeAbortAt, dateOf, wantedDate);
    fields.tolerated("topUpActive", state.topUpActive, booleanOf, boolean);
    fields.tolerated("sleepDisabledByKorvel", state.sleepDisabledByKorvel, booleanOf, boolean);
    fields.tolerated("helperVersion", state.helperVersion, textOf, string);
  };
  return decode<HelperState>(text, fill);
}

}  // namespace

const HelperState& HelperState::empty() {
  static const HelperState record;
  return record;
}

const HelperCapabilities& HelperCapabilities::none() {
  static const HelperCapabilities record;
  return record;
}

const std::vector<ResetWrite>& resetWrites() {
  static const std::vector<ResetWrite> list = {{"CHTE", {0, 0, 0, 0}}, {"CH0B", {0}},
                                               {"CH0C", {0}},          {"CHIE", {0}},
                                               {"CH0I", {0}},          {"CH0J", {0}}};
  return list;
}

std::string encodeReply(const HelperState& state) {
  return datesAreFinite(state) ? compact(members(state, jsonDateNumber)) : std::string();
}

std::string encodeReply(const HelperCapabilities& capabilities) {
  return compact({{"tahoeCharging", jsonBoolean(capabilities.tahoeCharging)},
                  {"preTahoeCharging", jsonBoolean(capabilities.preTahoeCharging)},
                  {"tahoeDischarge", jsonBoolean(capabilities.tahoeDischarge)},
                  {"preTahoeDischarge", jsonBoolean(capabilities.preTahoeDischarge)},
                  {"nativeCharging", jsonBoolean(capabilities.nativeCharging)}});
}

std::string encodeFile(const HelperState& state) {
  if (!datesAreFinite(state)) return {};
  std::vector<JSONMember> list = members(state, jsonDateText);
  std::ranges::sort(list, {}, &JSONMember::key);
  return pretty(list);
}

std::expected<HelperState, std::string> decodeStateFile(std::string_view text) {
  return decodeState(text, dateOfText, "an ISO 8601 date");
}

std::expected<HelperState, std::string> decodeStateReply(std::string_view text) {
  return decodeState(text, dateOfNumber, "a date in seconds");
}

std::expected<HelperCapabilities, std::string> decodeCapabilities(std::string_view text) {
  return decode<HelperCapabilities>(text, [](FieldReader& fields, HelperCapabilities& record) {
    constexpr std::string_view wanted = "a Boolean";
    fields.required("tahoeCharging", record.tahoeCharging, booleanOf, wanted);
    fields.required("preTahoeCharging", record.preTahoeCharging, booleanOf, wanted);
    fields.required("tahoeDischarge", record.tahoeDischarge, booleanOf, wanted);
    fields.required("preTahoeDischarge", record.preTahoeDischarge, booleanOf, wanted);
    fields.required("nativeCharging", record.nativeCharging, booleanOf, wanted);
  });
}

}  // namespace korvel
