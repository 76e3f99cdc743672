#include <map>
#include <string>
#include <string_view>

#include "Operations.h"
#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/ServiceEndpoint.h"
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
    if (entry.kind == "disk") seeDisk(entry.effect);
    // The record in memory may be ahead of one that could not be written.
    if (contains(entry.message(), "persistence.write failed")) behind = true;
    if (!entry.message().starts_with("charge enforcement ")) return;
    if (entry.text == outcome) violate("told again: " + entry.text);
    outcome = entry.text;
  }

 private:
  void seeDisk(const Effect& effect) {
    if (effect.word(0) != "state.json") return;
    if (ticking != nullptr && !behind && effect.id == EffectID::fileUnchanged) {
      violate("a tick wrote an unchanged record");
    }
    behind = false;
  }

  const ThreadGroup* ticking = nullptr;
  bool behind = false;
  std::string outcome;
};

/// The operations that change something: those that succeed or fail. Their audit lines begin with
/// their names.
bool isAudited(const korvel::Operation* operation) {
  return operation != nullptr && operation->answer == korvel::OperationAnswer::Outcome;
}

/// Each changing call is logged with its caller by the thread that delivers it. Before that log
/// line the thread only asks who calls, and queues nothing. Each call is answered once.
class OneAuditAndOneReplyEach final : public Invariant {
 public:
  explicit OneAuditAndOneReplyEach(World& watched)
      : Invariant(watched, "one audit line and one reply each") {}

  void journalled(const Journal::Entry& entry) override {
    if (entry.tells(EffectID::helperStarted) || entry.tells(EffectID::helperExited) ||
        entry.tells(EffectID::helperKilled)) {
      open.clear();
      unaudited.clear();
    }
    if (entry.tells(EffectID::logged)) seeLog(entry.effect);
    if (entry.kind == "reply") seeReply(entry.effect.word(0));
  }

  void messageBegins(const Lane& lane, std::string_view selector) override {
    const auto* operation = korvel::operationWith(&korvel::Operation::selector, selector);
    if (isAudited(operation)) unaudited.insert_or_assign(&lane, std::string(operation->method));
  }
  void messageEnds(const Lane& lane) override {
    const auto found = unaudited.find(&lane);
    if (found == unaudited.end()) return;
    violate("delivered without an audit line: " + found->second);
    unaudited.erase(found);
  }
  void callMade(const Lane& lane, SeamCall call) override {
    const std::string_view asked = describe(call).interface;
    if (asked == "CodeSigning" || asked == "UnifiedLog") return;
    tooEarly(lane, describe(call).id);
  }
  void workPosted(const Lane& from, const Lane& /*to*/, std::uint64_t /*number*/) override {
    tooEarly(from, "work queued");
  }

  void finished() override {
    for (const auto& [operation, count] : open) {
      if (count > 0) violate("never answered: " + operation);
    }
  }

 private:
  void tooEarly(const Lane& lane, std::string_view what) {
    const auto found = unaudited.find(&lane);
    if (found == unaudited.end()) return;
    violate(std::string(what) + " before the audit line of " + found->second);
  }

  void seeLog(const Effect& line) {
    for (const korvel::Operation& each : korvel::operations) {
      const std::string operation(each.method);
      if (!isAudited(&each) || !isAudit(line, operation)) continue;
      ++open[operation];
      const Lane& lane = world.scheduler().current();
      const std::string& thread = lane.name();
      const auto delivering = unaudited.find(&lane);
      if (delivering != unaudited.end() && delivering->second == operation) {
        unaudited.erase(delivering);
      }
      if (!thread.starts_with("xpc ") && thread != "test") {
        violate(std::string("audited on ").append(thread).append(": ").append(operation));
      }
    }
  }

  void seeReply(const std::string& operation) {
    if (!isAudited(korvel::operationWith(&korvel::Operation::method, operation))) return;
    if (--open[operation] >= 0) return;
    open[operation] = 0;
    violate("answered without an audit line, or twice: " + operation);
  }

  /// `setChargeLimit(80) pid=…` in the core's own category.
  static bool isAudit(const Effect& line, std::string_view operation) {
    const std::string_view message = line.word(2);
    if (line.word(0) != "HelperImpl" || !message.starts_with(operation)) return false;
    const char next = message.size() > operation.size() ? message[operation.size()] : ' ';
    return (next == '(' || next == ' ') && contains(message, " pid=");
  }

  std::map<std::string, int, std::less<>> open;
  std::map<const Lane*, std::string> unaudited;  ///< Being delivered, without an audit line yet.
};

}  // namespace

void addRecordInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<UnchangedFactsAreQuiet>(world));
  list.push_back(std::make_unique<OneAuditAndOneReplyEach>(world));
}

}  // namespace virtualmac
