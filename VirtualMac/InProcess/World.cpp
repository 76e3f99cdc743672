#include "VirtualMac/InProcess/World.h"

#include <algorithm>
#include <csignal>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "HelperEntry.h"
#include "VirtualMac/InProcess/AppLink.h"
#include "VirtualMac/InProcess/HostedProcess.h"
#include "VirtualMac/InProcess/MachineSchedulerClock.h"
#include "VirtualMac/InProcess/ServiceEndpoint.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Schedule/LogText.h"
#include "VirtualMac/Schedule/Scheduler.h"

namespace virtualmac {

namespace {

constexpr std::int32_t firstHelperPid = 501;
constexpr std::int32_t firstClientPid = 901;
constexpr Nanoseconds longestWait = fromSeconds(86400);

Profile profileNamed(const std::string& name) {
  std::expected<Profile, std::string> loaded = loadProfile(name);
  if (!loaded) throw std::invalid_argument(loaded.error());
  return std::move(*loaded);
}

}  // namespace

/// A world's parts, in the order in which they are made; taken apart in the reverse.
struct World::Parts {
  explicit Parts(WorldOptions chosen)
      : options(std::move(chosen)),
        journal([this] { return machine ? machine->totalSeconds() : 0.0; }),
        machine(std::make_unique<Machine>(profileNamed(options.profile), journal, options.seed)),
        time(*machine),
        scheduler(time,
                  options.scheduling == Scheduling::Fifo ? Scheduler::Order::Fifo
                                                         : Scheduler::Order::Seeded,
                  options.seed),
        endpoint([this] {
          noteEnd();
          machine->launchd.demand();
        }) {
    journal.keepEntries(options.keepJournal);
    if (options.helperVersion) {
      machine->bundleInformation.insert_or_assign("CFBundleShortVersionString",
                                                  *options.helperVersion);
    } else {
      machine->bundleInformation.erase("CFBundleShortVersionString");
    }
    machine->signatures.setPath(helperProgramPath, "helper");
    machine->setDownHandler([this](std::string_view) { act(LaunchdAction::Kill); });
    Launchd& launchd = machine->launchd;
    launchd.job = {.startAtBoot = false, .restartAfterCrash = false, .throttleSeconds = 0};
    launchd.setHands([this](LaunchdAction action) { act(action); });
    launchd.load();
  }

  [[nodiscard]] bool running() const { return present != nullptr && present->alive(); }

  void startByHand(bool withEntry) {
    if (running()) throw std::logic_error("a helper is already running");
    noteEnd();
    nextHasEntry = withEntry;
    machine->launchd.startByHand();
  }

  void act(LaunchdAction action) {
    if (action == LaunchdAction::Start) return start(std::exchange(nextHasEntry, true));
    if (!running()) return;
    if (action == LaunchdAction::Terminate) return sendSignal(SIGTERM);
    present->end(ProcessEnd{std::nullopt, SIGKILL});
  }

  void start(bool withEntry) {
    processes.push_back(std::make_unique<HostedProcess>(
        HostSurroundings{
            *machine, scheduler, faults, journal, endpoint, observers,
            [this](std::string text) { violations.push_back(std::move(text)); },
            [this](auto level, auto category, auto text) { writeLog(level, category, text); },
            [this](HostedProcess&) { noteEnd(); }},
        nextHelperPid++));
    present = processes.back().get();
    HostedProcess& host = *present;
    if (withEntry) {
      scheduler.post(host.mainThread(), [this, &host] {
        const int status =
            options.entry ? options.entry(host.platform()) : korvel::runHelper(host.platform());
        host.platform().process.exit(status);
      });
    } else {
      scheduler.post(host.mainThread(), [&host] { host.dispatching().runMainLoop(); });
    }
  }

  /// Tells launchd of the present helper's end, once.
  void noteEnd() {
    if (present != nullptr && !running())
      machine->launchd.exited(present->endedBy().exitStatus != 0);
  }

  void sendSignal(int number) {
    machine->tellSignal(present->model().pid(), number);
    if (!present->dispatching().deliverSignal(number)) kill(number);
  }

  void writeLog(korvel::LogLevel level, std::string_view category, std::string_view text) {
    journal.record<EffectID::logged>(category, levelName(level), text);
    if (options.keepJournal) {
      logLines.push_back(
          {machine->totalSeconds(), std::string(category), level, std::string(text)});
    }
  }

  /// Ends the helper and returns when its threads have unwound.
  void kill(int signal) {
    if (!running()) return;
    HostedProcess& host = *present;
    host.end(ProcessEnd{std::nullopt, signal});
    unwind(host);
  }

  void unwind(HostedProcess& host) {
    if (!host.threads().gone()) scheduler.killAndUnwind(host.threads());
  }

  WorldOptions options;
  Journal journal;
  std::unique_ptr<Machine> machine;
  FaultTable faults;
  MachineSchedulerClock time;
  ScheduleObservers observers;
  Scheduler scheduler;
  ServiceEndpoint endpoint;
  std::vector<std::unique_ptr<HostedProcess>> processes;
  HostedProcess* present = nullptr;
  bool nextHasEntry = true;
  std::int32_t nextHelperPid = firstHelperPid;
  std::int32_t nextClientPid = firstClientPid;
  std::vector<LogLine> logLines;
  std::vector<std::string> violations;
};

World::World(WorldOptions options) : parts(std::make_unique<Parts>(std::move(options))) {}

World::~World() {
  parts->machine->launchd.forget();
  parts->kill(SIGKILL);
  // One that has just exited by itself may still be unwinding.
  for (const auto& process : parts->processes) parts->unwind(*process);
}

Machine& World::machine() { return *parts->machine; }
Journal& World::journal() { return parts->journal; }
FaultTable& World::faults() { return parts->faults; }
Scheduler& World::scheduler() { return parts->scheduler; }
ScheduleObservers& World::observers() { return parts->observers; }
Launchd& World::launchd() { return parts->machine->launchd; }

// ---- the helper

void World::startHelper() { parts->startByHand(true); }

void World::killHelper() { parts->kill(SIGKILL); }

void World::powerLoss() {
  HostedProcess* const host = parts->running() ? parts->present : nullptr;
  parts->machine->powerLoss();
  if (host != nullptr) parts->unwind(*host);
}

void World::sendSignal(int number) {
  if (parts->running()) parts->sendSignal(number);
}

bool World::helperRunning() const { return parts->running(); }

std::optional<int> World::exitStatus() const {
  if (parts->present == nullptr) return std::nullopt;
  return parts->present->endedBy().exitStatus;
}

std::optional<std::int32_t> World::helperPid() const {
  if (!parts->running()) return std::nullopt;
  return parts->present->model().pid();
}

korvel::Platform& World::startBareHelper() {
  parts->startByHand(false);
  return platform();
}

korvel::Platform& World::platform() {
  if (parts->present == nullptr) throw std::logic_error("no helper was started");
  return parts->present->platform();
}

void World::onMain(std::function<void()> body) {
  if (!parts->running()) throw std::logic_error("no helper is running");
  HostedProcess& host = *parts->present;
  const auto done = std::make_shared<bool>(false);
  host.dispatching().postToMain([body = std::move(body), done] {
    body();
    *done = true;
  });
  parts->scheduler.runUntil([&host, done] { return *done || host.threads().gone(); }, longestWait);
  if (!*done && !host.threads().gone()) {
    throw StuckError("work on the main thread did not end in a day");
  }
}

void World::onThread(std::string name, std::function<void()> body) {
  if (!parts->running()) throw std::logic_error("no helper is running");
  parts->present->startThread(std::move(name), std::move(body));
}

// ---- clients

std::unique_ptr<AppClient> World::connectApp(std::string_view identity) {
  if (parts->machine->signatures.identity(identity) == nullptr) {
    throw std::invalid_argument("no signing identity is called " + std::string(identity));
  }
  const std::int32_t pid = parts->nextClientPid++;
  parts->machine->signatures.setPid(pid, identity);
  auto link = std::make_unique<AppClient::Link>();
  link->end =
      std::make_shared<ClientEnd>(parts->endpoint, parts->journal, std::string(identity), pid);
  link->end->connect();
  return std::unique_ptr<AppClient>(new AppClient(*this, std::move(link)));
}

// ---- time

double World::now() const { return parts->machine->totalSeconds(); }
double World::uptime() const { return parts->machine->uptimeSeconds(); }
void World::runFor(double seconds) { parts->scheduler.runFor(fromSeconds(seconds)); }
void World::runUntilIdle() { parts->scheduler.runUntilIdle(); }

bool World::runUntil(const std::function<bool()>& reached, double limitSeconds) {
  return parts->scheduler.runUntil(reached, fromSeconds(limitSeconds));
}

// ---- observation

const CallCounts& World::callCounts() const { return parts->faults.counts(); }

std::vector<LogLine> World::logLines(std::string_view category) const {
  std::vector<LogLine> chosen;
  std::copy_if(parts->logLines.begin(), parts->logLines.end(), std::back_inserter(chosen),
               [&](const LogLine& line) { return category.empty() || line.category == category; });
  return chosen;
}

std::size_t World::logCount(std::string_view text) const {
  return static_cast<std::size_t>(
      std::count_if(parts->logLines.begin(), parts->logLines.end(),
                    [&](const LogLine& line) { return line.text == text; }));
}

bool World::logged(std::string_view category, korvel::LogLevel level, std::string_view text) const {
  return std::any_of(parts->logLines.begin(), parts->logLines.end(), [&](const LogLine& line) {
    return line.category == category && line.level == level && line.text == text;
  });
}

const std::vector<std::string>& World::violations() const { return parts->violations; }

}  // namespace virtualmac
