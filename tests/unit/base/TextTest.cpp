#include "base/Text.h"

#include <gtest/gtest.h>

#include <limits>

namespace lenslark {
namespace {

using Pieces = std::vector<std::string_view>;

TEST(TextTest, trimsWhiteSpaceAtBothEnds) {
  EXPECT_EQ(Text::trim(" \t a b\r\n\f\v"), "a b");
  EXPECT_EQ(Text::trim("a"), "a");
  EXPECT_EQ(Text::trim(" \n "), "");
  EXPECT_EQ(Text::trim(""), "");
}

TEST(TextTest, splitsWithoutEmptyPiecesUnlessTheyAreWanted) {
  EXPECT_EQ(Text::split("a::b:", ':'), (Pieces{"a", "b"}));
  EXPECT_EQ(Text::split("a::b:", ':', true), (Pieces{"a", "", "b", ""}));
  EXPECT_EQ(Text::split("", ':'), Pieces{});
  EXPECT_EQ(Text::split("", ':', true), Pieces{""});
}

TEST(TextTest, joinsPieces) {
  EXPECT_EQ(Text::join({"a", "", "a"}, ", "), "a, , a");
  EXPECT_EQ(Text::join({}, ", "), "");
}

TEST(TextTest, leavesValidUtf8AsItIs) {
  const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF";
  EXPECT_EQ(Text::repairUtf8(text), text);
}

TEST(TextTest, showsNoControlCharacters) {
  EXPECT_EQ(Text::printable("a\n\t\x1b[2J\x7f"), "a???[2J?");
  EXPECT_EQ(Text::printable("\xC2\x9Bz"), "?z");  // U+009B begins an escape sequence by itself
  EXPECT_EQ(Text::printable("a\nb\r", "\n"), "a\nb?");
  EXPECT_EQ(Text::printable(" plain ~"), " plain ~");
  EXPECT_EQ(Text::printable(""), "");
  EXPECT_EQ(Text::printable("\xFF…\xC2\xA0"), "\xEF\xBF\xBD…\xC2\xA0");
}

TEST(TextTest, repairsEachMaximalBrokenSequence) {
  const std::string mark = "\xEF\xBF\xBD";
  EXPECT_EQ(Text::repairUtf8("a\xFFz"), "a" + mark + "z");
  EXPECT_EQ(Text::repairUtf8("\xE2\x82"), mark);                               // cut short
  EXPECT_EQ(Text::repairUtf8("\xE2\x82z"), mark + "z");                        // broken off
  EXPECT_EQ(Text::repairUtf8("\xC0\xAF"), mark + mark);                        // overlong
  EXPECT_EQ(Text::repairUtf8("\xE0\x80\x80"), mark + mark + mark);             // overlong
  EXPECT_EQ(Text::repairUtf8("\xED\xA0\x80"), mark + mark + mark);             // a surrogate
  EXPECT_EQ(Text::repairUtf8("\xF4\x90\x80\x80"), mark + mark + mark + mark);  // beyond U+10FFFF
  EXPECT_EQ(Text::repairUtf8("\x80\x80"), mark + mark);                        // no lead
}

TEST(TextTest, lowercasesLettersBeyondAscii) {
  EXPECT_EQ(Text::lowercase("ABC xyz 09_-"), "abc xyz 09_-");
  EXPECT_EQ(Text::lowercase("ÄÉΩЖ"), "äéωж");
  EXPECT_EQ(Text::lowercase("A\xFF"
                            "B"),
            "a\xFF"
            "b");
}

TEST(TextTest, writesTheShortestTextOfANumber) {
  EXPECT_EQ(Text::shortestDouble(3), "3");
  EXPECT_EQ(Text::shortestDouble(0.25), "0.25");
  EXPECT_EQ(Text::shortestDouble(0.1), "0.1");
  EXPECT_EQ(Text::parseDouble(Text::shortestDouble(1.0 / 3)), 1.0 / 3);
}

TEST(TextTest, readsWholeNumbers) {
  EXPECT_EQ(Text::parseInt("42"), 42);
  EXPECT_EQ(Text::parseInt("+7"), 7);
  EXPECT_EQ(Text::parseInt("-7"), -7);
  EXPECT_EQ(Text::parseInt("2147483647"), std::numeric_limits<int>::max());
  EXPECT_EQ(Text::parseInt("-2147483648"), std::numeric_limits<int>::min());
}

TEST(TextTest, refusesWhatIsNoWholeNumber) {
  for (const char* text : {"", "+", "-", "+-1", "--1", " 1", "1 ", "1.0", "0x10", "2147483648",
                           "-2147483649", "one"}) {
    EXPECT_EQ(Text::parseInt(text), std::nullopt) << text;
  }
}

TEST(TextTest, takesTheNearestForAWholeNumberThatDoesNotFit) {
  using Limits = std::numeric_limits<std::int64_t>;
  EXPECT_EQ(Text::parseInteger("+3000000000"), 3000000000);
  EXPECT_EQ(Text::parseInteger("-3000000000"), -3000000000);
  EXPECT_EQ(Text::parseInteger("9223372036854775808"), Limits::max());
  EXPECT_EQ(Text::parseInteger("-9223372036854775809"), Limits::min());
  for (const char* text : {"", "+", "-", "+-1", " 1", "1.0", "99999999999999999999x", "one"}) {
    EXPECT_EQ(Text::parseInteger(text), std::nullopt) << text;
  }
}

TEST(TextTest, readsFloatingPointNumbers) {
  EXPECT_EQ(Text::parseDouble("0.5"), 0.5);
  EXPECT_EQ(Text::parseDouble("+.5"), 0.5);
  EXPECT_EQ(Text::parseDouble("-1e3"), -1000);
  EXPECT_EQ(Text::parseDouble("1e-310"), 1e-310);
  for (const char* tiny : {"1e-999", "-1e-999", "+2e-324", "1e-99999999999999999999"}) {
    EXPECT_EQ(Text::parseDouble(tiny), 0) << tiny;
  }
}

TEST(TextTest, refusesWhatIsNoFiniteNumber) {
  for (const char* text :
       {"", "+", "nan", "inf", "-inf", "infinity", "1e999", "1,5", "1.5x", " 1", "+-1"}) {
    EXPECT_EQ(Text::parseDouble(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace lenslark
