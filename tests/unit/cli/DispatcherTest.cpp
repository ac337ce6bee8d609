#include "commands/Dispatcher.h"

#include <gtest/gtest.h>

#include "commands/HelpText.h"
#include "support/CapturedOutput.h"

namespace lenslark {
namespace {

std::string outputOf(std::vector<std::string> words) {
  return capturedOutput([&] { Dispatcher::run(Arguments(std::move(words))); });
}

TEST(DispatcherTest, noArgumentsPrintTheHelp) { EXPECT_EQ(outputOf({}), HelpText::text()); }

TEST(DispatcherTest, anUnknownVerbPrintsTheHelp) {
  EXPECT_EQ(outputOf({"frobnicate"}), HelpText::text());
}

TEST(DispatcherTest, anEmptyVerbPrintsTheHelp) { EXPECT_EQ(outputOf({""}), HelpText::text()); }

TEST(DispatcherTest, verbsAreCaseSensitive) { EXPECT_EQ(outputOf({"Version"}), HelpText::text()); }

TEST(DispatcherTest, anUnknownWordForTheAppPrintsTheHelp) {
  EXPECT_EQ(outputOf({"app", "restart"}), HelpText::text());
  EXPECT_EQ(outputOf({"app", "Status"}), HelpText::text());
  EXPECT_EQ(outputOf({"app"}), HelpText::text());
}

TEST(DispatcherTest, printsTheVersionOnALine) { EXPECT_EQ(outputOf({"version"}), "1.1.0\n"); }

TEST(DispatcherTest, takesTheVersionAsAFlagToo) { EXPECT_EQ(outputOf({"--version"}), "1.1.0\n"); }

TEST(DispatcherTest, suggestsTheNearestVerb) {
  EXPECT_EQ(Dispatcher::nearestVerb("verison"), "version");
}

TEST(DispatcherTest, suggestsNothingForAVerb) {
  EXPECT_EQ(Dispatcher::nearestVerb("version"), std::nullopt);
}

TEST(DispatcherTest, suggestsNothingForAWordLikeNone) {
  for (const char* word : {"", "frobnicate", "help", "--help", "-h"}) {
    EXPECT_EQ(Dispatcher::nearestVerb(word), std::nullopt) << word;
  }
}

TEST(DispatcherTest, suggestsNothingForAnEndlessWord) {
  EXPECT_EQ(Dispatcher::nearestVerb(std::string(1000000, 'v')), std::nullopt);
}

}  // namespace
}  // namespace lenslark
