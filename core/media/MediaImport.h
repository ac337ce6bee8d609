#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "media/MediaLibrary.h"

/// The steps of an import that touch no index.
namespace lenslark::MediaImport {

/// The file that is imported, opened once: whatever happens to its path later is no matter.
struct Original {
  std::filesystem::path path;  ///< With links resolved.
  FileDescriptor file;
  std::uint64_t size = 0;
  MediaItem::Kind kind = MediaItem::Kind::image;

  /// As it is shown to people.
  std::string name() const;
};

/// **Fails** with MediaError when it cannot be read, is too large or has no known extension.
Original open(const std::filesystem::path& path);

/// Whether a directory may hold the same content already. For something large that is only so when
/// a file there has its size; something small is hashed sooner than looked for.
bool mayBeIn(const std::filesystem::path& directory, const Original& original);

/// The SHA-256 of the content, in lower-case hexadecimal digits. **Fails** with std::system_error.
std::string sha256(const Original& original, const MediaLibrary::ProgressHandler& progress);

/// A copy under a temporary name, which is removed unless it is renamed. Should the process die,
/// a later copy into the same directory takes it away.
class Copy {
 public:
  /// Copies and hashes in one pass, so that the digest belongs to the copy even when somebody
  /// writes to the original meanwhile. Flushed to the disk. **Fails** with std::system_error.
  Copy(const Original& original, const std::filesystem::path& directory,
       const MediaLibrary::ProgressHandler& progress);
  ~Copy();
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }
  const std::string& digest() const noexcept { return digest_; }

  void renameTo(const std::filesystem::path& target);

 private:
  std::filesystem::path path_;
  FileDescriptor file_;  ///< Locked: a copy that nobody holds is one that nobody makes any more.
  std::string digest_;
};

/// What was found out about a file by decoding it.
struct Measured {
  int width = 0;
  int height = 0;
  std::optional<double> duration;
  std::vector<std::byte> thumbnail;  ///< JPEG, 256 pixels on its longer side.
};

/// **Fails** with MediaError when the file cannot be shown; `name` is the one it is known by.
Measured measure(const std::filesystem::path& file, MediaItem::Kind kind, const std::string& name);

}  // namespace lenslark::MediaImport
