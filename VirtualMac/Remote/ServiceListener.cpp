#include "VirtualMac/Remote/ServiceListener.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/strand.hpp>
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "VirtualMac/Remote/ServiceConnection.h"

namespace virtualmac {

using Protocol = asio::local::stream_protocol;

struct ServiceListener::Pool {
  static constexpr int threadCount = 4;

  Pool() {
    for (int index = 0; index < threadCount; ++index)
      threads.emplace_back([this] { context.run(); });
  }
  ~Pool() {
    context.stop();
    for (std::thread& thread : threads) thread.join();
  }

  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> guard{context.get_executor()};
  std::vector<std::thread> threads;
};

namespace {

/// Accepts connections on one strand. The pending accept keeps it alive: a service is published for
/// the rest of the process's life.
class Listener final : public korvel::XPCListener {
 public:
  Listener(ServiceListener::Pool& threads, int listeningSocket, HelperHost& machineHost)
      : acceptance(std::make_shared<Acceptance>(threads, listeningSocket, machineHost)) {}

  void setDelegate(const std::shared_ptr<korvel::XPCListenerDelegate>& delegate) override {
    acceptance->delegate = delegate;
  }

  void resume() override {
    asio::post(acceptance->strand, [begun = acceptance] { accept(begun); });
  }

 private:
  struct Acceptance {
    Acceptance(ServiceListener::Pool& threads, int listeningSocket, HelperHost& machineHost)
        : pool(threads),
          strand(asio::make_strand(pool.context)),
          acceptor(strand),
          host(machineHost),
          retry(strand) {
      if (listeningSocket >= 0) acceptor.assign(Protocol(), listeningSocket);
    }

    ServiceListener::Pool& pool;
    asio::strand<asio::io_context::executor_type> strand;
    Protocol::acceptor acceptor;
    HelperHost& host;
    asio::steady_timer retry;
    std::weak_ptr<korvel::XPCListenerDelegate> delegate;
  };

  static void accept(const std::shared_ptr<Acceptance>& on) {
    if (!on->acceptor.is_open()) return;
    on->acceptor.async_accept(asio::make_strand(on->pool.context),
                              [on](const std::error_code& error, Protocol::socket socket) {
                                if (error) return retryLater(on, error);
                                decide(*on, std::move(socket));
                                accept(on);
                              });
  }

  // Out of descriptors, mostly: the waiting clients are served when others have gone.
  static void retryLater(const std::shared_ptr<Acceptance>& on, const std::error_code& error) {
    if (error == asio::error::operation_aborted) return;
    on->retry.expires_after(std::chrono::milliseconds(50));
    on->retry.async_wait([on](const std::error_code& cancelled) {
      if (!cancelled) accept(on);
    });
  }

  static void decide(Acceptance& on, Protocol::socket socket) {
    const auto connection = std::make_shared<ServiceConnection>(std::move(socket), on.host);
    const std::shared_ptr<korvel::XPCListenerDelegate> delegate = on.delegate.lock();
    if (delegate && delegate->shouldAcceptNewConnection(*connection))
      connection->begin();
    else
      connection->refuse();
  }

  std::shared_ptr<Acceptance> acceptance;
};

}  // namespace

ServiceListener::ServiceListener(std::string machServiceName, int listeningSocket,
                                 HelperHost& machineHost)
    : service(std::move(machServiceName)),
      listening(listeningSocket),
      host(machineHost),
      pool(std::make_unique<Pool>()) {}

ServiceListener::~ServiceListener() = default;

std::unique_ptr<korvel::XPCListener> ServiceListener::makeListener(
    std::string_view machServiceName) {
  return std::make_unique<Listener>(*pool, machServiceName == service ? listening : -1, host);
}

std::optional<std::int32_t> ServiceListener::currentConnectionPid() {
  return ServiceConnection::currentPid();
}

}  // namespace virtualmac
