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

namespace lenslark::MediaIndex {
namespace {

using nlohmann::json;

constexpr std::string_view idPrefix = "sha256:";

/// The index's text; nothing when there is no index.
std::optional<std::string> readText(const std::filesystem::path& file) {
  constexpr std::size_t largestIndex = 64UL << 20;
  const FileDescriptor open =
      FileDescriptor::tryOpen(file.string(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  if (!open && (errno == ENOENT || errno == ENOTDIR)) return std::nullopt;
  if (!open) throwErrno(file.string());
  return readRegularFile(open, largestIndex, file.string());
}

/// Whether the name is the digest with an extension: then it cannot lead out of its directory.
bool isStoredName(std::string_view name, std::string_view digest) {
  constexpr std::size_t longestName = 255;
  if (!name.starts_with(digest) || name.size() > longestName) return false;
  name.remove_prefix(digest.size());
  return name.empty() ||
         (name.front() == '.' && name.find('/') == name.npos && name.find('\0') == name.npos);
}

MediaItem::Kind decodeKind(const std::string& text) {
  for (const auto kind : {MediaItem::Kind::image, MediaItem::Kind::video}) {
    if (text == rawValue(kind)) return kind;
  }
  throw JsonError("\"kind\" is neither image nor video");
}

MediaItem decode(const json& entry) {
  MediaItem item;
  item.id = Json::expectString(entry, "id");
  item.kind = decodeKind(Json::expectString(entry, "kind"));
  item.name = Json::expectString(entry, "name");
  item.file = Json::expectString(entry, "file");
  item.width = Json::expectInt(entry, "width");
  item.height = Json::expectInt(entry, "height");
  if (Json::find(entry, "duration") != nullptr) {
    item.duration = Json::expectDouble(entry, "duration");
  }
  item.pinned = Json::expectBool(entry, "pinned");
  item.addedAt = Json::expectDate(entry, "addedAt");
  item.lastUsedAt = Json::expectDate(entry, "lastUsedAt");
  const auto digest = digestOf(item.id);
  if (!digest) throw JsonError("\"id\" is no digest");
  if (!isStoredName(item.file, *digest)) throw JsonError("\"file\" is not named by its digest");
  return item;
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

/// The understood entries; `whole` tells whether that is all there is.
std::vector<MediaItem> decodeList(std::string_view text, bool& whole) {
  const json list = Json::parse(text);
  if (!list.is_array()) throw JsonError("the media index is no list");
  std::vector<MediaItem> items;
  whole = true;
  for (const json& entry : list) {
    try {
      items.push_back(decode(entry));
    } catch (const JsonError&) {
      whole = false;
    }
  }
  return items;
}

}  // namespace

std::optional<std::string_view> digestOf(std::string_view id) noexcept {
  constexpr std::size_t digits = 64;
  if (!id.starts_with(idPrefix)) return std::nullopt;
  id.remove_prefix(idPrefix.size());
  const bool hexadecimal = std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
  });
  if (id.size() != digits || !hexadecimal) return std::nullopt;
  return id;
}

std::vector<MediaItem> read(const std::filesystem::path& file) {
  const auto text = readText(file);
  bool whole = true;
  return text ? decodeList(*text, whole) : std::vector<MediaItem>();
}

void rewrite(const std::filesystem::path& file,
             const std::function<void(std::vector<MediaItem>&)>& body) {
  const auto text = readText(file);
  std::vector<MediaItem> items;
  bool whole = true;
  try {
    if (text) items = decodeList(*text, whole);
  } catch (const JsonError&) {
    whole = false;
  }
  const std::vector<MediaItem> before = items;
  body(items);
  if (items == before) return;
  if (!whole) BrokenFile::keepAside(file.string(), *text);
  json list = json::array();
  for (const MediaItem& item : items) list.push_back(encode(item));
  AtomicFile::replace(file.string(), Json::pretty(list) + "\n");
}

}  // namespace lenslark::MediaIndex
