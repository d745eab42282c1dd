#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/exec/EnvironmentBuilder.h"

namespace {

using kestrel::EnvironmentBuilder;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::Not;
using testing::Pair;

TEST(EnvironmentBuilderTest, HoldsNothingAtFirst) {
  const EnvironmentBuilder builder;
  EXPECT_TRUE(builder.isEmpty());
  EXPECT_THAT(builder.toStrings(), IsEmpty());
}

TEST(EnvironmentBuilderTest, VariablesAreSetAndReplaced) {
  EnvironmentBuilder builder;
  builder.setVariable("B", "2");
  builder.setVariable("A", "");
  builder.setVariable("B", "x=y");
  EXPECT_FALSE(builder.isEmpty());
  EXPECT_THAT(builder.toStrings(), ElementsAre("A=", "B=x=y"));
}

TEST(EnvironmentBuilderTest, NamesThatNoVariableCanHaveAreIgnored) {
  EnvironmentBuilder builder;
  builder.setVariable("", "1");
  builder.setVariable("A=B", "1");
  builder.setVariable(std::string("A\0B", 3), "1");
  EXPECT_TRUE(builder.isEmpty());
}

TEST(EnvironmentBuilderTest, AValueEndsAtItsFirstNul) {
  EnvironmentBuilder builder;
  builder.setVariable("A", std::string("12\0"
                                       "34",
                                       5));
  EXPECT_THAT(builder.toStrings(), ElementsAre("A=12"));
}

TEST(EnvironmentBuilderTest, CopyEnvReplacesEverything) {
  EnvironmentBuilder builder;
  builder.setVariable("OLD", "1");
  const char* const entries[] = {"B=1", "A=x=y", "NONE", "=odd", "E=", "B=2", nullptr};
  builder.copyEnv(entries);
  EXPECT_THAT(builder.toStrings(), ElementsAre("A=x=y", "B=2", "E="));
}

TEST(EnvironmentBuilderTest, CopyEnvOfNothingLeavesNothing) {
  EnvironmentBuilder builder;
  builder.setVariable("OLD", "1");
  builder.copyEnv(nullptr);
  EXPECT_TRUE(builder.isEmpty());
  const char* const none[] = {nullptr};
  builder.setVariable("OLD", "1");
  builder.copyEnv(none);
  EXPECT_TRUE(builder.isEmpty());
}

TEST(EnvironmentBuilderTest, TheCurrentEnvironmentIsAddedToWhatIsSet) {
  ::setenv("BUILDER_TEST_A", "outside", 1);
  ::setenv("BUILDER_TEST_B", "outside", 1);
  EnvironmentBuilder builder;
  builder.setVariable("BUILDER_TEST_A", "inside");
  builder.setVariable("BUILDER_TEST_OWN", "1");
  builder.appendCurrentEnvironnment();
  EXPECT_THAT(
      builder.getVariables(),
      AllOf(Contains(Pair("BUILDER_TEST_A", "inside")), Contains(Pair("BUILDER_TEST_B", "outside")),
            Contains(Pair("BUILDER_TEST_OWN", "1")), Contains(Key("PATH"))));
}

TEST(EnvironmentBuilderTest, TheMinimalEnvironmentIsWhatACommandNeeds) {
  ::setenv("BUILDER_TEST_A", "outside", 1);
  ::setenv("PATH", "/usr/bin:/bin", 1);
  ::setenv("HOME", "/home/x", 1);
  ::setenv("LC_ALL", "C", 1);
  ::setenv("LANG", "outside", 1);
  ::unsetenv("TERM");
  EnvironmentBuilder builder;
  builder.setVariable("LANG", "inside");
  builder.appendMinimalEnvironnment();
  EXPECT_THAT(builder.getVariables(),
              AllOf(Contains(Pair("PATH", "/usr/bin:/bin")), Contains(Pair("HOME", "/home/x")),
                    Contains(Pair("LC_ALL", "C")), Contains(Pair("LANG", "inside"))));
  EXPECT_THAT(builder.getVariables(), Not(Contains(Key("TERM"))));
  EXPECT_THAT(builder.getVariables(), Not(Contains(Key("BUILDER_TEST_A"))));
}

}  // namespace
