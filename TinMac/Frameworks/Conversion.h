#pragma once

#include <string>
#include <vector>

#import "TinMac/Frameworks/Objects.h"
#include "TinMac/Frameworks/Values.h"

namespace tinmac {

/// Builds an object from what a sink is told. One thread at a time; it stays where it is, because
/// the sink points at it.
class ValueBuilder {
 public:
  ValueBuilder();
  ValueBuilder(const ValueBuilder&) = delete;
  ValueBuilder& operator=(const ValueBuilder&) = delete;
  ~ValueBuilder();

  /// To be told values one after the other. Valid as long as the builder.
  [[nodiscard]] const TinValueSink* sink() const { return &hearing; }
  /// How many whole values were told and not yet taken.
  [[nodiscard]] std::size_t count() const { return values.size(); }
  /// The first value not yet taken, with one reference that is the caller's; nil: it was `absent`.
  /// Traps when no whole value was told.
  [[nodiscard]] id take();

 private:
  friend struct Hearing;

  /// An array, a dictionary or an error whose end was not told yet.
  struct Open {
    id container = nil;
    bool isError = false;
    std::string domain;
    std::int64_t code = 0;
    NSString* key = nil;
  };

  void add(id made);
  void end();

  TinValueSink hearing{};
  std::vector<Open> open;
  std::vector<id> values;
};

/// Tells one value to a sink: a property list or an error. What is neither, nil included, is told
/// as `absent`; so is a dictionary that has a key which is no text.
void tell(id value, const TinValueSink& sink);

}  // namespace tinmac
