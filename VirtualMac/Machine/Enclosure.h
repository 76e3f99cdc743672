#pragma once

#include "VirtualMac/Machine/MachineContext.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

class SMC;

/// The power adapter. Journals `mac   adapter connected`, `mac   adapter disconnected` and
/// `mac   adapter renegotiated`, followed by ` (inflow inhibit dropped)` when one was in force.
///
/// Fault model. It comes, goes and renegotiates at any moment; its state may be unreadable (a fault
/// of Registry). Not modelled: an adapter too weak for the machine.
class Adapter {
 public:
  Adapter(bool connectedAtStart, SMC& controller, MachineContext& shared);
  void connect();
  void disconnect();
  /// A new power contract without unplugging; drops the SMC's inflow inhibit.
  void renegotiate();
  [[nodiscard]] bool isConnected() const { return connected; }

 private:
  bool connected;
  SMC& smc;
  MachineContext& context;
};

/// The lid and the external display. Journals `mac   lid closed`, `mac   lid opened`,
/// `mac   display connected`, `mac   display disconnected`.
///
/// Fault model. Both change at any moment; the lid's state may be unreadable (a fault of Registry);
/// a desktop has no lid.
class Lid {
 public:
  Lid(const Profile& profile, MachineContext& shared);
  [[nodiscard]] bool exists() const { return present; }
  void close();
  void open();
  [[nodiscard]] bool isClosed() const { return closed; }
  void connectDisplay();
  void disconnectDisplay();
  [[nodiscard]] bool displayConnected() const { return display; }

 private:
  void setClosed(bool value);
  void setDisplay(bool value);

  bool present;
  bool closed = false;
  bool display;
  MachineContext& context;
};

}  // namespace virtualmac
