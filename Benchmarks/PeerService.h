#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

struct sd_bus;

namespace benchmarks {

/// A power service of Debian's, and a property that it answers with.
struct Peer {
  const char* program;
  const char* bus;
  const char* path;
  const char* interface;
  const char* property;
  const char* type;
};

inline constexpr Peer upower{"/usr/libexec/upowerd",
                             "org.freedesktop.UPower",
                             "/org/freedesktop/UPower",
                             "org.freedesktop.UPower",
                             "OnBattery",
                             "b"};
inline constexpr Peer powerProfiles{"/usr/libexec/power-profiles-daemon",
                                    "net.hadess.PowerProfiles",
                                    "/net/hadess/PowerProfiles",
                                    "net.hadess.PowerProfiles",
                                    "ActiveProfile",
                                    "s"};

/// A peer as a process, on a private bus with a simulated battery that live as long as this object.
/// Like HelperService, it is started by the first connection that asks.
class PeerService {
 public:
  struct Close {
    void operator()(sd_bus* bus) const;
  };
  using Connection = std::unique_ptr<sd_bus, Close>;

  explicit PeerService(const Peer& served);
  ~PeerService();
  PeerService(const PeerService&) = delete;
  PeerService& operator=(const PeerService&) = delete;

  [[nodiscard]] std::optional<Connection> connect() const;
  /// Reads the property. False: it was not told.
  [[nodiscard]] bool ask(const Connection& bus) const;
  [[nodiscard]] pid_t pid(const Connection& bus) const;

 private:
  const Peer& peer;
  std::string folder;
  pid_t daemon = -1;
};

}  // namespace benchmarks
