#import "macOS/ExportedObject.h"

#include <functional>
#include <type_traits>
#include <utility>

#import "macOS/FoundationConversion.h"

namespace korvel::macos {

namespace {

// A Boolean travels as one byte that is 0 or 1, and an error's code as 64 bits with a sign.
static_assert(std::is_same_v<BOOL, bool>);
static_assert(sizeof(NSInteger) == sizeof(ErrorObject::code) && std::is_signed_v<NSInteger>);
static_assert(KorvelHelperMachServiceName == KORVEL_HELPER_MACH_SERVICE_NAME);
static_assert(KorvelHelperBundleIdentifier == KORVEL_HELPER_BUNDLE_IDENTIFIER);
static_assert(KorvelAppBundleIdentifier == KORVEL_APP_BUNDLE_IDENTIFIER);
static_assert(KorvelHelperError::domain == KORVEL_HELPER_ERROR_DOMAIN);
static_assert(KorvelHelperError::codeOutOfRange == KorvelHelperErrorCodeOutOfRange);
static_assert(KorvelHelperError::codeSMCWriteFailed == KorvelHelperErrorCodeSMCWriteFailed);
static_assert(KorvelHelperError::codePMAssertionFailed == KorvelHelperErrorCodePMAssertionFailed);
static_assert(KorvelHelperError::codePersistenceFailed == KorvelHelperErrorCodePersistenceFailed);
static_assert(KorvelHelperError::codeUnsupportedCapability ==
              KorvelHelperErrorCodeUnsupportedCapability);

using ErrorReplyBlock = void (^)(BOOL, NSError*);
using DataReplyBlock = void (^)(NSData*);
using PidReplyBlock = void (^)(uint64_t);

/// The core's reply from a message's reply block. The reply drops its sink before it delivers, and
/// traps when it is called again, so the block is called exactly once. A client may have sent no
/// block: calling that would let the client crash the helper.
template <class AnyReply, class... Values, class Send>
AnyReply makeReply(Send send) {
  return AnyReply(std::make_unique<FunctionReplySink<Values...>>(std::move(send)));
}

Reply errorReply(ErrorReplyBlock block) {
  return makeReply<Reply, bool, std::optional<ErrorObject>>(
      [block](bool success, const std::optional<ErrorObject>& error) {
        @autoreleasepool {
          if (block != nil) block(success, error ? makeNSError(*error) : nil);
        }
      });
}

DataReply dataReply(DataReplyBlock block) {
  return makeReply<DataReply, std::string>([block](const std::string& bytes) {
    @autoreleasepool {
      if (block != nil) block([NSData dataWithBytes:bytes.data() length:bytes.size()]);
    }
  });
}

PidReply pidReply(PidReplyBlock block) {
  return makeReply<PidReply, std::uint64_t>([block](std::uint64_t pid) {
    if (block != nil) block(pid);
  });
}

}  // namespace

}  // namespace korvel::macos

using korvel::macos::dataReply;
using korvel::macos::errorReply;
using korvel::macos::pidReply;

@implementation KorvelExportedObject {
  std::shared_ptr<korvel::KorvelHelperProtocol> core;
}

- (instancetype)initWithCore:(std::shared_ptr<korvel::KorvelHelperProtocol>)sharedCore {
  self = [super init];
  if (self != nil) core = std::move(sharedCore);
  return self;
}

- (void)pingWithReply:(void (^)(uint64_t))reply {
  core->ping(pidReply(reply));
}

- (void)capabilitiesWithReply:(void (^)(NSData*))reply {
  core->capabilities(dataReply(reply));
}

- (void)setChargeLimit:(uint8_t)limit reply:(void (^)(BOOL, NSError*))reply {
  core->setChargeLimit(limit, errorReply(reply));
}

- (void)clearChargeLimitWithReply:(void (^)(BOOL, NSError*))reply {
  core->clearChargeLimit(errorReply(reply));
}

- (void)forceDischarge:(BOOL)enable reply:(void (^)(BOOL, NSError*))reply {
  core->forceDischarge(enable, errorReply(reply));
}

- (void)setClamshellKeepAwake:(BOOL)enabled reply:(void (^)(BOOL, NSError*))reply {
  core->setClamshellKeepAwake(enabled, errorReply(reply));
}

- (void)releaseLimitUntilFullThenRestoreWithReply:(void (^)(BOOL, NSError*))reply {
  core->releaseLimitUntilFullThenRestore(errorReply(reply));
}

- (void)cancelTopUpWithReply:(void (^)(BOOL, NSError*))reply {
  core->cancelTopUp(errorReply(reply));
}

- (void)getStateWithReply:(void (^)(NSData*))reply {
  core->getState(dataReply(reply));
}

- (void)resetAllSMCKeysWithReply:(void (^)(BOOL, NSError*))reply {
  core->resetAllSMCKeys(errorReply(reply));
}

- (void)quit {
  core->quit();
}

@end
