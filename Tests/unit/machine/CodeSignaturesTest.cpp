#include "VirtualMac/Machine/CodeSignatures.h"

#include <gtest/gtest.h>

namespace virtualmac {
namespace {

using korvel::PropertyValue;

class CodeSignaturesTest : public ::testing::Test {
 protected:
  PropertyValue informationOf(korvel::HandleRef code) {
    PropertyValue information;
    EXPECT_EQ(client.copySigningInformation(code, korvel::codeSigningInformationFlag, information),
              0);
    return information;
  }

  CodeSignatures signatures{{}};
  CodeSigningClient client{signatures};
};

TEST_F(CodeSignaturesTest, TheHelpersProgramHasIdentifierAndTeam) {
  korvel::HandleRef code = 0;
  ASSERT_EQ(client.staticCodeCreateWithPath(helperProgramPath, code), 0);
  const PropertyValue information = informationOf(code);
  EXPECT_EQ(*information["identifier"].text(), "com.korvel.app.helper");
  EXPECT_EQ(*information["teamid"].text(), virtualTeam);
  client.release(code);
  EXPECT_EQ(client.liveObjects(), 0U);
}

TEST_F(CodeSignaturesTest, TheTeamNeedsTheFlag) {
  korvel::HandleRef code = 0;
  client.staticCodeCreateWithPath(helperProgramPath, code);
  PropertyValue information;
  EXPECT_EQ(client.copySigningInformation(code, 0, information), 0);
  EXPECT_TRUE(information["teamid"].isAbsent());
  EXPECT_FALSE(information["identifier"].isAbsent());
}

TEST_F(CodeSignaturesTest, AClientIsFoundByItsPid) {
  ASSERT_TRUE(signatures.setPid(700, "app"));
  korvel::HandleRef guest = 0;
  korvel::HandleRef code = 0;
  ASSERT_EQ(client.copyGuestWithPid(700, guest), 0);
  ASSERT_EQ(client.copyStaticCode(guest, code), 0);
  EXPECT_EQ(*informationOf(code)["identifier"].text(), "com.korvel.app");
  signatures.removePid(700);
  EXPECT_EQ(client.copyGuestWithPid(700, guest), securityNoSuchCode);
}

TEST_F(CodeSignaturesTest, UnsignedCodeSucceedsWithoutIdentifierAndTeam) {
  signatures.setPid(700, "unsigned");
  korvel::HandleRef code = 0;
  ASSERT_EQ(client.copyGuestWithPid(700, code), 0);
  const PropertyValue information = informationOf(code);
  ASSERT_NE(information.dictionary(), nullptr);
  EXPECT_TRUE(information["identifier"].isAbsent());
  EXPECT_TRUE(information["teamid"].isAbsent());
}

TEST_F(CodeSignaturesTest, AdHocCodeHasNoTeam) {
  signatures.setPid(700, "ad-hoc");
  korvel::HandleRef code = 0;
  ASSERT_EQ(client.copyGuestWithPid(700, code), 0);
  EXPECT_FALSE(informationOf(code)["identifier"].isAbsent());
  EXPECT_TRUE(informationOf(code)["teamid"].isAbsent());
}

TEST_F(CodeSignaturesTest, UnknownPlacesAndObjectsHaveTheirStatus) {
  korvel::HandleRef code = 3;
  EXPECT_EQ(client.staticCodeCreateWithPath("/nowhere", code), securityFileNotFound);
  EXPECT_EQ(client.copyStaticCode(12345, code), securityInvalidObject);
  PropertyValue information;
  EXPECT_EQ(client.copySigningInformation(12345, 2, information), securityInvalidObject);
  EXPECT_EQ(code, 3U);
  EXPECT_TRUE(information.isAbsent());
}

TEST_F(CodeSignaturesTest, UnknownIdentitiesCannotBeGiven) {
  EXPECT_FALSE(signatures.setPid(700, "nobody"));
  EXPECT_FALSE(signatures.setPath("/x", "nobody"));
  EXPECT_EQ(signatures.ofPid(700), nullptr);
}

TEST_F(CodeSignaturesTest, AProfilesIdentitiesJoinTheBuiltInOnes) {
  SigningIdentity tool;
  tool.name = "tool";
  tool.identifier = "com.example.other";
  const CodeSignatures extended({tool});
  ASSERT_NE(extended.identity("tool"), nullptr);
  EXPECT_EQ(extended.names().size(), signatures.names().size() + 1);
}

}  // namespace
}  // namespace virtualmac
