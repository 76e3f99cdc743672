#include "VirtualMac/Viewer/TraceFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

namespace virtualmac {

namespace {

using nlohmann::json;

constexpr std::string_view begin = "<script type=\"application/json\" id=\"trace\">";
constexpr std::string_view end = "</script>";

/// The data as a browser sees it: up to the first end of the element.
std::string dataIn(const std::string& page) {
  const std::size_t from = page.find(begin);
  if (from == std::string::npos) return "no data";
  const std::size_t place = from + begin.size();
  return page.substr(place, page.find(end, place) - place);
}

json runIn(const std::string& page) { return json::parse(dataIn(page)).at("runs").at(0); }

TraceRun runWith(const std::string& lines) {
  TraceRun run;
  run.lines = lines;
  return run;
}

}  // namespace

TEST(TraceFileTest, HoldsARunAsItWasTold) {
  TraceRun run;
  run.title = "Lunch \"break\"";
  run.head = R"(# {"journal":1,"profile":"newer-keys"})";
  run.lines = "0.000 proc  helper 412 started\n1.500 mac   battery 61 %\n";
  run.story = TraceStory{"lunch.yaml", "name: Lunch\nsteps:\n  - do: connect\n"};
  run.failures = {{12.5, 3, "expected \"gate paused\", but the gate is charging"}};
  run.end = 2700.25;
  const json told = json::parse(dataIn(traceHTML({run})));
  EXPECT_EQ(told.at("version"), 1);
  ASSERT_EQ(told.at("runs").size(), 1U);
  const json& only = told.at("runs").at(0);
  EXPECT_EQ(only.at("title"), run.title);
  EXPECT_EQ(only.at("head"), json::parse(R"({"journal":1,"profile":"newer-keys"})"));
  EXPECT_EQ(only.at("lines"), run.lines);
  EXPECT_EQ(only.at("story"), json({{"file", "lunch.yaml"}, {"text", run.story->text}}));
  EXPECT_EQ(only.at("failures"),
            json::array({{{"time", 12.5},
                          {"line", 3},
                          {"text", "expected \"gate paused\", but the gate is charging"}}}));
  EXPECT_EQ(only.at("end"), 2700.25);
}

TEST(TraceFileTest, HoldsTwoRunsInTheirOrder) {
  TraceRun first;
  first.title = "before";
  TraceRun second;
  second.title = "after";
  const json runs = json::parse(dataIn(traceHTML({first, second}))).at("runs");
  ASSERT_EQ(runs.size(), 2U);
  EXPECT_EQ(runs.at(0).at("title"), "before");
  EXPECT_EQ(runs.at(1).at("title"), "after");
}

TEST(TraceFileTest, WhatIsNotThereIsNull) {
  const json run = runIn(traceHTML({TraceRun()}));
  EXPECT_TRUE(run.at("head").is_null());
  EXPECT_TRUE(run.at("story").is_null());
  EXPECT_TRUE(run.at("failures").empty());
}

TEST(TraceFileTest, AHeadThatIsNoneIsNull) {
  for (const char* head : {"# {", "# 7", "{}", "#", "0.000 mac   lid closed"}) {
    TraceRun run;
    run.head = head;
    EXPECT_TRUE(runIn(traceHTML({run})).at("head").is_null()) << head;
  }
}

// Clients and files can put anything into a journal, and it must stay data.
TEST(TraceFileTest, NoTextEndsTheElementThatHoldsIt) {
  const std::string hostile =
      "</script><script>alert(1)</script><!-- <script> ]]> -->\u2028\u2029&lt;\"'\\u003c\n";
  TraceRun run = runWith(hostile);
  run.title = hostile;
  run.story = TraceStory{hostile, hostile};
  run.failures = {{1, 1, hostile}};
  const std::string data = dataIn(traceHTML({run}));
  EXPECT_EQ(data.find('<'), std::string::npos);
  EXPECT_EQ(data.find("\u2028"), std::string::npos);
  const json told = json::parse(data).at("runs").at(0);
  EXPECT_EQ(told.at("lines"), hostile);
  EXPECT_EQ(told.at("title"), hostile);
  EXPECT_EQ(told.at("story").at("text"), hostile);
  EXPECT_EQ(told.at("failures").at(0).at("text"), hostile);
}

TEST(TraceFileTest, TextsOfAllLanguagesComeThrough) {
  const std::string text = "Grüße, 世界, 🔋, \x01\x7f\n";
  EXPECT_EQ(runIn(traceHTML({runWith(text)})).at("lines"), text);
}

TEST(TraceFileTest, BytesThatAreNoUTF8AreReplaced) {
  const std::string page = traceHTML({runWith("a\xff\xfe b\xc3\n")});
  EXPECT_EQ(runIn(page).at("lines"), "a\uFFFD\uFFFD b\uFFFD\n");
}

TEST(TraceFileTest, TheDataIsASCII) {
  const std::string data = dataIn(traceHTML({runWith("— 80 % …\n")}));
  for (const char character : data) {
    ASSERT_GE(character, ' ') << data;
  }
}

TEST(TraceFileTest, AFileIsWrittenWhole) {
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("trace-" + std::to_string(::getpid()) + ".html");
  EXPECT_EQ(writeTrace(file.string(), {runWith("1.000 mac   lid closed\n")}), std::nullopt);
  std::ostringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  std::filesystem::remove(file);
  EXPECT_EQ(content.str(), traceHTML({runWith("1.000 mac   lid closed\n")}));
}

TEST(TraceFileTest, AFileThatCannotBeWrittenIsNamedWithTheReason) {
  EXPECT_EQ(writeTrace("/no/such/folder/a.html", {TraceRun()}),
            "/no/such/folder/a.html cannot be written: No such file or directory");
}

}  // namespace virtualmac
