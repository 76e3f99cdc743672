// A client of the helper in Swift: shows the state with its banner, and sets a limit.
//
// Built on a Mac with
//   swiftc -target arm64-apple-macos14.0 -I KorvelHelper/macOS/KorvelHelperXPC \
//     Packaging/samples/swift/main.swift -o korvel-swift-client
// and signed with the identifier com.korvel.app and a Developer ID certificate of the helper's team.
// Like the helper, it names the team of its own signature in the requirement it makes.

import Foundation
import KorvelHelperXPC
import Security

// docs/client.md shows this as "The record".

/// The helper's state as it replies it. Dates are seconds since 2001, the decoder's own default.
struct HelperState: Decodable, Equatable {
  var chargeLimit: Int
  var sailingBand: Int
  var forceDischargeActive: Bool
  var heatPauseActive: Bool
  var lastWriteAt: Date
  var lastWriteVerified: Bool
  var lastDischargeAbortReason: String?
  var lastDischargeAbortAt: Date?
  var topUpActive: Bool
  var sleepDisabledByKorvel: Bool
  var helperVersion: String?
}

// docs/client.md shows up to here.

enum ClientError: Error, CustomStringConvertible {
  case unsigned
  case unreadableState
  case shuttingDown

  var description: String {
    switch self {
    case .unsigned: return "this program is signed without a team; the helper would not listen to it"
    case .unreadableState: return "the helper's state could not be read"
    case .shuttingDown: return "the helper is shutting down"
    }
  }
}

// docs/client.md shows this as "Connecting".

func ownTeam() throws -> String {
  var code: SecCode?
  var staticCode: SecStaticCode?
  var information: CFDictionary?
  guard SecCodeCopySelf([], &code) == errSecSuccess, let code,
    SecCodeCopyStaticCode(code, [], &staticCode) == errSecSuccess, let staticCode,
    SecCodeCopySigningInformation(
      staticCode, SecCSFlags(rawValue: kSecCSSigningInformation), &information) == errSecSuccess,
    let values = information as? [String: Any],
    let team = values[kSecCodeInfoTeamIdentifier as String] as? String
  else { throw ClientError.unsigned }
  return team
}

func connectToHelper() throws -> NSXPCConnection {
  let team = try ownTeam()
  let connection = NSXPCConnection(
    machServiceName: KORVEL_HELPER_MACH_SERVICE_NAME, options: .privileged)
  connection.remoteObjectInterface = NSXPCInterface(with: KorvelHelperProtocol.self)
  connection.setCodeSigningRequirement(
    "anchor apple generic and identifier \"\(KORVEL_HELPER_BUNDLE_IDENTIFIER)\""
      + " and certificate leaf[subject.OU] = \"\(team)\""
      + " and certificate leaf[field.1.2.840.113635.100.6.1.13] exists")
  connection.resume()
  return connection
}

// docs/client.md shows up to here.

// docs/client.md shows this as "Asking".

/// Waits for a call's outcome. Either the reply or the connection's error resumes it; the lock
/// ensures that only the first of them does.
final class Waiter<Value: Sendable>: @unchecked Sendable {
  private let lock = NSLock()
  private var waiting: CheckedContinuation<Value, Error>?

  init(_ continuation: CheckedContinuation<Value, Error>) { waiting = continuation }

  func finish(_ result: Result<Value, Error>) {
    lock.lock()
    let first = waiting
    waiting = nil
    lock.unlock()
    first?.resume(with: result)
  }
}

func call<Value: Sendable>(
  _ connection: NSXPCConnection, _ send: (KorvelHelperProtocol, Waiter<Value>) -> Void
) async throws -> Value {
  try await withCheckedThrowingContinuation { continuation in
    let waiter = Waiter<Value>(continuation)
    let proxy = connection.remoteObjectProxyWithErrorHandler { waiter.finish(.failure($0)) }
    send(proxy as! KorvelHelperProtocol, waiter)
  }
}

func fetchState(_ connection: NSXPCConnection) async throws -> HelperState {
  let json: Data = try await call(connection) { helper, waiter in
    helper.getState { waiter.finish(.success($0)) }
  }
  guard let state = try? JSONDecoder().decode(HelperState.self, from: json) else {
    throw ClientError.unreadableState
  }
  return state
}

// docs/client.md shows up to here.

func setLimit(_ connection: NSXPCConnection, to percent: UInt8) async throws {
  let done: Bool = try await call(connection) { helper, waiter in
    helper.setChargeLimit(percent) { success, error in
      if let error { waiter.finish(.failure(error)) } else { waiter.finish(.success(success)) }
    }
  }
  // The call neither succeeded nor failed: the helper has no core left to run it.
  if !done { throw ClientError.shuttingDown }
}

func show(_ state: HelperState) {
  print("limit            \(state.chargeLimit) % (band \(state.sailingBand) %)")
  print("discharging      \(state.forceDischargeActive ? "yes" : "no")")
  print("topping off      \(state.topUpActive ? "yes" : "no")")
  print("sleep disabled   \(state.sleepDisabledByKorvel ? "yes" : "no")")
  let written = state.lastWriteAt == .distantPast ? "never" : state.lastWriteAt.formatted()
  print("last write       \(written), \(state.lastWriteVerified ? "verified" : "NOT verified")")
  print("helper version   \(state.helperVersion ?? "unknown")")
  if let banner = state.lastDischargeAbortReason {
    print("banner           \(banner) (\(state.lastDischargeAbortAt?.formatted() ?? "no date"))")
  }
}

let arguments = CommandLine.arguments.dropFirst()
let limit = arguments.first.flatMap { UInt8($0) }
guard arguments.isEmpty || (arguments.count == 1 && limit != nil) else {
  print("usage: korvel-swift-client [PERCENT]")
  exit(2)
}
do {
  let connection = try connectToHelper()
  if let limit { try await setLimit(connection, to: limit) }
  show(try await fetchState(connection))
} catch {
  FileHandle.standardError.write(Data("\(error)\n".utf8))
  exit(1)
}
