#include "VirtualMac/Server/ControlServer.h"

#include <unistd.h>

#include <asio/buffer.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Remote/FrameSocket.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Server/ControlCommands.h"
#include "VirtualMac/Server/MachineServer.h"

namespace virtualmac {

using nlohmann::json;
using Protocol = asio::local::stream_protocol;

namespace {

/// Shared by the sessions. A session that is dropped with the event loop outlives it.
struct Shared {
  Shared(MachineServer& machineServer, std::function<void()> downHandler)
      : server(machineServer), down(std::move(downHandler)) {}

  MachineServer& server;
  std::function<void()> down;
  /// How many connections speak for each identified process: a pid is forgotten with the last.
  std::map<std::int32_t, int> identified;
};

class Session final : public std::enable_shared_from_this<Session> {
 public:
  Session(Protocol::socket accepted, const std::shared_ptr<Shared>& sessionsShare)
      : socket(std::move(accepted)), shared(sessionsShare), server(sessionsShare->server) {}

  ~Session() {
    const std::shared_ptr<Shared> alive = shared.lock();
    if (!alive) return;
    ended();
    if (pid == 0 || --alive->identified[pid] > 0) return;
    alive->identified.erase(pid);
    server.machine().signatures.removePid(pid);
  }

  void read() {
    reading = true;
    asio::async_read_until(
        socket, asio::dynamic_buffer(input, bounds::longestRequest), '\n',
        [self = shared_from_this()](const std::error_code& error, std::size_t size) {
          if (error == asio::error::not_found) return self->refuseAndEnd();
          if (error) return self->ended();
          const std::string line = self->input.substr(0, size - 1);
          self->input.erase(0, size);
          self->take(line);
          self->reading = false;
          self->readOn();
        });
  }

 private:
  /// A client that does not read its answers is not asked for more.
  void readOn() {
    if (!reading && !refused && !joining && outgoing.size() < bounds::mostUnread) read();
  }

  void refuseAndEnd() {
    refused = true;
    endsWith = [self = weak_from_this()] {
      std::error_code ignored;
      if (const auto session = self.lock()) static_cast<void>(session->socket.close(ignored));
    };
    refuse("a request has more than " + std::to_string(bounds::longestRequest) + " bytes");
  }

  void ended() {
    if (stopFollowing) std::exchange(stopFollowing, nullptr)();
  }

  void take(const std::string& line) {
    if (const auto defect = jsonDefect(line))
      return refuse("a request is a JSON object with a command: " + *defect);
    const json request = json::parse(line);
    if (!request.is_object() || !request.contains("command") || !request["command"].is_string())
      return refuse("a request is a JSON object with a command");
    const auto command = request["command"].get<std::string>();
    std::vector<std::string> arguments;
    if (request.contains("arguments")) {
      if (!request["arguments"].is_array()) return refuse("arguments are an array of text");
      for (const json& word : request["arguments"]) {
        if (!word.is_string()) return refuse("arguments are an array of text");
        arguments.push_back(word.get<std::string>());
      }
    }
    if (command == "follow") return follow();
    if (command == "identify" || command == "join") {
      const auto identity = request.find("identity");
      if (identity == request.end() || !identity->is_string()) return refuse("an identity is text");
      return identify(identity->get<std::string>(), command == "join");
    }
    if (command == "down") return shutDown();
    runControlCommand(
        server, command, arguments,
        [self = shared_from_this()](const ControlReply& reply) { self->answer(reply); });
  }

  void follow() {
    if (stopFollowing) return refuse("already following");
    // Between these two statements nothing happens: the file ends where the following begins.
    send(json{{"ok", true}, {"size", server.journalSize()}});
    stopFollowing = server.follow([self = weak_from_this()](const Journal::Entry& entry) {
      if (const auto session = self.lock()) session->tell(entry);
    });
  }

  void tell(const Journal::Entry& entry) {
    if (unreadBytes > bounds::mostUnreadBytes) {
      std::error_code ignored;
      static_cast<void>(socket.close(ignored));
      return;
    }
    send(json{{"line", journalLine(entry)}, {"kind", entry.kind}});
  }

  void identify(const std::string& identity, bool joins) {
    CodeSignatures& signatures = server.machine().signatures;
    const std::int32_t peer = hostsystem::peerProcess(socket.native_handle());
    if (signatures.identity(identity) == nullptr)
      return refuse(unknownWord("identity", identity, signatures.names()));
    signatures.setPid(peer, identity);
    server.tellClient(peer, identity);
    const std::shared_ptr<Shared> alive = shared.lock();
    if (pid == 0 && alive) {
      pid = peer;
      ++alive->identified[pid];
    }
    if (joins) {
      joining = true;
      endsWith = [self = weak_from_this()] {
        if (const auto session = self.lock()) session->join();
      };
    }
    send(json{{"ok", true}, {"service", server.options().root.service()}});
  }

  /// The machine has the socket from now on, and this session stays for the identity's sake.
  void join() { server.join(std::move(socket), pid, shared_from_this()); }

  void shutDown() {
    server.shutDown([self = shared_from_this()] {
      self->send(json{{"ok", true}});
      if (const auto alive = self->shared.lock()) self->endsWith = alive->down;
    });
  }

  void answer(const ControlReply& reply) {
    if (reply.outcome != ControlReply::Outcome::Done)
      return send(json{{"ok", false},
                       {"usage", reply.outcome == ControlReply::Outcome::Usage},
                       {"error", reply.text}});
    json message{{"ok", true}, {"text", reply.text}};
    message["json"] = reply.json.empty() ? json(nullptr) : json(reply.json);
    send(message);
  }

  void refuse(const std::string& text) {
    send(json{{"ok", false}, {"usage", true}, {"error", text}});
  }

  void send(const json& message) {
    outgoing.push_back(message.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
    unreadBytes += outgoing.back().size();
    if (outgoing.size() == 1) writeNext();
  }

  void writeNext() {
    asio::async_write(socket, asio::buffer(outgoing.front()),
                      [self = shared_from_this()](const std::error_code& error, std::size_t) {
                        if (error) return self->ended();
                        self->unreadBytes -= self->outgoing.front().size();
                        self->outgoing.pop_front();
                        self->readOn();
                        if (!self->outgoing.empty()) return self->writeNext();
                        if (self->endsWith) self->endsWith();
                      });
  }

  Protocol::socket socket;
  std::weak_ptr<Shared> shared;
  MachineServer& server;
  std::string input;
  std::deque<std::string> outgoing;
  std::function<void()> stopFollowing;
  std::function<void()> endsWith;
  std::size_t unreadBytes = 0;
  bool reading = false;
  bool refused = false;
  bool joining = false;
  std::int32_t pid = 0;
};

}  // namespace

struct ControlServer::Parts {
  Parts(MachineServer& server, std::function<void()> down)
      : shared(std::make_shared<Shared>(server, std::move(down))),
        acceptor(server.context()),
        retry(server.context()) {}

  void accept() {
    acceptor.async_accept([this](const std::error_code& error, Protocol::socket socket) {
      if (error == asio::error::operation_aborted) return;
      if (error) return acceptLater();
      hostsystem::closeOnExec(socket.native_handle());
      std::make_shared<Session>(std::move(socket), shared)->read();
      accept();
    });
  }

  // Out of descriptors, mostly: who waits is served when others have gone.
  void acceptLater() {
    retry.expires_after(std::chrono::milliseconds(50));
    retry.async_wait([this](const std::error_code& cancelled) {
      if (!cancelled) accept();
    });
  }

  std::shared_ptr<Shared> shared;
  Protocol::acceptor acceptor;
  asio::steady_timer retry;
};

ControlServer::ControlServer(MachineServer& machineServer, std::function<void()> down)
    : parts(std::make_unique<Parts>(machineServer, std::move(down))) {}

ControlServer::~ControlServer() {
  if (parts->acceptor.is_open()) ::unlink(parts->shared->server.options().root.control().c_str());
}

std::optional<std::string> ControlServer::listen() {
  const RootDirectory& root = parts->shared->server.options().root;
  auto listening = FrameSocket::listenAt(root.control());
  if (!listening)
    return FrameSocket::problemText(root.control(), listening.error()) + root.origin();
  parts->acceptor.assign(Protocol(), listening->release());
  parts->accept();
  return std::nullopt;
}

}  // namespace virtualmac
