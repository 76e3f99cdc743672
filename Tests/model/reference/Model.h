#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Tests/model/reference/Books.h"
#include "Tests/model/reference/Record.h"
#include "Tests/model/reference/Script.h"

namespace model {

/// The whole helper as one sequential machine. It is told the items of a run one by one, and says
/// for each which effects follow. Platform calls are answered as they were in the run.
class Model : private Script {
 public:
  /// `planted`: the number of a mistake made on purpose; 0: none.
  explicit Model(int planted = 0) : mistake(planted) {}
  /// Throws the first Difference.
  void play(const Item& item, const Trace& run);
  /// At the end of a run: nothing may be overdue.
  void end(std::int64_t at, std::uint64_t order);
  /// The outcome that each call got, by the place of its message.
  [[nodiscard]] const std::map<std::uint64_t, std::string>& outcomes() const { return replies; }
  /// The state of each topic.
  [[nodiscard]] std::map<std::string, std::string> states() const;

 private:
  void start();
  void nothingDue(std::int64_t at, std::uint64_t order) const;
  void checkReads(const Item* next);
  void read(const Item& message);
  void work(std::int64_t earliest, const Duty& body);
  void message();
  void command(const std::string& name, const std::string& words, const Duty& body);
  void connection();
  void power();
  void signal();
  void shutDown();
  void log(const std::string& category, int level, const std::string& text);
  void say(const std::string& text) { log("HelperImpl", 0, text); }
  std::int64_t post(Duty body);
  std::int64_t startTimer(const std::string& words, std::int64_t delay, std::int64_t interval,
                          Duty fire);
  void cancel(std::optional<std::int64_t>& timer);
  void reply(const std::string& name, const Outcome& failure = {});
  std::string caller(std::int64_t pid, bool whole);
  /// The item of posted work; null: it never began.
  [[nodiscard]] const Item* workOf(std::int64_t number) const;
  void awaitWork(const std::string& limit, std::int64_t number);
  std::optional<std::int64_t> capacity();
  std::optional<std::int64_t> celsius();
  bool adapter();
  bool lidClosed();
  void openSMC();
  bool reopen();
  const Answer& exchange(int command, const std::string& key, const KeyInfo& about,
                         const std::string& bytes);
  Outcome info(const std::string& key, KeyInfo& found);
  Outcome read(const std::string& key, std::string& bytes);
  Outcome write(const std::string& key, const std::string& bytes);
  Outcome writeVerified(const std::string& key, const std::string& bytes, bool& verified);
  bool present(const std::string& key);
  void probe();
  bool native();
  Outcome setNative(std::int64_t percent, bool& verified);
  Outcome store(const std::string& text, bool& rename);
  Outcome storeUnderMask(const std::string& text, bool& rename);
  Record load();
  void persist();
  /// Notes a new record before anything else happens, which may take time.
  void changed();
  const Answer& expect(const std::string& effect, bool open = false);
  void noteVerified(bool verified);
  Outcome gate(bool pause);
  void loop(std::int64_t target);
  void tick(std::int64_t target);
  void report(const std::string& action, const Outcome& failure);
  Outcome inflow(bool inhibit);
  void watch(std::int64_t target);
  void watchClosedLid(bool closed, const std::function<void(const char*)>& stop);
  void stopDischarge(const std::string& reason);
  void acquire();
  void release();
  void releaseAll();
  Outcome startDischarge();
  void disarm();
  void setSleepDisabled(bool on, bool& done);
  void keepAwake(bool on);
  void clientCame();
  void clientLeft();
  void suspend();
  void setLimit(std::int64_t percent);
  void clearLimit();
  void topOff();
  void topOffTick(std::uint64_t own, std::int64_t saved, std::int64_t ticks);
  void cancelTopOff();
  void beforeSleep();
  void recover();
  void restoreKeys(bool aloud);
  void restore(bool aloud);

  /// Whether this mistake was planted.
  [[nodiscard]] bool planted(int number) const { return mistake == number; }

  int mistake;
  const Trace* trace = nullptr;
  std::int64_t pid = 0;
  std::string team;
  std::int64_t connectionID = 0;
  std::map<std::string, KeyInfo> infos;
  bool newerCharge = false, olderCharge = false, newerDrain = false, olderDrain = false;
  std::optional<std::vector<std::int64_t>> offered;
  Record record;
  bool armed = false;
  std::optional<double> closedAt;
  std::optional<std::int64_t> lowest;
  std::int64_t unreadable = 0;
  std::string lastOutcome;
  std::optional<std::int64_t> polling, topOffTimer, releaseTimer, assertion;
  std::map<std::int64_t, std::int64_t> paired;
  std::vector<std::int64_t> outstanding;
  std::int64_t clients = 0;
  std::uint64_t generation = 0;
  std::int64_t rootPort = 0;
  std::map<std::int64_t, Posted> posted;
  std::map<std::int64_t, Timer> timers;
  std::int64_t freeAt = 0;
  bool exits = false;
  std::set<std::int64_t> leftEarly;  ///< Clients whose end was counted by their acceptance.
  std::uint64_t asker = 0;           ///< The place of the message that this work is for.
  std::map<std::uint64_t, std::string> replies;
  /// By the place before the change, for readers on other threads.
  std::map<std::uint64_t, Version> history;
  std::vector<const Item*> reads;  ///< Messages of readers that are not compared yet.
};

}  // namespace model
