// These tests provoke every line that the entry, the listener and the core may write, compare its
// level and category, and allow no other line.

#include <csignal>
#include <fstream>
#include <regex>

#include "Tests/behaviour/Bench.h"

namespace korvel::test {
namespace {

using virtualmac::LogLine;

/// One row of the published table of messages.
struct Message {
  std::string category;
  LogLevel level{};
  std::string format;
};

std::vector<Message> publishedMessages() {
  std::ifstream table(KORVEL_SOURCE_DIRECTORY "/docs/log-messages.md");
  EXPECT_TRUE(table.is_open());
  const std::regex heading("## (.*)");
  const std::regex row(R"(\| (default|error|fault) \| (`+) ?(.+?) ?\2 \|.*)");
  std::vector<Message> messages;
  std::string category;
  std::smatch found;
  for (std::string line; std::getline(table, line);) {
    if (std::regex_match(line, found, heading)) category = found[1];
    if (!std::regex_match(line, found, row)) continue;
    if (category != "Boot" && category != "Listener" && category != "HelperImpl") continue;
    const LogLevel level = found[1] == "default" ? LogLevel::Default
                           : found[1] == "error" ? LogLevel::Error
                                                 : LogLevel::Fault;
    messages.push_back({category, level, found[3]});
  }
  return messages;
}

/// Matches the texts of a format: a number for each number, anything for each text.
std::regex patternOf(const std::string& format) {
  std::string pattern;
  for (std::size_t at = 0; at < format.size(); ++at) {
    if (format[at] != '%') {
      if (std::string_view("()[]{}+*?.|^$\\/").find(format[at]) != std::string_view::npos) {
        pattern += '\\';
      }
      pattern += format[at];
    } else if (format[at + 1] == '%') {
      pattern += '%';
      ++at;
    } else {
      at = format.find_first_of("dsu", format[at + 1] == '{' ? format.find('}', at) : at);
      pattern += format[at] == 's' ? ".*" : "-?[0-9]+";
    }
  }
  return std::regex(pattern);
}

void collect(Bench& bench, std::vector<LogLine>& lines) {
  for (const char* category : {"Boot", "Listener", "HelperImpl"}) {
    for (LogLine& line : bench.world.logLines(category)) lines.push_back(std::move(line));
  }
}

void crashThenClientsComeAndGo(std::vector<LogLine>& lines) {
  Bench bench;
  HelperState record = savedLimit(60);
  record.forceDischargeActive = true;
  record.sleepDisabledByKorvel = true;
  bench.saveState(record);
  bench.bootAt(59);
  bench.app->interrupt();
  bench.app->disconnect();
  bench.run(31);
  bench.app = bench.world.connectApp();
  bench.call(bench.app->clearChargeLimit());
  bench.call(bench.app->setClamshellKeepAwake(true));
  bench.app->disconnect();
  bench.run(31);
  bench.world.sendSignal(SIGTERM);
  bench.run(1);
  collect(bench, lines);
}

void helperWithoutATeam(std::vector<LogLine>& lines) {
  Bench bench;
  bench.mac().signatures.setPath(*bench.mac().bundleExecutablePath, "ad-hoc");
  bench.world.startHelper();
  const auto refused = bench.world.connectApp();
  bench.world.runUntilIdle();
  bench.world.sendSignal(SIGINT);
  bench.run(1);
  collect(bench, lines);
}

void helperWhoseTeamSpoilsTheRequirement(std::vector<LogLine>& lines) {
  Bench bench;
  bench.excuse("transport: requirement does not parse");
  virtualmac::SigningIdentity oddTeam = *bench.mac().signatures.identity("helper");
  oddTeam.team = "AB\"CD";
  bench.mac().signatures.define(oddTeam);
  bench.world.startHelper();
  const auto refused = bench.world.connectApp();
  bench.world.runUntilIdle();
  EXPECT_THAT(bench.since("app"), ElementsAre("app app 901 connects", "app app 901 refused"));
  collect(bench, lines);
}

void limitsThatHoldAndDoNot(std::vector<LogLine>& lines) {
  Bench bench;
  bench.bootWithLimit(80);
  bench.tickAt(85);
  bench.charge(40);
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.run(5);
  bench.mac().smc.key("CHTE")->writeResult.reset();
  bench.call(bench.app->setChargeLimit(100));
  bench.mac().disk.replaceFails = true;
  bench.call(bench.app->setChargeLimit(90));
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.call(bench.app->resetAllSMCKeys());
  bench.world.sendSignal(SIGABRT);
  bench.run(1);
  collect(bench, lines);
}

void nativeLimitThatFails(std::vector<LogLine>& lines) {
  Bench bench("native-only");
  bench.bootWithLimit(80, 90);
  bench.mac().powerUI.setError = "no";
  bench.run(5);
  bench.call(bench.app->resetAllSMCKeys());
  bench.quit();
  collect(bench, lines);
}

void targetOutOfRange(std::vector<LogLine>& lines) {
  Bench bench;
  bench.saveState(savedLimit(10));
  bench.bootAt(60);
  bench.call(bench.app->forceDischarge(true));
  collect(bench, lines);
}

void everyStopOfADischarge(std::vector<LogLine>& lines) {
  const std::vector<void (*)(Bench&)> causes = {
      [](Bench& bench) { bench.charge(50); },
      [](Bench& bench) {
        bench.call(bench.app->setChargeLimit(20));
        bench.charge(20);
      },
      [](Bench& bench) { bench.chargeUnreadable(); },
      [](Bench& bench) { bench.charge(75); },
      [](Bench& bench) {
        bench.call(bench.app->setClamshellKeepAwake(false));
        bench.mac().lid.close();
      },
      [](Bench& bench) { bench.mac().lid.close(), bench.temperature(46); },
      [](Bench& bench) { bench.mac().lid.close(), bench.temperature(20), bench.run(3600); },
      [](Bench& bench) {
        bench.mac().lid.close();
        bench.call(bench.app->setClamshellKeepAwake(false));
      },
  };
  for (const auto cause : causes) {
    Bench bench;
    bench.bootDockedDischarge();
    bench.run(5);
    cause(bench);
    bench.run(15);
    EXPECT_FALSE(bench.state().forceDischargeActive);
    collect(bench, lines);
  }
}

void unattendedDischargeThenSleep(std::vector<LogLine>& lines) {
  Bench bench;
  bench.mac().power.setSleepDisabledExternally(true);
  bench.bootArmedDischarge();
  bench.app->disconnect();
  bench.run(31);
  bench.mac().power.setSleepDisabledExternally(false);
  bench.mac().adapter.disconnect();
  bench.sleepNow();
  bench.mac().power.wake();
  bench.run(1);
  bench.mac().smc.setValue("CHTE", {0, 0, 0, 0});
  bench.mac().smc.key("CHTE")->writeResult = 134;
  bench.mac().adapter.connect();
  bench.sleepNow();
  collect(bench, lines);
}

void everyEndOfATopOff(std::vector<LogLine>& lines) {
  Bench bench;
  bench.bootToppingOff(80);
  bench.call(bench.app->cancelTopUp());
  bench.run(5);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.run(7200);
  bench.call(bench.app->releaseLimitUntilFullThenRestore());
  bench.tickAt(100);
  collect(bench, lines);
}

void freshInstallDischarges(std::vector<LogLine>& lines) {
  Bench bench;
  bench.bootAt(90);
  bench.call(bench.app->forceDischarge(true));
  collect(bench, lines);
}

TEST(LogLinesTest, EveryPublishedLineIsWrittenAndNoOther) {
  std::vector<LogLine> lines;
  for (const auto story :
       {crashThenClientsComeAndGo, helperWithoutATeam, helperWhoseTeamSpoilsTheRequirement,
        limitsThatHoldAndDoNot, nativeLimitThatFails, targetOutOfRange, everyStopOfADischarge,
        unattendedDischargeThenSleep, everyEndOfATopOff, freshInstallDischarges}) {
    story(lines);
  }
  const std::vector<Message> messages = publishedMessages();
  EXPECT_GT(messages.size(), 55U);
  std::vector<std::size_t> written(messages.size(), 0);
  std::vector<std::regex> patterns;
  for (const Message& message : messages) patterns.push_back(patternOf(message.format));
  for (const LogLine& line : lines) {
    bool known = false;
    for (std::size_t index = 0; index < messages.size(); ++index) {
      if (messages[index].category != line.category || messages[index].level != line.level)
        continue;
      if (!std::regex_match(line.text, patterns[index])) continue;
      ++written[index];
      known = true;
    }
    EXPECT_TRUE(known) << line.category << ": " << line.text;
  }
  for (std::size_t index = 0; index < messages.size(); ++index) {
    EXPECT_GT(written[index], 0U) << "never written: " << messages[index].category << ": "
                                  << messages[index].format;
  }
}

}  // namespace
}  // namespace korvel::test
