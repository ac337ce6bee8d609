#pragma once

#include <chrono>
#include <string>

#include "control/CameraControl.h"

namespace lenslark {

/// Shows how far an import has come, on one line of standard error that is written over again and
/// again. Silent unless standard error is a terminal, and for imports that are over in a moment.
/// **Threads**: one at a time.
class ImportProgressLine {
 public:
  ImportProgressLine();
  ~ImportProgressLine() { clear(); }
  ImportProgressLine(const ImportProgressLine&) = delete;
  ImportProgressLine& operator=(const ImportProgressLine&) = delete;

  /// To be passed to an import; refers to this object.
  CameraControl::ImportProgress handler();
  /// Takes the line away, before something else is printed.
  void clear() noexcept;

  /// "clip.mov: hashing 512.0 MB of 1.0 GB, 620.0 MB/s".
  static std::string line(const std::string& path, const MediaLibrary::Progress& progress,
                          double seconds);

 private:
  using Instant = std::chrono::steady_clock::time_point;

  void show(const std::string& path, const MediaLibrary::Progress& progress);

  const bool terminal_;
  bool shown_ = false;
  std::string path_;
  MediaLibrary::Progress::Step step_ = MediaLibrary::Progress::Step::hashing;
  Instant stepBegan_;
  Instant lastShown_;
};

/// "999 bytes", "1.5 KB", "2.0 GB": decimal units.
std::string humanBytes(std::uint64_t bytes);

}  // namespace lenslark
