#include "config/Assignment.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

Assignment example() {
  return {.scope = Scope::global(),
          .source = {SourceSpec::Image{"a"}},
          .overlay = OverlaySpec{.media = "a"},
          .updatedAt = Date(std::chrono::seconds(5))};
}

TEST(AssignmentTest, listsTheOverlaysMediumLastEvenTwice) {
  EXPECT_EQ(example().mediaIDs(), (std::vector<std::string>{"a", "a"}));
}

TEST(AssignmentTest, listsOnlyTheSourcesMediaWithoutAnOverlay) {
  Assignment assignment = example();
  assignment.overlay.reset();
  EXPECT_EQ(assignment.mediaIDs(), std::vector<std::string>{"a"});
}

TEST(AssignmentTest, hasTheSameContentWhateverScopeAndDate) {
  Assignment other = example();
  other.scope = Scope::device(DeviceKey::ios("A"));
  other.updatedAt.reset();
  EXPECT_TRUE(example().sameContent(other));
  EXPECT_NE(example(), other);
}

TEST(AssignmentTest, hasOtherContentWithAnotherSource) {
  Assignment other = example();
  other.source = {SourceSpec::Image{"b"}};
  EXPECT_FALSE(example().sameContent(other));
}

TEST(AssignmentTest, hasOtherContentWithoutTheOverlay) {
  Assignment other = example();
  other.overlay.reset();
  EXPECT_FALSE(example().sameContent(other));
}

TEST(AssignmentTest, hasOtherContentWhenAnyFieldOfTheOverlayDiffers) {
  const OverlaySpec overlay{"m", Anchor::top, 0.2, 0.5, 0.1, 0.9};
  Assignment assignment = example();
  assignment.overlay = overlay;
  std::vector<OverlaySpec> others(6, overlay);
  others[0].media = "n";
  others[1].anchor = Anchor::left;
  others[2].scale = 0.3;
  others[3].opacity = 1;
  others[4].x.reset();
  others[5].y = 0.8;
  for (const OverlaySpec& different : others) {
    Assignment other = assignment;
    other.overlay = different;
    EXPECT_FALSE(assignment.sameContent(other));
  }
}

TEST(AssignmentTest, comparesAllFourFields) {
  Assignment other = example();
  other.updatedAt = Date(std::chrono::seconds(6));
  EXPECT_NE(example(), other);
  EXPECT_EQ(example(), example());
}

}  // namespace
}  // namespace lenslark
