#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Tests/process/Journal.h"
#include "Tests/process/Program.h"

namespace processtests {

/// For machines whose helper starts again: launchd lets ten seconds pass between two starts.
constexpr double fast = 60;

struct MacOptions {
  double speed = 1;
  std::string profile = "newer-keys";
  std::string helper = {};  ///< A shell command to run as the helper; empty: the built one.
  std::vector<std::string> more = {};  ///< Further words of `up`.
  /// False: the test brings it up once its disk is prepared.
  bool up = true;
};

/// A virtual Mac for one test, started and ended with the command that a person would use.
class Mac {
 public:
  explicit Mac(const MacOptions& options = {});
  ~Mac();
  Mac(const Mac&) = delete;
  Mac& operator=(const Mac&) = delete;
  void bringUp();

  [[nodiscard]] const std::string& root() const { return directory; }
  [[nodiscard]] std::string controlPath() const { return directory + "/control.sock"; }
  [[nodiscard]] std::string servicePath() const {
    return directory + "/com.korvel.app.helper.sock";
  }
  [[nodiscard]] std::string supportDirectory() const {
    return directory + "/disk/Library/Application Support";
  }
  [[nodiscard]] std::string stateDirectory() const {
    return supportDirectory() + "/com.korvel.app.helper";
  }
  [[nodiscard]] std::string stateFile() const { return stateDirectory() + "/state.json"; }
  [[nodiscard]] pid_t machinePid() const { return machine; }

  /// `virtual-mac` and `korvel-app` with this machine's root.
  [[nodiscard]] Result command(std::vector<std::string> arguments) const;
  [[nodiscard]] Result app(std::vector<std::string> arguments) const;
  /// Runs a command that must succeed.
  void tell(const std::vector<std::string>& arguments) const;
  /// Reads `status --json`.
  [[nodiscard]] nlohmann::json status() const;
  [[nodiscard]] std::optional<pid_t> helper() const;
  /// Returns every line of the journal so far.
  [[nodiscard]] std::vector<JournalLine> journal() const;
  /// Counts the journal's lines with this text, once there are `awaited` of them or 20 s have
  /// passed: what a helper logs reaches the journal on a way of its own, often after its reply.
  [[nodiscard]] std::size_t journalCount(const std::string& text, std::size_t awaited = 0) const;
  [[nodiscard]] JournalFollower follow() const { return JournalFollower(controlPath()); }
  /// Reads the state file as JSON; discarded when it is not valid JSON.
  [[nodiscard]] nlohmann::json state() const;
  /// Waits until the fact holds of the status; false: it did not in time.
  template <class Fact>
  [[nodiscard]] bool becomes(Fact&& fact, double timeoutSeconds = 20) const {
    const double deadline = clockNow() + timeoutSeconds;
    while (!fact(status())) {
      if (clockNow() > deadline) return false;
      pauseFor(0.02);
    }
    return true;
  }

 private:
  MacOptions options;
  std::string directory;
  pid_t machine = 0;
};

/// Expects this exit status, and all these words in the output or the errors.
void expectSays(const Result& result, int status, const std::vector<std::string>& words);

/// Prints the seed, which KORVEL_TEST_SEED can fix; every test with random numbers begins with it.
unsigned announceSeed();

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

}  // namespace processtests
