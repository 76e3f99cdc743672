#include "VirtualMac/Scenarios/Recorder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <expected>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Scenarios/RecordedEffects.h"
#include "VirtualMac/Scenarios/StoryWriter.h"

namespace virtualmac {

namespace {

/// An effect may come so much later or earlier: the helper's loop looks every five seconds.
constexpr double tickSeconds = 5;
/// An effect that comes longer after what was done has a step of its own.
constexpr double nearSeconds = 30;
/// Real actions so near to each other are one step's. Further ones are told apart, because a second
/// more on the adapter is felt for hours.
constexpr double together = 0.3;
/// Real processes may be late by so much real time.
constexpr double lateRealSeconds = 0.05;
/// A level may differ by so much at the end.
constexpr int nearPercent = 2;
/// A steady time is looked at from so much and a slack after its begin, to as much before its end.
constexpr double marginSeconds = 10;

/// A round time, which is at least as long.
double roundTime(double seconds) {
  static constexpr std::array<double, 7> times{5, 10, 15, 20, 30, 45, 60};
  const auto* const found = std::ranges::lower_bound(times, seconds);
  return found == times.end() ? std::ceil(seconds / 60) * 60 : *found;
}

class Recorder {
 public:
  explicit Recorder(const SavedJournal& read) : journal(read), deeds(deedsIn(read)) {
    isLive = !journal.head || journal.head->speed.has_value();
    double last = journal.end.value_or(0);
    if (!journal.end && deeds.end > 0) last = journal.entries[deeds.end - 1].time;
    story.end = isLive ? std::ceil(last) + tickSeconds : last;
  }

  Recording record() {
    story.name = "A recorded run";
    story.description = "Does again what a journal tells, and expects what followed.";
    takeHead();
    takeDeeds();
    takeEffects();
    takeSteadyTimes();
    takeEnd();
    sortSteps();
    return {story.text(), std::move(deeds.unsayable)};
  }

 private:
  void refuse(std::string text) {
    deeds.unsayable.insert(deeds.unsayable.begin(), {0, 1, std::move(text)});
  }

  // ---- the start

  void takeHead() {
    if (!journal.head) {
      story.profile = "newer-keys";
      return refuse("no line tells the machine's start; it is taken for newer-keys");
    }
    const JournalHead& head = *journal.head;
    story.profile = head.profileFile.empty() ? head.profile : head.profileFile;
    if (head.seed != std::optional<std::uint64_t>(1)) story.seed = head.seed;
    const auto usual = usualStart(story.profile);
    if (!usual) return refuse(usual.error());
    takeStart(head.start, *usual);
    if (head.start.helperVersion != std::optional<std::string>("2.0.0"))
      add("helper-version", head.start.helperVersion.value_or("none"));
    if (head.start.restartAfterCrash) add("restart-after-crash", "yes");
    if (head.start.savedState) add("saved-state", *head.start.savedState);
    if (!head.start.savedStateUntold.empty())
      refuse("the state file at the start cannot be told: " + head.start.savedStateUntold);
  }

  static std::expected<JournalHead::Start, std::string> usualStart(const std::string& profile) {
    auto loaded = loadProfile(profile);
    if (!loaded) return std::unexpected(loaded.error());
    Journal nowhere([] { return 0.0; });
    const Machine machine(*std::move(loaded), nowhere);
    return JournalHead::of(machine, {}).start;
  }

  void add(std::string key, std::string value) {
    story.start.emplace_back(std::move(key), std::move(value));
  }

  void takeStart(const JournalHead::Start& start, const JournalHead::Start& usual) {
    const auto number = [&](const char* key, double now, double then) {
      if (now != then) add(key, fmt::format("{}", now));
    };
    const auto word = [&](const char* key, bool differs, const char* value) {
      if (differs) add(key, value);
    };
    if (start.batteryPercent)
      number("battery", *start.batteryPercent, usual.batteryPercent.value_or(-1));
    number("ambient", start.ambientCelsius, usual.ambientCelsius);
    number("native-limit", static_cast<double>(start.nativeLimit),
           static_cast<double>(usual.nativeLimit));
    number("idle-sleep", static_cast<double>(start.idleSleepMinutes),
           static_cast<double>(usual.idleSleepMinutes));
    word("adapter", start.adapterConnected != usual.adapterConnected,
         start.adapterConnected ? "on" : "off");
    word("lid", start.lid != usual.lid, start.lid.c_str());
    word("display", start.displayConnected != usual.displayConnected,
         start.displayConnected ? "on" : "off");
    word("sleep-disabled", start.sleepDisabled != usual.sleepDisabled,
         start.sleepDisabled ? "on" : "off");
    for (const std::string& fault : start.faults) add("faults", fault);
    if (start.temperatureCelsius != usual.temperatureCelsius)
      refuse("the battery's temperature at the start is not that of its surroundings");
    if (start.smcKeys != usual.smcKeys) refuse("hardware keys at the start are not the profile's");
  }

  // ---- the steps

  /// Tenths are exact enough for real time, and read well.
  [[nodiscard]] double stepTime(double seconds) const {
    return isLive ? std::floor(seconds * 10) / 10 : seconds;
  }
  /// How much earlier or later an effect may come.
  [[nodiscard]] double slackSeconds() const {
    const double speed = journal.head ? journal.head->speed.value_or(0) : 0;
    return tickSeconds + lateRealSeconds * speed;
  }

  /// Actions before the helper's first start belong to the story's start, if they can stand there.
  bool takesAsStart(const RecordedDeed& deed, double firstStart, std::size_t firstIndex) {
    if (deed.time > firstStart || deed.index > firstIndex) return false;
    const std::size_t space = std::min(deed.phrase.find(' '), deed.phrase.size());
    std::string key = deed.phrase.substr(0, space);
    std::string value = deed.phrase.substr(std::min(space + 1, deed.phrase.size()));
    if (key == "fault" && value.ends_with(" on")) {
      add("faults", value.substr(0, value.size() - 3));
      return true;
    }
    const Deed* known = deedNamed(key);
    const bool isNew =
        std::ranges::find(story.start, key, &std::pair<std::string, std::string>::first) ==
        story.start.end();
    if (known == nullptr || !known->values || !isNew || value == "renegotiate") return false;
    add(std::move(key), std::move(value));
    return true;
  }

  void takeDeeds() {
    const auto started = std::ranges::find_if(
        journal.entries, [](const auto& entry) { return entry.tells(EffectID::helperStarted); });
    const auto firstIndex = static_cast<std::size_t>(started - journal.entries.begin());
    const double firstStart = started == journal.entries.end() ? 0 : started->time;
    double latest = 0;
    bool begun = false;
    for (const RecordedDeed& deed : deeds.deeds) {
      if (!begun && takesAsStart(deed, firstStart, firstIndex)) continue;
      if (!begun || !joins(deed, latest)) {
        story.steps.push_back({.time = stepTime(deed.time)});
        firsts.push_back(deed.index);
      }
      begun = true;
      latest = deed.time;
      WrittenStep& step = story.steps.back();
      step.actions.push_back(deed.phrase);
      if (deed.reply.empty()) continue;
      step.reply = deed.reply == "ok" ? "" : deed.reply;
      asked = deed.reply;
    }
  }

  /// Whether an action belongs to the latest step: all requests of a step are answered alike.
  bool joins(const RecordedDeed& deed, double latest) {
    const bool isNear = isLive ? deed.time - latest < together : deed.time == latest;
    const bool alike = deed.reply.empty() || asked.empty() || asked == deed.reply;
    if (!isNear || !alike) asked.clear();
    return isNear && alike;
  }

  /// Whether an effect comes after a step's first action.
  [[nodiscard]] bool follows(const RecordedEffect& effect, std::size_t step) const {
    return isLive ? story.steps[step].time <= effect.time : firsts[step] < effect.index;
  }

  /// Effects before the first action are looked for afterwards: a story listens from its first step
  /// on, and the helper starts before.
  void takeBoot(std::size_t& next) {
    WrittenStep boot;
    const double first = story.steps.empty() ? story.end : story.steps.front().time;
    boot.time = std::min(first, tickSeconds);
    for (; next < effects.effects.size(); ++next) {
      const RecordedEffect& effect = effects.effects[next];
      const bool isAfter = !story.steps.empty() && follows(effect, 0);
      if (isAfter || effect.time > tickSeconds) break;
      if (std::ranges::find(boot.expect, effect.phrase) == boot.expect.end())
        boot.expect.push_back(effect.phrase);
    }
    if (boot.expect.empty()) return;
    story.steps.insert(story.steps.begin(), boot);
    firsts.insert(firsts.begin(), 0);
  }

  void takeEffects() {
    effects = effectsIn(journal, deeds);
    std::size_t each = 0;
    takeBoot(each);
    std::vector<WrittenStep> own;
    std::size_t next = 0;  // of the steps with actions
    WrittenStep* step = nullptr;
    std::set<std::string> said, states;
    own.reserve(effects.effects.size());  // `step` may point into it.
    for (; each < effects.effects.size(); ++each) {
      const RecordedEffect& effect = effects.effects[each];
      while (next < story.steps.size() && follows(effect, next)) {
        step = &story.steps[next++];
        said.clear();
        states.clear();
      }
      // A line that repeats itself is told once for what was done.
      if (effect.state.empty() && !said.insert(effect.phrase).second) continue;
      if (step == nullptr || effect.time - step->time > nearSeconds) {
        const double before = step == nullptr ? 0 : step->time;
        own.push_back({.time = std::max(before, std::floor(effect.time - slackSeconds()))});
        step = &own.back();
        states.clear();
      }
      const bool repeats = !effect.state.empty() && !states.insert(effect.state).second;
      WrittenStep& listening = effect.state.empty() ? listener(*step, next, effect.time) : *step;
      tell(listening, repeats ? effect.line : effect.phrase, effect.time);
    }
    story.steps.insert(story.steps.end(), own.begin(), own.end());
  }

  /// The step that listens for a line. In real time a line may come before an action that it came
  /// after, so that an earlier step has to, if it is near.
  WrittenStep& listener(WrittenStep& latest, std::size_t next, double time) {
    if (!isLive || next == 0 || &latest != &story.steps[next - 1]) return latest;
    while (next > 1 && story.steps[next - 2].time >= time - tickSeconds) --next;
    return story.steps[next - 1];
  }

  void tell(WrittenStep& step, const std::string& phrase, double time) {
    const auto says = [&](const std::string& each) { return each.ends_with(' ' + phrase); };
    if (phrase.empty() || std::ranges::any_of(step.within, says)) return;
    double seconds = roundTime(time - step.time + slackSeconds());
    if (!isLive) seconds = std::min(seconds, story.end - step.time);
    step.within.push_back(durationText(seconds) + ' ' + phrase);
    story.end = std::max(story.end, step.time + seconds);
  }

  void takeSteadyTimes() {
    for (const SteadyTime& each : effects.steady) {
      const double margin = std::ceil(marginSeconds + slackSeconds());
      const double begin = std::ceil(each.begin) + margin;
      const double length = std::floor(each.end - margin - begin);
      if (length <= 0) continue;
      story.steps.push_back({.time = begin, .holds = {durationText(length) + ' ' + each.phrase}});
    }
  }

  void takeEnd() {
    WrittenStep last{.time = story.end};
    std::optional<int> level;
    if (journal.head && journal.head->start.batteryPercent)
      level = static_cast<int>(std::lround(*journal.head->start.batteryPercent));
    for (std::size_t index = 0; index < deeds.end; ++index) {
      const Journal::Entry& entry = journal.entries[index];
      if (entry.tells(EffectID::batteryLevel)) level = static_cast<int>(entry.effect.number(0));
      if (entry.tells(EffectID::batterySet))
        level = static_cast<int>(std::lround(std::strtod(entry.effect.word(0).c_str(), nullptr)));
    }
    if (!level) return;
    last.expect.push_back(fmt::format("battery {} to {}", std::max(*level - nearPercent, 0),
                                      std::min(*level + nearPercent, 100)));
    story.steps.push_back(std::move(last));
  }

  /// Steps of one time stay in the order in which they were made.
  void sortSteps() {
    std::multimap<double, WrittenStep> sorted;
    for (WrittenStep& step : story.steps) sorted.emplace(step.time, std::move(step));
    story.steps.clear();
    for (auto& [time, step] : sorted) story.steps.push_back(std::move(step));
  }

  const SavedJournal& journal;
  RecordedDeeds deeds;
  RecordedEffects effects;
  WrittenStory story;
  std::vector<std::size_t> firsts;  ///< The entry of each step's first action.
  std::string asked;  ///< How the requests of the latest step are answered; empty: it has none.
  bool isLive = false;
};

}  // namespace

Recording record(const SavedJournal& journal) { return Recorder(journal).record(); }

}  // namespace virtualmac
