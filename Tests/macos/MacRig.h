#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>

#include "Platform/Dispatch.h"
#include "Tests/seam/contract/SeamContract.h"
#include "macOS/Adapters.h"

namespace virtualmac {

/// Runs this process on this Mac in real time. The test's thread is the main thread, and serves the
/// main run loop while it waits. There is no machine to inspect and no launchd to connect through.
class MacRig : public SeamRig {
 public:
  korvel::Platform& platform() override { return adapters; }
  void onMain(std::function<void()> body) override { body(); }
  void pass(double seconds) override {
    until([] { return false; }, seconds);
  }
  bool until(const std::function<bool()>& reached, double limitSeconds) override {
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(limitSeconds);
    while (!reached()) {
      if (std::chrono::steady_clock::now() >= end) return false;
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.005, false);
    }
    return true;
  }
  void machine(const std::function<void(Machine&)>&) override {
    ADD_FAILURE() << "a real Mac's hardware cannot be arranged";
  }
  std::unique_ptr<RigClient> connect(std::string_view) override {
    ADD_FAILURE() << "a client needs a job of launchd";
    return nullptr;
  }
  void signal(int number) override { ::kill(::getpid(), number); }
  bool logged(std::string_view, korvel::LogLevel, std::string_view) override {
    ADD_FAILURE() << "the log is not read back";
    return false;
  }

 private:
  std::unique_ptr<korvel::SMCUserClient> smc = korvel::macos::makeSMCUserClient();
  std::unique_ptr<korvel::IORegistry> registry = korvel::macos::makeIORegistry();
  std::unique_ptr<korvel::PowerSources> powerSources = korvel::macos::makePowerSources();
  std::unique_ptr<korvel::PowerAssertions> assertions = korvel::macos::makePowerAssertions();
  std::unique_ptr<korvel::PowerSettings> powerSettings = korvel::macos::makePowerSettings();
  std::unique_ptr<korvel::RootPowerDomain> rootDomain = korvel::macos::makeRootPowerDomain();
  std::unique_ptr<korvel::SmartChargeRuntime> smartCharge = korvel::macos::makeSmartChargeRuntime();
  std::unique_ptr<korvel::FileSystem> files = korvel::macos::makeFileSystem();
  std::unique_ptr<korvel::Dispatch> dispatch = korvel::macos::makeDispatch();
  std::unique_ptr<korvel::WallClock> clock = korvel::macos::makeWallClock();
  std::unique_ptr<korvel::UnifiedLog> log = korvel::macos::makeUnifiedLog();
  std::unique_ptr<korvel::CodeSigning> codeSigning = korvel::macos::makeCodeSigning();
  std::unique_ptr<korvel::XPCService> xpc = korvel::macos::makeXPCService();
  std::unique_ptr<korvel::Process> process = korvel::macos::makeProcess();
  korvel::Platform adapters{
      .smc = *smc,
      .registry = *registry,
      .powerSources = *powerSources,
      .assertions = *assertions,
      .powerSettings = *powerSettings,
      .rootDomain = *rootDomain,
      .smartCharge = *smartCharge,
      .files = *files,
      .dispatch = *dispatch,
      .clock = *clock,
      .log = *log,
      .codeSigning = *codeSigning,
      .xpc = *xpc,
      .process = *process,
  };
};

}  // namespace virtualmac
