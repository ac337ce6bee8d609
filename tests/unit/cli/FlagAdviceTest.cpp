#include "commands/FlagAdvice.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

using Lines = std::vector<std::string>;

Lines notes(Lines words) { return FlagAdvice::notes(Arguments(std::move(words))); }

TEST(FlagAdviceTest, isSilentAboutAllThatTheHelpNames) {
  for (const Lines& words : std::vector<Lines>{
           {"source",    "set",       "image", "a.png",    "--device", "x",       "--camera",
            "back",      "--overlay", "o.png", "--anchor", "top",      "--scale", "1",
            "--opacity", "1",         "--x",   "0",        "--y",      "1"},
           {"source", "set", "video", "a.mp4", "--once", "--json"},
           {"source", "set", "slideshow", "a", "b", "--interval", "2"},
           {"source", "reset", "--all"},
           {"devices", "--json"},
           {"media", "add", "a", "b", "--pin", "--json"},
           {"media", "rm", "a", "--force"},
           {"snapshot", "--device", "x", "--camera", "back", "-o", "out.png"},
           {"serve", "--display", "1", "--window", "w", "--test-pattern", "--image", "i", "--video",
            "v", "--fps", "30", "--mode", "fit"},
           {"app", "status"},
           {"mcp"},
           {"doctor", "--json", "--fix"},
           {"status"},
           {"sources", "--json"},
           {"ios", "launch", "com.example", "--udid", "U"},
           {"android", "launch", "Pixel", "--back", "--front", "--", "-no-window", "--wipe"},
           {"version"},
           {"frobnicate", "--json"},
           {}}) {
    EXPECT_EQ(notes(words), Lines()) << (words.empty() ? "" : words.front());
  }
}

TEST(FlagAdviceTest, tellsOfAFlagThatTheVerbDoesNotKnow) {
  EXPECT_EQ(notes({"serve", "--help"}),
            Lines{"--help is no flag of `lenslark serve` and is left out. See `lenslark help`."});
  EXPECT_EQ(notes({"serve", "--test-patern"}),
            Lines{"--test-patern is no flag of `lenslark serve` and is left out. "
                  "Did you mean --test-pattern?"});
}

TEST(FlagAdviceTest, theWordBehindAnUnknownFlagBelongsToIt) {
  EXPECT_EQ(notes({"source", "set", "pattern", "--devcie", "x"}),
            Lines{"--devcie is no flag of `lenslark source` and is left out. "
                  "Did you mean --device?"});
}

TEST(FlagAdviceTest, tellsOfAMissingValue) {
  EXPECT_EQ(notes({"source", "set", "pattern", "--device"}),
            Lines{"--device has no value and is left out."});
}

TEST(FlagAdviceTest, leavesWhatIsMissingToCommandsThatTellOfItThemselves) {
  EXPECT_EQ(notes({"ios", "enable", "--udid"}), Lines());
  EXPECT_EQ(notes({"snapshot", "--device", "x", "-o"}), Lines());
}

TEST(FlagAdviceTest, aValueMayLookLikeAnything) {
  EXPECT_EQ(notes({"source", "get", "--device", "--odd"}), Lines());
  EXPECT_EQ(notes({"ios", "launch", "--odd"}), Lines());
  EXPECT_EQ(notes({"android", "launch", "--odd", "--", "--other"}), Lines());
}

}  // namespace
}  // namespace lenslark
