#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "SystemCatch.h"
#include "SystemHost.h"
#include "TinMac/System/Exceptions.h"

namespace tinmac::test {

namespace {

std::atomic<int> kept = 0;

void retain(void* object) {
  ++kept;
  ++*static_cast<int*>(object);
}
void release(void* object) {
  --kept;
  --*static_cast<int*>(object);
}

void throwObject(void* object) { bound<void(void*)>("_objc_exception_throw")(object); }

class SystemExceptions : public testing::Test {
 protected:
  SystemExceptions() { keepExceptionsWith(retain, release); }
  ~SystemExceptions() override { keepExceptionsWith(nullptr, nullptr); }
};
using SystemExceptionsDeath = SystemExceptions;

TEST_F(SystemExceptions, AThrownObjectIsKeptUntilItsCatchEnds) {
  int object = 1;
  try {
    throwObject(&object);
    FAIL();
  } catch (...) {
    EXPECT_EQ(object, 2);
  }
  EXPECT_EQ(object, 1);
  EXPECT_EQ(kept, 0);
}

TEST_F(SystemExceptions, NoCppExceptionsClauseTakesAThrownObject) {
  int object = 1;
  bool everything = false;
  try {
    throwObject(&object);
  } catch (const std::exception&) {
    FAIL();
  } catch (...) {
    everything = true;
  }
  EXPECT_TRUE(everything);
}

/// Catches with one of the two clauses through the functions that a program binds.
template <class Catch>
void* caughtBy(Catch* clause, void (*run)(void*), void* argument) {
  tinTestCatchType = boundAddress("_OBJC_EHTYPE_$_NSException");
  return clause(run, argument, bound<void*(void*)>("_objc_begin_catch"),
                bound<void()>("_objc_end_catch"));
}

TEST_F(SystemExceptions, AClauseForExceptionsIsGivenTheObject) {
  int object = 1;
  EXPECT_EQ(caughtBy(tinTestCatchOne, throwObject, &object), &object);
  EXPECT_EQ(object, 1);
}

TEST_F(SystemExceptions, AClauseForEverythingIsGivenTheObject) {
  int object = 1;
  EXPECT_EQ(caughtBy(tinTestCatchAll, throwObject, &object), &object);
  EXPECT_EQ(object, 1);
}

TEST_F(SystemExceptions, ACppExceptionPassesAClauseForExceptionsAndIsCaughtByOneForEverything) {
  const auto raise = [](void* /*argument*/) { throw std::runtime_error("low"); };
  EXPECT_THROW(caughtBy(tinTestCatchOne, raise, nullptr), std::runtime_error);
  const auto* const error =
      static_cast<const std::runtime_error*>(caughtBy(tinTestCatchAll, raise, nullptr));
  EXPECT_NE(error, nullptr);
}

TEST_F(SystemExceptionsDeath, NilAndAnObjectThatNothingKeepsTrap) {
  int object = 1;
  EXPECT_DEATH(throwObject(nullptr), "tin-mac: objc_exception_throw: nil");
  keepExceptionsWith(nullptr, nullptr);
  EXPECT_DEATH(throwObject(&object), "objc_exception_throw: nothing keeps thrown objects");
}

}  // namespace

}  // namespace tinmac::test
