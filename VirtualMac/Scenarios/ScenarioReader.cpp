#include <fmt/ranges.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <array>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Deeds.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Machine/Profile.h"
#include "VirtualMac/Scenarios/Phrase.h"
#include "VirtualMac/Scenarios/Scenario.h"
#include "VirtualMac/Scenarios/StoryText.h"

namespace virtualmac {

namespace {

int lineOf(const YAML::Node& node) { return node.Mark().line + 1; }

/// Reads one scenario file. Goes on after a defect, so that all of them are told at once.
class ScenarioReader {
 public:
  explicit ScenarioReader(std::string fileName) { scenario.file = std::move(fileName); }

  void defect(int line, const std::string& text) {
    defects += fmt::format("{}:{}: {}\n", scenario.file, line, text);
  }

  void read(const YAML::Node& document) {
    YAML::Node steps;
    double end = 0;
    const auto each = [&](const std::string& key, const YAML::Node& node, int line) {
      if (key == "name") scenario.name = text(node, line);
      if (key == "description") scenario.description = text(node, line);
      if (key == "profile") {
        scenario.profile = text(node, line);
        if (const auto loaded = loadProfile(scenario.profile); !loaded)
          defect(line, loaded.error());
      }
      if (key == "seed") {
        Phrase phrase(text(node, line));
        scenario.seed = static_cast<std::uint64_t>(phrase.takeNumber("seed", 0, 4294967295.0));
        if (phrase.complaint()) defect(line, *phrase.complaint());
      }
      if (key == "start") readStart(node);
      if (key == "steps") steps = node;
      if (key == "ends") {
        const auto moment = momentFrom(text(node, line));
        moment ? void(end = *moment) : defect(line, moment.error());
      }
      if (key != "never" && key != "always") return;
      for (const Value& value : values(node, line)) {
        addExpectation(value, false, true, key == "never" ? scenario.never : scenario.always);
      }
    };
    entries(document, "a scenario",
            {"name", "description", "profile", "seed", "start", "steps", "never", "always", "ends"},
            each);
    if (scenario.name.empty()) defect(1, "the scenario has no name");
    if (scenario.description.empty()) defect(1, "the scenario has no description");
    if (steps.IsDefined() && steps.IsSequence()) readSteps(steps, 0);
    if (scenario.steps.empty()) defect(1, "the scenario has no steps");
    finish(end);
  }

  Scenario scenario;
  std::string defects;  ///< A line each.

 private:
  struct Value {
    std::string text;
    int line = 0;
  };
  using Keys = std::vector<std::string_view>;

  /// Calls `each(key, value, line)` for every entry of a mapping whose key is among `allowed`.
  void entries(const YAML::Node& mapping, std::string_view what, const Keys& allowed,
               const std::function<void(const std::string&, const YAML::Node&, int)>& each) {
    if (!mapping.IsMap()) {
      return defect(lineOf(mapping), fmt::format("{} is a mapping with the keys {}", what,
                                                 fmt::join(allowed, ", ")));
    }
    std::set<std::string> seen;
    for (const auto& entry : mapping) {
      const std::string key = entry.first.Scalar();
      const int line = lineOf(entry.first);
      if (std::find(allowed.begin(), allowed.end(), key) == allowed.end()) {
        defect(line, unknownWord(fmt::format("{}'s key", what), key, allowed));
      } else if (!seen.insert(key).second) {
        defect(line, fmt::format("{} has the key \"{}\" twice", what, key));
      } else {
        each(key, entry.second, line);
      }
    }
  }

  /// A single value or a list of them.
  std::vector<Value> values(const YAML::Node& node, int line) {
    std::vector<Value> found;
    if (node.IsScalar()) found.push_back({node.Scalar(), lineOf(node)});
    if (node.IsSequence()) {
      for (const YAML::Node& item : node) {
        if (item.IsScalar()) {
          found.push_back({item.Scalar(), lineOf(item)});
        } else {
          defect(lineOf(item), "a list of phrases holds nothing but phrases");
        }
      }
    }
    if (found.empty()) defect(line, "a phrase or a list of phrases is missing here");
    phrases += found.size();
    stopBeyond(phrases, bounds::mostPhrases, "phrases", line);
    if (overfull) found.clear();
    return found;
  }

  /// Reports, once, a count beyond its bound; nothing more is read then.
  void stopBeyond(std::size_t count, std::size_t most, std::string_view what, int line) {
    if (count <= most || overfull) return;
    overfull = true;
    defect(line, fmt::format("the scenario has more than {} {} once its repetitions are unrolled",
                             most, what));
  }

  std::string text(const YAML::Node& node, int line) {
    if (node.IsScalar()) return node.Scalar();
    defect(line, "a text is missing here");
    return {};
  }

  bool boolean(const YAML::Node& node, int line) {
    const std::string word = text(node, line);
    if (word != "yes" && word != "no")
      defect(line, fmt::format("\"{}\" is neither yes nor no", word));
    return word == "yes";
  }

  void readStart(const YAML::Node& node) {
    // The deeds with a value are said here with the same words.
    Keys allowed = deedNames(true);
    for (const char* key : {"faults", "saved-state", "helper-version", "restart-after-crash"}) {
      allowed.emplace_back(key);
    }
    entries(node, "start", allowed, [&](const std::string& key, const YAML::Node& value, int line) {
      if (key == "faults") {
        for (Value fault : values(value, line)) {
          fault.text = "fault " + fault.text + " on";
          addAction(fault, scenario.start);
        }
      } else if (key == "saved-state") {
        scenario.savedState = text(value, line);
      } else if (key == "helper-version") {
        scenario.helperVersion = text(value, line);
        if (scenario.helperVersion == "none") scenario.helperVersion.reset();
      } else if (key == "restart-after-crash") {
        scenario.restartAfterCrash = boolean(value, line);
      } else {
        addAction({key + " " + text(value, line), line}, scenario.start);
      }
    });
  }

  void readSteps(const YAML::Node& list, double from) {
    for (const YAML::Node& node : list) {
      if (overfull) return;
      if (node.IsMap() && node["repeat"]) {
        readRepeat(node, from);
      } else {
        readStep(node, from);
      }
    }
  }

  void readStep(const YAML::Node& node, double from) {
    Step step;
    step.line = lineOf(node);
    step.time = -1;
    const auto each = [&](const std::string& key, const YAML::Node& value, int line) {
      for (const Value& phrase : values(value, line)) {
        if (key == "at" || key == "after") readTime(key, phrase, from, step);
        if (key == "do") addAction(phrase, step.actions);
        if (key == "reply") readReply(phrase, step);
        if (key == "given") addExpectation(phrase, false, false, step.given);
        if (key == "expect") addExpectation(phrase, false, false, step.expect);
        if (key == "within") addExpectation(phrase, true, true, step.within);
        if (key == "holds") addExpectation(phrase, true, true, step.holds);
      }
    };
    entries(node, "a step", {"at", "after", "given", "do", "reply", "expect", "within", "holds"},
            each);
    if (overfull) return;
    if (step.time < 0) return defect(step.line, "a step says when: at MOMENT or after DURATION");
    stopBeyond(scenario.steps.size() + 1, bounds::mostSteps, "steps", step.line);
    if (step.time > bounds::longestSeconds) {
      return defect(step.line, fmt::format("this step is {}", tooLongText()));
    }
    if (step.time < latest) {
      return defect(step.line, fmt::format("this step is before the one in line {}", latestLine));
    }
    if (step.reply.line > 0 &&
        std::ranges::none_of(step.actions, &Action::isRequest, &ToldAction::action)) {
      defect(step.reply.line, "a reply without a request");
    }
    latest = step.time;
    latestLine = step.line;
    scenario.steps.push_back(std::move(step));
  }

  void readTime(const std::string& key, const Value& value, double from, Step& step) {
    if (step.time >= 0) return defect(value.line, "a step has one time");
    const auto seconds = key == "at" ? momentFrom(value.text) : durationFrom(value.text);
    if (!seconds) return defect(value.line, seconds.error());
    step.time = (key == "at" ? from : latest) + *seconds;
  }

  void readRepeat(const YAML::Node& node, double from) {
    double start = 0;
    double every = 0;
    double times = 0;
    YAML::Node steps;
    const auto each = [&](const std::string& key, const YAML::Node& value, int line) {
      if (key == "steps") {
        steps = value;
        return;
      }
      const std::string word = text(value, line);
      if (key == "repeat") {
        Phrase phrase(word);
        times = phrase.takeNumber("repeat", 1, 10000);
        if (phrase.complaint()) defect(line, *phrase.complaint());
        return;
      }
      const auto seconds = key == "at" ? momentFrom(word) : durationFrom(word);
      if (!seconds) return defect(line, seconds.error());
      (key == "at" ? start : every) = *seconds;
    };
    entries(node, "a repetition", {"at", "repeat", "every", "steps"}, each);
    if (!steps.IsDefined() || !steps.IsSequence() || every <= 0) {
      return defect(lineOf(node), "a repetition says every DURATION and has a list of steps");
    }
    if (steps.size() == 0) return defect(lineOf(steps), "a repetition has no steps");
    for (int round = 0; round < static_cast<int>(times); ++round) {
      readSteps(steps, from + start + round * every);
      // A defect in the steps is the same in every round.
      if (!defects.empty()) return;
    }
  }

  void readReply(const Value& value, Step& step) {
    using enum Answer::Kind;
    static constexpr std::array<std::optional<Answer::Kind>, 4> kinds{Ok, Failed, Lost, {}};
    Phrase phrase(value.text);
    step.reply.line = value.line;
    step.reply.kind = kinds.at(phrase.takeOneOf("reply", {"ok", "failed", "lost", "none"}));
    if (step.reply.kind == Failed && !phrase.atEnd()) {
      step.reply.code = static_cast<std::int64_t>(phrase.takeNumber("error code", 400, 599));
      if (!phrase.atEnd()) step.reply.text = phrase.take("a text");
    }
    phrase.takeEnd();
    if (phrase.complaint()) defect(value.line, *phrase.complaint());
  }

  void addAction(const Value& value, std::vector<ToldAction>& actions) {
    auto action = Action::parse(value.text);
    if (!action) return defect(value.line, action.error());
    actions.push_back({*std::move(action), value.line});
  }

  void addExpectation(const Value& value, bool timed, bool watched,
                      std::vector<Expectation>& expectations) {
    Expectation expectation;
    expectation.line = value.line;
    std::string_view phrase = value.text;
    if (timed) {
      const std::size_t space = std::min(phrase.find(' '), phrase.size());
      const auto seconds = durationFrom(phrase.substr(0, space));
      if (!seconds) return defect(value.line, seconds.error());
      expectation.seconds = *seconds;
      phrase.remove_prefix(std::min(space + 1, phrase.size()));
    }
    auto condition = Condition::parse(phrase);
    if (!condition) return defect(value.line, condition.error());
    if (watched && !condition->canBeWatched()) {
      return defect(value.line, "the helper is asked at one moment only: use expect, or \"saved\"");
    }
    expectation.condition = std::move(*condition);
    expectations.push_back(std::move(expectation));
  }

  void finish(double end) {
    scenario.end = end;
    for (const Step& step : scenario.steps) {
      double last = step.time;
      for (const auto* list : {&step.within, &step.holds}) {
        for (const Expectation& watched : *list) last = std::max(last, step.time + watched.seconds);
      }
      if (end > 0 && last > end) defect(step.line, "this step or what it expects is after the end");
      scenario.end = std::max(scenario.end, last);
    }
  }

  double latest = 0;  ///< The last step's time.
  int latestLine = 0;
  std::size_t phrases = 0;
  bool overfull = false;
};

}  // namespace

std::expected<Scenario, std::string> parseScenario(const std::string& text,
                                                   const std::string& file) {
  ScenarioReader reader(file);
  if (const auto defect = storyDefect(text)) {
    reader.defect(defect->line, defect->text);
    return std::unexpected(reader.defects);
  }
  try {
    reader.read(YAML::Load(text));
  } catch (const YAML::Exception& failure) {
    reader.defect(failure.mark.line + 1, failure.msg);
  }
  if (!reader.defects.empty()) return std::unexpected(reader.defects);
  return std::move(reader.scenario);
}

std::expected<Scenario, std::string> loadScenario(const std::string& file) {
  const auto text = readTextFile(file);
  if (!text) return std::unexpected(text.error() + '\n');
  return parseScenario(*text, file);
}

}  // namespace virtualmac
