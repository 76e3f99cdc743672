// Listeners without a name, whose clients are in this process: a pair of sockets takes the place of
// the machine's service, and the machine hears nothing of them.

#include "TinMac/Glue/Endpoints.h"

#include <array>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "Base/Trap.h"
#include "TinMac/Glue/Machine.h"
#include "TinMac/System/Trap.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Remote/ServiceConnection.h"

namespace tinmac {

namespace {

using virtualmac::Effect;
using virtualmac::ServiceConnection;

/// Keeps the connections from the machine's journal and from its faults.
class SilentHost final : public virtualmac::HelperHost {
 public:
  virtualmac::FileVerdict announceFileCall(virtualmac::SeamCall call) override {
    return machineHost().announceFileCall(call);
  }
  void fileReplaced(std::string_view path) override { machineHost().fileReplaced(path); }
  std::optional<std::string> requirementError(std::string_view requirement) override {
    return machineHost().requirementError(requirement);
  }
  virtualmac::PeerVerdict judge(std::int32_t, std::string_view requirement) override {
    trap("a requirement of a connection within the process is not built", requirement);
  }
  void journal(const Effect&) override {}
  std::optional<std::string> bundleExecutablePath() override {
    return machineHost().bundleExecutablePath();
  }
  korvel::PropertyValue bundleInfo(std::string_view key) override {
    return machineHost().bundleInfo(key);
  }
  virtualmac::MachineTime time() override { return machineHost().time(); }
  std::optional<virtualmac::ConnectionBreak> connectionsBreak() override { return std::nullopt; }
};

/// A thread that does what is posted to it. It ends when that is done after `finish`.
class Lane {
 public:
  static std::shared_ptr<Lane> start() {
    auto lane = std::make_shared<Lane>();
    std::thread([lane] { lane->context.run(); }).detach();
    return lane;
  }
  /// Once.
  void finish() { guard.reset(); }

  asio::io_context context{1};

 private:
  asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
};

struct Endpoint {
  std::shared_ptr<korvel::XPCListenerDelegate> delegate;
  std::shared_ptr<Lane> lane = Lane::start();
  /// Those of the accepted that may still live. The lane's thread alone uses them.
  std::vector<std::weak_ptr<ServiceConnection>> accepted = {};
};

struct Endpoints {
  std::mutex mutex;
  std::condition_variable changed;
  std::uint32_t last = 0;
  std::map<std::uint32_t, std::shared_ptr<Endpoint>> open;
  std::size_t connections = 0;
  SilentHost host;
};

Endpoints& endpoints() {
  static auto& all = *new Endpoints;
  return all;
}

void countOneLess() {
  const std::lock_guard lock(endpoints().mutex);
  --endpoints().connections;
  endpoints().changed.notify_all();
}

/// A connection with a thread of its own, on which all of it ends.
std::shared_ptr<ServiceConnection> makeConnection(int descriptor) {
  const auto lane = Lane::start();
  ServiceConnection::Socket socket(lane->context, asio::local::stream_protocol(), descriptor);
  return {new ServiceConnection(std::move(socket), endpoints().host),
          [lane](const ServiceConnection* over) {
            delete over;
            lane->finish();
            countOneLess();
          }};
}

void decide(Endpoint& endpoint, int descriptor) {
  const auto connection = makeConnection(descriptor);
  const bool isAccepted = endpoint.delegate->shouldAcceptNewConnection(*connection);
  if (!isAccepted || !connection->isResumed()) return connection->refuse();
  std::erase_if(endpoint.accepted, [](const auto& earlier) { return earlier.expired(); });
  endpoint.accepted.push_back(connection);
}

void endAll(const Endpoint& endpoint) {
  for (const auto& accepted : endpoint.accepted) {
    if (const auto connection = accepted.lock()) connection->refuse();
  }
}

}  // namespace

std::optional<virtualmac::FrameSocket> connectToEndpoint(std::uint32_t endpoint) {
  const std::lock_guard lock(endpoints().mutex);
  const auto found = endpoints().open.find(endpoint);
  if (found == endpoints().open.end()) return std::nullopt;
  std::array<int, 2> ends{};
  if (!virtualmac::hostsystem::unixSocketPair(ends)) korvel::trap("no pair of sockets");
  ++endpoints().connections;
  asio::post(found->second->lane->context,
             [asked = found->second, descriptor = ends[1]] { decide(*asked, descriptor); });
  return virtualmac::FrameSocket(ends[0]);
}

void awaitConnections(std::size_t most) {
  constexpr std::chrono::seconds longest(5);
  std::unique_lock lock(endpoints().mutex);
  endpoints().changed.wait_for(lock, longest, [&] { return endpoints().connections <= most; });
}

}  // namespace tinmac

extern "C" {

std::uint32_t tinListenWithin(const TinListener* listener) {
  tinmac::Endpoints& all = tinmac::endpoints();
  const std::lock_guard lock(all.mutex);
  all.open[++all.last] =
      std::make_shared<tinmac::Endpoint>(tinmac::Endpoint{tinmac::makeAskingDelegate(*listener)});
  return all.last;
}

void tinEndpointEnd(std::uint32_t endpoint) {
  tinmac::Endpoints& all = tinmac::endpoints();
  const std::lock_guard lock(all.mutex);
  const auto ended = all.open.extract(endpoint);
  if (!ended) return;
  asio::post(ended.mapped()->lane->context, [over = ended.mapped()] { tinmac::endAll(*over); });
  ended.mapped()->lane->finish();
}

}  // extern "C"
