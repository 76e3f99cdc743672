#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Base/ByteList.h"
#include "Platform/SMCUserClient.h"
#include "VirtualMac/Machine/Machine.h"

namespace korvel::test {

/// The helper logs these lines about a connection that it had to open anew.
inline constexpr const char* reopened =
    "default SMCWriter: AppleSMC connection reopened after stale-handle recovery";
inline constexpr const char* reopenFailed =
    "fault SMCWriter: AppleSMC reopen failed — writes will continue to fail until launchd respawns";

/// The SMC of a machine that has no keys at first, as one helper process reaches it. A test's
/// script can take the place of an answer, also with a kernel code and a result byte at once, which
/// the machine never gives. Keeps the calls as text ("match", "open", "info CHTE", "read CHTE",
/// "write CHTE [1, 0]", "close"), and the blocks as they came.
class ScriptedSMC final : public SMCUserClient {
 public:
  using Block = std::array<std::uint8_t, smcBlockSize>;
  /// Put in the place of a call's own answer. For a look-up, any code means that nothing is found.
  struct Answer {
    KernReturn code = kernSuccess;
    std::uint8_t result = 0;  ///< Left in the output block, also by a failed call.
  };

  /// Answers by call number: match, open and struct calls count, from 1.
  std::map<std::size_t, Answer> answers;
  /// Answers every struct call while it is set.
  std::map<std::string, Answer> answersByCommand;  ///< By "info", "read", "write".

  std::vector<std::string> calls;
  std::vector<Block> inputs;
  std::size_t callNumber = 0;

  /// Adds a key or replaces it.
  void add(std::string name, std::uint32_t size, ByteList bytes = {}, std::string type = "ui8 ",
           std::uint8_t attributes = 0xD4) {
    mac.smc.addKey({std::move(name), size, std::move(type), attributes, std::move(bytes)});
  }
  virtualmac::SMC& controller() { return mac.smc; }
  [[nodiscard]] ByteList held(const std::string& name) const { return mac.smc.value(name).value(); }

  ObjectRef matchAppleSMC() override {
    calls.emplace_back("match");
    const Answer* answer = scripted("match");
    return answer != nullptr && answer->code != 0 ? 0 : process->smc.matchAppleSMC();
  }
  KernReturn open(ObjectRef service, ConnectionRef& connection) override {
    calls.emplace_back("open");
    const Answer* answer = scripted("open");
    if (answer != nullptr && answer->code != 0) return answer->code;
    return process->smc.open(service, connection);
  }
  KernReturn callStruct(ConnectionRef connection, SMCBlockView input,
                        SMCBlockSpan output) override {
    EXPECT_EQ(connections(), 1U) << "a call through a closed connection";
    std::ranges::copy(input, inputs.emplace_back().begin());
    const std::string command = commandOf(input);
    const std::string name(std::make_reverse_iterator(input.begin() + 4), input.rend());
    calls.push_back(command + " " + name + (command == "write" ? " " + writtenBy(input) : ""));
    if (const Answer* answer = scripted(command)) {
      output[40] = answer->result;
      return answer->code;
    }
    return process->smc.callStruct(connection, input, output);
  }
  KernReturn close(ConnectionRef connection) override {
    calls.emplace_back("close");
    const KernReturn code = process->smc.close(connection);
    EXPECT_EQ(code, kernSuccess) << "closed what was not open";
    return code;
  }
  KernReturn objectRelease(ObjectRef service) override {
    return process->smc.objectRelease(service);
  }

  [[nodiscard]] std::size_t connections() const { return process->smc.openConnections(); }
  [[nodiscard]] std::size_t services() const { return process->registry.liveObjects(); }
  /// How often a connection was opened or tried to be.
  [[nodiscard]] std::size_t lookUps() const { return count("match"); }
  [[nodiscard]] std::size_t count(const std::string& call) const {
    return static_cast<std::size_t>(std::ranges::count(calls, call));
  }
  /// Forgets calls and their numbers; keeps what is open.
  void forgetCalls() {
    calls.clear();
    inputs.clear();
    callNumber = 0;
  }

 private:
  const Answer* scripted(const std::string& command) {
    ++callNumber;
    if (const auto found = answers.find(callNumber); found != answers.end()) return &found->second;
    const auto found = answersByCommand.find(command);
    return found == answersByCommand.end() ? nullptr : &found->second;
  }
  static std::string commandOf(SMCBlockView input) {
    const std::map<int, std::string> names = {{5, "read"}, {6, "write"}, {9, "info"}};
    return names.at(input[42]);
  }
  static std::string writtenBy(SMCBlockView input) {
    return decimalList(input.subspan(48, std::min<std::size_t>(input[28], 32)));
  }

  virtualmac::Journal journal{[] { return 0.0; }};
  virtualmac::Machine mac{virtualmac::Profile{}, journal};
  std::shared_ptr<virtualmac::HelperProcess> process = mac.startProcess(412);
};

}  // namespace korvel::test
