#include "VirtualMac/InProcess/FaultAnswers.h"

#include "VirtualMac/Schedule/FaultTable.h"

namespace virtualmac {

std::int64_t codeOf(SeamCall call, const InjectedFault& fault) {
  return fault.code == 0 ? plainFault(call).value_or(fault).code : fault.code;
}

korvel::ErrorObject fileError(const InjectedFault& fault) {
  korvel::ErrorObject error;
  error.domain = "NSPOSIXErrorDomain";
  error.code = codeOf(SeamCall::fileRead, fault);
  if (!fault.text.empty()) error.userInfo.emplace(korvel::localizedDescriptionKey, fault.text);
  return error;
}

}  // namespace virtualmac
