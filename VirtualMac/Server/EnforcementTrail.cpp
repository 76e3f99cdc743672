#include "VirtualMac/Server/EnforcementTrail.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "VirtualMac/Schedule/LogText.h"

namespace virtualmac {

namespace {

using Loop = Enforcement::Loop;
using nlohmann::ordered_json;

constexpr std::int64_t lowestLimit = 20, noLimit = 100;

struct LoopWords {
  Loop loop;
  std::string_view name;    ///< In JSON.
  std::string_view reason;  ///< Why nothing is, or was, enforced.
};
constexpr std::array<LoopWords, 10> loopWords{{
    {Loop::NoHelper, "no-helper", "no helper"},
    {Loop::NotArmed, "not-armed", "not armed since the helper started"},
    {Loop::Running, "running", ""},
    {Loop::ToppingOff, "topping-off", "a top-off is under way"},
    {Loop::TopOffFailed, "top-off-failed", "a top-off was asked for"},
    {Loop::Cleared, "cleared", "the limit was cleared"},
    {Loop::Reset, "reset", "everything was reset"},
    {Loop::Suspended, "suspended", "nobody connected for 30 s"},
    {Loop::HandedBack, "handed-back", "the limit is 100 %"},
    {Loop::OutOfRange, "out-of-range", "the limit is out of range"},
}};

const LoopWords& wordsOf(Loop loop) { return loopWords[static_cast<std::size_t>(loop)]; }

template <class Value>
std::optional<Value> taken(std::deque<Value>& queue) {
  if (queue.empty()) return std::nullopt;
  const Value first = queue.front();
  queue.pop_front();
  return first;
}

}  // namespace

void EnforcementTrail::hear(const Journal::Entry& entry) {
  switch (entry.effect.id) {
    case EffectID::helperStarted:
      return begin(Loop::NotArmed);
    case EffectID::helperExited:
    case EffectID::helperKilled:
    case EffectID::helperEnded:
      return begin(Loop::NoHelper);
    case EffectID::logged:
      return hearLog(entry);
    default:
      if (entry.kind == "reply") hearReply(entry.effect);
  }
}

void EnforcementTrail::begin(Loop loop) {
  const std::uint64_t connects = told.connects;
  *this = EnforcementTrail();
  told.loop = loop;
  told.connects = connects;
}

void EnforcementTrail::run(std::optional<std::int64_t> limit, bool byConnection) {
  told.loop = Loop::Running;
  told.limit = limit;
  told.armedByConnection = byConnection;
  told.stopError.reset();
}

void EnforcementTrail::stop(Loop why, std::optional<std::string> error) {
  told.loop = why;
  told.armedByConnection = false;
  told.stopError = std::move(error);
  // Any other reason to stop leaves a top-off alone.
  if (why == Loop::ToppingOff) toppingOff = true;
  if (why == Loop::Cleared || why == Loop::Reset || why == Loop::Suspended) toppingOff = false;
}

/// Replies come from the helper's one queue, in the order in which things were done.
void EnforcementTrail::hearReply(const Effect& reply) {
  const std::string& operation = reply.word(0);
  const bool succeeded =
      reply.id == EffectID::replySucceeded || reply.id == EffectID::replySucceededDespite;
  std::optional<std::string> error;
  if (reply.id == EffectID::replyFailed) error = reply.word(2);
  if (operation == "setChargeLimit" && succeeded) {
    toppingOff = false;
    run(taken(limitsAskedFor));
  } else if (operation == "clearChargeLimit") {
    stop(Loop::Cleared, std::move(error));
  } else if (operation == "resetAllSMCKeys") {
    stop(Loop::Reset, std::exchange(resetError, std::nullopt));
  } else if (operation == "releaseLimitUntilFullThenRestore") {
    stop(succeeded ? Loop::ToppingOff : Loop::TopOffFailed, std::move(error));
  } else if (operation == "cancelTopUp" && std::exchange(toppingOff, false)) {
    run(std::nullopt);
  } else if (operation == "forceDischarge" && taken(dischargesAskedFor) == true && succeeded) {
    toppingOff = false;
  }
}

void EnforcementTrail::hearLog(const Journal::Entry& entry) {
  const std::string& category = entry.effect.word(0);
  const std::string& level = entry.effect.word(1);
  if (level == "error" || level == "fault") {
    told.lastError = {entry.time, category + ": " + std::string(entry.message())};
  }
  if (category == "HelperImpl") hearCore(entry.message());
}

void EnforcementTrail::hearCore(std::string_view text) {
  constexpr std::string_view outcomeStart = "charge enforcement ";
  constexpr std::string_view failureEnd = " — limit is NOT being applied";
  const auto begins = [text](std::string_view words) { return text.starts_with(words); };
  if (begins(outcomeStart)) {
    std::string_view outcome = text.substr(outcomeStart.size());
    told.failing = outcome.ends_with(failureEnd);
    if (told.failing) outcome.remove_suffix(failureEnd.size());
    told.outcome = outcome;
  } else if (begins("setChargeLimit(")) {
    // Other limits are refused without being queued.
    const auto limit = numberAfter(text, "(");
    if (limit && *limit >= lowestLimit && *limit <= noLimit) limitsAskedFor.push_back(*limit);
  } else if (begins("forceDischarge(")) {
    dischargesAskedFor.push_back(begins("forceDischarge(1)"));
  } else if (begins("client connected (")) {
    ++told.connects;
  } else if (begins("client connect — arming") || begins("forceDischarge: arming")) {
    run(numberAfter(text, "limit="), begins("client connect"));
  } else if (begins("top-off complete") || begins("top-off restore loop timed out")) {
    toppingOff = false;
    run(numberAfter(text, "restored limit "));
  } else if (begins("all clients gone — suspending")) {
    stop(Loop::Suspended);
  } else if (begins("100% target")) {
    stop(Loop::HandedBack);
  } else if (begins("pollOnce: target ")) {
    told.limit = numberAfter(text, "target ");
    stop(Loop::OutOfRange);
  } else if (begins("resetAllSMCKeys ")) {
    resetError.reset();
  } else if (begins("resetAll: ")) {
    resetError = text.substr(text.find(' ') + 1);
  }
}

ordered_json enforcementJSON(const Enforcement& enforcement) {
  const auto orNull = [](const auto& value) {
    return value ? ordered_json(*value) : ordered_json();
  };
  ordered_json lastError;
  if (const auto& error = enforcement.lastError) {
    lastError = {{"seconds", error->time}, {"text", error->text}};
  }
  return {{"loop", wordsOf(enforcement.loop).name},
          {"limit", orNull(enforcement.limit)},
          {"armedByConnection", enforcement.armedByConnection},
          {"outcome", orNull(enforcement.outcome)},
          {"failing", enforcement.failing},
          {"stopError", orNull(enforcement.stopError)},
          {"lastError", lastError},
          {"connects", enforcement.connects}};
}

std::optional<Enforcement> enforcementFrom(const nlohmann::json& json) {
  const auto text = [&json](const char* name) -> std::optional<std::string> {
    const auto& value = json.at(name);
    return value.is_null() ? std::nullopt : std::optional(value.get<std::string>());
  };
  try {
    Enforcement read;
    const auto name = json.at("loop").get<std::string>();
    const auto* const known = std::ranges::find(loopWords, name, &LoopWords::name);
    if (known == loopWords.end()) return std::nullopt;
    read.loop = known->loop;
    if (!json.at("limit").is_null()) read.limit = json["limit"].get<std::int64_t>();
    read.armedByConnection = json.at("armedByConnection").get<bool>();
    read.outcome = text("outcome");
    read.failing = json.at("failing").get<bool>();
    read.stopError = text("stopError");
    if (const auto& error = json.at("lastError"); !error.is_null())
      read.lastError = {error.at("seconds").get<double>(), error.at("text").get<std::string>()};
    read.connects = json.at("connects").get<std::uint64_t>();
    return read;
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

std::string_view reasonText(Loop loop) { return wordsOf(loop).reason; }

std::string enforcementText(const Enforcement& enforcement) {
  if (enforcement.loop != Loop::Running)
    return fmt::format("nothing: {}", reasonText(enforcement.loop));
  return fmt::format("{}, last outcome {}",
                     enforcement.limit ? fmt::format("at {} %", *enforcement.limit) : "as saved",
                     enforcement.outcome.value_or("none"));
}

}  // namespace virtualmac
