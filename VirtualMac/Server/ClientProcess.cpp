#include "VirtualMac/Server/ClientProcess.h"

#include <spawn.h>
#include <unistd.h>

#include <array>
#include <asio/read_until.hpp>
#include <cerrno>
#include <csignal>
#include <istream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include "VirtualMac/Remote/HostSystem.h"

namespace virtualmac {

namespace {

/// The session is given its standard input, output and errors.
constexpr int firstNotGiven = 3;

}  // namespace

ClientProcess::ClientProcess(asio::io_context& context, const std::string& program,
                             const RootDirectory& root, const std::string& identity,
                             double replySeconds)
    : said(std::make_shared<Saying>(context)) {
  std::array<int, 2> toClient{};
  std::array<int, 2> fromClient{};
  if (!hostsystem::pipe(toClient) || !hostsystem::pipe(fromClient)) {
    throw std::runtime_error(std::string("no pipe: ") + std::system_category().message(errno));
  }
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_adddup2(&files, toClient[0], STDIN_FILENO);
  ::posix_spawn_file_actions_adddup2(&files, fromClient[1], STDOUT_FILENO);
  // A group of its own, because the terminal's Ctrl-C is for the one who plays: the story would
  // tell of clients that left. A session ends with its input.
  posix_spawnattr_t attributes;
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setpgroup(&attributes, 0);
  const short closing = hostsystem::closeFromAtSpawn(files, firstNotGiven);
  ::posix_spawnattr_setflags(&attributes, static_cast<short>(closing | POSIX_SPAWN_SETPGROUP));
  // A story says itself when a client connects.
  std::vector<std::string> words{program,
                                 "--root",
                                 root.path,
                                 "--as",
                                 identity,
                                 "--timeout",
                                 std::to_string(replySeconds),
                                 "session",
                                 "--reconnect",
                                 "never"};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const int error = ::posix_spawn(&pid, program.c_str(), &files, &attributes, arguments.data(),
                                  hostsystem::environment());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&files);
  ::close(toClient[0]);
  ::close(fromClient[1]);
  input = toClient[1];
  said->output.assign(fromClient[0]);
  if (error != 0) {
    ::close(input);
    throw std::runtime_error(program +
                             " cannot be started: " + std::system_category().message(error));
  }
  readNext(said);
}

ClientProcess::~ClientProcess() {
  // The session ends with its input; nobody listens any more.
  ::close(input);
  said->waiting.clear();
  said->opened = nullptr;
  std::error_code ignored;
  static_cast<void>(said->output.close(ignored));
}

void ClientProcess::send(const std::string& line, Answered answered) {
  if (said->over) return answered("");
  said->waiting.push_back(std::move(answered));
  const std::string bytes = line + '\n';
  // A session that is gone is noticed at its output.
  if (::write(input, bytes.data(), bytes.size()) < 0) return;
}

void ClientProcess::kill() {
  if (pid > 0 && !said->over) ::kill(pid, SIGKILL);
}

void ClientProcess::whenOpen(Answered told) {
  if (said->over || !said->firstLine.empty()) return told(said->firstLine);
  said->opened = std::move(told);
}

void ClientProcess::hear(Saying& saying, const std::string& line) {
  const auto told = nlohmann::json::parse(line, nullptr, false);
  const bool isEvent = told.is_object() && told.contains("event");
  if (isEvent) saying.connected = told["event"] == "connected";
  if (saying.firstLine.empty()) {
    saying.firstLine = line;
    if (saying.opened) std::exchange(saying.opened, nullptr)(line);
  } else if (!isEvent && !saying.waiting.empty()) {
    const Answered answered = std::move(saying.waiting.front());
    saying.waiting.pop_front();
    answered(line);
  }
}

void ClientProcess::readNext(const std::shared_ptr<Saying>& saying) {
  asio::async_read_until(saying->output, saying->buffer, '\n',
                         [saying](const std::error_code& ended, std::size_t /*length*/) {
                           if (ended) {
                             saying->over = true;
                             if (saying->opened) std::exchange(saying->opened, nullptr)("");
                             for (const Answered& answered : std::exchange(saying->waiting, {}))
                               answered("");
                             return;
                           }
                           std::string line;
                           std::istream stream(&saying->buffer);
                           std::getline(stream, line);
                           hear(*saying, line);
                           readNext(saying);
                         });
}

}  // namespace virtualmac
