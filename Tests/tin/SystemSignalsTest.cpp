#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include "SystemDispatch.h"

namespace tinmac::test {

namespace {

constexpr int macTerminate = 15;
constexpr int macUser2 = 31;

using Action = void (*)(int);
Action setAction(int number, Action action) {
  return bound<Action(int, Action)>("_signal")(number, action);
}

std::atomic<int> handled = 0;
void handle(int number) { handled = number; }

class SystemSignals : public testing::Test {
 public:
  ~SystemSignals() override {
    setAction(macTerminate, SIG_DFL);
    setAction(macUser2, SIG_DFL);
  }

 protected:
  SystemSignals() { handled = 0; }

  /// An active source on the main queue that counts into `heard`.
  void* listen(int number) {
    void* const source = makeSignal(number, mainQueue());
    setContext(source, &heard);
    setHandler(source, [](void* count) { ++*static_cast<int*>(count); });
    activate(source);
    return source;
  }
  void drop(void* source) {
    cancel(source);
    release(source);
  }
  bool staysUnheard() {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    host.runMainUntil([] { return true; });
    return heard == 0;
  }

  TestHost host;
  int heard = 0;
};
using SystemSignalsDeathTest = SystemSignals;

TEST_F(SystemSignals, ASourceOnTheMainQueueHearsASignalThatTheProgramIgnores) {
  EXPECT_EQ(setAction(macTerminate, SIG_IGN), SIG_DFL);
  void* const source = listen(macTerminate);
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(host.runMainUntil([&] { return heard == 1; }));
  drop(source);
}

TEST_F(SystemSignals, ASourceThatWasThereFirstHearsItToo) {
  setAction(macTerminate, SIG_IGN);
  void* const first = listen(macTerminate);
  void* const second = listen(macTerminate);
  setAction(macTerminate, SIG_IGN);
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(host.runMainUntil([&] { return heard == 2; }));
  drop(first);
  drop(second);
}

TEST_F(SystemSignals, WithoutASourceAnIgnoredSignalIsIgnored) {
  setAction(macTerminate, SIG_IGN);
  drop(listen(macTerminate));
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(staysUnheard());
}

TEST_F(SystemSignals, ASignalThatAThreadRaisesForItselfIsNotHeard) {
  setAction(macTerminate, SIG_IGN);
  void* const source = listen(macTerminate);
  std::raise(SIGTERM);
  EXPECT_TRUE(staysUnheard());
  drop(source);
}

TEST_F(SystemSignals, AHandlerIsGivenTheMacsNumber) {
  EXPECT_EQ(setAction(macUser2, handle), SIG_DFL);
  ::kill(::getpid(), SIGUSR2);
  EXPECT_TRUE(eventually([] { return handled == macUser2; }));
  EXPECT_EQ(setAction(macUser2, SIG_DFL), handle);
}

TEST_F(SystemSignals, AHandlerAndASourceBothHear) {
  setAction(macUser2, handle);
  void* const source = listen(macUser2);
  ::kill(::getpid(), SIGUSR2);
  EXPECT_TRUE(host.runMainUntil([&] { return heard == 1; }));
  EXPECT_EQ(handled, macUser2);
  drop(source);
}

TEST_F(SystemSignals, OneThatCannotBeCaughtIsAnError) {
  for (const int number : {9, 17, 0, 32}) {
    *bound<int*()>("___error")() = 0;
    EXPECT_EQ(setAction(number, SIG_IGN), SIG_ERR);
    EXPECT_EQ(*bound<int*()>("___error")(), 22);
  }
}

TEST_F(SystemSignals, ANumberThatIsNoSignalGivesNoSource) {
  EXPECT_EQ(makeSignal(0, mainQueue()), nullptr);
  EXPECT_EQ(makeSignal(32, mainQueue()), nullptr);
}

TEST_F(SystemSignalsDeathTest, TheDefaultActionStandsThoughASourceListens) {
  EXPECT_EXIT(
      {
        listen(macTerminate);
        ::kill(::getpid(), SIGTERM);
        staysUnheard();
      },
      testing::KilledBySignal(SIGTERM), "");
}

TEST_F(SystemSignalsDeathTest, AbortEndsAProgramThatIgnoresItsSignal) {
  EXPECT_EXIT(
      {
        setAction(6, SIG_IGN);
        bound<void()>("_abort")();
      },
      testing::KilledBySignal(SIGABRT), "");
}

TEST_F(SystemSignalsDeathTest, OneThatLinuxLacksTraps) {
  EXPECT_DEATH(setAction(29, SIG_IGN), "tin-mac: a signal of the Mac that Linux lacks: 29");
}

}  // namespace

}  // namespace tinmac::test
