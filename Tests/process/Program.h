#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

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

/// What the kernel says about a live process.
struct ProcessFacts {
  long residentKilobytes = 0;
  int threads = 0;
  int descriptors = 0;
};
/// None: no such process.
std::optional<ProcessFacts> factsOf(pid_t pid);

bool isAlive(pid_t pid);
void pauseFor(double seconds);
/// Seconds of a clock that only goes forward.
double clockNow();

}  // namespace processtests
