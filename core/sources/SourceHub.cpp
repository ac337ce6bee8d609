#include "sources/SourceHub.h"

#include <algorithm>
#include <condition_variable>

#include "base/Log.h"
#include "graphics/SharedPicture.h"

namespace lenslark {

/// One sink's place at the hub. Frames pass it one at a time, in order, and none once it is closed.
class SourceHub::Seat {
 public:
  explicit Seat(const std::shared_ptr<FrameSink>& sink) : sink_(sink), identity_(sink.get()) {}

  bool belongsTo(const FrameSink& sink) const noexcept { return identity_ == &sink; }
  bool abandoned() const noexcept { return sink_.expired(); }

  /// `number` counts the hub's frames: one that was overtaken by a later one is left out. Waits
  /// while another thread delivers: whoever adds a sink must not be left with the frames of a
  /// source that is quicker than the sink, for as long as it runs.
  void deliver(const FramePtr& frame, std::uint64_t number, ContentKind kind) noexcept {
    std::unique_lock lock(mutex_);
    const auto late = [&] { return closed_ || number < newest_; };
    idle_.wait(lock, [&] { return !busy_ || late(); });
    if (late()) return;
    newest_ = number;
    busy_ = true;
    lock.unlock();
    if (const auto sink = sink_.lock()) sink->deliver(frame, kind);
    lock.lock();
    busy_ = false;
    idle_.notify_all();
  }

  void close() {
    std::unique_lock lock(mutex_);
    closed_ = true;
    idle_.wait(lock, [this] { return !busy_; });
  }

 private:
  const std::weak_ptr<FrameSink> sink_;
  const FrameSink* const identity_;

  std::mutex mutex_;  // guards all below; not held while the sink is called
  std::condition_variable idle_;
  bool closed_ = false;
  bool busy_ = false;
  std::uint64_t newest_ = 0;
};

SourceHub::SourceHub(std::string key, std::unique_ptr<FrameSource> source)
    : key_(std::move(key)),
      source_(std::move(source)),
      kind_(source_->kind()),
      queue_("lenslark.source", SerialQueue::Lane::waiting),
      seats_(std::make_shared<const Seats>()) {}

SourceHub::~SourceHub() {
  if (!started_ || stopped_) return;
  // This may be the source's own thread, letting go of the last reference after a frame: a source
  // that waited for itself would wait for ever.
  queue_.post([source = std::move(source_)] { source->stop(); });
}

void SourceHub::start(std::optional<std::string> knownError) {
  {
    const std::lock_guard lock(mutex_);
    started_ = true;
  }
  queue_.post([self = shared_from_this(), knownError = std::move(knownError)] {
    self->runStart(knownError);
  });
}

void SourceHub::runStart(const std::optional<std::string>& knownError) {
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) return;
  }
  try {
    source_->start([weak = weak_from_this()](FramePtr frame) {
      if (const auto hub = weak.lock()) hub->emit(std::move(frame));
    });
  } catch (const std::exception& error) {
    if (knownError != error.what()) Log::router().error("source {} failed: {}", key_, error.what());
    const std::lock_guard lock(mutex_);
    error_ = error.what();
  }
}

std::future<void> SourceHub::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  std::promise<void> stopped;
  auto result = stopped.get_future();
  queue_.post([self = shared_from_this(), stopped = std::move(stopped)]() mutable {
    self->source_->stop();
    stopped.set_value();
  });
  return result;
}

void SourceHub::add(const std::shared_ptr<FrameSink>& sink) {
  std::shared_ptr<Seat> seat;
  FramePtr latest;
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(mutex_);
    auto seats = std::make_shared<Seats>();
    for (const auto& other : *seats_) {
      if (other->abandoned()) continue;
      if (other->belongsTo(*sink)) seat = other;
      seats->push_back(other);
    }
    if (!seat) seats->push_back(seat = std::make_shared<Seat>(sink));
    seats_ = std::move(seats);
    latest = last_;
    number = frames_;
  }
  if (latest) seat->deliver(latest, number, kind_);
}

void SourceHub::remove(const FrameSink& sink) {
  std::shared_ptr<Seat> seat;
  {
    const std::lock_guard lock(mutex_);
    auto seats = std::make_shared<Seats>();
    for (const auto& other : *seats_) {
      if (other->belongsTo(sink))
        seat = other;
      else if (!other->abandoned())
        seats->push_back(other);
    }
    seats_ = std::move(seats);
  }
  if (seat) seat->close();
}

bool SourceHub::hasSinks() const {
  const std::lock_guard lock(mutex_);
  return std::ranges::any_of(*seats_, [](const auto& seat) { return !seat->abandoned(); });
}

FramePtr SourceHub::latest() const {
  const std::lock_guard lock(mutex_);
  return last_;
}

std::uint64_t SourceHub::frames() const {
  const std::lock_guard lock(mutex_);
  return frames_;
}

bool SourceHub::failedToStart() const {
  const std::lock_guard lock(mutex_);
  return error_.has_value();
}

std::optional<std::string> SourceHub::error() const {
  {
    const std::lock_guard lock(mutex_);
    if (error_) return error_;
  }
  return source_->problem();
}

void SourceHub::emit(FramePtr frame) noexcept {
  if (!frame) return;
  std::shared_ptr<const Seats> seats;
  std::uint64_t number = 0;
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) return;
    frame = readyLocked(std::move(frame));
    last_ = frame;
    number = ++frames_;
    seats = seats_;
  }
  for (const auto& seat : *seats) seat->deliver(frame, number, kind_);
}

bool SourceHub::worthSharing(Size size, std::size_t sinks) noexcept {
  constexpr std::int64_t fullHd = std::int64_t{1920} * 1080;
  return static_cast<std::int64_t>(sinks) * size.width * size.height >= 4 * fullHd;
}

FramePtr SourceHub::readyLocked(FramePtr frame) noexcept {
  if (!worthSharing(frame->size(), seats_->size())) {
    pool_.reset();
    return frame;
  }
  try {
    if (!pool_ || pool_->size() != frame->size() || pool_->opaque() != frame->opaque()) {
      pool_ = std::make_shared<PixelBufferPool>(frame->size(), frame->opaque());
    }
    return std::make_shared<SharedPicture>(frame, pool_);
  } catch (const std::bad_alloc&) {
    return frame;  // then each sink draws it for itself
  }
}

}  // namespace lenslark
