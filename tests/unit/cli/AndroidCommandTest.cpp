#include "commands/AndroidCommand.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commands/Failure.h"
#include "commands/HelpText.h"
#include "support/CapturedOutput.h"

namespace lenslark {
namespace {

using AndroidEmulator::Facing;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(AndroidCommandTest, feedsBothCamerasUnlessToldOtherwise) {
  EXPECT_EQ(AndroidCommand::facing(Arguments({"android", "launch", "Pixel"})), Facing::both);
}

TEST(AndroidCommandTest, feedsTheFrontCamera) {
  EXPECT_EQ(AndroidCommand::facing(Arguments({"android", "launch", "Pixel", "--front"})),
            Facing::front);
}

TEST(AndroidCommandTest, backWinsOverFront) {
  EXPECT_EQ(AndroidCommand::facing(Arguments({"android", "launch", "Pixel", "--front", "--back"})),
            Facing::back);
}

TEST(AndroidCommandTest, theCameraIsAlsoChosenAmongTheEmulatorsArguments) {
  const Arguments arguments({"android", "launch", "Pixel", "--", "-no-audio", "--front"});
  EXPECT_EQ(AndroidCommand::facing(arguments), Facing::front);
  EXPECT_THAT(AndroidCommand::emulatorArguments(arguments), ElementsAre("-no-audio", "--front"));
}

TEST(AndroidCommandTest, theFirstSeparatorCounts) {
  EXPECT_THAT(AndroidCommand::emulatorArguments(
                  Arguments({"android", "launch", "Pixel", "--", "a", "--", "b"})),
              ElementsAre("a", "--", "b"));
}

TEST(AndroidCommandTest, withoutASeparatorTheEmulatorGetsNothing) {
  EXPECT_THAT(AndroidCommand::emulatorArguments(Arguments({"android", "launch", "Pixel", "-x"})),
              IsEmpty());
}

TEST(AndroidCommandTest, aLaunchNeedsADevice) {
  try {
    AndroidCommand::run(Arguments({"android", "launch"}));
    FAIL() << "nothing was launched";
  } catch (const UsageError& error) {
    EXPECT_STREQ(error.what(), "usage: lenslark android launch <avd>");
  }
}

TEST(AndroidCommandTest, anUnknownActionPrintsTheHelp) {
  EXPECT_EQ(capturedOutput([] {
              AndroidCommand::run(Arguments({"android", "list"}));
            }),
            HelpText::text());
}

}  // namespace
}  // namespace lenslark
