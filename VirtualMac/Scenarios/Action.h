#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "VirtualMac/Scenarios/Stage.h"

namespace virtualmac {

/// One thing that a person, an application, the hardware or fate does:
///   connect [CLIENT] [as IDENTITY]    disconnect [CLIENT]    kill-app [CLIENT]
///   set-limit PERCENT    clear    discharge on|off    keep-awake on|off
///   top-off    cancel-top-off    reset    quit             each with [by CLIENT]
///   adapter in|out|renegotiates    lid open|close    display in|out    touch
///   battery PERCENT    temperature CELSIUS|free    ambient CELSIUS
///   sleep    wake    idle-sleep MINUTES    sleep-disabled on|off
///   helper start    kill    signal TERM|INT|ABRT|KILL    update VERSION
///   reboot    power-loss    fault NAME [ARGUMENT...]    heal NAME [ARGUMENT...]
/// A client that is not named is called "app".
class Action {
 public:
  /// The error names what is wrong and what is allowed.
  static std::expected<Action, std::string> parse(std::string_view text);

  [[nodiscard]] const std::string& text() const { return source; }
  /// True for what is asked of the helper and answered by it.
  [[nodiscard]] bool isRequest() const { return form == Form::Request && what != Request::Quit; }
  /// Does it. `answered` runs later, once, for requests only.
  void perform(Stage& stage, std::function<void(Answer)> answered) const;

 private:
  enum class Form : std::uint8_t {
    Connect,
    Disconnect,
    KillApp,
    Request,
    Adapter,
    Lid,
    Display,
    Touch,
    Battery,
    Temperature,
    Ambient,
    Sleep,
    Wake,
    IdleSleep,
    SleepDisabled,
    StartHelper,
    Signal,
    Update,
    Reboot,
    PowerLoss,
    Fault
  };
  struct Reader;

  void performOnMachine(Stage& stage) const;
  void update(Stage& stage) const;

  std::string source;
  Form form{};
  Request what{};
  std::size_t choice = 0;  ///< Which of the words that the form offers.
  double number = 0;
  std::string client = "app";
  std::string name;  ///< An identity, a version, a fault.
  std::vector<std::string> arguments;
};

}  // namespace virtualmac
