#include "media/MediaError.h"

#include <gtest/gtest.h>

namespace lenslark {
namespace {

TEST(MediaErrorTest, saysWhatIsWrongAndCarriesTheCode) {
  const auto expect = [](const MediaError& error, MediaError::Kind kind, const char* message,
                         const char* code) {
    EXPECT_EQ(error.kind(), kind);
    EXPECT_STREQ(error.what(), message);
    EXPECT_EQ(error.code(), code);
  };
  using Kind = MediaError::Kind;
  expect(MediaError::notAFile("/a/b"), Kind::notAFile, "/a/b is not a readable file", "bad_args");
  expect(MediaError::tooLarge("/a/b"), Kind::tooLarge, "/a/b is larger than 2 GB", "bad_args");
  expect(MediaError::unsupported("b.txt"), Kind::unsupported,
         "b.txt is not an image or video Lenslark can show", "unsupported_media");
  expect(MediaError::notFound("cat"), Kind::notFound, "No media matches \"cat\"",
         "media_not_found");
}

TEST(MediaErrorTest, repairsTextThatIsNotUtf8) {
  EXPECT_STREQ(MediaError::notFound("\xff").what(), "No media matches \"\xef\xbf\xbd\"");
}

}  // namespace
}  // namespace lenslark
