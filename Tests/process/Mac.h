#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Tests/process/Journal.h"
#include "Tests/process/Program.h"

namespace processtests {

struct MacOptions {
  double speed = 1;
  std::string profile = "newer-keys";
  std::string helper = {};  ///< What the helper's program says, for a shell; empty: the built one.
};

/// A virtual Mac of its own for one test, started and ended as a person does it.
class Mac {
 public:
  explicit Mac(const MacOptions& options = {});
  ~Mac();
  Mac(const Mac&) = delete;
  Mac& operator=(const Mac&) = delete;

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
  /// A command that must work.
  void tell(const std::vector<std::string>& arguments) const;
  /// `status --json`.
  [[nodiscard]] nlohmann::json status() const;
  [[nodiscard]] std::optional<pid_t> helper() const;
  /// Everything in the journal so far.
  [[nodiscard]] std::vector<JournalLine> journal() const;
  [[nodiscard]] std::size_t journalCount(const std::string& text) const;
  [[nodiscard]] JournalFollower follow() const { return JournalFollower(controlPath()); }
  /// The state file as JSON; null when it is none.
  [[nodiscard]] nlohmann::json state() const;
  /// Waits for a fact of the status; false: it did not become so in time.
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
  std::string directory;
  pid_t machine = 0;
};

/// The program ended with this status and said all of these words, wherever it said them.
void expectSays(const Result& result, int status, const std::vector<std::string>& words);

/// Begins every test that draws numbers: prints the seed, which KORVEL_TEST_SEED can fix.
unsigned announceSeed();

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& content);

}  // namespace processtests
