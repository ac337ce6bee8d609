#include "feeds/FeedRouter.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/Clock.h"
#include "base/Log.h"
#include "config/Lenslark.h"

namespace lenslark {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds heartbeatPeriod(500);
constexpr std::uint64_t beatsBetweenRetries = 10;              // five seconds
constexpr std::uint64_t longestOpening = 4;                    // two seconds
constexpr std::uint64_t beatsBetweenNotes = 24 * 60 * 60 * 2;  // a day
constexpr std::chrono::seconds longestFirstScan(3);
constexpr milliseconds longestStop(500);

constexpr double movingInterval = 1.0 / 30;
constexpr double restingInterval = 0.25;
constexpr double restAfter = 1.0;

/// The stored file of an item. Nothing for one that the library does not hold inside itself,
/// whatever its index says.
std::optional<std::filesystem::path> storedFile(const MediaLibrary& media, const MediaItem& item) {
  const std::filesystem::path name = item.file;
  if (name.empty() || name != name.filename() || name == "." || name == "..") return std::nullopt;
  auto file = media.url(item);
  struct stat info {};
  if (::lstat(file.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return std::nullopt;
  return file;
}

MediaFiles lookUp(const MediaLibrary& media, const std::set<std::string>& ids) {
  MediaFiles files;
  if (ids.empty()) return files;
  for (const auto& item : media.items()) {
    if (!ids.contains(item.id)) continue;
    if (auto file = storedFile(media, item)) files.emplace(item.id, std::move(*file));
  }
  return files;
}

std::set<std::string> neededMedia(const ConfigFile& config, const FeedOverrides& overrides) {
  auto ids = config.referencedMedia();
  if (!overrides.source) return ids;
  const auto more = overrides.source->mediaIDs();
  ids.insert(more.begin(), more.end());
  return ids;
}

/// Whether the window has moved. A look that fails must not be the last one.
bool look(WindowFollowingSource& source) {
  try {
    return source.track();
  } catch (const std::exception& error) {
    Log::router().error("cannot look after a window: {}", error.what());
    return false;
  }
}

void waitForAll(std::vector<std::future<void>>& results, milliseconds atMost) {
  const auto deadline = std::chrono::steady_clock::now() + atMost;
  for (auto& result : results) result.wait_until(deadline);
}

}  // namespace

FeedRouter::FeedRouter(Dependencies dependencies, Overrides overrides)
    : store_(std::move(dependencies.store)),
      media_(std::move(dependencies.media)),
      overrides_(std::move(overrides)),
      devices_(std::move(dependencies.devices)),
      queue_(std::make_shared<SerialQueue>("lenslark.router")),
      lookups_("lenslark.router.lookups", SerialQueue::Lane::blocking),
      discovery_("lenslark.router.discovery", SerialQueue::Lane::blocking),
      tracking_("lenslark.router.tracking", SerialQueue::Lane::blocking),
      errands_(store_, media_),
      feeds_(queue_, {.makeSource = std::move(dependencies.makeSource),
                      .onShow = [this](const std::set<std::string>& ids) { errands_.touch(ids); },
                      .owner = [this] { return weak_from_this(); }}) {
  situation_.overrides = overrides_;
  situation_.globalPath = Lenslark::sharedFramePath();
}

FeedRouter::~FeedRouter() {
  // The last reference may be let go of on any thread, the queue's own included: nothing here
  // waits.
  if (stopped_) return;
  close();
  discovery_.post([devices = devices_] { devices->stop(); });
}

/// A function that does this operation as long as the router lives.
template <typename... Arguments>
auto FeedRouter::weakly(void (FeedRouter::*operation)(Arguments...)) {
  return [weak = weak_from_this(), operation](auto&&... arguments) {
    if (const auto router = weak.lock())
      (router.get()->*operation)(std::forward<decltype(arguments)>(arguments)...);
  };
}

void FeedRouter::onChange(std::function<void()> handler) { onChange_ = std::move(handler); }

void FeedRouter::start() {
  queue_->sync([this] { prepare(); });
  lookups_.sync([this] {
    observeConfig();
    loadConfig();
  });
  errands_.collectGarbage(neededMedia({}, overrides_));
  discovery_.post(weakly(&FeedRouter::findDevices));

  const auto deadline = std::chrono::steady_clock::now() + longestFirstScan;
  std::unique_lock lock(scanMutex_);
  scanDone_.wait_until(lock, deadline, [this] { return scanned_ || stopped_; });
  lock.unlock();
  // Behind what the scan has posted.
  queue_->sync([this] { return feeds_.settled(); }).wait_until(deadline);
}

void FeedRouter::prepare() {
  if (stopped_) return;
  feeds_.onOverlay(weakly(&FeedRouter::reconcile));
  feeds_.onFile([this] {
    retime();
    refreshStatuses();
  });
  heartbeatTimer_.emplace(*queue_, weakly(&FeedRouter::beat));
  trackTimer_.emplace(*queue_, weakly(&FeedRouter::track));
  heartbeatTimer_->schedule(heartbeatPeriod, heartbeatPeriod);
}

/// On the queue of lookups: the store may be waiting for a disk.
void FeedRouter::observeConfig() {
  const auto token = store_->observe([weak = weak_from_this()](const ConfigFile&) {
    if (const auto router = weak.lock())
      router->lookups_.post(router->weakly(&FeedRouter::loadConfig));
  });
  const bool stopped = queue_->sync([&] {
    if (!stopped_) observer_ = token;
    return !observer_;
  });
  if (stopped) store_->removeObserver(token);
}

void FeedRouter::findDevices() {
  if (stopped_) return;
  devices_->start([weak = weak_from_this()](const DeviceRegistry::Snapshot& snapshot) {
    const auto router = weak.lock();
    if (!router) return;
    router->queue_->post([weak, snapshot] {
      if (const auto owner = weak.lock()) owner->take(snapshot);
    });
  });
  const std::lock_guard lock(scanMutex_);
  scanned_ = true;
  scanDone_.notify_all();
}

/// Reads the configuration and finds its media, then hands both to the queue. Always the newest:
/// several changes in a row need not be taken one by one.
void FeedRouter::loadConfig() {
  if (stopped_) return;
  auto config = store_->config();
  MediaFiles media;
  std::string unread;
  try {
    media = lookUp(*media_, neededMedia(config, overrides_));
  } catch (const std::system_error& error) {
    unread = error.what();
  }
  queue_->post([weak = weak_from_this(), config = std::move(config), media = std::move(media),
                unread = std::move(unread)]() mutable {
    if (const auto router = weak.lock())
      router->take(std::move(config), std::move(media), std::move(unread));
  });
}

void FeedRouter::take(ConfigFile config, MediaFiles media, std::string mediaUnread) {
  if (stopped_) return;
  if (!mediaUnread.empty()) media = std::move(situation_.media);  // what was known stays
  const auto missing = [&](const std::string& id) { return !media.contains(id); };
  mediaMissing_ = std::ranges::any_of(neededMedia(config, overrides_), missing);
  situation_.config = std::move(config);
  situation_.media = std::move(media);
  situation_.mediaUnread = std::move(mediaUnread);
  feeds_.forgetOverlayFailures();
  reconcile();
}

void FeedRouter::take(const DeviceRegistry::Snapshot& snapshot) {
  if (stopped_) return;
  situation_.devices = snapshot.devices;
  screenAccess_ = snapshot.screenAccess;
  errands_.remember(snapshot.devices);
  reconcile();
}

void FeedRouter::reconcile() {
  if (stopped_) return;
  const auto wanted = wantedFeeds(situation_);
  feeds_.apply(wanted);
  feeds_.removeLeftovers(unwantedPaths(situation_, wanted));
  retime();
  refreshStatuses();
}

void FeedRouter::refreshStatuses() {
  // A camera whose file is about to be there is not told as one without.
  if (feeds_.isOpening() && beatsOpening_ < longestOpening) return;
  auto statuses = deviceStatuses(situation_, feeds_.openPaths());
  if (statuses == statuses_ && screenAccess_ == toldScreenAccess_) return;
  statuses_ = std::move(statuses);
  toldScreenAccess_ = screenAccess_;
  if (onChange_) onChange_();
}

void FeedRouter::beat() {
  if (stopped_) return;
  feeds_.heartbeat();
  beatsOpening_ = feeds_.isOpening() ? beatsOpening_ + 1 : 0;
  if (beatsOpening_ == longestOpening) refreshStatuses();
  ++beats_;
  if (beats_ % beatsBetweenRetries == 0) retryFailures();
  if (beats_ % beatsBetweenNotes == 0) {
    errands_.remember(situation_.devices);
    errands_.touch(feeds_.shownMedia());
  }
}

void FeedRouter::retryFailures() {
  feeds_.retryFailures();
  feeds_.retryLeftovers();
  if (feeds_.hasFailedFiles()) reconcile();
  if (mediaMissing_) lookups_.post(weakly(&FeedRouter::loadConfig));
}

void FeedRouter::track() {
  auto followers = feeds_.followers();
  if (stopped_ || trackingNow_ || followers.empty()) return;
  trackingNow_ = true;
  // The display server is asked elsewhere: it may be slow to answer, or never do.
  tracking_.post([weak = weak_from_this(), queue = queue_, followers = std::move(followers)] {
    bool moved = false;
    for (const auto& follower : followers) moved = look(*follower.source) || moved;
    queue->post([weak, moved] {
      if (const auto router = weak.lock()) router->tracked(moved);
    });
  });
}

void FeedRouter::tracked(bool moved) {
  trackingNow_ = false;
  if (moved) lastMove_ = Clock::uptimeSeconds();
  if (!stopped_) retime();
}

double FeedRouter::trackInterval(bool followsWindows, double now, double lastMove) noexcept {
  if (!followsWindows) return 0;
  return now - lastMove < restAfter ? movingInterval : restingInterval;
}

void FeedRouter::retime() {
  if (!trackTimer_) return;
  const double interval =
      trackInterval(!feeds_.followers().empty(), Clock::uptimeSeconds(), lastMove_);
  if (interval == trackInterval_) return;
  trackInterval_ = interval;
  if (interval == 0) return trackTimer_->stop();
  const std::chrono::nanoseconds period(std::llround(interval * 1e9));
  trackTimer_->schedule(period, period);
}

void FeedRouter::stop() {
  if (stopped_.exchange(true)) return;
  {
    const std::lock_guard lock(scanMutex_);
    scanDone_.notify_all();
  }
  auto results = queue_->sync([this] { return close(); });
  results.push_back(errands_.finish());
  std::promise<void> discovered;
  results.push_back(discovered.get_future());
  discovery_.post([devices = devices_, discovered = std::move(discovered)]() mutable {
    devices->stop();
    discovered.set_value();
  });
  waitForAll(results, longestStop);
}

std::vector<std::future<void>> FeedRouter::close() {
  // The store may be waiting for a disk, and nobody here waits for it. Told meanwhile, we do not
  // listen any more.
  if (observer_) {
    lookups_.post([store = store_, token = *std::exchange(observer_, std::nullopt)] {
      store->removeObserver(token);
    });
  }
  heartbeatTimer_.reset();
  trackTimer_.reset();
  statuses_.clear();
  return feeds_.close();
}

std::uint64_t FeedRouter::framesCaptured() const {
  return queue_->sync([this] { return feeds_.framesCaptured(); });
}

std::vector<std::string> FeedRouter::sourceErrors() const {
  return queue_->sync([this] { return feeds_.sourceErrors(); });
}

std::vector<DeviceStatus> FeedRouter::statuses() const {
  return queue_->sync([this] { return statuses_; });
}

std::optional<bool> FeedRouter::screenAccess() const {
  return queue_->sync([this] { return screenAccess_; });
}

}  // namespace lenslark
