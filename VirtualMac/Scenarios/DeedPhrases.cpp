#include "VirtualMac/Scenarios/DeedPhrases.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "Operations.h"
#include "VirtualMac/Schedule/LogText.h"

namespace virtualmac {

namespace {

using korvel::OperationArgument;

constexpr std::string_view auditor = "HelperImpl";
constexpr std::string_view sleepDisabled = "SleepDisabled";
constexpr std::string_view byRequest = "requested";

struct Said {
  EffectID id;
  std::string_view phrase;
};
/// An effect that is always an action's.
constexpr std::array<Said, 5> always{{{EffectID::adapterConnected, "adapter on"},
                                      {EffectID::adapterDisconnected, "adapter off"},
                                      {EffectID::inflowInhibitDropped, "adapter renegotiate"},
                                      {EffectID::lidClosed, "lid closed"},
                                      {EffectID::lidOpened, "lid open"}}};

struct Told {
  std::string_view begin, end, phrase;
};
/// A line that only a reader acts on. {} is what stands between its beginning and its end.
constexpr std::array<Told, 10> told{{{"adapter renegotiated", "", "adapter renegotiate"},
                                     {"display connected", "", "display on"},
                                     {"display disconnected", "", "display off"},
                                     {"temperature set to ", " C", "temperature {}"},
                                     {"temperature free", "", "temperature free"},
                                     {"ambient set to ", " C", "ambient {}"},
                                     {"helper version ", " installed", "install {}"},
                                     {"idle sleep off", "", "idle-sleep 0"},
                                     {"idle sleep after ", " min", "idle-sleep {}"},
                                     {"touched", "", "touch"}}};

std::string faultPhrase(std::string_view text) {
  // Switched on in place of another, a line tells that too.
  for (std::size_t at = text.rfind(" (in place of ");
       at != std::string_view::npos && text.ends_with(')'); at = text.rfind(" (in place of ")) {
    text = text.substr(0, at);
  }
  std::string phrase;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (end > 0) phrase += (phrase.empty() ? "" : " ") + quotedWord(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return phrase;
}

std::string toldPhrase(const Journal::Entry& entry) {
  if (entry.kind != "mac") return {};
  if (entry.text.starts_with("fault ")) return faultPhrase(entry.text);
  for (const Told& each : told) {
    const auto value = between(entry.text, each.begin, each.end);
    if (!value || (each.end.empty() && !value->empty())) continue;
    return fmt::format(fmt::runtime(each.phrase), quotedWord(*value));
  }
  return {};
}

}  // namespace

std::optional<std::string> between(std::string_view text, std::string_view begin,
                                   std::string_view end) {
  if (!text.starts_with(begin) || !text.ends_with(end) || text.size() < begin.size() + end.size())
    return std::nullopt;
  return std::string(text.substr(begin.size(), text.size() - begin.size() - end.size()));
}

std::string quotedText(std::string_view text) {
  std::string all = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') all += '\\';
    all += character;
  }
  return all + '"';
}

std::string quotedWord(std::string_view word) {
  return word.find_first_of("\" ") == std::string_view::npos ? std::string(word) : quotedText(word);
}

std::string deedPhrase(const Journal::Entry& entry) {
  for (const Said& each : always) {
    if (entry.tells(each.id)) return std::string(each.phrase);
  }
  switch (entry.effect.id) {
    case EffectID::batterySet:
      return "battery " + entry.effect.word(0);
    case EffectID::nativeLimitByUser:
      return "native-limit " + (entry.effect.word(0) == "none" ? "0" : entry.effect.word(0));
    case EffectID::settingByOther:
      if (entry.effect.word(0) != sleepDisabled) return {};
      return entry.effect.word(1) == "0" ? "sleep-disabled off" : "sleep-disabled on";
    case EffectID::sleepBegins:
    case EffectID::sleepHeldOff:
      return entry.effect.word(0) == byRequest ? "sleep" : "";
    case EffectID::woke:
      return entry.effect.word(0) == byRequest ? "wake" : "";
    case EffectID::told:
      return toldPhrase(entry);
    default:
      return {};
  }
}

std::optional<AuditLine> auditLine(const Journal::Entry& entry) {
  if (!entry.tells(EffectID::logged) || entry.effect.word(0) != auditor) return std::nullopt;
  const std::string_view message = entry.message();
  for (const korvel::Operation& operation : korvel::operations) {
    if (!message.starts_with(operation.method)) continue;
    const std::string_view rest = message.substr(operation.method.size());
    // The line of one without an answer tells the helper's number, not the client's.
    if (operation.answer == korvel::OperationAnswer::None && rest.starts_with("() received"))
      return AuditLine{operation.method, std::string(operation.word), std::nullopt};
    const auto value = numberAfter(rest, "(");
    const bool takes = operation.argument != OperationArgument::None;
    if (!rest.starts_with(takes ? "(" : " pid=") || takes != value.has_value()) continue;
    AuditLine line{operation.method, std::string(operation.word), numberAfter(rest, "pid=")};
    if (!line.pid) continue;
    if (operation.argument == OperationArgument::UInt8) line.phrase += fmt::format(" {}", *value);
    if (operation.argument == OperationArgument::Boolean)
      line.phrase += *value != 0 ? " on" : " off";
    return line;
  }
  return std::nullopt;
}

}  // namespace virtualmac
