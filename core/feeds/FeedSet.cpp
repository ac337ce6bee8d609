#include "feeds/FeedSet.h"

#include <unistd.h>

#include <algorithm>

#include "base/Log.h"

namespace lenslark {
namespace {

bool hasEnded(const std::future<void>& result) {
  return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

/// Tells when the last that has to do with it has let go of it.
struct Settling {
  explicit Settling(std::promise<void> waiting) : promise(std::move(waiting)) {}
  ~Settling() { promise.set_value(); }
  Settling(const Settling&) = delete;
  Settling& operator=(const Settling&) = delete;

  std::promise<void> promise;
};

}  // namespace

FeedSet::FeedSet(std::shared_ptr<SerialQueue> queue, Hooks hooks)
    : queue_(std::move(queue)), hooks_(std::move(hooks)), overlays_(queue_) {}

FeedSet::~FeedSet() { close(); }

void FeedSet::apply(const std::vector<WantedFeed>& wanted) {
  for (const auto& feed : wanted) show(feed);
  removeUnwanted(wanted);
  stopIdleHubs();
}

void FeedSet::show(const WantedFeed& wanted) {
  const bool ready = isReady(wanted);
  const auto [entry, fresh] = feeds_.try_emplace(wanted.path);
  auto& feed = entry->second;
  if (fresh) {
    feed.wanted = wanted;
    feed.lane = laneFor(wanted.path);
    const auto failure = failures_.find(wanted.path);
    if (failure != failures_.end() && failure->second.sourceKey == wanted.source.key)
      feed.room = failure->second.room;
    return open(feed, Stage::opening);
  }
  if (!ready && feed.stage != Stage::opening) return;
  const bool sameSource = feed.wanted.source.key == wanted.source.key;
  feed.wanted = wanted;
  if (feed.stage != Stage::open) return;  // it begins with this when it is
  restyle(feed);
  if (!sameSource || !feed.attached) attach(feed);
}

bool FeedSet::isReady(const WantedFeed& wanted) {
  return !wanted.overlayFile || !overlays_.isLoading(*wanted.overlayFile);
}

void FeedSet::open(Feed& feed, Stage stage) {
  feed.stage = stage;
  feed.attempt = ++attempts_;
  feed.look = lookOf(feed.wanted);
  FeedLane::Opening opening{.camera = feed.wanted.camera,
                            .maxSide = WantedFeed::maxSide,
                            .room = std::max(feed.room, SharedFrameWriter::usualRoom),
                            .look = feed.look};
  if (stage == Stage::opening) seed(feed, opening);
  ++unopened_;
  feed.lane->queue().post([this, lane = feed.lane, attempt = feed.attempt, queue = queue_,
                           owner = hooks_.owner(), opening = std::move(opening),
                           before = std::exchange(feed.output, nullptr)]() mutable {
    before = nullptr;
    queue->post([this, lane, attempt, owner, result = tryOpen(*lane, opening)] {
      if (const auto alive = owner.lock()) opened(lane, attempt, result);
    });
  });
}

FeedSet::Opened FeedSet::tryOpen(FeedLane& lane, const FeedLane::Opening& opening) {
  try {
    return {lane.open(opening), {}};
  } catch (const std::exception& error) {
    return {nullptr, error.what()};
  }
}

void FeedSet::opened(const std::shared_ptr<FeedLane>& lane, std::uint64_t attempt,
                     const Opened& result) {
  --unopened_;
  const auto entry = feeds_.find(lane->path());
  if (entry == feeds_.end() || entry->second.attempt != attempt) {  // not wanted any more
    onLane(lane, [output = result.output](FeedLane&) {});
  } else {
    take(entry, result);
    if (removeLeaving() || !result.output) stopIdleHubs();
    if (onFile_) onFile_();
  }
  if (unopened_ == 0) tellSettled();
}

void FeedSet::take(Feeds::iterator entry, const Opened& result) {
  if (!result.output) {
    noteFailure(entry->second, result.error);
    feeds_.erase(entry);
    return;
  }
  failures_.erase(entry->first);
  entry->second.output = result.output;
  begin(entry->second);
}

void FeedSet::begin(Feed& feed) {
  feed.stage = Stage::open;
  restyle(feed);
  runningFor(feed.wanted.source);  // what both need time for, they do at the same time
  if (feed.attached || isReady(feed.wanted)) attach(feed);
}

void FeedSet::noteFailure(const Feed& feed, const std::string& error) {
  auto& known = failures_[feed.wanted.path];
  // What fails mostly names the path itself.
  const std::string prefix = feed.wanted.path + ": ";
  const std::string_view reason =
      std::string_view(error).substr(error.starts_with(prefix) ? prefix.size() : 0);
  if (known.error != error) Log::router().error("cannot open {}{}", prefix, reason);
  known = {error, feed.wanted.source.key, feed.room};
}

FeedLane::Look FeedSet::lookOf(const WantedFeed& wanted) {
  return {wanted.style, wanted.sceneMode,
          wanted.overlayFile ? overlays_.picture(*wanted.overlayFile) : nullptr};
}

void FeedSet::restyle(Feed& feed) {
  noteOverlay(feed);
  auto look = lookOf(feed.wanted);
  if (look == feed.look) return;
  feed.look = look;
  onLane(feed.lane, [look = std::move(look)](FeedLane& lane) { lane.restyle(look); });
}

void FeedSet::noteOverlay(Feed& feed) {
  std::string shown;
  if (feed.wanted.overlayFile) shown = feed.wanted.style.overlay->media;
  if (!shown.empty() && shown != feed.overlay) hooks_.onShow({shown});
  feed.overlay = std::move(shown);
}

void FeedSet::seed(const Feed& feed, FeedLane::Opening& opening) const {
  const Feed* before = nullptr;
  for (const auto& [path, other] : feeds_) {
    if (!feed.wanted.device || other.wanted.device != feed.wanted.device) continue;
    if (other.stage == Stage::opening) continue;
    if (!before || other.wanted.camera < before->wanted.camera) before = &other;
  }
  if (!before) return;
  for (const auto& key : {feed.wanted.source.key, before->wanted.source.key}) {
    const auto running = running_.find(key);
    if (opening.before || running == running_.end()) continue;
    opening.before = running->second.hub->latest();
    opening.beforeKind = running->second.hub->source().kind();
  }
}

FeedSet::Running& FeedSet::runningFor(const SourceRequest& request) {
  const auto known = running_.find(request.key);
  if (known != running_.end()) return known->second;
  auto& running = running_.emplace(request.key, run(request)).first->second;
  if (!request.mediaIDs.empty()) hooks_.onShow(request.mediaIDs);
  return running;
}

void FeedSet::attach(Feed& feed) {
  feed.attached = true;
  onLane(feed.lane,
         [hub = runningFor(feed.wanted.source).hub](FeedLane& lane) { lane.follow(hub); });
}

FeedSet::Running FeedSet::run(const SourceRequest& request, std::optional<std::string> knownError) {
  auto source = hooks_.makeSource(request.source);
  auto* const follower = dynamic_cast<WindowFollowingSource*>(source.get());
  Running running{
      request, std::make_shared<SourceHub>(request.key, std::move(source)), follower, {}};
  running.hub->start(std::move(knownError));
  return running;
}

void FeedSet::removeUnwanted(const std::vector<WantedFeed>& wanted) {
  std::set<std::string> paths;
  std::set<std::filesystem::path> overlays;
  for (const auto& feed : wanted) {
    paths.insert(feed.path);
    if (feed.overlayFile) overlays.insert(*feed.overlayFile);
  }
  for (auto& [path, feed] : feeds_) {
    feed.leaving = !paths.contains(path);
    anyLeaving_ = anyLeaving_ || feed.leaving;
  }
  removeLeaving();
  std::erase_if(failures_, [&](const auto& entry) { return !paths.contains(entry.first); });
  overlays_.keepOnly(overlays);
}

bool FeedSet::removeLeaving() {
  if (!anyLeaving_) return false;
  anyLeaving_ = false;
  std::set<DeviceKey> changing;  // what takes the place of a file of theirs is not open yet
  for (const auto& [path, feed] : feeds_)
    if (feed.stage == Stage::opening && !feed.leaving && feed.wanted.device)
      changing.insert(*feed.wanted.device);
  bool removed = false;
  for (auto entry = feeds_.begin(); entry != feeds_.end();) {
    Feed& feed = entry->second;
    const bool standsIn = feed.stage != Stage::opening && feed.wanted.device &&
                          changing.contains(*feed.wanted.device);
    anyLeaving_ = anyLeaving_ || (feed.leaving && standsIn);
    if (!feed.leaving || standsIn) {
      ++entry;
      continue;
    }
    onLane(feed.lane, [output = std::move(feed.output)](FeedLane& lane) { lane.remove(); });
    entry = feeds_.erase(entry);
    removed = true;
  }
  std::erase_if(lanes_, [](const auto& entry) { return entry.second.expired(); });
  return removed;
}

void FeedSet::removeLeftovers(std::set<std::string> unwanted) {
  unwanted_ = std::move(unwanted);
  retryLeftovers();
}

void FeedSet::retryLeftovers() {
  for (const auto& path : unwanted_) {
    // One of ours is on its way out.
    if (feeds_.contains(path) || ::access(path.c_str(), F_OK) != 0) continue;
    onLane(laneFor(path), [](FeedLane& lane) { lane.removeLeftover(); });
  }
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
  std::erase_if(stopping_, hasEnded);
  stopping_.push_back(running.hub->stop());
}

void FeedSet::heartbeat() {
  for (auto& [path, feed] : feeds_) {
    if (feed.stage != Stage::open) continue;
    const std::size_t missing = feed.output->missingRoom();
    if (missing > 0) feed.room = missing;
    if (missing > 0 || !feed.output->stillInPlace() || feed.output->isVacant()) {
      open(feed, Stage::reopening);
      continue;
    }
    feed.output->heartbeat();
    noteTakeover(feed);
  }
}

void FeedSet::noteTakeover(Feed& feed) {
  const bool takenOver = feed.output->isTakenOver();
  if (takenOver && !feed.takenOver)
    Log::router().error("{} is written by another process now", feed.wanted.path);
  feed.takenOver = takenOver;
}

bool FeedSet::isToBeTriedAgain(Running& running) {
  if (running.request.source.capturesScreen()) return running.hub->error().has_value();
  return running.hub->failedToStart() && running.pace.isDue();
}

void FeedSet::retryFailures() {
  overlays_.retryFailures();
  for (auto& [key, running] : running_) {
    if (!isToBeTriedAgain(running)) continue;
    stop(running);
    const RetryPace pace = running.pace;
    running = run(running.request, running.hub->error());
    running.pace = pace;
    for (auto& [path, feed] : feeds_)
      if (feed.wanted.source.key == key && feed.stage == Stage::open && feed.attached) attach(feed);
  }
}

bool FeedSet::isOpening() const {
  return std::ranges::any_of(
      feeds_, [](const auto& entry) { return entry.second.stage == Stage::opening; });
}

std::set<std::string> FeedSet::openPaths() const {
  std::set<std::string> paths;
  for (const auto& [path, feed] : feeds_)
    if (feed.stage != Stage::opening) paths.insert(path);
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
    if (!feed.overlay.empty()) ids.insert(feed.overlay);
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

std::shared_ptr<FeedLane> FeedSet::laneFor(const std::string& path) {
  auto& known = lanes_[path];
  auto lane = known.lock();
  if (!lane) known = lane = std::make_shared<FeedLane>(path);
  return lane;
}

template <typename Work>
void FeedSet::onLane(const std::shared_ptr<FeedLane>& lane, Work work) {
  lane->queue().post([lane, work = std::move(work)]() mutable { work(*lane); });
}

std::future<void> FeedSet::settled() {
  auto result = settling_.emplace_back().get_future();
  if (unopened_ == 0 || closed_) tellSettled();
  return result;
}

void FeedSet::tellSettled() {
  for (auto& waiting : std::exchange(settling_, {})) {
    const auto all = std::make_shared<Settling>(std::move(waiting));
    if (closed_) continue;
    for (const auto& [path, known] : lanes_)
      if (const auto lane = known.lock()) onLane(lane, [all](FeedLane&) {});
  }
}

std::vector<std::future<void>> FeedSet::close() {
  closed_ = true;
  for (auto& [path, feed] : feeds_) {
    if (feed.output) feed.output->close();
    onLane(feed.lane, [output = std::move(feed.output)](FeedLane& lane) { lane.close(); });
  }
  feeds_.clear();
  stopIdleHubs();
  for (const auto& [path, known] : lanes_) {
    const auto lane = known.lock();
    if (!lane) continue;
    std::promise<void> idle;
    stopping_.push_back(idle.get_future());
    lane->queue().post([lane, idle = std::move(idle)]() mutable { idle.set_value(); });
  }
  tellSettled();
  return std::exchange(stopping_, {});
}

}  // namespace lenslark
