#include "Tests/process/Journal.h"

#include <poll.h>
#include <sys/socket.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "Tests/process/Program.h"

namespace processtests {

using nlohmann::json;
using virtualmac::FrameSocket;

LineSocket::LineSocket(const std::string& path) {
  auto connected = FrameSocket::connectTo(path);
  if (!connected) throw std::runtime_error("no machine at " + path);
  socket = *std::move(connected);
}

void LineSocket::send(const std::string& line) {
  if (!socket.send(line + '\n')) throw std::runtime_error("the machine does not listen");
}

bool LineSocket::sendNow(const std::string& line) {
  const std::string whole = line + '\n';
  pollfd writable{.fd = socket.descriptor(), .events = POLLOUT, .revents = 0};
  constexpr int soonMilliseconds = 500;
  return ::poll(&writable, 1, soonMilliseconds) == 1 &&
         ::send(socket.descriptor(), whole.data(), whole.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
             static_cast<ssize_t>(whole.size());
}

std::optional<std::string> LineSocket::receive(double timeoutSeconds) {
  auto line = socket.receiveLine(FrameSocket::deadlineIn(timeoutSeconds));
  if (!line) return std::nullopt;
  return *std::move(line);
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
  while (auto line = next(deadline - clockNow())) {
    if (line->text.find(text) != std::string::npos) return line;
    if (clockNow() > deadline) break;
  }
  return std::nullopt;
}

std::vector<JournalLine> JournalFollower::collect(double seconds) {
  const double deadline = clockNow() + seconds;
  std::vector<JournalLine> lines;
  while (auto line = next(deadline - clockNow())) {
    lines.push_back(*std::move(line));
    if (clockNow() > deadline) break;
  }
  return lines;
}

}  // namespace processtests
