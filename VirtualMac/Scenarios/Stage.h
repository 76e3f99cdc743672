#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Base/ErrorObject.h"

namespace korvel {
struct Operation;
}

namespace virtualmac {

class Journal;
class Machine;

/// The outcome of a request.
struct Answer {
  enum class Kind : std::uint8_t {
    Ok,
    Failed,  ///< Refused, with an error or without.
    Lost     ///< No answer will ever come: the connection ended.
  };
  Kind kind = Kind::Ok;
  std::optional<korvel::ErrorObject> error;
};

/// The errors of every stage when an action needs a helper that runs, or none.
inline constexpr const char* noHelperText = "no helper is running";
inline constexpr const char* helperRunsText = "a helper is already running";

/// A machine with its helper and its clients, on which a scenario plays. One implementation runs
/// all of it in this process and in virtual time; another drives real processes. launchd
/// has the job of a Mac, which the scenario loads once the machine is set up.
///
/// Clients have the names that the scenario gives them. For an action that it cannot do (an unknown
/// client, an unknown identity, a misspelt fault) a stage throws a std::runtime_error, which fails
/// the scenario.
class Stage {
 public:
  virtual ~Stage() = default;

  [[nodiscard]] virtual Machine& machine() = 0;
  [[nodiscard]] virtual Journal& journal() = 0;
  /// Virtual seconds since the machine's start.
  [[nodiscard]] virtual double now() = 0;
  /// How late an expectation may come true here, in virtual seconds.
  [[nodiscard]] virtual double graceSeconds() { return 0; }
  /// Lets time pass until `moment`, that moment included; `afterEach` runs after each piece of
  /// work, on a settled machine, and true from it ends the wait. A moment in the past: only what is
  /// due runs.
  virtual void runUntil(double moment, const std::function<bool()>& afterEach) = 0;

  /// Starts a client under this name; throws when the name is taken or the identity is unknown.
  virtual void connect(const std::string& client, const std::string& identity) = 0;
  /// Ends a client's connection in order.
  virtual void disconnect(const std::string& client) = 0;
  /// Ends a client as kill -9 does.
  virtual void killClient(const std::string& client) = 0;
  /// Sends a request. `answered` runs once, inside runUntil, when the outcome is known.
  virtual void request(const std::string& client, const korvel::Operation& what,
                       std::uint8_t argument, std::function<void(Answer)> answered) = 0;
  /// The helper's state as the first client by name is told; none: nobody is connected, or no
  /// answer came. Lets a little time pass.
  virtual std::optional<std::string> reportedState() = 0;

  /// Starts the helper by hand; throws helperRunsText when one runs.
  virtual void startHelper() = 0;
  /// Sends the helper a signal, 9 is a kill; throws noHelperText when none runs.
  virtual void signalHelper(int number) = 0;
  [[nodiscard]] virtual bool helperRunning() = 0;
  [[nodiscard]] virtual std::optional<int> helperExitStatus() = 0;
  /// Both also end the clients.
  virtual void powerLoss() = 0;
  virtual void reboot() = 0;

  /// The rules that the helper broke in this run. Call it once, when the run is over.
  [[nodiscard]] virtual std::vector<std::string> violations() = 0;

  /// The state file's content; none: no such file.
  [[nodiscard]] virtual std::optional<std::string> savedState() = 0;
  /// Puts a state file there, as an older helper left it.
  virtual void setSavedState(const std::string& content) = 0;
};

}  // namespace virtualmac
