#pragma once

#include <functional>
#include <string>

namespace tinmac::test {

/// Gives a command to the machine, as a person would with virtual-mac ("sleep", "fault disk-full
/// on"), and waits until it was given. The main run loop is not served meanwhile.
void tellMachine(const std::string& command);

/// Serves the main run loop until `reached` holds; false: it did not within a generous time.
bool serveUntil(const std::function<bool()>& reached);
/// Serves it for so many seconds.
void serveFor(double seconds);

/// An application of the machine (korvel-app) that makes one call of the service.
class Client {
 public:
  /// Starts it with these words, such as "set-limit 60".
  explicit Client(const std::string& words);
  /// Serves the main run loop until it has ended. Whether its call was answered with success.
  bool succeeds();

 private:
  int number;
};

/// Serves the main run loop until what the tests have let go of has gone: queues end on threads of
/// their own. Gives up after a while; the books then show what is left.
void awaitQuiet();

/// Switches a fault of the machine on for a scope.
class Fault {
 public:
  explicit Fault(std::string nameAndArguments) : words(std::move(nameAndArguments)) {
    tellMachine("fault " + words + " on");
  }
  ~Fault() { tellMachine("fault " + words + " off"); }
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

 private:
  std::string words;
};

}  // namespace tinmac::test
