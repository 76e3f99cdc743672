#include "Benchmarks/FloorProgram.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace benchmarks {

FloorProgram::FloorProgram(std::vector<std::string> words) {
  constexpr int machineNumber = 3;
  std::array<int, 2> output{};
  std::array<int, 2> machine{};
  if (pipe(output.data()) != 0 || socketpair(AF_UNIX, SOCK_STREAM, 0, machine.data()) != 0) return;
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid = fork();
  if (pid == 0) {
    dup2(output[1], STDOUT_FILENO);
    dup2(machine[1], machineNumber);
    execv(arguments.front(), arguments.data());
    _exit(127);
  }
  close(output[1]);
  close(machine[1]);
  std::array<pollfd, 2> watched{pollfd{.fd = output[0], .events = POLLIN, .revents = 0},
                                pollfd{.fd = machine[0], .events = POLLIN, .revents = 0}};
  while (poll(watched.data(), watched.size(), 5000) > 0 && watched[0].revents == 0) {
    std::array<char, 64> message{};
    const ssize_t got = recv(machine[0], message.data(), message.size(), 0);
    if (got <= 0 || send(machine[0], message.data(), static_cast<std::size_t>(got), 0) != got)
      break;
  }
  char said = 0;
  spoke = read(output[0], &said, 1) == 1;
  close(output[0]);
  close(machine[0]);
}

FloorProgram::~FloorProgram() {
  if (pid <= 0) return;
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

}  // namespace benchmarks
