#pragma once

#include <expected>
#include <functional>
#include <string>
#include <string_view>

#include "VirtualMac/Scenarios/Stage.h"

namespace virtualmac {

/// One thing that a person, an application, the hardware or fate does:
///   connect [CLIENT] [as IDENTITY]    disconnect [CLIENT]    kill-app [CLIENT]
///   a request of the helper: the word of an operation, its value, [by CLIENT]
///   a deed of Machine/Deeds with its value
///   fault NAME [ARGUMENT...] on|off
///   call METHOD [by CLIENT], which the helper lacks
///   helper start    kill [KILL|TERM|INT|ABRT]    reboot    power-loss
///   update VERSION    install VERSION
/// A client that is not named is called "app".
class Action {
 public:
  /// The error names what is wrong and what is allowed.
  static std::expected<Action, std::string> parse(std::string_view text);

  [[nodiscard]] const std::string& text() const { return source; }
  /// True for what is asked of the helper and answered by it.
  [[nodiscard]] bool isRequest() const { return request; }
  /// Does it. `answered` runs later, once, for requests only.
  void perform(Stage& stage, std::function<void(Answer)> answered) const {
    act(stage, std::move(answered));
  }

 private:
  std::string source;
  bool request = false;
  std::function<void(Stage&, std::function<void(Answer)>)> act;
};

}  // namespace virtualmac
