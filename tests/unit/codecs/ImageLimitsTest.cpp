#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <thread>

#include "codecs/ImageCodec.h"
#include "codecs/Modules.h"
#include "support/SamplePicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

class ImageLimitsTest : public testing::Test {
 protected:
  void expectRefused(const std::string& path) {
    EXPECT_FALSE(Modules::imageCodec().load(path, 2048)) << path;
  }

  /// Neither decoded nor measured, and without making room for its pixels.
  void expectRefusedByHeader(const std::string& name) {
    const std::string path = sample_.path(name);
    const long before = peakKilobytes();
    EXPECT_FALSE(Modules::imageCodec().measure(path)) << name;
    expectRefused(path);
    EXPECT_LT(peakKilobytes() - before, 100L * 1024) << name;
  }

  static long peakKilobytes() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
  }

  const TemporaryDirectory directory_;
  const SamplePicture sample_{directory_};
};

TEST_F(ImageLimitsTest, refusesWhatIsNoRegularFile) {
  const auto fifo = directory_ / "fifo.png";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo.string(), directory_.path().string(),
                                  std::string("/dev/null"), sample_.path("missing.png")}) {
    EXPECT_FALSE(Modules::imageCodec().measure(path)) << path;
    expectRefused(path);
  }
}

TEST_F(ImageLimitsTest, refusesEmptyFilesAndNoise) {
  for (const char* start : {"", "\x89PNG\r\n\x1a\n", "\xff\xd8\xff", "GIF89a", "BM",
                            "RIFF    WEBPVP8 ", "II*", "\xff\x0a", "noise", "<svg"}) {
    const auto path = directory_.write("file", std::string(start) + std::string(300, '\x5a'));
    expectRefused(path);
  }
  expectRefused(directory_.write("empty.png", ""));
}

TEST_F(ImageLimitsTest, refusesTruncatedPictures) {
  sample_.run(
      "vips gaussnoise a.v 300 200 --sigma 60 --mean 128 && vips bandjoin 'a.v a.v a.v' b.v && "
      "vips cast b.v c.v uchar && vips copy c.v d.v --interpretation srgb && "
      "for f in png jpg webp gif tif; do vips copy d.v full.$f; done && vips copy d.v e.png && "
      "heif-enc -q 90 e.png -o full.heic && heif-enc -A -q 90 e.png -o full.avif && "
      "cjxl e.png full.jxl -d 1 && ffmpeg -loglevel error -i e.png full.bmp && "
      "for f in png jpg webp gif tif heic avif jxl bmp; do "
      "head -c $(($(stat -c %s full.$f) / 2)) full.$f > half.$f; done");
  for (const char* format : {"png", "jpg", "webp", "gif", "tif", "heic", "avif", "jxl", "bmp"}) {
    EXPECT_TRUE(Modules::imageCodec().load(sample_.path(std::string("full.") + format), 2048))
        << format;
    expectRefused(sample_.path(std::string("half.") + format));
  }
}

TEST_F(ImageLimitsTest, showsPanoramas) {
  sample_.run(
      "vips black a.v 32768 96 --bands 3 && vips linear a.v b.v 1 200 --uchar && "
      "vips copy b.v c.v --interpretation srgb && "
      "for f in png jpg tif; do vips copy c.v wide.$f; done && vips rot c.v d.v d90 && "
      "for f in png jpg tif; do vips copy d.v tall.$f; done && "
      "ffmpeg -loglevel error -i wide.png wide.bmp && ffmpeg -loglevel error -i tall.png tall.bmp");
  for (const std::string format : {"png", "jpg", "tif", "bmp"}) {
    const auto wide = Modules::imageCodec().load(sample_.path("wide." + format), 2048);
    const auto tall = Modules::imageCodec().load(sample_.path("tall." + format), 2048);
    ASSERT_TRUE(wide && tall) << format;
    EXPECT_EQ(wide->size(), (Size{2048, 6})) << format;
    EXPECT_EQ(tall->size(), (Size{6, 2048})) << format;
    EXPECT_NEAR(wide->view().row(3)[4096], 200, 2) << format;
    EXPECT_NEAR(tall->view().row(1024)[12], 200, 2) << format;
  }
}

TEST_F(ImageLimitsTest, refusesPicturesBeyondTheLimitsByTheirHeader) {
  sample_.run(
      "vips black wide.v 32769 1 && vips pngsave wide.v side.png && vips gifsave wide.v side.gif "
      "&& "
      "vips black large.v 16000 9999 && vips tiffsave large.v area.tif --bitdepth 1 && "
      "vips black bomb.v 17000 17000 && vips pngsave bomb.v bomb.png --bitdepth 1");
  for (const char* name : {"side.png", "side.gif", "area.tif", "bomb.png"}) {
    expectRefusedByHeader(name);
  }
}

TEST_F(ImageLimitsTest, refusesABitmapThatAnnouncesMoreThanItHolds) {
  const auto header = [](std::uint32_t width, std::uint32_t height) {
    std::string bytes = "BM";
    const auto put = [&bytes](std::uint32_t value, int count) {
      for (int i = 0; i < count; ++i) bytes.push_back(static_cast<char>(value >> (8 * i)));
    };
    for (const std::uint32_t value : {54U, 0U, 54U, 40U, width, height}) put(value, 4);
    put(1, 2);
    put(24, 2);
    for (int i = 0; i < 6; ++i) put(0, 4);
    return bytes + std::string(2000, 'x');
  };
  directory_.write("bomb.bmp", header(30000, 30000));
  expectRefusedByHeader("bomb.bmp");
  directory_.write("negative.bmp", header(0xffffffffU, 5));
  expectRefusedByHeader("negative.bmp");
  expectRefused(directory_.write("short.bmp", header(100, 100)));
}

TEST_F(ImageLimitsTest, refusesABitmapWhoseHeaderPointsBeyondItsEnd) {
  std::string whole("BM\0\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\x01\0\0\0\x01\0\0\0\x01\0\x18\0", 30);
  whole.resize(54 + 4);
  EXPECT_TRUE(Modules::imageCodec().load(directory_.write("whole.bmp", whole), 100));
  // The highest bytes of where the pixels begin, of the header's length, of the palette's length.
  for (const std::size_t place : {13U, 17U, 49U}) {
    std::string broken = whole;
    broken[place] = '\x7f';
    directory_.write("broken.bmp", broken);
    expectRefusedByHeader("broken.bmp");
  }
}

TEST_F(ImageLimitsTest, refusesFormatsThatAreNotWanted) {
  sample_.run(
      "vips copy sample.ppm sample.v && vips rawsave sample.ppm sample.raw && "
      "vips csvsave sample.ppm sample.csv; true");
  for (const char* name : {"sample.ppm", "sample.v", "sample.csv"}) {
    expectRefused(sample_.path(name));
  }
}

TEST_F(ImageLimitsTest, survivesAFileThatIsShortenedWhileItIsRead) {
  sample_.run(
      "vips gaussnoise a.v 1500 1000 && vips cast a.v b.v uchar && vips copy b.v big.gif && "
      "vips copy b.v big.tif && vips copy b.v big.webp && vips copy b.v big.png");
  for (const char* name : {"big.gif", "big.tif", "big.webp", "big.png"}) {
    const std::string path = sample_.path(name);
    for (int round = 0; round < 5; ++round) {
      const std::string copy = sample_.path("copy");
      std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
      std::thread shorten([&copy] { std::filesystem::resize_file(copy, 4096); });
      // Whatever comes of it, the process goes on.
      Modules::imageCodec().load(copy, 2048);
      shorten.join();
    }
  }
}

TEST_F(ImageLimitsTest, saysNothingOnStandardErrorAboutBrokenPictures) {
  sample_.run(
      "vips jpegsave sample.ppm a.jpg && head -c 600 a.jpg > half.jpg && "
      "vips copy sample.ppm a.png && head -c 120 a.png > half.png && "
      "vips tiffsave sample.ppm a.tif && head -c 3000 a.tif > half.tif");
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  for (const char* name : {"half.jpg", "half.png", "half.tif"}) {
    Modules::imageCodec().load(sample_.path(name), 100);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(ImageLimitsTest, refusesASideOfNothing) {
  sample_.run("vips copy sample.ppm sample.png");
  EXPECT_FALSE(Modules::imageCodec().load(sample_.path("sample.png"), 0));
  EXPECT_FALSE(Modules::imageCodec().load(sample_.path("sample.png"), -5));
}

}  // namespace
}  // namespace lenslark
