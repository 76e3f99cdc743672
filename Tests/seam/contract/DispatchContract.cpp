#include <atomic>

#include "Base/Lock.h"
#include "Platform/Dispatch.h"
#include "SeamContract.h"

namespace virtualmac {

TEST_P(DispatchContract, AQueueRunsItsWorkInOrder) {
  for (const char* word : {"a", "b", "c"}) queue->async([this, word] { notes.add(word); });
  EXPECT_TRUE(untilNoted("a b c "));
}

TEST_P(DispatchContract, PostedWorkRunsThoughItsQueueWasLetGo) {
  queue->async([this] { notes.add("ran"); });
  queue = nullptr;
  EXPECT_TRUE(untilNoted("ran "));
}

TEST_P(DispatchContract, SyncWaitsAndKnowsWhereItIs) {
  rig->onMain([&] {
    queue->async([this] { notes.add("before"); });
    queue->sync([&] { notes.add(queue->isCurrent() ? "inside" : "elsewhere"); });
    notes.add(queue->isCurrent() ? "still" : "after");
  });
  EXPECT_EQ(notes.text(), "before inside after ");
}

TEST_P(DispatchContract, ATimerFiresAtOnceAndThenEveryInterval) {
  const auto timer = platform().dispatch.makeTimer(queue);
  std::atomic<int> ticks = 0;
  timer->setEventHandler([&] {
    notes.add(queue->isCurrent() ? "tick" : "elsewhere");
    if (++ticks == 3) timer->cancel();
  });
  timer->schedule(0, 0.05, 0);
  rig->pass(0.1);
  EXPECT_EQ(notes.text(), "") << "it is made suspended";
  timer->resume();
  EXPECT_TRUE(untilNoted("tick tick tick "));
  rig->pass(0.3);
  EXPECT_EQ(notes.text(), "tick tick tick ") << "cancelled from its own queue";
}

TEST_P(DispatchContract, ATimerWithoutAnIntervalFiresOnce) {
  const auto timer = platform().dispatch.makeTimer(queue);
  timer->setEventHandler([&] { notes.add("tick"); });
  timer->schedule(0.05, std::nullopt, 0);
  timer->resume();
  EXPECT_TRUE(untilNoted("tick "));
  rig->pass(0.3);
  EXPECT_EQ(notes.text(), "tick ");
}

TEST_P(DispatchContract, MissedFiringsComeAsOne) {
  const auto timer = platform().dispatch.makeTimer(queue);
  const auto block = platform().dispatch.makeGroup();
  block->enter();
  std::atomic<bool> free = false;
  std::atomic<int> ticks = 0;
  timer->setEventHandler([&] { ++ticks; });
  queue->async([&] {
    block->wait(0.5);
    free = true;
    timer->cancel();
  });
  timer->schedule(0.02, 0.02, 0);
  timer->resume();
  ASSERT_TRUE(rig->until([&] { return free.load(); }, 5));
  rig->pass(0.1);
  EXPECT_EQ(ticks, 0) << "a firing that waited behind the work that cancels it never comes";
  block->leave();
}

TEST_P(DispatchContract, ATimersHandlerMayDestroyIt) {
  std::unique_ptr<korvel::TimerSource> timer = platform().dispatch.makeTimer(queue);
  timer->setEventHandler([&] {
    timer = nullptr;
    notes.add("tick");
  });
  timer->schedule(0.01, 0.01, 0);
  timer->resume();
  EXPECT_TRUE(untilNoted("tick "));
  rig->pass(0.1);
  EXPECT_EQ(notes.text(), "tick ");
}

TEST_P(DispatchContract, AGroupLetsAThreadWaitForWork) {
  const auto group = platform().dispatch.makeGroup();
  rig->onMain([&] {
    group->enter();
    queue->async([&] {
      notes.add("work");
      group->leave();
    });
    notes.add(group->wait(5) ? "done" : "timed out");
  });
  EXPECT_EQ(notes.text(), "work done ");
}

TEST_P(DispatchContract, AWaitTimesOutAndTheWorkStillLeaves) {
  const auto late = platform().dispatch.makeGroup();
  late->enter();
  {
    const auto group = platform().dispatch.makeGroup();
    group->enter();
    queue->async([this, group, late] {
      late->wait(0.3);
      group->leave();
      notes.add("left");
    });
    rig->onMain([&] { notes.add(group->wait(0.05) ? "done" : "timed out"); });
  }
  EXPECT_TRUE(untilNoted("timed out left "));
  late->leave();
}

TEST_P(DispatchContract, ALockLetsOneThreadIn) {
  const auto one = platform().dispatch.makeSerialQueue("one");
  const auto two = platform().dispatch.makeSerialQueue("two");
  korvel::Lock lock(platform().dispatch.makeLock("contract"));
  std::atomic<int> inside = 0;
  std::atomic<int> finished = 0;
  std::atomic<bool> together = false;
  const auto work = [&] {
    for (int i = 0; i < 50; ++i) {
      const korvel::ScopedLock held(lock);
      if (++inside != 1) together = true;
      --inside;
    }
    // The test ends, and destroys the lock, only when both have got here.
    ++finished;
  };
  one->async(work);
  two->async(work);
  ASSERT_TRUE(rig->until([&] { return finished == 2; }, 10));
  EXPECT_FALSE(together);
}

TEST_P(DispatchContract, ASignalIsHeardOnTheMainThreadOnceItsDefaultActionIsTakenAway) {
  std::unique_ptr<korvel::SignalSource> source;
  rig->onMain([&] {
    source = platform().dispatch.makeSignalSource(korvel::signalInterrupt);
    source->setEventHandler([this] { notes.add("heard"); });
    source->resume();
    platform().dispatch.ignoreDefaultAction(korvel::signalInterrupt);
  });
  rig->signal(korvel::signalInterrupt);
  EXPECT_TRUE(untilNoted("heard "));
  rig->signal(korvel::signalInterrupt);
  EXPECT_TRUE(untilNoted("heard heard "));
  rig->onMain([&] { source = nullptr; });
  rig->signal(korvel::signalInterrupt);
  rig->pass(0.2);
  EXPECT_EQ(notes.text(), "heard heard ");
}

TEST_P(DispatchContract, TheMainThreadRunsOnePieceOfWorkAtATime) {
  const auto group = platform().dispatch.makeGroup();
  group->enter();
  std::unique_ptr<korvel::SignalSource> source;
  rig->onMain([&] {
    source = platform().dispatch.makeSignalSource(korvel::signalInterrupt);
    source->setEventHandler([this] { notes.add("heard"); });
    source->resume();
    platform().dispatch.ignoreDefaultAction(korvel::signalInterrupt);
    rig->signal(korvel::signalInterrupt);
    group->wait(0.1);
    notes.add("busy");
  });
  EXPECT_TRUE(untilNoted("busy heard "));
  rig->onMain([&] { source = nullptr; });
  group->leave();
}

}  // namespace virtualmac
