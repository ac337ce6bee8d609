#include "commands/ImportProgressLine.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

using Step = MediaLibrary::Progress::Step;

TEST(HumanBytesTest, countsInDecimalUnits) {
  EXPECT_EQ(humanBytes(0), "0 bytes");
  EXPECT_EQ(humanBytes(999), "999 bytes");
  EXPECT_EQ(humanBytes(1500), "1.5 KB");
  EXPECT_EQ(humanBytes(2000000000), "2.0 GB");
}

TEST(HumanBytesTest, neverRoundsToAThousand) {
  EXPECT_EQ(humanBytes(999949), "999.9 KB");
  EXPECT_EQ(humanBytes(999999), "1.0 MB");
}

TEST(ImportProgressLineTest, tellsFileStepAmountAndRate) {
  EXPECT_EQ(ImportProgressLine::line("/films/clip.mov", {500000000, 2000000000, Step::hashing}, 2),
            "clip.mov: hashing 500.0 MB of 2.0 GB, 250.0 MB/s");
  EXPECT_EQ(ImportProgressLine::line("clip.mov", {1000, 2000, Step::copying}, 1),
            "clip.mov: copying 1.0 KB of 2.0 KB, 1.0 KB/s");
}

TEST(ImportProgressLineTest, hasNoRateBeforeAnyTimeHasPassed) {
  EXPECT_EQ(ImportProgressLine::line("a", {0, 5, Step::hashing}, 0),
            "a: hashing 0 bytes of 5 bytes, 0 bytes/s");
}

TEST(ImportProgressLineTest, aLongNameIsCut) {
  const std::string line =
      ImportProgressLine::line(std::string(500, 'x'), {0, 5, Step::hashing}, 0);
  EXPECT_LT(line.size(), 80U);
}

TEST(ImportProgressLineTest, aLongNameIsCutBetweenLetters) {
  for (const std::size_t before : {0U, 1U, 2U}) {
    std::string name(before, 'x');
    for (int i = 0; i < 20; ++i) name += "猫";
    const std::string line = ImportProgressLine::line(name, {0, 5, Step::hashing}, 0);
    EXPECT_TRUE(line.contains("猫…: hashing")) << line;
  }
}

TEST(ImportProgressLineTest, isSilentWhereNobodyWatches) {
  EXPECT_FALSE(ImportProgressLine().handler());
}

}  // namespace
}  // namespace lenslark
