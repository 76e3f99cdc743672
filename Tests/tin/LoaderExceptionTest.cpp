#include <gtest/gtest.h>
#include <ucontext.h>
#include <unwind.h>

#include <cxxabi.h>
#include <csignal>
#include <exception>
#include <typeinfo>

#include "Tests/tin/LoaderFixtures.h"

// The C++ runtime of this process has them; the image's code asks for them by these names.
extern "C" {
// NOLINTNEXTLINE(*-reserved-identifier,readability-identifier-naming): the name is the runtime's
int __gxx_personality_v0(...);
extern std::byte classTypeTable[] asm("_ZTVN10__cxxabiv117__class_type_infoE");
extern std::byte derivedTypeTable[] asm("_ZTVN10__cxxabiv120__si_class_type_infoE");
}

namespace tinmac {
namespace {

using fixtures::function;
using fixtures::variable;

using Callback = void (*)();

template <typename Function>
void* addressOf(Function* function) {
  return std::bit_cast<void*>(function);
}

[[noreturn]] void terminate() { std::terminate(); }

/// Its unwind tables are registered once for all tests.
const Image& throwing() {
  static const std::unique_ptr<Image> image = fixtures::load(
      "throwing.dylib",
      fixtures::resolverOf({{"___cxa_allocate_exception", addressOf(abi::__cxa_allocate_exception)},
                            {"___cxa_throw", addressOf(abi::__cxa_throw)},
                            {"___cxa_begin_catch", addressOf(abi::__cxa_begin_catch)},
                            {"___cxa_end_catch", addressOf(abi::__cxa_end_catch)},
                            {"___gxx_personality_v0", addressOf(__gxx_personality_v0)},
                            {"__Unwind_Resume", addressOf(_Unwind_Resume)},
                            {"__ZTIi", const_cast<std::type_info*>(&typeid(int))},
                            {"__ZTVN10__cxxabiv117__class_type_infoE", classTypeTable},
                            {"__ZTVN10__cxxabiv120__si_class_type_infoE", derivedTypeTable},
                            {"__ZSt9terminatev", addressOf(terminate)}}),
      true);
  return *image;
}

void throwNumber() { throw 77; }
void throwNothing() {}

TEST(LoaderException, IsCaughtInTheImageByItsBase) {
  variable<int>(throwing(), "_cleanups") = 0;
  EXPECT_EQ(function<int(int)>(throwing(), "_catchOwn")(31), 31);
  EXPECT_EQ(variable<int>(throwing(), "_cleanups"), 2);
}

TEST(LoaderException, PassesFromThisProcessThroughTheImage) {
  variable<int>(throwing(), "_cleanups") = 0;
  EXPECT_THROW(function<void(Callback)>(throwing(), "_passThrough")(throwNumber), int);
  EXPECT_EQ(variable<int>(throwing(), "_cleanups"), 1);
}

TEST(LoaderException, OfThisProcessIsCaughtInTheImage) {
  variable<int>(throwing(), "_cleanups") = 0;
  EXPECT_EQ(function<int(Callback)>(throwing(), "_catchNumber")(throwNumber), 77);
  EXPECT_EQ(function<int(Callback)>(throwing(), "_catchNumber")(throwNothing), -1);
  EXPECT_EQ(variable<int>(throwing(), "_cleanups"), 2);
}

TEST(LoaderException, RestoresEveryRegisterOfTheCaller) {
  const auto call =
      function<std::uint64_t(int(Callback), Callback)>(throwing(), "_callWithPatterns");
  const auto caught = function<int(Callback)>(throwing(), "_catchAnything");
  EXPECT_EQ(call(caught, throwNothing), 0U);
  EXPECT_EQ(call(caught, throwNumber), 0U);
}

/// Passes the exception on with frames between that overwrite every register.
void throwThroughScrambled() {
  function<void(Callback)>(throwing(), "_scrambleRegisters")(throwNumber);
}

TEST(LoaderException, RestoresRegistersThroughSeveralFrames) {
  const auto call =
      function<std::uint64_t(int(Callback), Callback)>(throwing(), "_callWithPatterns");
  const auto caught = function<int(Callback)>(throwing(), "_catchAnything");
  EXPECT_EQ(call(caught, throwThroughScrambled), 0U);
}

void throwThroughOddFrame() { function<void(Callback)>(throwing(), "_passOddly")(throwNumber); }

TEST(LoaderException, PassesAFrameThatOnlyDwarfDescribes) {
  EXPECT_THROW(throwThroughOddFrame(), int);
  const auto call =
      function<std::uint64_t(int(Callback), Callback)>(throwing(), "_callWithPatterns");
  const auto caught = function<int(Callback)>(throwing(), "_catchAnything");
  EXPECT_EQ(call(caught, throwThroughOddFrame), 0U);
}

TEST(LoaderException, IsCaughtInAFrameThatOnlyDwarfDescribes) {
  const auto caught = function<int(Callback)>(throwing(), "_catchOddly");
  EXPECT_EQ(caught(throwNothing), 0);
  EXPECT_EQ(caught(throwNumber), 1);
  const auto call =
      function<std::uint64_t(int(Callback), Callback)>(throwing(), "_callWithPatterns");
  EXPECT_EQ(call(caught, throwThroughScrambled), 0U);
}

/// The registers that a caller of the stopped function had, found by unwinding.
struct Found {
  bool stoppedFrame = false;
  bool callerFrame = false;
  std::uint64_t general[10] = {};
};

Found found;

_Unwind_Reason_Code visit(_Unwind_Context* context, void*) {
  const auto place = std::bit_cast<void*>(_Unwind_GetRegionStart(context));
  if (found.stoppedFrame) {
    found.callerFrame = place == throwing().symbol("_callWithPatterns");
    for (int index = 0; index < 10; ++index) {
      found.general[index] = _Unwind_GetGR(context, 19 + index);
    }
    return _URC_END_OF_STACK;
  }
  found.stoppedFrame = place == throwing().symbol("_leafThatStops");
  return _URC_NO_REASON;
}

void unwindFromSignal(int, siginfo_t*, void* context) {
  _Unwind_Backtrace(visit, nullptr);
  static_cast<ucontext_t*>(context)->uc_mcontext.pc += 4;
}

TEST(LoaderUnwinding, LeavesAFunctionWithoutFrame) {
  static_cast<void>(throwing());
  struct sigaction action = {};
  struct sigaction before = {};
  action.sa_sigaction = unwindFromSignal;
  action.sa_flags = SA_SIGINFO;
  ASSERT_EQ(sigaction(SIGTRAP, &action, &before), 0);
  const auto call =
      function<std::uint64_t(void(Callback), Callback)>(throwing(), "_callWithPatterns");
  EXPECT_EQ(call(function<void(Callback)>(throwing(), "_leafThatStops"), nullptr), 0U);
  ASSERT_EQ(sigaction(SIGTRAP, &before, nullptr), 0);
  EXPECT_TRUE(found.stoppedFrame);
  EXPECT_TRUE(found.callerFrame);
  for (std::uint64_t index = 0; index < 10; ++index) {
    EXPECT_EQ(found.general[index], 0x1000 + 19 + index);
  }
}

}  // namespace
}  // namespace tinmac
