// A client of the helper in C++, for the virtual Mac: sets a limit and stays, so that it is held,
// also when the helper goes away and comes back. On a Mac the calls go through NSXPCConnection; see
// the samples in Objective-C and Swift.

#include <charconv>
#include <chrono>
#include <cstdint>
#include <expected>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <variant>
#include <vector>

#include "HelperRecords.h"
#include "Operations.h"
#include "VirtualMac/Tools/AppConnection.h"

namespace {

using korvel::ErrorObject;
using korvel::HelperState;
using korvel::PropertyValue;
using virtualmac::AppConnection;
using virtualmac::RootDirectory;
using virtualmac::XPCValue;

void say(const std::string& line) { std::cout << line << '\n' << std::flush; }

constexpr double replySeconds = 20;
constexpr std::chrono::milliseconds beforeAnotherTry{500};

// docs/client.md shows this as "Asking".

/// A call has one of three ends: yes; no, with the helper's reason; or no answer, and then nobody
/// knows whether it was carried out.
enum class End { Yes, No, Unknown };

End setLimit(AppConnection& helper, std::uint8_t percent) {
  const auto reply = helper.call(korvel::operation::setChargeLimit, percent, replySeconds);
  if (!reply) {
    say("no answer: " + reply.error());
    return End::Unknown;
  }
  if (std::get<PropertyValue>(reply->at(0)).boolean().value_or(false)) return End::Yes;
  const auto* error = std::get_if<ErrorObject>(&reply->at(1));
  say(error == nullptr
          ? "the helper is shutting down"
          : "refused: " + error->localizedDescription() + " (" + std::to_string(error->code) + ")");
  return error == nullptr ? End::Unknown : End::No;
}

std::expected<HelperState, std::string> fetchState(AppConnection& helper) {
  const auto reply = helper.call(korvel::operation::getState, 0, replySeconds);
  if (!reply) return std::unexpected(reply.error());
  const auto* bytes = std::get<PropertyValue>(reply->at(0)).data();
  return korvel::decodeStateReply(std::string(bytes->begin(), bytes->end()));
}

// docs/client.md shows up to here.

void show(const HelperState& state) {
  say("limit " + std::to_string(state.chargeLimit) + " %, band " +
      std::to_string(state.sailingBand) + " %, last write " +
      (state.lastWriteVerified ? "verified" : "NOT verified"));
}

// docs/client.md shows this as "Staying".

/// Holds a limit until the helper refuses it. Each connection is told the limit again: the helper
/// enforces its saved limit for whoever connects, and that may be another one.
int hold(const RootDirectory& root, std::uint8_t percent) {
  for (;;) {
    auto helper = AppConnection::open(root, "app");
    if (!helper) {
      say("no helper: " + helper.error().text);
    } else {
      const End end = setLimit(*helper, percent);
      if (end == End::No) return 1;
      if (const auto state = fetchState(*helper)) show(*state);
      while (end == End::Yes && helper->stayConnected(60)) {
      }
      say("the helper is gone; connecting again");
    }
    std::this_thread::sleep_for(beforeAnotherTry);
  }
}

// docs/client.md shows up to here.

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string_view> words(argv + 1, argv + argc);
  std::uint8_t percent = 0;
  const std::string_view last = words.empty() ? std::string_view() : words.back();
  const auto read = std::from_chars(last.data(), last.data() + last.size(), percent);
  const bool isNumber = read.ec == std::errc() && read.ptr == last.data() + last.size();
  if (isNumber && words.size() == 1) return hold(RootDirectory::at(""), percent);
  if (isNumber && words.size() == 3 && words[0] == "--root") {
    return hold(RootDirectory::at(std::string(words[1])), percent);
  }
  const bool asked = last == "--help" || last == "-h";
  (asked ? std::cout : std::cerr) << "usage: korvel-sample [--root DIRECTORY] PERCENT\n";
  return asked ? 0 : 2;
}
