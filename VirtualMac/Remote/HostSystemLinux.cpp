#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <system_error>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac::hostsystem {

int unixSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool unixSocketPair(std::array<int, 2>& ends) {
  return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0;
}

bool pipe(std::array<int, 2>& ends) { return ::pipe2(ends.data(), O_CLOEXEC) == 0; }

void closeOnExec(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFD);
  if (flags >= 0) ::fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
}

void closeFrom(int first) { ::close_range(static_cast<unsigned>(first), ~0U, 0); }

short closeFromAtSpawn(posix_spawn_file_actions_t& files, int first) {
  ::posix_spawn_file_actions_addclosefrom_np(&files, first);
  return 0;
}

std::int32_t peerProcess(int socket) {
  ucred credentials{};
  socklen_t size = sizeof credentials;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return 0;
  return credentials.pid;
}

void nameThisThread(const std::string& name) {
  // The kernel keeps 15 characters, and the end of a dotted name tells most.
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

std::optional<ProcessFacts> factsOf(pid_t process) {
  const std::string directory = "/proc/" + std::to_string(process);
  std::ifstream status(directory + "/status");
  ProcessFacts facts;
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmRSS:")) facts.residentKilobytes = std::stol(line.substr(6));
    if (line.starts_with("Threads:")) facts.threads = std::stoi(line.substr(8));
  }
  std::error_code error;
  std::filesystem::directory_iterator descriptor(directory + "/fd", error);
  for (; !error && descriptor != std::filesystem::directory_iterator(); descriptor.increment(error))
    ++facts.descriptors;
  if (facts.threads == 0 || error) return std::nullopt;
  return facts;
}

bool isAlive(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string stat;
  std::getline(file, stat);
  // The state follows the program's name, which stands in brackets.
  const std::size_t name = stat.rfind(')');
  return name != std::string::npos && name + 2 < stat.size() && stat[name + 2] != 'Z';
}

char** environment() { return environ; }

}  // namespace virtualmac::hostsystem
