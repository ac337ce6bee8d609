#pragma once

#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/SerialQueue.h"
#include "feeds/FeedOutput.h"
#include "feeds/OverlayCache.h"
#include "feeds/SourceFactory.h"
#include "feeds/WantedFeeds.h"
#include "sources/SourceHub.h"
#include "sources/WindowFollowingSource.h"

namespace lenslark {

/// The feed files that are open and the sources that run for them.
///
/// **Threads**: queue-bound. **Owns** outputs and hubs; hubs stop on queues of their own.
class FeedSet {
 public:
  struct Hooks {
    SourceFactory makeSource;
    /// A source begins to show these items of the library.
    std::function<void(const std::set<std::string>&)> onShow;
  };
  /// A running source that follows a window, and what keeps it alive.
  struct Follower {
    std::shared_ptr<SourceHub> hub;
    WindowFollowingSource* source = nullptr;
  };

  FeedSet(std::shared_ptr<SerialQueue> queue, Hooks hooks);
  ~FeedSet();

  /// Called on the queue when `apply` has something new to show: an overlay has been decoded, or
  /// cannot be. The handler holds its owner weakly.
  void onOverlay(std::function<void()> handler) { overlays_.onLoaded(std::move(handler)); }

  /// Opens, restyles, feeds and removes files until they are those that are wanted. A file that
  /// cannot be opened is logged and left out; the next call tries again. What is new is written
  /// before what is old is removed, so that a camera whose file changes always has one to show. A
  /// feed whose overlay is still being decoded stays as it is until then: its picture never shows
  /// without the overlay.
  void apply(const std::vector<WantedFeed>& wanted);

  /// Marks every file as alive; makes those anew that somebody removed, replaced or cut short, and
  /// takes those back that another process had taken over and has left. Returns whether a file was
  /// lost and could not be made again.
  bool heartbeat();

  /// Starts those captures again that failed: what they need may be there now.
  void retryCaptures();
  void retryOverlays() { overlays_.forgetFailures(); }

  bool hasFailedFiles() const noexcept { return !openErrors_.empty(); }
  std::set<std::string> openPaths() const;
  std::vector<Follower> followers() const;
  std::set<std::string> shownMedia() const;
  std::uint64_t framesCaptured() const;
  std::vector<std::string> sourceErrors() const;

  /// Closes every file and stops every source. The results are ready when the sources have stopped.
  std::vector<std::future<void>> close();

 private:
  struct Feed {
    WantedFeed wanted;
    std::shared_ptr<FeedOutput> output;
    OverlayCache::Picture overlay;
    bool takenOver = false;  ///< By another process, as has been logged.
    bool attached = false;   ///< Not before its overlay can be shown.
  };
  struct Running {
    SourceRequest request;
    std::shared_ptr<SourceHub> hub;
    WindowFollowingSource* follower = nullptr;
  };

  void show(const WantedFeed& wanted);
  std::shared_ptr<FeedOutput> open(const WantedFeed& wanted);
  void style(Feed& feed, const WantedFeed& wanted, bool fresh);
  /// Gives a new file, until its own source has a picture, what its camera showed before.
  void seed(Feed& feed);
  /// The source that runs for a request, started if none does.
  Running& runningFor(const SourceRequest& request);
  void attach(Feed& feed);
  void detach(const Feed& feed);
  bool reopen(Feed& feed);
  void noteTakeover(Feed& feed);
  /// Opening and removing files takes its time, many at once too much: hearts beat in between.
  void beat() noexcept;
  void retire(const Feed& feed);
  void removeUnwanted(const std::vector<WantedFeed>& wanted);
  void stopIdleHubs();
  Running run(const SourceRequest& request, std::optional<std::string> knownError = {});
  void stop(const Running& running);

  const Hooks hooks_;
  OverlayCache overlays_;
  std::map<std::string, Feed> feeds_;              // by path
  std::map<std::string, Running> running_;         // by source key
  std::map<std::string, std::string> openErrors_;  // by path: why a wanted file is missing
  std::vector<std::future<void>> stopping_;
};

}  // namespace lenslark
