#pragma once

#include <optional>
#include <type_traits>

#include "VirtualMac/InProcess/FaultAnswers.h"
#include "VirtualMac/Schedule/SeamInterface.h"

namespace virtualmac {

/// Makes each platform call in two steps: first the gate, then one call of the model, unless a
/// fault takes its place.
template <class SeamHeader>
class GatedCalls : public SeamHeader {
 public:
  using Interface = SeamHeader;
  GatedCalls(CallGate& callGate, Interface& answering) : gate(callGate), model(answering) {}

 protected:
  template <SeamCall Call, class Result, class... Arguments>
  Result make(Arguments... arguments) {
    const std::optional<InjectedFault> fault = gate.enter(Call);
    constexpr bool hasOwnAnswer = !std::is_null_pointer_v<decltype(ownAnswer<Call>)>;
    if constexpr (hasOwnAnswer) {
      if (fault) return ownAnswer<Call>(model, *fault, arguments...);
    } else if constexpr (describe(Call).kind != FailureKind::Sure) {
      if (fault) return answerOfKind<Call, Result>(*fault, arguments...);
    }
    return (model.*SeamLine<Call>::function)(arguments...);
  }

 private:
  CallGate& gate;
  Interface& model;
};

/// A header of the seam over one process of a machine.
template <class SeamHeader>
using Gated = SeamInterface<GatedCalls<SeamHeader>>;

}  // namespace virtualmac
