#include "TinMac/System/Signals.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "TinMac/System/Numbers.h"
#include "TinMac/System/Trap.h"

namespace tinmac {

namespace {

struct Listener {
  std::int32_t signal;
  std::function<void()> heard;
};

/// The handler reads these, by the Mac's numbers.
std::array<std::atomic<SignalAction>, macSignals> actions{};
std::array<std::atomic<int>, macSignals> listening{};
std::atomic<int> pipeEnd = -1;

/// A Mac tells its sources of a signal before it looks whether the program ignores it. Linux drops
/// an ignored signal, so one with a listener is caught here.
void hear(int linuxNumber, siginfo_t* facts, void* /*context*/) {
  const int kept = errno;
  const auto number = static_cast<std::size_t>(macSignal(linuxNumber));
  if (listening[number] > 0 && facts->si_code != SI_TKILL) {
    const auto byte = static_cast<unsigned char>(number);
    // A full pipe already holds more signals than anyone can tell apart.
    [[maybe_unused]] const ssize_t written = ::write(pipeEnd, &byte, 1);
  }
  const SignalAction action = actions[number];
  if (action != SIG_DFL && action != SIG_IGN) action(static_cast<int>(number));
  errno = kept;
}

bool ignoredByDefault(int linuxNumber) {
  return linuxNumber == SIGCHLD || linuxNumber == SIGURG || linuxNumber == SIGWINCH ||
         linuxNumber == SIGCONT || linuxNumber == SIGIO;
}

bool defaultApplies(int linuxNumber, SignalAction action, bool listened) {
  if (action == SIG_IGN) return false;
  return action == SIG_DFL && !(listened && ignoredByDefault(linuxNumber));
}

class SignalTable {
 public:
  SignalAction setAction(std::int32_t number, SignalAction action) {
    const std::lock_guard lock(mutex);
    const SignalAction former = actions[static_cast<std::size_t>(number)].exchange(action);
    apply(number);
    return former;
  }

  ListenerID add(std::int32_t number, std::function<void()> heard) {
    const std::lock_guard lock(mutex);
    if (pipeEnd < 0) startReader();
    listeners.emplace(++last, Listener{number, std::move(heard)});
    ++listening[static_cast<std::size_t>(number)];
    apply(number);
    return last;
  }

  void remove(ListenerID id) {
    const std::lock_guard lock(mutex);
    const auto found = listeners.find(id);
    if (found == listeners.end()) return;
    const std::int32_t number = found->second.signal;
    listeners.erase(found);
    --listening[static_cast<std::size_t>(number)];
    apply(number);
  }

 private:
  static void apply(std::int32_t number) {
    const auto index = static_cast<std::size_t>(number);
    const int linuxNumber = linuxSignal(number);
    const bool listened = listening[index] > 0;
    const SignalAction action = actions[index];
    struct sigaction wanted{};
    wanted.sa_flags = SA_RESTART;
    if (defaultApplies(linuxNumber, action, listened)) {
      wanted.sa_handler = SIG_DFL;
    } else if (action == SIG_IGN && !listened) {
      wanted.sa_handler = SIG_IGN;
    } else {
      wanted.sa_flags |= SA_SIGINFO;
      wanted.sa_sigaction = hear;
    }
    if (::sigaction(linuxNumber, &wanted, nullptr) != 0) {
      trap("a signal's action cannot be set", std::to_string(number));
    }
  }

  void startReader() {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) trap("no pipe for signals", std::to_string(errno));
    ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
    pipeEnd = ends[1];
    std::thread([this, readEnd = ends[0]] { deliver(readEnd); }).detach();
  }

  [[noreturn]] void deliver(int readEnd) {
    while (true) {
      unsigned char number = 0;
      if (::read(readEnd, &number, 1) != 1) continue;
      const std::lock_guard lock(mutex);
      for (const auto& [id, listener] : listeners) {
        if (listener.signal == number) listener.heard();
      }
    }
  }

  std::mutex mutex;
  std::map<ListenerID, Listener> listeners;
  ListenerID last = 0;
};

/// The reader runs until the process is gone.
SignalTable& signalTable() {
  static auto* const only = new SignalTable;
  return *only;
}

}  // namespace

SignalAction setSignalAction(std::int32_t macNumber, SignalAction action) {
  constexpr std::int32_t kill = 9;
  constexpr std::int32_t stop = 17;
  if (macNumber < 1 || macNumber >= macSignals || macNumber == kill || macNumber == stop) {
    failWith(EINVAL);
    return SIG_ERR;
  }
  return signalTable().setAction(macNumber, action);
}

ListenerID listenToSignal(std::int32_t macNumber, std::function<void()> heard) {
  if (macNumber < 1 || macNumber >= macSignals) {
    trap("a signal that a Mac does not have", std::to_string(macNumber));
  }
  return signalTable().add(macNumber, std::move(heard));
}

void stopListening(ListenerID listener) { signalTable().remove(listener); }

}  // namespace tinmac
