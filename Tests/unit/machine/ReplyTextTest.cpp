#include "VirtualMac/Machine/ReplyText.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

TEST(ReplyTextTest, OneWordSaysHowItWentAndAnErrorWhy) {
  EXPECT_EQ(replyText(std::uint64_t{412}), "412");
  EXPECT_EQ(replyText(std::string("{}")), "ok");
  EXPECT_EQ(replyText(std::string()), "empty");
  EXPECT_EQ(replyText(true, std::nullopt), "ok");
  EXPECT_EQ(replyText(false, std::nullopt), "failed without an error");
  const korvel::ErrorObject error{
      "Domain", 400, {{korvel::localizedDescriptionKey, "out of range"}}};
  EXPECT_EQ(replyText(false, error), "failed 400 \"out of range\"");
}

}  // namespace
}  // namespace virtualmac
