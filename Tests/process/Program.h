#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Remote/HostSystem.h"

namespace processtests {

/// The result of a program that has ended.
struct Result {
  int status = -1;  ///< Its exit status; -1: a signal ended it.
  std::string out;
  std::string err;
};

/// Runs a built program to its end; it is killed after `timeoutSeconds`.
Result run(const std::string& program, const std::vector<std::string>& arguments,
           double timeoutSeconds = 60);

/// Does the same with a standard output on which every write fails; `out` stays empty.
Result runUnheard(const std::string& program, const std::vector<std::string>& arguments,
                  double timeoutSeconds = 60);

/// A program that runs beside the test and is killed with the object.
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

/// A program that a test talks to line by line; it is killed with the object.
class Conversation {
 public:
  Conversation(const std::string& program, const std::vector<std::string>& arguments);
  ~Conversation();
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;
  void say(const std::string& line) const;
  /// The next line of its output; none: the program has ended, or says nothing for so long.
  std::optional<std::string> hear(double timeoutSeconds = 20);
  /// Ends its input, waits for its end, and returns its exit status; -1: a signal ended it.
  int finish();

 private:
  pid_t child = 0;
  int input = -1;
  int output = -1;
  std::string heard;
};

using virtualmac::hostsystem::factsOf;
using virtualmac::hostsystem::isAlive;
using virtualmac::hostsystem::ProcessFacts;

/// True: the helper of every test is the Mac's own program, emulated.
bool runsTheMacsProgram();
/// How many times longer the helper takes to start than the one that is built here: 1, or
/// more for the Mac's own program.
double slowness();
void pauseFor(double seconds);
/// Reads a monotonic clock, in seconds.
double clockNow();
/// Waits until a socket has bytes, and takes them. False: it ended, or the clock reached
/// `deadline`.
bool receiveMore(int socket, std::string& input, double deadline);

}  // namespace processtests
