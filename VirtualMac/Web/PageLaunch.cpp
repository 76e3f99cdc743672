#include "VirtualMac/Web/PageLaunch.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "VirtualMac/Remote/HostSystem.h"
#include "VirtualMac/Server/ProgramBeside.h"
#include "VirtualMac/Web/PagePlace.h"

namespace virtualmac {

namespace {

/// A page that has lost its machine is gone by then.
constexpr double longestEndSeconds = 10;

}  // namespace

std::expected<ComingPage, std::string> preparePage(const RootDirectory& root, int port) {
  const std::string program = programBeside(pageProgramName);
  if (::access(program.c_str(), X_OK) != 0)
    return std::unexpected("the page's program is missing: there is no " + program);
  auto claim = claimPage(root, longestEndSeconds);
  if (!claim) return std::unexpected(claim.error());
  auto place = openPagePlace(port);
  if (!place) return std::unexpected(place.error());
  const auto token = pageToken(root);
  if (!token) return std::unexpected(token.error());
  return ComingPage{std::move(place->socket), *std::move(claim), place->port,
                    pageLink(place->port, *token)};
}

std::expected<pid_t, std::string> startPage(const RootDirectory& root, ComingPage& page) {
  const std::string program = programBeside(pageProgramName);
  // Copies beyond the numbers that the program knows: no move there overwrites the other's source.
  constexpr int firstNotGiven = pageClaimNumber + 1;
  const Descriptor socket(::fcntl(page.socket.get(), F_DUPFD_CLOEXEC, firstNotGiven));
  const Descriptor claim(::fcntl(page.claim.get(), F_DUPFD_CLOEXEC, firstNotGiven));
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_adddup2(&files, socket.get(), pageSocketNumber);
  ::posix_spawn_file_actions_adddup2(&files, claim.get(), pageClaimNumber);
  ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(&files, STDERR_FILENO, (root.path + "/page.stderr").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR);
  const short closing = hostsystem::closeFromAtSpawn(files, firstNotGiven);
  // A group of its own, because the terminal's Ctrl-C is for the machine, and the page ends with
  // it.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setsigdefault(&attributes, &all);
  ::posix_spawnattr_setflags(
      &attributes, static_cast<short>(closing | POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK |
                                      POSIX_SPAWN_SETSIGDEF));
  std::array<std::string, 3> words{program, "--root", root.path};
  std::array<char*, words.size() + 1> arguments{};
  for (std::size_t index = 0; index < words.size(); ++index) arguments[index] = words[index].data();
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, program.c_str(), &files, &attributes, arguments.data(),
                                  hostsystem::environment());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&files);
  page.socket = Descriptor();
  page.claim = Descriptor();
  if (error == 0) return pid;
  return std::unexpected(program + " cannot be started: " + std::system_category().message(error));
}

}  // namespace virtualmac
