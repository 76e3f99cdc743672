#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "KorvelHelperProtocol.h"

namespace korvel::test {

/// A core that notes every call and answers at once, or keeps the replies.
class NotingCore final : public KorvelHelperProtocol {
 public:
  void ping(PidReply reply) override { reply(1ULL << 40U); }
  void capabilities(DataReply reply) override { reply(std::string("{\0}", 3)); }
  void setChargeLimit(std::uint8_t limit, Reply reply) override {
    note("limit " + std::to_string(limit), std::move(reply));
  }
  void clearChargeLimit(Reply reply) override { note("clear", std::move(reply)); }
  void forceDischarge(bool enable, Reply reply) override {
    note(enable ? "discharge on" : "discharge off", std::move(reply));
  }
  void setClamshellKeepAwake(bool enabled, Reply reply) override {
    note(enabled ? "keep-awake on" : "keep-awake off", std::move(reply));
  }
  void releaseLimitUntilFullThenRestore(Reply reply) override { note("top-off", std::move(reply)); }
  void cancelTopUp(Reply reply) override { note("cancel", std::move(reply)); }
  void getState(DataReply reply) override { reply("{}"); }
  void resetAllSMCKeys(Reply reply) override { note("reset", std::move(reply)); }
  void quit() override { calls.emplace_back("quit"); }

  std::vector<std::string> calls;
  std::atomic<std::size_t> callCount = 0;  ///< For another thread than the one that is called.
  std::optional<ErrorObject> failure;
  bool keepsReplies = false;
  std::vector<Reply> kept;

 private:
  void note(const std::string& call, Reply reply) {
    calls.push_back(call);
    ++callCount;
    if (keepsReplies) {
      kept.push_back(std::move(reply));
    } else {
      reply(!failure, failure);
    }
  }
};

}  // namespace korvel::test
