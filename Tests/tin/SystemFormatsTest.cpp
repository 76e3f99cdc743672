#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstdio>
#include <string>

#include "SystemHost.h"
#include "SystemVariadicCall.h"

__asm__(
    ".text\n.globl tinTestCallVariadic\n.type tinTestCallVariadic, %function\n"
    "tinTestCallVariadic:\n"
    "  stp x29, x30, [sp, #-16]!\n  mov x29, sp\n"
    "  mov x9, x0\n  mov x10, x1\n"
    "  sub sp, sp, x3, lsl #4\n  mov x11, sp\n"
    "1:  cbz x3, 2f\n  ldp x4, x5, [x2], #16\n  stp x4, x5, [x11], #16\n  sub x3, x3, #1\n  b 1b\n"
    "2:  ldp x0, x1, [x10]\n  ldr x2, [x10, #16]\n"
    "  mov x3, #-3\n  mov x4, #-4\n  mov x5, #-5\n  mov x6, #-6\n  mov x7, #-7\n"
    "  fmov d0, #1.5\n  fmov d1, #1.5\n  fmov d2, #1.5\n  fmov d3, #1.5\n"
    "  blr x9\n"
    "  mov sp, x29\n  ldp x29, x30, [sp], #16\n  ret\n");

namespace tinmac::test {

namespace {

template <class... Slots>
std::string printedByMac(const char* format, Slots... values) {
  std::array<char, 128> buffer{};
  const std::int64_t length = callVariadic(
      boundAddress("_snprintf"), {slot(buffer.data()), buffer.size(), slot(format)}, values...);
  EXPECT_EQ(length, static_cast<std::int64_t>(std::string(buffer.data()).size()));
  return buffer.data();
}

TEST(SystemFormats, SnprintfTakesIntegersTextsAndRealsFromTheStack) {
  EXPECT_EQ(printedByMac("%d %s %.2f %llu", std::uint64_t{0xffffffff}, slot("word"),
                         std::bit_cast<std::uint64_t>(2.25), ~std::uint64_t{0}),
            "-1 word 2.25 18446744073709551615");
}

TEST(SystemFormats, SnprintfTakesAPrecisionFromTheStack) {
  EXPECT_EQ(printedByMac("%.*g|%5d", std::uint64_t{3}, std::bit_cast<std::uint64_t>(3.14159),
                         std::uint64_t{7}),
            "3.14|    7");
}

TEST(SystemFormats, VsnprintfTakesAMacsArgumentList) {
  std::array<char, 32> buffer{};
  const std::array<std::uint64_t, 2> arguments = {std::bit_cast<std::uint64_t>(0.5), 42};
  const auto print = bound<int(char*, std::size_t, const char*, const void*)>("_vsnprintf");
  EXPECT_EQ(print(buffer.data(), buffer.size(), "%g/%d", arguments.data()), 6);
  EXPECT_STREQ(buffer.data(), "0.5/42");
}

TEST(SystemFormats, FprintfWritesToTheStreamThatTheProgramNames) {
  testing::internal::CaptureStderr();
  std::FILE* const stream = *static_cast<std::FILE**>(boundAddress("___stderrp"));
  // Its two named arguments leave the third register free: rubbish, too.
  callVariadic(boundAddress("_fprintf"), {slot(stream), slot("%s=%d\n"), 0x5a5a}, slot("limit"),
               std::uint64_t{80});
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "limit=80\n");
}

TEST(SystemFormatsDeathTest, ALongDoubleTraps) {
  EXPECT_DEATH(printedByMac("%5.2Lf", std::uint64_t{0}), "tin-mac: a format with a long double");
}

TEST(SystemFormats, APercentSignBeforeALetterIsNoConversion) {
  EXPECT_EQ(printedByMac("100%%Lf"), "100%Lf");
}

}  // namespace

}  // namespace tinmac::test
