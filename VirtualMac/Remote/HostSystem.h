#pragma once

#include <spawn.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// These calls differ from system to system, and one file implements them for each. Everything else
/// in the virtual Mac's programs is plain POSIX.
namespace virtualmac::hostsystem {

/// A Unix stream socket that no child inherits. -1: failed, errno says why.
int unixSocket();
/// Two of them, connected. False: failed, errno says why.
bool unixSocketPair(std::array<int, 2>& ends);
/// A pipe that no child inherits. False: failed, errno says why.
bool pipe(std::array<int, 2>& ends);
/// Keeps children from inheriting a descriptor that a library made.
void closeOnExec(int descriptor);
/// Closes every descriptor of this process from `first` on.
void closeFrom(int first);
/// Adds the last of a started program's file actions: no descriptor from `first` on is inherited.
/// Those below `first` stay as earlier actions left them. Returns flags for the program's
/// posix_spawnattr_setflags.
short closeFromAtSpawn(posix_spawn_file_actions_t& files, int first);
/// The process at the other end of a connected Unix socket; 0 when the system does not tell it.
std::int32_t peerProcess(int socket);
/// Names the calling thread for debuggers. The system may shorten the name.
void nameThisThread(const std::string& name);
/// The path of the running program; empty when the system does not tell it.
std::filesystem::path ownProgram();
/// The number of this process's threads.
std::size_t threadCount();
/// The kernel's figures of a live process.
struct ProcessFacts {
  long residentKilobytes = 0;
  int threads = 0;
  int descriptors = 0;
};
/// None: no such process.
std::optional<ProcessFacts> factsOf(pid_t process);
/// False also for a process that has ended and whose parent has not waited for it yet.
bool isAlive(pid_t process);
/// The process's environment, as posix_spawn wants it.
char** environment();

}  // namespace virtualmac::hostsystem
