#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "VirtualMac/InProcess/Invariants.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

/// The helper's count of clients equals the number of accepted connections that have not ended.
/// Checked when the process is at rest: no connection is being accepted or ended, and no work is
/// queued. Not checked in a process that was never offered a connection: tests count there by hand.
class ClientsCountedOnce final : public Invariant {
 public:
  explicit ClientsCountedOnce(World& watched) : Invariant(watched, "clients counted once") {}

  void journalled(const Journal::Entry& entry) override {
    if (!entry.message().starts_with("client ")) return;
    const std::optional<std::int64_t> told = numberAfter(entry.message(), "connected (count=");
    const ThreadGroup* process = world.scheduler().current().process();
    if (told && process != nullptr) presences[process].counted = *told;
  }

  void workPosted(const Lane& /*from*/, const Lane& to, std::uint64_t /*number*/) override {
    if (to.process() != nullptr) ++presences[to.process()].underWay;
  }
  void workEnds(const Lane& lane, std::uint64_t /*number*/) override {
    if (lane.process() != nullptr) finish(*lane.process());
  }

  void connectionOffered(const ThreadGroup& process, std::int32_t /*client*/) override {
    Presence& presence = presences[&process];
    presence.watched = true;
    ++presence.underWay;
  }
  void connectionDecided(const ThreadGroup& process, bool accepted) override {
    if (accepted) ++presences[&process].accepted;
    finish(process);
  }
  void connectionEnding(const ThreadGroup& process) override { ++presences[&process].underWay; }
  void connectionEnded(const ThreadGroup& process) override {
    ++presences[&process].ended;
    finish(process);
  }

 private:
  struct Presence {
    bool watched = false;
    std::int64_t underWay = 0;
    std::int64_t accepted = 0;
    std::int64_t ended = 0;
    std::int64_t counted = 0;
    std::int64_t excess = 0;  ///< Found by the last check.
  };

  /// Counts off one thing under way, and checks the counts when it was the last.
  void finish(const ThreadGroup& process) {
    Presence& presence = presences[&process];
    if (--presence.underWay > 0 || !presence.watched) return;
    const std::int64_t excess = presence.counted - (presence.accepted - presence.ended);
    if (excess != 0 && excess != presence.excess) {
      violate(std::to_string(presence.counted) + " counted, " + std::to_string(presence.accepted) +
              " accepted, " + std::to_string(presence.ended) + " ended");
    }
    presence.excess = excess;
  }

  std::map<const ThreadGroup*, Presence> presences;
};

}  // namespace

void addClientInvariants(InvariantList& list, World& world) {
  list.push_back(std::make_unique<ClientsCountedOnce>(world));
}

}  // namespace virtualmac
