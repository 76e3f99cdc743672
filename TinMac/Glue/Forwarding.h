#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "KorvelHelperProtocol.h"
#include "TinMac/Frameworks/BelowServices.h"
#include "TinMac/Glue/Values.h"

/// The answer that a peer waits for, as the frameworks tell it.
struct TinReply {
  TinReply() = default;
  virtual ~TinReply() = default;
  TinReply(const TinReply&) = delete;
  TinReply& operator=(const TinReply&) = delete;
  /// Sends what was heard. Traps when that is not what the operation answers.
  virtual void send() = 0;

  tinmac::ValueHearer heard;
};

namespace tinmac {

/// An object of the program's, exported to one peer. Every operation goes to the program by its
/// selector; drops the object when it goes itself.
class ForwardingObject final : public korvel::KorvelHelperProtocol {
 public:
  explicit ForwardingObject(const TinExported& exportedObject) : exported(exportedObject) {}
  ~ForwardingObject() override { exported.dropped(exported.context); }
  ForwardingObject(const ForwardingObject&) = delete;
  ForwardingObject& operator=(const ForwardingObject&) = delete;

  void ping(korvel::PidReply reply) override;
  void capabilities(korvel::DataReply reply) override;
  void setChargeLimit(std::uint8_t limit, korvel::Reply reply) override;
  void clearChargeLimit(korvel::Reply reply) override;
  void forceDischarge(bool enable, korvel::Reply reply) override;
  void setClamshellKeepAwake(bool enabled, korvel::Reply reply) override;
  void releaseLimitUntilFullThenRestore(korvel::Reply reply) override;
  void cancelTopUp(korvel::Reply reply) override;
  void getState(korvel::DataReply reply) override;
  void resetAllSMCKeys(korvel::Reply reply) override;
  void quit() override;

 private:
  template <class Reply>
  void forward(std::string_view selector, std::uint32_t argument, Reply reply);

  TinExported exported;
};

}  // namespace tinmac
