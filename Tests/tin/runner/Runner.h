#pragma once

#include <string>
#include <vector>

namespace testing {

/// The words on the command line.
struct Choice {
  bool onlyList = false;
  /// Only tests whose name contains one of these; empty: all but the deliberate ones.
  std::vector<std::string> words;
};

struct Totals {
  std::size_t ran = 0;
  std::size_t failed = 0;
};

/// Tests whose suite is called DeliberateFailure... must fail; they run only when a word names
/// them.
bool isDeliberate(const std::string& name);

/// Runs the tests and prints a line for each.
Totals runTests(const Choice& choice);

/// Whether every deliberate failure is reported as one, and a deliberate success is not. Prints
/// what is wrong.
bool canFail();

}  // namespace testing
