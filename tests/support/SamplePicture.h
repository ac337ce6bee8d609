#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <string>

#include "graphics/PixelView.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {

struct Rgba {
  int red = 0;
  int green = 0;
  int blue = 0;
  int alpha = 255;
};

/// A picture of four fields without any symmetry, written and converted by tools that are not
/// ours, and the check that it has come out as it should.
class SamplePicture {
 public:
  static constexpr Rgba topLeft{220, 40, 30};
  static constexpr Rgba topRight{30, 180, 60};
  static constexpr Rgba bottomLeft{40, 60, 200};
  static constexpr Rgba bottomRight{230, 210, 40};
  static constexpr Size size{96, 64};

  /// Writes "sample.ppm" into the directory.
  explicit SamplePicture(const TemporaryDirectory& directory, Size pixels = size)
      : directory_(directory) {
    std::string ppm =
        "P6\n" + std::to_string(pixels.width) + " " + std::to_string(pixels.height) + "\n255\n";
    for (int y = 0; y < pixels.height; ++y) {
      for (int x = 0; x < pixels.width; ++x) {
        const bool left = x < pixels.width / 2;
        const bool top = y < pixels.height / 2;
        const Rgba colour = top ? (left ? topLeft : topRight) : (left ? bottomLeft : bottomRight);
        for (const int value : {colour.red, colour.green, colour.blue}) {
          ppm.push_back(static_cast<char>(value));
        }
      }
    }
    directory.write("sample.ppm", ppm);
  }

  /// Runs a shell command in the directory; the test fails when the command does.
  void run(const std::string& command) const {
    const std::string line =
        "cd '" + directory_.path().string() + "' && { " + command + "; } >tool.log 2>&1";
    ASSERT_EQ(std::system(line.c_str()), 0) << command;
  }

  std::string path(const std::string& name) const { return (directory_ / name).string(); }

 private:
  const TemporaryDirectory& directory_;
};

inline Rgba colourAt(const PixelView& picture, int x, int y) {
  const std::uint8_t* pixel = picture.row(y) + static_cast<std::ptrdiff_t>(x) * 4;
  return {pixel[2], pixel[1], pixel[0], pixel[3]};
}

inline void expectColour(const PixelView& picture, int x, int y, const Rgba& wanted,
                         int tolerance) {
  ASSERT_TRUE(x < picture.size.width && y < picture.size.height);
  const Rgba seen = colourAt(picture, x, y);
  SCOPED_TRACE("at " + std::to_string(x) + ", " + std::to_string(y));
  EXPECT_NEAR(seen.red, wanted.red, tolerance);
  EXPECT_NEAR(seen.green, wanted.green, tolerance);
  EXPECT_NEAR(seen.blue, wanted.blue, tolerance);
  EXPECT_NEAR(seen.alpha, wanted.alpha, tolerance);
}

/// The four fields' middles, in the order top left, top right, bottom left, bottom right.
inline void expectFields(const PixelView& picture, const std::array<Rgba, 4>& wanted,
                         int tolerance) {
  const int left = picture.size.width / 4;
  const int right = picture.size.width * 3 / 4;
  const int top = picture.size.height / 4;
  const int bottom = picture.size.height * 3 / 4;
  expectColour(picture, left, top, wanted[0], tolerance);
  expectColour(picture, right, top, wanted[1], tolerance);
  expectColour(picture, left, bottom, wanted[2], tolerance);
  expectColour(picture, right, bottom, wanted[3], tolerance);
}

inline void expectSample(const PixelView& picture, int tolerance) {
  expectFields(picture,
               {SamplePicture::topLeft, SamplePicture::topRight, SamplePicture::bottomLeft,
                SamplePicture::bottomRight},
               tolerance);
}

}  // namespace lenslark
