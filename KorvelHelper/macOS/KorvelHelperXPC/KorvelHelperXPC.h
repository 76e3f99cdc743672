// The helper and its clients share the service's name, the identifiers that both sides put
// into their code-signing requirements, the error domain with its codes, and the protocol. For
// Objective-C and, through the module map beside this file, for Swift. docs/client.md tells the
// rest: what each method changes, when it fails, and how a connection is kept.

#pragma once

#import <Foundation/Foundation.h>

/// The Mach service that the helper publishes.
#define KORVEL_HELPER_MACH_SERVICE_NAME "com.korvel.app.helper"
/// The helper's signing identifier.
#define KORVEL_HELPER_BUNDLE_IDENTIFIER "com.korvel.app.helper"
/// The signing identifier that the helper asks of a client.
#define KORVEL_APP_BUNDLE_IDENTIFIER "com.korvel.app"
/// The domain of every error that the helper replies.
#define KORVEL_HELPER_ERROR_DOMAIN "KorvelHelperError"

/// The codes in that domain.
typedef NS_ENUM(NSInteger, KorvelHelperErrorCode) {
  KorvelHelperErrorCodeOutOfRange = 400,
  KorvelHelperErrorCodeSMCWriteFailed = 500,
  KorvelHelperErrorCodePMAssertionFailed = 501,
  KorvelHelperErrorCodePersistenceFailed = 502,
  KorvelHelperErrorCodeUnsupportedCapability = 503,
};

NS_ASSUME_NONNULL_BEGIN

/// The helper's operations. A reply block is called exactly once; success comes as (YES, nil),
/// failure as (NO, error), and (NO, nil) says that the helper is shutting down.
@protocol KorvelHelperProtocol

/// Replies with the helper's process identifier.
- (void)pingWithReply:(void (^)(uint64_t processIdentifier))reply;
/// Replies with JSON: five Booleans that say what this Mac lets the helper control.
- (void)capabilitiesWithReply:(void (^)(NSData *json))reply;
/// Holds the battery at a limit of 20 to 100 percent.
- (void)setChargeLimit:(uint8_t)limit reply:(void (^)(BOOL success, NSError *_Nullable error))reply;
/// Stops enforcing the limit; charging returns to the system.
- (void)clearChargeLimitWithReply:(void (^)(BOOL success, NSError *_Nullable error))reply;
/// Starts or stops draining the battery down to the limit while the adapter stays connected.
- (void)forceDischarge:(BOOL)enable reply:(void (^)(BOOL success, NSError *_Nullable error))reply;
/// Arms or disarms keeping the Mac awake under a closed lid.
- (void)setClamshellKeepAwake:(BOOL)enabled
                        reply:(void (^)(BOOL success, NSError *_Nullable error))reply;
/// Charges once to 100 percent, then holds the limit again.
- (void)releaseLimitUntilFullThenRestoreWithReply:(void (^)(BOOL success,
                                                            NSError *_Nullable error))reply;
/// Gives up a running charge to 100 percent.
- (void)cancelTopUpWithReply:(void (^)(BOOL success, NSError *_Nullable error))reply;
/// Replies with JSON: the helper's state, dates as seconds since 2001-01-01T00:00:00Z.
- (void)getStateWithReply:(void (^)(NSData *json))reply;
/// Puts every charging key back to the system's default.
- (void)resetAllSMCKeysWithReply:(void (^)(BOOL success, NSError *_Nullable error))reply;
/// Shuts the helper down in order. One-way.
- (void)quit;

@end

NS_ASSUME_NONNULL_END
