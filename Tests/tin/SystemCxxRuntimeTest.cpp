#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <typeinfo>
#include <variant>

#include "SystemHost.h"
#include "TinMac/System/Exports.h"

namespace tinmac::test {

namespace {

/// The value that an object of the class has for its table of virtual functions.
const void* firstFunctionOf(const char* table) {
  return static_cast<const std::byte*>(boundAddress(table)) + 2 * sizeof(void*);
}

/// Builds an exception as a Mac's program does: it calls the constructors that it binds and sets
/// the table of virtual functions itself.
template <class Exception>
void throwBuilt(const char* constructor, const char* table, const char* text) {
  void* const thrown = bound<void*(std::size_t)>("___cxa_allocate_exception")(sizeof(Exception));
  bound<void(void*, const char*)>(constructor)(thrown, text);
  if (table != nullptr) {
    *static_cast<const void**>(thrown) = firstFunctionOf(table);
  }
  bound<void(void*, const std::type_info*, void*)>("___cxa_throw")(thrown, &typeid(Exception),
                                                                   nullptr);
}

TEST(SystemCxxRuntime, AnExceptionOfTheProgramsMakingIsCaughtByItsBase) {
  try {
    throwBuilt<std::out_of_range>("__ZNSt11logic_errorC2EPKc", "__ZTVSt12out_of_range", "far");
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "far");
  }
  try {
    throwBuilt<std::runtime_error>("__ZNSt13runtime_errorC1EPKc", nullptr, "late");
    FAIL();
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(), "late");
  }
}

TEST(SystemCxxRuntime, TypeInformationIsTheOneThatCatches) {
  EXPECT_EQ(boundAddress("__ZTISt9exception"), &typeid(std::exception));
  EXPECT_EQ(boundAddress("__ZTISt18bad_variant_access"), &typeid(std::bad_variant_access));
  const std::bad_variant_access sample;
  EXPECT_EQ(firstFunctionOf("__ZTVSt18bad_variant_access"),
            *reinterpret_cast<const void* const*>(&sample));
}

TEST(SystemCxxRuntime, ABadArrayLengthIsBuiltInPlace) {
  alignas(std::bad_array_new_length) std::byte place[sizeof(std::bad_array_new_length)]{};
  bound<void(void*)>("__ZNSt20bad_array_new_lengthC1Ev")(place);
  const auto* const built = reinterpret_cast<const std::exception*>(place);
  EXPECT_NE(dynamic_cast<const std::bad_array_new_length*>(built), nullptr);
}

TEST(SystemCLibrary, NumbersAreReadAndTooLargeOnesAreErrors) {
  int& error = *bound<int*()>("___error")();
  error = 0;
  char* end = nullptr;
  EXPECT_EQ(bound<double(const char*, char**)>("_strtod")("2.5x", &end), 2.5);
  EXPECT_EQ(*end, 'x');
  EXPECT_EQ(bound<long long(const char*, char**, int)>("_strtoll")("-80", nullptr, 10), -80);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(bound<unsigned long long(const char*, char**, int)>("_strtoull")("99999999999999999999",
                                                                             nullptr, 10),
            ~0ULL);
  EXPECT_EQ(error, 34);
}

TEST(SystemCLibrary, TheNumberFormatIsThatOfAMac) {
  const void* const format = bound<const void*()>("_localeconv")();
  EXPECT_STREQ(*static_cast<const char* const*>(format), ".");
  EXPECT_STREQ(static_cast<const char* const*>(format)[9], "");
  EXPECT_EQ(static_cast<const unsigned char*>(format)[80], 127);
  EXPECT_EQ(static_cast<const unsigned char*>(format)[93], 127);
}

TEST(SystemCLibraryDeathTest, AnOverwrittenGuardTraps) {
  EXPECT_NE(*static_cast<std::uintptr_t*>(boundAddress("___stack_chk_guard")), 0U);
  EXPECT_DEATH(bound<void()>("___stack_chk_fail")(), "tin-mac: stack overrun");
}

TEST(SystemExports, EverySymbolHasOneAddress) {
  std::set<std::string_view> names;
  for (const Export& row : systemExports()) {
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_TRUE(row.name.starts_with('_')) << row.name;
    EXPECT_NE(row.address, nullptr) << row.name;
  }
  EXPECT_GT(names.size(), 150U);
}

}  // namespace

}  // namespace tinmac::test
