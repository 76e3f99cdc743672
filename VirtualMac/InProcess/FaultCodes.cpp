#include "VirtualMac/InProcess/FaultCodes.h"

namespace virtualmac {

namespace {

constexpr korvel::SecurityStatus securityInternalError = -2070;
constexpr int inputOutputError = 5;
constexpr const char* posixDomain = "NSPOSIXErrorDomain";

}  // namespace

korvel::KernReturn kernCode(const InjectedFault& fault) {
  return fault.code == 0 ? korvel::ioReturnError : static_cast<korvel::KernReturn>(fault.code);
}

korvel::SecurityStatus securityCode(const InjectedFault& fault) {
  return fault.code == 0 ? securityInternalError : static_cast<korvel::SecurityStatus>(fault.code);
}

korvel::PosixResult posixFailure(const InjectedFault& fault) {
  return {-1, fault.code == 0 ? inputOutputError : static_cast<int>(fault.code)};
}

korvel::ErrorObject fileError(const InjectedFault& fault) {
  korvel::ErrorObject error;
  error.domain = posixDomain;
  error.code = fault.code == 0 ? inputOutputError : fault.code;
  if (!fault.text.empty()) error.userInfo.emplace(korvel::localizedDescriptionKey, fault.text);
  return error;
}

}  // namespace virtualmac
