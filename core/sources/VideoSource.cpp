#include "sources/VideoSource.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "base/Clock.h"
#include "base/Error.h"
#include "base/Log.h"
#include "base/SerialQueue.h"
#include "codecs/Modules.h"
#include "sources/VideoTimeline.h"

namespace lenslark {
namespace {

/// The largest side of a feed's pictures: larger ones would only be scaled down behind us.
constexpr int maxSide = 2048;

/// Enough to bridge a key frame that takes several periods to decode.
constexpr std::size_t decodeAhead = 6;

constexpr double fallbackRate = 30;

std::chrono::nanoseconds nanoseconds(double seconds) {
  return std::chrono::nanoseconds(static_cast<std::int64_t>(std::max(seconds, 0.0) * 1e9));
}

}  // namespace

/// One film while it plays. Two queues share it: one decodes, one shows.
class VideoSource::Player : public std::enable_shared_from_this<Player> {
 public:
  Player(std::unique_ptr<VideoDecoder> decoder, bool loop, int maxFPS, Emit emit)
      : decoder_(std::move(decoder)),
        loop_(loop),
        frameSeconds_(1 / rateOf(*decoder_)),
        emit_(std::move(emit)),
        timeline_(decoder_->info().nominalFps > 0 ? maxFPS
                                                  : std::min<double>(maxFPS, fallbackRate)) {}

  /// Decodes the first pictures on the caller's thread, so that a film without any fails to start.
  void start() {
    decodeOne();
    if (ended_ && timeline_.pending() == 0) throw Error("the film holds no picture");
    timer_ = std::make_unique<RepeatingTimer>(showQueue_, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->look();
    });
    begin_ = Clock::uptimeSeconds();
    scheduleLook();
    refill();
  }

  void stop() {
    {
      const std::lock_guard lock(mutex_);
      stopped_ = true;
    }
    timer_->stop();
    showQueue_.sync([] {});
    decodeQueue_.sync([] {});
  }

 private:
  static double rateOf(const VideoDecoder& decoder) {
    const double rate = decoder.info().nominalFps;
    return rate > 0 ? rate : fallbackRate;
  }

  /// On the show queue: shows what is due and sets the timer for what comes next.
  void look() {
    std::optional<VideoFrame> due;
    {
      const std::lock_guard lock(mutex_);
      if (stopped_) return;
      due = timeline_.take(Clock::uptimeSeconds() - begin_);
    }
    if (due) {
      emit_(due->picture);
      refill();
    }
    scheduleLook();
  }

  void scheduleLook() {
    const std::lock_guard lock(mutex_);
    if (stopped_) return;
    const auto next = timeline_.nextLook();
    waiting_ = !next;
    if (next) timer_->schedule(nanoseconds(*next - (Clock::uptimeSeconds() - begin_)), idle);
  }

  /// Has the decode queue work until enough pictures lie ready.
  void refill() {
    {
      const std::lock_guard lock(mutex_);
      if (stopped_ || ended_ || refilling_ || timeline_.pending() >= decodeAhead) return;
      refilling_ = true;
    }
    decodeQueue_.post([weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->decodeAheadOfTime();
    });
  }

  /// On the decode queue, one picture an item: a film that is stopped is let go of at once.
  void decodeAheadOfTime() {
    decodeOne();
    bool wake = false;
    {
      const std::lock_guard lock(mutex_);
      refilling_ = false;
      wake = waiting_ && timeline_.pending() > 0;
    }
    if (wake) scheduleLook();
    refill();
  }

  void decodeOne() {
    try {
      const double now = Clock::uptimeSeconds() - begin_;
      decoder_->setLag(begin_ > 0 ? now - lastDue_ : 0);
      std::optional<VideoFrame> frame = decoder_->next();
      if (!frame && loop_ && picturesInPass_ > 0) frame = nextPass();
      if (frame) return keep(std::move(*frame));
    } catch (const std::exception& error) {
      Log::capture().error("film stopped: {}", error.what());
    }
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }

  std::optional<VideoFrame> nextPass() {
    decoder_->rewind();
    passStart_ = lastDue_ + frameSeconds_;
    picturesInPass_ = 0;
    std::optional<VideoFrame> first = decoder_->next();
    if (first) passStart_ -= first->timeSec;  // a track that starts late leaves no gap in the loop
    return first;
  }

  void keep(VideoFrame frame) {
    picturesInPass_ += 1;
    lastDue_ = std::max(passStart_ + frame.timeSec, lastDue_);
    const std::lock_guard lock(mutex_);
    timeline_.add(std::move(frame.picture), lastDue_);
  }

  static constexpr auto idle = std::chrono::hours(1);  // every look sets the timer anew

  // On the decode queue (and the starting thread before it).
  const std::unique_ptr<VideoDecoder> decoder_;
  const bool loop_;
  const double frameSeconds_;
  double passStart_ = 0;
  double lastDue_ = 0;
  std::int64_t picturesInPass_ = 0;

  // Constant once playing began.
  const Emit emit_;
  double begin_ = 0;
  std::unique_ptr<RepeatingTimer> timer_;

  std::mutex mutex_;  // guards what follows
  VideoTimeline timeline_;
  bool refilling_ = false;
  bool waiting_ = false;  ///< No picture lay ready at the last look.
  bool ended_ = false;
  bool stopped_ = false;

  SerialQueue showQueue_{"lenslark.video", SerialQueue::Lane::blocking};
  SerialQueue decodeQueue_{"lenslark.video.decode", SerialQueue::Lane::blocking};
};

VideoSource::VideoSource(std::filesystem::path path, bool loop, int maxFPS)
    : path_(std::move(path)), loop_(loop), maxFPS_(std::max(maxFPS, 1)) {}

VideoSource::~VideoSource() { stop(); }

void VideoSource::start(Emit emit) {
  player_ = std::make_shared<Player>(Modules::videoCodec().open(path_.string(), maxSide), loop_,
                                     maxFPS_, std::move(emit));
  player_->start();
}

void VideoSource::stop() {
  if (const auto player = std::exchange(player_, nullptr)) player->stop();
}

}  // namespace lenslark
