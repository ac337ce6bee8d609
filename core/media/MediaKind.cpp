#include <algorithm>
#include <array>
#include <string_view>

#include "base/Text.h"
#include "media/MediaLibrary.h"

namespace lenslark {
namespace {

constexpr std::array<std::string_view, 21> pictures{
    ".jpg", ".jpeg", ".jpe",  ".jfif",  ".png",  ".gif", ".webp",
    ".tif", ".tiff", ".heic", ".heics", ".heif", ".hif", ".avif",
    ".jxl", ".bmp",  ".dib",  ".svg",   ".svgz", ".pdf", ".apng"};

constexpr std::array<std::string_view, 24> films{
    ".mp4",  ".m4v", ".mov", ".qt",  ".avi", ".mkv",  ".webm", ".mpg",
    ".mpeg", ".mpe", ".m2v", ".ts",  ".mts", ".m2ts", ".3gp",  ".3g2",
    ".wmv",  ".asf", ".flv", ".ogv", ".vob", ".dv",   ".mxf",  ".mjpeg"};

}  // namespace

std::optional<MediaItem::Kind> mediaKind(const std::filesystem::path& path) {
  const std::string extension = Text::lowercase(Text::repairUtf8(path.extension().string()));
  const auto holds = [&extension](const auto& list) {
    return std::find(list.begin(), list.end(), extension) != list.end();
  };
  if (holds(pictures)) return MediaItem::Kind::image;
  if (holds(films)) return MediaItem::Kind::video;
  return std::nullopt;
}

std::string_view rawValue(MediaItem::Kind kind) noexcept {
  return kind == MediaItem::Kind::video ? "video" : "image";
}

}  // namespace lenslark
