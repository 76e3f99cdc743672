#include "VirtualMac/Machine/ReplyText.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

TEST(ReplyTextTest, OneWordSaysHowItWentAndAnErrorWhy) {
  EXPECT_EQ(replied("ping", std::uint64_t{412}).text(), "ping 412");
  EXPECT_EQ(replied("getState", std::string("{}")).text(), "getState ok");
  EXPECT_EQ(replied("getState", std::string()).text(), "getState empty");
  const char* const operation = "setChargeLimit";
  EXPECT_EQ(replied(operation, true, std::nullopt).text(), "setChargeLimit ok");
  EXPECT_EQ(replied(operation, false, std::nullopt).text(),
            "setChargeLimit failed without an error");
  const korvel::ErrorObject error{
      "Domain", 400, {{korvel::localizedDescriptionKey, "out of range"}}};
  EXPECT_EQ(replied(operation, false, error).text(), "setChargeLimit failed 400 \"out of range\"");
}

}  // namespace
}  // namespace virtualmac
