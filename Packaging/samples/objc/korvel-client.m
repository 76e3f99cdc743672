// A client of the helper in Objective-C: shows its state and banners, and asks for every operation.
//
// Signed with the identifier com.korvel.app and a Developer ID certificate of the helper's team, it
// is admitted like the application. It is as careful in the other direction: it talks only to a
// helper of that identifier and of its own team.

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#import "korvel-doctor.h"

@import KorvelHelperXPC;

static NSString *const usage =
    @"usage: korvel-client COMMAND\n"
     "\n"
     "  state                  the limit, what is going on, and the last banner\n"
     "  capabilities           what this Mac lets the helper control\n"
     "  ping                   the helper's process identifier\n"
     "  set-limit PERCENT      hold the battery at 20 to 100 percent\n"
     "  clear-limit            stop holding a limit\n"
     "  discharge on|off       drain the battery down to the limit\n"
     "  keep-awake on|off      stay awake under a closed lid\n"
     "  top-off                charge once to 100 percent\n"
     "  cancel-top-off         give that up\n"
     "  watch                  show the state whenever it changes; the limit is held meanwhile\n"
     "  doctor                 name what keeps the limit from being held, and its remedy\n"
     "  bundle FILE            put all that is known of the helper into one file\n"
     "  reset                  put every charging key back to the system's default\n"
     "  quit                   end the helper in order\n"
     "  --version              this program's version and compiler\n"
     "\n"
     "The helper gives charging back to the system 30 seconds after its last client has gone.\n";

static NSString *const built = @"korvel-client " KORVEL_VERSION ", " KORVEL_COMPILER;

static const int64_t replyTimeoutSeconds = 20;

static void say(NSString *text) {
  [NSFileHandle.fileHandleWithStandardOutput
      writeData:[[text stringByAppendingString:@"\n"] dataUsingEncoding:NSUTF8StringEncoding]];
}

static void complain(NSString *text) {
  [NSFileHandle.fileHandleWithStandardError
      writeData:[[text stringByAppendingString:@"\n"] dataUsingEncoding:NSUTF8StringEncoding]];
}

// docs/client.md shows this as "Connecting".

/// Returns the team in this program's own signature; nil without one.
static NSString *_Nullable ownTeam(void) {
  SecCodeRef code = NULL;
  SecStaticCodeRef staticCode = NULL;
  CFDictionaryRef information = NULL;
  NSString *team = nil;
  if (SecCodeCopySelf(kSecCSDefaultFlags, &code) == errSecSuccess &&
      SecCodeCopyStaticCode(code, kSecCSDefaultFlags, &staticCode) == errSecSuccess &&
      SecCodeCopySigningInformation(staticCode, kSecCSSigningInformation, &information) ==
          errSecSuccess) {
    team = [(__bridge NSDictionary *)information
        objectForKey:(__bridge NSString *)kSecCodeInfoTeamIdentifier];
  }
  if (information != NULL) CFRelease(information);
  if (staticCode != NULL) CFRelease(staticCode);
  if (code != NULL) CFRelease(code);
  return team;
}

/// The helper must be signed under its name, with a Developer ID certificate of this team.
static NSString *helperRequirement(NSString *team) {
  return [NSString stringWithFormat:@"anchor apple generic and identifier \"%s\" and certificate "
                                     "leaf[subject.OU] = \"%@\" and certificate "
                                     "leaf[field.1.2.840.113635.100.6.1.13] exists",
                                    KORVEL_HELPER_BUNDLE_IDENTIFIER, team];
}

static NSXPCInterface *helperInterface(void) {
  NSXPCInterface *interface =
      [NSXPCInterface interfaceWithProtocol:@protocol(KorvelHelperProtocol)];
  NSSet *errorClasses = [NSSet setWithObjects:[NSError class], [NSString class], [NSNumber class],
                                              [NSDictionary class], nil];
  for (NSString *selector in @[
         @"setChargeLimit:reply:", @"clearChargeLimitWithReply:", @"forceDischarge:reply:",
         @"setClamshellKeepAwake:reply:", @"releaseLimitUntilFullThenRestoreWithReply:",
         @"cancelTopUpWithReply:", @"resetAllSMCKeysWithReply:"
       ]) {
    [interface setClasses:errorClasses
              forSelector:NSSelectorFromString(selector)
            argumentIndex:1
                  ofReply:YES];
  }
  return interface;
}

static NSXPCConnection *_Nullable connectToHelper(void) {
  NSString *team = ownTeam();
  if (team == nil) {
    complain(@"This program is signed without a team; the helper would not listen to it.");
    return nil;
  }
  NSXPCConnection *connection =
      [[NSXPCConnection alloc] initWithMachServiceName:@KORVEL_HELPER_MACH_SERVICE_NAME
                                               options:NSXPCConnectionPrivileged];
  connection.remoteObjectInterface = helperInterface();
  [connection setCodeSigningRequirement:helperRequirement(team)];
  [connection resume];
  return connection;
}

// docs/client.md shows up to here.

/// Sends one call to the helper, waits for the reply or an error, and keeps the result.
@interface Call : NSObject
@property(nonatomic, readonly) id<KorvelHelperProtocol> helper;
@property(nonatomic, nullable) NSData *data;
@property(nonatomic) BOOL succeeded;
- (instancetype)initWithConnection:(NSXPCConnection *)connection;
- (void (^)(BOOL, NSError *_Nullable))statusReply;
- (void (^)(NSData *))dataReply;
- (void)finish;
/// Returns whether a reply came in time and reported success; prints any problem.
- (BOOL)wait;
@end

@implementation Call {
  NSXPCConnection *link;
  dispatch_semaphore_t answered;
  NSError *failure;
}

- (instancetype)initWithConnection:(NSXPCConnection *)connection {
  self = [super init];
  if (self != nil) {
    link = connection;
    answered = dispatch_semaphore_create(0);
  }
  return self;
}

- (id<KorvelHelperProtocol>)helper {
  return [link remoteObjectProxyWithErrorHandler:^(NSError *error) {
    self->failure = error;
    dispatch_semaphore_signal(self->answered);
  }];
}

- (void (^)(BOOL, NSError *_Nullable))statusReply {
  return ^(BOOL success, NSError *_Nullable error) {
    self.succeeded = success;
    self->failure = error;
    dispatch_semaphore_signal(self->answered);
  };
}

- (void (^)(NSData *))dataReply {
  return ^(NSData *json) {
    self.data = json;
    [self finish];
  };
}

- (void)finish {
  self.succeeded = YES;
  dispatch_semaphore_signal(answered);
}

- (BOOL)wait {
  const dispatch_time_t deadline =
      dispatch_time(DISPATCH_TIME_NOW, replyTimeoutSeconds * (int64_t)NSEC_PER_SEC);
  if (dispatch_semaphore_wait(answered, deadline) != 0) {
    complain(@"The helper did not answer in time.");
    return NO;
  }
  if (failure != nil) {
    complain([NSString stringWithFormat:@"%@ (%@ %ld)", failure.localizedDescription,
                                        failure.domain, (long)failure.code]);
  } else if (!self.succeeded) {
    complain(@"The helper is shutting down.");
  }
  return self.succeeded && failure == nil;
}

@end

static NSDictionary *_Nullable decoded(NSData *json) {
  id object =
      json == nil ? nil : [NSJSONSerialization JSONObjectWithData:json options:0 error:NULL];
  return [object isKindOfClass:[NSDictionary class]] ? object : nil;
}

static NSString *yesOrNo(id value) { return [value boolValue] ? @"yes" : @"no"; }

/// The helper's dates are seconds since 2001.
static NSString *dateText(id seconds) {
  if (![seconds isKindOfClass:[NSNumber class]]) return @"never";
  NSDate *date = [NSDate dateWithTimeIntervalSinceReferenceDate:[seconds doubleValue]];
  if ([date isEqualToDate:NSDate.distantPast]) return @"never";
  return [NSDateFormatter localizedStringFromDate:date
                                        dateStyle:NSDateFormatterMediumStyle
                                        timeStyle:NSDateFormatterMediumStyle];
}

static void showState(NSDictionary *state) {
  say([NSString stringWithFormat:@"limit            %@ %% (band %@ %%)", state[@"chargeLimit"],
                                 state[@"sailingBand"]]);
  say([NSString stringWithFormat:@"discharging      %@", yesOrNo(state[@"forceDischargeActive"])]);
  say([NSString stringWithFormat:@"topping off      %@", yesOrNo(state[@"topUpActive"])]);
  say([NSString stringWithFormat:@"sleep disabled   %@", yesOrNo(state[@"sleepDisabledByKorvel"])]);
  say([NSString
      stringWithFormat:@"last write       %@, %@", dateText(state[@"lastWriteAt"]),
                       [state[@"lastWriteVerified"] boolValue] ? @"verified" : @"NOT verified"]);
  NSString *version = state[@"helperVersion"];
  say([NSString stringWithFormat:@"helper version   %@", version == nil ? @"unknown" : version]);
  NSString *banner = state[@"lastDischargeAbortReason"];
  if (banner != nil) {
    say([NSString stringWithFormat:@"banner           %@ (%@)", banner,
                                   dateText(state[@"lastDischargeAbortAt"])]);
  }
}

static NSDictionary *_Nullable fetchState(NSXPCConnection *connection) {
  Call *call = [[Call alloc] initWithConnection:connection];
  [call.helper getStateWithReply:call.dataReply];
  return [call wait] ? decoded(call.data) : nil;
}

// docs/client.md shows this as "Staying".

/// Stays with the helper. An interrupted connection serves again, but the next helper counts this
/// client only from its next message on, so one is sent at once. An invalid one is replaced.
@interface Stay : NSObject
@property(atomic) BOOL isOver;
- (void)lookAfter:(NSXPCConnection *)connection;
/// Waits so long, or until the helper has gone.
- (void)pauseFor:(int64_t)seconds;
@end

@implementation Stay {
  dispatch_semaphore_t gone;
}

- (instancetype)init {
  self = [super init];
  if (self != nil) gone = dispatch_semaphore_create(0);
  return self;
}

- (void)lookAfter:(NSXPCConnection *)connection {
  self.isOver = NO;
  connection.interruptionHandler = ^{
    dispatch_semaphore_signal(self->gone);
  };
  connection.invalidationHandler = ^{
    self.isOver = YES;
    dispatch_semaphore_signal(self->gone);
  };
}

- (void)pauseFor:(int64_t)seconds {
  dispatch_semaphore_wait(gone, dispatch_time(DISPATCH_TIME_NOW, seconds * (int64_t)NSEC_PER_SEC));
}

@end

/// Shows the record whenever it changes; gives up when three calls in a row have failed.
static BOOL watch(NSXPCConnection *connection) {
  Stay *stay = [[Stay alloc] init];
  [stay lookAfter:connection];
  NSDictionary *shown = nil;
  for (int failures = 0; failures < 3;) {
    @autoreleasepool {
      if (stay.isOver) {
        connection = connectToHelper();
        [stay lookAfter:connection];
      }
      NSDictionary *state = fetchState(connection);
      failures = state == nil ? failures + 1 : 0;
      if (state != nil && ![state isEqual:shown]) {
        say([@"--- " stringByAppendingString:dateText(@(NSDate.timeIntervalSinceReferenceDate))]);
        showState(state);
        shown = state;
      }
      [stay pauseFor:2];
    }
  }
  return NO;
}

// docs/client.md shows up to here.

static BOOL query(NSXPCConnection *connection, NSString *command) {
  if ([command isEqual:@"state"]) {
    NSDictionary *state = fetchState(connection);
    if (state != nil) showState(state);
    return state != nil;
  }
  Call *call = [[Call alloc] initWithConnection:connection];
  if ([command isEqual:@"ping"]) {
    [call.helper pingWithReply:^(uint64_t processIdentifier) {
      say([NSString stringWithFormat:@"%llu", processIdentifier]);
      [call finish];
    }];
    return [call wait];
  }
  [call.helper capabilitiesWithReply:call.dataReply];
  if (![call wait]) return NO;
  NSDictionary *capabilities = decoded(call.data);
  for (NSString *name in [capabilities.allKeys sortedArrayUsingSelector:@selector(compare:)]) {
    say([NSString stringWithFormat:@"%-18s %@", name.UTF8String, yesOrNo(capabilities[name])]);
  }
  return capabilities != nil;
}

static BOOL commandWithoutArgument(NSXPCConnection *connection, NSString *command) {
  Call *call = [[Call alloc] initWithConnection:connection];
  if ([command isEqual:@"clear-limit"]) [call.helper clearChargeLimitWithReply:call.statusReply];
  if ([command isEqual:@"cancel-top-off"]) [call.helper cancelTopUpWithReply:call.statusReply];
  if ([command isEqual:@"reset"]) [call.helper resetAllSMCKeysWithReply:call.statusReply];
  if ([command isEqual:@"top-off"]) {
    [call.helper releaseLimitUntilFullThenRestoreWithReply:call.statusReply];
  }
  return [call wait];
}

/// Quit has no reply; the end of the connection proves that the helper has gone.
static BOOL quitHelper(NSXPCConnection *connection) {
  Call *call = [[Call alloc] initWithConnection:connection];
  connection.interruptionHandler = ^{
    [call finish];
  };
  [call.helper quit];
  return [call wait];
}

static BOOL commandWithArgument(NSXPCConnection *connection, NSString *command,
                                NSString *argument) {
  Call *call = [[Call alloc] initWithConnection:connection];
  if ([command isEqual:@"set-limit"]) {
    const NSInteger percent = argument.integerValue;
    if (percent < 0 || percent > UINT8_MAX) {
      complain(@"The limit is a percentage.");
      return NO;
    }
    [call.helper setChargeLimit:(uint8_t)percent reply:call.statusReply];
    return [call wait];
  }
  const BOOL enable = [argument isEqual:@"on"];
  if (!enable && ![argument isEqual:@"off"]) {
    complain(@"Say on or off.");
    return NO;
  }
  if ([command isEqual:@"discharge"]) {
    [call.helper forceDischarge:enable reply:call.statusReply];
  } else {
    [call.helper setClamshellKeepAwake:enable reply:call.statusReply];
  }
  return [call wait];
}

static BOOL run(NSXPCConnection *connection, NSString *command, NSString *_Nullable argument) {
  if (argument != nil) return commandWithArgument(connection, command, argument);
  if ([command isEqual:@"watch"]) return watch(connection);
  if ([command isEqual:@"quit"]) return quitHelper(connection);
  if ([@[ @"state", @"ping", @"capabilities" ] containsObject:command]) {
    return query(connection, command);
  }
  return commandWithoutArgument(connection, command);
}

int main(int argc, const char *argv[]) {
  @autoreleasepool {
    NSArray<NSString *> *plain = @[
      @"state", @"ping", @"capabilities", @"clear-limit", @"top-off", @"cancel-top-off", @"watch",
      @"reset", @"quit", @"doctor"
    ];
    NSArray<NSString *> *withArgument = @[ @"set-limit", @"discharge", @"keep-awake", @"bundle" ];
    // Commands of earlier versions, and those that took their place.
    NSDictionary<NSString *, NSString *> *former =
        @{@"limit" : @"set-limit", @"clear" : @"clear-limit", @"cancel" : @"cancel-top-off"};
    NSString *command = argc > 1 ? @(argv[1]) : @"";
    const BOOL known = (argc == 2 && [plain containsObject:command]) ||
                       (argc == 3 && [withArgument containsObject:command]);
    if (former[command] != nil) {
      complain([NSString stringWithFormat:@"\"%@\" is now \"%@\".", command, former[command]]);
      return 2;
    }
    if (!known) {
      const BOOL version = [command isEqual:@"--version"];
      const BOOL asked = version || [@[ @"-h", @"--help" ] containsObject:command];
      asked ? say(version ? built : usage) : complain(usage);
      return asked ? 0 : 2;
    }
    NSXPCConnection *connection = connectToHelper();
    if ([command isEqual:@"doctor"]) return korvelDoctor(connection, ownTeam()) ? 0 : 1;
    if ([command isEqual:@"bundle"]) return korvelBundle(connection, @(argv[2])) ? 0 : 1;
    if (connection == nil) return 1;
    return run(connection, command, argc == 3 ? @(argv[2]) : nil) ? 0 : 1;
  }
}
