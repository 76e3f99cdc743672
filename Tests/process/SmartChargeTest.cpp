// The operating system's own charge limit, whole and broken, on a Mac that offers nothing else.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/process/Mac.h"
#include "Tests/process/RawClient.h"

namespace processtests {
namespace {

using Words = std::vector<std::string>;

void switchFault(const Mac& mac, const Words& fault, const char* state) {
  Words words{"fault"};
  words.insert(words.end(), fault.begin(), fault.end());
  words.emplace_back(state);
  mac.tell(words);
}

/// Ends the helper, and asks the next one for its capabilities.
Result capabilitiesOfTheNextHelper(const Mac& mac) {
  auto journal = mac.follow();
  mac.tell({"kill"});
  EXPECT_TRUE(journal.waitFor("KorvelHelper starting"));
  return mac.app({"capabilities"});
}

TEST(SmartChargeTest, AFrameworkThatLacksAnythingIsNoControl) {
  const Mac mac({.speed = 20, .profile = "native-only"});
  expectSays(mac.app({"capabilities"}), 0, {"by the charge limit of macOS"});
  const std::vector<Words> faults{{"powerui-missing"},
                                  {"powerui-class-missing"},
                                  {"powerui-init-fails"},
                                  {"powerui-unsupported"},
                                  {"powerui-offers"},
                                  {"powerui-offers-error", "nothing", "to", "offer"},
                                  {"powerui-method-missing", "setMCLLimit:error:"},
                                  {"powerui-method-missing", "getMCLLimitWithError:"}};
  for (const Words& fault : faults) {
    SCOPED_TRACE(fault.front() + " " + fault.back());
    switchFault(mac, fault, "on");
    const Result broken = capabilitiesOfTheNextHelper(mac);
    expectSays(broken, 0, {"charging       cannot be controlled"});
    switchFault(mac, fault, "off");
  }
  expectSays(capabilitiesOfTheNextHelper(mac), 0, {"by the charge limit of macOS"});
}

struct Refusal {
  const char* name;
  Words fault;
  const char* logged;
};

class SmartChargeRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(SmartChargeRefusalTest, IsLoggedAndTheHelperGoesOn) {
  const Mac mac({.speed = 20, .profile = "native-only"});
  RawClient client(mac);
  mac.tell({"set", "battery", "85"});
  switchFault(mac, GetParam().fault, "on");
  auto journal = mac.follow();
  client.setChargeLimit(80);
  EXPECT_TRUE(journal.waitFor(GetParam().logged)) << GetParam().logged;
  switchFault(mac, GetParam().fault, "off");
  EXPECT_TRUE(succeeded(client.setChargeLimit(90)));
  EXPECT_TRUE(mac.becomes([](const auto& status) { return status.at("power") == "awake"; }));
}

INSTANTIATE_TEST_SUITE_P(
    Each, SmartChargeRefusalTest,
    testing::Values(Refusal{"Error", {"powerui-error", "not", "today"}, "not today"},
                    Refusal{"No", {"powerui-refuses"}, "PowerUI rejected charge limit"},
                    Refusal{"Kept", {"powerui-keeps-limit"}, "read-back disagreed"}),
    [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace processtests
