#include "HelperRecords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <span>
#include <utility>
#include <variant>

namespace korvel {

namespace {

// ---- Writing ----

struct JSONMember {
  std::string_view key;
  std::string value;
};
using DateText = std::string (*)(Date);

std::string jsonText(std::string_view text) {
  using JSON = nlohmann::json;
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

// Exponents only where plain digits would be absurd.
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

struct Null {};
struct Nested {};  // an array or an object: no field of ours is one
using Scalar = std::variant<Null, bool, std::int64_t, double, std::string, Nested>;

constexpr std::array<std::string_view, 11> stateKeys = {"chargeLimit",
                                                        "sailingBand",
                                                        "forceDischargeActive",
                                                        "heatPauseActive",
                                                        "lastWriteAt",
                                                        "lastWriteVerified",
                                                        "lastDischargeAbortReason",
                                                        "lastDischargeAbortAt",
                                                        "topUpActive",
                                                        "sleepDisabledByKorvel",
                                                        "helperVersion"};
constexpr std::array<std::string_view, 5> capabilityKeys = {
    "tahoeCharging", "preTahoeCharging", "tahoeDischarge", "preTahoeDischarge", "nativeCharging"};

std::string notJSON(std::size_t position) {
  return "not valid JSON at byte " + std::to_string(position);
}

/// Takes the known members of the outermost object off a stream of parser events. Nothing else is
/// kept, and nothing recurses: the depth of the input is a number.
class MemberCollector final : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit MemberCollector(std::span<const std::string_view> known)
      : keys(known), values(known.size()) {}

  [[nodiscard]] const std::optional<Scalar>& valueOf(std::string_view name) const {
    return values[indexOf(name)];
  }
  [[nodiscard]] const std::string& error() const { return failure; }

  bool null() override { return take(Null{}); }
  bool boolean(bool value) override { return take(value); }
  bool number_integer(number_integer_t value) override { return take(std::int64_t{value}); }
  bool number_unsigned(number_unsigned_t value) override {
    if (std::in_range<std::int64_t>(value)) return take(static_cast<std::int64_t>(value));
    return take(static_cast<double>(value));
  }
  bool number_float(number_float_t value, const string_t& /*text*/) override { return take(value); }
  bool string(string_t& value) override { return take(std::move(value)); }
  bool binary(binary_t& /*value*/) override { return take(Nested{}); }
  bool start_object(std::size_t /*size*/) override {
    if (depth == 0) {
      depth = 1;
      return true;
    }
    return open();
  }
  bool start_array(std::size_t /*size*/) override { return open(); }
  bool key(string_t& name) override {
    current = indexOf(name);
    return true;
  }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t position, const std::string& /*lastToken*/,
                   const nlohmann::detail::exception& /*exception*/) override {
    failure = notJSON(position);
    return false;
  }

 private:
  [[nodiscard]] std::size_t indexOf(std::string_view name) const {
    return static_cast<std::size_t>(std::ranges::find(keys, name) - keys.begin());
  }
  bool take(Scalar value) {
    if (depth == 0) {
      failure = "the top level is not an object";
      return false;
    }
    if (depth == 1 && current < values.size() && !values[current]) {
      values[current] = std::move(value);
    }
    return true;
  }
  bool open() {
    if (!take(Nested{})) return false;
    ++depth;
    return true;
  }
  bool close() {
    --depth;
    return true;
  }

  std::span<const std::string_view> keys;
  std::vector<std::optional<Scalar>> values;
  std::size_t current = 0;
  std::size_t depth = 0;
  std::string failure;
};

using DateReading = std::optional<Date> (*)(const Scalar&);

std::optional<Date> dateOfNumber(const Scalar& scalar) {
  if (const auto* whole = std::get_if<std::int64_t>(&scalar)) {
    return Date{static_cast<double>(*whole)};
  }
  if (const auto* real = std::get_if<double>(&scalar)) return Date{*real};
  return std::nullopt;
}

std::optional<Date> dateOfText(const Scalar& scalar) {
  const auto* text = std::get_if<std::string>(&scalar);
  return text == nullptr ? std::nullopt : dateFromISO8601(*text);
}

std::optional<std::int64_t> integerOf(const Scalar& scalar) {
  if (const auto* whole = std::get_if<std::int64_t>(&scalar)) return *whole;
  const auto* real = std::get_if<double>(&scalar);
  constexpr double bound = 0x1p63;
  if (real == nullptr || std::trunc(*real) != *real) return std::nullopt;
  if (*real < -bound || *real >= bound) return std::nullopt;
  return static_cast<std::int64_t>(*real);
}

std::optional<bool> booleanOf(const Scalar& scalar) {
  const auto* value = std::get_if<bool>(&scalar);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<std::string> textOf(const Scalar& scalar) {
  const auto* value = std::get_if<std::string>(&scalar);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

/// Assigns collected members to fields and remembers the first that does not fit.
class FieldReader {
 public:
  explicit FieldReader(const MemberCollector& source) : members(source) {}

  template <class Field, class Reading>
  void required(std::string_view key, Field& field, Reading reading, std::string_view wanted) {
    const std::optional<Scalar>& found = members.valueOf(key);
    if (!found) return fail("missing key \"" + std::string(key) + '"');
    assign(key, *found, field, reading, wanted);
  }
  template <class Field, class Reading>
  void tolerated(std::string_view key, Field& field, Reading reading, std::string_view wanted) {
    const std::optional<Scalar>& found = members.valueOf(key);
    if (!found || std::holds_alternative<Null>(*found)) return;
    assign(key, *found, field, reading, wanted);
  }
  [[nodiscard]] const std::string& error() const { return failure; }

 private:
  template <class Field, class Reading>
  void assign(std::string_view key, const Scalar& scalar, Field& field, Reading reading,
              std::string_view wanted) {
    auto value = reading(scalar);
    if (!value) return fail("key \"" + std::string(key) + "\" is not " + std::string(wanted));
    field = *std::move(value);
  }
  void fail(std::string text) {
    if (failure.empty()) failure = std::move(text);
  }

  const MemberCollector& members;
  std::string failure;
};

/// Parses `text` and lets `fill` set the fields of a fresh record.
template <class Record, class Fill>
std::expected<Record, std::string> decode(std::string_view text,
                                          std::span<const std::string_view> keys, Fill fill) {
  // The parser takes a NUL byte for the end of the input, whatever follows it.
  if (const std::size_t null = text.find('\0'); null != std::string_view::npos) {
    return std::unexpected(notJSON(null + 1));
  }
  MemberCollector collector(keys);
  if (!nlohmann::json::sax_parse(text.begin(), text.end(), &collector)) {
    return std::unexpected(collector.error());
  }
  FieldReader fields(collector);
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
  return decode<HelperState>(text, stateKeys, fill);
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
  return decode<HelperCapabilities>(
      text, capabilityKeys, [](FieldReader& fields, HelperCapabilities& record) {
        constexpr std::string_view wanted = "a Boolean";
        fields.required("tahoeCharging", record.tahoeCharging, booleanOf, wanted);
        fields.required("preTahoeCharging", record.preTahoeCharging, booleanOf, wanted);
        fields.required("tahoeDischarge", record.tahoeDischarge, booleanOf, wanted);
        fields.required("preTahoeDischarge", record.preTahoeDischarge, booleanOf, wanted);
        fields.required("nativeCharging", record.nativeCharging, booleanOf, wanted);
      });
}

}  // namespace korvel
