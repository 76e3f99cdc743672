#include "VirtualMac/Schedule/Observer.h"

namespace virtualmac {

void ScheduleObserver::lockTaken(const Lane&, const VirtualLock&) {}
void ScheduleObserver::callMade(const Lane&, SeamCall) {}
void ScheduleObserver::callTakesEffect(const Lane&, SeamCall, bool) {}
void ScheduleObserver::workPosted(const Lane&, const Lane&, std::uint64_t) {}
void ScheduleObserver::workBegins(const Lane&, std::uint64_t) {}
void ScheduleObserver::workEnds(const Lane&, std::uint64_t) {}
void ScheduleObserver::messageBegins(const Lane&, std::string_view) {}
void ScheduleObserver::messageEnds(const Lane&) {}
void ScheduleObserver::connectionOffered(const ThreadGroup&) {}
void ScheduleObserver::connectionDecided(const ThreadGroup&, bool) {}
void ScheduleObserver::connectionEnding(const ThreadGroup&) {}
void ScheduleObserver::connectionEnded(const ThreadGroup&) {}
void ScheduleObserver::timerStarted(const TimerFacts&) {}
void ScheduleObserver::timerCancelled(const TimerFacts&) {}
void ScheduleObserver::timerFires(const TimerFacts&) {}
void ScheduleObserver::timerDone(const TimerFacts&) {}
void ScheduleObserver::waited(const Lane&, std::string_view, double) {}

}  // namespace virtualmac
