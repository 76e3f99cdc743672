#import "Tests/tin/runner/Runner.h"

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <os/lock.h>

#include <algorithm>
#include <cstdio>

namespace testing {

namespace {

struct NamedTest {
  std::string name;
  Maker maker;
};

std::vector<NamedTest>& allTests() {
  static auto& all = *new std::vector<NamedTest>;
  return all;
}

std::vector<std::function<void()>>& instantiations() {
  static auto& all = *new std::vector<std::function<void()>>;
  return all;
}

/// Keeps what has failed in the running test. Handlers on other threads may still assert.
class Failures {
 public:
  void begin(bool quiet) {
    const Locked locked(lock);
    isQuiet = quiet;
    count = 0;
    fatal = false;
  }

  void add(bool isFatal, const std::string& text) {
    const Locked locked(lock);
    ++count;
    fatal = fatal || isFatal;
    if (!isQuiet) std::fprintf(stderr, "%s\n", text.c_str());
  }

  [[nodiscard]] std::size_t number() {
    const Locked locked(lock);
    return count;
  }
  [[nodiscard]] bool hasFatal() {
    const Locked locked(lock);
    return fatal;
  }

 private:
  class Locked {
   public:
    explicit Locked(os_unfair_lock& held) : lock(held) { os_unfair_lock_lock(&lock); }
    ~Locked() { os_unfair_lock_unlock(&lock); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

   private:
    os_unfair_lock& lock;
  };

  os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  bool isQuiet = false;
  bool fatal = false;
  std::size_t count = 0;
};

Failures& failures() {
  static auto& ofThisProgram = *new Failures;
  return ofThisProgram;
}

bool isChosen(const Choice& choice, const std::string& name) {
  if (choice.words.empty()) return !isDeliberate(name);
  return std::ranges::any_of(choice.words,
                             [&](const std::string& word) { return name.contains(word); });
}

/// An exception of Objective-C fails the test; one of C++ ends the process, as an error of the
/// test.
bool passes(const NamedTest& test, bool quiet) {
  failures().begin(quiet);
  @autoreleasepool {
    @try {
      test.maker()->run();
    } @catch (NSException* raised) {
      failures().add(false, std::string("raised: ") + raised.reason.UTF8String);
    }
  }
  return failures().number() == 0;
}

void instantiateAll() {
  for (const auto& instantiate : instantiations()) instantiate();
  instantiations().clear();
}

}  // namespace

void Test::run() {
  SetUp();
  if (!hasFatalFailure()) TestBody();
  TearDown();
}

bool addTest(std::string_view suite, std::string_view name, Maker maker) {
  allTests().push_back({std::string(suite) + "." + std::string(name), std::move(maker)});
  return true;
}

bool addInstantiation(std::function<void()> instantiate) {
  instantiations().push_back(std::move(instantiate));
  return true;
}

// NOLINTNEXTLINE(misc-unconventional-assign-operator): its declaration says why
void Failure::operator=(const Message& message) const {
  std::string text = std::string(file) + ":" + std::to_string(line) + ": Failure\n  " + why;
  if (!message.words().empty()) text += "\n  " + message.words();
  failures().add(fatal, text);
}

bool hasFatalFailure() { return failures().hasFatal(); }

bool isDeliberate(const std::string& name) { return name.starts_with("Deliberate"); }

Totals runTests(const Choice& choice) {
  instantiateAll();
  Totals totals;
  for (const NamedTest& test : allTests()) {
    if (!isChosen(choice, test.name)) continue;
    ++totals.ran;
    if (choice.onlyList) {
      std::fprintf(stderr, "%s\n", test.name.c_str());
      continue;
    }
    std::fprintf(stderr, "[ RUN      ] %s\n", test.name.c_str());
    const bool passed = passes(test, false);
    if (!passed) ++totals.failed;
    std::fprintf(stderr, "[  %s ] %s\n", passed ? "     OK" : " FAILED", test.name.c_str());
  }
  return totals;
}

bool canFail() {
  std::size_t tried = 0;
  bool isRight = true;
  for (const NamedTest& test : allTests()) {
    if (!isDeliberate(test.name)) continue;
    ++tried;
    const bool passed = passes(test, true);
    if (passed != test.name.starts_with("DeliberateSuccess")) {
      isRight = false;
      std::fprintf(stderr, "the runner took %s for a %s\n", test.name.c_str(),
                   passed ? "success" : "failure");
    }
  }
  return isRight && tried > 0;
}

}  // namespace testing
