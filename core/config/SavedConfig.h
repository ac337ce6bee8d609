#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "config/ConfigFile.h"

namespace lenslark {

/// Tells one state of a file from another without reading it.
struct FileStamp {
  /// Nothing when there is no such file, or the way to it is closed.
  static std::optional<FileStamp> of(const std::filesystem::path& file) noexcept;
  static std::optional<FileStamp> of(int descriptor) noexcept;

  /// Longer than the steps in which file times move, and than an editor takes to write a file.
  static constexpr std::chrono::milliseconds settlingTime{100};

  /// Whether a later change is sure to give another stamp: a file that changed just now may change
  /// again within the same step.
  bool settled() const noexcept;

  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;  ///< Nanoseconds since 1970, as `changed`.
  std::int64_t changed = 0;   ///< Also moves when permissions do, and cannot be set back.

  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// What one reading of `config.json` found.
struct SavedConfig {
  enum class Condition {
    missing,     ///< There is no file.
    good,        ///< `config` is its value.
    broken,      ///< It does not decode.
    unreadable,  ///< It is not to be replaced: `problem` says why.
  };

  /// Larger files are taken for something else.
  static constexpr std::size_t maxSize = std::size_t{16} << 20U;

  /// Never waits, whatever lies under the name, and never fails.
  static SavedConfig read(const std::filesystem::path& file);

  /// Whether an editor may be at work: some empty the file or move it away before they write it.
  bool mayBeHalfWritten() const noexcept {
    return !settled && (condition == Condition::broken || condition == Condition::missing);
  }

  /// Keeps a broken file aside; becomes unreadable where that fails.
  void keepAside(const std::filesystem::path& file);

  Condition condition = Condition::missing;
  ConfigFile config;      ///< Only when the condition is `good`.
  std::string content;    ///< Only when the condition is `broken`.
  std::string problem;    ///< Only when the condition is `broken` or `unreadable`.
  bool shortage = false;  ///< Whether the system lacks something, which says nothing of the file.
  std::optional<FileStamp> stamp;  ///< As it was just before the reading.
  bool settled = true;             ///< Whether the stamp tells every later change.
};

}  // namespace lenslark
