#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Remote/HostSystem.h"

namespace processtests {

/// What a program that has ended left behind.
struct Result {
  int status = -1;  ///< Its exit status; -1: ended by a signal, or had to be.
  std::string out;
  std::string err;
};

/// Runs one of the built programs to its end; after `timeoutSeconds` it is killed.
Result run(const std::string& program, const std::vector<std::string>& arguments,
           double timeoutSeconds = 60);

/// The same with a standard output that takes nothing; its `out` is empty.
Result runUnheard(const std::string& program, const std::vector<std::string>& arguments,
                  double timeoutSeconds = 60);

/// A program that runs beside the test; ended with the object.
class Background {
 public:
  Background(const std::string& program, const std::vector<std::string>& arguments);
  ~Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  [[nodiscard]] pid_t pid() const { return child; }

 private:
  pid_t child;
};

using virtualmac::hostsystem::factsOf;
using virtualmac::hostsystem::isAlive;
using virtualmac::hostsystem::ProcessFacts;

void pauseFor(double seconds);
/// Seconds of a clock that only goes forward.
double clockNow();

}  // namespace processtests
