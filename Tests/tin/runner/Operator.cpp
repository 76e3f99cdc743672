#include "Tests/tin/runner/Operator.h"

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

namespace tinmac::test {

namespace {

constexpr int mostTries = 100'000;
constexpr int mostServings = 3000;
constexpr CFTimeInterval servedSeconds = 0.01;

bool isThere(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

/// script/tin-mac-adapters reads the line, and answers with a file on the machine's disk. Returns
/// the request's number.
int ask(const std::string& request, const std::function<bool(const std::string& answer)>& await) {
  static int last = 0;
  const int number = ++last;
  std::fprintf(stderr, "@%d %s\n", number, request.c_str());
  if (!await("/told-" + std::to_string(number))) {
    ADD_FAILURE() << "nobody did this: " << request;
  }
  return number;
}

bool await(const std::string& answer) {
  for (int tries = 0; tries < mostTries; ++tries) {
    if (isThere(answer)) return true;
  }
  return false;
}

bool awaitServing(const std::string& answer) {
  return serveUntil([&] { return isThere(answer); });
}

}  // namespace

void tellMachine(const std::string& command) { ask(command, await); }

bool serveUntil(const std::function<bool()>& reached) {
  for (int servings = 0; servings < mostServings; ++servings) {
    if (reached()) return true;
    serveFor(servedSeconds);
  }
  return false;
}

void serveFor(double seconds) { CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false); }

Client::Client(const std::string& words) : number(ask("app " + words, await)) {}

bool Client::succeeds() {
  const std::string mark = "/client-" + std::to_string(number);
  if (!serveUntil([&] { return isThere(mark); })) ADD_FAILURE() << "a client did not end";
  return isThere(mark + "-succeeded");
}

void awaitQuiet() { ask("settle", awaitServing); }

}  // namespace tinmac::test
