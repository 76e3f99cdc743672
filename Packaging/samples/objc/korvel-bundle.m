// One file for somebody who was not there. It holds no more than a person may pass on: the outputs
// of the system's programs are cut down to the lines that concern the helper.

#import "korvel-doctor.h"

@import KorvelHelperXPC;

static const NSUInteger lastLogLines = 500;

static NSDictionary *unavailable(NSString *why) { return @{@"problem" : why}; }

/// Runs a program of the system for what it prints. The class is looked up by name, because not
/// every system that runs this client has it.
static NSString *_Nullable outputOf(NSArray<NSString *> *command) {
  Class taskClass = NSClassFromString(@"NSTask");
  Class pipeClass = NSClassFromString(@"NSPipe");
  if (taskClass == nil || pipeClass == nil) return nil;
  NSTask *task = [[taskClass alloc] init];
  NSPipe *pipe = [[pipeClass alloc] init];
  task.executableURL = [NSURL fileURLWithPath:command.firstObject];
  task.arguments = [command subarrayWithRange:NSMakeRange(1, command.count - 1)];
  task.standardOutput = pipe;
  task.standardError = pipe;
  if (![task launchAndReturnError:NULL]) return nil;
  NSData *said = [pipe.fileHandleForReading readDataToEndOfFile];
  [task waitUntilExit];
  return [[NSString alloc] initWithData:said encoding:NSUTF8StringEncoding];
}

/// The last lines with one of these words in them; without words, the last of all.
static id linesOf(NSArray<NSString *> *command, NSArray<NSString *> *_Nullable kept) {
  NSString *output = outputOf(command);
  if (output == nil) {
    return unavailable([command.firstObject stringByAppendingString:@" cannot be run"]);
  }
  NSMutableArray<NSString *> *lines = [NSMutableArray array];
  for (NSString *line in [output componentsSeparatedByString:@"\n"]) {
    BOOL wanted = kept.count == 0 && line.length > 0;
    for (NSString *word in kept) wanted = wanted || [line containsString:word];
    if (wanted) [lines addObject:line];
  }
  const NSUInteger most = lines.count < lastLogLines ? lines.count : lastLogLines;
  return [lines subarrayWithRange:NSMakeRange(lines.count - most, most)];
}

static NSDictionary *helperPart(NSXPCConnection *_Nullable connection) {
  if (connection == nil) return unavailable(@"this program is signed without a team");
  NSMutableDictionary *part = [NSMutableDictionary dictionary];
  for (NSString *name in @[ @"capabilities", @"state" ]) {
    NSError *failure = nil;
    id answer = korvelAnswer(connection, [name isEqual:@"state"], &failure);
    NSString *why = failure == nil ? @"no reply in time" : failure.localizedDescription;
    part[name] = answer == nil ? unavailable(why) : answer;
    if (answer == nil) break;  // A helper that never answers is not waited for a second time.
  }
  return part;
}

/// Only root may read the record; a client's user sees that it may not.
static id stateFile(void) {
  NSString *path = @"/Library/Application Support/" KORVEL_HELPER_BUNDLE_IDENTIFIER "/state.json";
  NSError *error = nil;
  NSString *text = [NSString stringWithContentsOfFile:path
                                             encoding:NSUTF8StringEncoding
                                                error:&error];
  return text == nil ? unavailable(error.localizedDescription) : text;
}

static NSMutableDictionary *gathered(NSXPCConnection *_Nullable connection) {
  NSString *predicate = @"subsystem == \"" KORVEL_HELPER_BUNDLE_IDENTIFIER "\"";
  NSMutableDictionary *bundle = [NSMutableDictionary dictionary];
  bundle[@"made"] = NSDate.date.description;
  bundle[@"system"] = linesOf(@[ @"/usr/bin/sw_vers" ], nil);
  bundle[@"stateFile"] = stateFile();
  bundle[@"log"] = linesOf(
      @[
        @"/usr/bin/log", @"show", @"--last", @"1d", @"--style", @"compact", @"--predicate",
        predicate
      ],
      nil);
  bundle[@"job"] =
      linesOf(@[ @"/bin/launchctl", @"print", @"system/" KORVEL_HELPER_BUNDLE_IDENTIFIER ],
              @[ @"state =", @"runs =", @"last exit", @"spawn type", @"Could not" ]);
  bundle[@"settings"] = linesOf(@[ @"/usr/bin/pmset", @"-g" ], @[ @"SleepDisabled", @"sleep" ]);
  bundle[@"assertions"] =
      linesOf(@[ @"/usr/bin/pmset", @"-g", @"assertions" ],
              @[ @"KorvelHelper", @"PreventSystemSleep  ", @"PreventUserIdleSystemSleep  " ]);
  bundle[@"battery"] = linesOf(@[ @"/usr/bin/pmset", @"-g", @"batt" ], @[ @"Now drawing", @"%" ]);
  bundle[@"registry"] = linesOf(@[ @"/usr/sbin/ioreg", @"-r", @"-c", @"AppleSmartBattery" ], @[
    @"\"DesignCapacity\" =", @"\"AppleRawMaxCapacity\" =", @"\"CurrentCapacity\" =",
    @"\"Temperature\" =", @"\"ExternalConnected\" =", @"\"CycleCount\" ="
  ]);
  bundle[@"helper"] = helperPart(connection);
  NSString *installed = korvelInstalledVersion();
  id running = bundle[@"helper"][@"state"][@"helperVersion"];
  bundle[@"versions"] = @{
    @"installed" : installed == nil ? [NSNull null] : installed,
    @"running" : running == nil ? [NSNull null] : running
  };
  return bundle;
}

BOOL korvelBundle(NSXPCConnection *_Nullable connection, NSString *file) {
  NSMutableDictionary *bundle = gathered(connection);
  NSData *json =
      [NSJSONSerialization dataWithJSONObject:bundle
                                      options:NSJSONWritingPrettyPrinted | NSJSONWritingSortedKeys |
                                              NSJSONWritingWithoutEscapingSlashes
                                        error:NULL];
  NSString *text = [[NSString alloc] initWithData:json encoding:NSUTF8StringEncoding];
  text = [text stringByReplacingOccurrencesOfString:@"~".stringByExpandingTildeInPath
                                         withString:@"HOME"];
  NSError *error = nil;
  const BOOL written = [text writeToFile:file
                              atomically:YES
                                encoding:NSUTF8StringEncoding
                                   error:&error];
  NSString *said =
      written
          ? [file stringByAppendingString:@" has it all; look through it before you pass it on\n"]
          : [NSString
                stringWithFormat:@"%@ cannot be written: %@\n", file, error.localizedDescription];
  [(written ? NSFileHandle.fileHandleWithStandardOutput : NSFileHandle.fileHandleWithStandardError)
      writeData:[said dataUsingEncoding:NSUTF8StringEncoding]];
  return written;
}
