#include "VirtualMac/Remote/ServiceListener.h"

#include <array>
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <optional>
#include <thread>
#include <utility>

#include "VirtualMac/Remote/EventThread.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Remote/ServiceConnection.h"

namespace virtualmac {

using Protocol = asio::local::stream_protocol;

/// The threads that serve the connections, each of which stays with its thread. A thread has a
/// context of its own, so that it need not wake another one before it serves a call.
class ServiceListener::Threads {
 public:
  class Lane {
   public:
    Lane()
        : thread([this] {
            hostsystem::nameThisThread("clients");
            context.run();
          }) {}
    ~Lane() {
      context.stop();
      thread.join();
    }
    Lane(const Lane&) = delete;
    Lane& operator=(const Lane&) = delete;

    asio::io_context context{1};

   private:
    asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
    std::thread thread;
  };

  explicit Threads(EventThread& events) : accepting(events.context()) {}

  asio::io_context& acceptance() { return accepting; }
  /// The thread of the next connection. On the thread that accepts.
  Lane& next() {
    std::optional<Lane>& lane = lanes[connections++ % lanes.size()];
    return lane ? *lane : lane.emplace();
  }

 private:
  asio::io_context& accepting;
  std::array<std::optional<Lane>, 2> lanes;
  std::size_t connections = 0;
};

namespace {

/// The pending accept keeps it alive, so the service stays published until the process ends.
class Listener final : public korvel::XPCListener {
 public:
  Listener(ServiceListener::Threads& threads, int listeningSocket, HelperHost& machineHost)
      : acceptance(std::make_shared<Acceptance>(threads, listeningSocket, machineHost)) {}

  void setDelegate(const std::shared_ptr<korvel::XPCListenerDelegate>& delegate) override {
    acceptance->delegate = delegate;
  }

  void resume() override {
    asio::post(acceptance->threads.acceptance(), [begun = acceptance] { accept(begun); });
  }

 private:
  struct Acceptance {
    Acceptance(ServiceListener::Threads& all, int listeningSocket, HelperHost& machineHost)
        : threads(all), acceptor(all.acceptance()), host(machineHost), retry(all.acceptance()) {
      if (listeningSocket < 0) return;
      acceptor.assign(Protocol(), listeningSocket);
      acceptor.non_blocking(true);
    }

    ServiceListener::Threads& threads;
    Protocol::acceptor acceptor;
    HelperHost& host;
    asio::steady_timer retry;
    std::weak_ptr<korvel::XPCListenerDelegate> delegate;
  };

  static void accept(const std::shared_ptr<Acceptance>& on) {
    if (!on->acceptor.is_open()) return;
    on->acceptor.async_wait(Protocol::acceptor::wait_read, [on](const std::error_code& ended) {
      if (ended) return;
      ServiceListener::Threads::Lane& lane = on->threads.next();
      std::error_code error;
      Protocol::socket socket = on->acceptor.accept(lane.context, error);
      // The client may have gone meanwhile.
      if (error == asio::error::would_block) return accept(on);
      if (error) return retryLater(on);
      decide(*on, std::move(socket));
      accept(on);
    });
  }

  // Mostly there are no descriptors left: clients wait until others have gone.
  static void retryLater(const std::shared_ptr<Acceptance>& on) {
    on->retry.expires_after(std::chrono::milliseconds(50));
    on->retry.async_wait([on](const std::error_code& cancelled) {
      if (!cancelled) accept(on);
    });
  }

  static void decide(Acceptance& on, Protocol::socket socket) {
    const auto connection = std::make_shared<ServiceConnection>(std::move(socket), on.host);
    const std::shared_ptr<korvel::XPCListenerDelegate> delegate = on.delegate.lock();
    const bool accepted = delegate && delegate->shouldAcceptNewConnection(*connection);
    if (!accepted || !connection->isResumed()) connection->refuse();
  }

  std::shared_ptr<Acceptance> acceptance;
};

}  // namespace

ServiceListener::ServiceListener(std::string machServiceName, int listeningSocket,
                                 HelperHost& machineHost, EventThread& events)
    : service(std::move(machServiceName)),
      listening(listeningSocket),
      host(machineHost),
      threads(std::make_unique<Threads>(events)) {}

ServiceListener::~ServiceListener() = default;

std::unique_ptr<korvel::XPCListener> ServiceListener::makeListener(
    std::string_view machServiceName) {
  return std::make_unique<Listener>(*threads, machServiceName == service ? listening : -1, host);
}

std::optional<std::int32_t> ServiceListener::currentConnectionPid() {
  return ServiceConnection::currentPid();
}

}  // namespace virtualmac
