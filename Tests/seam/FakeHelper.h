#pragma once

#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KorvelHelperProtocol.h"
#include "Platform/Dispatch.h"
#include "Platform/Platform.h"
#include "Platform/Process.h"
#include "Platform/XPCListener.h"
#include "VirtualMac/InProcess/World.h"

namespace virtualmac {

/// A helper without a core: it accepts connections and answers calls as the test says, so that only
/// the transport is tested.
class FakeHelper final : public korvel::KorvelHelperProtocol {
 public:
  std::string requirement;  ///< Empty: none is set.
  bool accepts = true, resumes = true;
  bool ignoresSignals = true;
  int statusWhenTold = 3;  ///< Of the exit on SIGTERM.
  bool typedReplies = true;
  bool notesSteps = false;                               ///< Also the steps of a resume.
  std::function<void()> onAccepting, onResumed;          ///< They run on the accepting thread.
  std::vector<korvel::ReplyClassSetting> laterSettings;  ///< Made after the usual ones.
  std::string interfaceName;                             ///< Empty: the real one.
  std::function<void(const std::string& call)> onCall;
  std::function<void()> onInvalidated;
  std::vector<korvel::Reply> kept;  ///< Replies of setChargeLimit while `keepsReplies`.
  bool keepsReplies = false, dropsReplies = false;
  std::optional<korvel::ErrorObject> error;  ///< In the replies of those that carry one.
  std::string notes;                         ///< The events, a word each.

  /// Returns world options that run this helper. Use it for one world at a time.
  WorldOptions options() {
    WorldOptions chosen;
    chosen.entry = [this](korvel::Platform& platform) { return run(platform); };
    return chosen;
  }

  void note(const std::string& word) { notes += word + ' '; }

  void ping(korvel::PidReply reply) override {
    called("ping");
    reply(static_cast<std::uint64_t>(seam->process.getpid()));
  }
  void capabilities(korvel::DataReply reply) override {
    called("capabilities");
    reply("{}");
  }
  void setChargeLimit(std::uint8_t limit, korvel::Reply reply) override {
    called("setChargeLimit(" + std::to_string(limit) + ")");
    if (dropsReplies) return;
    if (keepsReplies) {
      kept.push_back(std::move(reply));
    } else {
      reply(!error, error);
    }
  }
  void clearChargeLimit(korvel::Reply reply) override { plain("clearChargeLimit", reply); }
  void forceDischarge(bool enable, korvel::Reply reply) override {
    plain(enable ? "forceDischarge(on)" : "forceDischarge(off)", reply);
  }
  void setClamshellKeepAwake(bool enabled, korvel::Reply reply) override {
    plain(enabled ? "setClamshellKeepAwake(on)" : "setClamshellKeepAwake(off)", reply);
  }
  void releaseLimitUntilFullThenRestore(korvel::Reply reply) override {
    plain("releaseLimitUntilFullThenRestore", reply);
  }
  void cancelTopUp(korvel::Reply reply) override { plain("cancelTopUp", reply); }
  void getState(korvel::DataReply reply) override {
    called("getState");
    reply(std::string());
  }
  void resetAllSMCKeys(korvel::Reply reply) override { plain("resetAllSMCKeys", reply); }
  void quit() override { called("quit"); }

  korvel::Platform* seam = nullptr;

 private:
  class Delegate final : public korvel::XPCListenerDelegate {
   public:
    explicit Delegate(FakeHelper& of) : helper(of) {}
    bool shouldAcceptNewConnection(korvel::XPCConnection& connection) override {
      return helper.consider(connection);
    }

   private:
    FakeHelper& helper;
  };

  void called(const std::string& call) {
    note(call);
    if (onCall) onCall(call);
  }
  void plain(const std::string& name, korvel::Reply& reply) {
    called(name);
    reply(!error, error);
  }

  int run(korvel::Platform& platform) {
    seam = &platform;
    const auto delegate = std::make_shared<Delegate>(*this);
    const auto listener = platform.xpc.makeListener(korvel::KorvelHelperMachServiceName);
    listener->setDelegate(delegate);
    listener->resume();
    const auto source = platform.dispatch.makeSignalSource(SIGTERM);
    source->setEventHandler([&] {
      note("SIGTERM");
      platform.process.exit(statusWhenTold);
    });
    source->resume();
    if (ignoresSignals) platform.dispatch.ignoreDefaultAction(SIGTERM);
    platform.dispatch.runMainLoop();
    return 0;
  }

  bool consider(korvel::XPCConnection& connection) {
    korvel::XPCInterface interface = korvel::makeHelperInterface();
    if (!interfaceName.empty()) interface.protocolName = interfaceName;
    if (typedReplies) korvel::applyTypedReplyClasses(interface);
    interface.replyClasses.insert(interface.replyClasses.end(), laterSettings.begin(),
                                  laterSettings.end());
    connection.setExportedInterface(interface);
    // The pointer does not own the fake, which outlives its worlds.
    connection.setExportedObject(
        std::shared_ptr<korvel::KorvelHelperProtocol>(std::shared_ptr<void>(), this));
    if (!accepts) return false;
    if (!requirement.empty()) connection.setCodeSigningRequirement(requirement);
    connection.setInvalidationHandler([this] {
      note("invalidated");
      if (onInvalidated) onInvalidated();
    });
    connection.setInterruptionHandler([this] { note("interrupted"); });
    if (onAccepting) onAccepting();
    if (notesSteps) note("resuming");
    if (resumes) connection.resume();
    if (notesSteps) note("resumed");
    if (onResumed) onResumed();
    note("accepted");
    return true;
  }
};

}  // namespace virtualmac
