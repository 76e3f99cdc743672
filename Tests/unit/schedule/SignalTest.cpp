#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "Bench.h"

namespace virtualmac {
namespace {

struct SignalTest : OnBench {
  std::unique_ptr<korvel::SignalSource> source = dispatch.makeSignalSource(SIGTERM);

  void listen() {
    source->setEventHandler([this] { note(scheduler.current().name()); });
    source->resume();
  }
};

TEST_F(SignalTest, AnIgnoredSignalIsHeardOnTheMainThread) {
  listen();
  dispatch.ignoreDefaultAction(SIGTERM);
  EXPECT_TRUE(dispatch.deliverSignal(SIGTERM));
  EXPECT_EQ(notes, "");
  EXPECT_EQ(notesWhenIdle(), "main@0 ");
}

TEST_F(SignalTest, WithoutAnIgnoredDispositionTheDefaultActionIsDue) {
  listen();
  EXPECT_FALSE(dispatch.deliverSignal(SIGTERM));
  EXPECT_FALSE(dispatch.ignoresDefaultAction(SIGTERM));
}

TEST_F(SignalTest, AnIgnoredSignalWithoutASourceDoesNothing) {
  dispatch.ignoreDefaultAction(SIGINT);
  EXPECT_TRUE(dispatch.deliverSignal(SIGINT));
  EXPECT_EQ(notesWhenIdle(), "");
}

TEST_F(SignalTest, TheKillSignalCannotBeIgnored) {
  dispatch.ignoreDefaultAction(SIGKILL);
  EXPECT_FALSE(dispatch.deliverSignal(SIGKILL));
}

TEST_F(SignalTest, ASourceThatWasNotResumedHearsNothing) {
  source->setEventHandler([this] { note("heard"); });
  dispatch.ignoreDefaultAction(SIGTERM);
  dispatch.deliverSignal(SIGTERM);
  EXPECT_EQ(notesWhenIdle(), "");
}

TEST_F(SignalTest, ADestroyedSourceHearsNothingNotEvenWhatIsOnItsWay) {
  listen();
  dispatch.ignoreDefaultAction(SIGTERM);
  dispatch.deliverSignal(SIGTERM);
  source = nullptr;
  EXPECT_EQ(notesWhenIdle(), "");
}

TEST_F(SignalTest, SignalsThatArriveTogetherAreHeardOnceLaterOnesAgain) {
  listen();
  dispatch.ignoreDefaultAction(SIGTERM);
  dispatch.deliverSignal(SIGTERM);
  dispatch.deliverSignal(SIGTERM);
  scheduler.runUntilIdle();
  dispatch.deliverSignal(SIGTERM);
  EXPECT_EQ(notesWhenIdle(), "main@0 main@0 ");
}

TEST_F(SignalTest, ABusyMainThreadHearsItLater) {
  listen();
  dispatch.ignoreDefaultAction(SIGTERM);
  dispatch.postToMain([this] { busy(0.5); });
  scheduler.runUntilIdle();
  dispatch.deliverSignal(SIGTERM);
  EXPECT_EQ(notesAfter(1), "main@500 ");
}

}  // namespace
}  // namespace virtualmac
