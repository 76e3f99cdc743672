#include "Tests/model/reference/Record.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>

namespace model {

namespace {

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
  if (date == never) return "0001-01-01T00:00:00Z";
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

double dateFrom(const std::string& text) {
  if (text == "0001-01-01T00:00:00Z") return never;
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d", &year, &month, &day, &hour, &minute, &second);
  std::int64_t days = daysTo(year) + day - 1;
  for (int before = 0; before + 1 < month; ++before) days += monthLength(year, before);
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
  const auto value = [&file](const std::string& key) -> std::optional<std::string> {
    const std::string head = '"' + key + "\" : ";
    const std::size_t at = file.find(head);
    if (at == std::string::npos) return std::nullopt;
    const std::size_t from = at + head.size();
    std::string found = file.substr(from, file.find('\n', from) - from);
    if (found.back() == ',') found.pop_back();
    return found.front() == '"' ? found.substr(1, found.size() - 2) : found;
  };
  const auto limit = value("chargeLimit");
  const auto band = value("sailingBand");
  const auto writtenAt = value("lastWriteAt");
  if (!limit || !band || !writtenAt) return std::nullopt;
  Record record;
  record.limit = std::stoll(*limit);
  record.band = std::stoll(*band);
  record.discharging = value("forceDischargeActive") == "true";
  record.heatPause = value("heatPauseActive") == "true";
  record.writtenAt = dateFrom(*writtenAt);
  record.verified = value("lastWriteVerified").value_or("true") == "true";
  record.reason = value("lastDischargeAbortReason");
  if (const auto at = value("lastDischargeAbortAt")) record.reasonAt = dateFrom(*at);
  record.toppingOff = value("topUpActive") == "true";
  record.ownsSleepDisabled = value("sleepDisabledByKorvel") == "true";
  record.version = value("helperVersion");
  // Any other text is a record that somebody else wrote: the model does not read those.
  return fileText(record) == file ? std::optional(record) : std::nullopt;
}

}  // namespace model
