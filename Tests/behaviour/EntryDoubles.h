#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Dispatch.h"
#include "Platform/XPCListener.h"

namespace korvel::test {

/// A connection that records in order each call made on it.
class RecordingConnection final : public XPCConnection {
 public:
  std::vector<std::string> steps;
  XPCInterface interface;
  std::shared_ptr<KorvelHelperProtocol> object;
  std::string requirement;
  bool requirementParses = true;
  std::function<void()> invalidation, interruption;
  std::function<void(const std::string& step)> onStep;  ///< Runs within the step.

  void setExportedInterface(const XPCInterface& exported) override {
    interface = exported;
    step("interface");
  }
  void setExportedObject(std::shared_ptr<KorvelHelperProtocol> exported) override {
    object = std::move(exported);
    step("object");
  }
  bool setCodeSigningRequirement(const std::string& text) override {
    requirement = text;
    step("requirement");
    return requirementParses;
  }
  void setInvalidationHandler(std::function<void()> handler) override {
    invalidation = std::move(handler);
    step("invalidation handler");
  }
  void setInterruptionHandler(std::function<void()> handler) override {
    interruption = std::move(handler);
    step("interruption handler");
  }
  void resume() override { step("resume"); }

 private:
  void step(const std::string& name) {
    steps.push_back(name);
    if (onStep) onStep(name);
  }
};

/// Forwards every call, and records those of the entry about signals and the listener. The main
/// loop is recorded too, and returns at once.
class RecordingHost final : public Dispatch, public XPCService {
 public:
  RecordingHost(Dispatch& realDispatch, XPCService& realService)
      : dispatch(realDispatch), service(realService) {}
  std::vector<std::string> steps;
  std::vector<std::string> queues;  ///< The labels of the queues made.

  std::shared_ptr<WorkQueue> makeSerialQueue(std::string_view label) override {
    queues.emplace_back(label);
    return dispatch.makeSerialQueue(label);
  }
  std::unique_ptr<TimerSource> makeTimer(const std::shared_ptr<WorkQueue>& queue) override {
    return dispatch.makeTimer(queue);
  }
  std::shared_ptr<DispatchGroup> makeGroup() override { return dispatch.makeGroup(); }
  std::unique_ptr<LockPrimitive> makeLock(std::string_view label) override {
    return dispatch.makeLock(label);
  }
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
