#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/Reply.h"
#include "Platform/CodeSigning.h"
#include "Platform/Platform.h"
#include "Platform/RootPowerDomain.h"
#include "Tests/PlatformWith.h"

namespace korvel::test {

/// A root domain whose messages a test sends itself, on its own thread.
class ScriptedRootDomain final : public RootPowerDomain {
 public:
  std::function<void()> atRegistration = [] {};

  void send(std::uint32_t messageType) { callback(context, 0, messageType, 0x77); }

  ConnectionRef registerForSystemPower(void* refcon, HandleRef& port, InterestCallback handler,
                                       ObjectRef& notifier) override {
    atRegistration();
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
    answer = information;  // A failure does not keep it back: nobody may believe it then.
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

}  // namespace korvel::test
