#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "config/SourceSpec.h"
#include "devices/ConnectedDevice.h"

namespace lenslark {

/// The stored files behind media ids. An id that is missing is not in the library.
using MediaFiles = std::map<std::string, std::filesystem::path>;

/// All that is needed to make a source.
struct SourceDescription {
  /// Something that cannot be shown, and why.
  struct Unavailable {
    std::string reason;
  };
  /// The desktop under a device's window.
  struct Desktop {
    ConnectedDevice device;  ///< Has a window.
    int fps = 30;
  };
  struct Display {
    std::int64_t index = 0;
    int fps = 30;
  };
  struct Window {
    std::string match;
    int fps = 30;
  };
  struct Image {
    std::filesystem::path file;
  };
  struct Video {
    std::filesystem::path file;
    bool loop = true;
    int fps = 30;
  };
  struct Slideshow {
    std::vector<std::filesystem::path> files;  ///< Empty for a picture that is not in the library.
    double intervalSec = 0;
  };
  struct Pattern {
    int fps = 30;
  };

  std::variant<Unavailable, Desktop, Display, Window, Image, Video, Slideshow, Pattern> value;

  /// Whether it films a screen: what it needs may come later, a window for one.
  bool capturesScreen() const noexcept;
};

/// A source that somebody wants. Equal keys are served by one running source.
struct SourceRequest {
  std::string key;
  SourceDescription source;
  std::set<std::string> mediaIDs;  ///< What of the library it shows.
};

/// The source for a setting, pure. Nothing where there can be none: a slideshow without pictures,
/// and the desktop without a device (`device` may be null) whose window is known. `unread` tells
/// why the library could not be looked into; then what is not among the files may be there all the
/// same.
std::optional<SourceRequest> sourceRequest(const SourceSpec& spec, const ConnectedDevice* device,
                                           int fps, const MediaFiles& files,
                                           const std::string& unread = {});

}  // namespace lenslark
