#include "Tests/seam/RemoteRig.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <thread>
#include <utility>

#include "KorvelHelperProtocol.h"
#include "Tests/seam/RemoteClient.h"
#include "VirtualMac/Machine/Machine.h"
#include "VirtualMac/Remote/DiskWatch.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Remote/ProcessDispatch.h"
#include "VirtualMac/Remote/RemotePlatform.h"
#include "VirtualMac/Server/HelperLink.h"
#include "VirtualMac/Server/RealTimeDriver.h"

namespace virtualmac {
namespace {

/// The machine knows the helper by this pid; the test's own pid is its clients'.
constexpr std::int32_t helperPid = 412;

/// A temporary directory, removed with the object.
class Folder {
 public:
  Folder() : path("/tmp/korvel-rig-XXXXXX") { EXPECT_NE(::mkdtemp(path.data()), nullptr); }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  std::string path;
};

/// Runs the machine on a thread of its own.
class MachineThread {
 public:
  MachineThread(const std::string& profile, const std::string& diskRoot, int socket)
      : journal([this] { return machine.totalSeconds(); }),
        machine(loadProfile(profile).value(), journal),
        disk(journal, diskRoot),
        keeper(context, machine, 1) {
    HelperLink::Socket connected(context);
    connected.assign(asio::local::stream_protocol(), socket);
    link = std::make_shared<HelperLink>(std::move(connected), machine, keeper,
                                        machine.startProcess(helperPid), journal, disk);
    keeper.setClockHandler([this](const MachineTime& time) { link->sendClock(time); });
    link->start([](const std::string& reason) { ADD_FAILURE() << reason; });
    thread = std::thread([this] { context.run(); });
  }
  ~MachineThread() {
    run([this](Machine&) { link->close(); });
    guard.reset();
    context.stop();
    thread.join();
  }
  MachineThread(const MachineThread&) = delete;
  MachineThread& operator=(const MachineThread&) = delete;

  void run(const std::function<void(Machine&)>& body) {
    std::promise<void> done;
    asio::post(context, [&] {
      keeper.catchUp();
      body(machine);
      keeper.settle();
      done.set_value();
    });
    done.get_future().wait();
  }
  [[nodiscard]] const Journal& effects() const { return journal; }

 private:
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
  Journal journal;
  Machine machine;
  DiskWatch disk;
  RealTimeDriver keeper;
  std::shared_ptr<HelperLink> link;
  std::thread thread;
};

std::array<int, 2> socketPair() {
  std::array<int, 2> ends{};
  EXPECT_TRUE(hostsystem::unixSocketPair(ends));
  return ends;
}

int listenAt(const std::string& path) {
  const int listening = hostsystem::unixSocket();
  const asio::local::stream_protocol::endpoint endpoint(path);
  EXPECT_EQ(::bind(listening, endpoint.data(), static_cast<socklen_t>(endpoint.size())), 0);
  EXPECT_EQ(::listen(listening, 16), 0);
  return listening;
}

class RemoteRig final : public SeamRig {
 public:
  explicit RemoteRig(const std::string& profile, bool decisionsMayWait = false)
      : ends(socketPair()),
        mac(profile, folder.path, ends[0]),
        remote({.machineDescriptor = ends[1],
                .serviceDescriptor = listenAt(servicePath()),
                .serviceName = std::string(korvel::KorvelHelperMachServiceName),
                .diskRoot = folder.path,
                .decisionsMayWait = decisionsMayWait}),
        mainThread([this] { remote.platform().dispatch.runMainLoop(); }) {}
  ~RemoteRig() override {
    remote.dispatch().stopMainLoop();
    mainThread.join();
  }

  korvel::Platform& platform() override { return remote.platform(); }

  void onMain(std::function<void()> body) override {
    std::promise<void> done;
    remote.dispatch().postToMain([&] {
      body();
      done.set_value();
    });
    done.get_future().wait();
  }

  void pass(double seconds) override {
    until([] { return false; }, seconds);
  }

  bool until(const std::function<bool()>& reached, double limitSeconds) override {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(limitSeconds);
    for (;;) {
      for (const auto& client : clients)
        if (const auto alive = client.lock()) alive->pump();
      if (reached()) return true;
      if (Clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  void machine(const std::function<void(Machine&)>& body) override { mac.run(body); }

  std::unique_ptr<RigClient> connect(std::string_view identity) override {
    mac.run([&](Machine& model) { model.signatures.setPid(::getpid(), identity); });
    auto client = std::make_shared<RemoteClient>(servicePath());
    clients.push_back(client);
    return std::make_unique<Shared>(std::move(client));
  }

  void signal(int number) override { ::kill(::getpid(), number); }

  bool logged(std::string_view category, korvel::LogLevel level, std::string_view text) override {
    const char* name = level == korvel::LogLevel::Default ? "default"
                       : level == korvel::LogLevel::Error ? "error"
                                                          : "fault";
    const std::string line = std::string(category) + ' ' + name + " \"" + std::string(text) + '"';
    bool found = false;
    mac.run([&](Machine&) {
      for (const Journal::Entry& entry : mac.effects().entries())
        found = found || (entry.kind == "log" && entry.text == line);
    });
    return found;
  }

 private:
  /// Keeps a client alive, and so pumped by the rig, for as long as the test holds it.
  class Shared final : public RigClient {
   public:
    explicit Shared(std::shared_ptr<RemoteClient> held) : client(std::move(held)) {}
    AppCallRef call(std::string_view selector, std::uint8_t argument) override {
      return client->call(selector, argument);
    }
    void disconnect() override { client->disconnect(); }
    [[nodiscard]] std::int32_t pid() const override { return client->pid(); }

   private:
    std::shared_ptr<RemoteClient> client;
  };

  [[nodiscard]] std::string servicePath() const { return folder.path + "/service.sock"; }

  Folder folder;
  std::array<int, 2> ends;
  MachineThread mac;
  RemotePlatform remote;
  std::vector<std::weak_ptr<RemoteClient>> clients;
  std::thread mainThread;
};

}  // namespace

std::unique_ptr<SeamRig> makeRemoteRig(const std::string& profile) {
  return std::make_unique<RemoteRig>(profile);
}

std::unique_ptr<SeamRig> makeRemoteRigWhoseDecisionsMayWait(const std::string& profile) {
  return std::make_unique<RemoteRig>(profile, true);
}

}  // namespace virtualmac
