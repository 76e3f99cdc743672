#include "Base/Reply.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/SerialQueue.h"
#include "Tests/unit/FakesDispatch.h"

namespace korvel {
namespace {

using Answers = std::vector<std::pair<bool, std::optional<ErrorObject>>>;

Reply replyInto(Answers& answers) {
  using Sink = FunctionReplySink<bool, std::optional<ErrorObject>>;
  return Reply(std::make_unique<Sink>([&answers](bool success, std::optional<ErrorObject> error) {
    answers.emplace_back(success, std::move(error));
  }));
}

TEST(ReplyTest, DeliversItsValuesOnce) {
  Answers answers;
  {
    Reply reply = replyInto(answers);
    reply(true, std::nullopt);
  }
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_TRUE(answers[0].first);
  EXPECT_EQ(answers[0].second, std::nullopt);
}

TEST(ReplyTest, CarriesTheErrorOfAFailure) {
  Answers answers;
  const ErrorObject error{"domain", 400, {}};
  replyInto(answers)(false, error);
  ASSERT_EQ(answers.size(), 1U);
  EXPECT_FALSE(answers[0].first);
  EXPECT_EQ(answers[0].second, error);
}

TEST(ReplyTest, MovingTakesTheObligationAlong) {
  Answers answers;
  {
    Reply first = replyInto(answers);
    Reply second = std::move(first);
    second(true, std::nullopt);
  }
  EXPECT_EQ(answers.size(), 1U);
}

TEST(ReplyDeathTest, DroppingAnUncalledReplyStopsTheProcess) {
  Answers answers;
  EXPECT_DEATH({ replyInto(answers); }, "a reply was dropped without being called");
}

TEST(ReplyDeathTest, CallingAReplyTwiceStopsTheProcess) {
  Answers answers;
  EXPECT_DEATH(
      {
        Reply reply = replyInto(answers);
        reply(true, std::nullopt);
        reply(true, std::nullopt);
      },
      "a reply was called twice");
}

TEST(ReplyDeathTest, CallingAMovedFromReplyStopsTheProcess) {
  Answers answers;
  Reply first = replyInto(answers);
  Reply second = std::move(first);
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move): misused on purpose
  EXPECT_DEATH(first(true, std::nullopt), "a reply was called twice");
  second(true, std::nullopt);
}

TEST(SerialQueueTest, WorkOnTheQueuePassesTheCheck) {
  SerialQueue queue(std::make_shared<test::InlineQueue>());
  bool ran = false;
  queue.async([&] {
    queue.assertCurrent();
    ran = true;
  });
  EXPECT_TRUE(ran);
}

TEST(SerialQueueDeathTest, WorkOutsideTheQueueStopsTheProcess) {
  const SerialQueue queue(std::make_shared<test::InlineQueue>());
  EXPECT_DEATH(queue.assertCurrent(), "work runs outside its serial queue");
}

class CountingLock final : public LockPrimitive {
 public:
  explicit CountingLock(int& heldCount) : held(heldCount) {}
  void lock() override { ++held; }
  void unlock() override { --held; }

 private:
  int& held;
};

TEST(LockTest, AScopedLockIsHeldForItsScope) {
  int held = 0;
  Lock lock(std::make_unique<CountingLock>(held));
  {
    const ScopedLock scope(lock);
    EXPECT_EQ(held, 1);
  }
  EXPECT_EQ(held, 0);
}

}  // namespace
}  // namespace korvel
