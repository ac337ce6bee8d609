#include "base/Digest.h"

#include <gtest/gtest.h>

#include <string_view>

namespace lenslark {
namespace {

void add(Sha256& hash, std::string_view text) { hash.add(std::as_bytes(std::span(text))); }

std::string digestOf(std::string_view text) {
  Sha256 hash;
  add(hash, text);
  return hash.finish();
}

// The examples of FIPS 180.
TEST(DigestTest, hashesThePublishedExamples) {
  EXPECT_EQ(digestOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(digestOf("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(digestOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(digestOf(std::string(1'000'000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST(DigestTest, hashesPiecesAsTheWhole) {
  Sha256 hash;
  add(hash, "a");
  add(hash, "");
  Sha256 moved = std::move(hash);
  add(moved, "bc");
  EXPECT_EQ(moved.finish(), digestOf("abc"));
}

}  // namespace
}  // namespace lenslark
