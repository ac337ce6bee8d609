#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace lenslark {

/// What a screen capture films.
struct CaptureSource {
  struct Display {
    std::int64_t index = 0;
  };
  /// The first normal window whose title holds the text, or else whose application's name does, in
  /// any letter case.
  struct Window {
    std::string match;
  };

  std::variant<Display, Window> value = Display{};
};

/// How it is filmed: fitted into pictures of this size, on black.
struct CaptureOptions {
  CaptureSource source;
  int width = 1280;
  int height = 720;
  int fps = 30;
  bool showsCursor = true;
};

}  // namespace lenslark
