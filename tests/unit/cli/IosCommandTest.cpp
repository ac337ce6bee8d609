#include "commands/IosCommand.h"

#include <gtest/gtest.h>

#include "commands/Failure.h"
#include "commands/HelpText.h"
#include "support/CapturedOutput.h"

namespace lenslark {
namespace {

TEST(IosCommandTest, aLaunchNeedsAnApp) {
  try {
    IosCommand::run(Arguments({"ios", "launch"}));
    FAIL() << "nothing was launched";
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "usage: lenslark ios launch <bundle-id> [--udid UDID]");
    EXPECT_EQ(error.Error::exitStatus(), 2);
  }
}

TEST(IosCommandTest, anUnknownActionPrintsTheHelp) {
  EXPECT_EQ(capturedOutput([] { IosCommand::run(Arguments({"ios", "boot"})); }), HelpText::text());
  EXPECT_EQ(capturedOutput([] { IosCommand::run(Arguments({"ios"})); }), HelpText::text());
}

}  // namespace
}  // namespace lenslark
