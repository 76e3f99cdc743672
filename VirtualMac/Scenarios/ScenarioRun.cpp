#include "VirtualMac/Scenarios/ScenarioRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

#include "VirtualMac/Machine/Machine.h"

namespace virtualmac {

namespace {

constexpr double answerSeconds = 10;
constexpr double secondsAfterFailure = 2;
constexpr std::size_t linesAroundFailure = 16;
constexpr double endless = std::numeric_limits<double>::infinity();

TimelineState stateOf(Machine& machine, bool helperRunning) {
  TimelineState state;
  state.percent = machine.battery.percent();
  state.adapterConnected = machine.adapter.isConnected();
  state.chargingPaused = machine.smc.chargingInhibited();
  state.inflowInhibited = machine.smc.inflowInhibited();
  state.lidClosed = machine.lid.isClosed();
  state.asleep = machine.power.isAsleep();
  state.helperRunning = helperRunning;
  return state;
}

std::string answerText(const std::optional<Answer>& answer) {
  if (!answer) return fmt::format("no answer came within {} s", answerSeconds);
  if (answer->kind == Answer::Kind::Ok) return "it succeeded";
  if (answer->kind == Answer::Kind::Lost) return "the connection ended before an answer";
  if (!answer->error) return "it failed without an error";
  return fmt::format("it failed with {} \"{}\"", answer->error->code,
                     answer->error->localizedDescription());
}

std::string replyText(const ExpectedReply& reply) {
  switch (reply.kind) {
    case ExpectedReply::Kind::Ok:
      return "success";
    case ExpectedReply::Kind::Lost:
      return "the connection to end";
    case ExpectedReply::Kind::None:
      return "nothing";
    case ExpectedReply::Kind::Failed:
      break;
  }
  std::string text = "failure";
  if (reply.code) text += fmt::format(" with {}", *reply.code);
  if (reply.text) text += fmt::format(" and \"{}\"", *reply.text);
  return text;
}

bool matches(const ExpectedReply& reply, const Answer& answer) {
  switch (reply.kind) {
    case ExpectedReply::Kind::Ok:
      return answer.kind == Answer::Kind::Ok;
    case ExpectedReply::Kind::Lost:
      return answer.kind == Answer::Kind::Lost;
    case ExpectedReply::Kind::None:
      return true;
    case ExpectedReply::Kind::Failed:
      break;
  }
  if (answer.kind != Answer::Kind::Failed) return false;
  if (reply.code && (!answer.error || answer.error->code != *reply.code)) return false;
  return !reply.text || (answer.error && answer.error->localizedDescription().find(*reply.text) !=
                                             std::string::npos);
}

}  // namespace

struct ScenarioRun::Ears {
  std::vector<Journal::Entry> entries;
};

ScenarioRun::ScenarioRun(const Scenario& played, Stage& place, std::string command,
                         Onlooker looking)
    : scenario(played),
      stage(place),
      rerun(std::move(command)),
      onlooker(std::move(looking)),
      ears(std::make_shared<Ears>()) {
  stage.journal().addListener(
      [heard = ears](const Journal::Entry& entry) { heard->entries.push_back(entry); });
}

ScenarioRun::~ScenarioRun() = default;

ScenarioOutcome ScenarioRun::run() {
  int line = 1;
  try {
    setUp();
    for (const Step& step : scenario.steps) {
      line = step.line;
      if (!failure) advance(step.time);
      if (!failure) play(step);
    }
    if (!failure) advance(scenario.end);
    if (!failure) held += watches.size();  // "never" and "always" held throughout.
    for (const std::string& violation : stage.violations()) fail(line, violation);
    // The report shows what followed the failure too.
    if (failure && !failure->stopped)
      stage.runUntil(stage.now() + secondsAfterFailure, [] { return false; });
  } catch (const std::exception& trouble) {
    fail(line, trouble.what());
  }
  hear();
  ScenarioOutcome outcome;
  outcome.passed = !failure;
  outcome.stopped = failure && failure->stopped;
  outcome.virtualSeconds = stage.now();
  outcome.journalHash = stage.journal().hash();
  outcome.expectations = held;
  if (failure) outcome.report = report();
  if (timeline && failure) {
    timeline->fail(failure->time, failure->stopped
                                      ? failure->text
                                      : fmt::format("line {}: {}", failure->line, failure->text));
  }
  if (timeline) outcome.timeline = timeline->finish(stage.now());
  return outcome;
}

void ScenarioRun::setUp() {
  if (scenario.savedState) stage.setSavedState(*scenario.savedState);
  for (std::size_t index = 0; index < scenario.start.size(); ++index) {
    perform(scenario.start[index], scenario.startLines[index], {});
  }
  timeline.emplace(scenario.name, stage.now(), stateOf(stage.machine(), stage.helperRunning()));
  heardUpTo = ears->entries.size();
  for (const Expectation& expectation : scenario.never) {
    watches.push_back({Watching::Never, expectation, endless});
  }
  for (const Expectation& expectation : scenario.always) {
    watches.push_back({Watching::Always, expectation, endless});
  }
  Launchd& launchd = stage.machine().launchd;
  launchd.job.restartAfterCrash = scenario.restartAfterCrash;
  launchd.load();
}

void ScenarioRun::play(const Step& step) {
  stepLine = step.line;
  judgeExpectations(step.given);
  if (failure) return;
  if (!step.actions.empty()) stepBegan = ears->entries.size();
  startWatching(step);
  for (std::size_t index = 0; index < step.actions.size() && !failure; ++index) {
    perform(step.actions[index], step.actionLines[index], step.reply);
  }
  for (Watch& watch : watches) watch.waiting = false;
  if (!failure) judgeWatches(false);
  if (!failure) judgeExpectations(step.expect);
}

void ScenarioRun::perform(const Action& action, int line, const ExpectedReply& reply) {
  auto answer = std::make_shared<std::optional<Answer>>();
  try {
    action.perform(stage, [answer](Answer given) { *answer = std::move(given); });
  } catch (const std::exception& trouble) {
    return fail(line, fmt::format("\"{}\" cannot be done: {}", action.text(), trouble.what()));
  }
  if (action.isRequest() && reply.kind != ExpectedReply::Kind::None) {
    stage.runUntil(stage.now() + answerSeconds + stage.graceSeconds(),
                   [&] { return judgeWatches(false) || answer->has_value(); });
    if (!failure) judgeReply(action, line, reply, *answer);
  }
  if (!failure) stage.runUntil(stage.now(), [this] { return judgeWatches(false); });
}

void ScenarioRun::judgeReply(const Action& action, int line, const ExpectedReply& reply,
                             const std::optional<Answer>& answer) {
  if (answer && matches(reply, *answer)) {
    ++held;
    return;
  }
  fail(line, fmt::format("\"{}\": expected {}, but {}", action.text(), replyText(reply),
                         answerText(answer)));
}

void ScenarioRun::judgeExpectations(const std::vector<Expectation>& expectations) {
  for (const Expectation& expectation : expectations) {
    Condition condition = expectation.condition;
    for (std::size_t index = stepBegan; index < ears->entries.size(); ++index) {
      condition.hear(ears->entries[index]);
    }
    // Among real processes the condition gets a grace to become true.
    const double patience = stage.now() + stage.graceSeconds();
    while (!condition.holds(stage) && stage.now() < patience && !failure) {
      const std::size_t heard = ears->entries.size();
      stage.runUntil(std::min(patience, stage.now() + stage.graceSeconds() / 10),
                     [this] { return judgeWatches(false); });
      for (std::size_t index = heard; index < ears->entries.size(); ++index) {
        condition.hear(ears->entries[index]);
      }
    }
    if (failure) return;
    if (!condition.holds(stage)) {
      return fail(expectation.line, fmt::format("expected \"{}\", but {}", condition.text(),
                                                condition.actual(stage)));
    }
    ++held;
  }
}

void ScenarioRun::startWatching(const Step& step) {
  hear();
  const double begin = std::max(step.time, stage.now());
  const auto watch = [&](Watching kind, const Expectation& expectation) {
    const double grace = kind == Watching::Within ? stage.graceSeconds() : -stage.graceSeconds();
    const double length = std::max(0.0, expectation.seconds + grace);
    watches.push_back({kind, expectation, begin + length, true});
  };
  for (const Expectation& expectation : step.within) watch(Watching::Within, expectation);
  for (const Expectation& expectation : step.holds) watch(Watching::Holds, expectation);
}

void ScenarioRun::advance(double moment) {
  while (!failure) {
    double next = moment;
    for (const Watch& watch : watches) {
      if (!watch.over) next = std::min(next, watch.deadline);
    }
    stage.runUntil(next, [this] { return judgeWatches(false); });
    if (!failure) judgeWatches(true);
    if (next >= moment) return;
  }
}

bool ScenarioRun::judgeWatches(bool atDeadline) {
  hear();
  if (isOver()) return true;
  for (Watch& watch : watches) {
    if (failure) break;
    if (!watch.over && !watch.waiting) judge(watch, atDeadline && stage.now() >= watch.deadline);
  }
  std::erase_if(watches, [](const Watch& watch) { return watch.over; });
  return failure.has_value();
}

void ScenarioRun::judge(Watch& watch, bool atDeadline) {
  const Condition& condition = watch.expectation.condition;
  const bool holds = condition.holds(stage);
  const bool wanted = watch.kind != Watching::Never;
  const bool good = holds == wanted;
  if (watch.kind == Watching::Within ? good : atDeadline && good) {
    watch.over = true;
    ++held;
    return;
  }
  // "within" may still come true; a "holds" that waits for a line is judged at its end only.
  const bool patient =
      watch.kind == Watching::Within || (watch.kind == Watching::Holds && condition.listens());
  if (good || (patient && !atDeadline)) return;
  static constexpr const char* texts[] = {"never", "always", "within {}s", "for {}s"};
  const std::string when = fmt::format(fmt::runtime(texts[static_cast<std::size_t>(watch.kind)]),
                                       watch.expectation.seconds);
  fail(watch.expectation.line, fmt::format("expected {} \"{}\", but {}", when, condition.text(),
                                           condition.actual(stage)));
}

void ScenarioRun::hear() {
  for (; heardUpTo < ears->entries.size(); ++heardUpTo) {
    const Journal::Entry& entry = ears->entries[heardUpTo];
    for (Watch& watch : watches) watch.expectation.condition.hear(entry);
    if (timeline) timeline->add(entry);
  }
}

void ScenarioRun::fail(int line, std::string text) {
  if (!isOver()) failure = Failure{line, stage.now(), std::move(text)};
}

bool ScenarioRun::isOver() {
  if (failure || !onlooker) return failure.has_value();
  if (const std::optional<std::string> who = onlooker(stage.now()))
    failure = Failure{stepLine, stage.now(), "stopped by " + *who, true};
  return failure.has_value();
}

std::string ScenarioRun::report() const {
  std::string text = fmt::format("{}:{}: at {}: {}\n", scenario.file, failure->line,
                                 timelineClock(failure->time), failure->text);
  const std::vector<Journal::Entry>& entries = ears->entries;
  const auto after =
      std::find_if(entries.begin(), entries.end(),
                   [this](const Journal::Entry& entry) { return entry.time > failure->time; });
  const auto here = static_cast<std::size_t>(after - entries.begin());
  const std::size_t first = here > linesAroundFailure ? here - linesAroundFailure : 0;
  text += "  the journal around it:\n";
  for (std::size_t index = first; index < std::min(entries.size(), here + linesAroundFailure / 2);
       ++index) {
    if (index == here) text += fmt::format("    {:-<40}\n", "---- the failure ");
    text += "    " + journalLine(entries[index]) + '\n';
  }
  return text + "  run it again: " + rerun + '\n';
}

}  // namespace virtualmac
