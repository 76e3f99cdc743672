#include "Tests/model/reference/Record.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

namespace model {

namespace {

using Json = nlohmann::json;

const std::string farPast = "0001-01-01T00:00:00Z";
/// From here on, a number may stand for its neighbour.
constexpr double mostExact = 9007199254740992.0;

std::string quoted(const std::string& text) { return '"' + text + '"'; }
std::string word(bool value) { return value ? "true" : "false"; }

std::string number(double value) {
  if (value == std::floor(value)) return std::to_string(static_cast<std::int64_t>(value));
  char digits[64];
  return {digits, std::to_chars(digits, digits + sizeof digits, value).ptr};
}

/// Days from 2001-01-01 to the first day of a year of the calendar since 1582.
std::int64_t daysTo(std::int64_t year) {
  const auto leaps = [](std::int64_t before) { return before / 4 - before / 100 + before / 400; };
  return (year - 2001) * 365 + leaps(year - 1) - leaps(2000);
}

bool isLeap(std::int64_t year) { return daysTo(year + 1) - daysTo(year) == 366; }

std::int64_t monthLength(std::int64_t year, int month) {
  constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 1 && isLeap(year) ? 29 : lengths[month];
}

std::string dateText(double date) {
  if (date == never) return farPast;
  const auto seconds = static_cast<std::int64_t>(std::floor(date));
  std::int64_t days = (seconds - ((seconds % 86400) + 86400) % 86400) / 86400;
  const std::int64_t rest = seconds - days * 86400;
  std::int64_t year = 1970;
  while (daysTo(year + 1) <= days) ++year;
  days -= daysTo(year);
  int month = 0;
  while (days >= monthLength(year, month)) days -= monthLength(year, month++);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", static_cast<int>(year),
                month + 1, static_cast<int>(days) + 1, static_cast<int>(rest / 3600),
                static_cast<int>(rest / 60 % 60), static_cast<int>(rest % 60));
  return text;
}

/// The moment that a text names, from 1583 on; none: it names none.
std::optional<double> dateFrom(const std::string& text) {
  if (text == farPast) return never;
  std::string form = text;
  std::ranges::replace_if(form, [](char each) { return each >= '0' && each <= '9'; }, '0');
  const std::set<std::string> zones{"Z", "+00:00", "-00:00", "+0000", "-0000"};
  constexpr std::size_t local = 19;  // The length of the text without its zone.
  if (!form.starts_with("0000-00-00T00:00:00") || !zones.contains(form.substr(local))) {
    return std::nullopt;
  }
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d", &year, &month, &day, &hour, &minute,
              &second);
  char sign = '+';
  int ahead = 0, more = 0;
  std::sscanf(text.c_str() + local, form.ends_with(":00") ? "%c%2d:%2d" : "%c%2d%2d", &sign, &ahead,
              &more);
  if (month < 1 || month > 12 || day < 1 || day > monthLength(year, month - 1) || hour > 23 ||
      minute > 59 || second > 59 || ahead > 23 || more > 59) {
    return std::nullopt;
  }
  std::int64_t days = daysTo(year) + day - 1;
  for (int before = 0; before + 1 < month; ++before) days += monthLength(year, before);
  minute += (sign == '-' ? 1 : -1) * (ahead * 60 + more);
  return static_cast<double>(((days * 24 + hour) * 60 + minute) * 60 + second);
}

template <class Value, class Text>
std::optional<std::string> given(const std::optional<Value>& value, Text text) {
  return value ? std::optional(text(*value)) : std::nullopt;
}

}  // namespace

std::string fileText(const Record& record) {
  const std::map<std::string, std::optional<std::string>> fields{
      {"chargeLimit", std::to_string(record.limit)},
      {"sailingBand", std::to_string(record.band)},
      {"forceDischargeActive", word(record.discharging)},
      {"heatPauseActive", word(record.heatPause)},
      {"lastWriteAt", quoted(dateText(record.writtenAt))},
      {"lastWriteVerified", word(record.verified)},
      {"lastDischargeAbortReason", given(record.reason, quoted)},
      {"lastDischargeAbortAt",
       given(record.reasonAt, [](double date) { return quoted(dateText(date)); })},
      {"topUpActive", word(record.toppingOff)},
      {"sleepDisabledByKorvel", word(record.ownsSleepDisabled)},
      {"helperVersion", given(record.version, quoted)}};
  std::string text = "{";
  for (const auto& [key, value] : fields) {
    if (value) text += (text == "{" ? "\n  \"" : ",\n  \"") + key + "\" : " + *value;
  }
  return text + "\n}";
}

std::string replyText(const Record& record) {
  std::string text = "{\"chargeLimit\":" + std::to_string(record.limit) +
                     ",\"sailingBand\":" + std::to_string(record.band) +
                     ",\"forceDischargeActive\":" + word(record.discharging) +
                     ",\"heatPauseActive\":" + word(record.heatPause) +
                     ",\"lastWriteAt\":" + number(record.writtenAt) +
                     ",\"lastWriteVerified\":" + word(record.verified);
  if (record.reason) text += ",\"lastDischargeAbortReason\":" + quoted(*record.reason);
  if (record.reasonAt) text += ",\"lastDischargeAbortAt\":" + number(*record.reasonAt);
  text += ",\"topUpActive\":" + word(record.toppingOff) +
          ",\"sleepDisabledByKorvel\":" + word(record.ownsSleepDisabled);
  if (record.version) text += ",\"helperVersion\":" + quoted(*record.version);
  return text + '}';
}

std::optional<Record> recordFrom(const std::string& file) {
  std::set<std::string> seen;
  const auto first = [&seen](int depth, Json::parse_event_t event, const Json& name) {
    return depth != 1 || event != Json::parse_event_t::key ||
           seen.insert(name.get<std::string>()).second;
  };
  const Json members = Json::parse(file, first, false);
  bool good = members.is_object();
  // Returns null where a member is not given; then `good` is lost if it is required.
  const auto member = [&](const char* name, bool required) -> const Json* {
    const auto found = members.find(name);
    const bool given = found != members.end() && !found->is_null();
    good = good && (given || !required);
    return given ? &*found : nullptr;
  };
  const auto whole = [&](const char* name, std::int64_t& field) {
    const Json* value = member(name, true);
    good = good && value->is_number() && std::abs(value->get<double>()) < mostExact &&
           std::floor(value->get<double>()) == value->get<double>();
    if (good) field = value->get<std::int64_t>();
  };
  const auto truth = [&](const char* name, bool& field, bool required) {
    const Json* value = member(name, required);
    good = good && (value == nullptr || value->is_boolean());
    if (good && value != nullptr) field = value->get<bool>();
  };
  const auto word = [&](const char* name, bool required = false) -> std::optional<std::string> {
    const Json* value = member(name, required);
    good = good && (value == nullptr || value->is_string());
    return good && value != nullptr ? std::optional(value->get<std::string>()) : std::nullopt;
  };
  const auto date = [&](const char* name, bool required = false) -> std::optional<double> {
    const auto text = word(name, required);
    const auto found = text ? dateFrom(*text) : std::nullopt;
    good = good && (!text || found);
    return found;
  };
  Record record;
  whole("chargeLimit", record.limit);
  whole("sailingBand", record.band);
  truth("forceDischargeActive", record.discharging, true);
  truth("heatPauseActive", record.heatPause, true);
  record.writtenAt = date("lastWriteAt", true).value_or(never);
  truth("lastWriteVerified", record.verified, false);
  record.reason = word("lastDischargeAbortReason");
  record.reasonAt = date("lastDischargeAbortAt");
  truth("topUpActive", record.toppingOff, false);
  truth("sleepDisabledByKorvel", record.ownsSleepDisabled, false);
  record.version = word("helperVersion");
  return good ? std::optional(record) : std::nullopt;
}

}  // namespace model
