#pragma once

#import <Foundation/Foundation.h>

#define ACTION(name) extern "C" __attribute__((visibility("default"))) void name()

NS_ASSUME_NONNULL_BEGIN

/// The service that both sides of a connection speak of.
@protocol Greetings
- (void)greetWithReply:(void (^)(NSData* text))reply;
- (void)setLimit:(uint8_t)limit reply:(void (^)(BOOL success, NSError* _Nullable error))reply;
- (void)setSwitch:(BOOL)on reply:(void (^)(uint64_t caller))reply;
- (void)leave;
@end

NS_ASSUME_NONNULL_END
