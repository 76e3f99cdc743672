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

SigningIdentity developerID(std::string name, std::string identifier, std::string team) {
  SigningIdentity made;
  made.name = std::move(name);
  made.anchorAppleGeneric = true;
  made.identifier = std::move(identifier);
  made.team = std::move(team);
  made.leafExtensions = {developerIDExtension};
  return made;
}

std::vector<SigningIdentity> builtInIdentities() {
  const std::string team(virtualTeam);
  SigningIdentity development = developerID("development", appIdentifier, team);
  development.leafExtensions = {developmentExtension};
  SigningIdentity adHoc;
  adHoc.name = "ad-hoc";
  adHoc.identifier = appIdentifier;
  SigningIdentity unsignedCode;
  unsignedCode.name = "unsigned";
  unsignedCode.isSigned = false;
  SigningIdentity apple;
  apple.name = "apple";
  apple.anchorApple = true;
  apple.anchorAppleGeneric = true;
  apple.identifier = "com.apple.powerd";
  return {developerID("app", appIdentifier, team),
          developerID("helper", helperIdentifier, team),
          developerID("other-identifier", "com.example.tool", team),
          developerID("other-team", appIdentifier, foreignTeam),
          std::move(development),
          std::move(adHoc),
          std::move(unsignedCode),
          std::move(apple)};
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

korvel::SecurityStatus CodeSigningClient::staticCodeCreateWithPath(std::string_view path,
                                                                   korvel::HandleRef& code) {
  const SigningIdentity* found = signatures.atPath(path);
  if (found == nullptr) return securityFileNotFound;
  code = objects.insert(*found);
  return 0;
}

korvel::SecurityStatus CodeSigningClient::copyGuestWithPid(std::int32_t pid,
                                                           korvel::HandleRef& code) {
  const SigningIdentity* found = signatures.ofPid(pid);
  if (found == nullptr) return securityNoSuchCode;
  code = objects.insert(*found);
  return 0;
}

korvel::SecurityStatus CodeSigningClient::copyStaticCode(korvel::HandleRef code,
                                                         korvel::HandleRef& staticCode) {
  const SigningIdentity* found = objects.find(code);
  if (found == nullptr) return securityInvalidObject;
  staticCode = objects.insert(*found);
  return 0;
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
