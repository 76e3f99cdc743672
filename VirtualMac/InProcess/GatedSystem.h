#pragma once

#include "Platform/CodeSigning.h"
#include "Platform/FileSystem.h"
#include "Platform/SmartChargeRuntime.h"
#include "VirtualMac/Machine/HelperProcess.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

/// A failing init still consumes its object, as the header says.
class GatedSmartChargeRuntime final : public korvel::SmartChargeRuntime {
 public:
  GatedSmartChargeRuntime(CallGate& callGate, HelperProcess& owner)
      : gate(callGate), process(owner) {}
  korvel::HandleRef dlopen(std::string_view path, int mode) override;
  korvel::HandleRef classFromString(std::string_view name) override;
  bool isClass(korvel::HandleRef object) override;
  korvel::HandleRef getClassMethod(korvel::HandleRef cls, std::string_view selector) override;
  korvel::HandleRef getInstanceMethod(korvel::HandleRef cls, std::string_view selector) override;
  korvel::HandleRef callAlloc(korvel::HandleRef method, korvel::HandleRef cls) override;
  korvel::HandleRef callInit(korvel::HandleRef method, korvel::HandleRef object,
                             std::string_view clientName) override;
  bool respondsToSelector(korvel::HandleRef object, std::string_view selector) override;
  bool callBoolean(korvel::HandleRef object, std::string_view selector) override;
  std::int32_t callInt32(korvel::HandleRef object, std::string_view selector,
                         korvel::ErrorSlot& error) override;
  korvel::PropertyValue callObject(korvel::HandleRef object, std::string_view selector,
                                   korvel::ErrorSlot& error) override;
  bool callSetUInt8(korvel::HandleRef object, std::string_view selector, std::uint8_t value,
                    korvel::ErrorSlot& error) override;
  void release(korvel::HandleRef object) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

/// The machine's own disk, in memory. A failing close still closes, as the platform's does.
class GatedFileSystem final : public korvel::FileSystem {
 public:
  GatedFileSystem(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::PosixResult mkdir(const std::string& path, std::uint32_t mode) override;
  korvel::PosixResult chmod(const std::string& path, std::uint32_t mode) override;
  std::uint32_t umask(std::uint32_t mask) override;
  korvel::PosixResult openExclusive(const std::string& path, std::uint32_t mode) override;
  korvel::PosixResult openReadOnly(const std::string& path) override;
  korvel::PosixResult write(int descriptor, std::span<const char> bytes) override;
  korvel::PosixResult fsync(int descriptor) override;
  korvel::PosixResult close(int descriptor) override;
  korvel::PosixResult unlink(const std::string& path) override;
  std::expected<void, korvel::ErrorObject> replaceItem(const std::string& original,
                                                       const std::string& replacement) override;
  bool fileExists(const std::string& path) override;
  std::expected<std::string, korvel::ErrorObject> readFile(const std::string& path) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

class GatedCodeSigning final : public korvel::CodeSigning {
 public:
  GatedCodeSigning(CallGate& callGate, HelperProcess& owner) : gate(callGate), process(owner) {}
  korvel::SecurityStatus staticCodeCreateWithPath(std::string_view path,
                                                  korvel::HandleRef& code) override;
  korvel::SecurityStatus copyGuestWithPid(std::int32_t pid, korvel::HandleRef& code) override;
  korvel::SecurityStatus copyStaticCode(korvel::HandleRef code,
                                        korvel::HandleRef& staticCode) override;
  korvel::SecurityStatus copySigningInformation(korvel::HandleRef staticCode, std::uint32_t flags,
                                                korvel::PropertyValue& information) override;
  void release(korvel::HandleRef code) override;

 private:
  CallGate& gate;
  HelperProcess& process;
};

}  // namespace virtualmac
