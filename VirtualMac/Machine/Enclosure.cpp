#include "VirtualMac/Machine/Enclosure.h"

#include "VirtualMac/Machine/SMC.h"

namespace virtualmac {

Adapter::Adapter(bool connectedAtStart, SMC& controller, MachineContext& shared)
    : connected(connectedAtStart), smc(controller), context(shared) {}

void Adapter::connect() {
  if (connected) return;
  connected = true;
  context.noteChange();
  context.journal.record("mac", "adapter connected");
}

void Adapter::disconnect() {
  if (!connected) return;
  connected = false;
  context.noteChange();
  context.journal.record("mac", "adapter disconnected");
}

void Adapter::renegotiate() {
  if (!connected) return;
  const bool dropped = smc.dropInflowInhibit();
  context.journal.record(
      "mac", dropped ? "adapter renegotiated (inflow inhibit dropped)" : "adapter renegotiated");
}

Lid::Lid(const Profile& profile, MachineContext& shared)
    : present(profile.hasLid), display(profile.externalDisplayConnected), context(shared) {}

void Lid::close() { setClosed(true); }
void Lid::open() { setClosed(false); }
void Lid::connectDisplay() { setDisplay(true); }
void Lid::disconnectDisplay() { setDisplay(false); }

void Lid::setClosed(bool value) {
  if (!present || closed == value) return;
  closed = value;
  context.noteChange();
  context.journal.record("mac", value ? "lid closed" : "lid opened");
}

void Lid::setDisplay(bool value) {
  if (display == value) return;
  display = value;
  context.noteChange();
  context.journal.record("mac", value ? "display connected" : "display disconnected");
}

}  // namespace virtualmac
