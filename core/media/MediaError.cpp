#include "media/MediaError.h"

#include <fmt/core.h>

#include "base/Text.h"

namespace lenslark {
namespace {

// A path or name as the user gave it may hold any bytes.
std::string shown(const std::string& text) { return Text::repairUtf8(text); }

/// A file that cannot be meant is a mistake in the arguments; the others are general failures.
int exitStatus(MediaError::Kind kind) {
  constexpr int usageError = 2;
  const bool usage = kind == MediaError::Kind::notAFile || kind == MediaError::Kind::tooLarge;
  return usage ? usageError : Error::generalFailure;
}

}  // namespace

MediaError::MediaError(Kind kind, const std::string& message, std::string_view code)
    : Error(message, code, lenslark::exitStatus(kind)), kind_(kind) {}

MediaError MediaError::notAFile(const std::string& path) {
  return {Kind::notAFile, fmt::format("{} is not a readable file", shown(path)), "bad_args"};
}

MediaError MediaError::tooLarge(const std::string& path) {
  return {Kind::tooLarge, fmt::format("{} is larger than 2 GB", shown(path)), "bad_args"};
}

MediaError MediaError::unsupported(const std::string& fileName) {
  return {Kind::unsupported,
          fmt::format("{} is not an image or video Lenslark can show", shown(fileName)),
          "unsupported_media"};
}

MediaError MediaError::notFound(const std::string& query) {
  return {Kind::notFound, fmt::format("No media matches \"{}\"", shown(query)), "media_not_found"};
}

}  // namespace lenslark
