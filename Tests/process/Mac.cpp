#include "Tests/process/Mac.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace processtests {

using nlohmann::json;

namespace {

std::string freshDirectory() {
  std::string path = "/tmp/korvel-process-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no directory for the test");
  return path;
}

}  // namespace

Mac::Mac(const MacOptions& chosen) : options(chosen), directory(freshDirectory()) {
  if (options.up) bringUp();
}

void Mac::bringUp() {
  std::ostringstream speed;
  speed << options.speed;
  std::vector<std::string> words{"up",      "--json",   "--profile", options.profile,
                                 "--speed", speed.str()};
  words.insert(words.end(), options.more.begin(), options.more.end());
  if (!options.helper.empty()) {
    const std::string program = directory + "/helper";
    writeFile(program, "#!/bin/sh\n" + options.helper + "\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    words.insert(words.end(), {"--helper", program});
  } else if (runsTheMacsProgram()) {
    words.emplace_back("--tin");
  }
  const Result up = command(words);
  if (up.status != 0) throw std::runtime_error("the machine does not come up: " + up.err);
  machine = json::parse(up.out).at("pid").get<pid_t>();
}

Mac::~Mac() {
  // A machine that a test has told to go down may still be on its way, and answers no more.
  if (isAlive(machine)) {
    const Result down = command({"down"});
    const double deadline = clockNow() + 20;
    while (isAlive(machine) && clockNow() < deadline) pauseFor(0.01);
    EXPECT_FALSE(isAlive(machine)) << "the machine does not go down: " << down.err;
  }
  // Others may have been brought up by the test's own commands.
  if (std::filesystem::exists(controlPath())) static_cast<void>(command({"down"}));
  if (testing::Test::HasFailure()) {
    std::cout << "journal of the failed test:\n" << readFile(directory + "/journal");
    std::cout << readFile(directory + "/helper.stderr");
    std::cout << readFile(directory + "/virtual-mac.stderr");
  }
  std::error_code ignored;
  std::filesystem::remove_all(directory, ignored);
}

Result Mac::command(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {"--root", directory});
  return run("virtual-mac", arguments);
}

Result Mac::app(std::vector<std::string> arguments) const {
  arguments.insert(arguments.begin(), {"--root", directory, "--timeout", "20"});
  return run("korvel-app", arguments);
}

void Mac::tell(const std::vector<std::string>& arguments) const {
  const Result result = command(arguments);
  if (result.status != 0) throw std::runtime_error("virtual-mac: " + result.err);
}

json Mac::status() const {
  LineSocket socket(controlPath());
  socket.send(R"({"command":"status"})");
  const auto line = socket.receive(20);
  if (!line) throw std::runtime_error("the machine does not answer");
  return json::parse(json::parse(*line).at("json").get<std::string>());
}

std::optional<pid_t> Mac::helper() const {
  const json pid = status().at("helperPid");
  if (pid.is_null()) return std::nullopt;
  return pid.get<pid_t>();
}

std::vector<JournalLine> Mac::journal() const {
  std::vector<JournalLine> lines;
  std::istringstream file(readFile(directory + "/journal"));
  std::string line;
  while (std::getline(file, line)) lines.push_back(parseJournalLine(line));
  return lines;
}

std::size_t Mac::journalCount(const std::string& text, std::size_t awaited) const {
  const auto count = [&] {
    const std::vector<JournalLine> lines = journal();
    return static_cast<std::size_t>(std::ranges::count_if(
        lines, [&](const JournalLine& line) { return line.text.contains(text); }));
  };
  const double deadline = clockNow() + 20;
  std::size_t counted = count();
  while (counted < awaited && clockNow() < deadline) {
    pauseFor(0.01);
    counted = count();
  }
  return counted;
}

json Mac::state() const { return json::parse(readFile(stateFile()), nullptr, false); }

void expectSays(const Result& result, int status, const std::vector<std::string>& words) {
  EXPECT_EQ(result.status, status) << result.out << result.err;
  for (const std::string& word : words)
    EXPECT_NE((result.out + result.err).find(word), std::string::npos)
        << "no \"" << word << "\" in: " << result.out << result.err;
}

unsigned announceSeed() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* fixed = std::getenv("KORVEL_TEST_SEED");
  const auto seed = fixed != nullptr ? static_cast<unsigned>(std::strtoul(fixed, nullptr, 10))
                                     : std::random_device{}();
  std::cout << "KORVEL_TEST_SEED=" << seed << "\n" << std::flush;
  return seed;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return std::move(content).str();
}

void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace processtests
