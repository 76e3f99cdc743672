#include <cstdio>
#include <string_view>

#include "Tests/tin/runner/Operator.h"
#include "Tests/tin/runner/Runner.h"

namespace {

constexpr int usageStatus = 2;
constexpr int brokenStatus = 3;

}  // namespace

/// usage: [--list] [WORD...]   runs, or lists, the tests whose names contain one of the words.
/// Everything is printed on standard error. Status 0: a test ran and all passed; 1: one failed; 3:
/// the runner cannot tell a failure from a success.
int main(int argc, char** argv) {
  testing::Choice choice;
  for (int index = 1; index < argc; ++index) {
    const std::string_view word = argv[index];
    if (word == "--list") {
      choice.onlyList = true;
    } else if (word.starts_with("-")) {
      std::fprintf(stderr, "unknown word: %s\n", argv[index]);
      return usageStatus;
    } else {
      choice.words.emplace_back(word);
    }
  }
  if (!testing::canFail()) return brokenStatus;
  const testing::Totals totals = testing::runTests(choice);
  if (choice.onlyList) return 0;
  tinmac::test::awaitQuiet();
  std::fprintf(stderr, "%zu tests ran, %zu failed\n", totals.ran, totals.failed);
  return totals.failed == 0 && totals.ran != 0 ? 0 : 1;
}
