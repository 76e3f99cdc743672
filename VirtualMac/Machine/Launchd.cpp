#include "VirtualMac/Machine/Launchd.h"

#include <algorithm>

namespace virtualmac {

void Launchd::act(LaunchdAction action) const {
  if (hands) hands(action);
}

void Launchd::waitUntil(Nanoseconds moment) {
  due = moment;
  context.noteChange();
}

void Launchd::startOrWait() {
  if (lastStart) {
    const Nanoseconds earliest = *lastStart + fromSeconds(job.throttleSeconds);
    if (context.total < earliest) return waitUntil(earliest);
  }
  startByHand();
}

void Launchd::startByHand() {
  if (running) return;
  due.reset();
  wanted = false;
  running = true;
  lastStart = context.total;
  act(LaunchdAction::Start);
}

void Launchd::load() {
  loaded = true;
  if (job.startAtBoot && (!running || stopping)) wanted = true;
  if (wanted && !running) startOrWait();
}

void Launchd::demand() {
  if (!job.startOnDemand || (running && !stopping)) return;
  wanted = true;
  if (loaded && !running) startOrWait();
}

void Launchd::exited(bool crashed) {
  if (!running) return;
  running = false;
  stopping = false;
  due.reset();
  if (!loaded) return;
  wanted = wanted || (crashed && job.restartAfterCrash);
  if (wanted) startOrWait();
}

void Launchd::unload() {
  if (!loaded) return;
  loaded = false;
  wanted = false;
  due.reset();
  if (!running) return;
  stopping = true;
  waitUntil(context.total + fromSeconds(job.exitTimeoutSeconds));
  act(LaunchdAction::Terminate);
}

void Launchd::forget() {
  loaded = running = stopping = wanted = false;
  lastStart.reset();
  due.reset();
}

void Launchd::settle() {
  if (!due || context.total < *due) return;
  due.reset();
  if (stopping) return act(LaunchdAction::Kill);
  if (wanted && !running) startOrWait();
}

Nanoseconds Launchd::untilNextEvent() const {
  return due ? std::max<Nanoseconds>(*due - context.total, 0) : neverNanoseconds;
}

}  // namespace virtualmac
