#include "VirtualMac/Server/MachineServer.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "HelperPersistence.h"
#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/JournalHead.h"
#include "VirtualMac/Remote/RemoteInterface.h"
#include "VirtualMac/Server/JournalArchive.h"

namespace virtualmac {

namespace {

/// How long the machine waits for the helper's answer before it sleeps, and the least of it in real
/// seconds, however fast time runs.
constexpr double usualAcknowledgementSeconds = 30;
constexpr double shortestRealAcknowledgement = 2;
/// As long has a helper that is told to end.
constexpr double shortestRealExit = 5;

/// A program of the machine without privileges may make these calls.
bool isForClients(CallNumber number) {
  if (number < seamCallCount) {
    const std::string_view interface = describe(static_cast<SeamCall>(number)).interface;
    return interface == "CodeSigning" || interface == "WallClock";
  }
  return number == callNumber(HostCall::time) || number == callNumber(HostCall::judge) ||
         number == callNumber(HostCall::requirementError);
}

/// Why the helper finds something in its state file's place that is no file; empty: it does not.
std::string stateFileDefect(const RootDirectory& root) {
  const std::string path = root.disk() + std::string(korvel::HelperPersistence::statePath);
  std::error_code error;
  const auto status = std::filesystem::symlink_status(path, error);
  const bool usual = std::filesystem::is_regular_file(status) || !std::filesystem::exists(status);
  return usual ? "" : "it is no plain file";
}

/// A byte more than the head takes is enough to tell that it is too long.
std::optional<std::string> stateFileIn(const RootDirectory& root) {
  const std::string path = root.disk() + std::string(korvel::HelperPersistence::statePath);
  std::error_code error;
  const auto status = std::filesystem::symlink_status(path, error);
  if (!std::filesystem::is_regular_file(status)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes(bounds::longestText + 1, '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

}  // namespace

MachineServer::MachineServer(asio::io_context& mainLoop, MachineOptions options)
    : loop(mainLoop),
      chosen(std::move(options)),
      effects([this] { return mac.totalSeconds(); }),
      mac(chosen.profile, effects),
      head(journalHead(mac, {.run = chosen.run,
                             .profileFile = chosen.profileFile,
                             .speed = chosen.speed,
                             .savedState = stateFileIn(chosen.root),
                             .savedStateUntold = stateFileDefect(chosen.root)})),
      disk(effects, chosen.root.disk()),
      keeper(loop, mac, chosen.speed),
      jobs(loop, chosen.root, chosen.helperProgram, chosen.verboseHelper, keeper, mac) {
  effects.keepEntries(false);
  effects.addListener([this](const Journal::Entry& entry) {
    journalFile.append(journalLine(entry));
    trail.hear(entry);
    const auto listening = followers;
    for (const auto& follower : listening) (*follower)(entry);
  });
  mac.setDownHandler([this](std::string_view) {
    losingPower = true;
    jobs.killNow();
    losingPower = false;
    endClients();
  });
  keeper.setClockHandler([this](const MachineTime& time) {
    mac.power.acknowledgementSeconds =
        std::max(usualAcknowledgementSeconds, shortestRealAcknowledgement * time.speed);
    mac.launchd.job.exitTimeoutSeconds =
        std::max(LaunchdJob().exitTimeoutSeconds, shortestRealExit * time.speed);
    if (link) link->sendClock(time);
    for (const auto& client : clients) client->sendClock(time);
  });
  keeper.setSpeed(chosen.speed);
  keeper.setSettledHandler([this] {
    signServiceAsHelper();
    jobs.watchService();
  });
  jobs.setHandlers([this](const JobRunner::Started& started) { helperStarted(started); },
                   [this](pid_t pid, const ProcessEnd& how) { helperEnded(pid, how); },
                   [this](const std::string& text) { effects.record("proc", text); });
}

MachineServer::~MachineServer() {
  // The helper ends while the link, which hears of its end, is still there.
  losingPower = true;
  jobs.end();
  if (link) link->close();
  endClients();
}

std::optional<std::string> MachineServer::start() {
  std::error_code error;
  std::filesystem::create_directories(chosen.root.applicationSupport(), error);
  if (error) return chosen.root.applicationSupport() + ": " + error.message();
  if (auto kept = keepJournal(chosen.root); !kept) return kept.error();
  if (!journalFile.open(chosen.root.journal()))
    return chosen.root.journal() + ": cannot be written";
  journalFile.append(head);
  if (auto problem = jobs.listen()) return problem;
  signServiceAsHelper();
  return std::nullopt;
}

void MachineServer::boot() {
  change([](Machine& machine) { machine.launchd.load(); });
}

void MachineServer::helperStarted(const JobRunner::Started& started) {
  disk.lookForOthers();
  HelperLink::Socket socket(loop);
  socket.assign(asio::local::stream_protocol(), started.machineDescriptor);
  link = std::make_shared<HelperLink>(std::move(socket), mac, keeper, mac.startProcess(started.pid),
                                      effects, disk);
  link->start([this, pid = started.pid](const std::string& reason) {
    effects.record<EffectID::helperCutOff>(pid, reason);
  });
}

void MachineServer::helperEnded(pid_t pid, const ProcessEnd& how) {
  if (link) {
    // Calls from before the helper's end still take effect, but not without power.
    if (!losingPower) link->drain();
    link->close();
    endedAfter = link->lastCall();
  }
  disk.look();
  link.reset();
  mac.endProcess(pid, how);
}

void MachineServer::join(HelperLink::Socket socket, std::int32_t pid,
                         std::shared_ptr<void> identity) {
  const auto client = std::make_shared<HelperLink>(
      std::move(socket), mac, keeper, std::make_shared<HelperProcess>(mac, pid), effects, disk);
  client->answerOnly(isForClients);
  client->setEndHandler([this, served = std::weak_ptr(client), held = std::move(identity)] {
    if (const auto ended = served.lock()) clients.erase(ended);
  });
  clients.insert(client);
  client->start([this, pid](const std::string& reason) {
    effects.record("proc", "client " + std::to_string(pid) + " loses its machine: " + reason);
  });
}

void MachineServer::tellClient(std::int32_t pid, const std::string& identity) {
  change([&](Machine&) {
    effects.record("app", "client " + std::to_string(pid) + " identifies as " + identity);
  });
}

void MachineServer::signServiceAsHelper() {
  const SigningIdentity* helper = mac.signatures.atPath(helperProgramPath);
  if (helper != nullptr) mac.signatures.setPid(::getpid(), helper->name);
}

void MachineServer::endClients() {
  for (const auto& client : std::exchange(clients, {})) client->close();
}

bool MachineServer::signalHelper(int number) {
  return change([&](Machine&) {
    const std::optional<pid_t> pid = jobs.helper();
    if (!pid || !jobs.signal(number)) return false;
    if (number != SIGKILL) mac.tellSignal(*pid, number);
    return true;
  });
}

void MachineServer::reboot(std::function<void()> done) {
  change([&](Machine&) {
    jobs.unload([this, finished = std::move(done)] {
      mac.reboot();
      finished();
    });
  });
}

void MachineServer::powerLoss() {
  change([](Machine& machine) { machine.powerLoss(); });
}

void MachineServer::shutDown(std::function<void()> done) {
  change([&](Machine& machine) {
    machine.tell("going down");
    jobs.unload(std::move(done));
  });
}

std::function<void()> MachineServer::follow(JournalListener listener) {
  auto follower = std::make_shared<JournalListener>(std::move(listener));
  followers.push_back(follower);
  return [this, follower] { std::erase(followers, follower); };
}

}  // namespace virtualmac
