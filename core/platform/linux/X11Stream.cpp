#include "platform/linux/X11Stream.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "base/FileDescriptor.h"
#include "base/Log.h"
#include "base/PosixError.h"
#include "graphics/Compositor.h"
#include "platform/linux/X11Cursor.h"

namespace lenslark {
namespace {

using Steady = std::chrono::steady_clock;

/// What a stream is to film from the next picture on.
struct Target {
  PixelRect area;
  Size output;
};

class X11Stream final : public ScreenStream {
 public:
  X11Stream(const X11SceneMaker& makeScene, const Screen::Request& request,
            Screen::FrameHandler onFrame, Screen::StopHandler onStop)
      : scene_(makeScene(x_)),
        output_(request.output),
        period_(std::chrono::nanoseconds(1'000'000'000 / std::max(request.fps, 1))),
        onFrame_(std::move(onFrame)),
        onStop_(std::move(onStop)),
        wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!wake_) throwErrno("eventfd");
    if (request.showsCursor) cursor_.emplace(x_);
    thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
  }

  ~X11Stream() override {
    thread_.request_stop();
    wakeUp();
    thread_.join();
  }

  void retarget(const PixelRect& area, Size output) override {
    {
      const std::lock_guard lock(mutex_);
      next_ = Target{area, output};
    }
    wakeUp();
  }

 private:
  void wakeUp() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(wake_.get(), &one, sizeof one);
  }

  void run(const std::stop_token& stop) {
    try {
      while (!stop.stop_requested()) {
        takeEvents();
        if (const auto why = scene_->ended()) return onStop_(*why);
        if (x_.broken()) return onStop_(CaptureError::unavailable("the X display went away"));
        const auto now = Steady::now();
        scene_->work(now);
        followPointer(now);
        if (wanted() && now >= nextFrame_) {
          makePicture(now);
          continue;
        }
        sleep(now);
      }
    } catch (const std::exception& error) {
      onStop_(CaptureError::unavailable(error.what()));
    }
  }

  void take(const xcb_generic_event_t& event) {
    if (cursor_ && cursor_->handle(event)) pointerChanged_ = true;
    scene_->handle(event);
  }

  void takeEvents() {
    while (const XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(x_.get())}) take(*event);
    const std::lock_guard lock(mutex_);
    if (!next_) return;
    output_ = next_->output;
    scene_->retarget(next_->area);
    next_.reset();
    drawAll_ = true;
  }

  void followPointer(Steady::time_point now) {
    if (!cursor_ || now < nextPointer_) return;
    nextPointer_ = now + period_;
    if (cursor_->follow()) pointerChanged_ = true;
  }

  bool wanted() const { return scene_->dirty() || pointerChanged_ || drawAll_; }

  void makePicture(Steady::time_point now) {
    nextFrame_ = (now - nextFrame_ < period_ ? nextFrame_ : now) + period_;
    const PixelRect area = scene_->area();
    if (area.size().empty() || output_.empty()) {
      drawAll_ = pointerChanged_ = false;
      return;
    }
    if (picture_ == nullptr || picture_->size() != area.size()) {
      picture_.reset();
      picture_ = std::make_unique<X11Picture>(x_, area.size());
      drawAll_ = true;
    }
    if (scene_->dirty() || drawAll_) scene_->draw(*picture_, drawAll_);
    const PixelView pixels = picture_->read();
    if (pixels.data == nullptr) return;
    drawAll_ = false;
    pointerChanged_ = false;
    if (FramePtr frame = scaled(pixels, area)) onFrame_(std::move(frame));
  }

  /// The picture is fitted, but a pixel that only rounding left over becomes no black edge.
  PixelRect shownIn(Size area) const {
    const PixelRect whole{0, 0, output_.width, output_.height};
    const PixelRect fitted = place(area, whole, false).target;
    constexpr int rounding = 100;  // a hundredth of a side
    const bool fills = output_.width - fitted.width <= output_.width / rounding &&
                       output_.height - fitted.height <= output_.height / rounding;
    return fills ? whole : fitted;
  }

  FramePtr scaled(const PixelView& pixels, const PixelRect& area) {
    if (pool_ == nullptr || pool_->size() != output_) {
      pool_ = std::make_unique<PixelBufferPool>(output_, true);
    }
    const auto frame = pool_->take();
    const PixelSpan span = frame->span();
    const PixelRect shown = place(area.size(), {0, 0, output_.width, output_.height}, false).target;
    if (shown.size() != output_) Compositor::fill(span, {});
    if (!Compositor::scale(pixels, span.part(shown))) return nullptr;
    Compositor::makeOpaque(span.part(shown));
    if (cursor_) cursor_->draw(area, span.part(shown));
    return frame;
  }

  void sleep(Steady::time_point now) {
    // Events that came in with the answer to a request no longer show at the connection.
    if (const XcbReply<xcb_generic_event_t> event{xcb_poll_for_queued_event(x_.get())}) {
      return take(*event);
    }
    std::optional<Steady::time_point> until = scene_->nextWork();
    const auto noLaterThan = [&](Steady::time_point time) {
      until = until ? std::min(*until, time) : time;
    };
    if (cursor_) noLaterThan(nextPointer_);
    if (wanted()) noLaterThan(nextFrame_);
    timespec wait{};
    if (until) {
      const auto left = std::max(*until - now, Steady::duration::zero());
      wait.tv_sec = static_cast<time_t>(left / std::chrono::seconds(1));
      wait.tv_nsec = static_cast<long>((left % std::chrono::seconds(1)).count());
    }
    xcb_flush(x_.get());
    std::array<pollfd, 2> files{
        {{xcb_get_file_descriptor(x_.get()), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
    ::ppoll(files.data(), files.size(), until ? &wait : nullptr, nullptr);
    std::uint64_t count = 0;
    if ((files[1].revents & POLLIN) != 0) {
      [[maybe_unused]] const ssize_t taken = ::read(wake_.get(), &count, sizeof count);
    }
  }

  // On the stream's thread once it runs. The scene and the pictures go before their connection.
  X11Connection x_;
  std::unique_ptr<X11Scene> scene_;
  std::unique_ptr<X11Picture> picture_;
  std::optional<X11Cursor> cursor_;
  std::unique_ptr<PixelBufferPool> pool_;
  Size output_;
  Steady::time_point nextFrame_{};
  Steady::time_point nextPointer_{};
  bool drawAll_ = true;
  bool pointerChanged_ = false;

  const Steady::duration period_;
  const Screen::FrameHandler onFrame_;
  const Screen::StopHandler onStop_;
  const FileDescriptor wake_;

  std::mutex mutex_;  // guards next_
  std::optional<Target> next_;

  std::jthread thread_;
};

}  // namespace

std::unique_ptr<ScreenStream> startX11Stream(const X11SceneMaker& makeScene,
                                             const Screen::Request& request,
                                             Screen::FrameHandler onFrame,
                                             Screen::StopHandler onStop) {
  return std::make_unique<X11Stream>(makeScene, request, std::move(onFrame), std::move(onStop));
}

}  // namespace lenslark
