#include "VirtualMac/Machine/Launchd.h"

namespace virtualmac {

std::vector<LaunchdAction> Launchd::startOrWait(Nanoseconds now) {
  const Nanoseconds earliest = lastStart ? *lastStart + fromSeconds(job.throttleSeconds) : now;
  if (now < earliest) {
    due = earliest;
    return {};
  }
  due.reset();
  wanted = false;
  running = true;
  lastStart = now;
  ++startCount;
  return {LaunchdAction::Start};
}

void Launchd::load() {
  if (loaded) return;
  loaded = true;
  wanted = false;
}

std::vector<LaunchdAction> Launchd::demand(Nanoseconds now) {
  if (!loaded || (running && !stopping)) return {};
  wanted = true;
  if (running) return {};
  return startOrWait(now);
}

std::vector<LaunchdAction> Launchd::exited(Nanoseconds now) {
  if (!running) return {};
  running = false;
  stopping = false;
  due.reset();
  if (!loaded || !(job.keepAlive || wanted)) return {};
  wanted = true;
  return startOrWait(now);
}

std::vector<LaunchdAction> Launchd::unload(Nanoseconds now) {
  if (!loaded) return {};
  loaded = false;
  wanted = false;
  due.reset();
  if (!running) return {};
  stopping = true;
  due = now + fromSeconds(job.exitTimeoutSeconds);
  return {LaunchdAction::Terminate};
}

std::vector<LaunchdAction> Launchd::elapsed(Nanoseconds now) {
  if (!due || now < *due) return {};
  due.reset();
  if (stopping) return {LaunchdAction::Kill};
  return wanted && !running ? startOrWait(now) : std::vector<LaunchdAction>{};
}

}  // namespace virtualmac
