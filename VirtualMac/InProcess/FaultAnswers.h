#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <string>
#include <tuple>

#include "Base/ErrorObject.h"
#include "Platform/FileSystem.h"
#include "Platform/RootPowerDomain.h"
#include "Platform/SMCUserClient.h"
#include "Platform/SmartChargeRuntime.h"
#include "Platform/UnifiedLog.h"
#include "VirtualMac/Schedule/SeamCall.h"

namespace virtualmac {

// An injected fault answers in the place of a call by the call's kind. The few calls at the end of
// this file have an answer of their own.

/// A fault without a code means the plain failure of the call's kind, never success.
std::int64_t codeOf(SeamCall call, const InjectedFault& fault);
korvel::ErrorObject fileError(const InjectedFault& fault);

/// Calls of kind Release meet a fault only when the process is dead; they do nothing then.
template <SeamCall Call, class Result, class... Arguments>
Result answerOfKind(const InjectedFault& fault, Arguments&... arguments) {
  constexpr FailureKind kind = describe(Call).kind;
  if constexpr (kind == FailureKind::Kern || kind == FailureKind::Security) {
    return static_cast<Result>(codeOf(Call, fault));
  } else if constexpr (kind == FailureKind::Posix) {
    return {-1, static_cast<int>(codeOf(Call, fault))};
  } else if constexpr (kind == FailureKind::File) {
    return std::unexpected(fileError(fault));
  } else {
    if constexpr (kind == FailureKind::Slot) {
      korvel::ErrorSlot& slot = std::get<sizeof...(arguments) - 1>(std::tie(arguments...));
      if (!fault.text.empty()) slot = fault.text;
    }
    return Result();
  }
}

/// A call's own answer, made from the model, the fault and the arguments. Null: there is none.
template <SeamCall Call>
inline constexpr auto ownAnswer = nullptr;

template <>
inline constexpr auto ownAnswer<SeamCall::smcCallStruct> =
    [](korvel::SMCUserClient& smc, const InjectedFault& fault, korvel::ConnectionRef connection,
       korvel::SMCBlockView input, korvel::SMCBlockSpan output) {
      constexpr std::size_t valueOffset = 48;
      constexpr std::uint8_t bitOfNoPayload = 0x10;
      if (!fault.changesAnswer)
        return static_cast<korvel::KernReturn>(codeOf(SeamCall::smcCallStruct, fault));
      const korvel::KernReturn code = smc.callStruct(connection, input, output);
      output[valueOffset] ^= bitOfNoPayload;
      return code;
    };

template <>
inline constexpr auto ownAnswer<SeamCall::fileRead> =
    [](korvel::FileSystem& files, const InjectedFault& fault,
       const std::string& path) -> std::expected<std::string, korvel::ErrorObject> {
  if (!fault.changesAnswer) return std::unexpected(fileError(fault));
  auto content = files.readFile(path);
  if (content && !content->empty()) content->front() = '?';
  return content;
};

/// A failing close still closes.
template <>
inline constexpr auto ownAnswer<SeamCall::fileClose> =
    [](korvel::FileSystem& files, const InjectedFault& fault, int descriptor) {
      files.close(descriptor);
      return answerOfKind<SeamCall::fileClose, korvel::PosixResult>(fault);
    };

template <>
inline constexpr auto ownAnswer<SeamCall::fileUmask> =
    [](korvel::FileSystem&, const InjectedFault&, std::uint32_t mask) { return mask; };

/// A failing init still consumes its object.
template <>
inline constexpr auto ownAnswer<SeamCall::runtimeInit> =
    [](korvel::SmartChargeRuntime& runtime, const InjectedFault&, korvel::HandleRef,
       korvel::HandleRef object, std::string_view) {
      runtime.release(object);
      return korvel::HandleRef{0};
    };

template <>
inline constexpr auto ownAnswer<SeamCall::powerRegister> =
    [](korvel::RootPowerDomain&, const InjectedFault&, void*, korvel::HandleRef&,
       korvel::InterestCallback, korvel::ObjectRef& notifier) {
      notifier = 0;
      return korvel::ConnectionRef{0};
    };

template <>
inline constexpr auto ownAnswer<SeamCall::powerDeregister> =
    [](korvel::RootPowerDomain&, const InjectedFault&, korvel::ObjectRef& notifier) {
      notifier = 0;
      return korvel::kernSuccess;
    };

/// Other calls of kind Sure are made for a dead process too, but it logs nothing.
template <>
inline constexpr auto ownAnswer<SeamCall::logEmit> = [](korvel::UnifiedLog&, const InjectedFault&,
                                                        std::string_view, std::string_view,
                                                        korvel::LogLevel, std::string_view) {};

}  // namespace virtualmac
