#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Base/ByteList.h"
#include "Platform/SMCUserClient.h"

namespace korvel::test {

/// An SMC in memory, reached through the user client's blocks. Keeps the calls as text ("match",
/// "open", "info CHTE", "read CHTE", "write CHTE [1, 0]", "close"), and the blocks as they came.
/// A call through a connection that is not open fails the test.
class FakeSMC final : public SMCUserClient {
 public:
  using Block = std::array<std::uint8_t, smcBlockSize>;
  struct Key {
    std::uint32_t size = 1;
    ByteList bytes;  ///< Zeros follow.
    std::uint32_t type = 0x75693820;
    std::uint8_t attributes = 0xD0;
  };
  /// Put in the place of a call's own answer. For a look-up, any code means that nothing is found.
  struct Answer {
    KernReturn code = kernSuccess;
    std::uint8_t result = 0;  ///< Left in the output block, also by a failed call.
  };

  std::map<std::string, Key> keys;
  bool obeysWrites = true;
  /// Answers by call number: match, open and struct calls count, from 1.
  std::map<std::size_t, Answer> answers;
  /// Answers every struct call while it is set.
  std::map<std::string, Answer> answersByCommand;  ///< By "info", "read", "write".

  std::vector<std::string> calls;
  std::vector<Block> inputs;
  std::size_t callNumber = 0;

  ObjectRef matchAppleSMC() override {
    calls.emplace_back("match");
    if (const Answer* answer = scripted("match"); answer != nullptr && answer->code != 0) return 0;
    ++heldServices;
    return serviceName;
  }
  KernReturn open(ObjectRef service, ConnectionRef& connection) override {
    EXPECT_EQ(service, serviceName);
    calls.emplace_back("open");
    if (const Answer* answer = scripted("open"); answer != nullptr && answer->code != 0) {
      return answer->code;
    }
    connection = nextConnection++;
    openConnections.insert(connection);
    return kernSuccess;
  }
  KernReturn callStruct(ConnectionRef connection, SMCBlockView input,
                        SMCBlockSpan output) override {
    EXPECT_TRUE(openConnections.contains(connection)) << "a call through a closed connection";
    inputs.emplace_back();
    std::ranges::copy(input, inputs.back().begin());
    const std::string command = commandOf(input);
    const std::string name = nameOf(input);
    calls.push_back(command + " " + name + (command == "write" ? " " + writtenBy(input) : ""));
    if (const Answer* answer = scripted(command)) {
      output[40] = answer->result;
      return answer->code;
    }
    output[40] = perform(command, name, input, output);
    return kernSuccess;
  }
  KernReturn close(ConnectionRef connection) override {
    calls.emplace_back("close");
    EXPECT_EQ(openConnections.erase(connection), 1U) << "closed what was not open";
    return kernSuccess;
  }
  KernReturn objectRelease(ObjectRef service) override {
    EXPECT_EQ(service, serviceName);
    --heldServices;
    return kernSuccess;
  }

  [[nodiscard]] std::size_t connections() const { return openConnections.size(); }
  [[nodiscard]] int services() const { return heldServices; }
  /// How often a connection was opened or tried to be.
  [[nodiscard]] std::size_t lookUps() const { return count("match"); }
  [[nodiscard]] std::size_t count(const std::string& call) const {
    return static_cast<std::size_t>(std::ranges::count(calls, call));
  }
  /// The bytes a key holds, its whole size.
  [[nodiscard]] ByteList held(const std::string& name) const {
    ByteList bytes = keys.at(name).bytes;
    bytes.resize(keys.at(name).size);
    return bytes;
  }
  /// Forgets calls and their numbers; keeps what is open.
  void forgetCalls() {
    calls.clear();
    inputs.clear();
    callNumber = 0;
  }

 private:
  static constexpr ObjectRef serviceName = 7001;

  const Answer* scripted(const std::string& command) {
    ++callNumber;
    if (const auto found = answers.find(callNumber); found != answers.end()) return &found->second;
    const auto found = answersByCommand.find(command);
    return found == answersByCommand.end() ? nullptr : &found->second;
  }
  static std::string commandOf(SMCBlockView input) {
    switch (input[42]) {
      case 5:
        return "read";
      case 6:
        return "write";
      case 9:
        return "info";
      default:
        return "command " + std::to_string(input[42]);
    }
  }
  static std::string nameOf(SMCBlockView input) {
    return {static_cast<char>(input[3]), static_cast<char>(input[2]), static_cast<char>(input[1]),
            static_cast<char>(input[0])};
  }
  static std::string writtenBy(SMCBlockView input) {
    return decimalList(input.subspan(48, std::min<std::size_t>(input[28], 32)));
  }
  static void store32(SMCBlockSpan block, std::size_t offset, std::uint32_t value) {
    for (std::size_t index = 0; index < 4; ++index) {
      block[offset + index] = static_cast<std::uint8_t>(value >> (index * 8));
    }
  }
  std::uint8_t perform(const std::string& command, const std::string& name, SMCBlockView input,
                       SMCBlockSpan output) {
    const auto found = keys.find(name);
    if (found == keys.end()) return 132;
    Key& key = found->second;
    if (command == "info") {
      store32(output, 28, key.size);
      store32(output, 32, key.type);
      output[36] = key.attributes;
    } else if (command == "read") {
      const std::size_t size = std::min<std::size_t>(key.bytes.size(), 32);
      std::ranges::copy_n(key.bytes.begin(), static_cast<std::ptrdiff_t>(size),
                          output.begin() + 48);
    } else if (command == "write" && obeysWrites) {
      const auto payload = input.subspan(48, std::min<std::size_t>(key.size, 32));
      key.bytes.assign(payload.begin(), payload.end());
    }
    return 0;
  }

  std::set<ConnectionRef> openConnections;
  ConnectionRef nextConnection = 31;
  int heldServices = 0;
};

}  // namespace korvel::test
