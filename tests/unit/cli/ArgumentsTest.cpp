#include "commands/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commands/Failure.h"

namespace lenslark {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Arguments words(std::initializer_list<std::string> list) { return Arguments(std::vector(list)); }

template <typename Body>
std::string failure(Body body) {
  try {
    body();
  } catch (const UsageError& error) {
    return error.what();
  }
  return "no failure";
}

TEST(ArgumentsTest, leavesOutTheProgramsName) {
  const char* argv[] = {"/usr/bin/lenslark", "source", "get", nullptr};
  EXPECT_THAT(Arguments(3, argv).words(), ElementsAre("source", "get"));
}

TEST(ArgumentsTest, standsAnEmptyArgumentVector) {
  const char* argv[] = {nullptr};
  EXPECT_EQ(Arguments(0, argv).count(), 0U);
}

TEST(ArgumentsTest, givesAnEmptyWordBeyondTheEnd) { EXPECT_EQ(words({"source"}).at(1), ""); }

TEST(ArgumentsTest, positionalEndsAtTheFirstFlag) {
  EXPECT_THAT(words({"source", "set", "pic.png", "--device", "x"}).positional(2),
              ElementsAre("pic.png"));
}

TEST(ArgumentsTest, positionalKeepsWordsWithOneDash) {
  EXPECT_THAT(words({"snapshot", "-o", "a.png"}).positional(1), ElementsAre("-o", "a.png"));
}

TEST(ArgumentsTest, positionalBeyondTheEndIsEmpty) {
  EXPECT_THAT(words({"source"}).positional(2), IsEmpty());
}

TEST(ArgumentsTest, valueIsTheWordAfterTheFlag) {
  EXPECT_EQ(words({"source", "get", "--device", "x"}).value("--device"), "x");
}

TEST(ArgumentsTest, valueIsAbsentWithoutTheFlag) {
  EXPECT_EQ(words({"source", "get"}).value("--device"), std::nullopt);
}

TEST(ArgumentsTest, valueIsAbsentWhenTheFlagIsLast) {
  EXPECT_EQ(words({"ios", "launch", "app", "--udid"}).value("--udid"), std::nullopt);
}

TEST(ArgumentsTest, valueMayBeginWithTwoDashes) {
  EXPECT_EQ(words({"serve", "--window", "--image"}).value("--window"), "--image");
}

TEST(ArgumentsTest, valueIsTakenAfterTheFirstOccurrence) {
  EXPECT_EQ(words({"serve", "--fps", "10", "--fps", "20"}).value("--fps"), "10");
}

TEST(ArgumentsTest, readsANumber) {
  EXPECT_EQ(words({"x", "--scale", "0.25"}).doubleAfter("--scale"), 0.25);
}

TEST(ArgumentsTest, aNumberIsAbsentWithItsFlag) {
  EXPECT_EQ(words({"x"}).doubleAfter("--scale"), std::nullopt);
}

TEST(ArgumentsTest, refusesAWordWhereANumberBelongs) {
  EXPECT_EQ(failure([] {
              words({"x", "--scale", "big"}).doubleAfter("--scale");
            }),
            "--scale expects a number");
}

TEST(ArgumentsTest, takesNeitherNanNorInfinityNorOverflowForANumber) {
  for (const char* text : {"nan", "inf", "-infinity", "1e999", ""}) {
    EXPECT_EQ(failure([&] {
                words({"x", "--x", text}).doubleAfter("--x");
              }),
              "--x expects a number")
        << text;
  }
}

TEST(ArgumentsTest, readsAWholeNumber) {
  EXPECT_EQ(words({"serve", "--display", "+2"}).intAfter("--display"), 2);
  EXPECT_EQ(words({"serve", "--display", "3000000000"}).intAfter("--display"), 3000000000);
}

TEST(ArgumentsTest, refusesWhatIsNoWholeNumber) {
  for (const char* text : {"two", "1.5", "99999999999999999999x", "1 "}) {
    EXPECT_EQ(failure([&] {
                words({"serve", "--display", text}).intAfter("--display");
              }),
              "--display expects a number")
        << text;
  }
}

}  // namespace
}  // namespace lenslark
