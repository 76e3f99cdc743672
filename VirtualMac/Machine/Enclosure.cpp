#include "VirtualMac/Machine/Enclosure.h"

#include "VirtualMac/Machine/SMC.h"

namespace virtualmac {

Adapter::Adapter(bool connectedAtStart, SMC& controller, MachineContext& shared)
    : connected(connectedAtStart), smc(controller), context(shared) {}

void Adapter::connect() {
  if (connected) return;
  connected = true;
  context.noteChange();
  context.journal.record<EffectID::adapterConnected>();
}

void Adapter::disconnect() {
  if (!connected) return;
  connected = false;
  context.noteChange();
  context.journal.record<EffectID::adapterDisconnected>();
}

void Adapter::renegotiate() {
  if (!connected) return;
  if (smc.dropInflowInhibit()) {
    context.journal.record<EffectID::inflowInhibitDropped>();
  } else {
    context.journal.record("mac", "adapter renegotiated");
  }
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
  value ? context.journal.record<EffectID::lidClosed>()
        : context.journal.record<EffectID::lidOpened>();
}

void Lid::setDisplay(bool value) {
  if (display == value) return;
  display = value;
  context.noteChange();
  context.journal.record("mac", value ? "display connected" : "display disconnected");
}

}  // namespace virtualmac
