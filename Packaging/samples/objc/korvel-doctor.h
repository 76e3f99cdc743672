// The client's look at the helper as a whole: one line for a person, one file for a developer.

#pragma once

#import <Foundation/Foundation.h>

NS_ASSUME_NONNULL_BEGIN

/// Names the one state that keeps the limit from being held, and its remedy, on one line. No
/// privilege is needed. Returns whether everything is in order. `connection` is nil where this
/// program has no team.
BOOL korvelDoctor(NSXPCConnection *_Nullable connection, NSString *_Nullable ownTeam);

/// Asks the helper for a payload and waits a little: its record, or what it controls. nil: it gave
/// none, and `failure` says why, or is nil as well where nobody answered in time.
NSDictionary *_Nullable korvelAnswer(NSXPCConnection *connection, BOOL isState,
                                     NSError *_Nullable *_Nonnull failure);

/// The version of the helper that is installed; nil: none is, or it does not say.
NSString *_Nullable korvelInstalledVersion(void);

/// Writes all that can be known of the helper into a JSON file. Returns whether that could be done.
BOOL korvelBundle(NSXPCConnection *_Nullable connection, NSString *file);

NS_ASSUME_NONNULL_END
