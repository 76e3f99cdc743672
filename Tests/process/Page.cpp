#include "Tests/process/Page.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace processtests {

using nlohmann::json;

std::string PageAnswer::header(const std::string& name) const {
  const std::string mark = "\r\n" + name + ": ";
  const std::size_t at = head.find(mark);
  if (at == std::string::npos) return {};
  const std::size_t begin = at + mark.size();
  return head.substr(begin, head.find("\r\n", begin) - begin);
}

namespace {

bool connectTo(int socket, const char* address, int port) {
  if (socket < 0) return false;
  sockaddr_in place{};
  place.sin_family = AF_INET;
  ::inet_pton(AF_INET, address, &place.sin_addr);
  place.sin_port = htons(static_cast<std::uint16_t>(port));
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): the sockets' own way
  return ::connect(socket, reinterpret_cast<sockaddr*>(&place), sizeof place) == 0;
}

}  // namespace

bool PageVisit::reaches(const char* address, int port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  const bool reached = connectTo(socket, address, port);
  ::close(socket);
  return reached;
}

PageVisit::PageVisit(int port, int receiveBuffer) : socket(::socket(AF_INET, SOCK_STREAM, 0)) {
  // A page that has gone is noticed at the call's result.
  ::signal(SIGPIPE, SIG_IGN);
  virtualmac::hostsystem::closeOnExec(socket);
  if (receiveBuffer > 0)
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
  if (connectTo(socket, "127.0.0.1", port)) return;
  ::close(socket);
  throw std::runtime_error("nobody listens on port " + std::to_string(port));
}

PageVisit::~PageVisit() { ::close(socket); }

bool PageVisit::send(const std::string& bytes) {
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t sent = ::send(socket, rest.data(), rest.size(), 0);
    if (sent <= 0) return false;
    rest.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

PageAnswer PageVisit::begin(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  std::size_t end = input.find("\r\n\r\n");
  while (end == std::string::npos) {
    if (!receiveMore(socket, input, deadline)) return {};
    end = input.find("\r\n\r\n");
  }
  PageAnswer answer;
  answer.head = input.substr(0, end + 2);
  input.erase(0, end + 4);
  answer.status = std::stoi(answer.head.substr(answer.head.find(' ') + 1, 3));
  return answer;
}

PageAnswer PageVisit::answer(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  PageAnswer answer = begin(timeoutSeconds);
  const std::string length = answer.header("Content-Length");
  if (length.empty()) return answer;
  while (input.size() < std::stoul(length)) {
    if (!receiveMore(socket, input, deadline)) return {};
  }
  answer.body = input.substr(0, std::stoul(length));
  input.erase(0, answer.body.size());
  return answer;
}

/// Takes a chunk off the input; false: none has come whole.
bool PageVisit::unpack() {
  const std::size_t end = input.find("\r\n");
  if (ended || end == std::string::npos) return false;
  const std::size_t size = std::stoul(input.substr(0, end), nullptr, 16);
  if (input.size() < end + 2 + size + 2) return false;
  content += input.substr(end + 2, size);
  input.erase(0, end + 2 + size + 2);
  ended = size == 0;
  return true;
}

bool PageVisit::waitFor(const std::string& text, double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  for (;;) {
    while (unpack()) {
    }
    const std::size_t at = content.find(text, searched);
    if (at != std::string::npos) {
      searched = at + text.size();
      return true;
    }
    if (ended || !receiveMore(socket, input, deadline)) return false;
  }
}

bool PageVisit::comesToItsEnd(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  for (;;) {
    while (unpack()) {
    }
    if (ended) return true;
    if (!receiveMore(socket, input, deadline)) return false;
  }
}

bool PageVisit::isCutOff(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  while (clockNow() < deadline)
    if (!receiveMore(socket, input, deadline)) return clockNow() < deadline;
  return false;
}

bool PageVisit::isReset(double timeoutSeconds) const {
  pollfd watched{.fd = socket, .events = 0, .revents = 0};
  return ::poll(&watched, 1, static_cast<int>(timeoutSeconds * 1000)) > 0;
}

Page::Page(const Mac& mac) {
  const json web = mac.status().at("web");
  number = web.at("port").get<int>();
  const auto link = web.at("link").get<std::string>();
  secret = link.substr(link.find("#token=") + std::string("#token=").size());
}

std::string Page::plain(const std::string& method, const std::string& path,
                        const std::string& headers, const std::string& body) {
  std::string bytes = method + ' ' + path + " HTTP/1.1\r\n" + headers;
  if (method == "POST") bytes += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return bytes + "\r\n" + body;
}

std::string Page::request(const std::string& method, const std::string& path,
                          const std::string& body) const {
  return plain(method, path, "Host: " + host() + "\r\nX-Virtual-Mac-Token: " + secret + "\r\n",
               body);
}

PageAnswer Page::send(const std::string& bytes) const {
  PageVisit visit(number);
  visit.send(bytes);
  return visit.answer();
}

PageAnswer Page::get(const std::string& path) const { return send(request("GET", path)); }

PageAnswer Page::post(const std::string& path, const json& body) const {
  return send(request("POST", path, body.dump()));
}

json Page::machine(const std::string& command, const std::vector<std::string>& arguments) const {
  return post("/api/machine", {{"command", command}, {"arguments", arguments}}).json();
}

json Page::clients(const json& wish) const { return post("/api/clients", wish).json(); }

}  // namespace processtests
