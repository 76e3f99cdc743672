#include "VirtualMac/Machine/Requirement.h"

#include <gtest/gtest.h>

#include "VirtualMac/Machine/CodeSignatures.h"

namespace virtualmac {
namespace {

constexpr const char* strict =
    "anchor apple generic and identifier \"com.korvel.app\" and certificate leaf[subject.OU] = "
    "\"ABCDE12345\" and certificate leaf[field.1.2.840.113635.100.6.1.13] exists";

bool satisfies(std::string_view identity, std::string_view text) {
  static const CodeSignatures signatures({});
  const auto requirement = Requirement::parse(text);
  EXPECT_TRUE(requirement.has_value()) << text;
  const SigningIdentity* code = signatures.identity(identity);
  EXPECT_NE(code, nullptr) << identity;
  return requirement && code != nullptr && requirement->satisfiedBy(*code);
}

TEST(RequirementTest, OnlyTheDistributedApplicationSatisfiesTheStrictOne) {
  EXPECT_TRUE(satisfies("app", strict));
  for (const char* other :
       {"helper", "other-identifier", "other-team", "development", "ad-hoc", "unsigned", "apple"}) {
    EXPECT_FALSE(satisfies(other, strict)) << other;
  }
}

TEST(RequirementTest, EachClauseLooksAtItsOwnProperty) {
  EXPECT_TRUE(satisfies("app", "anchor apple generic"));
  EXPECT_TRUE(satisfies("apple", "anchor apple generic"));
  EXPECT_FALSE(satisfies("ad-hoc", "anchor apple generic"));
  EXPECT_TRUE(satisfies("apple", "anchor apple"));
  EXPECT_FALSE(satisfies("app", "anchor apple"));
  EXPECT_TRUE(satisfies("ad-hoc", "identifier \"com.korvel.app\""));
  EXPECT_FALSE(satisfies("unsigned", "identifier \"\""));
  EXPECT_TRUE(satisfies("development", "certificate leaf[subject.OU] = \"ABCDE12345\""));
  EXPECT_FALSE(satisfies("ad-hoc", "certificate leaf[subject.OU] = \"\""));
  EXPECT_FALSE(
      satisfies("development", "certificate leaf[field.1.2.840.113635.100.6.1.13] exists"));
  EXPECT_TRUE(satisfies("app", "certificate leaf[subject.OU] exists"));
  EXPECT_TRUE(satisfies("unsigned", "always"));
  EXPECT_FALSE(satisfies("app", "never"));
}

TEST(RequirementTest, AndBindsTighterThanOr) {
  EXPECT_TRUE(satisfies("app", "always or never and never"));
  EXPECT_FALSE(satisfies("app", "(always or never) and never"));
  EXPECT_TRUE(satisfies("app", "never and never or always"));
}

TEST(RequirementTest, NegationTakesTheNextTerm) {
  EXPECT_TRUE(satisfies("app", "! never"));
  EXPECT_FALSE(satisfies("app", "!always and always"));
  EXPECT_TRUE(satisfies("app", "!(always and never)"));
  EXPECT_TRUE(satisfies("app", "!!always"));
}

TEST(RequirementTest, UnquotedValuesStartWithALetter) {
  EXPECT_TRUE(satisfies("app", "identifier com.korvel.app"));
  EXPECT_TRUE(satisfies("app", "cert leaf[subject.OU] = ABCDE12345"));
  const auto failed = Requirement::parse("certificate leaf[subject.OU] = 9BCDE12345");
  ASSERT_FALSE(failed.has_value());
  EXPECT_EQ(failed.error().position, 31U);
  EXPECT_TRUE(Requirement::parse("certificate leaf[subject.OU] = \"9BCDE12345\"").has_value());
}

TEST(RequirementTest, QuotedTextKnowsEscapes) {
  EXPECT_FALSE(satisfies("app", "identifier \"a\\\"b\""));
  EXPECT_TRUE(satisfies("app", "identifier \"com.korvel.\\app\""));
}

TEST(RequirementTest, SpaceAndCaseOfWordsMatterAsInTheLanguage) {
  EXPECT_TRUE(satisfies("app", "  anchor\tapple\n generic  "));
  EXPECT_FALSE(Requirement::parse("ANCHOR apple").has_value());
  EXPECT_FALSE(Requirement::parse("anchor applegeneric").has_value());
}

struct Broken {
  const char* text;
  std::size_t position;
};

class BrokenRequirementTest : public ::testing::TestWithParam<Broken> {};

TEST_P(BrokenRequirementTest, IsRefusedAtTheOffendingByte) {
  const auto parsed = Requirement::parse(GetParam().text);
  ASSERT_FALSE(parsed.has_value());
  EXPECT_EQ(parsed.error().position, GetParam().position) << parsed.error().message;
  EXPECT_FALSE(parsed.error().message.empty());
}

INSTANTIATE_TEST_SUITE_P(
    Grammar, BrokenRequirementTest,
    ::testing::Values(Broken{"", 0}, Broken{"   ", 3}, Broken{"anchor", 6},
                      Broken{"anchor pear", 7}, Broken{"identifier", 10},
                      Broken{"identifier \"open", 11}, Broken{"always always", 7},
                      Broken{"always and", 10}, Broken{"(always", 7}, Broken{"always)", 6},
                      Broken{"certificate root[subject.OU] = \"T\"", 12},
                      Broken{"certificate leaf", 16}, Broken{"certificate leaf[subject.OU", 27},
                      Broken{"certificate leaf[subject.OU]", 28},
                      Broken{"certificate leaf[subject.CN] = \"T\"", 17},
                      Broken{"certificate leaf[field.] exists", 17},
                      Broken{"certificate leaf[field.1..2] exists", 17},
                      Broken{"certificate leaf[field.1.2]", 27}, Broken{"!", 1}, Broken{"42", 0}));

TEST(RequirementTest, DeepNestingIsAnErrorAndNoOverflow) {
  const auto nested = [](std::size_t depth) {
    return Requirement::parse(std::string(depth - 1, '(') + "always" + std::string(depth - 1, ')'));
  };
  EXPECT_TRUE(nested(200).has_value());
  EXPECT_EQ(nested(201).error().message, "nested more than 200 deep");
  EXPECT_EQ(nested(100'000).error().message, "nested more than 200 deep");
  EXPECT_FALSE(Requirement::parse(std::string(100000, '!') + "always").has_value());
  EXPECT_TRUE(
      Requirement::parse(std::string(50, '(') + "always" + std::string(50, ')')).has_value());
}

}  // namespace
}  // namespace virtualmac
