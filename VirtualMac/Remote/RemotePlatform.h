#pragma once

#include <memory>
#include <string>

#include "Platform/Platform.h"

namespace virtualmac {

class HelperHost;
class MachineClock;
class ProcessDispatch;

/// launchd gives these to a helper that it starts.
struct LaunchOptions {
  int machineDescriptor = -1;  ///< One end of a stream socket; the machine has the other.
  int serviceDescriptor = -1;  ///< The listening socket of the service.
  std::string serviceName;     ///< The Mach service that the socket stands for.
  std::string diskRoot;        ///< The directory that stands for the machine's root directory.
  bool verbose = false;        ///< Log lines go to standard error too.
  /// The program's delegate may wait for time or for the machine before it decides on a client; so
  /// new clients come on a thread of their own.
  bool decisionsMayWait = false;
};

/// The seam of a helper that is a process of its own: hardware, registry, power, signatures and log
/// are calls to the machine; files, queues, signals and messages are real and made here.
///
/// Failure: when the machine goes away, the process ends at once with status 69 and a line on
/// standard error.
class RemotePlatform {
 public:
  static constexpr int machineGoneStatus = 69;

  explicit RemotePlatform(const LaunchOptions& options);
  ~RemotePlatform();
  RemotePlatform(const RemotePlatform&) = delete;
  RemotePlatform& operator=(const RemotePlatform&) = delete;

  [[nodiscard]] korvel::Platform& platform();
  /// The platform's queues and main loop, for an owner that posts to that loop or ends it.
  [[nodiscard]] ProcessDispatch& dispatch();
  /// The machine's time and its word on files, for an owner that makes timers and file calls
  /// itself.
  [[nodiscard]] MachineClock& clock();
  [[nodiscard]] HelperHost& host();

 private:
  struct Parts;
  std::unique_ptr<Parts> parts;
};

}  // namespace virtualmac
