#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

/// A steady state costs neither log lines nor disk writes: a tick writes the record only to change
/// it, and tells an outcome only when it differs from the one told last.
class UnchangedFactsAreQuiet final : public Invariant {
 public:
  explicit UnchangedFactsAreQuiet(World& watched)
      : Invariant(watched, "unchanged facts are quiet") {}

  void timerFires(const TimerFacts& timer) override {
    const bool polling = timer.delaySeconds == 0 && timer.intervalSeconds;
    if (polling) ticking = timer.process;
  }
  void timerDone(const TimerFacts& /*timer*/) override { ticking = nullptr; }
  void journalled(const Journal::Entry& entry) override {
    if (entry.kind == "proc") {
      outcome.clear();
      ticking = nullptr;
    }
    if (entry.kind == "disk") seeDisk(entry.text);
    // The record in memory may be ahead of one that could not be written.
    if (entry.kind == "log" && contains(entry.text, "persistence.write failed")) behind = true;
    if (entry.kind != "log" || !contains(entry.text, "\"charge enforcement ")) return;
    if (entry.text == outcome) violate("told again: " + entry.text);
    outcome = entry.text;
  }

 private:
  void seeDisk(const std::string& text) {
    if (!contains(text, "state.json")) return;
    if (ticking != nullptr && !behind && contains(text, "no field differs")) {
      violate("a tick wrote an unchanged record");
    }
    behind = false;
  }

  const ThreadGroup* ticking = nullptr;
  bool behind = false;
  std::string outcome;
};

/// The operations that change something, by their audit lines.
constexpr std::array<std::string_view, 7> auditedOperations = {
    "setChargeLimit",        "clearChargeLimit", "forceDischarge",
    "setClamshellKeepAwake", "cancelTopUp",      "releaseLimitUntilFullThenRestore",
    "resetAllSMCKeys",
};

/// Each changing call is logged with its caller, on the thread that delivered it, before its work
/// is queued; each is answered once.
class OneAuditAndOneReplyEach final : public Invariant {
 public:
  explicit OneAuditAndOneReplyEach(World& watched)
      : Invariant(watched, "one audit line and one reply each") {}

  void journalled(const Journal::Entry& entry) override {
    const bool lifeBeginsOrEnds = contains(entry.text, "started") ||
                                  contains(entry.text, "exited") || contains(entry.text, "killed");
    if (entry.kind == "proc" && lifeBeginsOrEnds) open.clear();
    if (entry.kind == "log") seeLog(entry.text);
    if (entry.kind == "reply") seeReply(entry.text);
  }

  void finished() override {
    for (const auto& [operation, count] : open) {
      if (count > 0) violate("never answered: " + operation);
    }
  }

 private:
  void seeLog(const std::string& text) {
    for (const std::string_view operation : auditedOperations) {
      if (!isAudit(text, operation)) continue;
      ++open[std::string(operation)];
      const std::string& thread = world.scheduler().current().name();
      if (!thread.starts_with("xpc ") && thread != "test") {
        violate("audited on " + thread + ": " + std::string(operation));
      }
    }
  }

  void seeReply(const std::string& text) {
    const std::string operation = text.substr(0, text.find(' '));
    const auto known = std::find(auditedOperations.begin(), auditedOperations.end(), operation);
    if (known == auditedOperations.end()) return;
    if (--open[operation] >= 0) return;
    open[operation] = 0;
    violate("answered without an audit line, or twice: " + operation);
  }

  /// `log` text: `HelperImpl default "setChargeLimit(80) pid=…"`.
  static bool isAudit(std::string_view text, std::string_view operation) {
    const std::size_t quote = text.find('"');
    if (quote == std::string_view::npos || !text.starts_with("HelperImpl ")) return false;
    const std::string_view message = text.substr(quote + 1);
    if (!message.starts_with(operation)) return false;
    const char next = message.size() > operation.size() ? message[operation.size()] : ' ';
    return (next == '(' || next == ' ') && contains(message, " pid=");
  }

  std::map<std::string, int, std::less<>> open;
};

}  // namespace

void addRecordInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<UnchangedFactsAreQuiet>(world));
  list.push_back(std::make_unique<OneAuditAndOneReplyEach>(world));
}

}  // namespace virtualmac
