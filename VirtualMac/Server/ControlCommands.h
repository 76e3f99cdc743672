#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace virtualmac {

class MachineServer;

/// The answer to a command.
struct ControlReply {
  enum class Outcome : unsigned char { Done, Failed, Usage };
  Outcome outcome = Outcome::Done;
  std::string text;  ///< For a person; ends with a newline unless empty. Errors: one line without.
  std::string json;  ///< For a program; empty: none.
};

using ControlAnswer = std::function<void(const ControlReply&)>;

/// The signals that `kill` takes.
std::vector<std::string> signalNames();
/// Every fault that a machine can have: an object each with its name, arguments and text.
nlohmann::ordered_json faultsJSON();
/// The same for a person and for a program, and the lines of those that are `active`.
ControlReply faultList(const std::vector<std::string>& active);

/// Runs one command on the machine. The answer may come later (a reboot waits for the helper).
/// Unknown commands and values are answered with the allowed ones.
void runControlCommand(MachineServer& server, const std::string& command,
                       const std::vector<std::string>& arguments, const ControlAnswer& answer);

}  // namespace virtualmac
