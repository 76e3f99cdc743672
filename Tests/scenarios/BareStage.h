#pragma once

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Operations.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Scenarios/Stage.h"

namespace virtualmac {

/// A machine with nobody on it but the test, which gives the answers to requests and decides
/// whether a helper runs. Only the engine is tested.
class BareStage : public Stage {
 public:
  explicit BareStage(const std::string& profile = "newer-keys")
      : record([this] { return mac ? mac->totalSeconds() : 0.0; }),
        mac(std::make_unique<Machine>(*loadProfile(profile), record)) {}

  std::deque<Answer> answers;  ///< For the next requests; when it is empty, no answer comes.
  std::vector<std::string> asked;
  std::vector<std::string> clients;  ///< The names of those connected.
  std::vector<std::string> told;     ///< Returned by violations().
  bool running = false;
  double endSeconds = 0;  ///< The time from a signal to the helper's end.
  double grace = 0;
  std::optional<int> exited;
  std::optional<std::string> saved;
  std::optional<std::string> reported;

  Machine& machine() override { return *mac; }
  Journal& journal() override { return record; }
  double now() override { return mac->totalSeconds(); }
  double graceSeconds() override { return grace; }
  void runUntil(double moment, const std::function<bool()>& afterEach) override {
    for (auto& [answered, answer] : std::exchange(due, {})) answered(answer);
    mac->advance(0);
    while (!afterEach() && now() < moment) {
      double next = std::min(mac->nextEvent().value_or(moment - now()), moment - now());
      if (endsAt) next = std::min(next, *endsAt - now());
      mac->advance(next);
      endIfDue();
    }
  }
  void connect(const std::string& client, const std::string& identity) override {
    clients.push_back(client);
    record.record("app", client + " connected as " + identity);
  }
  void disconnect(const std::string& client) override { std::erase(clients, client); }
  void killClient(const std::string& client) override { std::erase(clients, client); }
  void request(const std::string& client, const korvel::Operation& what, std::uint8_t argument,
               std::function<void(Answer)> answered) override {
    asked.push_back(client + " " + std::string(what.word) + " " + std::to_string(argument));
    if (answers.empty()) return;
    due.emplace_back(std::move(answered), answers.front());
    answers.pop_front();
  }
  std::optional<std::string> reportedState() override { return reported; }
  void startHelper() override { running = true; }
  void signalHelper(int number) override {
    record.record("proc", "helper 412 killed by signal " + std::to_string(number));
    endsAt = now() + endSeconds;
    endIfDue();
  }
  bool helperRunning() override { return running; }
  std::optional<int> helperExitStatus() override { return exited; }
  void powerLoss() override { mac->powerLoss(); }
  void reboot() override { mac->reboot(); }
  std::vector<std::string> violations() override { return told; }
  std::optional<std::string> savedState() override { return saved; }
  void setSavedState(const std::string& content) override { saved = content; }

 private:
  void endIfDue() {
    if (!endsAt || now() < *endsAt) return;
    running = false;
    endsAt.reset();
  }

  std::optional<double> endsAt;
  Journal record;
  std::unique_ptr<Machine> mac;
  std::vector<std::pair<std::function<void(Answer)>, Answer>> due;
};

}  // namespace virtualmac
