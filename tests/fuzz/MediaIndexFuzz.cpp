// Any bytes as the media library's index: they are read or refused, and the next change replaces
// them by an index that reads back whole, with what could not be read kept aside.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/Clock.h"
#include "base/FileDescriptor.h"
#include "base/Json.h"
#include "media/MediaIndex.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace lenslark;

MediaItem newItem() {
  const std::string digest(64, '7');
  return {.id = "sha256:" + digest,
          .name = "new.png",
          .file = digest + ".png",
          .width = 3,
          .height = 2,
          .duration = {},
          .addedAt = Date(),
          .lastUsedAt = Date()};
}

/// Adds an item, then takes it away again.
void change(const std::filesystem::path& index, std::size_t count) {
  MediaIndex::rewrite(index, [](auto& items) { items.push_back(newItem()); });
  const auto longer = MediaIndex::read(index);
  if (longer.size() != count + 1 || longer.back() != newItem()) std::abort();
  MediaIndex::rewrite(index, [](auto& items) { items.pop_back(); });
  const auto shorter = MediaIndex::read(index);
  if (!std::equal(shorter.begin(), shorter.end(), longer.begin(), longer.end() - 1)) std::abort();
}

bool isKeptAside(const std::filesystem::path& folder, const std::string& bytes) {
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().filename().string().find(".broken-") == std::string::npos) continue;
    if (readFile(entry.path().string()) == bytes) return true;
  }
  return false;
}

}  // namespace

/// Thousands of files a second are for memory, not for a disk.
extern "C" int LLVMFuzzerInitialize(int*, char***) { return ::setenv("TMPDIR", "/dev/shm", 1); }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const TemporaryDirectory folder;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const std::filesystem::path index = folder.write("index.json", bytes);
  std::vector<MediaItem> items;
  bool refused = false;
  try {
    items = MediaIndex::read(index);
  } catch (const JsonError&) {
    refused = true;
  }
  for (const MediaItem& item : items) {
    // Nothing in an index leads out of the library.
    if (item.file.find('/') != std::string::npos || !MediaIndex::digestOf(item.id)) std::abort();
  }
  change(index, items.size());
  if (refused && !isKeptAside(folder.path(), bytes)) std::abort();
  return 0;
}
