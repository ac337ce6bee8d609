#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "graphics/PixelBuffer.h"

/// Films made while the tests run, by the ffmpeg program.
namespace lenslark::Clips {

/// Runs ffmpeg with these arguments (as a shell takes them) and the output's path behind them.
inline std::string make(const std::filesystem::path& output, const std::string& arguments) {
  const std::string command =
      "ffmpeg -nostdin -v error -y " + arguments + " '" + output.string() + "'";
  if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
  return output.string();
}

/// Pictures of 256x64 whose eight columns are the bits of the picture's number, black or white.
inline std::string numbered(double fps, double seconds) {
  return "-f lavfi -i \"color=size=256x64:rate=" + std::to_string(fps) +
         ":duration=" + std::to_string(seconds) +
         ",format=yuv420p,geq=lum='if(bitand(N\\,pow(2\\,floor(X/"
         "32)))\\,235\\,16)':cb=128:cr=128\"";
}

inline constexpr const char* h264 = " -c:v libx264 -preset ultrafast -crf 18 ";

/// The number in a picture of a numbered film, of any size, upright.
inline int numberIn(const Frame& frame) {
  const auto picture = materialize(frame);
  const PixelView view = picture->view();
  int number = 0;
  for (int bit = 0; bit < 8; ++bit) {
    const int x = (2 * bit + 1) * view.size.width / 16;
    const std::uint8_t* pixel = view.row(view.size.height / 2) + static_cast<std::ptrdiff_t>(x) * 4;
    if (pixel[1] > 127) number |= 1 << bit;
  }
  return number;
}

}  // namespace lenslark::Clips
