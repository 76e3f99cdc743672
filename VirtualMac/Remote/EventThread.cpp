#include "VirtualMac/Remote/EventThread.h"

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

EventThread::EventThread()
    : thread([this] {
        hostsystem::nameThisThread("events");
        loop.run();
      }) {}

void EventThread::stop() {
  loop.stop();
  if (thread.joinable()) thread.join();
}

}  // namespace virtualmac
