#include "base/Json.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace lenslark {
namespace {

using nlohmann::json;
using namespace std::string_view_literals;

Date date(long seconds) { return Date(std::chrono::seconds(seconds)); }

TEST(JsonTest, parsesOneValue) {
  EXPECT_EQ(Json::parse(R"( {"a": [1, 2.5, "x", true, null]} )")["a"].size(), 5U);
}

TEST(JsonTest, refusesWhatIsNotOneValue) {
  for (const char* text : {"", "{", "{} {}", "nul", "{'a':1}", "[1,]", "\"\xFF\"", "1e999"}) {
    EXPECT_THROW(Json::parse(text), JsonError) << text;
  }
}

TEST(JsonTest, doesNotEndAtANulByte) {
  for (const std::string_view text : {"{}\0"sv, "{}\0garbage"sv, "\0{}"sv, "{\"a\":\"\0\"}"sv})
    EXPECT_THROW(Json::parse(text), JsonError) << text;
}

TEST(JsonTest, boundsTheNesting) {
  const auto nested = [](int depth) {
    const auto count = static_cast<std::size_t>(depth);
    return std::string(count, '[') + std::string(count, ']');
  };
  EXPECT_NO_THROW(Json::parse(nested(Json::maxDepth)));
  EXPECT_THROW(Json::parse(nested(Json::maxDepth + 1)), JsonError);
}

TEST(JsonTest, writesPrettyTextSortedAndWithPlainSlashes) {
  EXPECT_EQ(Json::pretty({{"b", "a/b"}, {"a", {1}}}),
            "{\n  \"a\": [\n    1\n  ],\n  \"b\": \"a/b\"\n}");
}

TEST(JsonTest, writesCompactTextOnOneLine) {
  EXPECT_EQ(Json::compact({{"b", "x\ny"}, {"a", 1}}), R"({"a":1,"b":"x\ny"})");
}

TEST(JsonTest, repairsTextThatIsNotUtf8) {
  EXPECT_EQ(Json::compact("a\xFF"), "\"a\xEF\xBF\xBD\"");
  EXPECT_EQ(Json::pretty("a\xFF"), "\"a\xEF\xBF\xBD\"");
}

TEST(JsonTest, writesWholeNumbersWithoutAFraction) {
  EXPECT_EQ(Json::compact(Json::number(3)), "3");
  EXPECT_EQ(Json::compact(Json::number(-2)), "-2");
  EXPECT_EQ(Json::compact(Json::number(-0.0)), "0");
  EXPECT_EQ(Json::compact(Json::number(0.25)), "0.25");
}

TEST(JsonTest, keepsLargeNumbersAsTheyAre) {
  for (const double value : {1e300, 9007199254740993.0, -1e18}) {
    EXPECT_EQ(Json::parse(Json::compact(Json::number(value))).get<double>(), value);
  }
}

TEST(JsonTest, writesDatesInUtcToTheSecond) {
  EXPECT_EQ(Json::formatDate(date(0)), "1970-01-01T00:00:00Z");
  EXPECT_EQ(Json::formatDate(date(1'746'091'800)), "2025-05-01T09:30:00Z");
  EXPECT_EQ(Json::formatDate(date(-1)), "1969-12-31T23:59:59Z");
}

TEST(JsonTest, readsDatesWithAnyZone) {
  const Date wanted = date(1'746'091'800);
  EXPECT_EQ(Json::parseDate("2025-05-01T09:30:00Z"), wanted);
  EXPECT_EQ(Json::parseDate("2025-05-01T11:30:00+02:00"), wanted);
  EXPECT_EQ(Json::parseDate("2025-05-01T04:00:00-0530"), wanted);
  EXPECT_EQ(Json::parseDate("2025-05-01T09:30:00.999Z"), wanted);
  EXPECT_EQ(Json::parseDate("2024-02-29T00:00:00Z"), date(1'709'164'800));
}

TEST(JsonTest, refusesMalformedDates) {
  for (const char* text :
       {"", "now", "2025-05-01", "2025-05-01 09:30:00Z", "2025-05-01T09:30:00", "2025-05-01T09:30Z",
        "2025-02-29T00:00:00Z", "2025-13-01T00:00:00Z", "2025-00-10T00:00:00Z",
        "2025-05-01T24:00:00Z", "2025-05-01T09:60:00Z", "2025-05-01T09:30:00Zx",
        "2025-05-01T09:30:00+2:00", "2025-05-01T09:30:00+24:00", "25-05-01T09:30:00Z",
        "12025-05-01T09:30:00Z", "-025-05-01T09:30:00Z", "2025-05-01T09:30:00.Z"}) {
    EXPECT_EQ(Json::parseDate(text), std::nullopt) << text;
  }
}

TEST(JsonTest, refusesDatesThatCouldNotBeWrittenAgain) {
  EXPECT_EQ(Json::parseDate("0000-01-01T00:00:00+00:01"), std::nullopt);
  EXPECT_EQ(Json::parseDate("9999-12-31T23:59:59-00:01"), std::nullopt);
  for (const char* text : {"0000-01-01T00:00:00Z", "9999-12-31T23:59:59Z"}) {
    EXPECT_EQ(Json::formatDate(Json::parseDate(text).value()), text);
  }
}

TEST(JsonTest, findsMembersThatAreThere) {
  const json object = {{"a", 1}, {"b", nullptr}};
  ASSERT_NE(Json::find(object, "a"), nullptr);
  EXPECT_EQ(Json::find(object, "b"), nullptr);
  EXPECT_EQ(Json::find(object, "c"), nullptr);
  EXPECT_EQ(Json::find(json::array({1}), "a"), nullptr);
  EXPECT_EQ(Json::find("text", "a"), nullptr);
}

TEST(JsonTest, expectsMembersOfTheirType) {
  const json object = {{"text", "x"}, {"flag", true}, {"number", 1.5}, {"whole", 30.0}};
  EXPECT_EQ(Json::expectString(object, "text"), "x");
  EXPECT_TRUE(Json::expectBool(object, "flag"));
  EXPECT_EQ(Json::expectDouble(object, "number"), 1.5);
  EXPECT_EQ(Json::expectInt(object, "whole"), 30);
  EXPECT_THROW(Json::expectString(object, "flag"), JsonError);
  EXPECT_THROW(Json::expectBool(object, "text"), JsonError);
  EXPECT_THROW(Json::expectDouble(object, "text"), JsonError);
  EXPECT_THROW(Json::expectInt(object, "number"), JsonError);
  EXPECT_THROW(Json::expectDate(object, "text"), JsonError);
}

TEST(JsonTest, namesTheMemberThatIsMissing) {
  try {
    Json::expect(json::object(), "fps");
    FAIL();
  } catch (const JsonError& error) {
    EXPECT_STREQ(error.what(), "\"fps\" is missing");
  }
  EXPECT_THROW(Json::expect(json::array(), "fps"), JsonError);
}

TEST(JsonTest, takesLargeWholeNumbersExactly) {
  const json object = Json::parse(
      R"({"most": 9223372036854775807, "least": -9223372036854775808, "written": 3e9})");
  EXPECT_EQ(Json::expectInt(object, "most"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Json::expectInt(object, "least"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Json::expectInt(object, "written"), 3000000000);
}

TEST(JsonTest, refusesWholeNumbersThatDoNotFit) {
  for (const char* text :
       {"9223372036854775808", "-9.3e18", "18446744073709551616", "9.3e18", "1e300"}) {
    const json object = Json::parse("{\"a\":" + std::string(text) + "}");
    EXPECT_THROW(Json::expectInt(object, "a"), JsonError) << text;
  }
}

}  // namespace
}  // namespace lenslark
