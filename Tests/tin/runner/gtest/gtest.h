#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/tin/runner/Outcome.h"

// The part of GoogleTest's interface that the tests of the Mac's adapters use, for the program that
// the tin Mac runs: GoogleTest itself needs streams and a hundred functions that the helper does
// not.
namespace testing {

// The names are GoogleTest's.
// NOLINTBEGIN(readability-identifier-naming)
class Test {
 public:
  virtual ~Test() = default;
  void run();

 protected:
  virtual void SetUp() {}
  virtual void TearDown() {}

 private:
  virtual void TestBody() = 0;
};

template <class Param>
class TestWithParam : public Test {
 public:
  static const Param& GetParam() { return *current; }
  static inline const Param* current = nullptr;
};

template <class Param>
struct TestParamInfo {
  Param param;
  std::size_t index;
};

template <class First, class... Others>
std::vector<First> Values(First first, Others... others) {
  return {std::move(first), std::move(others)...};
}

// NOLINTEND(readability-identifier-naming)

using Maker = std::function<std::unique_ptr<Test>()>;

/// Adds a test to those that the program runs. Called before main() or by an instantiation.
bool addTest(std::string_view suite, std::string_view name, Maker maker);
/// Runs once, before the first test: every file's tests are known by then.
bool addInstantiation(std::function<void()> instantiate);

template <class Body>
bool addPlain(const char* suite, const char* name) {
  return addTest(suite, name, [] { return std::make_unique<Body>(); });
}

struct ParameterisedTest {
  const char* name;
  Maker maker;
};

/// The tests that TEST_P wrote for a fixture, in any file.
template <class Fixture>
std::vector<ParameterisedTest>& testsOf() {
  static auto& all = *new std::vector<ParameterisedTest>;
  return all;
}

template <class Body, class Fixture>
bool addParameterised(const char* name) {
  testsOf<Fixture>().push_back({name, [] { return std::make_unique<Body>(); }});
  return true;
}

template <class Fixture, class Param, class Namer>
bool instantiate(const char* suite, const std::vector<Param>& values, Namer namer) {
  return addInstantiation([suite, namer, kept = std::make_shared<std::vector<Param>>(values)] {
    for (std::size_t index = 0; index < kept->size(); ++index) {
      const TestParamInfo<Param> info{(*kept)[index], index};
      for (const ParameterisedTest& test : testsOf<Fixture>()) {
        addTest(suite, test.name + ("/" + namer(info)), [kept, index, maker = test.maker] {
          TestWithParam<Param>::current = &(*kept)[index];
          return maker();
        });
      }
    }
  });
}

}  // namespace testing

#define TESTING_CLASS(suite, name) suite##_##name##_Test
#define TESTING_BODY(suite, name, fixture)                  \
  class TESTING_CLASS(suite, name) final : public fixture { \
    void TestBody() override;                               \
    static const bool isAdded;                              \
  };

#define TEST_F(suite, name)                                           \
  TESTING_BODY(suite, name, suite)                                    \
  const bool TESTING_CLASS(suite, name)::isAdded =                    \
      ::testing::addPlain<TESTING_CLASS(suite, name)>(#suite, #name); \
  void TESTING_CLASS(suite, name)::TestBody()

#define TEST(suite, name)                                             \
  TESTING_BODY(suite, name, ::testing::Test)                          \
  const bool TESTING_CLASS(suite, name)::isAdded =                    \
      ::testing::addPlain<TESTING_CLASS(suite, name)>(#suite, #name); \
  void TESTING_CLASS(suite, name)::TestBody()

#define TEST_P(suite, name)                                                  \
  TESTING_BODY(suite, name, suite)                                           \
  const bool TESTING_CLASS(suite, name)::isAdded =                           \
      ::testing::addParameterised<TESTING_CLASS(suite, name), suite>(#name); \
  void TESTING_CLASS(suite, name)::TestBody()

#define INSTANTIATE_TEST_SUITE_P(prefix, suite, values, namer) \
  const bool prefix##_##suite##_isInstantiated =               \
      ::testing::instantiate<suite>(#prefix "/" #suite, values, namer)

/// The contract's suites that no machine of this program can be arranged for.
#define GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(suite) \
  static_assert(std::is_base_of_v<::testing::Test, suite>)
