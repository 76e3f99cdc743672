#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "SystemHost.h"
#include "TinMac/Frameworks/Below.h"
#include "TinMac/System/Books.h"
#include "TinMac/System/Exports.h"
#include "TinMac/System/Process.h"
#include "TinMac/System/Trap.h"

namespace tinmac::test {

namespace {

/// The file that the only child process wrote.
std::string booksIn(const std::string& folder) {
  std::ostringstream text;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    EXPECT_EQ(entry.path().extension(), ".json");
    text << std::ifstream(entry.path()).rdbuf();
  }
  return text.str();
}

class SystemBooks : public testing::Test {
 public:
  ~SystemBooks() override {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has one thread
    ::unsetenv("TIN_MAC_BOOKS");
    std::filesystem::remove_all(folder);
  }

 protected:
  SystemBooks() {
    std::string pattern = testing::TempDir() + "tin-books-XXXXXX";
    folder = ::mkdtemp(pattern.data());
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has one thread
    ::setenv("TIN_MAC_BOOKS", folder.c_str(), 1);
  }
  /// True when the child's books hold the text.
  [[nodiscard]] testing::AssertionResult hold(const std::string& part) const {
    const std::string books = booksIn(folder);
    if (books.find(part) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << part << " is not in " << books;
  }

  std::string folder;
};
using SystemBooksDeathTest = SystemBooks;

TEST_F(SystemBooks, ObjectsAreCountedByClass) {
  tinBooksCount("NSData", 2);
  tinBooksCount("NSData", -1);
  EXPECT_EQ(liveObjects("NSData"), 1);
  EXPECT_EQ(liveObjects("NSString"), 0);
  tinBooksCount("NSData", -1);
}

TEST_F(SystemBooksDeathTest, MoreGoneThanComeTraps) {
  EXPECT_DEATH(tinBooksCount("NSDate", -1),
               "tin-mac: more objects of a class went than came: NSDate");
}

TEST_F(SystemBooksDeathTest, ExitRunsTheHooksAndThenWritesTheBooks) {
  EXPECT_EXIT(
      {
        tinBooksCount("NSData", 3);
        beforeBooks([] { tinBooksCount("NSData", -2); });
        tinBooksNote("autoreleased without a pool", "a \"NSString\"\n");
        bound<void(int)>("_exit")(7);
      },
      testing::ExitedWithCode(7), "");
  EXPECT_TRUE(hold(R"("reason":"exit","status":7)"));
  EXPECT_TRUE(hold(R"("NSData":1)"));
  EXPECT_TRUE(hold(R"({"rule":"autoreleased without a pool","times":1,)"
                   R"("details":["a \"NSString\"\n"]})"));
}

TEST_F(SystemBooksDeathTest, ExitTellsWhatLivesAboveTheMarkOfTheMainLoopsStart) {
  EXPECT_EXIT(
      {
        tinBooksCount("NSData", 3);
        tinBooksCount("NSDate", 2);
        markBooks();
        tinBooksCount("NSData", 4);
        tinBooksCount("NSDate", -1);
        exitProgram(0);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_TRUE(hold(R"("live":{"NSData":7,"NSDate":1})"));
  EXPECT_TRUE(hold(R"("aboveMark":{"NSData":4})"));
}

TEST_F(SystemBooksDeathTest, ATrapSaysItsRuleAndWritesTheBooksWithoutTheHooks) {
  EXPECT_EXIT(
      {
        beforeBooks([] { tinBooksCount("hook", 1); });
        tinTrap("CFRelease", "NULL");
      },
      testing::KilledBySignal(SIGABRT), "tin-mac: CFRelease: NULL");
  EXPECT_TRUE(hold(R"("reason":"trap","trap":{"rule":"CFRelease","detail":"NULL"})"));
  EXPECT_TRUE(hold(R"("live":{})"));
}

TEST_F(SystemBooksDeathTest, AnUncaughtExceptionIsATrap) {
  EXPECT_DEATH(
      {
        TestHost host;
        const auto raise = [](int value) { throw value; };
        [&]() noexcept { raise(5); }();
      },
      "tin-mac: std::terminate: i");
  EXPECT_TRUE(hold(R"("rule":"std::terminate")"));
}

TEST_F(SystemBooksDeathTest, ASignalWritesTheBooksOfALivingProgram) {
  EXPECT_EXIT(
      {
        TestHost host;
        tinBooksCount("NSData", 5);
        ::kill(::getpid(), SIGUSR1);
        const bool written = eventually([&] { return !std::filesystem::is_empty(folder); }) &&
                             eventually([&] { return hold(R"("reason":"signal")"); });
        std::_Exit(written && hold(R"("NSData":5)") ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(SystemBooksDeathTest, OnlyTheMainThreadHasARunLoop) {
  EXPECT_DEATH(
      {
        TestHost host;
        host.endMainLoopAtOnce = true;
        std::thread(tinMainRun).join();
      },
      "tin-mac: a run loop: only the main thread's is built");
}

TEST_F(SystemBooksDeathTest, TheMainLoopsEndTraps) {
  EXPECT_DEATH(
      {
        TestHost host;
        host.endMainLoopAtOnce = true;
        tinMainRun();
      },
      "tin-mac: the main loop ended");
  EXPECT_TRUE(hold(R"("aboveMark":{})"));
}

TEST(SystemSupport, TheMainLoopCanRunForAWhile) {
  TestHost host;
  bool ran = false;
  host.postToMain([&] { ran = true; });
  tinMainRunFor(0.01);
  EXPECT_TRUE(ran);
}

TEST(SystemSupport, EachThreadHasItsOwnPools) {
  EXPECT_EQ(*tinThreadPools(), nullptr);
  int pool = 0;
  *tinThreadPools() = &pool;
  EXPECT_EQ(*tinThreadPools(), &pool);
  void* elsewhere = &pool;
  std::thread([&] { elsewhere = *tinThreadPools(); }).join();
  EXPECT_EQ(elsewhere, nullptr);
  *tinThreadPools() = nullptr;
}

}  // namespace

}  // namespace tinmac::test
