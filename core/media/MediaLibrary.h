#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/Clock.h"

namespace lenslark {

namespace MediaImport {
class Copy;
struct Measured;
}  // namespace MediaImport

/// One entry of the library.
struct MediaItem {
  enum class Kind { image, video };

  std::string id;  ///< "sha256:" and the 64 lower-case hexadecimal digits of the content's SHA-256.
  Kind kind = Kind::image;
  std::string name;  ///< Of the imported file.
  std::string file;  ///< Of the stored file, inside "items".
  int width = 0;
  int height = 0;
  std::optional<double> duration;  ///< Seconds; films only.
  bool pinned = false;             ///< Never collected.
  Date addedAt;
  Date lastUsedAt;

  friend bool operator==(const MediaItem&, const MediaItem&) = default;
};

/// "image" or "video".
std::string_view rawValue(MediaItem::Kind kind) noexcept;

/// Imported pictures and films, copied and known by the hash of their content.
///
/// **Threads**: any; processes too. Every change of the index holds a lock file; the index is read
/// afresh for each query and replaced atomically.
class MediaLibrary {
 public:
  /// How far an import has come. Called on the importing thread.
  struct Progress {
    std::uint64_t bytesDone = 0;
    std::uint64_t bytesTotal = 0;
    enum class Step { hashing, copying } step = Step::hashing;
  };
  using ProgressHandler = std::function<void(const Progress&)>;

  explicit MediaLibrary(std::filesystem::path directory);

  /// The library in the support directory.
  static MediaLibrary& shared();

  const std::filesystem::path& directory() const noexcept { return directory_; }

  /// Copies a file into the library unless its content is there already, and returns its entry.
  /// An import never clears a pin. **Fails** with MediaError, or std::system_error when the library
  /// cannot be written; nothing is left behind then.
  MediaItem importItem(const std::filesystem::path& path, bool pin,
                       const ProgressHandler& progress = {});

  /// In the index's order; none when the index is not there, not for us or no index. **Fails** with
  /// std::system_error when the system lacks what reading it takes, as do `item` and `find`.
  std::vector<MediaItem> items() const;
  std::optional<MediaItem> item(std::string_view id) const;

  /// By id, by digest prefix of at least 6 digits that only one item has, or by exact name.
  /// **Fails** with MediaError.
  MediaItem find(std::string_view query) const;

  std::filesystem::path url(const MediaItem& item) const;
  std::filesystem::path thumbnailURL(std::string_view id) const;

  /// What no item has is left alone by these three.
  void setPinned(std::string_view id, bool pinned);
  void touch(const std::set<std::string>& ids, Date now);
  /// Also deletes the stored file and the thumbnail.
  void remove(std::string_view id);

  /// Removes what is neither pinned nor referenced and was last used more than 30 days before
  /// `now`, and what imports that died left. Returns one line of text for each removed item.
  std::vector<std::string> collectGarbage(const std::set<std::string>& referenced, Date now);

 private:
  std::optional<MediaItem> reuse(std::string_view id, bool pin);
  MediaItem add(MediaItem item, MediaImport::Copy& copy, const MediaImport::Measured& measured);
  std::vector<MediaItem> removeIf(const std::function<bool(const MediaItem&)>& unwanted);
  void mutateIndex(const std::function<void(std::vector<MediaItem>&)>& body);

  std::filesystem::path directory_;
};

/// Whether a file name's extension says picture or film; nothing for everything else.
std::optional<MediaItem::Kind> mediaKind(const std::filesystem::path& path);

}  // namespace lenslark
