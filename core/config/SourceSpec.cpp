#include "config/SourceSpec.h"

#include <array>

namespace lenslark {

std::string_view SourceSpec::kindName() const noexcept {
  static constexpr std::array<std::string_view, std::variant_size_v<decltype(value)>> names{
      "desktop", "display", "window", "image", "video", "slideshow", "pattern"};
  return names[value.index()];
}

std::vector<std::string> SourceSpec::mediaIDs() const {
  if (const auto* image = std::get_if<Image>(&value)) return {image->mediaId};
  if (const auto* video = std::get_if<Video>(&value)) return {video->mediaId};
  if (const auto* slideshow = std::get_if<Slideshow>(&value)) return slideshow->mediaIds;
  return {};
}

bool SourceSpec::capturesScreen() const noexcept {
  return is<Desktop>() || is<Display>() || is<Window>();
}

}  // namespace lenslark
