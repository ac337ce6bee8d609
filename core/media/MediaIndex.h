#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "media/MediaLibrary.h"

/// The library's list of items on disk.
namespace lenslark::MediaIndex {

/// What an id begins with; the digest follows.
inline constexpr std::string_view idPrefix = "sha256:";

std::string idOf(std::string_view digest);
/// The 64 digits of a well-formed id; nothing for anything else.
std::optional<std::string_view> digestOf(std::string_view id) noexcept;

/// The items of an index file. Nothing when there is no file. An entry that is malformed, or whose
/// stored file would lie outside the library, is left out.
/// **Fails** with std::system_error or Error when the file cannot be read, JsonError when it is no
/// list.
std::vector<MediaItem> read(const std::filesystem::path& file);

/// The items, when it is sure that there are no others: nothing when there is no index, when it
/// holds what cannot be understood, or when one that did was kept aside. **Fails** as `read`.
std::optional<std::vector<MediaItem>> readComplete(const std::filesystem::path& file);

/// Whether a name is one that an import gives a stored file or its thumbnail.
bool isStoredName(std::string_view name) noexcept;

/// Reads the index, lets `body` change it, and replaces it when it did. What could not be
/// understood is kept aside before it is replaced. The caller holds the index's lock.
/// **Fails** with std::system_error, or Error when there is something else in the index's place;
/// the index is then as it was.
void rewrite(const std::filesystem::path& file,
             const std::function<void(std::vector<MediaItem>&)>& body);

}  // namespace lenslark::MediaIndex
