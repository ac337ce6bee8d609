#include "commands/HelpText.h"

#include <gtest/gtest.h>

#include <span>

#include "base/Digest.h"

namespace lenslark {
namespace {

// Scripts and people know this page by heart: a change of a single byte is a decision.
TEST(HelpTextTest, isTheAgreedPage) {
  const auto text = HelpText::text();
  Sha256 digest;
  digest.add(std::as_bytes(std::span(text)));
  EXPECT_EQ(digest.finish(), "991768e3c8669a22d0588f50b95e656c3875d708cfd26f0b98372112b885af02")
      << text;
}

TEST(HelpTextTest, beginsWithNameAndVersion) {
  EXPECT_TRUE(HelpText::text().starts_with("lenslark 1.1.0 — give iOS Simulators"));
}

}  // namespace
}  // namespace lenslark
