#include <crt_externs.h>
#include <fcntl.h>
#include <libproc.h>
#include <mach-o/dyld.h>
#include <mach/mach.h>
#include <pthread.h>
#include <sys/proc.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <system_error>
#include <vector>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac::hostsystem {

// macOS cannot set close-on-exec when it creates a descriptor. A child that another thread spawns
// in between would inherit it, but the programs spawn only from the thread that creates.
void closeOnExec(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFD);
  if (flags >= 0) ::fcntl(descriptor, F_SETFD, flags | FD_CLOEXEC);
}

int unixSocket() {
  const int made = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (made >= 0) closeOnExec(made);
  return made;
}

bool unixSocketPair(std::array<int, 2>& ends) {
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0) return false;
  for (const int end : ends) closeOnExec(end);
  return true;
}

bool pipe(std::array<int, 2>& ends) {
  if (::pipe(ends.data()) != 0) return false;
  for (const int end : ends) closeOnExec(end);
  return true;
}

void closeFrom(int first) {
  for (int each = ::getdtablesize() - 1; each >= first; --each) ::close(each);
}

// macOS has a flag for it, which closes every descriptor that no file action made or named.
short closeFromAtSpawn(posix_spawn_file_actions_t& files, int) {
  for (int each = STDIN_FILENO; each <= STDERR_FILENO; ++each) {
    if (::fcntl(each, F_GETFD) >= 0) ::posix_spawn_file_actions_addinherit_np(&files, each);
  }
  return POSIX_SPAWN_CLOEXEC_DEFAULT;
}

std::int32_t peerProcess(int socket) {
  pid_t peer = 0;
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_LOCAL, LOCAL_PEERPID, &peer, &size) != 0) return 0;
  return peer;
}

void nameThisThread(const std::string& name) { ::pthread_setname_np(name.c_str()); }

std::filesystem::path ownProgram() {
  std::uint32_t size = 0;
  ::_NSGetExecutablePath(nullptr, &size);
  std::string path(size, '\0');
  if (::_NSGetExecutablePath(path.data(), &size) != 0) return {};
  std::error_code error;
  const std::filesystem::path resolved = std::filesystem::canonical(path.c_str(), error);
  return error ? std::filesystem::path() : resolved;
}

std::size_t threadCount() {
  thread_act_array_t threads = nullptr;
  mach_msg_type_number_t count = 0;
  if (::task_threads(mach_task_self(), &threads, &count) != KERN_SUCCESS) return 0;
  // The kernel gives a port right for each thread and an array; both must be given back.
  for (mach_msg_type_number_t i = 0; i < count; ++i) {
    ::mach_port_deallocate(mach_task_self(), threads[i]);
  }
  ::vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(threads),
                  count * sizeof(thread_act_t));
  return count;
}

std::optional<ProcessFacts> factsOf(pid_t process) {
  proc_taskinfo task{};
  constexpr int size = sizeof task;
  if (::proc_pidinfo(process, PROC_PIDTASKINFO, 0, &task, size) != size) return std::nullopt;
  // The kernel overestimates when it is asked for the size, so only the filled part counts.
  const int room = ::proc_pidinfo(process, PROC_PIDLISTFDS, 0, nullptr, 0);
  if (room <= 0) return std::nullopt;
  std::vector<proc_fdinfo> descriptors(static_cast<std::size_t>(room) / sizeof(proc_fdinfo));
  const int filled = ::proc_pidinfo(process, PROC_PIDLISTFDS, 0, descriptors.data(), room);
  if (filled <= 0) return std::nullopt;
  ProcessFacts facts;
  facts.residentKilobytes = static_cast<long>(task.pti_resident_size / 1024);
  facts.threads = task.pti_threadnum;
  facts.descriptors = filled / static_cast<int>(sizeof(proc_fdinfo));
  return facts;
}

bool isAlive(pid_t process) {
  proc_bsdinfo information{};
  constexpr int size = sizeof information;
  return ::proc_pidinfo(process, PROC_PIDTBSDINFO, 0, &information, size) == size &&
         information.pbi_status != SZOMB;
}

char** environment() { return *::_NSGetEnviron(); }

}  // namespace virtualmac::hostsystem
