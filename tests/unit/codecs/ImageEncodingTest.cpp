#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>

#include "base/Error.h"
#include "codecs/ImageCodec.h"
#include "codecs/Modules.h"
#include "support/NumberedPicture.h"
#include "support/SamplePicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

std::shared_ptr<PixelBuffer> makeSample(int alpha) {
  auto picture = std::make_shared<PixelBuffer>(SamplePicture::size, alpha == 255);
  for (int y = 0; y < SamplePicture::size.height; ++y) {
    for (int x = 0; x < SamplePicture::size.width; ++x) {
      const bool left = x < SamplePicture::size.width / 2;
      const bool top = y < SamplePicture::size.height / 2;
      const Rgba colour = top ? (left ? SamplePicture::topLeft : SamplePicture::topRight)
                              : (left ? SamplePicture::bottomLeft : SamplePicture::bottomRight);
      std::uint8_t* pixel = picture->span().row(y) + x * 4;
      const auto times = [alpha](int value) {
        return static_cast<std::uint8_t>((value * alpha * 2 + 255) / 510);
      };
      pixel[0] = times(colour.blue);
      pixel[1] = times(colour.green);
      pixel[2] = times(colour.red);
      pixel[3] = static_cast<std::uint8_t>(alpha);
    }
  }
  return picture;
}

void write(const TemporaryDirectory& directory, const char* name,
           const std::vector<std::byte>& bytes) {
  directory.write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

/// The raw pixels as another decoder sees them.
std::string decodeElsewhere(const TemporaryDirectory& directory, const std::string& name,
                            const std::string& format) {
  const std::string line = "cd '" + directory.path().string() + "' && ffmpeg -loglevel error -i " +
                           name + " -f rawvideo -pix_fmt " + format + " out.raw";
  EXPECT_EQ(std::system(line.c_str()), 0);
  std::ifstream file(directory / "out.raw", std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

int byteAt(const std::string& raw, int x, int y, int bands, int band) {
  const int index = (y * SamplePicture::size.width + x) * bands + band;
  return static_cast<unsigned char>(raw.at(static_cast<std::size_t>(index)));
}

TEST(ImageEncodingTest, writesPngThatAnotherDecoderReadsExactly) {
  const TemporaryDirectory directory;
  write(directory, "out.png", Modules::imageCodec().encodePng(makeSample(255)->view()));
  const std::string raw = decodeElsewhere(directory, "out.png", "rgb24");
  EXPECT_EQ(byteAt(raw, 72, 16, 3, 0), SamplePicture::topRight.red);
  EXPECT_EQ(byteAt(raw, 72, 16, 3, 1), SamplePicture::topRight.green);
  EXPECT_EQ(byteAt(raw, 24, 48, 3, 2), SamplePicture::bottomLeft.blue);
}

TEST(ImageEncodingTest, writesPngWithStraightAlpha) {
  const TemporaryDirectory directory;
  write(directory, "out.png", Modules::imageCodec().encodePng(makeSample(128)->view()));
  const std::string raw = decodeElsewhere(directory, "out.png", "rgba");
  EXPECT_EQ(byteAt(raw, 24, 16, 4, 3), 128);
  EXPECT_NEAR(byteAt(raw, 24, 16, 4, 0), SamplePicture::topLeft.red, 1);
  EXPECT_NEAR(byteAt(raw, 24, 16, 4, 2), SamplePicture::topLeft.blue, 1);
}

/// Noise in all rows but the upper ones, opaque.
std::shared_ptr<PixelBuffer> makeNoise(Size size, int plainRows) {
  auto picture = std::make_shared<PixelBuffer>(size, true);
  std::minstd_rand random;
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const auto colour = y < plainRows ? 0U : static_cast<std::uint32_t>(random() >> 4U);
      const std::uint32_t pixel = colour | 0xff000000U;
      std::memcpy(picture->span().row(y) + x * 4, &pixel, sizeof(pixel));
    }
  }
  return picture;
}

TEST(ImageEncodingTest, writesNoiseExactlyAndWithoutLosingTimeOnIt) {
  constexpr Size size{320, 240};
  constexpr std::size_t rawSize = std::size_t{3} * 320 * 240;
  const auto picture = makeNoise(size, 0);
  const TemporaryDirectory directory;
  const auto png = Modules::imageCodec().encodePng(picture->view());
  // Stored as it is, with a filter's byte to each row and the headers of the blocks.
  EXPECT_GT(png.size(), rawSize + 240);
  EXPECT_LT(png.size(), rawSize + 1000);
  write(directory, "out.png", png);
  const std::string raw = decodeElsewhere(directory, "out.png", "bgr24");
  ASSERT_EQ(raw.size(), rawSize);
  for (int y = 0; y < size.height; ++y) {
    for (int x = 0; x < size.width; ++x) {
      const std::size_t at = static_cast<std::size_t>(y * size.width + x) * 3;
      ASSERT_EQ(std::memcmp(raw.data() + at, picture->view().row(y) + x * 4, 3), 0);
    }
  }
}

TEST(ImageEncodingTest, compressesAPictureOfWhichOnlyAPartIsNoise) {
  const auto png = Modules::imageCodec().encodePng(makeNoise({320, 240}, 60)->view());
  EXPECT_LT(png.size(), std::size_t{3} * 320 * 190);
}

TEST(ImageEncodingTest, tagsPngAsSrgb) {
  const auto png = Modules::imageCodec().encodePng(makeSample(255)->view());
  const std::string_view bytes(reinterpret_cast<const char*>(png.data()), png.size());
  EXPECT_NE(bytes.find("sRGB"), bytes.npos);
}

TEST(ImageEncodingTest, readsItsOwnPngBack) {
  for (const int alpha : {255, 128}) {
    const auto picture = makeSample(alpha);
    const auto png = Modules::imageCodec().encodePng(picture->view());
    const auto again = Modules::imageCodec().load(png, 1000);
    ASSERT_TRUE(again);
    EXPECT_EQ(again->opaque(), alpha == 255);
    for (const int x : {10, 80}) {
      expectColour(again->view(), x, 50, colourAt(picture->view(), x, 50), 0);
    }
  }
}

TEST(ImageEncodingTest, writesEveryPixelOfAnOddPicture) {
  const TemporaryDirectory directory;
  const Size size{37, 23};
  const auto picture = numberedPicture(size, 12);
  write(directory, "out.png", Modules::imageCodec().encodePng(picture->view()));
  const std::string raw = decodeElsewhere(directory, "out.png", "bgra");
  ASSERT_EQ(raw.size(), 37U * 23U * 4U);
  for (int y = 0; y < size.height; ++y) {
    EXPECT_EQ(std::memcmp(raw.data() + y * 37 * 4, picture->view().row(y), 37 * 4), 0) << y;
  }
}

TEST(ImageEncodingTest, refusesToWriteAnEmptyPicture) {
  EXPECT_THROW(Modules::imageCodec().encodePng({}), Error);
}

TEST(ImageEncodingTest, encodesAPartOfAWiderPicture) {
  const auto picture = makeSample(255);
  const auto png = Modules::imageCodec().encodePng(picture->view().part({48, 0, 20, 10}));
  const auto again = Modules::imageCodec().load(png, 1000);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->size(), (Size{20, 10}));
  expectColour(again->view(), 0, 9, SamplePicture::topRight, 0);
}

TEST(ImageEncodingTest, writesJpegOverBlack) {
  const TemporaryDirectory directory;
  const auto picture = makeSample(128);
  write(directory, "out.jpg", Modules::imageCodec().encodeJpeg(picture->view(), 95));
  const std::string raw = decodeElsewhere(directory, "out.jpg", "rgb24");
  EXPECT_NEAR(byteAt(raw, 24, 16, 3, 0), SamplePicture::topLeft.red / 2.0, 5);
  EXPECT_NEAR(byteAt(raw, 72, 48, 3, 1), SamplePicture::bottomRight.green / 2.0, 5);
}

}  // namespace
}  // namespace lenslark
