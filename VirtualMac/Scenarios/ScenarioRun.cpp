#include "VirtualMac/Scenarios/ScenarioRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Timeline/TimelineText.h"

namespace virtualmac {

namespace {

constexpr double answerSeconds = 10;
constexpr int answerGraces = 10;  // Patience with a busy computer: the answer ends it.
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
  if (reply.kind == Answer::Kind::Ok) return "success";
  if (reply.kind == Answer::Kind::Lost) return "the connection to end";
  std::string text = "failure";
  if (reply.code) text += fmt::format(" with {}", *reply.code);
  if (reply.text) text += fmt::format(" and \"{}\"", *reply.text);
  return text;
}

bool matches(const ExpectedReply& reply, const Answer& answer) {
  if (answer.kind != reply.kind) return false;
  if (reply.code && (!answer.error || answer.error->code != *reply.code)) return false;
  return !reply.text || (answer.error && answer.error->localizedDescription().find(*reply.text) !=
                                             std::string::npos);
}

/// A saved journal begins before the machine is set up; what a run tells begins afterwards.
std::string headAtStart(const Scenario& scenario, const Machine& machine) {
  JournalHead head = journalHead(scenario, std::nullopt);
  head.start = JournalHead::of(machine, {.savedState = scenario.savedState,
                                         .restartAfterCrash = scenario.restartAfterCrash})
                   .start;
  return head.line();
}

/// One playing of a scenario.
class ScenarioRun {
 public:
  ScenarioRun(const Scenario& played, Stage& place, const std::string& command,
              const Onlooker& looking)
      : scenario(played), stage(place), rerun(command), onlooker(looking) {
    stage.journal().addListener(
        [heard = ears](const Journal::Entry& entry) { heard->push_back(entry); });
  }

  ScenarioOutcome run() {
    int line = 1;
    try {
      setUp();
      for (const Step& step : scenario.steps) {
        line = step.line;
        if (!failure) advance(step.time);
        if (!failure) play(step);
      }
      if (!failure) advance(std::max(scenario.end, lastDeadline()));
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
    if (failure) outcome.failure = *failure;
    outcome.head = head;
    for (std::size_t index = storyBegan; index < ears->size(); ++index)
      outcome.lines += journalLine((*ears)[index]) + '\n';
    if (timeline && failure) {
      timeline->fail(failure->time, failure->stopped
                                        ? failure->text
                                        : fmt::format("line {}: {}", failure->line, failure->text));
    }
    if (timeline) outcome.timeline = timeline->finish(stage.now());
    return outcome;
  }

 private:
  enum class Watching : std::uint8_t { Never, Always, Within, Holds };
  struct Watch {
    Watching kind{};
    Expectation expectation;
    double deadline = 0;
    bool waiting = false;  ///< Its step is not done yet: it hears, but is not judged.
    bool over = false;
  };
  struct Failure : ScenarioFailure {
    bool stopped = false;  ///< Nothing went wrong: the onlooker ended the run.
  };

  void setUp() {
    if (scenario.savedState) stage.setSavedState(*scenario.savedState);
    for (const ToldAction& told : scenario.start) perform(told, {});
    timeline.emplace(scenario.name, stage.now(), stateOf(stage.machine(), stage.helperRunning()));
    heardUpTo = ears->size();
    storyBegan = heardUpTo;
    head = headAtStart(scenario, stage.machine());
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

  void play(const Step& step) {
    stepLine = step.line;
    judgeExpectations(step.given);
    if (failure) return;
    if (!step.actions.empty()) stepBegan = ears->size();
    startWatching(step);
    for (const ToldAction& told : step.actions) {
      if (!failure) perform(told, step.reply);
    }
    for (Watch& watch : watches) watch.waiting = false;
    if (!failure) judgeWatches(false);
    if (!failure) judgeExpectations(step.expect);
  }

  void perform(const ToldAction& told, const ExpectedReply& reply) {
    const auto& [action, line] = told;
    auto answer = std::make_shared<std::optional<Answer>>();
    try {
      action.perform(stage, [answer](Answer given) { *answer = std::move(given); });
    } catch (const std::exception& trouble) {
      return fail(line, fmt::format("\"{}\" cannot be done: {}", action.text(), trouble.what()));
    }
    if (action.isRequest() && reply.kind) {
      const auto heard = [&] { return judgeWatches(false) || answer->has_value(); };
      stage.runUntil(stage.now() + answerSeconds, heard);
      for (int grace = 0; grace < answerGraces && !isOver() && !answer->has_value(); ++grace)
        stage.runUntil(stage.now() + stage.graceSeconds(), heard);
      if (!failure) judgeReply(told, reply, *answer);
    }
    if (!failure) stage.runUntil(stage.now(), [this] { return judgeWatches(false); });
  }

  void judgeReply(const ToldAction& told, const ExpectedReply& reply,
                  const std::optional<Answer>& answer) {
    if (answer && matches(reply, *answer)) {
      ++held;
      return;
    }
    fail(told.line, fmt::format("\"{}\": expected {}, but {}", told.action.text(), replyText(reply),
                                answerText(answer)));
  }

  void judgeExpectations(const std::vector<Expectation>& expectations) {
    for (const Expectation& expectation : expectations) {
      Condition condition = expectation.condition;
      std::size_t next = stepBegan;
      const auto hearOn = [&] {
        for (; next < ears->size(); ++next) condition.hear((*ears)[next]);
      };
      hearOn();
      // Among real processes the condition gets a grace to become true.
      const double patience = stage.now() + stage.graceSeconds();
      while (!condition.holds(stage) && stage.now() < patience && !failure) {
        stage.runUntil(std::min(patience, stage.now() + stage.graceSeconds() / 10),
                       [this] { return judgeWatches(false); });
        hearOn();
      }
      if (failure) return;
      if (!condition.holds(stage)) {
        return fail(expectation.line, fmt::format("expected \"{}\", but {}", condition.text(),
                                                  condition.actual(stage)));
      }
      ++held;
    }
  }

  void startWatching(const Step& step) {
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

  /// Lets time pass until `moment`, stopping at the deadlines on the way.
  void advance(double moment) {
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

  /// The latest one that is left, or 0. The grace of one may go beyond the story's end.
  [[nodiscard]] double lastDeadline() const {
    double last = 0;
    for (const Watch& watch : watches) {
      if (watch.deadline != endless) last = std::max(last, watch.deadline);
    }
    return last;
  }

  /// Judges what is watched; true: something failed.
  bool judgeWatches(bool atDeadline) {
    hear();
    if (isOver()) return true;
    for (Watch& watch : watches) {
      if (failure) break;
      if (!watch.over && !watch.waiting) judge(watch, atDeadline && stage.now() >= watch.deadline);
    }
    std::erase_if(watches, [](const Watch& watch) { return watch.over; });
    return failure.has_value();
  }

  void judge(Watch& watch, bool atDeadline) {
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

  void hear() {
    for (; heardUpTo < ears->size(); ++heardUpTo) {
      const Journal::Entry& entry = (*ears)[heardUpTo];
      for (Watch& watch : watches) watch.expectation.condition.hear(entry);
      if (timeline) timeline->add(entry);
    }
  }

  /// Keeps the first failure only. Errors while the run is being stopped are no failure.
  void fail(int line, std::string text) {
    if (!isOver()) failure = Failure{{line, stage.now(), std::move(text)}, false};
  }

  /// Calls the onlooker; true: the run is over, stopped or failed.
  bool isOver() {
    if (failure || !onlooker) return failure.has_value();
    if (const std::optional<std::string> who = onlooker(stage.now()))
      failure = Failure{{stepLine, stage.now(), "stopped by " + *who}, true};
    return failure.has_value();
  }

  std::string report() const {
    std::string text = fmt::format("{}:{}: at {}: {}\n", scenario.file, failure->line,
                                   timelineMoment(failure->time), failure->text);
    const std::vector<Journal::Entry>& entries = *ears;
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

  const Scenario& scenario;
  Stage& stage;
  const std::string& rerun;
  const Onlooker& onlooker;
  /// The journal's listener writes here. It outlives the run, as the journal may.
  std::shared_ptr<std::vector<Journal::Entry>> ears =
      std::make_shared<std::vector<Journal::Entry>>();
  std::vector<Watch> watches;
  std::optional<Failure> failure;
  std::size_t held = 0;
  std::size_t heardUpTo = 0;
  std::size_t storyBegan = 0;  ///< The machine was set up by then.
  std::string head;
  int stepLine = 1;           ///< Of the latest step that began.
  std::size_t stepBegan = 0;  ///< Index in the ears where the latest step with actions began.
  std::optional<TimelineBuilder> timeline;
};

}  // namespace

ScenarioOutcome playScenario(const Scenario& scenario, Stage& stage, const std::string& command,
                             const Onlooker& onlooker) {
  return ScenarioRun(scenario, stage, command, onlooker).run();
}

}  // namespace virtualmac
