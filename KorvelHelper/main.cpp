// The entry: wiring, signals, and the admission of clients. The work itself is HelperImpl's.

#include <source_location>
#include <utility>

#include "Base/Annotations.h"
#include "Base/Lock.h"
#include "HelperEntry.h"
#include "HelperImpl.h"
#include "KorvelHelperProtocol.h"
#include "Platform/Dispatch.h"
#include "Platform/Process.h"
#include "ScopedCode.h"

namespace korvel {

namespace {

constexpr const char* fileID = "KorvelHelper/main.cpp";

/// Runs `handler` for a signal, in the place of its default action.
std::unique_ptr<SignalSource> listenFor(int signalNumber, Dispatch& dispatch,
                                        std::function<void()> handler) {
  auto source = dispatch.makeSignalSource(signalNumber);
  source->setEventHandler(std::move(handler));
  source->resume();
  // Comes last, so that either the default action or the source takes the signal at any moment.
  dispatch.ignoreDefaultAction(signalNumber);
  return source;
}

/// Counts one accepted connection in and out.
///
/// The handlers run on the connection's own threads from the moment they are set, so the end may
/// arrive before the beginning. Then it waits: the core sees every client come first and go once.
class CountedConnection {
 public:
  CountedConnection(Dispatch& dispatch, std::shared_ptr<HelperImpl> sharedCore)
      : core(std::move(sharedCore)), connectionLock(dispatch.makeLock("connectionLock")) {}

  /// The acceptance is complete. Once.
  void begin() EXCLUDES(connectionLock) {
    // The core is told first, so that no end overtakes it, and without the lock, so that no lock
    // of the core's is taken under this one.
    core->clientDidConnect();
    {
      const ScopedLock held(connectionLock);
      begun = true;
      if (!over) return;
    }
    core->clientDidDisconnect();
  }

  /// The connection is over.
  void end() EXCLUDES(connectionLock) {
    {
      const ScopedLock held(connectionLock);
      const bool again = std::exchange(over, true);
      if (again || !begun) return;
    }
    core->clientDidDisconnect();
  }

 private:
  const std::shared_ptr<HelperImpl> core;
  Lock connectionLock;
  bool begun GUARDED_BY(connectionLock) = false;
  bool over GUARDED_BY(connectionLock) = false;
};

}  // namespace

int runHelper(Platform& platform) {
  const Logger bootLog(platform.log, "Boot");
  const std::string teamID = bundleTeamIdentifier(platform);
  bootLog.log("KorvelHelper starting pid=%{public}d team=%{public}s", platform.process.getpid(),
              teamID.c_str());
  const std::shared_ptr<HelperImpl> core = HelperImpl::create(platform);

  const auto listener = platform.xpc.makeListener(KorvelHelperMachServiceName);
  const auto delegate = std::make_shared<HelperListenerDelegate>(platform, core, teamID);
  listener->setDelegate(delegate);
  listener->resume();

  const auto sigtermSource = listenFor(signalTerminate, platform.dispatch, [bootLog, core] {
    bootLog.log("SIGTERM — shutting down gracefully");
    core->shutdownGracefully();
  });
  const auto sigintSource = listenFor(signalInterrupt, platform.dispatch, [bootLog, core] {
    bootLog.log("SIGINT — shutting down gracefully");
    core->shutdownGracefully();
  });
  platform.dispatch.runMainLoop();
  return 0;
}

std::string bundleTeamIdentifier(Platform& platform) {
  const std::optional<std::string> path = platform.process.bundleExecutablePath();
  if (!path) return {};
  ScopedCode program(platform.codeSigning);
  if (platform.codeSigning.staticCodeCreateWithPath(*path, program.slot()) != 0 || !program) {
    return {};
  }
  return textOrEmpty(
      signingInformation(platform.codeSigning, program.get())[codeInfoTeamIdentifierKey]);
}

std::string strictRequirement(std::string_view identifier, std::string_view team) {
  return std::string("anchor apple generic and identifier \"")
      .append(identifier)
      .append("\" and certificate leaf[subject.OU] = \"")
      .append(team)
      .append("\" and certificate leaf[field.1.2.840.113635.100.6.1.13] exists");
}

HelperListenerDelegate::HelperListenerDelegate(Platform& platform,
                                               std::shared_ptr<HelperImpl> sharedCore,
                                               std::string team)
    : log(platform.log, "Listener"),
      dispatch(platform.dispatch),
      core(std::move(sharedCore)),
      teamIdentifier(std::move(team)) {}

bool HelperListenerDelegate::shouldAcceptNewConnection(XPCConnection& connection) {
  XPCInterface interface = makeHelperInterface();
  applyTypedReplyClasses(interface);
  connection.setExportedInterface(interface);
  connection.setExportedObject(core);
  if (teamIdentifier.empty()) {
    log.fault("Release build with unreadable Team ID — refusing XPC connection");
    return false;
  }
  // A text that does not parse protects nothing, so such a connection is not taken.
  if (!connection.setCodeSigningRequirement(
          strictRequirement(KorvelAppBundleIdentifier, teamIdentifier))) {
    log.fault("code-signing requirement does not parse — refusing XPC connection");
    return false;
  }
  const auto counted = std::make_shared<CountedConnection>(dispatch, core);
  connection.setInvalidationHandler([weak = weak_from_this(), counted] {
    const long line = std::source_location::current().line();
    if (const auto self = weak.lock()) {
      self->log.log("connection invalidated #fileID=%{public}s line=%{public}ld", fileID, line);
    }
    counted->end();
  });
  connection.setInterruptionHandler([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->log.log("connection interrupted");
  });
  connection.resume();
  log.log("accepted XPC connection (requirement set, team=%{public}s)", teamIdentifier.c_str());
  counted->begin();
  return true;
}

}  // namespace korvel
