#pragma once

#include <yaml-cpp/yaml.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Scenarios/Scenario.h"

namespace virtualmac {

/// Reads one scenario file. Goes on after a defect, so that all of them are told at once.
class ScenarioReader {
 public:
  explicit ScenarioReader(std::string fileName) { scenario.file = std::move(fileName); }

  void read(const YAML::Node& document);
  void defect(int line, const std::string& text);

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
               const std::function<void(const std::string&, const YAML::Node&, int)>& each);
  /// A single value or a list of them.
  std::vector<Value> values(const YAML::Node& node, int line);
  /// Reports, once, a count beyond its bound; nothing more is read then.
  void stopBeyond(std::size_t count, std::size_t most, std::string_view what, int line);
  std::string text(const YAML::Node& node, int line);
  bool boolean(const YAML::Node& node, int line);

  void readStart(const YAML::Node& node);
  void readSteps(const YAML::Node& list, double from);
  void readStep(const YAML::Node& node, double from);
  void readRepeat(const YAML::Node& node, double from);
  void readTime(const std::string& key, const Value& value, double from, Step& step);
  void readReply(const Value& value, Step& step);
  void addAction(const Value& value, std::vector<Action>& actions, std::vector<int>& lines);
  void addExpectation(const Value& value, bool timed, bool watched,
                      std::vector<Expectation>& expectations);
  void finish(double end);

  double latest = 0;  ///< The last step's time.
  int latestLine = 0;
  std::size_t phrases = 0;
  bool overfull = false;
};

}  // namespace virtualmac
