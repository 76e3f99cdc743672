#import "TinMac/Frameworks/XPCReply.h"

#include <array>
#include <atomic>
#include <string>

#import "TinMac/Frameworks/Conversion.h"
#include "TinMac/Frameworks/XPCTypes.h"

namespace tinmac {

namespace {

/// As many arguments as registers hold beside the block itself.
constexpr std::size_t mostArguments = 7;
using Registers = std::array<std::uint64_t, mostArguments>;
/// A block's integers and objects come in these registers, one each, of any type.
using AnyReply = void (^)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                          std::uint64_t, std::uint64_t);

void tellBoolean(std::uint64_t value, const TinValueSink& sink, const char* selector) {
  const auto word = static_cast<std::uint32_t>(value);
  if (word > 1) trap("a Boolean of a reply is neither 0 nor 1", selector);
  sink.boolean(sink.context, word);
}

void tellObject(id value, std::string_view className, const TinValueSink& sink,
                const char* selector) {
  if (value != nil && !className.empty()) {
    NSString* name = makeString(className);
    if (!isKind(value, NSClassFromString(name))) {
      tinBooksNote("an argument of a reply is not of its declared class", selector);
    }
    [name release];
  }
  tell(value, sink);
}

void tellArgument(const ArgumentType& type, std::uint64_t value, const TinValueSink& sink,
                  const char* selector) {
  const auto integer = [&](auto number) {
    sink.integer(sink.context, static_cast<std::int64_t>(number));
  };
  switch (type.kind) {
    case 'B':
      return tellBoolean(value, sink, selector);
    case 'c':
      return integer(static_cast<std::int8_t>(value));
    case 's':
      return integer(static_cast<std::int16_t>(value));
    case 'i':
      return integer(static_cast<std::int32_t>(value));
    case 'C':
      return integer(static_cast<std::uint8_t>(value));
    case 'S':
      return integer(static_cast<std::uint16_t>(value));
    case 'I':
      return integer(static_cast<std::uint32_t>(value));
    case 'q':
    case 'Q':
      return integer(value);
    case objectKind:
      return tellObject(reinterpret_cast<id>(value), type.className, sink, selector);
    default:
      trap("a reply has an argument of a kind that is not built",
           std::string(selector) + ": " + type.kind);
  }
}

}  // namespace

}  // namespace tinmac

using namespace tinmac;

/// An answer that is owed, as its block owns it.
@interface TinOwedReply : NSObject {
 @public
  TinReply* reply;
  Signature signature;
  const char* selector;
  std::atomic<bool> isAnswered;
}
@end

@implementation TinOwedReply

- (void)answer:(const Registers&)values {
  if (isAnswered.exchange(true)) trap("a reply block was called twice", selector);
  const TinValueSink& sink = *tinReplyValues(reply);
  for (std::size_t index = 0; index < signature.arguments.size(); ++index) {
    tellArgument(signature.arguments[index], values[index], sink, selector);
  }
  tinReplySend(reply);
}

- (void)dealloc {
  if (!isAnswered) {
    tinBooksNote("a reply block went away uncalled", selector);
    tinReplyDrop(reply);
  }
  [super dealloc];
}

@end

namespace tinmac {

id makeReplyBlock(TinReply* reply, std::string_view types, const char* selector) {
  TinOwedReply* owed = [[TinOwedReply alloc] init];
  owed->reply = reply;
  owed->signature = blockSignature(types);
  owed->selector = selector;
  if (owed->signature.result != 'v' || owed->signature.arguments.size() > mostArguments) {
    trap("a reply block must return nothing and take few arguments", selector);
  }
  const AnyReply block =
      ^(std::uint64_t first, std::uint64_t second, std::uint64_t third, std::uint64_t fourth,
        std::uint64_t fifth, std::uint64_t sixth, std::uint64_t seventh) {
        [owed answer:{first, second, third, fourth, fifth, sixth, seventh}];
      };
  const id copied = [block copy];
  [owed release];
  return copied;
}

}  // namespace tinmac
