#include "VirtualMac/Web/PageServer.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>
#include <utility>

#include "VirtualMac/Machine/Bounds.h"
#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Server/RandomName.h"
#include "VirtualMac/Viewer/ViewerPage.h"
#include "VirtualMac/Web/PageAnswers.h"
#include "VirtualMac/Web/PageConnection.h"

namespace virtualmac {

using nlohmann::json;

namespace {

/// A stream without news says so often that it is there.
constexpr double signOfLifeSeconds = 5;
/// A stream looks so often whether its browser is there.
constexpr double lookSeconds = 0.5;
/// Streams have so long to end after the machine.
constexpr auto endSeconds = std::chrono::seconds(2);
constexpr std::size_t bytesOfNonce = 16;
/// These are for programs that stay connected to the door, or are nothing that a page may do.
constexpr std::array<std::string_view, 4> kept{"follow", "identify", "join", "down"};

std::string typeOf(std::string_view name) {
  if (name.ends_with(".js")) return "text/javascript; charset=utf-8";
  if (name.ends_with(".css")) return "text/css; charset=utf-8";
  return "text/html; charset=utf-8";
}

}  // namespace

PageServer::PageServer(PageRules pageRules, RootDirectory home, JournalFeed& followed,
                       const std::string& appProgram)
    : rules(std::move(pageRules)),
      root(std::move(home)),
      feed(followed),
      clients(root, appProgram) {
  set_default_headers({{"Cache-Control", "no-store"},
                       {"X-Content-Type-Options", "nosniff"},
                       {"Referrer-Policy", "no-referrer"},
                       {"Cross-Origin-Opener-Policy", "same-origin"},
                       {"Cross-Origin-Resource-Policy", "same-origin"}});
  set_payload_max_length(bounds::longestRequest);
  set_pre_routing_handler(
      [this](const Request& request, Response& response) { return refuse(request, response); });
  set_error_handler(Handler([](const Request&, Response& response) {
    if (response.body.empty()) answerError(response, response.status, "this is no request");
  }));
  Get("/", [this](const Request&, Response& response) { servePage(response); });
  Get("/viewer/(.*)", [this](const Request& request, Response& response) {
    serveFile(request.matches[1], response);
  });
  Get("/api/journal",
      [this](const Request& request, Response& response) { serveJournal(request, response); });
  Get("/api/status", [this](const Request&, Response& response) { serveStatus(response); });
  Get("/api/vocabulary", [this](const Request&, Response& response) { serveVocabulary(response); });
  Post("/api/machine",
       [this](const Request& request, Response& response) { command(request, response); });
  Get("/api/clients",
      [this](const Request&, Response& response) { answerWith(response, clients.list()); });
  Post("/api/clients",
       [this](const Request& request, Response& response) { serveClients(request, response); });
}

void PageServer::serve(Descriptor listening) {
  const int socket = listening.release();
  svr_sock_ = socket;
  std::thread accepting([this] { accept(); });
  feed.followToTheEnd();
  // This ends the wait for connections.
  ::shutdown(socket, SHUT_RDWR);
  accepting.join();
  ::close(socket);
  std::unique_lock held(lock);
  idle.wait_for(held, endSeconds, [this] { return busy == 0; });
}

void PageServer::count(std::size_t& counter, bool more) {
  const std::lock_guard held(lock);
  more ? ++counter : --counter;
  idle.notify_all();
}

void PageServer::accept() {
  while (!feed.isOver()) {
    Descriptor accepted(::accept(svr_sock_, nullptr, nullptr));
    if (accepted.get() < 0) {
      // Out of descriptors, mostly: who waits is served when others have gone.
      if (errno != EINTR && !feed.isOver()) feed.wait(feed.size(), 0.05);
      continue;
    }
    hostsystem::closeOnExec(accepted.get());
    {
      const std::lock_guard held(lock);
      if (connections >= bounds::mostPageConnections) continue;
      ++connections;
    }
    // The thread ends before this object: `serve` waits for it, or the program ends.
    std::thread([this, given = std::make_shared<Descriptor>(std::move(accepted))] {
      converse(std::move(*given));
      count(connections, false);
    }).detach();
  }
}

void PageServer::converse(Descriptor accepted) {
  PageConnection connection(std::move(accepted));
  bool last = false;
  while (!last && connection.awaitRequest()) {
    bool closed = false;
    // Nothing follows a request that could not be understood.
    last = true;
    count(busy, true);
    const bool done = process_request(connection, false, closed, [this, &last](Request& request) {
      // The answers are small, and a stream that is compressed would come late.
      request.headers.erase("Accept-Encoding");
      request.ranges.clear();
      last = refusalOf(request, rules).has_value();
      if (last) request.set_header("Connection", "close");
    });
    count(busy, false);
    last = last || closed || !done;
  }
  connection.finish();
}

httplib::Server::HandlerResponse PageServer::refuse(const Request& request,
                                                    Response& response) const {
  const auto refused = refusalOf(request, rules);
  if (!refused) return HandlerResponse::Unhandled;
  if (!refused->allowed.empty()) response.set_header("Allow", refused->allowed);
  answerError(response, refused->status, refused->reason);
  return HandlerResponse::Handled;
}

void PageServer::servePage(Response& response) const {
  const auto nonce = randomName(bytesOfNonce);
  if (!nonce) return answerError(response, 500, "the system gives no random bytes");
  answerWith(response, livePage(*nonce), typeOf("index.html"), livePolicy(*nonce));
}

void PageServer::serveFile(const std::string& name, Response& response) const {
  const std::string_view content = viewerFile(name);
  if (content.empty()) return answerError(response, 404, "the viewer has no " + name);
  answerWith(response, std::string(content), typeOf(name));
}

void PageServer::serveJournal(const Request& request, Response& response) {
  response.set_header("X-Virtual-Mac-Run", feed.run());
  if (request.has_param("run") && request.get_param_value("run") != feed.run()) {
    response.status = 409;
    return answerWith(
        response,
        json{{"ok", false}, {"error", "this machine is another run"}, {"run", feed.run()}});
  }
  const std::string text = request.has_param("from") ? request.get_param_value("from") : "0";
  std::uint64_t from = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), from);
  if (error != std::errc() || end != text.data() + text.size() || from > feed.size())
    return answerError(response, 400,
                       "\"from\" is a number of bytes from 0 to " + std::to_string(feed.size()));
  if (++streams > bounds::mostPageStreams) {
    --streams;
    return answerError(response, 503,
                       std::to_string(bounds::mostPageStreams) +
                           " pages follow this machine already, and no more can");
  }
  response.set_chunked_content_provider(
      "text/plain; charset=utf-8",
      [this, from](std::size_t, httplib::DataSink& sink) mutable {
        return writeJournal(from, sink);
      },
      [this](bool) { --streams; });
}

bool PageServer::writeJournal(std::uint64_t& from, httplib::DataSink& sink) {
  double silence = 0;
  for (;;) {
    const bool over = feed.isOver();
    const std::uint64_t seen = feed.size();
    const std::string text = feed.read(from);
    if (!text.empty()) {
      from += text.size();
      return sink.write(text.data(), text.size());
    }
    if (over) {
      sink.done();
      return true;
    }
    if (silence >= signOfLifeSeconds) return sink.write("\n", 1);
    if (!sink.is_writable()) return false;
    feed.wait(seen, lookSeconds);
    silence += lookSeconds;
  }
}

void PageServer::serveStatus(Response& response) const {
  const auto answer = askMachine(root, {{"command", "status"}}, response);
  if (answer) answerWith(response, answer->value("json", std::string()), "application/json");
}

void PageServer::serveVocabulary(Response& response) const {
  const auto answer = askMachine(root, {{"command", "vocabulary"}}, response);
  if (answer) answerWith(response, answer->value("json", std::string()), "application/json");
}

void PageServer::command(const Request& request, Response& response) const {
  const auto wish = objectIn(request, response);
  if (!wish) return;
  const auto name = wish->find("command");
  for (const std::string_view word : kept) {
    if (name != wish->end() && *name == word)
      return answerError(response, 400, std::string(word) + " is not for a page");
  }
  const auto answer = askMachine(root, *wish, response);
  if (answer) answerWith(response, *answer);
}

void PageServer::serveClients(const Request& request, Response& response) {
  const auto wish = objectIn(request, response);
  if (wish) answerWith(response, clients.perform(*wish));
}

}  // namespace virtualmac
