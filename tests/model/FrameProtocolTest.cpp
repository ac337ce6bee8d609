#include "FrameProtocol.h"

#include <gtest/gtest.h>

namespace lenslark::model {
namespace {

constexpr std::uint8_t frames = 6;

std::vector<Step> film(const Memory& start, Writer::Rules rules = {}) {
  Writer writer(start, rules);
  for (std::uint8_t frame = 1; frame <= frames; ++frame) writer.write(frame);
  return writer.steps();
}

/// Pictures that stay, in both slots, among frames that do not.
std::vector<Step> stillsAmongFrames(const Memory& start) {
  Writer writer(start);
  for (std::uint8_t frame = 1; frame <= frames; ++frame) writer.write(frame, frame % 2 == 1);
  return writer.steps();
}

TEST(FrameProtocolTest, noFrameIsTornWithTheSecondLook) {
  for (const Stores stores : {Stores::atOnce, Stores::perCell}) {
    for (const auto& writer : {film(emptyFile()), stillsAmongFrames(emptyFile())}) {
      const Verdict verdict = explore(emptyFile(), writer, {}, stores);
      EXPECT_FALSE(verdict.torn) << *verdict.torn;
      EXPECT_GT(verdict.accepted, 100U);
    }
  }
}

TEST(FrameProtocolTest, aFrameIsTornWithoutTheSecondLook) {
  for (const Stores stores : {Stores::atOnce, Stores::perCell}) {
    for (const auto& writer : {film(emptyFile()), stillsAmongFrames(emptyFile())}) {
      EXPECT_TRUE(explore(emptyFile(), writer, {.looksAgain = false}, stores).torn);
    }
  }
}

TEST(FrameProtocolTest, theSameHoldsForTheOldestReaders) {
  for (const auto& writer : {film(emptyFile()), stillsAmongFrames(emptyFile())}) {
    const Reader careful{.oldest = true};
    const Verdict verdict = explore(emptyFile(), writer, careful, Stores::perCell);
    EXPECT_FALSE(verdict.torn) << *verdict.torn;
    EXPECT_FALSE(verdict.backwards) << *verdict.backwards;
    EXPECT_GT(verdict.accepted, 100U);
    const Reader careless{.looksAgain = false, .oldest = true};
    EXPECT_TRUE(explore(emptyFile(), writer, careless, Stores::perCell).torn);
  }
}

TEST(FrameProtocolTest, theBarriersAreNeeded) {
  // Few frames: without barriers there are far more orders.
  Writer writer(emptyFile(), {.barriers = false});
  for (std::uint8_t frame = 1; frame <= 2; ++frame) writer.write(frame);
  EXPECT_TRUE(explore(emptyFile(), writer.steps(), {}, Stores::perCell).torn);
}

TEST(FrameProtocolTest, framesGoForwardsForAReaderThatLooksAtTheFrontTwice) {
  for (const auto& writer : {film(emptyFile()), stillsAmongFrames(emptyFile())}) {
    const Verdict verdict = explore(emptyFile(), writer, {}, Stores::perCell);
    EXPECT_FALSE(verdict.backwards) << *verdict.backwards;
  }
}

TEST(FrameProtocolTest, aFrameMayBeTakenBeforeItIsPublishedByAReaderThatLooksOnce) {
  const Reader once{.looksAtFrontTwice = false};
  const Verdict verdict = explore(emptyFile(), film(emptyFile()), once, Stores::atOnce);
  EXPECT_FALSE(verdict.torn) << *verdict.torn;
  EXPECT_TRUE(verdict.backwards);
}

TEST(FrameProtocolTest, countersMayWrapAround) {
  Memory start = emptyFile();
  start[seq0] = start[seq1] = start[sequence] = 0xfc;
  const Verdict verdict = explore(start, film(start), {}, Stores::perCell);
  EXPECT_FALSE(verdict.torn) << *verdict.torn;
}

TEST(FrameProtocolTest, aCounterMustNotComeRoundWithinOneReading) {
  // With two bits a slot's counter is where it was after two frames: hence the 64 of the format.
  const auto writer = film(emptyFile(), {.counterMask = 3});
  EXPECT_TRUE(explore(emptyFile(), writer, {}, Stores::atOnce).torn);
}

TEST(FrameProtocolTest, aFrameThatWasGivenUpIsNeverTaken) {
  Writer writer(emptyFile());
  for (std::uint8_t frame = 1; frame <= frames; ++frame) {
    frame % 3 == 0 ? writer.giveUp(frame) : writer.write(frame);
  }
  const Verdict verdict = explore(emptyFile(), writer.steps(), {}, Stores::perCell);
  EXPECT_FALSE(verdict.torn) << *verdict.torn;
}

TEST(FrameProtocolTest, aWriterMayDieAnywhereAndAnotherTakeOver) {
  Writer first(emptyFile());
  for (std::uint8_t frame = 1; frame <= 3; ++frame) first.write(frame, frame == 3);
  for (std::size_t death = 0; death <= first.steps().size(); ++death) {
    std::vector<Step> steps(first.steps().begin(),
                            first.steps().begin() + static_cast<std::ptrdiff_t>(death));
    steps.push_back({});  // what a process has stored outlives it
    Writer second(after(emptyFile(), steps, steps.size()));
    second.takeOver();
    for (std::uint8_t frame = 4; frame <= 6; ++frame) second.write(frame);
    steps.insert(steps.end(), second.steps().begin(), second.steps().end());
    for (const bool oldest : {false, true}) {
      const Reader reader{.oldest = oldest};
      const Verdict verdict = explore(emptyFile(), steps, reader, Stores::perCell);
      ASSERT_FALSE(verdict.torn) << "died at step " << death << ":\n" << *verdict.torn;
    }
  }
}

}  // namespace
}  // namespace lenslark::model
