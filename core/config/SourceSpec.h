#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace lenslark {

/// What a camera shows. Pictures and films are named by their id in the media library.
struct SourceSpec {
  /// The part of the desktop that lies under the device's window.
  struct Desktop {
    friend bool operator==(const Desktop&, const Desktop&) = default;
  };
  struct Display {
    std::int64_t index = 0;
    friend bool operator==(const Display&, const Display&) = default;
  };
  /// A window whose title or application name holds `match`.
  struct Window {
    std::string match;
    friend bool operator==(const Window&, const Window&) = default;
  };
  struct Image {
    std::string mediaId;
    friend bool operator==(const Image&, const Image&) = default;
  };
  struct Video {
    std::string mediaId;
    bool loop = true;
    friend bool operator==(const Video&, const Video&) = default;
  };
  struct Slideshow {
    static constexpr double defaultIntervalSec = 3;

    std::vector<std::string> mediaIds;
    double intervalSec = defaultIntervalSec;
    friend bool operator==(const Slideshow&, const Slideshow&) = default;
  };
  struct Pattern {
    friend bool operator==(const Pattern&, const Pattern&) = default;
  };

  std::variant<Desktop, Display, Window, Image, Video, Slideshow, Pattern> value;

  /// "desktop", "display", "window", "image", "video", "slideshow" or "pattern".
  std::string_view kindName() const noexcept;
  std::vector<std::string> mediaIDs() const;
  /// Whether it needs a screen that can be filmed.
  bool capturesScreen() const noexcept;

  template <typename Case>
  bool is() const noexcept {
    return std::holds_alternative<Case>(value);
  }

  friend bool operator==(const SourceSpec&, const SourceSpec&) = default;
};

}  // namespace lenslark
