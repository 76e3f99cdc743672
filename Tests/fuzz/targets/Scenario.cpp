#include "VirtualMac/Scenarios/Scenario.h"

#include <cmath>
#include <string>

#include "Tests/fuzz/Target.h"
#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Scenarios/StoryWriter.h"

namespace korvel::fuzz {

namespace {

using virtualmac::durationText;
using virtualmac::Expectation;
using virtualmac::parseScenario;
using virtualmac::Scenario;
using virtualmac::Step;
using virtualmac::ToldAction;
using virtualmac::WrittenStep;
using virtualmac::WrittenStory;

constexpr const char* file = "input.yaml";

/// Each line of a refusal names the file and a line of it.
void judgeDefects(const std::string& defects) {
  require(defects.starts_with(std::string(file) + ":"), "a refusal names no line: " + defects);
  require(defects.ends_with('\n'), "a refusal does not end its line: " + defects);
}

bool inMilliseconds(double seconds) {
  return std::abs(seconds * 1000 - std::round(seconds * 1000)) < 1e-6 && seconds < 1e9;
}

std::vector<std::string> textsOf(const std::vector<Expectation>& list, bool timed) {
  std::vector<std::string> texts;
  for (const Expectation& each : list)
    texts.push_back((timed ? durationText(each.seconds) + ' ' : "") + each.condition.text());
  return texts;
}

/// The story's steps as the writer takes them, which writes moments to the millisecond.
WrittenStory storyOf(const Scenario& scenario) {
  WrittenStory story{.name = scenario.name,
                     .description = scenario.description,
                     .profile = scenario.profile,
                     .seed = scenario.seed,
                     .start = {},
                     .steps = {},
                     .end = scenario.end};
  for (const Step& step : scenario.steps) {
    WrittenStep written{.time = step.time};
    for (const ToldAction& each : step.actions) written.actions.push_back(each.action.text());
    written.expect = textsOf(step.expect, false);
    written.within = textsOf(step.within, true);
    written.holds = textsOf(step.holds, true);
    story.steps.push_back(std::move(written));
  }
  return story;
}

bool isExact(const Scenario& scenario) {
  bool exact = inMilliseconds(scenario.end);
  for (const Step& step : scenario.steps) {
    exact = exact && inMilliseconds(step.time);
    for (const auto* list : {&step.within, &step.holds}) {
      for (const Expectation& each : *list) exact = exact && inMilliseconds(each.seconds);
    }
  }
  return exact;
}

void writtenAgain(const Scenario& scenario) {
  const WrittenStory story = storyOf(scenario);
  const auto again = parseScenario(story.text(), file);
  require(again.has_value(), "its own text is refused: " + (again ? "" : again.error()));
  require(again->name == scenario.name && again->description == scenario.description &&
              again->profile == scenario.profile && again->seed == scenario.seed,
          "its head does not come back");
  require(storyOf(*again).text() == story.text(), "it does not come back from its text");
}

}  // namespace

/// The input is a story. Paths are left out: they would make it depend on this system's files.
void scenario(std::string_view input) {
  if (input.find('/') != std::string_view::npos || input.find(".json") != std::string_view::npos)
    return;
  const std::string text(input);
  const auto read = parseScenario(text, file);
  if (!read) return judgeDefects(read.error());
  double latest = 0;
  for (const Step& step : read->steps) {
    require(step.time >= latest, "the steps are not in the order of time");
    require(step.line >= 1, "a step stands on no line");
    latest = step.time;
  }
  require(read->end >= latest, "the story ends before its last step");
  require(latest <= virtualmac::bounds::longestSeconds, "the story is too long");
  // Repetitions make some stories too long to write them often.
  constexpr std::size_t fewSteps = 100;
  if (read->steps.size() <= fewSteps && isExact(*read)) writtenAgain(*read);
}

}  // namespace korvel::fuzz
