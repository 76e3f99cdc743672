#pragma once

#include <string>
#include <type_traits>
#include <utility>

#include "Tests/model/CallValues.h"
#include "Tests/model/Recorder.h"

namespace model {

/// Makes each platform call, and writes it down with its answer.
template <class SeamHeader>
class RecordedCalls : public SeamHeader {
 public:
  using Interface = SeamHeader;
  RecordedCalls(Recorder& book, Interface& real) : recorder(book), program(real) {}

 protected:
  template <virtualmac::SeamCall Call, class Result, class... Arguments>
  Result make(Arguments... arguments) {
    constexpr auto function = virtualmac::SeamLine<Call>::function;
    if constexpr (isSilent(Call)) {
      return (program.*function)(arguments...);
    } else {
      Event* const event = recorder.begin(text<Call, Arguments...>(arguments...));
      Answer answer;
      if constexpr (std::is_void_v<Result>) {
        (program.*function)(arguments...);
        recorder.finish(event, std::move(answer));
      } else {
        Result result = answered<Call, Result, Arguments...>(arguments...);
        take(answer, result);
        (takeIfOut<Arguments>(answer, arguments), ...);
        recorder.finish(event, std::move(answer));
        return result;
      }
    }
  }

 private:
  template <class Argument>
  static constexpr bool isOut =
      std::is_lvalue_reference_v<Argument> && !std::is_const_v<std::remove_reference_t<Argument>>;

  template <virtualmac::SeamCall Call, class Result, class... Arguments>
  Result answered(Arguments... arguments) {
    if constexpr (Call == virtualmac::SeamCall::powerRegister) {
      return recorder.registerForPower(program, arguments...);
    } else {
      return (program.*virtualmac::SeamLine<Call>::function)(arguments...);
    }
  }

  template <virtualmac::SeamCall Call, class... Arguments>
  static std::string text(Arguments... arguments) {
    std::string id(virtualmac::describe(Call).id);
    if constexpr (Call == virtualmac::SeamCall::smcCallStruct) {
      return id + ' ' + smcText(arguments...);
    } else if constexpr (Call == virtualmac::SeamCall::smcClose) {
      return id + (' ' + ... + std::to_string(arguments));
    } else {
      Words<Interface> words{std::move(id)};
      (addIfIn<Arguments>(words, arguments), ...);
      return std::move(words.text);
    }
  }
  static std::string smcText(korvel::ConnectionRef connection, korvel::SMCBlockView block,
                             korvel::SMCBlockSpan /*output*/) {
    return blockText(connection, block);
  }

  template <class Argument>
  static void addIfIn(Words<Interface>& words, const std::remove_reference_t<Argument>& argument) {
    if constexpr (!isOut<Argument> && !std::is_pointer_v<Argument>) words.add(argument);
  }
  template <class Argument>
  static void takeIfOut(Answer& answer, const std::remove_reference_t<Argument>& argument) {
    if constexpr (std::is_same_v<Argument, korvel::SMCBlockSpan>) {
      takeBlock(answer, argument);
    } else if constexpr (isOut<Argument>) {
      takeOut(answer, argument);
    }
  }

  Recorder& recorder;
  Interface& program;
};

template <class SeamHeader>
using Recorded = virtualmac::SeamInterface<RecordedCalls<SeamHeader>>;

}  // namespace model
