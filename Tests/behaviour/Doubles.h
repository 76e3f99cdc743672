#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/Reply.h"
#include "Platform/CodeSigning.h"
#include "Platform/Dispatch.h"
#include "Platform/Platform.h"
#include "Platform/RootPowerDomain.h"
#include "Platform/XPCListener.h"

namespace korvel::test {

/// The same platform with another implementation in one place.
inline Platform with(const Platform& base, CodeSigning& signing) {
  return {base.smc,        base.registry,    base.powerSources, base.assertions, base.powerSettings,
          base.rootDomain, base.smartCharge, base.files,        base.dispatch,   base.clock,
          base.log,        signing,          base.xpc,          base.process};
}
inline Platform with(const Platform& base, Dispatch& dispatch, XPCService& xpc) {
  return {base.smc,
          base.registry,
          base.powerSources,
          base.assertions,
          base.powerSettings,
          base.rootDomain,
          base.smartCharge,
          base.files,
          dispatch,
          base.clock,
          base.log,
          base.codeSigning,
          xpc,
          base.process};
}

inline Platform with(const Platform& base, RootPowerDomain& rootDomain) {
  return {base.smc,   base.registry,    base.powerSources, base.assertions, base.powerSettings,
          rootDomain, base.smartCharge, base.files,        base.dispatch,   base.clock,
          base.log,   base.codeSigning, base.xpc,          base.process};
}

/// A root domain whose messages a test sends itself, on its own thread.
class ScriptedRootDomain final : public RootPowerDomain {
 public:
  void send(std::uint32_t messageType) { callback(context, 0, messageType, 0x77); }

  ConnectionRef registerForSystemPower(void* refcon, HandleRef& port, InterestCallback handler,
                                       ObjectRef& notifier) override {
    context = refcon;
    callback = handler;
    port = 1;
    notifier = 2;
    return 3;
  }
  HandleRef notificationPortGetRunLoopSource(HandleRef) override { return 4; }
  HandleRef mainRunLoop() override { return 5; }
  void runLoopAddSource(HandleRef, HandleRef) override {}
  void runLoopRemoveSource(HandleRef, HandleRef) override {}
  KernReturn allowPowerChange(ConnectionRef, std::intptr_t) override { return kernSuccess; }
  KernReturn deregisterForSystemPower(ObjectRef& notifier) override {
    notifier = 0;
    return kernSuccess;
  }
  KernReturn serviceClose(ConnectionRef) override { return kernSuccess; }
  void notificationPortDestroy(HandleRef) override {}

 private:
  void* context = nullptr;
  InterestCallback callback = nullptr;
};

/// A reply that a test looks at.
struct Answers {
  int count = 0;
  bool success = true;
  bool withError = true;
};
inline Reply into(const std::shared_ptr<Answers>& answers) {
  return Reply(std::make_unique<FunctionReplySink<bool, std::optional<ErrorObject>>>(
      [answers](bool success, const std::optional<ErrorObject>& error) {
        ++answers->count;
        answers->success = success;
        answers->withError = error.has_value();
      }));
}
/// One that nobody looks at.
inline Reply ignored() { return into(std::make_shared<Answers>()); }

/// Code signing that answers what a test says, and counts what is not given back.
class ScriptedCodeSigning final : public CodeSigning {
 public:
  SecurityStatus guestStatus = 0, staticStatus = 0, pathStatus = 0, informationStatus = 0;
  bool givesNoGuest = false, givesNoStatic = false;
  PropertyValue information;
  int alive = 0;
  std::vector<std::uint32_t> flagsSeen;
  std::vector<std::int32_t> pidsSeen;

  SecurityStatus staticCodeCreateWithPath(std::string_view, HandleRef& code) override {
    return give(pathStatus, givesNoStatic, code);
  }
  SecurityStatus copyGuestWithPid(std::int32_t pid, HandleRef& code) override {
    pidsSeen.push_back(pid);
    return give(guestStatus, givesNoGuest, code);
  }
  SecurityStatus copyStaticCode(HandleRef, HandleRef& code) override {
    return give(staticStatus, givesNoStatic, code);
  }
  SecurityStatus copySigningInformation(HandleRef, std::uint32_t flags,
                                        PropertyValue& answer) override {
    flagsSeen.push_back(flags);
    if (informationStatus == 0) answer = information;
    return informationStatus;
  }
  void release(HandleRef) override { --alive; }

 private:
  SecurityStatus give(SecurityStatus status, bool nothing, HandleRef& code) {
    if (status != 0 || nothing) return status;
    ++alive;
    code = 0x1000;
    return 0;
  }
};

/// A connection that notes what is done to it, in order.
class RecordingConnection final : public XPCConnection {
 public:
  std::vector<std::string> steps;
  XPCInterface interface;
  std::shared_ptr<KorvelHelperProtocol> object;
  std::string requirement;
  bool requirementParses = true;
  std::function<void()> invalidation, interruption;

  void setExportedInterface(const XPCInterface& exported) override {
    steps.emplace_back("interface");
    interface = exported;
  }
  void setExportedObject(std::shared_ptr<KorvelHelperProtocol> exported) override {
    steps.emplace_back("object");
    object = std::move(exported);
  }
  bool setCodeSigningRequirement(const std::string& text) override {
    steps.emplace_back("requirement");
    requirement = text;
    return requirementParses;
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    steps.emplace_back("invalidation handler");
    invalidation = std::move(handler);
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    steps.emplace_back("interruption handler");
    interruption = std::move(handler);
  }
  void resume() override { steps.emplace_back("resume"); }
};

/// Passes everything on and notes what the entry does with signals, the listener and the main loop,
/// which returns at once.
class RecordingHost final : public Dispatch, public XPCService {
 public:
  RecordingHost(Dispatch& realDispatch, XPCService& realService)
      : dispatch(realDispatch), service(realService) {}
  std::vector<std::string> steps;

  std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) override {
    return dispatch.makeSerialQueue(label);
  }
  std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& queue) override {
    return dispatch.makeTimer(queue);
  }
  std::shared_ptr<DispatchGroup> makeGroup() override { return dispatch.makeGroup(); }
  std::unique_ptr<LockPrimitive> makeLock() override { return dispatch.makeLock(); }
  std::unique_ptr<SignalSource> makeSignalSource(int number) override {
    note("source", number);
    return std::make_unique<Source>(*this, number);
  }
  void ignoreDefaultAction(int number) override { note("ignore", number); }
  void runMainLoop() override { steps.emplace_back("main loop"); }

  std::unique_ptr<XPCListener> makeListener(std::string_view name) override {
    steps.push_back("listener " + std::string(name));
    return std::make_unique<Listener>(*this);
  }
  std::optional<std::int32_t> currentConnectionPid() override {
    return service.currentConnectionPid();
  }

 private:
  void note(const char* what, int number) {
    steps.push_back(std::string(what) + " " + std::to_string(number));
  }

  class Source final : public SignalSource {
   public:
    Source(RecordingHost& owner, int signal) : host(owner), number(signal) {}
    ~Source() override { host.note("drop", number); }
    void setEventHandler(std::function<void()>) override { host.note("handler", number); }
    void resume() override { host.note("resume", number); }

   private:
    RecordingHost& host;
    int number;
  };

  class Listener final : public XPCListener {
   public:
    explicit Listener(RecordingHost& owner) : host(owner) {}
    void setDelegate(const std::shared_ptr<XPCListenerDelegate>& delegate) override {
      host.steps.emplace_back(delegate ? "delegate" : "no delegate");
    }
    void resume() override { host.steps.emplace_back("resume listener"); }

   private:
    RecordingHost& host;
  };

  Dispatch& dispatch;
  XPCService& service;
};

}  // namespace korvel::test
