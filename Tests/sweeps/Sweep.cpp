#include "Tests/sweeps/Sweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "Tests/sweeps/CurrentCase.h"

namespace sweeps {

namespace {

std::optional<std::string> environment(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* value = std::getenv(name);
  if (value == nullptr || *value == '\0') return std::nullopt;
  return std::string(value);
}

std::string journalTail(Stage& stage) {
  constexpr std::size_t lines = 40;
  const auto& entries = stage.world.journal().entries();
  const std::size_t wanted = selection().k ? entries.size() : lines;
  std::string tail;
  for (std::size_t i = entries.size() - std::min(wanted, entries.size()); i < entries.size(); ++i) {
    tail += "  " + virtualmac::journalLine(entries[i]) + '\n';
  }
  return tail;
}

}  // namespace

Trace traceStory(const Story& story) {
  Stage stage(story);
  Trace trace;
  std::array<std::uint64_t, virtualmac::seamCallCount> seen{};
  stage.world.faults().observe([&](virtualmac::SeamCall call) {
    std::optional<std::string> file = stateFile(stage.mac());
    if (trace.fileVersions.empty() || trace.fileVersions.back() != file) {
      trace.fileVersions.push_back(std::move(file));
    }
    const std::uint64_t occurrence = ++seen[static_cast<std::size_t>(call)];
    trace.calls.push_back({call, occurrence, trace.fileVersions.size() - 1});
  });
  if (!stage.play()) trace.unmet.emplace_back("the helper died");
  stage.world.faults().observe({});
  for (const std::string& each : stage.unmetExpectations()) trace.unmet.push_back(each);
  trace.journalHash = stage.world.journal().hash();
  return trace;
}

const Selection& selection() {
  static const Selection chosen = [] {
    Selection found;
    found.story = environment("KORVEL_STORY");
    found.fault = environment("KORVEL_FAULT");
    found.full = environment("KORVEL_FULL") == "1";
    if (const auto k = environment("KORVEL_K")) found.k = std::strtoull(k->c_str(), nullptr, 10);
    return found;
  }();
  return chosen;
}

std::vector<std::uint64_t> chosenCalls(std::uint64_t total, std::uint64_t budget) {
  if (selection().k) return {*selection().k};
  const std::uint64_t stride = selection().full ? 1 : std::max<std::uint64_t>(1, total / budget);
  std::vector<std::uint64_t> calls;
  for (std::uint64_t k = 1; k <= total; k += stride) calls.push_back(k);
  return calls;
}

Sweep::Sweep(const Story& subject, std::string testName)
    : story(subject), filter(std::move(testName)) {}

Sweep::~Sweep() {
  testing::Test::RecordProperty("runs", std::to_string(runs));
  std::printf("%s: %llu runs\n", story.name.c_str(), static_cast<unsigned long long>(runs));
  if (failures > 0) {
    ADD_FAILURE() << failures << " of " << runs << " cases of \"" << story.name << "\" failed";
  }
}

bool Sweep::wants(std::string_view fault) {
  return !selection().fault || *selection().fault == fault;
}

void Sweep::run(const Case& which, const std::function<void(Stage&, Findings&)>& body) {
  if (!wants(which.fault) || enough()) return;
  ++runs;
  const CurrentCase announced("story " + story.name + ", k " + std::to_string(which.k) +
                              ", fault " + which.fault);
  Findings findings;
  Stage stage(story, which.seed);
  try {
    body(stage, findings);
    stage.invariants.finish();
    if (findings.empty()) checkConduct(findings, stage.world, stage.invariants);
  } catch (const std::exception& problem) {
    findings.note(std::string("exception: ") + problem.what());
  }
  if (findings.empty()) return;
  ++failures;
  report(which, &stage, findings);
}

void Sweep::report(const Case& which, Stage* stage, const Findings& findings) {
  ADD_FAILURE() << "story " << story.name << ", call " << which.k << ", fault " << which.fault
                << ":\n"
                << findings.text() << "journal:\n"
                << journalTail(*stage) << "again: KORVEL_STORY=" << story.name
                << " KORVEL_K=" << which.k << " KORVEL_FAULT=" << which.fault
                << " korvel_sweep_tests --gtest_filter='" << filter << "'";
}

}  // namespace sweeps
