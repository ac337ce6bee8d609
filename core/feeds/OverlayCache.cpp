#include "feeds/OverlayCache.h"

#include <utility>

#include "base/Log.h"
#include "media/ImageLoader.h"

namespace lenslark {
namespace {

/// An overlay is never larger than a frame.
constexpr int maxPixelSize = 2048;

OverlayCache::Picture decode(const std::filesystem::path& file) {
  try {
    if (auto picture = ImageLoader::load(file, maxPixelSize)) return picture;
    Log::router().error("overlay {} cannot be shown: not an image", file.string());
  } catch (const std::exception& error) {
    Log::router().error("overlay {} cannot be shown: {}", file.string(), error.what());
  }
  return nullptr;
}

}  // namespace

OverlayCache::OverlayCache(std::shared_ptr<SerialQueue> queue)
    : queue_(std::move(queue)), state_(std::make_shared<State>()) {}

OverlayCache::~OverlayCache() = default;

void OverlayCache::onLoaded(std::function<void()> handler) {
  state_->onLoaded = std::move(handler);
}

OverlayCache::Picture OverlayCache::picture(const std::filesystem::path& file) {
  return entry(file).picture;
}

bool OverlayCache::isLoading(const std::filesystem::path& file) { return entry(file).loading; }

const OverlayCache::Entry& OverlayCache::entry(const std::filesystem::path& file) {
  const auto [known, fresh] = state_->entries.try_emplace(file);
  if (fresh) load(file);
  return known->second;
}

void OverlayCache::load(const std::filesystem::path& file) {
  runInBackground([queue = queue_, weak = std::weak_ptr(state_), file] {
    queue->post([weak, file, picture = decode(file)] {
      const auto state = weak.lock();
      if (!state) return;
      const auto entry = state->entries.find(file);
      if (entry == state->entries.end() || !entry->second.loading) return;
      entry->second = {picture, false};
      if (state->onLoaded) state->onLoaded();
    });
  });
}

void OverlayCache::keepOnly(const std::set<std::filesystem::path>& files) {
  std::erase_if(state_->entries, [&](const auto& entry) { return !files.contains(entry.first); });
}

void OverlayCache::forgetFailures() {
  std::erase_if(state_->entries,
                [](const auto& entry) { return !entry.second.loading && !entry.second.picture; });
}

}  // namespace lenslark
