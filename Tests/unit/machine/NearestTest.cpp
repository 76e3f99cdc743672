#include "VirtualMac/Machine/Nearest.h"

#include <gtest/gtest.h>

namespace virtualmac {

TEST(NearestTest, NamesTheNearestWordWhenOneIsNear) {
  EXPECT_EQ(unknownWord("lid", "opne", {"open", "closed"}),
            "lid \"opne\" is unknown, did you mean \"open\"? (allowed: open, closed)");
  EXPECT_EQ(unknownWord("lid", "sideways", {"open", "closed"}),
            "lid \"sideways\" is unknown (allowed: open, closed)");
}

TEST(NearestTest, AMisspeltWordHasANearOne) {
  const auto nearest = [](std::string_view word) {
    const std::string text = unknownWord("it", word, {"disconnect", "connect", "quit"});
    const std::size_t begin = text.find("mean \"");
    return begin == std::string::npos ? "" : text.substr(begin + 6, text.rfind("\"?") - begin - 6);
  };
  EXPECT_EQ(nearest("conect"), "connect");
  EXPECT_EQ(nearest("disconect"), "disconnect");
  EXPECT_EQ(nearest("elephant"), "");
  EXPECT_EQ(nearest("disc"), "disconnect") << "it begins like this";
}

TEST(NearestTest, AWordOfEarlierDaysIsNearToTheOneOfToday) {
  EXPECT_EQ(unknownWord("adapter", "out", {"on", "off"}),
            "adapter \"out\" is unknown, did you mean \"off\"? (allowed: on, off)");
  EXPECT_EQ(unknownWord("it", "clear", {"quit"}), "it \"clear\" is unknown (allowed: quit)");
}

}  // namespace virtualmac
