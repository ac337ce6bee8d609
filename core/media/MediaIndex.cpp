#include "media/MediaIndex.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "base/AtomicFile.h"
#include "base/BrokenFile.h"
#include "base/FileDescriptor.h"
#include "base/Json.h"
#include "base/PosixError.h"
#include "media/MediaIndexParser.h"

namespace lenslark::MediaIndex {
namespace {

using nlohmann::json;

constexpr std::size_t digestDigits = 64;

bool isDigest(std::string_view text) noexcept {
  return text.size() == digestDigits && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
         });
}

/// The index's text; nothing when there is no index.
std::optional<std::string> readText(const std::filesystem::path& file) {
  constexpr std::size_t largestIndex = 64UL << 20;
  const FileDescriptor open =
      FileDescriptor::tryOpen(file.string(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!open && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  if (!open) throwErrno(file.string());
  return readRegularFile(open, largestIndex, file.string());
}

json encode(const MediaItem& item) {
  json entry{{"id", item.id},
             {"kind", rawValue(item.kind)},
             {"name", item.name},
             {"file", item.file},
             {"width", item.width},
             {"height", item.height},
             {"pinned", item.pinned},
             {"addedAt", Json::formatDate(item.addedAt)},
             {"lastUsedAt", Json::formatDate(item.lastUsedAt)}};
  if (item.duration) entry["duration"] = Json::number(*item.duration);
  return entry;
}

}  // namespace

std::string idOf(std::string_view digest) { return std::string(idPrefix).append(digest); }

std::optional<std::string_view> digestOf(std::string_view id) noexcept {
  if (!id.starts_with(idPrefix)) return std::nullopt;
  id.remove_prefix(idPrefix.size());
  return isDigest(id) ? std::optional(id) : std::nullopt;
}

std::vector<MediaItem> read(const std::filesystem::path& file) {
  auto text = readText(file);
  return text ? parse(*std::move(text)).items : std::vector<MediaItem>();
}

std::optional<std::vector<MediaItem>> readComplete(const std::filesystem::path& file) {
  auto text = readText(file);
  if (!text || BrokenFile::hasCopy(file.string())) return std::nullopt;
  try {
    Parsed index = parse(*std::move(text));
    return index.whole ? std::optional(std::move(index.items)) : std::nullopt;
  } catch (const JsonError&) {
    return std::nullopt;
  }
}

bool isStoredName(std::string_view name) noexcept {
  if (!isDigest(name.substr(0, digestDigits))) return false;
  return name.size() == digestDigits || name[digestDigits] == '.';
}

void rewrite(const std::filesystem::path& file,
             const std::function<void(std::vector<MediaItem>&)>& body) {
  const auto text = readText(file);
  Parsed index;
  try {
    if (text) index = parse(*text);
  } catch (const JsonError&) {
    index.whole = false;
  }
  std::vector<MediaItem>& items = index.items;
  const std::vector<MediaItem> before = items;
  body(items);
  if (items == before) return;
  if (!index.whole) BrokenFile::keepAside(file.string(), *text);
  json list = json::array();
  for (const MediaItem& item : items) list.push_back(encode(item));
  AtomicFile::replace(file.string(), Json::pretty(list) + "\n");
}

}  // namespace lenslark::MediaIndex
