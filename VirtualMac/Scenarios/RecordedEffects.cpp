#include "VirtualMac/Scenarios/RecordedEffects.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <string_view>
#include <utility>

#include "VirtualMac/Scenarios/DeedPhrases.h"

namespace virtualmac {

namespace {

using Entry = Journal::Entry;

/// A state is told as such if nothing changes it again in this time.
constexpr double lastingSeconds = 2;
/// A steady time is worth a line from this length on.
constexpr double steadySeconds = 120;

/// Where a text begins to hold what no two runs have the same.
constexpr std::array<std::string_view, 6> runsOwn{
    " (pid ", " pid=", " id=", "assertion 3", " to pid ", " by pid "};

/// The system's own words follow these.
constexpr std::string_view beforeSystemsWords = "persistence.write failed";

/// Lines of the core that tell what other lines tell better.
constexpr std::array<std::string_view, 3> routine{"HelperImpl boot ", "client connected (",
                                                  "client disconnected ("};

std::string withoutRunsOwn(std::string_view text) {
  if (text.starts_with(beforeSystemsWords)) text = beforeSystemsWords;
  for (const std::string_view each : runsOwn) text = text.substr(0, text.find(each));
  return std::string(text);
}

bool isMoment(std::string_view value) {
  return value.size() > 10 && value[4] == '-' && value[7] == '-' && value[10] == 'T';
}

/// A value as `saved` compares it; empty: it cannot say this one.
std::string savedValue(std::string_view value) {
  if (value.empty() || isMoment(value) || value.front() == '{' || value.front() == '[') return {};
  const bool escaped = value.find('\\') != std::string_view::npos;
  return escaped ? std::string() : std::string(value);
}

class EffectReader {
 public:
  EffectReader(const SavedJournal& read, const RecordedDeeds& told)
      : journal(read), entries(read.entries), deeds(told) {
    if (!journal.head) return;
    const auto& present = journal.head->start.smcKeys;
    hasGate = present.contains("CHTE");
    hasInflow = present.contains("CHIE") || present.contains("CH0I") || present.contains("CH0J");
    // With a limit of the system's own the gate depends on the level too.
    for (const Entry& entry : entries)
      hasGate = hasGate && !entry.text.starts_with("native limit ");
  }

  RecordedEffects read() {
    for (at = 0; at < deeds.end; ++at) take(entries[at]);
    endSteadyTime();
    return std::move(found);
  }

 private:
  void take(const Entry& entry) {
    const bool isAction = deeds.isTold[at];
    if (entry.kind == "smc") takeKey(entry);
    if (entry.kind == "power") takePower(entry, isAction);
    if (entry.kind == "proc" && !isAction) takeHelper(entry);
    if (entry.tells(EffectID::inflowInhibitDropped)) switched(inflow, false);
    if (isAction) return;
    if (entry.kind == "disk") takeDisk(entry);
    if (entry.kind == "log") takeLog(entry);
    const bool byItself = entry.tells(EffectID::batteryRanOut) || entry.tells(EffectID::poweredOn);
    const bool cutOff = entry.kind == "app" && entry.text.find(" cut off: ") != std::string::npos;
    if (cutOff) addLine("cut off: ");
    if (entry.kind == "reply" || byItself) addLine(entry.kind + " " + entry.text);
  }

  /// Empty: the text has nothing that two runs have the same.
  static std::string lineOf(std::string_view text) {
    constexpr std::string_view helper = "helper ";
    if (text.starts_with(helper))
      text.remove_prefix(std::min(text.find(' ', helper.size()), text.size()));
    const std::string kept = withoutRunsOwn(text);
    return kept.empty() ? std::string() : "journal " + quotedText(kept);
  }

  void addLine(std::string_view text) {
    if (std::string line = lineOf(text); !line.empty()) add(std::move(line), {});
  }

  void add(std::string phrase, std::string state) {
    const Entry& entry = entries[at];
    found.effects.push_back(
        {entry.time, at, std::move(phrase), std::move(state), lineOf(entry.text)});
  }

  /// A state, or the entry's line if the state soon changes again.
  void addState(std::string phrase, std::string state) {
    const auto changes = [&](const Entry& later) { return stateOf(later) == state; };
    lasts(changes) ? add(std::move(phrase), std::move(state)) : addLine(entries[at].text);
  }

  template <class Changes>
  [[nodiscard]] bool lasts(const Changes& changes) const {
    const double until = entries[at].time + lastingSeconds;
    for (std::size_t next = at + 1; next < entries.size() && entries[next].time <= until; ++next) {
      if (changes(entries[next])) return false;
    }
    return true;
  }

  /// The state that an entry changes; empty: another one.
  static std::string stateOf(const Entry& entry) {
    const std::string& first = entry.effect.values.empty() ? entry.text : entry.effect.word(0);
    switch (entry.effect.id) {
      case EffectID::keyWritten:
        return first;
      case EffectID::inflowInhibitDropped:
        return "CHIE";
      case EffectID::settingWritten:
      case EffectID::settingByOther:
        return first;
      case EffectID::assertionCreated:
      case EffectID::assertionReleased:
      case EffectID::assertionTimedOut:
      case EffectID::assertionDropped:
        return "assertions";
      case EffectID::nativeLimitSet:
      case EffectID::nativeLimitByUser:
        return "native limit";
      case EffectID::fellAsleep:
      case EffectID::woke:
        return "asleep";
      case EffectID::helperStarted:
      case EffectID::helperExited:
      case EffectID::helperKilled:
        return "helper";
      default:
        return {};
    }
  }

  // ---- hardware keys

  void takeKey(const Entry& entry) {
    if (!entry.tells(EffectID::keyWritten)) return addLine("smc   " + entry.text);
    const std::string& key = entry.effect.word(0);
    const std::string& bytes = entry.effect.word(1);
    const auto before = keys.find(key);
    const bool isNew = before == keys.end() ? !isZero(bytes) : before->second != bytes;
    keys[key] = bytes;
    if (!isNew) return addLine("smc   " + entry.text);
    if (key == "CHTE") switched(gate, !isZero(bytes));
    const bool feeds = key == "CHIE" || key == "CH0I" || key == "CH0J";
    if (feeds) switched(inflow, !isZero(bytes));
    if (key == "CHTE" && hasGate) return addState(gate ? "gate paused" : "gate charging", key);
    if (feeds) return addState(inflow ? "inflow inhibited" : "inflow on", key);
    addState(key + '=' + bytes, key);
  }

  static bool isZero(std::string_view bytes) {
    return bytes.find_first_not_of("0 ") == std::string_view::npos;
  }

  void switched(bool& state, bool now) {
    if (state == now) return;
    endSteadyTime();
    state = now;
  }

  void endSteadyTime() {
    const double end = at < deeds.end ? entries[at].time : entries[deeds.end - 1].time;
    std::string phrase;
    if (hasGate) phrase = gate ? "gate paused" : "gate charging";
    if (hasGate && hasInflow) phrase += " and ";
    if (hasInflow) phrase += inflow ? "inflow inhibited" : "inflow on";
    if (!phrase.empty() && end - steadySince >= steadySeconds)
      found.steady.push_back({steadySince, end, phrase});
    steadySince = end;
  }

  // ---- power

  void takePower(const Entry& entry, bool isAction) {
    const auto& effect = entry.effect;
    switch (effect.id) {
      case EffectID::assertionCreated:
      case EffectID::assertionReleased:
      case EffectID::assertionTimedOut:
      case EffectID::assertionDropped:
        assertions += entry.tells(EffectID::assertionCreated) ? 1 : -1;
        return addState(fmt::format("assertions {}", std::max(assertions, 0)), "assertions");
      case EffectID::settingByOther:
        settings[effect.word(0)] = effect.word(1);
        return;
      case EffectID::settingWritten: {
        const bool isNew =
            std::exchange(settings[effect.word(0)], effect.word(1)) != effect.word(1);
        const bool isKnown = effect.word(0) == "SleepDisabled" && isNew;
        if (!isKnown) return addLine(entry.text);
        return addState(effect.word(1) == "0" ? "sleep-disabled off" : "sleep-disabled on",
                        effect.word(0));
      }
      case EffectID::nativeLimitSet: {
        const std::string limit = effect.word(0) == "none" ? "0" : effect.word(0);
        if (std::exchange(nativeLimit, limit) == limit) return addLine(entry.text);
        return addState("native-limit " + limit, "native limit");
      }
      case EffectID::nativeLimitByUser:
        nativeLimit = effect.word(0) == "none" ? "0" : effect.word(0);
        return;
      case EffectID::fellAsleep:
      case EffectID::woke:
        if (isAction) return;
        return addState(entry.tells(EffectID::woke) ? "awake" : "asleep", "asleep");
      case EffectID::sleepHeldOff:
      case EffectID::sleepTakenBack:
      case EffectID::settingRefused:
      case EffectID::nativeLimitRefused:
      case EffectID::nativeLimitIgnored:
      case EffectID::messageNotAcknowledged:
        if (!isAction) addLine(entry.text);
        return;
      default:
        return;
    }
  }

  // ---- the helper

  void takeHelper(const Entry& entry) {
    if (entry.tells(EffectID::helperStarted)) addState("helper running", "helper");
    if (entry.tells(EffectID::helperExited)) addExit(entry.effect.word(1));
  }

  void addExit(const std::string& status) {
    const auto restarts = [](const Entry& later) { return stateOf(later) == "helper"; };
    if (lasts(restarts)) return add("helper exited " + status, "helper");
    addLine(entries[at].text);
  }

  void takeLog(const Entry& entry) {
    const std::string_view message = entry.message();
    if (!entry.tells(EffectID::logged)) return;
    const bool isBad = entry.effect.word(1) != "default";
    if (!isBad && entry.effect.word(0) != "HelperImpl") return;
    const auto begins = [&](std::string_view start) { return message.starts_with(start); };
    if (std::ranges::any_of(routine, begins)) return;
    add("log " + quotedText(withoutRunsOwn(message)), {});
  }

  void takeDisk(const Entry& entry) {
    if (!entry.tells(EffectID::fileChanged)) {
      if (!entry.tells(EffectID::fileUnchanged)) addLine(entry.text);
      return;
    }
    std::string phrase;
    // A file that is new tells every field; the limit stands for them.
    const bool isNew = entry.effect.word(1) == "created";
    for (std::size_t index = 2; index < entry.effect.values.size(); ++index) {
      const std::string field = fieldPhrase(entry.effect.word(index));
      if (field.empty() || (isNew && !field.starts_with("saved chargeLimit="))) continue;
      phrase += (phrase.empty() ? "" : " and ") + field;
    }
    if (!phrase.empty()) add(std::move(phrase), {});
  }

  /// Empty: no two runs have it the same, or it changes again at once.
  [[nodiscard]] std::string fieldPhrase(const std::string& change) const {
    const std::size_t equals = std::min(change.find('='), change.size());
    const bool isGone = equals == change.size() && change.ends_with(" gone");
    const std::string name =
        isGone ? change.substr(0, change.size() - 5) : change.substr(0, equals);
    const auto changesAgain = [&](const Entry& later) {
      return later.kind == "disk" && (later.effect.field(name).has_value() ||
                                      later.text.find(" " + name + " gone") != std::string::npos);
    };
    if (!lasts(changesAgain)) return {};
    if (isGone) return fmt::format("saved {} absent", name);
    const std::string value =
        savedValue(std::string_view(change).substr(std::min(equals + 1, change.size())));
    return value.empty() ? std::string() : fmt::format("saved {}={}", name, value);
  }

  const SavedJournal& journal;
  const std::vector<Entry>& entries;
  const RecordedDeeds& deeds;
  RecordedEffects found;
  std::map<std::string, std::string> keys, settings;
  std::string nativeLimit = "0";
  std::size_t at = 0;
  int assertions = 0;
  bool hasGate = false, hasInflow = false;
  bool gate = false, inflow = false;  ///< Closed, and inhibited.
  double steadySince = 0;
};

}  // namespace

RecordedEffects effectsIn(const SavedJournal& journal, const RecordedDeeds& deeds) {
  return EffectReader(journal, deeds).read();
}

}  // namespace virtualmac
