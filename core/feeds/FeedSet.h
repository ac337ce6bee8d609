#pragma once

#include <cstddef>
#include <cstdint>
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
#include "feeds/FeedLane.h"
#include "feeds/FeedOutput.h"
#include "feeds/OverlayCache.h"
#include "feeds/RetryPace.h"
#include "feeds/SourceFactory.h"
#include "feeds/WantedFeeds.h"
#include "sources/SourceHub.h"
#include "sources/WindowFollowingSource.h"

namespace lenslark {

/// The feed files that are wanted and the sources that run for them. Files are opened, drawn into
/// and removed on queues of their own, so that nothing here waits for a disk: what is asked for
/// comes true a little later.
///
/// **Threads**: queue-bound. **Owns** outputs and hubs; both end on queues of their own.
class FeedSet {
 public:
  struct Hooks {
    SourceFactory makeSource;
    /// A source begins to show these items of the library.
    std::function<void(const std::set<std::string>&)> onShow;
    /// What must still live for this to be touched on the queue.
    std::function<std::weak_ptr<void>()> owner;
  };
  /// A running source that follows a window, and what keeps it alive.
  struct Follower {
    std::shared_ptr<SourceHub> hub;
    WindowFollowingSource* source = nullptr;
  };

  FeedSet(std::shared_ptr<SerialQueue> queue, Hooks hooks);
  ~FeedSet();
  FeedSet(const FeedSet&) = delete;
  FeedSet& operator=(const FeedSet&) = delete;

  /// Called on the queue when `apply` has something new to show: an overlay has been decoded, or
  /// cannot be. The handler holds its owner weakly.
  void onOverlay(std::function<void()> handler) { overlays_.onLoaded(std::move(handler)); }

  /// Called on the queue when a file was opened or could not be.
  void onFile(std::function<void()> handler) { onFile_ = std::move(handler); }

  /// Opens, restyles, feeds and removes files until they are those that are wanted. A file that
  /// cannot be opened is logged and left out; the next call tries again. What is new is written
  /// before what is old is removed, so that a camera whose file changes always has one to show. A
  /// feed whose overlay is still being decoded stays as it is until then: its picture never shows
  /// without the overlay.
  void apply(const std::vector<WantedFeed>& wanted);

  /// Removes what an earlier process left at these paths, which are all that are not wanted: a
  /// reader that finds a camera's own file, dead as it is, does not look for the device's.
  void removeLeftovers(std::set<std::string> unwanted);
  /// Looks there again: whoever was killed looks alive for a moment, and others end later.
  void retryLeftovers();

  /// Marks every file as alive; makes those anew that somebody removed, replaced or cut short, and
  /// takes those back that another process had taken over and has left. One for whose frames there
  /// is no room is opened anew with that room, or is a file that cannot be opened.
  void heartbeat();

  /// One round of attempts at what failed, whose cause may have passed: starts captures again, and,
  /// less and less often, pictures and films that could not be opened, and overlays.
  void retryFailures();
  /// Overlays that could not be decoded are decoded again with the next `apply`.
  void forgetOverlayFailures() { overlays_.forgetFailures(); }

  bool hasFailedFiles() const noexcept { return !failures_.empty(); }
  /// Whether a wanted file is being opened for the first time.
  bool isOpening() const;
  /// Ready when nothing is left to do for any file, and at the latest when all is closed.
  std::future<void> settled();
  /// The files that are open. One that is being made anew counts until that has failed.
  std::set<std::string> openPaths() const;
  std::vector<Follower> followers() const;
  std::set<std::string> shownMedia() const;
  std::uint64_t framesCaptured() const;
  std::vector<std::string> sourceErrors() const;

  /// Closes every file that is open and stops every source. The results are ready when the sources
  /// have stopped and when no file is being opened any more either.
  std::vector<std::future<void>> close();

 private:
  enum class Stage { opening, open, reopening };
  struct Feed {
    WantedFeed wanted;
    std::shared_ptr<FeedLane> lane;
    Stage stage = Stage::opening;
    std::uint64_t attempt = 0;  ///< Tells this opening from earlier ones of the path.
    /// While open. Let go of on the lane alone: unmapping a file takes its time.
    std::shared_ptr<FeedOutput> output;
    std::size_t room = 0;    ///< What its frames need, when it is more than usual.
    FeedLane::Look look;     ///< What the lane was told last.
    std::string overlay;     ///< The item of the library that was told as shown.
    bool takenOver = false;  ///< By another process, as has been logged.
    bool attached = false;   ///< Not before its overlay can be shown.
    bool leaving = false;    ///< Not wanted, but what takes its place is not open yet.
  };
  using Feeds = std::map<std::string, Feed>;
  struct Running {
    SourceRequest request;
    std::shared_ptr<SourceHub> hub;
    WindowFollowingSource* follower = nullptr;
    RetryPace pace;  ///< Of its source's starts.
  };
  /// Why a wanted file is missing.
  struct Failure {
    std::string error;
    std::string sourceKey;
    std::size_t room = 0;  ///< That the source's frames need, when it is more than usual.
  };
  struct Opened {
    std::shared_ptr<FeedOutput> output;  ///< None after an error.
    std::string error;
  };

  void show(const WantedFeed& wanted);
  void open(Feed& feed, Stage stage);
  static Opened tryOpen(FeedLane& lane, const FeedLane::Opening& opening);
  void opened(const std::shared_ptr<FeedLane>& lane, std::uint64_t attempt, const Opened& result);
  void take(Feeds::iterator entry, const Opened& result);
  void begin(Feed& feed);
  void noteFailure(const Feed& feed, const std::string& error);
  FeedLane::Look lookOf(const WantedFeed& wanted);
  void restyle(Feed& feed);
  void noteOverlay(Feed& feed);
  /// What a new file shows until its own source has a picture: what its camera showed before.
  void seed(const Feed& feed, FeedLane::Opening& opening) const;
  /// The source that runs for a request, started if none does.
  Running& runningFor(const SourceRequest& request);
  void attach(Feed& feed);
  bool isReady(const WantedFeed& wanted);
  void noteTakeover(Feed& feed);
  void removeUnwanted(const std::vector<WantedFeed>& wanted);
  /// Removes what is not wanted, but for the files that a camera still shows. Whether any was.
  bool removeLeaving();
  void stopIdleHubs();
  Running run(const SourceRequest& request, std::optional<std::string> knownError = {});
  static bool isToBeTriedAgain(Running& running);
  void stop(const Running& running);

  std::shared_ptr<FeedLane> laneFor(const std::string& path);
  template <typename Work>
  static void onLane(const std::shared_ptr<FeedLane>& lane, Work work);
  void tellSettled();

  const std::shared_ptr<SerialQueue> queue_;
  const Hooks hooks_;
  std::function<void()> onFile_;
  OverlayCache overlays_;
  Feeds feeds_;                              // by path
  std::map<std::string, Running> running_;   // by source key
  std::map<std::string, Failure> failures_;  // by path
  /// By path. One that still has something to do serves the path's next feed as well, so that a
  /// file is not opened before the one before it is gone.
  std::map<std::string, std::weak_ptr<FeedLane>> lanes_;
  bool anyLeaving_ = false;
  std::set<std::string> unwanted_;  // paths where a leftover would be in the way
  std::uint64_t attempts_ = 0;
  std::size_t unopened_ = 0;  // files that are being opened
  std::vector<std::promise<void>> settling_;
  bool closed_ = false;
  std::vector<std::future<void>> stopping_;
};

}  // namespace lenslark
