#include "Tests/process/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <utility>

namespace processtests {

namespace {

std::string pathOf(const std::string& program) {
  return std::string(PROGRAM_DIRECTORY) + '/' + program;
}

/// `in` is its standard input; -1: it has none.
pid_t spawn(const std::string& program, const std::vector<std::string>& arguments, int out, int err,
            int in = -1) {
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  if (in >= 0) {
    ::posix_spawn_file_actions_adddup2(&files, in, STDIN_FILENO);
  } else {
    ::posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  ::posix_spawn_file_actions_adddup2(&files, out, STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&files, err, STDERR_FILENO);
  const std::string path = pathOf(program);
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  pid_t pid = 0;
  const int error = ::posix_spawn(&pid, path.c_str(), &files, nullptr, pointers.data(),
                                  virtualmac::hostsystem::environment());
  ::posix_spawn_file_actions_destroy(&files);
  if (error != 0) throw std::runtime_error(path + " cannot be started");
  return pid;
}

/// Reads both pipes until they are closed or time is up. False: time is up.
bool drain(std::array<int, 2> pipes, std::array<std::string*, 2> texts, double deadline) {
  int open = 2;
  while (open > 0) {
    std::array<pollfd, 2> watched{};
    for (std::size_t index = 0; index < 2; ++index)
      watched[index] = {.fd = pipes[index], .events = POLLIN, .revents = 0};
    const double left = deadline - clockNow();
    if (left <= 0) return false;
    if (::poll(watched.data(), 2, static_cast<int>(left * 1000) + 1) <= 0) continue;
    for (std::size_t index = 0; index < 2; ++index) {
      if (pipes[index] < 0 || watched[index].revents == 0) continue;
      std::array<char, 4096> chunk{};
      const ssize_t got = ::read(pipes[index], chunk.data(), chunk.size());
      if (got > 0) {
        texts[index]->append(chunk.data(), static_cast<std::size_t>(got));
      } else {
        pipes[index] = -1;
        --open;
      }
    }
  }
  return true;
}

/// Waits for a program's end; -1: a signal ended it.
int statusAtEnd(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Starts the program with these outputs, reads `ends`, and waits for its exit.
Result runWith(const std::string& program, const std::vector<std::string>& arguments,
               std::array<int, 2> outputs, std::array<int, 2> ends, double timeoutSeconds) {
  const pid_t pid = spawn(program, arguments, outputs[0], outputs[1]);
  ::close(outputs[0]);
  ::close(outputs[1]);
  Result result;
  if (!drain(ends, {&result.out, &result.err}, clockNow() + timeoutSeconds)) ::kill(pid, SIGKILL);
  ::close(ends[0]);
  ::close(ends[1]);
  result.status = statusAtEnd(pid);
  return result;
}

}  // namespace

double clockNow() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool runsTheMacsProgram() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  return std::getenv("KORVEL_TEST_TIN") != nullptr;
}

double slowness() { return runsTheMacsProgram() ? 12 : 1; }

void pauseFor(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

Result run(const std::string& program, const std::vector<std::string>& arguments,
           double timeoutSeconds) {
  std::array<int, 2> out{};
  std::array<int, 2> err{};
  if (!virtualmac::hostsystem::pipe(out) || !virtualmac::hostsystem::pipe(err))
    throw std::runtime_error("no pipes");
  return runWith(program, arguments, {out[1], err[1]}, {out[0], err[0]}, timeoutSeconds);
}

Result runUnheard(const std::string& program, const std::vector<std::string>& arguments,
                  double timeoutSeconds) {
  std::array<int, 2> err{};
  if (!virtualmac::hostsystem::pipe(err)) throw std::runtime_error("no pipe");
  // The descriptor is open for reading only, so every write to it fails.
  const int deaf = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  return runWith(program, arguments, {deaf, err[1]}, {nothing, err[0]}, timeoutSeconds);
}

Background::Background(const std::string& program, const std::vector<std::string>& arguments) {
  const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  child = spawn(program, arguments, nothing, nothing);
  ::close(nothing);
}

Background::~Background() {
  ::kill(child, SIGKILL);
  statusAtEnd(child);
}

Conversation::Conversation(const std::string& program, const std::vector<std::string>& arguments) {
  std::array<int, 2> in{};
  std::array<int, 2> out{};
  if (!virtualmac::hostsystem::pipe(in) || !virtualmac::hostsystem::pipe(out))
    throw std::runtime_error("no pipes");
  child = spawn(program, arguments, out[1], STDERR_FILENO, in[0]);
  ::close(in[0]);
  ::close(out[1]);
  input = in[1];
  output = out[0];
}

Conversation::~Conversation() {
  ::kill(child, SIGKILL);
  finish();
  ::close(output);
}

void Conversation::say(const std::string& line) const {
  const std::string bytes = line + '\n';
  pollfd watched{.fd = input, .events = POLLOUT, .revents = 0};
  // A signal would end the test where nobody listens.
  const bool isHeard = ::poll(&watched, 1, 0) > 0 && (watched.revents & POLLERR) == 0;
  if (!isHeard || ::write(input, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("the program does not listen");
}

std::optional<std::string> Conversation::hear(double timeoutSeconds) {
  const double deadline = clockNow() + timeoutSeconds;
  for (;;) {
    if (const std::size_t end = heard.find('\n'); end != std::string::npos) {
      std::string line = heard.substr(0, end);
      heard.erase(0, end + 1);
      return line;
    }
    pollfd watched{.fd = output, .events = POLLIN, .revents = 0};
    const double left = deadline - clockNow();
    if (left <= 0 || ::poll(&watched, 1, static_cast<int>(left * 1000) + 1) == 0) {
      return std::nullopt;
    }
    std::array<char, 4096> chunk{};
    const ssize_t got = ::read(output, chunk.data(), chunk.size());
    if (got == 0) return std::nullopt;
    if (got > 0) heard.append(chunk.data(), static_cast<std::size_t>(got));
  }
}

int Conversation::finish() {
  if (input < 0) return -1;
  ::close(std::exchange(input, -1));
  return statusAtEnd(child);
}

bool receiveMore(int socket, std::string& input, double deadline) {
  for (;;) {
    const double left = deadline - clockNow();
    if (left <= 0) return false;
    pollfd watched{.fd = socket, .events = POLLIN, .revents = 0};
    if (::poll(&watched, 1, static_cast<int>(left * 1000) + 1) <= 0) continue;
    std::array<char, 65536> chunk{};
    const ssize_t got = ::recv(socket, chunk.data(), chunk.size(), 0);
    if (got <= 0) return false;
    input.append(chunk.data(), static_cast<std::size_t>(got));
    return true;
  }
}

}  // namespace processtests
