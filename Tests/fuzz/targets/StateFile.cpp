#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "HelperRecords.h"
#include "Tests/fuzz/Target.h"
#include "Tests/fuzz/targets/Slow.h"

namespace korvel::fuzz {

namespace {

using Json = nlohmann::json;

/// Fields in the words of the JSON library, none of which is of the program's reader.
class Fields {
 public:
  explicit Fields(Json members) : object(std::move(members)) {}

  void whole(const char* key, std::int64_t& target) {
    const Json value = required(key);
    constexpr double exact = 9007199254740992.0;
    const bool isBeyond = value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX;
    const double number = value.is_number() ? value.get<double>() : 0.5;
    const bool isWhole = std::abs(number) < exact && number == std::trunc(number);
    if (value.is_number_float() ? isWhole : value.is_number_integer() && !isBeyond)
      target = value.get<std::int64_t>();
    else
      wrong = true;
  }
  void truth(const char* key, bool& target, bool optional = false) {
    if (optional && !has(key)) return;
    const Json value = required(key);
    value.is_boolean() ? void(target = value.get<bool>()) : void(wrong = true);
  }
  void text(const char* key, std::optional<std::string>& target) {
    if (!has(key)) return;
    object[key].is_string() ? void(target = object[key].get<std::string>()) : void(wrong = true);
  }
  std::optional<Date> date(const char* key) {
    std::optional<std::string> written;
    text(key, written);
    if (!written) return std::nullopt;
    const auto seconds = slow::secondsOf(*written);
    if (!seconds) wrong = true;
    return Date{static_cast<double>(seconds.value_or(0))};
  }
  bool has(const char* key) { return object.contains(key) && !object[key].is_null(); }

  bool wrong = false;

 private:
  Json required(const char* key) { return object.contains(key) ? object[key] : Json(); }
  Json object;
};

std::optional<HelperState> stateIn(const Json& object) {
  Fields fields(object);
  HelperState state;
  fields.whole("chargeLimit", state.chargeLimit);
  fields.whole("sailingBand", state.sailingBand);
  fields.truth("forceDischargeActive", state.forceDischargeActive);
  fields.truth("heatPauseActive", state.heatPauseActive);
  const std::optional<Date> lastWrite = fields.date("lastWriteAt");
  state.lastWriteAt = lastWrite.value_or(Date());
  fields.truth("lastWriteVerified", state.lastWriteVerified, true);
  fields.text("lastDischargeAbortReason", state.lastDischargeAbortReason);
  state.lastDischargeAbortAt = fields.date("lastDischargeAbortAt");
  fields.truth("topUpActive", state.topUpActive, true);
  fields.truth("sleepDisabledByKorvel", state.sleepDisabledByKorvel, true);
  fields.text("helperVersion", state.helperVersion);
  if (fields.wrong || !lastWrite) return std::nullopt;
  return state;
}

/// The file's members by another parser; the first of two with one name counts. None: it is not
/// JSON. Numbers and texts that this parser cannot hold are no concern of it: `beyond`.
std::optional<Json> parsed(std::string_view text, bool& beyond) {
  std::set<std::string> seen;
  const auto first = [&seen](int depth, Json::parse_event_t event, Json& value) {
    return event != Json::parse_event_t::key || depth != 1 ||
           seen.insert(value.get<std::string>()).second;
  };
  try {
    return Json::parse(text, first);
  } catch (const Json::out_of_range&) {
    beyond = true;
  } catch (const Json::parse_error& error) {
    beyond = std::string_view(error.what()).find("surrogate") != std::string_view::npos;
  }
  return std::nullopt;
}

void compare(std::string_view input, const std::expected<HelperState, std::string>& state) {
  if (input.find('\0') != std::string_view::npos)
    return require(!state, "a file with a zero byte is read");
  bool beyond = false;
  const std::optional<Json> object = parsed(input, beyond);
  if (beyond) return;
  const auto second = object && object->is_object() ? stateIn(*object) : std::nullopt;
  require(second.has_value() == state.has_value(),
          state ? "the second reader refuses the file" : "only the second reader takes the file");
  if (state) require(*second == *state, "the two readers read different records");
}

}  // namespace

/// The input is the state file; the same text as a client gets it is read as well.
void stateFile(std::string_view input) {
  const auto state = decodeStateFile(input);
  require(state || !state.error().empty(), "a refusal says nothing");
  compare(input, state);
  if (state) {
    const std::string written = encodeFile(*state);
    const auto again = decodeStateFile(written);
    require(again.has_value(), "its own file is refused");
    // A date beyond four digits of a year is written as the nearest that has them.
    require(encodeFile(*again) == written, "it does not come back from its file");
    require(decodeStateReply(encodeReply(*state)) == *state,
            "it does not come back from its reply");
  }
  if (const auto reply = decodeStateReply(input))
    require(decodeStateReply(encodeReply(*reply)) == *reply, "a reply does not come back");
  if (const auto capabilities = decodeCapabilities(input))
    require(decodeCapabilities(encodeReply(*capabilities)) == *capabilities,
            "the capabilities do not come back");
}

}  // namespace korvel::fuzz
