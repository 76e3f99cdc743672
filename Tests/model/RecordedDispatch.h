#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Trap.h"
#include "Platform/Dispatch.h"
#include "Platform/Process.h"
#include "Tests/model/Recorder.h"

namespace model {

/// A signal source whose handler begins and ends an item.
class RecordedSignal final : public korvel::SignalSource {
 public:
  RecordedSignal(Recorder& book, std::unique_ptr<korvel::SignalSource> real, int signalNumber)
      : recorder(book), source(std::move(real)), number(signalNumber) {}
  void setEventHandler(std::function<void()> handler) override {
    source->setEventHandler([&book = recorder, signal = number, body = std::move(handler)] {
      book.open({.cause = Cause::Signal, .number = signal});
      body();
      book.close();
    });
  }
  void resume() override { source->resume(); }

 private:
  Recorder& recorder;
  std::unique_ptr<korvel::SignalSource> source;
  int number;
};

/// A group whose waits are told.
class RecordedGroup final : public korvel::DispatchGroup {
 public:
  RecordedGroup(Recorder& book, std::shared_ptr<korvel::DispatchGroup> real)
      : recorder(book), group(std::move(real)) {}
  void enter() override { group->enter(); }
  void leave() override { group->leave(); }
  bool wait(double timeoutSeconds) override;

 private:
  Recorder& recorder;
  std::shared_ptr<korvel::DispatchGroup> group;
};

class RecordedDispatch final : public korvel::Dispatch {
 public:
  RecordedDispatch(Recorder& book, korvel::Dispatch& real) : recorder(book), dispatch(real) {}
  std::shared_ptr<korvel::WorkQueue> makeSerialQueue(std::string_view label) override {
    return dispatch.makeSerialQueue(label);
  }
  std::unique_ptr<korvel::TimerSource> makeTimer(
      const std::shared_ptr<korvel::WorkQueue>& queue) override {
    return dispatch.makeTimer(queue);
  }
  std::unique_ptr<korvel::SignalSource> makeSignalSource(int number) override {
    return std::make_unique<RecordedSignal>(recorder, dispatch.makeSignalSource(number), number);
  }
  std::shared_ptr<korvel::DispatchGroup> makeGroup() override {
    return std::make_shared<RecordedGroup>(recorder, dispatch.makeGroup());
  }
  std::unique_ptr<korvel::LockPrimitive> makeLock(std::string_view label) override {
    return dispatch.makeLock(label);
  }
  void ignoreDefaultAction(int signalNumber) override {
    dispatch.ignoreDefaultAction(signalNumber);
  }
  void runMainLoop() override {
    recorder.close();
    dispatch.runMainLoop();
  }

 private:
  Recorder& recorder;
  korvel::Dispatch& dispatch;
};

class RecordedProcess final : public korvel::Process {
 public:
  RecordedProcess(Recorder& book, korvel::Process& real) : recorder(book), process(real) {}
  std::int32_t getpid() override { return process.getpid(); }
  [[noreturn]] void exit(int status) override {
    recorder.finish(recorder.begin("exit " + std::to_string(status)), {});
    recorder.close();
    process.exit(status);
    korvel::trap("the process went on after its exit");  // g++ 12 forgets that exit() ends it.
  }
  std::optional<std::string> bundleExecutablePath() override {
    return process.bundleExecutablePath();
  }
  korvel::PropertyValue bundleInfo(std::string_view key) override {
    return process.bundleInfo(key);
  }

 private:
  Recorder& recorder;
  korvel::Process& process;
};

}  // namespace model
