// A client can say much of the helper without a privilege: the signature of the program and the
// job's property list tell what is installed, and the answers how it is.

#import "korvel-doctor.h"

#import <Security/Security.h>
#include <fcntl.h>
#include <unistd.h>

@import KorvelHelperXPC;

static const int64_t answerSeconds = 5;
static NSString *const program = @"/Library/PrivilegedHelperTools/" KORVEL_HELPER_BUNDLE_IDENTIFIER;
static NSString *const job = @"/Library/LaunchDaemons/" KORVEL_HELPER_BUNDLE_IDENTIFIER ".plist";

typedef NS_ENUM(NSUInteger, DoctorState) {
#define DOCTOR_STATE(id, name, sentence, remedy) id,
#include "VirtualMac/Tools/DoctorStates.def"
#undef DOCTOR_STATE
};

static const struct {
  const char *name, *sentence, *remedy;
} words[] = {
#define DOCTOR_STATE(id, name, sentence, remedy) {name, sentence, remedy},
#include "VirtualMac/Tools/DoctorStates.def"
#undef DOCTOR_STATE
};

static void print(NSString *text) {
  [NSFileHandle.fileHandleWithStandardOutput
      writeData:[[text stringByAppendingString:@"\n"] dataUsingEncoding:NSUTF8StringEncoding]];
}

static NSString *filled(const char *text, NSString *found) {
  return [@(text) stringByReplacingOccurrencesOfString:@"{}" withString:found];
}

/// Prints the state; true where it is the good one.
static BOOL tell(DoctorState state, NSString *found, NSString *remedy) {
  NSString *line = [NSString
      stringWithFormat:@"%s: %@", words[state].name, filled(words[state].sentence, found)];
  if (state != inOrder) {
    line = [line stringByAppendingFormat:@". What to do: %@", filled(words[state].remedy, remedy)];
  }
  print(line);
  return state == inOrder;
}

static BOOL isReadable(NSString *path) {
  const int file = open(path.UTF8String, O_RDONLY);
  if (file >= 0) close(file);
  return file >= 0;
}

/// The first of the two places where a helper's file may be; nil: neither is there. The second is
/// relative to this program, as in the application's bundle.
static NSString *_Nullable present(NSString *path, NSString *inBundle) {
  if (isReadable(path)) return path;
  NSString *own = NSBundle.mainBundle.executablePath;
  const NSRange slash = [own rangeOfString:@"/" options:NSBackwardsSearch];
  if (own == nil || slash.location == NSNotFound) return nil;
  NSString *beside = [[own substringToIndex:slash.location + 1] stringByAppendingString:inBundle];
  return isReadable(beside) ? beside : nil;
}

static NSString *_Nullable installedProgram(void) { return present(program, @"KorvelHelper"); }

/// Returns what the signature of the installed program says; nil: it has none, or cannot be read.
static NSDictionary *_Nullable signatureOf(NSString *path) {
  const char *bytes = path.UTF8String;
  CFURLRef url = CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault, (const UInt8 *)bytes,
                                                         (CFIndex)strlen(bytes), false);
  SecStaticCodeRef code = NULL;
  CFDictionaryRef information = NULL;
  if (SecStaticCodeCreateWithPath(url, kSecCSDefaultFlags, &code) == errSecSuccess) {
    SecCodeCopySigningInformation(code, kSecCSSigningInformation, &information);
  }
  if (code != NULL) CFRelease(code);
  CFRelease(url);
  return CFBridgingRelease(information);
}

/// The version in the property list that is embedded in the program.
static NSString *_Nullable versionIn(NSDictionary *_Nullable signature) {
  NSDictionary *list = signature[(__bridge NSString *)kSecCodeInfoPList];
  return [list isKindOfClass:[NSDictionary class]] ? list[@"CFBundleShortVersionString"] : nil;
}

NSString *_Nullable korvelInstalledVersion(void) {
  NSString *path = installedProgram();
  return path == nil ? nil : versionIn(signatureOf(path));
}

NSDictionary *_Nullable korvelAnswer(NSXPCConnection *connection, BOOL isState,
                                     NSError *_Nullable *_Nonnull failure) {
  dispatch_semaphore_t answered = dispatch_semaphore_create(0);
  __block NSData *payload = nil;
  __block NSError *problem = nil;
  id<KorvelHelperProtocol> helper =
      [connection remoteObjectProxyWithErrorHandler:^(NSError *error) {
        problem = error;
        dispatch_semaphore_signal(answered);
      }];
  void (^reply)(NSData *) = ^(NSData *json) {
    payload = json;
    dispatch_semaphore_signal(answered);
  };
  isState ? [helper getStateWithReply:reply] : [helper capabilitiesWithReply:reply];
  const dispatch_time_t deadline =
      dispatch_time(DISPATCH_TIME_NOW, answerSeconds * (int64_t)NSEC_PER_SEC);
  *failure = nil;
  if (dispatch_semaphore_wait(answered, deadline) != 0) return nil;
  *failure = problem;
  if (payload == nil) return nil;
  id object = [NSJSONSerialization JSONObjectWithData:payload options:0 error:NULL];
  return [object isKindOfClass:[NSDictionary class]] ? object : nil;
}

/// Tells why the helper gave nothing. The codes are those of NSXPCConnection.
static BOOL tellFailure(NSError *_Nullable failure) {
  if (failure == nil) return tell(noAnswer, @"no reply in time", @"");
  NSString *text =
      [NSString stringWithFormat:@"%@ (%ld)", failure.localizedDescription, (long)failure.code];
  if (failure.code == NSXPCConnectionCodeSigningRequirementFailure) {
    return tell(refused, text, @"");
  }
  if (failure.code == NSXPCConnectionInvalid) return tell(notApproved, text, @"");
  if (failure.code == NSXPCConnectionInterrupted) return tell(notStarted, text, @"");
  return tell(noAnswer, text, @"");
}

static BOOL controlsCharging(NSDictionary *capabilities) {
  return [capabilities[@"tahoeCharging"] boolValue] ||
         [capabilities[@"preTahoeCharging"] boolValue] ||
         [capabilities[@"nativeCharging"] boolValue];
}

BOOL korvelDoctor(NSXPCConnection *_Nullable connection, NSString *_Nullable ownTeam) {
  NSString *path = installedProgram();
  if (path == nil) return tell(notRegistered, @"", @"");
  NSDictionary *signature = signatureOf(path);
  NSString *team = signature[(__bridge NSString *)kSecCodeInfoTeamIdentifier];
  if (team == nil) return tell(noTeam, @"", @"");
  if (connection == nil || ![team isEqual:ownTeam]) return tell(refused, @"", @"");
  if (present(job, @"../Library/LaunchDaemons/" KORVEL_HELPER_BUNDLE_IDENTIFIER ".plist") == nil) {
    return tell(notRegistered, @"", @"");
  }
  NSError *failure = nil;
  NSDictionary *capabilities = korvelAnswer(connection, NO, &failure);
  NSDictionary *state = capabilities == nil ? nil : korvelAnswer(connection, YES, &failure);
  if (state == nil) return tellFailure(failure);
  NSString *installed = versionIn(signature);
  NSString *running = state[@"helperVersion"];
  if (installed != nil && ![installed isEqual:running]) {
    return tell(
        otherVersion,
        [NSString stringWithFormat:@"helper %@ runs, and %@ is installed",
                                   running == nil ? @"of an unknown version" : running, installed],
        @"");
  }
  if (!controlsCharging(capabilities)) return tell(noCapability, @"", @"");
  if (![state[@"lastWriteVerified"] boolValue]) {
    return tell(
        notApplied, @"the last write did not take hold",
        @"Find the last error or fault in the helper's log; docs/log-messages.md explains it.");
  }
  return tell(
      inOrder,
      [NSString stringWithFormat:@"limit %@ %%, the last write took hold", state[@"chargeLimit"]],
      @"");
}
