#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "Base/PropertyValue.h"
#include "Platform/CodeSigning.h"
#include "VirtualMac/Machine/NameTable.h"
#include "VirtualMac/Machine/Profile.h"

namespace virtualmac {

inline constexpr korvel::SecurityStatus securityNoSuchCode = 100003;  ///< ESRCH
inline constexpr korvel::SecurityStatus securityFileNotFound = -67068;
inline constexpr korvel::SecurityStatus securityInvalidObject = -67071;

/// The team that signs the helper and the application of the built-in identities.
inline constexpr std::string_view virtualTeam = "ABCDE12345";
/// The path of the virtual helper's program.
inline constexpr std::string_view helperProgramPath =
    "/Applications/Korvel.app/Contents/MacOS/KorvelHelper";

/// The signing identities by name, and the identity of each program, by path and by pid.
/// Built in: "app", "helper", "other-identifier", "other-team", "development" (no Developer ID leaf
/// extension), "ad-hoc", "unsigned", "apple" (Apple's own).
///
/// Fault model. A pid can be unknown or gone; a path can hold nothing; a program can be unsigned
/// (which succeeds, with a dictionary that lacks identifier and team) or signed without a team; the
/// helper's own identity can be replaced. Not modelled: broken seals, expired certificates.
class CodeSignatures {
 public:
  explicit CodeSignatures(const std::vector<SigningIdentity>& additional);

  /// Null: no identity of that name.
  [[nodiscard]] const SigningIdentity* identity(std::string_view name) const;
  [[nodiscard]] std::vector<std::string> names() const;
  void define(SigningIdentity identity);

  /// False: no identity of that name.
  bool setPath(std::string_view path, std::string_view identityName);
  bool setPid(std::int32_t pid, std::string_view identityName);
  void removePid(std::int32_t pid);
  /// Null: no known program is there.
  [[nodiscard]] const SigningIdentity* atPath(std::string_view path) const;
  [[nodiscard]] const SigningIdentity* ofPid(std::int32_t pid) const;

 private:
  std::map<std::string, SigningIdentity, std::less<>> identities;
  std::map<std::string, std::string, std::less<>> paths;
  std::map<std::int32_t, std::string> pids;
};

/// The seam's code signing calls as one process makes them, with its code objects.
class CodeSigningClient final : public korvel::CodeSigning {
 public:
  explicit CodeSigningClient(const CodeSignatures& known) : signatures(known) {}

  korvel::SecurityStatus staticCodeCreateWithPath(std::string_view path,
                                                  korvel::HandleRef& code) override;
  korvel::SecurityStatus copyGuestWithPid(std::int32_t pid, korvel::HandleRef& code) override;
  korvel::SecurityStatus copyStaticCode(korvel::HandleRef code,
                                        korvel::HandleRef& staticCode) override;
  korvel::SecurityStatus copySigningInformation(korvel::HandleRef staticCode, std::uint32_t flags,
                                                korvel::PropertyValue& information) override;
  void release(korvel::HandleRef code) override;

  [[nodiscard]] std::size_t liveObjects() const { return objects.size(); }
  void dropAll() { objects.clear(); }

 private:
  korvel::SecurityStatus open(const SigningIdentity* found, korvel::SecurityStatus missing,
                              korvel::HandleRef& code);

  const CodeSignatures& signatures;
  NameTable<SigningIdentity> objects{0x13};
};

}  // namespace virtualmac
