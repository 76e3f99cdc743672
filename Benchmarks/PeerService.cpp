#include "Benchmarks/PeerService.h"

#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <thread>

namespace benchmarks {

namespace {

/// A battery at 80 % that drains at 8 W, and an adapter that is not connected.
constexpr const char* devices = R"(P: /devices/platform/battery/power_supply/BAT0
E: SUBSYSTEM=power_supply
E: POWER_SUPPLY_NAME=BAT0
A: type=Battery
A: present=1
A: status=Discharging
A: technology=Li-ion
A: energy_full=60000000
A: energy_full_design=60000000
A: energy_now=48000000
A: power_now=8000000
A: voltage_now=12000000
A: voltage_min_design=12000000
A: capacity=80
A: model_name=Virtual

P: /devices/platform/ac/power_supply/AC0
E: SUBSYSTEM=power_supply
E: POWER_SUPPLY_NAME=AC0
A: type=Mains
A: online=0
)";

std::string configuration(const std::string& folder) {
  return "<busconfig><type>session</type><listen>unix:path=" + folder +
         "/bus</listen><servicedir>" + folder +
         "</servicedir><policy context=\"default\"><allow send_destination=\"*\"/>"
         "<allow receive_sender=\"*\"/><allow own=\"*\"/></policy></busconfig>\n";
}

}  // namespace

void PeerService::Close::operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }

PeerService::PeerService(const Peer& served) : peer(served) {
  std::array<char, 40> name{"/tmp/korvel-benchmark-XXXXXX"};
  folder = mkdtemp(name.data());
  std::ofstream(folder + "/devices") << devices;
  std::ofstream(folder + "/bus.conf") << configuration(folder);
  std::ofstream(folder + '/' + peer.bus + ".service")
      << "[D-BUS Service]\nName=" << peer.bus << "\nExec=" << peer.program << '\n';
  daemon = ::fork();
  if (daemon == 0) {
    ::setpgid(0, 0);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + folder + "/bus").c_str(), 1);
    const std::string device = folder + "/devices";
    const std::string config = "--config-file=" + folder + "/bus.conf";
    ::execlp("umockdev-run", "umockdev-run", "-d", device.c_str(), "--", "dbus-daemon",
             config.c_str(), "--nofork", nullptr);
    ::_exit(127);
  }
  const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!connect()) {
    if (std::chrono::steady_clock::now() > patience) std::abort();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

PeerService::~PeerService() {
  // Not SIGKILL: umockdev ends the bus, and its folder goes with it.
  ::kill(daemon, SIGTERM);
  ::waitpid(daemon, nullptr, 0);
  ::kill(-daemon, SIGKILL);  // A service may live on without its bus.
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
}

std::optional<PeerService::Connection> PeerService::connect() const {
  sd_bus* made = nullptr;
  if (sd_bus_new(&made) < 0) return std::nullopt;
  Connection bus(made);
  if (sd_bus_set_address(made, ("unix:path=" + folder + "/bus").c_str()) < 0 ||
      sd_bus_set_bus_client(made, 1) < 0 || sd_bus_start(made) < 0) {
    return std::nullopt;
  }
  return bus;
}

bool PeerService::ask(const Connection& bus) const {
  sd_bus_message* told = nullptr;
  const int done = sd_bus_get_property(bus.get(), peer.bus, peer.path, peer.interface,
                                       peer.property, nullptr, &told, peer.type);
  sd_bus_message_unref(told);
  return done >= 0;
}

pid_t PeerService::pid(const Connection& bus) const {
  sd_bus_creds* known = nullptr;
  if (sd_bus_get_name_creds(bus.get(), peer.bus, SD_BUS_CREDS_PID, &known) < 0) return 0;
  pid_t found = 0;
  sd_bus_creds_get_pid(known, &found);
  sd_bus_creds_unref(known);
  return found;
}

}  // namespace benchmarks
