#include "codecs/VideoDecoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <vector>

#include "base/Error.h"
#include "codecs/Modules.h"
#include "support/Clips.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr int cap = 2048;

class VideoDecoderTest : public testing::Test {
 protected:
  std::string clip(const std::string& name, const std::string& arguments) {
    return Clips::make(directory / name, arguments);
  }

  static std::unique_ptr<VideoDecoder> open(const std::string& path, int maxSide = cap) {
    return Modules::videoCodec().open(path, maxSide);
  }

  static std::shared_ptr<PixelBuffer> firstPicture(const std::string& path, int maxSide = cap) {
    const auto frame = open(path, maxSide)->next();
    return frame ? materialize(*frame->picture) : nullptr;
  }

  static std::vector<int> allNumbers(VideoDecoder& film) {
    std::vector<int> numbers;
    while (const auto frame = film.next()) numbers.push_back(Clips::numberIn(*frame->picture));
    return numbers;
  }

  TemporaryDirectory directory;
};

std::vector<int> upTo(int count) {
  std::vector<int> numbers;
  for (int number = 0; number < count; ++number) numbers.push_back(number);
  return numbers;
}

testing::AssertionResult isColour(const PixelBuffer& picture, int x, int y, int red, int green,
                                  int blue, int tolerance = 3) {
  const std::uint8_t* pixel = picture.view().row(y) + static_cast<std::ptrdiff_t>(x) * 4;
  if (std::abs(pixel[2] - red) <= tolerance && std::abs(pixel[1] - green) <= tolerance &&
      std::abs(pixel[0] - blue) <= tolerance) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "at " << x << "," << y << ": " << int{pixel[2]} << " "
                                     << int{pixel[1]} << " " << int{pixel[0]};
}

/// Four quarters: red top left, green top right, blue bottom left, white bottom right.
const std::string quarters =
    "-f lavfi -i \"color=size=320x192:rate=10:duration=0.3:color=red,format=gbrp,"
    "drawbox=x=160:y=0:w=160:h=96:color=lime:t=fill,drawbox=x=0:y=96:w=160:h=96:color=blue:t=fill,"
    "drawbox=x=160:y=96:w=160:h=96:color=white:t=fill\" ";

testing::AssertionResult showsQuarters(const PixelBuffer& picture, int tolerance = 3) {
  const int left = picture.size().width / 4;
  const int right = picture.size().width - left;
  const int top = picture.size().height / 4;
  const int bottom = picture.size().height - top;
  for (const auto& result : {isColour(picture, left, top, 255, 0, 0, tolerance),
                             isColour(picture, right, top, 0, 255, 0, tolerance),
                             isColour(picture, left, bottom, 0, 0, 255, tolerance),
                             isColour(picture, right, bottom, 255, 255, 255, tolerance)}) {
    if (!result) return result;
  }
  return testing::AssertionSuccess();
}

std::string scaleTo(const std::string& matrix, const std::string& range,
                    const std::string& format) {
  const std::string tagged = matrix == "bt601" ? "smpte170m" : matrix;
  return "-vf \"scale=out_color_matrix=" + matrix + ":out_range=" + range + ",format=" + format +
         "\" -colorspace " + (matrix == "bt2020" ? "bt2020nc" : tagged) + " -color_range " + range +
         " ";
}

TEST_F(VideoDecoderTest, givesEveryPictureInOrder) {
  const auto film = open(clip("a.mp4", Clips::numbered(30, 2) + Clips::h264));
  EXPECT_EQ(allNumbers(*film), upTo(60));
}

TEST_F(VideoDecoderTest, ordersPicturesThatAreStoredOutOfOrder) {
  const auto film =
      open(clip("b.mp4", Clips::numbered(30, 2) + " -c:v libx264 -preset medium -bf 3 -crf 18 "));
  EXPECT_EQ(allNumbers(*film), upTo(60));
}

TEST_F(VideoDecoderTest, tellsWhenEachPictureIsDue) {
  const auto film = open(clip("a.mp4", Clips::numbered(25, 1) + Clips::h264));
  for (int number = 0; number < 25; ++number)
    EXPECT_NEAR(film->next()->timeSec, number / 25.0, 1e-6);
}

TEST_F(VideoDecoderTest, describesTheFilm) {
  const auto film = open(clip("a.mp4", Clips::numbered(25, 2) + Clips::h264));
  EXPECT_EQ(film->info().size, (Size{256, 64}));
  EXPECT_NEAR(film->info().durationSec, 2, 0.05);
  EXPECT_NEAR(film->info().nominalFps, 25, 1e-6);
}

TEST_F(VideoDecoderTest, startsAgainAtTheFirstPicture) {
  const auto film = open(clip("a.mp4", Clips::numbered(30, 1) + " -c:v libx264 -bf 3 "));
  allNumbers(*film);
  film->rewind();
  EXPECT_EQ(allNumbers(*film), upTo(30));
}

TEST_F(VideoDecoderTest, countsTimeFromTheStartAgainAfterRewinding) {
  const auto film = open(clip("a.mp4", Clips::numbered(30, 1) + Clips::h264));
  allNumbers(*film);
  film->rewind();
  EXPECT_NEAR(film->next()->timeSec, 0, 1e-6);
}

struct Container {
  std::string name;
  std::string coding;
};

class FilmContainers : public VideoDecoderTest, public testing::WithParamInterface<Container> {};

TEST_P(FilmContainers, arePlayedWhole) {
  const auto film = open(clip(GetParam().name, Clips::numbered(30, 0.5) + GetParam().coding));
  EXPECT_EQ(allNumbers(*film), upTo(15));
}

INSTANTIATE_TEST_SUITE_P(
    Formats, FilmContainers,
    testing::Values(
        Container{"h264.mov", Clips::h264}, Container{"h264.m4v", Clips::h264},
        Container{"h264.mkv", Clips::h264},
        Container{"hevc.mp4", " -c:v libx265 -preset ultrafast -x265-params log-level=none "},
        Container{"vp8.webm", " -c:v libvpx -deadline realtime -b:v 2M "},
        Container{"vp9.webm", " -c:v libvpx-vp9 -deadline realtime -b:v 2M "},
        Container{"av1.mp4", " -c:v libaom-av1 -cpu-used 8 -usage realtime "},
        Container{"mpeg4.avi", " -c:v mpeg4 -q:v 2 "},
        Container{"mjpeg.avi", " -c:v mjpeg -q:v 2 -pix_fmt yuvj420p "},
        Container{"prores.mov", " -c:v prores_ks -profile:v 2 "},
        Container{"prores4444.mov", " -c:v prores_ks -profile:v 4 -pix_fmt yuva444p10le "}),
    [](const auto& instance) {
      std::string name = instance.param.name;
      for (char& c : name) c = c == '.' ? '_' : c;
      return name;
    });

struct Coding {
  const char* name;
  const char* matrix;
  const char* range;
  const char* format;
  const char* codec;
};

class FilmColours : public VideoDecoderTest, public testing::WithParamInterface<Coding> {};

TEST_P(FilmColours, areAsTagged) {
  const Coding& coding = GetParam();
  const auto picture = firstPicture(
      clip("c.mkv", quarters + scaleTo(coding.matrix, coding.range, coding.format) + coding.codec));
  EXPECT_TRUE(showsQuarters(*picture, 4));
}

constexpr const char* exactH264 = "-c:v libx264 -preset ultrafast -qp 1";
constexpr const char* exactHevc = "-c:v libx265 -preset ultrafast -x265-params log-level=none:qp=4";

INSTANTIATE_TEST_SUITE_P(
    Tags, FilmColours,
    testing::Values(Coding{"bt601", "bt601", "tv", "yuv420p", exactH264},
                    Coding{"bt709", "bt709", "tv", "yuv420p", exactH264},
                    Coding{"bt709full", "bt709", "pc", "yuv420p", exactH264},
                    Coding{"bt601full", "bt601", "pc", "yuv420p", exactH264},
                    Coding{"bt2020", "bt2020", "tv", "yuv420p10le", exactHevc},
                    Coding{"deep", "bt709", "tv", "yuv420p10le", exactHevc},
                    Coding{"half", "bt709", "tv", "yuv422p", exactH264},
                    Coding{"full", "bt709", "tv", "yuv444p", exactH264},
                    Coding{"deepHalf", "bt709", "tv", "yuv422p10le", exactHevc},
                    Coding{"deepFull", "bt709", "tv", "yuv444p10le", exactHevc}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(VideoDecoderTest, takesUntaggedSmallFilmsForBt601) {
  const auto picture = firstPicture(
      clip("c.mkv", quarters +
                        "-vf \"scale=out_color_matrix=bt601:out_range=tv,format=yuv420p,"
                        "setparams=colorspace=unknown\" " +
                        exactH264));
  EXPECT_TRUE(showsQuarters(*picture));
}

TEST_F(VideoDecoderTest, takesUntaggedLargeFilmsForBt709) {
  const auto picture = firstPicture(
      clip("c.mkv", quarters +
                        "-vf \"scale=1280:720:flags=neighbor:out_color_matrix=bt709:out_range=tv,"
                        "format=yuv420p,setparams=colorspace=unknown\" " +
                        exactH264));
  EXPECT_TRUE(showsQuarters(*picture));
}

TEST_F(VideoDecoderTest, mapsHdrWhiteToNearlyWhiteRatherThanGrey) {
  // 203 cd/m2, diffuse white, is a PQ signal of 0.58; linear 0.8 is 231 in sRGB.
  const auto picture =
      firstPicture(clip("h.mkv",
                        "-f lavfi -i \"color=size=64x64:rate=5:duration=0.4,format=yuv420p10le,"
                        "geq=lum=573:cb=512:cr=512\" -colorspace bt2020nc -color_trc smpte2084 "
                        "-color_primaries bt2020 -color_range tv " +
                            std::string(exactHevc)));
  EXPECT_TRUE(isColour(*picture, 30, 30, 222, 222, 222, 14));
}

TEST_F(VideoDecoderTest, showsOddSidesWhole) {
  const auto picture =
      firstPicture(clip("odd.webm",
                        "-f lavfi -i \"color=size=34x18:rate=5:duration=0.4:color=red,format=gbrp,"
                        "scale=33:17,setsar=1\" "
                        "-c:v libvpx-vp9 -lossless 1 -pix_fmt yuv420p"));
  EXPECT_EQ(picture->size(), (Size{33, 17}));
  EXPECT_TRUE(isColour(*picture, 32, 16, 254, 0, 0, 4));
}

TEST_F(VideoDecoderTest, showsPicturesOfOblongPixelsInTheirDisplayShape) {
  const auto film = open(clip("sar.mp4", Clips::numbered(10, 0.5) + Clips::h264 + "-vf setsar=2 "));
  EXPECT_EQ(film->info().size, (Size{512, 64}));
  const auto frame = film->next();
  EXPECT_EQ(frame->picture->size(), (Size{512, 64}));
}

TEST_F(VideoDecoderTest, boundsPicturesByTheLongerSide) {
  const auto film =
      open(clip("big.mp4", quarters + "-vf scale=1280:768:flags=neighbor:out_color_matrix=bt709 "
                                      "-pix_fmt yuv420p -c:v libx264 -qp 4"),
           640);
  EXPECT_EQ(film->info().size, (Size{1280, 768}));
  const auto picture = materialize(*film->next()->picture);
  EXPECT_EQ(picture->size(), (Size{640, 384}));
  EXPECT_TRUE(showsQuarters(*picture, 6));
}

/// ffmpeg's own player rotates as it should be: both must agree.
class RecordingOrientation : public VideoDecoderTest, public testing::WithParamInterface<int> {
 protected:
  std::shared_ptr<PixelBuffer> turnedByFfmpeg(const std::string& path) {
    return firstPicture(
        clip("upright.mkv", "-i '" + path + "' -pix_fmt yuv420p -c:v libx264 -qp 0"));
  }
};

TEST_P(RecordingOrientation, isUndone) {
  const std::string stored = clip("s.mp4", quarters + "-pix_fmt yuv420p -c:v libx264 -qp 2");
  const std::string turned = clip(
      "t.mp4", "-i '" + stored + "' -c copy -metadata:s:v rotate=" + std::to_string(GetParam()));
  const auto expected = turnedByFfmpeg(turned);
  const auto film = open(turned);
  const auto picture = materialize(*film->next()->picture);
  ASSERT_EQ(picture->size(), expected->size());
  EXPECT_EQ(film->info().size, expected->size());
  for (const int x : {1, 3}) {
    for (const int y : {1, 3}) {
      const int px = picture->size().width * x / 4;
      const int py = picture->size().height * y / 4;
      const std::uint8_t* wanted = expected->view().row(py) + static_cast<std::ptrdiff_t>(px) * 4;
      EXPECT_TRUE(isColour(*picture, px, py, wanted[2], wanted[1], wanted[0], 6));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(QuarterTurns, RecordingOrientation, testing::Values(90, 180, 270));

TEST_F(VideoDecoderTest, drawsAPartScaled) {
  const auto film = open(clip("q.mkv", quarters + scaleTo("bt709", "tv", "yuv420p") + exactH264));
  const auto frame = film->next();
  PixelBuffer target(Size{40, 40});
  ASSERT_TRUE(frame->picture->draw({160, 0, 160, 96}, target.span()));
  EXPECT_TRUE(isColour(target, 20, 20, 0, 255, 0, 5));
}

TEST_F(VideoDecoderTest, drawsAPartOfADeepPicture) {
  const auto film =
      open(clip("q.mkv", quarters + scaleTo("bt709", "tv", "yuv420p10le") + exactHevc));
  const auto frame = film->next();
  PixelBuffer target(Size{160, 96});
  ASSERT_TRUE(frame->picture->draw({0, 96, 160, 96}, target.span()));
  EXPECT_TRUE(isColour(target, 80, 48, 0, 0, 255, 5));
}

TEST_F(VideoDecoderTest, leavesPicturesOutToCatchUp) {
  const auto film = open(clip("a.mp4", Clips::numbered(30, 4) + Clips::h264 + "-g 30 "));
  film->next();
  film->setLag(10);
  EXPECT_LT(allNumbers(*film).size(), 30U);
}

TEST_F(VideoDecoderTest, refusesAFileWithoutPictures) {
  const std::string sound = clip("s.mp4", "-f lavfi -i sine=duration=1 -c:a aac");
  try {
    open(sound);
    FAIL() << "opened";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "s.mp4 has no video track");
  }
}

TEST_F(VideoDecoderTest, refusesTextThatIsNamedLikeAFilm) {
  EXPECT_THROW(open(directory.write("t.mp4", "not a film at all\n")), Error);
}

TEST_F(VideoDecoderTest, refusesAnEmptyFile) {
  EXPECT_THROW(open(directory.write("e.mp4", "")), Error);
}

TEST_F(VideoDecoderTest, followsNoPlaylist) {
  clip("real.mp4", Clips::numbered(10, 0.5) + Clips::h264);
  EXPECT_THROW(open(directory.write("list.mp4", "ffconcat version 1.0\nfile real.mp4\n")), Error);
  EXPECT_THROW(open(directory.write("list.m3u8", "#EXTM3U\n#EXTINF:1,\nreal.mp4\n")), Error);
}

TEST_F(VideoDecoderTest, refusesADirectory) { EXPECT_ANY_THROW(open(directory.path().string())); }

TEST_F(VideoDecoderTest, doesNotWaitForAFifo) {
  const std::string fifo = directory / "f.mp4";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_ANY_THROW(open(fifo));
}

TEST_F(VideoDecoderTest, playsATruncatedFilmAsFarAsItGoes) {
  const std::string whole =
      clip("w.mkv", Clips::numbered(30, 2) + " -c:v libx264 -preset ultrafast -g 10 ");
  std::filesystem::resize_file(whole, std::filesystem::file_size(whole) / 2);
  const auto numbers = allNumbers(*open(whole));
  EXPECT_GT(numbers.size(), 5U);
  EXPECT_LT(numbers.size(), 60U);
}

TEST_F(VideoDecoderTest, survivesBrokenPictures) {
  const std::string path = clip("x.mkv", Clips::numbered(30, 2) + Clips::h264);
  const auto size = static_cast<std::streamoff>(std::filesystem::file_size(path));
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  for (std::streamoff at = size / 3; at < size / 2; at += 97) {
    file.seekp(at);
    file.put('\x5A');
  }
  file.close();
  const auto film = open(path);
  EXPECT_EQ(Clips::numberIn(*film->next()->picture), 0);
  EXPECT_NO_THROW(allNumbers(*film));
}

}  // namespace
}  // namespace lenslark
