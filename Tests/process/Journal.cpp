#include "Tests/process/Journal.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "Tests/process/Program.h"
#include "VirtualMac/Remote/HostSystem.h"

namespace processtests {

using nlohmann::json;

LineSocket::LineSocket(const std::string& path) : socket(virtualmac::hostsystem::unixSocket()) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("no machine at " + path);
}

LineSocket::~LineSocket() { ::close(socket); }

void LineSocket::send(const std::string& line) {
  const std::string whole = line + '\n';
  if (::send(socket, whole.data(), whole.size(), MSG_NOSIGNAL) < 0)
    throw std::runtime_error("the machine does not listen");
}

bool LineSocket::sendNow(const std::string& line) {
  const std::string whole = line + '\n';
  pollfd writable{.fd = socket, .events = POLLOUT, .revents = 0};
  constexpr int soonMilliseconds = 500;
  return ::poll(&writable, 1, soonMilliseconds) == 1 &&
         ::send(socket, whole.data(), whole.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
             static_cast<ssize_t>(whole.size());
}

std::optional<std::string> LineSocket::receive(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  for (;;) {
    if (const std::size_t end = input.find('\n'); end != std::string::npos) {
      std::string line = input.substr(0, end);
      input.erase(0, end + 1);
      return line;
    }
    const double left = deadline - clockNow();
    if (left <= 0) return std::nullopt;
    pollfd watched{.fd = socket, .events = POLLIN, .revents = 0};
    if (::poll(&watched, 1, static_cast<int>(left * 1000) + 1) <= 0) continue;
    std::array<char, 16384> chunk{};
    const ssize_t got = ::recv(socket, chunk.data(), chunk.size(), 0);
    if (got <= 0) return std::nullopt;
    input.append(chunk.data(), static_cast<std::size_t>(got));
  }
}

JournalLine parseJournalLine(const std::string& line) {
  JournalLine parsed;
  std::istringstream words(line);
  words >> parsed.time >> parsed.kind;
  std::getline(words >> std::ws, parsed.text);
  return parsed;
}

JournalFollower::JournalFollower(const std::string& controlPath) : socket(controlPath) {
  socket.send(R"({"command":"follow"})");
  if (!socket.receive(20)) throw std::runtime_error("the journal cannot be followed");
}

std::optional<JournalLine> JournalFollower::next(double timeoutSeconds) {
  const auto message = socket.receive(timeoutSeconds);
  if (!message) return std::nullopt;
  return parseJournalLine(json::parse(*message).at("line").get<std::string>());
}

std::optional<JournalLine> JournalFollower::waitFor(const std::string& text,
                                                    double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  for (;;) {
    auto line = next(deadline - clockNow());
    if (!line) return std::nullopt;
    if (line->text.find(text) != std::string::npos) return line;
  }
}

std::vector<JournalLine> JournalFollower::collect(double seconds) {
  const double deadline = clockNow() + seconds;
  std::vector<JournalLine> lines;
  while (auto line = next(deadline - clockNow())) lines.push_back(*std::move(line));
  return lines;
}

}  // namespace processtests
