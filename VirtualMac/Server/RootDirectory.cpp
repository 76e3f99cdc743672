#include "VirtualMac/Server/RootDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace virtualmac {

namespace {

constexpr mode_t ownerOnly = S_IRWXU;
constexpr mode_t others = S_IRWXG | S_IRWXO;

/// Empty: the variable is empty or not set.
std::string environmentText(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* text = std::getenv(name);
  return text == nullptr ? std::string() : std::string(text);
}

std::string reasonFor(const std::string& path) {
  return path + ": " + std::system_category().message(errno);
}

/// Only a directory that was a machine's before, or is empty, may be closed: to close somebody's
/// home would surprise them. One with the sticky bit is shared on purpose, and never closed.
bool mayBeClosed(const RootDirectory& root, mode_t mode) {
  if ((mode & S_ISVTX) != 0) return false;
  std::error_code error;
  const bool wasMachines = std::filesystem::exists(root.journal(), error);
  return wasMachines || std::filesystem::is_empty(root.path, error);
}

}  // namespace

RootDirectory RootDirectory::at(const std::string& given) {
  const std::string variable = given.empty() ? environmentText("VIRTUAL_MAC_ROOT") : "";
  std::filesystem::path path(given.empty() ? variable : given);
  const bool isDefault = path.empty();
  if (isDefault) {
    const std::string runtime = environmentText("XDG_RUNTIME_DIR");
    path = runtime.empty() ? std::filesystem::path("/tmp/virtual-mac-" + std::to_string(::getuid()))
                           : std::filesystem::path(runtime) / "virtual-mac";
  }
  path = std::filesystem::absolute(path).lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  return {path.string(), isDefault, !variable.empty()};
}

std::optional<std::string> RootDirectory::distrust() const {
  struct stat facts{};
  // The link itself is looked at, and not the directory that it leads to.
  if (!isDefault || ::lstat(path.c_str(), &facts) != 0) return std::nullopt;
  const std::string elsewhere = ", or name another directory with --root";
  if (S_ISLNK(facts.st_mode)) return path + " is a link; remove it" + elsewhere;
  if (!S_ISDIR(facts.st_mode)) return path + " is no directory; remove it" + elsewhere;
  if (facts.st_uid != ::geteuid())
    return path + " belongs to another user; have it removed" + elsewhere;
  if ((facts.st_mode & others) != 0)
    return path + " is open to others; close it with chmod 700" + elsewhere;
  return std::nullopt;
}

std::expected<std::string, std::string> RootDirectory::make() const {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  if (::mkdir(path.c_str(), ownerOnly) == 0) return "";
  if (errno != EEXIST) return std::unexpected(reasonFor(path) + origin());
  if (auto problem = distrust()) return std::unexpected(*std::move(problem));
  struct stat facts{};
  if (::stat(path.c_str(), &facts) != 0) return std::unexpected(reasonFor(path) + origin());
  if (!S_ISDIR(facts.st_mode)) return std::unexpected(path + " is no directory" + origin());
  // A named directory of another user is theirs to open and close.
  if (facts.st_uid != ::geteuid() || (facts.st_mode & others) == 0) return "";
  if (!mayBeClosed(*this, facts.st_mode))
    return std::unexpected(path +
                           " is open to others and holds other things than a virtual Mac; "
                           "name a directory of the machine's own" +
                           origin());
  if (::chmod(path.c_str(), ownerOnly) != 0) return std::unexpected(reasonFor(path) + origin());
  return path + " was open to others; now it is open to its owner only";
}

}  // namespace virtualmac
