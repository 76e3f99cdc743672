#pragma once

#include <cmath>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tests/tin/runner/Printing.h"

namespace testing {

/// An assertion's result: why it does not hold; empty when it does.
struct Outcome {
  std::string failure;
  [[nodiscard]] bool holds() const { return failure.empty(); }
};

/// The words that a test adds to a failure.
class Message {
 public:
  template <class Value>
  Message& operator<<(const Value& value) {
    if constexpr (std::is_convertible_v<Value, std::string_view>) {
      text += std::string_view(value);
    } else {
      text += printed(value);
    }
    return *this;
  }
  [[nodiscard]] const std::string& words() const { return text; }

 private:
  std::string text;
};

/// A failure of the running test. Any thread.
class Failure {
 public:
  Failure(bool isFatal, const char* inFile, int onLine, std::string failed)
      : fatal(isFatal), file(inFile), line(onLine), why(std::move(failed)) {}
  // An assignment binds weaker than the << of the words behind a macro.
  // NOLINTNEXTLINE(misc-unconventional-assign-operator)
  void operator=(const Message& message) const;

 private:
  bool fatal;
  const char* file;
  int line;
  std::string why;
};

/// Whether an assertion that ends its function has failed in the running test.
bool hasFatalFailure();

inline Outcome truth(bool value, bool wanted, std::string_view code) {
  if (value == wanted) return {};
  return {std::string(code) + (value ? " is true" : " is false")};
}

template <class Relation, class Left, class Right>
Outcome compared(Relation relation, const Left& left, const Right& right, std::string_view code) {
  if (relation(left, right)) return {};
  return {std::string(code) + "\n  left:  " + printed(left) + "\n  right: " + printed(right)};
}

inline Outcome near(double left, double right, double distance, std::string_view code) {
  if (std::fabs(left - right) <= distance) return {};
  return {std::string(code) + "\n  left:  " + printed(left) + "\n  right: " + printed(right)};
}

}  // namespace testing

#define TESTING_CHECK(outcome, fatal, ending)                                     \
  if (const ::testing::Outcome testedOutcome = outcome; testedOutcome.holds()) {  \
  } else                                                                          \
    ending ::testing::Failure(fatal, __FILE__, __LINE__, testedOutcome.failure) = \
        ::testing::Message()

#define TESTING_TRUTH(condition, wanted) \
  ::testing::truth(static_cast<bool>(condition), wanted, #condition)
#define TESTING_COMPARED(relation, left, right)                                                \
  ::testing::compared([](const auto& testedLeft,                                               \
                         const auto& testedRight) { return testedLeft relation testedRight; }, \
                      left, right, #left " " #relation " " #right)

#define EXPECT_TRUE(condition) TESTING_CHECK(TESTING_TRUTH(condition, true), false, )
#define EXPECT_FALSE(condition) TESTING_CHECK(TESTING_TRUTH(condition, false), false, )
#define EXPECT_EQ(left, right) TESTING_CHECK(TESTING_COMPARED(==, left, right), false, )
#define EXPECT_NE(left, right) TESTING_CHECK(TESTING_COMPARED(!=, left, right), false, )
#define EXPECT_LT(left, right) TESTING_CHECK(TESTING_COMPARED(<, left, right), false, )
#define EXPECT_LE(left, right) TESTING_CHECK(TESTING_COMPARED(<=, left, right), false, )
#define EXPECT_GT(left, right) TESTING_CHECK(TESTING_COMPARED(>, left, right), false, )
#define EXPECT_GE(left, right) TESTING_CHECK(TESTING_COMPARED(>=, left, right), false, )
#define EXPECT_NEAR(left, right, distance) \
  TESTING_CHECK(::testing::near(left, right, distance, #left " is near " #right), false, )
#define EXPECT_NO_FATAL_FAILURE(statement) \
  statement;                               \
  TESTING_CHECK(TESTING_TRUTH(::testing::hasFatalFailure(), false), false, )

#define ASSERT_TRUE(condition) TESTING_CHECK(TESTING_TRUTH(condition, true), true, return)
#define ASSERT_FALSE(condition) TESTING_CHECK(TESTING_TRUTH(condition, false), true, return)
#define ASSERT_EQ(left, right) TESTING_CHECK(TESTING_COMPARED(==, left, right), true, return)
#define ASSERT_NE(left, right) TESTING_CHECK(TESTING_COMPARED(!=, left, right), true, return)
#define ASSERT_GT(left, right) TESTING_CHECK(TESTING_COMPARED(>, left, right), true, return)
#define ASSERT_GE(left, right) TESTING_CHECK(TESTING_COMPARED(>=, left, right), true, return)

#define ADD_FAILURE() ::testing::Failure(false, __FILE__, __LINE__, "failed") = ::testing::Message()
#define FAIL() return ::testing::Failure(true, __FILE__, __LINE__, "failed") = ::testing::Message()
