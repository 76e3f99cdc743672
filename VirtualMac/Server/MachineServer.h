#pragma once

#include <asio/io_context.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Remote/DiskWatch.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Server/EnforcementTrail.h"
#include "VirtualMac/Server/HelperLink.h"
#include "VirtualMac/Server/JobRunner.h"
#include "VirtualMac/Server/JournalFile.h"
#include "VirtualMac/Server/RealTimeDriver.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

struct MachineOptions {
  Profile profile;
  std::string profileFile;  ///< Absolute; empty: the profile is built in.
  std::string run;          ///< Names this run in the journal's head; empty: it has no name.
  double speed = 1;
  RootDirectory root;
  std::string helperProgram;
  bool verboseHelper = false;
  int pagePort = 0;      ///< 0: the machine has no page.
  std::string pageLink;  ///< Empty then.
};

/// A virtual Mac that runs: the machine, its time, its launchd and its one helper. Everything here
/// outlives the helper and runs on the context's one thread. Every change of the machine goes
/// through `change`.
///
/// Effects are appended to the journal file in the root directory as they happen, after a line that
/// tells the machine's start, and handed to the followers; none is kept in memory.
class MachineServer {
 public:
  using JournalListener = std::function<void(const Journal::Entry&)>;

  MachineServer(asio::io_context& loop, MachineOptions chosen);
  ~MachineServer();
  MachineServer(const MachineServer&) = delete;
  MachineServer& operator=(const MachineServer&) = delete;

  /// Prepares the root directory and publishes the service. None: done; else the error. The machine
  /// is up once `boot`, or a scenario that has set it up, loads launchd's job.
  std::optional<std::string> start();
  void boot();

  [[nodiscard]] Machine& machine() { return mac; }
  [[nodiscard]] RealTimeDriver& timeDriver() { return keeper; }
  [[nodiscard]] JobRunner& launchd() { return jobs; }
  [[nodiscard]] Journal& journal() { return effects; }
  /// Whether the limit is enforced, as far as the helper's log and replies tell.
  [[nodiscard]] const Enforcement& enforcement() const { return trail.now(); }
  [[nodiscard]] const MachineOptions& options() const { return chosen; }
  [[nodiscard]] asio::io_context& context() { return loop; }
  /// The platform calls of the helper that wait for their latency to pass.
  [[nodiscard]] std::vector<SeamCall> callsUnderWay() const {
    return link ? link->callsUnderWay() : std::vector<SeamCall>();
  }
  /// The last platform call of the helper that ended last; none: no helper has ended.
  [[nodiscard]] std::optional<SeamCall> lastCallOfEnded() const { return endedAfter; }
  /// How long the journal file is.
  [[nodiscard]] std::uint64_t journalSize() const { return journalFile.size(); }

  /// Brings the machine to the present, makes a change, and lets what follows happen.
  template <class Change>
  auto change(Change&& make) {
    keeper.catchUp();
    struct Settle {
      RealTimeDriver& keeper;
      ~Settle() { keeper.settle(); }
    } const settle{keeper};
    return make(mac);
  }

  /// Sends the helper a signal. False: none runs. Journalled as `proc  signal 19 to helper 412`,
  /// except a kill, which shows as the helper's end.
  bool signalHelper(int number);
  /// Journals `app   client 815 identifies as app`: the helper, which tells the rest of a client's
  /// life, does not know this.
  void tellClient(std::int32_t pid, const std::string& identity);
  /// The state file was put there for the helper to find, and by no other program.
  void takeDiskAsFound() { disk.takeAsFound(); }
  /// Serves a client that was launched as a program of the machine: its clock and the signatures
  /// of code, and nothing that takes a privilege. It ends with the machine, at a reboot too.
  /// `identity` is let go when the client has ended.
  void join(HelperLink::Socket socket, std::int32_t pid, std::shared_ptr<void> identity);
  /// Ends the helper the orderly way and restarts. `done` runs afterwards.
  void reboot(std::function<void()> done);
  /// Takes the power away and gives it back.
  void powerLoss();
  /// Ends the helper the orderly way for good.
  void shutDown(std::function<void()> done);

  /// Passes on every entry from now on, until the returned function is called.
  std::function<void()> follow(JournalListener listener);

 private:
  void helperStarted(const JobRunner::Started& started);
  void helperEnded(pid_t pid, const ProcessEnd& how);
  void endClients();
  /// A client sees the pid of the process that listens, which is the machine's own. It stands for
  /// the helper's program, whose signature a fault may have changed.
  void signServiceAsHelper();

  asio::io_context& loop;
  MachineOptions chosen;
  JournalFile journalFile;
  std::vector<std::shared_ptr<JournalListener>> followers;
  EnforcementTrail trail;
  Journal effects;
  Machine mac;
  std::string head;  ///< Of the journal file; told before any time has passed.
  DiskWatch disk;
  RealTimeDriver keeper;
  JobRunner jobs;
  std::shared_ptr<HelperLink> link;
  std::optional<SeamCall> endedAfter;
  std::set<std::shared_ptr<HelperLink>> clients;
  bool losingPower = false;
};

}  // namespace virtualmac
