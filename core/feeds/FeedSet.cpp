#include "feeds/FeedSet.h"

#include <unistd.h>

#include <algorithm>

#include "base/Log.h"

namespace lenslark {
namespace {

bool isReady(const std::future<void>& result) {
  return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

}  // namespace

FeedSet::FeedSet(std::shared_ptr<SerialQueue> queue, Hooks hooks)
    : hooks_(std::move(hooks)), overlays_(std::move(queue)) {}

FeedSet::~FeedSet() { close(); }

void FeedSet::apply(const std::vector<WantedFeed>& wanted) {
  for (const auto& feed : wanted) show(feed);
  removeUnwanted(wanted);
  stopIdleHubs();
}

void FeedSet::show(const WantedFeed& wanted) {
  const bool ready = !wanted.overlayFile || !overlays_.isLoading(*wanted.overlayFile);
  const auto known = feeds_.find(wanted.path);
  if (known == feeds_.end()) {
    auto output = open(wanted);
    if (!output) return;
    auto& feed = feeds_[wanted.path] = {wanted, std::move(output), nullptr};
    style(feed, wanted, true);
    seed(feed);
    runningFor(wanted.source);  // what both need time for, they do at the same time
    if (ready) attach(feed);
    beat();
    return;
  }
  if (!ready) return;
  auto& feed = known->second;
  style(feed, wanted, false);
  const bool sameSource = feed.wanted.source.key == wanted.source.key;
  if (!sameSource) detach(feed);
  feed.wanted = wanted;
  if (!sameSource || !feed.attached) attach(feed);
}

std::shared_ptr<FeedOutput> FeedSet::open(const WantedFeed& wanted) {
  try {
    auto output = std::make_shared<FeedOutput>(wanted.path, wanted.camera, WantedFeed::maxSide);
    openErrors_.erase(wanted.path);
    return output;
  } catch (const std::exception& error) {
    auto& known = openErrors_[wanted.path];
    if (known != error.what()) Log::router().error("cannot open {}: {}", wanted.path, error.what());
    known = error.what();
    return nullptr;
  }
}

void FeedSet::style(Feed& feed, const WantedFeed& wanted, bool fresh) {
  auto overlay = wanted.overlayFile ? overlays_.picture(*wanted.overlayFile) : nullptr;
  if (fresh || feed.wanted.sceneMode != wanted.sceneMode)
    feed.output->setSceneMode(wanted.sceneMode);
  if (fresh || feed.wanted.style != wanted.style || feed.overlay != overlay)
    feed.output->update(wanted.style, overlay);
  if (wanted.overlayFile && (fresh || feed.wanted.overlayFile != wanted.overlayFile))
    hooks_.onShow({wanted.style.overlay->media});
  feed.overlay = std::move(overlay);
}

void FeedSet::seed(Feed& feed) {
  const auto source = running_.find(feed.wanted.source.key);
  if (source != running_.end() && source->second.hub->latest()) return;
  const Feed* before = nullptr;
  for (const auto& [path, other] : feeds_) {
    if (!feed.wanted.device || other.wanted.device != feed.wanted.device || &other == &feed)
      continue;
    if (!before || other.wanted.camera < before->wanted.camera) before = &other;
  }
  if (!before) return;
  auto& hub = *running_.at(before->wanted.source.key).hub;
  if (const auto picture = hub.latest()) feed.output->deliver(picture, hub.source().kind());
}

FeedSet::Running& FeedSet::runningFor(const SourceRequest& request) {
  const auto known = running_.find(request.key);
  if (known != running_.end()) return known->second;
  auto& running = running_.emplace(request.key, run(request)).first->second;
  if (!request.mediaIDs.empty()) hooks_.onShow(request.mediaIDs);
  return running;
}

void FeedSet::attach(Feed& feed) {
  runningFor(feed.wanted.source).hub->add(feed.output);
  feed.attached = true;
}

FeedSet::Running FeedSet::run(const SourceRequest& request, std::optional<std::string> knownError) {
  auto source = hooks_.makeSource(request.source);
  auto* const follower = dynamic_cast<WindowFollowingSource*>(source.get());
  Running running{request, std::make_shared<SourceHub>(request.key, std::move(source)), follower};
  running.hub->start(std::move(knownError));
  return running;
}

void FeedSet::detach(const Feed& feed) {
  const auto running = running_.find(feed.wanted.source.key);
  if (running != running_.end()) running->second.hub->remove(*feed.output);
}

void FeedSet::removeUnwanted(const std::vector<WantedFeed>& wanted) {
  std::set<std::string> paths;
  std::set<std::filesystem::path> overlays;
  for (const auto& feed : wanted) {
    paths.insert(feed.path);
    if (feed.overlayFile) overlays.insert(*feed.overlayFile);
  }
  std::erase_if(feeds_, [&](const auto& entry) {
    if (paths.contains(entry.first)) return false;
    retire(entry.second);
    beat();
    return true;
  });
  std::erase_if(openErrors_, [&](const auto& entry) { return !paths.contains(entry.first); });
  overlays_.keepOnly(overlays);
}

void FeedSet::retire(const Feed& feed) {
  detach(feed);
  // What somebody else put there or took over since is not ours to remove.
  if (feed.output->stillInPlace() && !feed.output->isTakenOver())
    ::unlink(feed.wanted.path.c_str());
}

void FeedSet::stopIdleHubs() {
  std::set<std::string> used;
  for (const auto& [path, feed] : feeds_) used.insert(feed.wanted.source.key);
  std::erase_if(running_, [&](const auto& entry) {
    if (used.contains(entry.first)) return false;
    stop(entry.second);
    return true;
  });
}

void FeedSet::stop(const Running& running) {
  std::erase_if(stopping_, isReady);
  stopping_.push_back(running.hub->stop());
}

void FeedSet::beat() noexcept {
  for (const auto& [path, feed] : feeds_) feed.output->heartbeat();
}

bool FeedSet::heartbeat() {
  std::vector<std::string> lost;
  for (auto& [path, feed] : feeds_) {
    const bool kept = feed.output->stillInPlace() && !feed.output->isVacant();
    if (!kept && !reopen(feed)) {
      lost.push_back(path);
      continue;
    }
    feed.output->heartbeat();
    noteTakeover(feed);
  }
  for (const auto& path : lost) feeds_.erase(path);
  if (!lost.empty()) stopIdleHubs();
  return !lost.empty();
}

bool FeedSet::reopen(Feed& feed) {
  detach(feed);
  feed.output.reset();  // first: closing it marks the file as abandoned, and it may be the same one
  feed.output = open(feed.wanted);
  if (!feed.output) return false;
  style(feed, feed.wanted, true);
  if (feed.attached) attach(feed);
  return true;
}

void FeedSet::noteTakeover(Feed& feed) {
  const bool takenOver = feed.output->isTakenOver();
  if (takenOver && !feed.takenOver)
    Log::router().error("{} is written by another process now", feed.wanted.path);
  feed.takenOver = takenOver;
}

void FeedSet::retryCaptures() {
  for (auto& [key, running] : running_) {
    auto error = running.hub->error();
    if (!error || !running.request.source.capturesScreen()) continue;
    auto fresh = run(running.request, std::move(error));
    for (const auto& [path, feed] : feeds_) {
      if (feed.wanted.source.key != key || !feed.attached) continue;
      running.hub->remove(*feed.output);
      fresh.hub->add(feed.output);
    }
    stop(running);
    running = std::move(fresh);
  }
}

std::set<std::string> FeedSet::openPaths() const {
  std::set<std::string> paths;
  for (const auto& [path, feed] : feeds_) paths.insert(path);
  return paths;
}

std::vector<FeedSet::Follower> FeedSet::followers() const {
  std::vector<Follower> followers;
  for (const auto& [key, running] : running_)
    if (running.follower) followers.push_back({running.hub, running.follower});
  return followers;
}

std::set<std::string> FeedSet::shownMedia() const {
  std::set<std::string> ids;
  for (const auto& [key, running] : running_)
    ids.insert(running.request.mediaIDs.begin(), running.request.mediaIDs.end());
  for (const auto& [path, feed] : feeds_)
    if (feed.wanted.overlayFile) ids.insert(feed.wanted.style.overlay->media);
  return ids;
}

std::uint64_t FeedSet::framesCaptured() const {
  std::uint64_t frames = 0;
  for (const auto& [key, running] : running_) frames += running.hub->frames();
  return frames;
}

std::vector<std::string> FeedSet::sourceErrors() const {
  std::vector<std::string> errors;
  for (const auto& [key, running] : running_)
    if (auto error = running.hub->error()) errors.push_back(std::move(*error));
  return errors;
}

std::vector<std::future<void>> FeedSet::close() {
  for (const auto& [path, feed] : feeds_) detach(feed);
  feeds_.clear();
  stopIdleHubs();
  return std::exchange(stopping_, {});
}

}  // namespace lenslark
