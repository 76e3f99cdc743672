#include "Tests/behaviour/Bench.h"

#include "HelperPersistence.h"

namespace korvel::test {

namespace {

WorldOptions optionsFor(std::string_view profile) {
  WorldOptions options;
  options.profile = std::string(profile);
  return options;
}

bool among(std::string_view kinds, std::string_view kind) {
  std::size_t start = 0;
  while (start < kinds.size()) {
    const std::size_t end = std::min(kinds.find(' ', start), kinds.size());
    if (kinds.substr(start, end - start) == kind) return true;
    start = end + 1;
  }
  return false;
}

std::string levelText(LogLevel level) {
  switch (level) {
    case LogLevel::Default:
      return "default ";
    case LogLevel::Error:
      return "error ";
    case LogLevel::Fault:
      return "fault ";
  }
  return "unknown ";
}

}  // namespace

Bench::Bench(std::string_view profile) : world(optionsFor(profile)) {}

Bench::~Bench() {
  invariants.finish();
  Lines broken = invariants.violations();
  for (const std::string& rule : excused) {
    std::erase_if(broken, [&rule](const std::string& text) { return text.starts_with(rule); });
  }
  EXPECT_THAT(broken, IsEmpty());
}

void Bench::saveState(const HelperState& record) {
  mac().disk.writeFile(HelperPersistence::statePath, encodeFile(record), 0600);
}

void Bench::boot() {
  world.startHelper();
  app = connectAnother();
  mark();
}

void Bench::bootAt(std::int64_t percent) {
  charge(percent);
  boot();
}

void Bench::bootWithLimit(std::uint8_t limit, std::optional<std::int64_t> percent) {
  bootAt(limit - 1);
  ASSERT_EQ(ask(app->setChargeLimit(limit)), "ok");
  mark();
  if (percent) charge(*percent);
}

void Bench::bootHeatPaused() {
  HelperState record = savedLimit(50);
  record.heatPauseActive = true;
  saveState(record);
  bootAt(49);
  ASSERT_TRUE(onDisk().heatPauseActive);
}

void Bench::bootDischarging(std::int64_t percent) {
  bootWithLimit(50, percent);
  ASSERT_EQ(ask(app->forceDischarge(true)), "ok");
  mark();
}

void Bench::bootArmedDischarge(std::int64_t percent) {
  bootWithLimit(50, percent);
  ASSERT_EQ(ask(app->setClamshellKeepAwake(true)), "ok");
  ASSERT_EQ(ask(app->forceDischarge(true)), "ok");
  mark();
}

void Bench::bootDockedDischarge(std::int64_t percent) {
  mac().lid.connectDisplay();
  bootArmedDischarge(percent);
}

void Bench::bootToppingOff(std::uint8_t limit, std::optional<std::int64_t> percent) {
  bootWithLimit(limit, percent);
  call(app->releaseLimitUntilFullThenRestore());
}

void Bench::startHelper() {
  world.startHelper();
  world.runUntilIdle();
}

void Bench::charge(std::int64_t percent) { mac().powerSources.overrideCurrentCapacity(percent); }

void Bench::chargeUnreadable() { mac().powerSources.overrideCurrentCapacity(PropertyValue()); }

void Bench::adapterUnknown() {
  mac().registry.overrideProperty("AppleSmartBattery", "ExternalConnected", PropertyValue());
}

void Bench::temperature(std::optional<double> celsius) {
  if (celsius) {
    mac().battery.overrideTemperatureCelsius(celsius);
  } else {
    mac().registry.overrideProperty("AppleSmartBattery", "Temperature", PropertyValue());
  }
}

const AppCall& Bench::call(const AppCallRef& made) {
  const AppCall& answered = app->await(made);
  world.runUntilIdle();
  return answered;
}

std::string Bench::ask(const AppCallRef& made) { return outcome(call(made)); }

void Bench::tickAt(std::int64_t percent) {
  charge(percent);
  run(5);
}

virtualmac::CallCounts Bench::callsDuring(double seconds) {
  const auto before = world.callCounts();
  run(seconds);
  return world.callCounts() - before;
}

const std::vector<double>& Bench::noteTicks() {
  world.faults().observe([this](SeamCall call) {
    if (call == SeamCall::powerSourcesCopyInfo) readTimes.push_back(world.now());
  });
  return readTimes;
}

std::unique_ptr<AppClient> Bench::connectAnother() {
  auto client = world.connectApp();
  client->await(client->ping());
  world.runUntilIdle();
  return client;
}

void Bench::quit() {
  app->quit();
  world.runUntilIdle();
}

void Bench::sleepNow() {
  mac().power.requestSleep();
  run(1);
}

Lines Bench::since(std::string_view kinds) {
  Lines lines;
  const auto& entries = world.journal().entries();
  for (std::size_t index = marked; index < entries.size(); ++index) {
    if (!among(kinds, entries[index].kind)) continue;
    lines.push_back(entries[index].kind + " " + entries[index].text);
  }
  return lines;
}

Lines Bench::timed(std::string_view kinds) {
  Lines lines;
  const auto& entries = world.journal().entries();
  for (std::size_t index = marked; index < entries.size(); ++index) {
    if (among(kinds, entries[index].kind)) lines.push_back(virtualmac::journalLine(entries[index]));
  }
  return lines;
}

Lines Bench::logs(std::string_view category) const {
  Lines lines;
  const std::vector<virtualmac::LogLine> all = world.logLines();
  for (std::size_t index = markedLogs; index < all.size(); ++index) {
    if (all[index].category == category)
      lines.push_back(levelText(all[index].level) + all[index].text);
  }
  return lines;
}

void Bench::mark() {
  marked = world.journal().entries().size();
  markedLogs = world.logLines().size();
}

HelperState Bench::onDisk() {
  const auto text = mac().disk.content(HelperPersistence::statePath);
  if (!text) {
    ADD_FAILURE() << "no state file";
    return {};
  }
  const auto record = decodeStateFile(*text);
  EXPECT_TRUE(record.has_value()) << record.error();
  return record.value_or(HelperState());
}

HelperState Bench::state() const {
  const auto record = app->state();
  EXPECT_TRUE(record.has_value());
  return record.value_or(HelperState());
}

std::string Bench::key(std::string_view name) {
  const auto bytes = mac().smc.value(name);
  if (!bytes) return "absent";
  std::string text;
  for (const std::uint8_t byte : *bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    if (!text.empty()) text += ' ';
    text += digits[byte >> 4U];
    text += digits[byte & 15U];
  }
  return text;
}

std::string outcome(const AppCall& call) {
  if (!call.answered) return "no answer";
  if (call.success) return call.error ? "ok with an error" : "ok";
  if (!call.error) return "failed";
  return "failed " + std::to_string(call.error->code) + " " + call.error->localizedDescription();
}

std::string Bench::audit(std::string_view command) const {
  return "default " + std::string(command) + " pid=" + std::to_string(app->pid()) +
         " signingID=com.korvel.app team=ABCDE12345 cdHash=";
}

std::vector<NamedCommand> everyCommand() {
  return {
      {"set", [](AppClient& app) { return app.setChargeLimit(60); }},
      {"discharge on", [](AppClient& app) { return app.forceDischarge(true); }},
      {"discharge off", [](AppClient& app) { return app.forceDischarge(false); }},
      {"keep-awake on", [](AppClient& app) { return app.setClamshellKeepAwake(true); }},
      {"keep-awake off", [](AppClient& app) { return app.setClamshellKeepAwake(false); }},
      {"release", [](AppClient& app) { return app.releaseLimitUntilFullThenRestore(); }},
      {"cancel", [](AppClient& app) { return app.cancelTopUp(); }},
      {"clear", [](AppClient& app) { return app.clearChargeLimit(); }},
      {"reset", [](AppClient& app) { return app.resetAllSMCKeys(); }},
  };
}

HelperState savedLimit(std::int64_t limit) {
  HelperState record;
  record.chargeLimit = limit;
  record.lastWriteAt = Date{788918400};  // 2026-01-01
  return record;
}

}  // namespace korvel::test
