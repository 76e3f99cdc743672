#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VirtualMac/Scenarios/RecordedClients.h"
#include "VirtualMac/Scenarios/RecordedDeeds.h"

namespace korvel {
struct Operation;
}

namespace virtualmac {

/// Reads a journal from its beginning, and tells what was done from what followed. It keeps in mind
/// who is connected, which requests are open and why launchd may start the helper, because a line
/// is an action only when none of these explains it: a helper that starts was started by hand when
/// no boot, no crash and no client did it.
///
/// In this process the lines of one moment have one time, in the order in which they happened. Real
/// processes tell theirs each on its own way: a reply may come before the line with which the
/// helper logs the request.
class DeedReader {
 public:
  explicit DeedReader(const SavedJournal& read);
  RecordedDeeds read();

 private:
  using Entry = Journal::Entry;
  /// Processes tell the lines of one moment each on its own way, within this time.
  static constexpr double momentSeconds = 1;
  /// A request whose answer has not been met.
  struct Open {
    std::size_t deed = 0;
    std::string_view method;
  };
  /// An answer whose request has not been met.
  struct Early {
    std::size_t index = 0;
    std::string_view method;
    std::string reply;
  };

  void tell() { found.isTold[at] = true; }
  void add(std::string phrase, std::size_t index, std::string reply = {});
  void refuse(std::string text);
  /// Time is real, so that lines of one moment do not come at one time.
  [[nodiscard]] bool isLive() const { return !journal.head || journal.head->speed.has_value(); }

  void takeMac(const Entry& entry);
  void takeOther(const Entry& entry);
  void goDown();

  void takeProcess(const Entry& entry);
  void takeStart(const Entry& entry);
  void takeKill(const Entry& entry);
  void takeSignal(const Entry& entry);
  /// The entry right after the end of the helper that is signalled at `signal`; none: it goes on.
  [[nodiscard]] std::optional<std::size_t> afterHelper(std::size_t signal) const;
  /// The first entry of the moment in which that helper ends, that `fits`.
  [[nodiscard]] std::optional<std::size_t> atItsEnd(std::size_t signal,
                                                    bool (*fits)(const Entry&)) const;
  /// A helper starts in the moment of this entry.
  [[nodiscard]] bool startsAt(std::size_t index) const;
  /// The reboot that a signal begins; none: it begins none.
  [[nodiscard]] std::optional<std::size_t> rebootFrom(std::size_t signal) const;
  void takeReboot(std::size_t reboot);

  void takeApp(const Entry& entry);
  void takeConnect(std::int64_t pid, const std::string& identity);
  void takeIdentity(std::int64_t pid, const std::string& identity);
  void takeAcceptance(std::int64_t pid);
  void takeLeave(std::int64_t pid, std::string_view how);
  [[nodiscard]] bool leavesWithMachine() const;
  void takeCutOff(std::int64_t pid, std::string_view what);

  void takeLog(const Entry& entry);
  void takeReply(const Entry& entry);
  void takeReading(const korvel::Operation& operation);
  void answer(std::size_t asked, const std::string& reply);
  void loseOpen();
  void finishReplies();

  const SavedJournal& journal;
  const std::vector<Entry>& entries;
  RecordedDeeds found;
  RecordedClients clients;
  std::map<std::int64_t, std::string> identities;
  std::vector<Open> open;
  std::vector<Early> earlyReplies;
  /// A client whose connection ended with its helper, and the entry with which it asks again.
  std::optional<std::pair<std::int64_t, std::size_t>> asksAgain;
  std::optional<double> lastStart;
  std::optional<double> leavesUntil;  ///< The helper is being ended for a reboot.
  std::set<int> signalled;            ///< Sent to the present helper.
  std::size_t at = 0;
  bool running = false;
  bool isDown = false;  ///< The power is gone, or a reboot begins.
  bool restarts = true;
  bool boots = true, wanted = false, crashed = false;  ///< Why launchd starts the helper next.
};

}  // namespace virtualmac
