#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Dispatch.h"
#include "Platform/Platform.h"
#include "Platform/UnifiedLog.h"
#include "VirtualMac/InProcess/AppClient.h"

namespace virtualmac {

class Machine;

/// A client of the service that the process under test publishes.
class RigClient {
 public:
  virtual ~RigClient() = default;
  virtual AppCallRef call(std::string_view selector, std::uint8_t argument) = 0;
  virtual void disconnect() = 0;
  [[nodiscard]] virtual std::int32_t pid() const = 0;
};

/// One process with a platform on a fresh machine; the contracts run on it. Its main thread serves
/// its loop. Handlers may run on any thread, also while the test does nothing.
class SeamRig {
 public:
  virtual ~SeamRig() = default;
  virtual korvel::Platform& platform() = 0;
  /// Runs `body` on the process's main thread and returns when it is done.
  virtual void onMain(std::function<void()> body) = 0;
  /// Lets this much of the timers' time pass.
  virtual void pass(double seconds) = 0;
  /// Lets time pass until `reached` holds; returns false when it did not within `limitSeconds`.
  virtual bool until(const std::function<bool()>& reached, double limitSeconds) = 0;
  /// Reads or changes the machine, as a person or the hardware would.
  virtual void machine(const std::function<void(Machine&)>& body) = 0;
  virtual std::unique_ptr<RigClient> connect(std::string_view identity) = 0;
  virtual void signal(int number) = 0;
  /// Returns whether the log has exactly this line.
  virtual bool logged(std::string_view category, korvel::LogLevel level, std::string_view text) = 0;
};

struct RigKind {
  std::string name;
  std::function<std::unique_ptr<SeamRig>(const std::string& profile)> make;
};

/// Collects words from handlers on any thread.
class Notes {
 public:
  void add(std::string_view word) {
    const std::lock_guard hold(guard);
    words += word;
    words += ' ';
  }
  [[nodiscard]] std::string text() const {
    const std::lock_guard hold(guard);
    return words;
  }

 private:
  mutable std::mutex guard;
  std::string words;
};

class SeamContract : public testing::TestWithParam<RigKind> {
 protected:
  /// Replaces the usual machine by one with another profile.
  void use(const std::string& profile) {
    rig = nullptr;
    rig = GetParam().make(profile);
  }
  korvel::Platform& platform() { return rig->platform(); }
  bool untilNoted(const std::string& text, double limitSeconds = 5) {
    return rig->until([&] { return notes.text() == text; }, limitSeconds);
  }

  Notes notes;
  std::unique_ptr<SeamRig> rig = GetParam().make("newer-keys");
};

// Each header of the seam has a suite.
class SMCUserClientContract : public SeamContract {};
class IORegistryContract : public SeamContract {};
class PowerSourcesContract : public SeamContract {};
class PowerAssertionsContract : public SeamContract {};
class PowerSettingsContract : public SeamContract {};
class RootPowerDomainContract : public SeamContract {};
class SmartChargeRuntimeContract : public SeamContract {};
class FileSystemContract : public SeamContract {
 protected:
  void SetUp() override;  ///< Makes the folder for the tests' files.

  korvel::FileSystem& files = platform().files;
};
class DispatchContract : public SeamContract {
 protected:
  std::shared_ptr<korvel::WorkQueue> queue = platform().dispatch.makeSerialQueue("q");
};
class WallClockContract : public SeamContract {};
class UnifiedLogContract : public SeamContract {};
class CodeSigningContract : public SeamContract {};
class XPCContract : public SeamContract {};
class ProcessContract : public SeamContract {};

}  // namespace virtualmac

/// Runs every contract on each rig of `generator`.
#define INSTANTIATE_SEAM_CONTRACTS(prefix, generator)                       \
  INSTANTIATE_SEAM_CONTRACT(prefix, SMCUserClientContract, generator);      \
  INSTANTIATE_SEAM_CONTRACT(prefix, IORegistryContract, generator);         \
  INSTANTIATE_SEAM_CONTRACT(prefix, PowerSourcesContract, generator);       \
  INSTANTIATE_SEAM_CONTRACT(prefix, PowerAssertionsContract, generator);    \
  INSTANTIATE_SEAM_CONTRACT(prefix, PowerSettingsContract, generator);      \
  INSTANTIATE_SEAM_CONTRACT(prefix, RootPowerDomainContract, generator);    \
  INSTANTIATE_SEAM_CONTRACT(prefix, SmartChargeRuntimeContract, generator); \
  INSTANTIATE_SEAM_CONTRACT(prefix, FileSystemContract, generator);         \
  INSTANTIATE_SEAM_CONTRACT(prefix, DispatchContract, generator);           \
  INSTANTIATE_SEAM_CONTRACT(prefix, WallClockContract, generator);          \
  INSTANTIATE_SEAM_CONTRACT(prefix, UnifiedLogContract, generator);         \
  INSTANTIATE_SEAM_CONTRACT(prefix, CodeSigningContract, generator);        \
  INSTANTIATE_SEAM_CONTRACT(prefix, XPCContract, generator);                \
  INSTANTIATE_SEAM_CONTRACT(prefix, ProcessContract, generator)

#define INSTANTIATE_SEAM_CONTRACT(prefix, suite, generator) \
  INSTANTIATE_TEST_SUITE_P(prefix, suite, generator,        \
                           [](const auto& each) { return each.param.name; })
