#include "VirtualMac/Machine/CodeSignatures.h"

#include <utility>

namespace virtualmac {

namespace {

/// The leaf extension that only Developer ID Application certificates carry, and the one of
/// development certificates.
constexpr const char* developerIDExtension = "1.2.840.113635.100.6.1.13";
constexpr const char* developmentExtension = "1.2.840.113635.100.6.1.12";
constexpr const char* appIdentifier = "com.korvel.app";
constexpr const char* helperIdentifier = "com.korvel.app.helper";
constexpr const char* foreignTeam = "ZYXWV98765";

std::vector<SigningIdentity> builtInIdentities() {
  const auto signedByTeam = [](std::string name, std::string identifier, std::string_view team,
                               const char* extension = developerIDExtension) {
    return SigningIdentity{.name = std::move(name),
                           .anchorAppleGeneric = true,
                           .identifier = std::move(identifier),
                           .team = std::string(team),
                           .leafExtensions = {extension}};
  };
  return {signedByTeam("app", appIdentifier, virtualTeam),
          signedByTeam("helper", helperIdentifier, virtualTeam),
          signedByTeam("other-identifier", "com.example.tool", virtualTeam),
          signedByTeam("other-team", appIdentifier, foreignTeam),
          signedByTeam("development", appIdentifier, virtualTeam, developmentExtension),
          {.name = "ad-hoc", .identifier = appIdentifier},
          {.name = "unsigned", .isSigned = false},
          {.name = "apple",
           .anchorApple = true,
           .anchorAppleGeneric = true,
           .identifier = "com.apple.powerd"}};
}

}  // namespace

CodeSignatures::CodeSignatures(const std::vector<SigningIdentity>& additional) {
  for (SigningIdentity& each : builtInIdentities()) define(std::move(each));
  for (const SigningIdentity& each : additional) define(each);
  setPath(helperProgramPath, "helper");
}

const SigningIdentity* CodeSignatures::identity(std::string_view name) const {
  const auto found = identities.find(name);
  return found == identities.end() ? nullptr : &found->second;
}

std::vector<std::string> CodeSignatures::names() const {
  std::vector<std::string> all;
  all.reserve(identities.size());
  for (const auto& [name, each] : identities) all.push_back(name);
  return all;
}

void CodeSignatures::define(SigningIdentity identity) {
  std::string name = identity.name;
  identities.insert_or_assign(std::move(name), std::move(identity));
}

bool CodeSignatures::setPath(std::string_view path, std::string_view identityName) {
  if (identity(identityName) == nullptr) return false;
  paths.insert_or_assign(std::string(path), std::string(identityName));
  return true;
}

bool CodeSignatures::setPid(std::int32_t pid, std::string_view identityName) {
  if (identity(identityName) == nullptr) return false;
  pids.insert_or_assign(pid, std::string(identityName));
  return true;
}

void CodeSignatures::removePid(std::int32_t pid) { pids.erase(pid); }

const SigningIdentity* CodeSignatures::atPath(std::string_view path) const {
  const auto found = paths.find(path);
  return found == paths.end() ? nullptr : identity(found->second);
}

const SigningIdentity* CodeSignatures::ofPid(std::int32_t pid) const {
  const auto found = pids.find(pid);
  return found == pids.end() ? nullptr : identity(found->second);
}

korvel::SecurityStatus CodeSigningClient::open(const SigningIdentity* found,
                                               korvel::SecurityStatus missing,
                                               korvel::HandleRef& code) {
  if (found == nullptr) return missing;
  code = objects.insert(*found);
  return 0;
}

korvel::SecurityStatus CodeSigningClient::staticCodeCreateWithPath(std::string_view path,
                                                                   korvel::HandleRef& code) {
  return open(signatures.atPath(path), securityFileNotFound, code);
}

korvel::SecurityStatus CodeSigningClient::copyGuestWithPid(std::int32_t pid,
                                                           korvel::HandleRef& code) {
  return open(signatures.ofPid(pid), securityNoSuchCode, code);
}

korvel::SecurityStatus CodeSigningClient::copyStaticCode(korvel::HandleRef code,
                                                         korvel::HandleRef& staticCode) {
  return open(objects.find(code), securityInvalidObject, staticCode);
}

korvel::SecurityStatus CodeSigningClient::copySigningInformation(
    korvel::HandleRef staticCode, std::uint32_t flags, korvel::PropertyValue& information) {
  const SigningIdentity* found = objects.find(staticCode);
  if (found == nullptr) return securityInvalidObject;
  korvel::PropertyValue::Dictionary entries;
  entries["main-executable"] = "program";
  if (found->isSigned) {
    entries[std::string(korvel::codeInfoIdentifierKey)] = found->identifier;
    entries["unique"] = korvel::PropertyValue::Data{0xca, 0xfe};
    const bool withDetails = (flags & korvel::codeSigningInformationFlag) != 0;
    if (withDetails && !found->team.empty()) {
      entries[std::string(korvel::codeInfoTeamIdentifierKey)] = found->team;
    }
  }
  information = std::move(entries);
  return 0;
}

void CodeSigningClient::release(korvel::HandleRef code) { objects.erase(code); }

}  // namespace virtualmac
