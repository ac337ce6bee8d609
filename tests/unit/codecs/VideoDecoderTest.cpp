#include "codecs/VideoDecoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
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

TEST_F(VideoDecoderTest, keepsTheTimesOfAVariableFrameRate) {
  // Ten pictures at 0, 0.1, 0.3, 0.6 ... seconds.
  const auto film = open(clip("vfr.mkv", Clips::numbered(10, 1) +
                                             " -vf \"setpts=N*(N+1)/2*0.1/TB\" -vsync passthrough" +
                                             Clips::h264));
  for (int number = 0; number < 10; ++number) {
    const auto frame = film->next();
    ASSERT_TRUE(frame);
    EXPECT_EQ(Clips::numberIn(*frame->picture), number);
    EXPECT_NEAR(frame->timeSec, number * (number + 1) / 20.0, 0.0011);
  }
}

TEST_F(VideoDecoderTest, leavesOutWhatAnEditListCutsOff) {
  // Copied from a second before the third key frame: the pictures up to the cut are in the file for
  // the decoder's sake.
  const std::string whole = clip("w.mp4", Clips::numbered(30, 3) + Clips::h264 + "-g 60 ");
  const auto film = open(clip("cut.mp4", "-ss 1 -i '" + whole + "' -c copy"));
  const auto first = film->next();
  ASSERT_TRUE(first);
  EXPECT_EQ(Clips::numberIn(*first->picture), 30);
  EXPECT_NEAR(first->timeSec, 0, 0.04);
  EXPECT_EQ(Clips::numberIn(*film->next()->picture), 31);
}

TEST_F(VideoDecoderTest, waitsForPicturesThatStartAfterTheSound) {
  const auto film =
      open(clip("late.mp4", Clips::numbered(10, 1) +
                                " -f lavfi -i sine=duration=2 -map 0:v -map 1:a -c:a aac "
                                "-vf setpts=PTS+0.5/TB -vsync passthrough" +
                                Clips::h264));
  const auto first = film->next();
  ASSERT_TRUE(first);
  EXPECT_EQ(Clips::numberIn(*first->picture), 0);
  EXPECT_NEAR(first->timeSec, 0.5, 0.05);
}

TEST_F(VideoDecoderTest, takesTheStartOfAShiftedFilmForItsBeginning) {
  const auto film =
      open(clip("shifted.ts", Clips::numbered(10, 1) + Clips::h264 + "-output_ts_offset 100 "));
  EXPECT_NEAR(film->next()->timeSec, 0, 0.01);
}

TEST_F(VideoDecoderTest, showsRecordingsThatWereStrungTogetherOneAfterTheOther) {
  const std::string second = clip("two.ts", Clips::numbered(10, 2) + Clips::h264);
  const std::string both = clip("one.ts", Clips::numbered(10, 2) + Clips::h264);
  std::ofstream(both, std::ios::binary | std::ios::app)
      << std::ifstream(second, std::ios::binary).rdbuf();
  const auto film = open(both);
  for (int pass = 0; pass < 2; ++pass) {
    for (int picture = 0; picture < 40; ++picture) {
      const auto frame = film->next();
      ASSERT_TRUE(frame);
      EXPECT_EQ(Clips::numberIn(*frame->picture), picture % 20);
      EXPECT_NEAR(frame->timeSec, picture * 0.1, 0.01);
    }
    EXPECT_FALSE(film->next());
    film->rewind();
  }
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

TEST_P(FilmContainers, startAgainAtTheFirstPicture) {
  const auto film = open(clip(GetParam().name, Clips::numbered(30, 0.5) + GetParam().coding));
  for (int pass = 0; pass < 3; ++pass) {
    const auto first = film->next();
    ASSERT_TRUE(first);
    EXPECT_NEAR(first->timeSec, 0, 0.1);
    EXPECT_EQ(Clips::numberIn(*first->picture), 0);
    EXPECT_EQ(allNumbers(*film).size(), 14U);
    film->rewind();
  }
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
        Container{"h264.ts", " -c:v libx264 -bf 3 -b_strategy 0 "},
        Container{"hevc.mts", " -c:v libx265 -x265-params log-level=none -f mpegts "},
        Container{"mpeg2.mpg", " -c:v mpeg2video -bf 2 -g 30 -q:v 2 "},
        Container{"mpeg2.ts", " -c:v mpeg2video -bf 2 -g 30 -q:v 2 "},
        Container{"h264.flv", " -c:v libx264 -bf 3 -b_strategy 0 "},
        Container{"h264.mp4", " -c:v libx264 -bf 3 -movflags frag_keyframe+empty_moov "},
        Container{"wmv2.wmv", " -c:v wmv2 -q:v 2 "},
        Container{"theora.ogv", " -c:v libtheora -q:v 10 "},
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

TEST_F(VideoDecoderTest, takesFilmsOfEarlyHdCamerasForTheirNearestKin) {
  const auto picture =
      firstPicture(clip("240m.mkv", quarters + scaleTo("smpte240m", "tv", "yuv420p") + exactH264));
  EXPECT_TRUE(showsQuarters(*picture, 8));
}

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

TEST_F(VideoDecoderTest, takesTagsThatNoStandardKnowsForNone) {
  const std::string path = clip("c.mov", quarters +
                                             "-vf \"scale=out_color_matrix=bt601:out_range=tv,"
                                             "format=yuv422p10le\" -c:v prores_ks -profile:v 2 ");
  std::ifstream whole(path, std::ios::binary);
  std::string film{std::istreambuf_iterator<char>(whole), {}};
  constexpr std::size_t toTags = 18;  // of primaries, transfer and matrix, from a frame's name on
  for (std::size_t at = film.find("icpf"); at != film.npos; at = film.find("icpf", at + 1))
    film.replace(at + toTags, 3, 3, 't');
  std::ofstream(path, std::ios::binary) << film;
  EXPECT_TRUE(showsQuarters(*firstPicture(path)));
}

struct HdrGrey {
  const char* name;
  const char* transfer;
  int luma;  ///< Ten bits, limited range.
  int shown;
};

class HdrFilms : public VideoDecoderTest, public testing::WithParamInterface<HdrGrey> {};

/// Computed from the standards and the map's definition: light scaled so that 203 cd/m2 is 0.8,
/// rolled off from 0.6 on, in sRGB's curve.
TEST_P(HdrFilms, areBroughtDownToTheRangeOfAnOrdinaryPicture) {
  const HdrGrey& grey = GetParam();
  const auto picture = firstPicture(clip(
      "h.mkv", "-f lavfi -i \"color=size=64x64:rate=5:duration=0.4,format=yuv420p10le,geq=lum=" +
                   std::to_string(grey.luma) + ":cb=512:cr=512\" -colorspace bt2020nc -color_trc " +
                   grey.transfer + " -color_primaries bt2020 -color_range tv " + exactHevc));
  // Four neighbours, since the last bits are dithered.
  double green = 0;
  for (const int row : {30, 31}) {
    for (const int column : {30, 31}) green += picture->view().row(row)[column * 4 + 1] / 4.0;
  }
  EXPECT_NEAR(green, grey.shown, 2.5);
}

INSTANTIATE_TEST_SUITE_P(
    Curves, HdrFilms,
    testing::Values(HdrGrey{"pqBlack", "smpte2084", 64, 0},
                    // 18 % grey of a scene with its white at 203 cd/m2: 26 cd/m2.
                    HdrGrey{"pqMidGrey", "smpte2084", 397, 90},
                    HdrGrey{"pqWhite", "smpte2084", 573, 226},
                    HdrGrey{"pqPeak", "smpte2084", 723, 255},
                    HdrGrey{"hlgBlack", "arib-std-b67", 64, 0},
                    HdrGrey{"hlgMidGrey", "arib-std-b67", 397, 90},
                    HdrGrey{"hlgWhite", "arib-std-b67", 721, 226},
                    HdrGrey{"hlgPeak", "arib-std-b67", 940, 255}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(VideoDecoderTest, drawsHdrPicturesAheadAndLeavesOthersInTheirPlanes) {
  const std::string grey =
      "-f lavfi -i color=size=64x64:rate=5:duration=0.4:color=gray -pix_fmt yuv420p10le ";
  const auto hdr = open(clip("h.mkv", grey + exactHevc + " -color_trc arib-std-b67"));
  EXPECT_NE(hdr->next()->picture->pixelBuffer(), nullptr);
  const auto plain = open(clip("p.mkv", grey + exactHevc));
  EXPECT_EQ(plain->next()->picture->pixelBuffer(), nullptr);
}

TEST_F(VideoDecoderTest, keepsTheHueOfHdrColours) {
  // BT.2020 red at half the PQ signal of white: only the red light remains strong.
  const auto picture = firstPicture(
      clip("h.mkv",
           "-f lavfi -i \"color=size=64x64:rate=5:duration=0.4:color=0x900000,format=gbrp10le,"
           "scale=out_color_matrix=bt2020:out_range=tv,format=yuv420p10le\" -colorspace bt2020nc "
           "-color_trc smpte2084 -color_primaries bt2020 -color_range tv " +
               std::string(exactHevc)));
  const std::uint8_t* pixel = picture->view().row(30) + 120;
  EXPECT_GT(pixel[2], 200);
  EXPECT_LT(pixel[1], 40);
  EXPECT_LT(pixel[0], 40);
}

TEST_F(VideoDecoderTest, showsOddSidesWhole) {
  const auto picture =
      firstPicture(clip("odd.webm",
                        "-f lavfi -i \"nullsrc=size=33x17:rate=5:duration=0.4,format=yuv420p,"
                        "geq=lum=81:cb=90:cr=240\" -c:v libvpx-vp9 -lossless 1"));
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

TEST_F(VideoDecoderTest, shrinksToEvenSides) {
  const std::string path = clip("odd.mp4", quarters + "-vf scale=1282:728,setsar=1 " + Clips::h264);
  EXPECT_EQ(firstPicture(path, 640)->size(), (Size{640, 362}));
  EXPECT_EQ(firstPicture(path, 320)->size(), (Size{320, 180}));
  EXPECT_EQ(firstPicture(path, 100)->size(), (Size{100, 56}));
}

TEST_F(VideoDecoderTest, keepsARowOfAVeryWideFilm) {
  const std::string path = clip("wide.mp4", quarters + "-vf scale=1280:8,setsar=1 " + Clips::h264);
  EXPECT_EQ(firstPicture(path, 128)->size(), (Size{128, 1}));
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

/// A display matrix, a b c d, and where it brings the four corners (red, lime, blue, white).
struct Turn {
  const char* name;
  std::array<int, 4> matrix;
  std::array<int, 4> corners;  ///< Top left, top right, bottom left, bottom right.
};

/// As a phone stores it, in the track's header.
void setDisplayMatrix(const std::string& path, const std::array<int, 4>& matrix) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  const std::size_t box = bytes.find("tkhd");
  ASSERT_NE(box, std::string::npos);
  constexpr std::array<std::size_t, 4> places{0, 1, 3, 4};
  for (std::size_t index = 0; index < matrix.size(); ++index) {
    file.seekp(static_cast<std::streamoff>(box + 4 + 40 + places[index] * 4));
    const auto value = static_cast<std::uint32_t>(matrix[index]) << 16;
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
      file.put(static_cast<char>(value >> shift & 0xFF));
    }
  }
}

class DisplayMatrices : public VideoDecoderTest, public testing::WithParamInterface<Turn> {};

TEST_P(DisplayMatrices, areObeyed) {
  const std::string path = clip("m.mp4", quarters + scaleTo("bt709", "tv", "yuv420p") + exactH264);
  setDisplayMatrix(path, GetParam().matrix);
  const auto film = open(path);
  const auto picture = materialize(*film->next()->picture);
  const bool onItsSide = GetParam().matrix[0] == 0;
  const Size size = onItsSide ? Size{192, 320} : Size{320, 192};
  EXPECT_EQ(film->info().size, size);
  ASSERT_EQ(picture->size(), size);
  constexpr std::array<std::array<int, 3>, 4> colours{
      {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {255, 255, 255}}};
  for (std::size_t corner = 0; corner < 4; ++corner) {
    const auto& [red, green, blue] = colours[static_cast<std::size_t>(GetParam().corners[corner])];
    const int x = size.width * (corner % 2 == 0 ? 1 : 3) / 4;
    const int y = size.height * (corner < 2 ? 1 : 3) / 4;
    EXPECT_TRUE(isColour(*picture, x, y, red, green, blue, 6));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Turns, DisplayMatrices,
    testing::Values(Turn{"asItIs", {1, 0, 0, 1}, {0, 1, 2, 3}},
                    Turn{"aQuarterClockwise", {0, 1, -1, 0}, {2, 0, 3, 1}},
                    Turn{"half", {-1, 0, 0, -1}, {3, 2, 1, 0}},
                    Turn{"aQuarterBack", {0, -1, 1, 0}, {1, 3, 0, 2}},
                    Turn{"mirrored", {-1, 0, 0, 1}, {1, 0, 3, 2}},
                    Turn{"upsideDown", {1, 0, 0, -1}, {2, 3, 0, 1}},
                    Turn{"acrossTheDiagonal", {0, 1, 1, 0}, {0, 2, 1, 3}},
                    Turn{"acrossTheOtherDiagonal", {0, -1, -1, 0}, {3, 1, 2, 0}}),
    [](const auto& instance) { return std::string(instance.param.name); });

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

TEST_F(VideoDecoderTest, leavesOutWhatNoOtherPictureNeedsWhenItIsLate) {
  const auto film = open(clip(
      "a.mp4", Clips::numbered(30, 2) + " -c:v libx264 -preset medium -bf 2 -b_strategy 0 -g 30 "));
  std::vector<int> numbers;
  film->setLag(0.5);
  while (const auto frame = film->next()) numbers.push_back(Clips::numberIn(*frame->picture));
  EXPECT_GT(numbers.size(), 15U);
  EXPECT_LT(numbers.size(), 50U);
  EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
}

TEST_F(VideoDecoderTest, goesOnAtTheNextKeyFrameWhenItIsVeryLate) {
  const auto film = open(clip("a.mp4", Clips::numbered(30, 4) + Clips::h264 + "-g 30 "));
  film->next();
  film->setLag(10);
  const auto landed = film->next();
  ASSERT_TRUE(landed);
  const int number = Clips::numberIn(*landed->picture);
  EXPECT_GT(number, 0);
  EXPECT_EQ(number % 30, 0);
  EXPECT_NEAR(landed->timeSec, number / 30.0, 1e-6);
  film->setLag(0);
  EXPECT_EQ(Clips::numberIn(*film->next()->picture), number + 1);
}

TEST_F(VideoDecoderTest, endsWhenItIsVeryLateAndNoKeyFrameIsLeft) {
  const auto film = open(clip("a.mp4", Clips::numbered(30, 2) + Clips::h264 + "-g 300 "));
  film->next();
  film->setLag(10);
  EXPECT_LT(allNumbers(*film).size(), 30U);
  film->rewind();
  film->setLag(0);
  EXPECT_EQ(allNumbers(*film), upTo(60));
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

TEST_F(VideoDecoderTest, refusesAnUncommonCoding) {
  const std::string path = clip("z.avi", Clips::numbered(10, 0.5) + " -c:v zmbv -pix_fmt pal8");
  try {
    open(path);
    FAIL() << "opened";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "z.avi is coded as zmbv, for which there is no decoder");
  }
}

TEST_F(VideoDecoderTest, refusesPicturesBeyondTheLimitBeforeDecodingOne) {
  // A GIF of 60000 x 60000 pixels in 43 bytes.
  std::string gif("GIF89a\x60\xEA\x60\xEA\x80\0\0\0\0\0\xFF\xFF\xFF", 19);
  gif.append("\x2C\0\0\0\0\x60\xEA\x60\xEA\0\x02\x02\x44\x01\0\x3B", 16);
  EXPECT_THROW(open(directory.write("huge.gif", gif)), Error);
}

TEST_F(VideoDecoderTest, playsALoopedPictureOnce) {
  const auto film = open(clip("l.gif", Clips::numbered(10, 1) + " -loop 0 "));
  EXPECT_EQ(allNumbers(*film), upTo(10));
}

TEST_F(VideoDecoderTest, readsAFilmThatGrowsNoFurtherThanItWas) {
  const std::string path = clip("g.ts", Clips::numbered(10, 1) + Clips::h264);
  const auto film = open(path);
  std::filesystem::copy_file(path, path + ".more");
  std::ifstream more(path + ".more", std::ios::binary);
  std::ofstream(path, std::ios::app | std::ios::binary) << more.rdbuf();
  EXPECT_EQ(allNumbers(*film), upTo(10));
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
