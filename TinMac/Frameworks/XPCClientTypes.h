#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "TinMac/Frameworks/BelowClient.h"
#import "TinMac/Frameworks/Objects.h"
#include "TinMac/Frameworks/XPCTypes.h"

/// Messages of a client and their replies, between registers and values.
namespace tinmac {

/// Tells the values of a message's registers as one array, for the next call to take with it.
/// Leaves out the reply block. Traps on what no message may have.
void tellArguments(const Signature& signature, std::span<const std::uint64_t> registers,
                   const char* selector);

/// The values of a reply as its block takes them. Objects live as long as this.
class ReplyValues {
 public:
  explicit ReplyValues(const TinAnswer* answer);
  ReplyValues(const ReplyValues&) = delete;
  ReplyValues& operator=(const ReplyValues&) = delete;
  ~ReplyValues();

  /// Whether these are the values that the block's types and the interface allow.
  bool fit(const Signature& block, NSXPCInterface* interface, SEL selector);
  /// Calls the block with them; only when they fit.
  void hand(id block) const;

 private:
  bool place(const ArgumentType& type, id value);

  NSMutableArray* values;
  std::array<std::uint64_t, 7> registers{};
  std::size_t used = 0;
};

}  // namespace tinmac
