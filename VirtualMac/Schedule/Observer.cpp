#include "VirtualMac/Schedule/Observer.h"

namespace virtualmac {

void ScheduleObserver::lockTaken(const Lane&, const VirtualLock&) {}
void ScheduleObserver::callMade(const Lane&, SeamCall) {}
void ScheduleObserver::timerStarted(const TimerFacts&) {}
void ScheduleObserver::timerCancelled(const TimerFacts&) {}
void ScheduleObserver::timerFires(const TimerFacts&) {}
void ScheduleObserver::timerDone(const TimerFacts&) {}
void ScheduleObserver::waited(const Lane&, std::string_view, double) {}

}  // namespace virtualmac
