#include "codecs/ImageCodec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "codecs/Modules.h"
#include "support/SamplePicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr int anySize = 4096;

/// How many threads of its own libvips has started: they stay for 15 seconds.
std::ptrdiff_t workersOfVips() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return std::ranges::count_if(threads, [](const auto& thread) {
    std::string name;
    std::getline(std::ifstream(thread.path() / "comm"), name);
    return name == "libvips worker";
  });
}

/// The sample in a directory of its own, converted by other programs.
class ImageCodecTest : public testing::Test {
 protected:
  /// Work that libvips hands to a thread of its own may get lost, or be done in freed memory.
  void TearDown() override { EXPECT_EQ(workersOfVips(), 0); }

  std::shared_ptr<PixelBuffer> load(const std::string& name, int maxSide = anySize) {
    auto picture = Modules::imageCodec().load(sample_.path(name), maxSide);
    EXPECT_TRUE(picture) << name;
    return picture;
  }

  /// That a whole, opaque picture of the sample's size comes out of the command's file.
  void expectConverted(const std::string& command, const std::string& name, int tolerance) {
    sample_.run(command);
    EXPECT_EQ(Modules::imageCodec().measure(sample_.path(name)), SamplePicture::size) << name;
    const auto picture = load(name);
    ASSERT_TRUE(picture);
    ASSERT_EQ(picture->size(), SamplePicture::size);
    EXPECT_TRUE(picture->opaque());
    expectSample(picture->view(), tolerance);
  }

  const TemporaryDirectory directory_;
  const SamplePicture sample_{directory_};
};

TEST_F(ImageCodecTest, loadsPng) {
  expectConverted("vips copy sample.ppm sample.png", "sample.png", 0);
}

TEST_F(ImageCodecTest, loadsInterlacedPng) {
  expectConverted("vips pngsave sample.ppm sample.png --interlace", "sample.png", 0);
}

TEST_F(ImageCodecTest, loadsPalettePng) {
  expectConverted("vips pngsave sample.ppm sample.png --palette", "sample.png", 3);
}

TEST_F(ImageCodecTest, loadsPngOfSixteenBits) {
  expectConverted("vips colourspace sample.ppm sample.png rgb16", "sample.png", 1);
}

TEST_F(ImageCodecTest, loadsJpeg) {
  expectConverted("vips jpegsave sample.ppm sample.jpg --Q 95", "sample.jpg", 4);
}

TEST_F(ImageCodecTest, loadsProgressiveJpeg) {
  expectConverted("vips jpegsave sample.ppm sample.jpg --Q 95 --interlace", "sample.jpg", 4);
}

TEST_F(ImageCodecTest, loadsGif) {
  expectConverted("vips gifsave sample.ppm sample.gif", "sample.gif", 4);
}

TEST_F(ImageCodecTest, loadsTheFirstPictureOfAnAnimation) {
  sample_.run(
      "vips invert sample.ppm second.png && vips copy sample.ppm first.png && "
      "ffmpeg -loglevel error -i first.png -i second.png -filter_complex "
      "'[0][1]concat=n=2,split[a][b];[a]palettegen[p];[b][p]paletteuse' anim.gif && "
      "ffmpeg -loglevel error -i first.png -i second.png -filter_complex '[0][1]concat=n=2' "
      "-lossless 1 anim.webp");
  for (const char* name : {"anim.gif", "anim.webp"}) {
    const auto picture = load(name);
    ASSERT_TRUE(picture) << name;
    EXPECT_EQ(picture->size(), SamplePicture::size);
    expectSample(picture->view(), 8);
  }
}

TEST_F(ImageCodecTest, loadsWebp) {
  expectConverted("vips copy sample.ppm a.png; cwebp -quiet -q 95 a.png -o sample.webp",
                  "sample.webp", 8);
}

TEST_F(ImageCodecTest, loadsTiff) {
  expectConverted("vips tiffsave sample.ppm sample.tif --compression lzw", "sample.tif", 0);
}

TEST_F(ImageCodecTest, loadsTiledTiffOfSixteenBits) {
  expectConverted(
      "vips colourspace sample.ppm a.v rgb16 && vips tiffsave a.v sample.tif --tile "
      "--compression deflate",
      "sample.tif", 1);
}

TEST_F(ImageCodecTest, loadsHeic) {
  expectConverted("vips copy sample.ppm a.png; heif-enc -q 95 a.png -o sample.heic", "sample.heic",
                  8);
}

TEST_F(ImageCodecTest, loadsAvif) {
  expectConverted("vips copy sample.ppm a.png; heif-enc -A -q 95 a.png -o sample.avif",
                  "sample.avif", 8);
}

TEST_F(ImageCodecTest, loadsJpegXl) {
  expectConverted("vips copy sample.ppm a.png; cjxl a.png sample.jxl -d 0", "sample.jxl", 1);
}

TEST_F(ImageCodecTest, loadsBmp) {
  expectConverted("ffmpeg -loglevel error -i sample.ppm -pix_fmt bgr24 sample.bmp", "sample.bmp",
                  0);
}

TEST_F(ImageCodecTest, loadsPaletteBmp) {
  expectConverted(
      "ffmpeg -loglevel error -i sample.ppm -filter_complex "
      "'split[a][b];[a]palettegen[p];[b][p]paletteuse' -pix_fmt pal8 sample.bmp",
      "sample.bmp", 4);
}

TEST_F(ImageCodecTest, scalesBmpDown) {
  const SamplePicture large(directory_, {500, 300});
  large.run("ffmpeg -loglevel error -i sample.ppm large.bmp");
  const auto picture = load("large.bmp", 100);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), (Size{100, 60}));
  expectSample(picture->view(), 2);
}

TEST_F(ImageCodecTest, loadsGrey) {
  sample_.run(
      "vips colourspace sample.ppm grey.png b-w; vips jpegsave grey.png grey.jpg --Q 95;"
      "vips colourspace sample.ppm grey16.png grey16");
  for (const char* name : {"grey.png", "grey.jpg", "grey16.png"}) {
    const auto picture = load(name);
    ASSERT_TRUE(picture);
    EXPECT_TRUE(picture->opaque());
    const Rgba left = colourAt(picture->view(), 24, 16);
    const Rgba right = colourAt(picture->view(), 72, 48);
    EXPECT_EQ(left.red, left.green);
    EXPECT_EQ(left.red, left.blue);
    EXPECT_GT(right.red, left.red + 50) << name;
  }
}

TEST_F(ImageCodecTest, loadsCmykJpeg) {
  sample_.run(
      "vips icc_export sample.ppm a.v --output-profile cmyk && "
      "vips jpegsave a.v tagged.jpg --Q 98 && vips jpegsave a.v untagged.jpg --Q 98 --strip");
  for (const char* name : {"tagged.jpg", "untagged.jpg"}) {
    const auto picture = load(name);
    ASSERT_TRUE(picture) << name;
    EXPECT_TRUE(picture->opaque());
    // Printing inks do not reach every colour of a screen.
    expectSample(picture->view(), 60);
  }
}

TEST_F(ImageCodecTest, leavesUntaggedColoursAsTheyAre) {
  const TemporaryDirectory directory;
  std::string ppm = "P6\n4 4\n255\n";
  for (int i = 0; i < 16; ++i) ppm += std::string("\xff\x00\x00", 3);
  directory.write("red.ppm", ppm);
  ASSERT_EQ(
      std::system(("cd " + directory.path().string() + " && vips copy red.ppm red.png").c_str()),
      0);
  const auto picture = Modules::imageCodec().load((directory / "red.png").string(), anySize);
  ASSERT_TRUE(picture);
  expectColour(picture->view(), 2, 2, {255, 0, 0}, 0);
}

TEST_F(ImageCodecTest, convertsAnEmbeddedProfileToSrgb) {
  // The same colours in a larger space, as numbers that mean others without the profile.
  sample_.run(
      "vips icc_transform sample.ppm wide.png p3 --input-profile srgb && "
      "vips pngsave wide.png stripped.png --strip");
  const auto tagged = load("wide.png");
  const auto stripped = load("stripped.png");
  ASSERT_TRUE(tagged && stripped);
  expectSample(tagged->view(), 3);
  EXPECT_GT(colourAt(stripped->view(), 72, 16).red, SamplePicture::topRight.red + 30);
}

TEST_F(ImageCodecTest, turnsAllEightOrientationsUpright) {
  constexpr Rgba a = SamplePicture::topLeft;
  constexpr Rgba b = SamplePicture::topRight;
  constexpr Rgba c = SamplePicture::bottomLeft;
  constexpr Rgba d = SamplePicture::bottomRight;
  // How the stored fields a b / c d are to be seen, by the tag's definition.
  const std::array<std::array<Rgba, 4>, 8> seen{{{a, b, c, d},
                                                 {b, a, d, c},
                                                 {d, c, b, a},
                                                 {c, d, a, b},
                                                 {a, c, b, d},
                                                 {c, a, d, b},
                                                 {d, b, c, a},
                                                 {b, d, a, c}}};
  sample_.run("vips jpegsave sample.ppm sample.jpg --Q 95; vips tiffsave sample.ppm sample.tif");
  for (std::size_t i = 0; i < seen.size(); ++i) {
    for (const char* name : {"sample.jpg", "sample.tif"}) {
      sample_.run("exiftool -q -overwrite_original -n -Orientation=" + std::to_string(i + 1) + " " +
                  name);
      SCOPED_TRACE(std::string(name) + " with orientation " + std::to_string(i + 1));
      const Size upright = i < 4 ? Size{96, 64} : Size{64, 96};
      EXPECT_EQ(Modules::imageCodec().measure(sample_.path(name)), upright);
      const auto picture = load(name);
      ASSERT_TRUE(picture);
      ASSERT_EQ(picture->size(), upright);
      expectFields(picture->view(), seen[i], 4);
      const auto smaller = load(name, 48);
      ASSERT_TRUE(smaller);
      EXPECT_EQ(smaller->size(), (i < 4 ? Size{48, 32} : Size{32, 48}));
      expectFields(smaller->view(), seen[i], 6);
    }
  }
}

TEST_F(ImageCodecTest, doesNotTurnAHeicByItsExif) {
  // The format has a property of its own for that, which its decoder has followed already.
  sample_.run(
      "vips jpegsave sample.ppm a.jpg --Q 98 && exiftool -q -overwrite_original -n "
      "-Orientation=6 a.jpg && heif-enc -q 95 a.jpg -o tagged.heic");
  const auto picture = load("tagged.heic");
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->size(), SamplePicture::size);
  EXPECT_EQ(Modules::imageCodec().measure(sample_.path("tagged.heic")), SamplePicture::size);
  expectSample(picture->view(), 8);
}

/// Alpha from 0 at the left to 255 at the right over one colour, as raw RGBA.
void writeAlphaRamp(const TemporaryDirectory& directory) {
  std::string pixels;
  for (int y = 0; y < 4; ++y) {
    for (int x = 0; x < 256; ++x) {
      pixels += {static_cast<char>(200), static_cast<char>(100), static_cast<char>(30),
                 static_cast<char>(x)};
    }
  }
  directory.write("ramp.rgba", pixels);
}

TEST_F(ImageCodecTest, premultipliesExactly) {
  writeAlphaRamp(directory_);
  sample_.run(
      "ffmpeg -loglevel error -f rawvideo -pix_fmt rgba -video_size 256x4 -i ramp.rgba ramp.png;"
      "cwebp -quiet -exact -lossless ramp.png -o ramp.webp");
  for (const char* name : {"ramp.png", "ramp.webp"}) {
    const auto picture = load(name);
    ASSERT_TRUE(picture);
    EXPECT_FALSE(picture->opaque());
    for (int alpha = 0; alpha < 256; ++alpha) {
      const auto times = [alpha](int colour) { return (colour * alpha * 2 + 255) / 510; };
      expectColour(picture->view(), alpha, 2, {times(200), times(100), times(30), alpha}, 0);
    }
  }
}

TEST_F(ImageCodecTest, isOpaqueWhenEveryPixelOfAnAlphaChannelIs) {
  sample_.run("vips bandjoin_const sample.ppm sample.png 255");
  const auto picture = load("sample.png");
  ASSERT_TRUE(picture);
  EXPECT_TRUE(picture->opaque());
  expectSample(picture->view(), 0);
}

TEST_F(ImageCodecTest, loadsGreyWithAlpha) {
  writeAlphaRamp(directory_);
  sample_.run(
      "ffmpeg -loglevel error -f rawvideo -pix_fmt rgba -video_size 256x4 -i ramp.rgba "
      "-pix_fmt ya8 ramp.png");
  const auto picture = load("ramp.png");
  ASSERT_TRUE(picture);
  EXPECT_FALSE(picture->opaque());
  const Rgba half = colourAt(picture->view(), 128, 2);
  EXPECT_EQ(half.red, half.green);
  // ffmpeg's own conversion rounds up.
  EXPECT_NEAR(half.alpha, 128, 1);
}

TEST_F(ImageCodecTest, boundsTheLongerSideAndNeverEnlarges) {
  sample_.run("vips copy sample.ppm sample.png");
  EXPECT_EQ(load("sample.png", 48)->size(), (Size{48, 32}));
  EXPECT_EQ(load("sample.png", 96)->size(), (Size{96, 64}));
  EXPECT_EQ(load("sample.png", 5000)->size(), (Size{96, 64}));
  expectSample(load("sample.png", 48)->view(), 1);
  sample_.run("vips rot sample.ppm turned.png d90");
  EXPECT_EQ(load("turned.png", 48)->size(), (Size{32, 48}));
}

TEST_F(ImageCodecTest, keepsAThinPictureAtLeastOnePixelWide) {
  const SamplePicture thin(directory_, {4000, 2});
  thin.run("vips copy sample.ppm thin.png");
  EXPECT_EQ(load("thin.png", 100)->size(), (Size{100, 1}));
}

TEST_F(ImageCodecTest, loadsFromMemory) {
  sample_.run("vips copy sample.ppm sample.png");
  std::ifstream file(sample_.path("sample.png"), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const auto picture = Modules::imageCodec().load(std::as_bytes(std::span(bytes)), anySize);
  ASSERT_TRUE(picture);
  expectSample(picture->view(), 0);
}

TEST_F(ImageCodecTest, goesByTheContentWhateverTheNameSays) {
  expectConverted("vips copy sample.ppm a.png && mv a.png sample.jpg", "sample.jpg", 0);
  expectConverted("vips jpegsave sample.ppm b.jpg --Q 95 && mv b.jpg sample.bmp", "sample.bmp", 4);
}

}  // namespace
}  // namespace lenslark
