#include "Tests/tin/runner/Operator.h"

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace tinmac::test {

namespace {

constexpr int mostTries = 100'000;
constexpr CFTimeInterval servedSeconds = 0.01;

/// script/tin-mac-adapters reads the line, and answers with a file on the machine's disk.
void ask(const std::string& request, void (*meanwhile)()) {
  static int last = 0;
  const std::string answer = "/told-" + std::to_string(++last);
  std::fprintf(stderr, "@%d %s\n", last, request.c_str());
  for (int tries = 0; tries < mostTries; ++tries) {
    if (access(answer.c_str(), F_OK) == 0) return;
    meanwhile();
  }
  ADD_FAILURE() << "nobody did this: " << request;
}

void serve() { CFRunLoopRunInMode(kCFRunLoopDefaultMode, servedSeconds, false); }

}  // namespace

void tellMachine(const std::string& command) {
  ask(command, [] {});
}

void awaitQuiet() { ask("settle", serve); }

}  // namespace tinmac::test
