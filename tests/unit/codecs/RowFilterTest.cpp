#include "codecs/video/RowFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace lenslark::video {
namespace {

using Row = std::vector<std::uint8_t>;

/// A row of a length that nothing may be read beyond, which the address sanitizer looks after.
Row noise(int length) {
  std::mt19937 random(static_cast<unsigned>(length));
  Row row(static_cast<std::size_t>(length));
  for (std::uint8_t& sample : row) sample = static_cast<std::uint8_t>(random() & 255U);
  return row;
}

Row filtered(const Row& row, int to) {
  const RowFilter filter(static_cast<int>(row.size()), to);
  Row result(static_cast<std::size_t>(to) + 1, 77);
  filter.apply(row.data(), result.data());
  EXPECT_EQ(result.back(), 77) << "written beyond the end";
  result.pop_back();
  return result;
}

/// The mean of the two samples around the result's place, in exact numbers.
double expected(const Row& row, int to, int index) {
  const double stride = static_cast<double>(row.size()) / to;
  const double place = (index + 0.5) * stride - 0.5;
  const auto sample = static_cast<std::size_t>(place);
  const double weight = place - std::floor(place);
  const std::size_t next = std::min(sample + 1, row.size() - 1);
  return row[sample] * (1 - weight) + row[next] * weight;
}

void expectMeans(int from, int to) {
  if (!RowFilter::suits(from, to)) GTEST_SKIP() << "not on this processor";
  const Row row = noise(from);
  const Row result = filtered(row, to);
  // A place is known to 128ths of a sample, and samples are up to 255 apart; results are rounded.
  constexpr double tolerance = 255.0 / 128 + 0.6;
  for (int index = 0; index < to; ++index) {
    ASSERT_NEAR(result[static_cast<std::size_t>(index)], expected(row, to, index), tolerance)
        << from << " to " << to << ", result " << index;
  }
}

TEST(RowFilterTest, makesMeansOfTheNearestSamples) { expectMeans(3840, 2048); }

TEST(RowFilterTest, makesMeansAtEveryRatioUpToAHalf) {
  for (int to = 32; to < 64; ++to) expectMeans(64, to);
}

TEST(RowFilterTest, makesMeansOfRowsThatAreNoWholeSteps) {
  for (int from = 16; from < 70; ++from) {
    expectMeans(from, (from + 1) / 2);
    expectMeans(from, from - 1);
  }
}

TEST(RowFilterTest, keepsTheBrightnessOfAnEvenRow) {
  if (!RowFilter::suits(100, 57)) GTEST_SKIP() << "not on this processor";
  for (const int value : {0, 1, 127, 128, 254, 255}) {
    const auto sample = static_cast<std::uint8_t>(value);
    EXPECT_EQ(filtered(Row(100, sample), 57), Row(57, sample));
  }
}

TEST(RowFilterTest, leavesOtherRatiosAndShortRowsToOthers) {
  EXPECT_FALSE(RowFilter::suits(64, 64));
  EXPECT_FALSE(RowFilter::suits(64, 65));
  EXPECT_FALSE(RowFilter::suits(64, 31));
  EXPECT_FALSE(RowFilter::suits(15, 10));
  EXPECT_FALSE(RowFilter::suits(64, 0));
}

}  // namespace
}  // namespace lenslark::video
