#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "SystemDispatch.h"
#include "TinMac/System/Books.h"

namespace tinmac::test {

namespace {

constexpr const char* queueClass = "dispatch_queue";

class SystemDispatchQueue : public testing::Test {
 public:
  ~SystemDispatchQueue() override {
    EXPECT_TRUE(eventually([] { return liveObjects(queueClass) == 0; }));
  }

 protected:
  TestHost host;
};
using SystemDispatchQueueDeathTest = SystemDispatchQueue;

struct Note {
  std::vector<int>* order;
  int number;
};

void writeNote(void* context) {
  const auto* const note = static_cast<Note*>(context);
  note->order->push_back(note->number);
}

TEST_F(SystemDispatchQueue, WorkRunsInOrderOneAfterTheOther) {
  void* const queue = makeQueue();
  std::vector<int> order;
  std::vector<Note> notes;
  for (int number = 0; number < 200; ++number) notes.push_back({&order, number});
  for (Note& note : notes) async(queue, &note, writeNote);
  settle(queue);
  ASSERT_EQ(order.size(), notes.size());
  for (int number = 0; number < 200; ++number) EXPECT_EQ(order[std::size_t(number)], number);
  release(queue);
}

TEST_F(SystemDispatchQueue, WorkThatIsQueuedKeepsAReleasedQueue) {
  void* const queue = makeQueue();
  std::atomic<int> done = 0;
  for (int piece = 0; piece < 20; ++piece) {
    async(queue, &done, [](void* count) { ++*static_cast<std::atomic<int>*>(count); });
  }
  release(queue);
  EXPECT_TRUE(eventually([&] { return done == 20; }));
}

TEST_F(SystemDispatchQueue, SyncRunsOnTheCallingThreadInItsTurn) {
  struct Seen {
    std::vector<int> order;
    pid_t thread = 0;
  } seen;
  void* const queue = makeQueue();
  async(queue, &seen, [](void* context) {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    static_cast<Seen*>(context)->order.push_back(1);
  });
  sync(queue, &seen, [](void* context) {
    static_cast<Seen*>(context)->order.push_back(2);
    static_cast<Seen*>(context)->thread = ::gettid();
  });
  EXPECT_EQ(seen.order, (std::vector<int>{1, 2}));
  EXPECT_EQ(seen.thread, ::gettid());
  release(queue);
}

TEST_F(SystemDispatchQueue, SyncOfManyThreadsNeverOverlaps) {
  void* const queue = makeQueue();
  int count = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&] {
      for (int turn = 0; turn < 200; ++turn) {
        sync(queue, &count, [](void* context) { ++*static_cast<int*>(context); });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 800);
  release(queue);
}

/// Work writes here the value that it finds under a key on its queue.
struct Look {
  const void* key;
  void* found = nullptr;
};

void look(void* context) {
  auto* const wanted = static_cast<Look*>(context);
  wanted->found = bound<void*(const void*)>("_dispatch_get_specific")(wanted->key);
}

TEST_F(SystemDispatchQueue, WorkFindsWhatItsQueueCarries) {
  const auto setSpecific =
      bound<void(void*, const void*, void*, Function*)>("_dispatch_queue_set_specific");
  int key = 0;
  int mark = 0;
  void* const queue = makeQueue();
  void* const other = makeQueue();
  setSpecific(queue, &key, &mark, nullptr);
  Look waited{&key};
  sync(queue, &waited, look);
  EXPECT_EQ(waited.found, &mark);
  Look posted{&key};
  async(queue, &posted, look);
  settle(queue);
  EXPECT_EQ(posted.found, &mark);
  Look elsewhere{&key};
  sync(other, &elsewhere, look);
  EXPECT_EQ(elsewhere.found, nullptr);
  Look outside{&key};
  look(&outside);
  EXPECT_EQ(outside.found, nullptr);
  release(queue);
  release(other);
}

TEST_F(SystemDispatchQueue, WhatAQueueCarriesIsDestroyedWithIt) {
  std::atomic<int> destroyed = 0;
  int key = 0;
  void* const queue = makeQueue();
  bound<void(void*, const void*, void*, Function*)>("_dispatch_queue_set_specific")(
      queue, &key, &destroyed, [](void* count) { ++*static_cast<std::atomic<int>*>(count); });
  EXPECT_EQ(destroyed, 0);
  release(queue);
  EXPECT_TRUE(eventually([&] { return destroyed == 1; }));
}

TEST_F(SystemDispatchQueue, TheMainQueueIsServedByTheMainLoop) {
  struct Seen {
    pid_t thread = 0;
    bool done = false;
  } seen;
  std::thread([&] {
    async(mainQueue(), &seen, [](void* context) {
      static_cast<Seen*>(context)->thread = ::gettid();
      static_cast<Seen*>(context)->done = true;
    });
  }).join();
  EXPECT_FALSE(seen.done);
  EXPECT_TRUE(host.runMainUntil([&] { return seen.done; }));
  EXPECT_EQ(seen.thread, ::getpid());
}

TEST_F(SystemDispatchQueue, SyncOntoTheMainQueueRunsOnTheMainThread) {
  std::atomic<pid_t> ran = 0;
  std::atomic<bool> returned = false;
  std::thread waiter([&] {
    sync(mainQueue(), &ran,
         [](void* thread) { *static_cast<std::atomic<pid_t>*>(thread) = ::gettid(); });
    returned = true;
  });
  EXPECT_TRUE(host.runMainUntil([&] { return returned.load(); }));
  waiter.join();
  EXPECT_EQ(ran, ::getpid());
}

TEST_F(SystemDispatchQueue, ReferencesToTheMainQueueDoNotCount) {
  for (int time = 0; time < 3; ++time) release(mainQueue());
  retain(mainQueue());
  bool done = false;
  async(mainQueue(), &done, [](void* context) { *static_cast<bool*>(context) = true; });
  EXPECT_TRUE(host.runMainUntil([&] { return done; }));
}

TEST_F(SystemDispatchQueue, TheBooksKnowEachQueuesQualityOfService) {
  const auto attributes =
      bound<const void*(const void*, unsigned, int)>("_dispatch_queue_attr_make_with_qos_class");
  EXPECT_EQ(attributes(nullptr, 0x11, 0), attributes(nullptr, 0x11, 0));
  void* const queue = bound<void*(const char*, const void*)>("_dispatch_queue_create")(
      "com.korvel.work", attributes(nullptr, 0x11, 0));
  EXPECT_EQ(liveObjects(queueClass), 1);
  EXPECT_NE(booksText("exit", 0).find(R"({"label":"com.korvel.work","qos":"utility","made":1})"),
            std::string::npos);
  release(queue);
}

TEST_F(SystemDispatchQueueDeathTest, SyncOntoTheOwnQueueTraps) {
  EXPECT_DEATH(
      {
        void* const queue = makeQueue();
        sync(queue, queue, [](void* own) { sync(own, nullptr, doNothing); });
      },
      "tin-mac: dispatch_sync_f onto a queue that waits for it");
  EXPECT_DEATH(
      {
        void* const queue = makeQueue();
        async(queue, queue, [](void* own) { sync(own, nullptr, doNothing); });
        eventually([] { return false; });
      },
      "tin-mac: dispatch_sync_f onto a queue that waits for it");
}

TEST_F(SystemDispatchQueueDeathTest, SyncOntoAnOuterQueueTraps) {
  EXPECT_DEATH(
      {
        static void* const outer = makeQueue();
        sync(outer, makeQueue(), [](void* inner) {
          sync(inner, nullptr, [](void* /*context*/) { sync(outer, nullptr, doNothing); });
        });
      },
      "tin-mac: dispatch_sync_f onto a queue that waits for it");
}

TEST_F(SystemDispatchQueueDeathTest, SyncOntoTheMainQueueFromTheMainThreadTraps) {
  EXPECT_DEATH(sync(mainQueue(), nullptr, doNothing),
               "tin-mac: dispatch_sync_f onto a queue that waits for it");
}

TEST_F(SystemDispatchQueueDeathTest, AReleaseTooManyTraps) {
  EXPECT_DEATH(
      {
        void* const queue = makeQueue();
        retain(queue);
        for (int time = 0; time < 3; ++time) release(queue);
      },
      "tin-mac: (dispatch_release without a reference|not a living dispatch object)");
}

TEST_F(SystemDispatchQueueDeathTest, AnythingElseThanALivingObjectTraps) {
  int no = 0;
  EXPECT_DEATH(release(&no), "tin-mac: not a living dispatch object: dispatch_release");
  EXPECT_DEATH(cancel(mainQueue()),
               "a dispatch object of the wrong class: dispatch_source_cancel of a dispatch_main");
}

TEST_F(SystemDispatchQueueDeathTest, AnUnknownQualityOfServiceTraps) {
  EXPECT_DEATH(bound<const void*(const void*, unsigned, int)>(
                   "_dispatch_queue_attr_make_with_qos_class")(nullptr, 0x12, 0),
               "tin-mac: a quality of service that a Mac does not have: 18");
}

}  // namespace

}  // namespace tinmac::test
