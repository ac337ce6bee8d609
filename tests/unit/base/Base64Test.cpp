#include "base/Base64.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

namespace lenslark {
namespace {

std::string encoded(std::string_view bytes) {
  std::string text;
  Base64::append(std::as_bytes(std::span(bytes)), text);
  return text;
}

TEST(Base64Test, encodesAsTheStandardsExamples) {
  EXPECT_EQ(encoded(""), "");
  EXPECT_EQ(encoded("f"), "Zg==");
  EXPECT_EQ(encoded("fo"), "Zm8=");
  EXPECT_EQ(encoded("foo"), "Zm9v");
  EXPECT_EQ(encoded("foob"), "Zm9vYg==");
  EXPECT_EQ(encoded("fooba"), "Zm9vYmE=");
  EXPECT_EQ(encoded("foobar"), "Zm9vYmFy");
  EXPECT_EQ(encoded("\xfb\xff\xfe"), "+//+");
}

TEST(Base64Test, appendsToWhatIsThere) {
  std::string text = "data:";
  Base64::append(std::as_bytes(std::span(std::string_view("foob"))), text);
  EXPECT_EQ(text, "data:Zm9vYg==");
}

TEST(Base64Test, largeInputIsOneText) {
  // 24 bits of a group are the number of it.
  constexpr std::size_t groups = 3'000'000;
  std::vector<std::byte> bytes;
  std::string expected;
  constexpr std::string_view alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (std::size_t group = 0; group < groups; ++group) {
    for (const int shift : {16, 8, 0}) bytes.push_back(static_cast<std::byte>(group >> shift));
    for (const int shift : {18, 12, 6, 0}) expected += alphabet[group >> shift & 63U];
  }
  std::string text;
  Base64::append(bytes, text);
  EXPECT_TRUE(text == expected);
}

}  // namespace
}  // namespace lenslark
