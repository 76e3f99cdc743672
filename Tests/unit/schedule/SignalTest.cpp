#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "Bench.h"

namespace virtualmac {
namespace {

struct SignalTest : testing::Test {
  Bench bench;
  std::unique_ptr<korvel::SignalSource> source = bench.dispatch.makeSignalSource(SIGTERM);

  void listen() {
    source->setEventHandler([this] { bench.note(bench.scheduler.current().name()); });
    source->resume();
  }
};

TEST_F(SignalTest, AnIgnoredSignalIsHeardOnTheMainThread) {
  listen();
  bench.dispatch.ignoreDefaultAction(SIGTERM);
  EXPECT_TRUE(bench.dispatch.deliverSignal(SIGTERM));
  EXPECT_EQ(bench.notes, "");
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "main@0 ");
}

TEST_F(SignalTest, WithoutAnIgnoredDispositionTheDefaultActionIsDue) {
  listen();
  EXPECT_FALSE(bench.dispatch.deliverSignal(SIGTERM));
  EXPECT_FALSE(bench.dispatch.ignoresDefaultAction(SIGTERM));
}

TEST_F(SignalTest, AnIgnoredSignalWithoutASourceDoesNothing) {
  bench.dispatch.ignoreDefaultAction(SIGINT);
  EXPECT_TRUE(bench.dispatch.deliverSignal(SIGINT));
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "");
}

TEST_F(SignalTest, TheKillSignalCannotBeIgnored) {
  bench.dispatch.ignoreDefaultAction(SIGKILL);
  EXPECT_FALSE(bench.dispatch.deliverSignal(SIGKILL));
}

TEST_F(SignalTest, ASourceThatWasNotResumedHearsNothing) {
  source->setEventHandler([this] { bench.note("heard"); });
  bench.dispatch.ignoreDefaultAction(SIGTERM);
  bench.dispatch.deliverSignal(SIGTERM);
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "");
}

TEST_F(SignalTest, ADestroyedSourceHearsNothingNotEvenWhatIsOnItsWay) {
  listen();
  bench.dispatch.ignoreDefaultAction(SIGTERM);
  bench.dispatch.deliverSignal(SIGTERM);
  source = nullptr;
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "");
}

TEST_F(SignalTest, SignalsThatArriveTogetherAreHeardOnceLaterOnesAgain) {
  listen();
  bench.dispatch.ignoreDefaultAction(SIGTERM);
  bench.dispatch.deliverSignal(SIGTERM);
  bench.dispatch.deliverSignal(SIGTERM);
  bench.scheduler.runUntilIdle();
  bench.dispatch.deliverSignal(SIGTERM);
  bench.scheduler.runUntilIdle();
  EXPECT_EQ(bench.notes, "main@0 main@0 ");
}

TEST_F(SignalTest, ABusyMainThreadHearsItLater) {
  listen();
  bench.dispatch.ignoreDefaultAction(SIGTERM);
  bench.dispatch.postToMain([this] { bench.busy(0.5); });
  bench.scheduler.runUntilIdle();
  bench.dispatch.deliverSignal(SIGTERM);
  bench.runFor(1);
  EXPECT_EQ(bench.notes, "main@500 ");
}

}  // namespace
}  // namespace virtualmac
