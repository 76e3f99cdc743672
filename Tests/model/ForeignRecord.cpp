#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "Tests/model/Story.h"
#include "VirtualMac/Schedule/Random.h"

namespace model {

namespace {

using virtualmac::Random;

/// Each is right for some member and wrong for the others, or wrong for all.
constexpr std::array<std::string_view, 15> values{"null",
                                                  "true",
                                                  "false",
                                                  "80",
                                                  "75.0",
                                                  "1e2",
                                                  "-3",
                                                  "80.5",
                                                  "[true]",
                                                  "9223372036854775808",
                                                  "790000000",
                                                  R"("80")",
                                                  R"("")",
                                                  R"({"chargeLimit": 50})",
                                                  R"("2026-05-09T06:13:20Z")"};
/// Half of them are no dates.
constexpr std::array<std::string_view, 14> dates{
    R"("2026-05-09T06:13:20Z")",      R"("2026-05-09T08:13:20+02:00")",
    R"("2026-05-08T22:43:20-0730")",  R"("2024-02-29T23:59:59Z")",
    R"("2000-02-29T00:00:00+0000")",  R"("1999-12-31T23:59:59-23:59")",
    R"("0001-01-01T00:00:00Z")",      R"("2026-02-29T00:00:00Z")",
    R"("2026-13-01T00:00:00Z")",      R"("2026-05-09T24:00:00Z")",
    R"("2026-05-09T06:13:20+24:00")", R"("2026-05-09T06:13:20")",
    R"("2026-05-09T06:13:20.5Z")",    R"("2026-05-09 06:13:20Z")"};

using Members = std::vector<std::pair<std::string, std::string>>;

Members usualMembers() {
  return {{"chargeLimit", "60"},
          {"sailingBand", "10"},
          {"forceDischargeActive", "true"},
          {"heatPauseActive", "true"},
          {"lastWriteAt", R"("2026-01-15T11:33:20Z")"},
          {"lastWriteVerified", "false"},
          {"lastDischargeAbortReason", R"("Discharge stopped.")"},
          {"lastDischargeAbortAt", R"("2025-09-20T17:46:40Z")"},
          {"topUpActive", "true"},
          {"sleepDisabledByKorvel", "true"},
          {"helperVersion", R"("1.9")"}};
}

/// Gives a member another value, leaves it out, names it twice, or adds one that nobody knows.
void change(Members& members, Random& random) {
  const auto at = members.begin() + static_cast<std::ptrdiff_t>(random.below(members.size()));
  const bool isDate = at->first.ends_with("At");
  const std::string value(isDate ? dates.at(random.below(dates.size()))
                                 : values.at(random.below(values.size())));
  switch (random.below(6)) {
    case 0:
      members.erase(at);
      return;
    case 1:
      members.insert(random.chance(1, 2) ? members.begin() : members.end(), {at->first, value});
      return;
    case 2:
      members.insert(at, {random.chance(1, 2) ? "chargeLimits" : "", value});
      return;
    default:
      at->second = value;
  }
}

/// A date is changed as often as all other members.
void changeOne(Members& members, Random& random) {
  const auto date = std::ranges::find(members, "lastWriteAt", &Members::value_type::first);
  if (date == members.end() || random.chance(1, 2)) return change(members, random);
  date->second = dates.at(random.below(dates.size()));
}

}  // namespace

std::string foreignRecord(std::uint64_t seed) {
  Random random(seed);
  Members members = usualMembers();
  for (std::int64_t left = random.between(0, 3); left > 0; --left) changeOne(members, random);
  const std::string space = std::array{"", " ", "\n\t", "\r\n  "}.at(random.below(4));
  std::string text = random.chance(1, 8) ? "\xEF\xBB\xBF{" : "{";
  for (const auto& [name, value] : members) {
    text += text.ends_with('{') ? space : "," + space;
    text.append("\"").append(name).append("\"").append(space).append(":").append(value);
  }
  text += space + "}" + space;
  if (random.chance(1, 16))
    return text + std::string(std::array{",", "}", "{}", "x"}.at(random.below(4)));
  return random.chance(1, 16) ? text.substr(0, random.below(text.size())) : text;
}

}  // namespace model
