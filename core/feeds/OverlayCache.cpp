#include "feeds/OverlayCache.h"

#include <utility>

#include "base/Log.h"
#include "media/ImageLoader.h"

namespace lenslark {
namespace {

/// An overlay is never larger than a frame.
constexpr int maxPixelSize = 2048;

}  // namespace

OverlayCache::Decoded OverlayCache::decode(const std::filesystem::path& file) {
  try {
    if (auto picture = ImageLoader::load(file, maxPixelSize)) return {std::move(picture), {}};
    return {nullptr, "not an image"};
  } catch (const std::exception& error) {
    return {nullptr, error.what()};
  }
}

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
    queue->post([weak, file, decoded = decode(file)] {
      if (const auto state = weak.lock()) state->take(file, decoded);
    });
  });
}

void OverlayCache::State::take(const std::filesystem::path& file, const Decoded& decoded) {
  const auto found = entries.find(file);
  if (found == entries.end()) return;
  Entry& entry = found->second;
  if (!entry.loading && !entry.retrying) return;
  const bool awaited = std::exchange(entry.loading, false);
  entry.retrying = false;
  entry.picture = decoded.picture;
  if (!decoded.picture && decoded.error != entry.error)
    Log::router().error("overlay {} cannot be shown: {}", file.string(), decoded.error);
  entry.error = decoded.error;
  if ((awaited || decoded.picture) && onLoaded) onLoaded();
}

void OverlayCache::keepOnly(const std::set<std::filesystem::path>& files) {
  std::erase_if(state_->entries, [&](const auto& entry) { return !files.contains(entry.first); });
}

void OverlayCache::retryFailures() {
  for (auto& [file, entry] : state_->entries) {
    if (entry.loading || entry.retrying || entry.picture || !entry.pace.isDue()) continue;
    entry.retrying = true;
    load(file);
  }
}

void OverlayCache::forgetFailures() {
  std::erase_if(state_->entries,
                [](const auto& entry) { return !entry.second.loading && !entry.second.picture; });
}

}  // namespace lenslark
