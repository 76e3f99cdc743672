#pragma once

#include <sys/types.h>

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Operations.h"
#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Tools/AppConnection.h"

namespace benchmarks {

/// The helper as a process, on a virtual Mac that lives as long as this object. Like PeerService,
/// it is started by the first connection.
class HelperService {
 public:
  using Connection = virtualmac::AppConnection;

  /// The machine runs `speed` times as fast as real time. At 1000, launchd's ten seconds between
  /// two starts pass quickly.
  explicit HelperService(int speed);
  ~HelperService();
  HelperService(const HelperService&) = delete;
  HelperService& operator=(const HelperService&) = delete;

  /// Does `virtual-mac COMMAND`. False: it failed.
  [[nodiscard]] bool run(const std::string& command) const;
  [[nodiscard]] std::optional<Connection> connect() const;
  /// Asks for a small answer. False: none came.
  static bool ask(Connection& app) { return !answer(app, korvel::operation::ping).empty(); }
  /// The values of a reply; empty when none came.
  static std::vector<virtualmac::XPCValue> answer(Connection& app,
                                                  const korvel::Operation& operation,
                                                  std::uint8_t argument = 80);
  static pid_t pid(Connection& app);
  /// The virtual Mac's process.
  static pid_t machinePid(const Connection& app);
  /// Asks for what `virtual-mac status --json` tells; null: the machine is gone.
  [[nodiscard]] nlohmann::json status() const;

  [[nodiscard]] const virtualmac::RootDirectory& folder() const { return root; }

 private:
  virtualmac::RootDirectory root;
};

}  // namespace benchmarks
