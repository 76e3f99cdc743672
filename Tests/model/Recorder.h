#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Platform.h"
#include "Platform/RootPowerDomain.h"
#include "Tests/model/reference/Trace.h"
#include "VirtualMac/InProcess/AppClient.h"
#include "VirtualMac/InProcess/World.h"
#include "VirtualMac/Schedule/Journal.h"
#include "VirtualMac/Schedule/Lane.h"
#include "VirtualMac/Schedule/Observer.h"

namespace model {

/// Writes down a run as the model reads it: for each stretch of a thread's work its cause, and
/// every call with its answer.
class Recorder final : public virtualmac::ScheduleObserver {
 public:
  Recorder();
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Listens to a world, whose helper's entry is `run`.
  void attach(virtualmac::World& watched);
  int run(korvel::Platform& program);
  /// A call that a client has made, and its argument.
  void remember(const virtualmac::AppCallRef& call, std::int64_t argument);

  /// The outcome of each delivered call, by the place of its message; empty: none came.
  [[nodiscard]] std::map<std::uint64_t, std::string> outcomes() const;
  [[nodiscard]] const Trace& trace() const { return items; }
  [[nodiscard]] std::uint64_t order() const { return last; }
  [[nodiscard]] std::int64_t now() const;

  // For the recorded platform
  Event* begin(std::string text);
  void finish(Event* event, Answer answer);
  void open(Item item);
  void close();
  korvel::ConnectionRef registerForPower(korvel::RootPowerDomain& domain, void* refcon,
                                         korvel::HandleRef& port, korvel::InterestCallback callback,
                                         korvel::ObjectRef& notifier);

  void workPosted(const virtualmac::Lane& from, const virtualmac::Lane& to,
                  std::uint64_t number) override;
  void workBegins(const virtualmac::Lane& lane, std::uint64_t number) override;
  void workEnds(const virtualmac::Lane& lane, std::uint64_t number) override;
  void messageBegins(const virtualmac::Lane& lane, std::string_view selector) override;
  void messageEnds(const virtualmac::Lane& lane) override;
  void connectionOffered(const virtualmac::ThreadGroup& process, std::int32_t client) override;
  void connectionDecided(const virtualmac::ThreadGroup& process, bool accepted) override;
  void connectionEnding(const virtualmac::ThreadGroup& process) override;
  void connectionEnded(const virtualmac::ThreadGroup& process) override;
  void connectionBreaking(const virtualmac::ThreadGroup& process) override;
  void connectionBroken(const virtualmac::ThreadGroup& process) override;
  void timerStarted(const virtualmac::TimerFacts& timer) override;
  void timerCancelled(const virtualmac::TimerFacts& timer) override;
  void timerFires(const virtualmac::TimerFacts& timer) override;
  void timerDone(const virtualmac::TimerFacts& timer) override;
  void waited(const virtualmac::Lane& lane, std::string_view what, double seconds) override;

 private:
  struct Seam;
  struct Call {
    virtualmac::AppCallRef call;
    std::int64_t argument = 0;
    std::uint64_t order = 0;  ///< The place of its message; 0: it was not delivered.
  };
  struct Registration {
    Recorder* recorder = nullptr;
    void* refcon = nullptr;
    korvel::InterestCallback callback = nullptr;
  };

  static void heard(void* refcon, korvel::ObjectRef service, std::uint32_t type,
                    std::uintptr_t argument);
  void happened(std::string text, Answer answer = {});
  void heardOf(const virtualmac::Journal::Entry& entry);

  virtualmac::World* world = nullptr;
  Trace items;
  std::map<const virtualmac::Lane*, Item*> openItems;
  std::map<const virtualmac::Lane*, Call> delivering;
  std::vector<Call> calls;
  std::vector<std::unique_ptr<Registration>> registrations;
  std::vector<std::unique_ptr<Seam>> seams;
  std::uint64_t last = 0;
};

}  // namespace model
