#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <iterator>
#include <system_error>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac::hostsystem {

int unixSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool unixSocketPair(std::array<int, 2>& ends) {
  return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0;
}

bool pipe(std::array<int, 2>& ends) { return ::pipe2(ends.data(), O_CLOEXEC) == 0; }

std::int32_t peerProcess(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return 0;
  return credentials.pid;
}

void nameThisThread(const std::string& name) {
  // The kernel keeps 15 characters: the end of a dotted name tells most.
  constexpr std::size_t longest = 15;
  const std::string kept = name.size() > longest ? name.substr(name.size() - longest) : name;
  ::pthread_setname_np(::pthread_self(), kept.c_str());
}

std::filesystem::path ownProgram() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

std::size_t threadCount() {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                    std::filesystem::directory_iterator()));
}

char** environment() { return environ; }

}  // namespace virtualmac::hostsystem
