#include "sources/VideoPlayer.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/Clock.h"
#include "base/Error.h"
#include "base/Log.h"

namespace lenslark {
namespace {

/// Enough to bridge a key frame that takes several periods to decode.
constexpr std::size_t decodeAhead = 6;

constexpr double fallbackRate = 30;

constexpr auto idle = std::chrono::hours(1);  // every look sets the timer anew

std::chrono::nanoseconds nanoseconds(double seconds) {
  return std::chrono::nanoseconds(static_cast<std::int64_t>(std::max(seconds, 0.0) * 1e9));
}

double rateOf(const VideoDecoder& decoder) {
  const double rate = decoder.info().nominalFps;
  return rate > 0 ? rate : fallbackRate;
}

}  // namespace

VideoPlayer::VideoPlayer(std::unique_ptr<VideoDecoder> decoder, bool loop, int maxFPS,
                         FrameSource::Emit emit)
    : decoder_(std::move(decoder)),
      loop_(loop),
      frameSeconds_(1 / rateOf(*decoder_)),
      emit_(std::move(emit)),
      timeline_(decoder_->info().nominalFps > 0 ? maxFPS : std::min<double>(maxFPS, fallbackRate)) {
}

void VideoPlayer::start() {
  decodeOne();
  if (timeline_.pending() == 0) throw Error(problem_.value_or("the film holds no picture"));
  timer_ = std::make_unique<RepeatingTimer>(showQueue_, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->look();
  });
  begin_ = Clock::uptimeSeconds();
  scheduleLook();
  refill();
}

void VideoPlayer::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  if (timer_) timer_->stop();
  showQueue_.sync([] {});
  decodeQueue_.sync([] {});
}

std::optional<std::string> VideoPlayer::problem() const {
  const std::lock_guard lock(mutex_);
  return problem_;
}

/// On the show queue: shows what is due and sets the timer for what comes next.
void VideoPlayer::look() {
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

void VideoPlayer::scheduleLook() {
  const std::lock_guard lock(mutex_);
  if (stopped_) return;
  const auto next = timeline_.nextLook();
  waiting_ = !next;
  if (next) timer_->schedule(nanoseconds(*next - (Clock::uptimeSeconds() - begin_)), idle);
}

/// Has the decode queue work until enough pictures lie ready.
void VideoPlayer::refill() {
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
void VideoPlayer::decodeAheadOfTime() {
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

void VideoPlayer::decodeOne() {
  std::optional<std::string> failure;
  try {
    const double now = Clock::uptimeSeconds() - begin_;
    decoder_->setLag(begin_ > 0 ? now - lastDue_ : 0);
    std::optional<VideoFrame> frame = decoder_->next();
    if (!frame && loop_ && picturesInPass_ > 0) frame = nextPass();
    if (frame) return keep(std::move(*frame));
  } catch (const std::exception& error) {
    failure = error.what();
    // One that never began is told of by whoever starts it, and tries again.
    if (begin_ > 0) Log::capture().error("film stopped: {}", *failure);
  }
  const std::lock_guard lock(mutex_);
  problem_ = std::move(failure);
  ended_ = true;
}

std::optional<VideoFrame> VideoPlayer::nextPass() {
  decoder_->rewind();
  passStart_ = lastDue_ + frameSeconds_;
  picturesInPass_ = 0;
  std::optional<VideoFrame> first = decoder_->next();
  if (!first) throw Error("the film cannot be played again: it holds no picture any more");
  passStart_ -= first->timeSec;  // a track that starts late leaves no gap in the loop
  return first;
}

void VideoPlayer::keep(VideoFrame frame) {
  picturesInPass_ += 1;
  lastDue_ = std::max(passStart_ + frame.timeSec, lastDue_);
  const std::lock_guard lock(mutex_);
  timeline_.add(std::move(frame.picture), lastDue_);
}

}  // namespace lenslark
