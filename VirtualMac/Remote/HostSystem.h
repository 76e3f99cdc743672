#pragma once

#include <spawn.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// What the building and running systems call differently. One file implements it for each of them;
/// everywhere else the virtual Mac's programs are plain POSIX.
namespace virtualmac::hostsystem {

/// A Unix stream socket that no child inherits. -1: failed, errno says why.
int unixSocket();
/// Two of them, connected. False: failed, errno says why.
bool unixSocketPair(std::array<int, 2>& ends);
/// A pipe that no child inherits. False: failed, errno says why.
bool pipe(std::array<int, 2>& ends);
/// No child inherits this descriptor: for those that a library made.
void closeOnExec(int descriptor);
/// Closes every descriptor of this process from `first` on.
void closeFrom(int first);
/// The last of a started program's file actions: of the descriptors from `first` on it gets none.
/// Below it stand the three standard ones, and what earlier actions put there. Returns flags for
/// the program's posix_spawnattr_setflags.
short closeFromAtSpawn(posix_spawn_file_actions_t& files, int first);
/// The process at the other end of a connected Unix socket; 0 when it cannot be told.
std::int32_t peerProcess(int socket);
/// Names the calling thread for debuggers, as far as the system keeps it.
void nameThisThread(const std::string& name);
/// The running program's file; empty when it cannot be told.
std::filesystem::path ownProgram();
/// How many threads this process has.
std::size_t threadCount();
/// What the kernel says about a live process.
struct ProcessFacts {
  long residentKilobytes = 0;
  int threads = 0;
  int descriptors = 0;
};
/// None: no such process.
std::optional<ProcessFacts> factsOf(pid_t process);
/// False also for one that has ended and still waits for its parent.
bool isAlive(pid_t process);
/// The process's environment, as posix_spawn wants it.
char** environment();

}  // namespace virtualmac::hostsystem
