// One test for each way to fail. The runner must report every one as failed before its word on any
// other test counts.
#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

namespace {

TEST(DeliberateFailure, ExpectTrue) { EXPECT_TRUE(false); }
TEST(DeliberateFailure, ExpectFalse) { EXPECT_FALSE(true); }
TEST(DeliberateFailure, ExpectEqual) { EXPECT_EQ(1, 2) << "with words"; }
TEST(DeliberateFailure, ExpectNotEqual) { EXPECT_NE(std::string("a"), "a"); }
TEST(DeliberateFailure, ExpectLess) { EXPECT_LT(2, 2); }
TEST(DeliberateFailure, ExpectLessOrEqual) { EXPECT_LE(3, 2); }
TEST(DeliberateFailure, ExpectGreater) { EXPECT_GT(2, 2); }
TEST(DeliberateFailure, ExpectGreaterOrEqual) { EXPECT_GE(1, 2); }
TEST(DeliberateFailure, ExpectNear) { EXPECT_NEAR(1.0, 2.0, 0.5); }
TEST(DeliberateFailure, AssertTrue) { ASSERT_TRUE(false); }
TEST(DeliberateFailure, AssertFalse) { ASSERT_FALSE(true); }
TEST(DeliberateFailure, AssertEqual) { ASSERT_EQ(1, 2); }
TEST(DeliberateFailure, AssertNotEqual) { ASSERT_NE(1, 1); }
TEST(DeliberateFailure, AssertGreater) { ASSERT_GT(1, 1); }
TEST(DeliberateFailure, AssertGreaterOrEqual) { ASSERT_GE(0, 1); }
TEST(DeliberateFailure, AddFailure) { ADD_FAILURE() << "with words"; }
TEST(DeliberateFailure, Fail) { FAIL() << "with words"; }
TEST(DeliberateFailure, AnException) { [NSException raise:NSGenericException format:@"raised"]; }

void failFatally() { ASSERT_TRUE(false); }

TEST(DeliberateFailure, AFatalFailureInAFunction) { EXPECT_NO_FATAL_FAILURE(failFatally()); }

class DeliberateFailureAtSetUp : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(false); }
};

TEST_F(DeliberateFailureAtSetUp, IsOne) {}

TEST(DeliberateSuccess, EveryAssertionCanHold) {
  EXPECT_TRUE(true);
  EXPECT_FALSE(false);
  EXPECT_EQ(std::string("a"), "a");
  EXPECT_NE(1, 2);
  EXPECT_LT(1, 2);
  EXPECT_LE(2, 2);
  EXPECT_GT(2, 1);
  EXPECT_GE(2, 2);
  EXPECT_NEAR(1.0, 1.2, 0.5);
  EXPECT_NO_FATAL_FAILURE(static_cast<void>(0));
  ASSERT_TRUE(true);
  ASSERT_FALSE(false);
  ASSERT_EQ(1, 1);
  ASSERT_NE(1, 2);
  ASSERT_GT(2, 1);
  ASSERT_GE(2, 2);
}

}  // namespace
