#include "media/MediaLibrary.h"

#include <fmt/core.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>

#include "base/AtomicFile.h"
#include "base/Directory.h"
#include "base/Error.h"
#include "base/FileLock.h"
#include "base/Json.h"
#include "base/Text.h"
#include "base/WholeFile.h"
#include "config/Lenslark.h"
#include "media/MediaError.h"
#include "media/MediaImport.h"
#include "media/MediaIndex.h"

namespace lenslark {
namespace {

namespace fs = std::filesystem;

constexpr const char* indexName = "index.json";
constexpr const char* lockName = "index.lock";
constexpr const char* itemsName = "items";
constexpr const char* thumbsName = "thumbs";

/// The item of this id, or null.
MediaItem* findItem(std::vector<MediaItem>& items, std::string_view id) {
  const auto found = std::find_if(items.begin(), items.end(),
                                  [id](const MediaItem& item) { return item.id == id; });
  return found == items.end() ? nullptr : &*found;
}

std::string_view digest(const MediaItem& item) {
  return MediaIndex::digestOf(item.id).value_or("");
}

/// What an import of known content changes.
void useAgain(MediaItem& item, bool pin, Date now) {
  item.lastUsedAt = now;
  item.pinned = item.pinned || pin;
}

/// Deletes files that were put in place, unless all went well.
class Rollback {
 public:
  Rollback() = default;
  Rollback(const Rollback&) = delete;
  Rollback& operator=(const Rollback&) = delete;
  ~Rollback() {
    std::error_code ignored;
    for (const fs::path& file : files_) fs::remove(file, ignored);
  }
  void willCreate(const fs::path& file) {
    std::error_code ignored;
    if (!fs::exists(file, ignored)) files_.push_back(file);
  }
  void forget() { files_.clear(); }

 private:
  std::vector<fs::path> files_;
};

bool isStored(const fs::path& file, std::uint64_t size) {
  std::error_code ignored;
  return fs::is_regular_file(file, ignored) && fs::file_size(file, ignored) == size;
}

/// Deletes the files of imports that died before their index entry, unless the index may have lost
/// entries: then nothing tells which those are.
void removeUnlisted(const fs::path& directory) {
  std::error_code ignored;
  if (!fs::exists(directory / indexName, ignored)) return;
  const FileLock lock(directory / lockName);
  const auto listed = MediaIndex::readComplete(directory / indexName);
  if (!listed) return;
  std::set<std::string> names;
  for (const MediaItem& item : *listed) {
    names.insert(item.file);
    names.insert(std::string(digest(item)) + ".jpg");
  }
  for (const char* folder : {itemsName, thumbsName}) {
    for (auto entry = fs::directory_iterator(directory / folder, ignored);
         entry != fs::directory_iterator(); entry.increment(ignored)) {
      const std::string name = entry->path().filename().string();
      if (!names.contains(name) && MediaIndex::isStoredName(name))
        fs::remove(entry->path(), ignored);
    }
  }
}

}  // namespace

MediaLibrary::MediaLibrary(fs::path directory) : directory_(std::move(directory)) {}

MediaLibrary& MediaLibrary::shared() {
  // Never destroyed: work in the background may still need it while the process ends.
  static auto& library = *new MediaLibrary(Lenslark::supportDirectory() / "Media");
  return library;
}

MediaItem MediaLibrary::importItem(const fs::path& path, bool pin,
                                   const ProgressHandler& progress) {
  const MediaImport::Original original = MediaImport::open(path);
  // What cannot be there yet is hashed while it is copied, instead of being read twice.
  if (MediaImport::mayBeIn(directory_ / itemsName, original)) {
    const std::string id = MediaIndex::idOf(MediaImport::sha256(original, progress));
    if (auto known = reuse(id, pin)) return *known;
  }

  createDirectories(directory_ / itemsName);
  createDirectories(directory_ / thumbsName);
  MediaImport::Copy copy(original, directory_ / itemsName, progress);
  const auto measured = MediaImport::measure(copy.path(), original.kind, original.name());
  // The last moment to call the import off: decoding may have taken its time.
  if (progress) {
    progress({original.size, original.size, Progress::Step::copying});
  }

  MediaItem item;
  item.id = MediaIndex::idOf(copy.digest());
  item.kind = original.kind;
  item.name = original.name();
  item.file = copy.digest() + Text::lowercase(original.path.extension().string());
  item.width = measured.width;
  item.height = measured.height;
  item.duration = measured.duration;
  item.pinned = pin;
  item.addedAt = item.lastUsedAt = Clock::now();
  return add(item, copy, measured);
}

std::optional<MediaItem> MediaLibrary::reuse(std::string_view id, bool pin) {
  std::optional<MediaItem> reused;
  mutateIndex([&](std::vector<MediaItem>& items) {
    MediaItem* known = findItem(items, id);
    std::error_code ignored;
    // An item whose stored file was lost is imported afresh.
    if (known == nullptr || !fs::is_regular_file(url(*known), ignored)) return;
    useAgain(*known, pin, Clock::now());
    reused = *known;
  });
  return reused;
}

MediaItem MediaLibrary::add(MediaItem item, MediaImport::Copy& copy,
                            const MediaImport::Measured& measured) {
  // Files and index change under one lock, so that nobody collects what is being added.
  const FileLock lock(directory_ / lockName);
  AtomicFile::removeAbandoned(directory_, indexName);
  AtomicFile::removeAbandoned(directory_ / thumbsName, "");
  Rollback rollback;
  MediaIndex::rewrite(directory_ / indexName, [&](std::vector<MediaItem>& items) {
    // Another process may have brought the same content in meanwhile.
    MediaItem* known = findItem(items, item.id);
    const fs::path stored = url(known != nullptr ? *known : item);
    const fs::path thumbnail = thumbnailURL(item.id);
    if (!isStored(stored, fs::file_size(copy.path()))) {
      rollback.willCreate(stored);
      copy.renameTo(stored);
      AtomicFile::flushDirectory(directory_ / itemsName);  // before the index names it
    }
    rollback.willCreate(thumbnail);
    AtomicFile::replace(
        thumbnail.string(),
        {reinterpret_cast<const char*>(measured.thumbnail.data()), measured.thumbnail.size()});
    if (known == nullptr) {
      items.push_back(item);
      return;
    }
    useAgain(*known, item.pinned, item.lastUsedAt);
    item = *known;
  });
  rollback.forget();
  return item;
}

std::vector<MediaItem> MediaLibrary::items() const {
  try {
    return MediaIndex::read(directory_ / indexName);
  } catch (const Error&) {
    // What does not decode is kept aside by the next change.
    return {};
  } catch (const std::system_error& error) {
    // That says nothing of what the library holds.
    if (isShortage(error.code().value())) throw;
    return {};
  }
}

std::optional<MediaItem> MediaLibrary::item(std::string_view id) const {
  std::vector<MediaItem> all = items();
  const MediaItem* found = findItem(all, id);
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

MediaItem MediaLibrary::find(std::string_view query) const {
  std::vector<MediaItem> all = items();
  if (const MediaItem* exact = findItem(all, query)) return *exact;
  if (const MediaItem* exact = findItem(all, MediaIndex::idOf(query))) return *exact;
  constexpr std::size_t shortestPrefix = 6;
  const auto hasPrefix = [query](const MediaItem& item) { return digest(item).starts_with(query); };
  if (query.size() >= shortestPrefix && std::count_if(all.begin(), all.end(), hasPrefix) == 1) {
    return *std::find_if(all.begin(), all.end(), hasPrefix);
  }
  const std::string name = Text::repairUtf8(query);
  const auto named = std::find_if(all.begin(), all.end(),
                                  [&name](const MediaItem& item) { return item.name == name; });
  if (named == all.end()) throw MediaError::notFound(std::string(query));
  return *named;
}

fs::path MediaLibrary::url(const MediaItem& item) const {
  // Whatever an item says, its file lies in this directory.
  return directory_ / itemsName / fs::path(item.file).filename();
}

fs::path MediaLibrary::thumbnailURL(std::string_view id) const {
  if (id.starts_with(MediaIndex::idPrefix)) id.remove_prefix(MediaIndex::idPrefix.size());
  return directory_ / thumbsName / (fs::path(id).filename().string() + ".jpg");
}

void MediaLibrary::setPinned(std::string_view id, bool pinned) {
  mutateIndex([&](std::vector<MediaItem>& items) {
    if (MediaItem* known = findItem(items, id)) known->pinned = pinned;
  });
}

void MediaLibrary::touch(const std::set<std::string>& ids, Date now) {
  mutateIndex([&](std::vector<MediaItem>& items) {
    for (MediaItem& item : items) {
      if (ids.contains(item.id)) item.lastUsedAt = now;
    }
  });
}

void MediaLibrary::remove(std::string_view id) {
  removeIf([id](const MediaItem& item) { return item.id == id; });
}

std::vector<std::string> MediaLibrary::collectGarbage(const std::set<std::string>& referenced,
                                                      Date now) {
  constexpr std::chrono::seconds keptFor = std::chrono::days(30);
  const auto removed = removeIf([&](const MediaItem& item) {
    return !item.pinned && !referenced.contains(item.id) && now - item.lastUsedAt > keptFor;
  });
  removeUnlisted(directory_);
  std::vector<std::string> lines;
  for (const MediaItem& item : removed) {
    lines.push_back(fmt::format("{} (last used {})", item.name, Json::formatDate(item.lastUsedAt)));
  }
  return lines;
}

std::vector<MediaItem> MediaLibrary::removeIf(
    const std::function<bool(const MediaItem&)>& unwanted) {
  std::vector<MediaItem> removed;
  std::error_code ignored;
  if (!fs::exists(directory_ / indexName, ignored)) return removed;
  const FileLock lock(directory_ / lockName);
  MediaIndex::rewrite(directory_ / indexName, [&](std::vector<MediaItem>& items) {
    std::copy_if(items.begin(), items.end(), std::back_inserter(removed), unwanted);
    std::erase_if(items, unwanted);
  });
  // Only once no index names them any more.
  for (const MediaItem& item : removed) {
    fs::remove(url(item), ignored);
    fs::remove(thumbnailURL(item.id), ignored);
  }
  return removed;
}

void MediaLibrary::mutateIndex(const std::function<void(std::vector<MediaItem>&)>& body) {
  std::error_code ignored;
  // Without an index there is nothing to change, and no library to make.
  if (!fs::exists(directory_ / indexName, ignored)) return;
  const FileLock lock(directory_ / lockName);
  MediaIndex::rewrite(directory_ / indexName, body);
}

}  // namespace lenslark
