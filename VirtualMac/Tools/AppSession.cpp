#include "VirtualMac/Tools/AppSession.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <expected>
#include <nlohmann/json.hpp>
#include <optional>

#include "Operations.h"
#include "VirtualMac/Machine/Nearest.h"
#include "VirtualMac/Remote/RequestWords.h"
#include "VirtualMac/Tools/AppAnswer.h"
#include "VirtualMac/Tools/AppConnection.h"
#include "VirtualMac/Tools/CommandLine.h"
#include "VirtualMac/Tools/JSONLine.h"
#include "VirtualMac/Tools/LineInput.h"

namespace virtualmac {

using korvel::Operation;

namespace {

using nlohmann::ordered_json;
using Clock = std::chrono::steady_clock;

/// How soon a session comes back at once: to a helper that had answered, and to another.
constexpr double atOnceSeconds = 0.02;
constexpr double laterSeconds = 0.5;

void say(const ordered_json& line) {
  printJSON(line);
  flushOutput();
}

struct Request {
  Operation operation;
  std::uint8_t argument;
};

/// The request refers to the line.
std::expected<Request, std::string> requestIn(const std::string& line) {
  const std::size_t space = std::min(line.find(' '), line.size());
  const std::string word = line.substr(0, space);
  if (word == foreignCallWord) {
    const auto foreign =
        foreignOperation(std::string_view(line).substr(std::min(space + 1, line.size())));
    if (!foreign) return std::unexpected(foreign.error());
    return Request{*foreign, 0};
  }
  const Operation* operation = korvel::operationWith(&Operation::word, word);
  if (operation == nullptr) {
    std::vector<std::string> allowed;
    for (const Operation& known : korvel::operations) allowed.emplace_back(known.word);
    allowed.emplace_back(foreignCallWord);
    return std::unexpected(unknownWord("request", word, allowed));
  }
  const auto argument = argumentFrom(*operation, line.substr(std::min(space + 1, line.size())));
  if (!argument) return std::unexpected(argument.error());
  return Request{*operation, *argument};
}

class Session {
 public:
  Session(const RootDirectory& machineRoot, const SessionOptions& chosen)
      : root(machineRoot), options(chosen) {}

  int run() {
    if (const auto error = connect()) {
      return complain("korvel-app", true, error->text, error->isUsage ? exitUsage : exitFailed);
    }
    for (LineInput input(STDIN_FILENO); !input.isOver();) {
      while (std::optional<std::string> line = input.take()) {
        if (line->ends_with('\r')) line->pop_back();
        if (!line->empty()) say(perform(*line));
      }
      if (!input.isOver()) input.wait(helper ? helper->descriptor() : -1, untilNextTry());
      notice();
      comeBack();
    }
    return exitDone;
  }

 private:
  std::optional<AppConnection::OpenError> connect() {
    auto made = AppConnection::open(root, options.identity);
    if (!made) return made.error();
    helper.emplace(*std::move(made));
    wasAnswered = false;
    say({{"event", "connected"}});
    return std::nullopt;
  }

  /// Tells the connection's end, if it is over.
  void notice() {
    if (!helper || helper->isThere()) return;
    say({{"event", "disconnected"}, {"error", *helper->ending()}});
    helper.reset();
    tryAgainIn(wasAnswered ? atOnceSeconds : laterSeconds);
  }

  void tryAgainIn(double seconds) {
    nextTry = Clock::now() +
              std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
  }

  /// Real seconds; below 0: nothing is tried.
  [[nodiscard]] double untilNextTry() const {
    if (helper || options.reconnect != Reconnect::AtOnce) return -1;
    return std::max(0.0, std::chrono::duration<double>(nextTry - Clock::now()).count());
  }

  void comeBack() {
    if (untilNextTry() == 0 && connect()) tryAgainIn(laterSeconds);
  }

  ordered_json perform(const std::string& line) {
    const auto request = requestIn(line);
    if (!request) return {{"ok", false}, {"usage", true}, {"error", request.error()}};
    notice();
    if (!helper && options.reconnect == Reconnect::Never) return lostJSON("not connected any more");
    if (!helper) {
      if (const auto error = connect()) return lostJSON(error->text);
    }
    const auto values = helper->call(request->operation, request->argument, options.timeoutSeconds);
    wasAnswered = wasAnswered || values.has_value();
    notice();
    return values ? answerJSON(request->operation, *values) : lostJSON(values.error());
  }

  RootDirectory root;
  SessionOptions options;
  std::optional<AppConnection> helper;
  bool wasAnswered = false;  ///< Since the connection was made.
  Clock::time_point nextTry;
};

}  // namespace

const std::vector<std::string>& reconnectWords() {
  static const std::vector<std::string> words{"at-request", "at-once", "never"};
  return words;
}

int runSession(const RootDirectory& root, const SessionOptions& options) {
  return Session(root, options).run();
}

}  // namespace virtualmac
