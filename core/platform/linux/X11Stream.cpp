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
#include "base/WholeFile.h"
#include "graphics/Compositor.h"
#include "platform/linux/X11Cursor.h"
#include "platform/linux/X11Frames.h"

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
    if (!wake_) throwErrno("screen capture");
    leaveDescriptorsForOthers(wake_, "screen capture");
    if (request.showsCursor) cursor_.emplace(x_);
    try {
      thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
    } catch (const std::system_error&) {
      throw threadShortage();
    }
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
        takeTarget();
        if (const auto why = scene_->ended()) return onStop_(*why);
        if (x_.broken()) return onStop_(CaptureError::unavailable("the X display went away."));
        const auto now = Steady::now();
        scene_->work(now);
        followPointer(now);
        if (due(now)) {
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
    if (cursor_) cursor_->handle(event);
    scene_->handle(event);
  }

  void takeEvents() {
    while (const XcbReply<xcb_generic_event_t> event{xcb_poll_for_event(x_.get())}) take(*event);
  }

  void takeTarget() {
    const std::lock_guard lock(mutex_);
    if (!next_) return;
    output_ = next_->output;
    scene_->retarget(next_->area);
    next_.reset();
    drawAll_ = true;
  }

  void followPointer(Steady::time_point now) {
    // A picture that is due asks on its own way to the server.
    if (now >= nextPointer_ && !due(now)) return readPointer(now);
    notePointer();
  }

  void readPointer(Steady::time_point now) {
    if (!cursor_) return;
    nextPointer_ = now + period_;
    cursor_->follow();
    notePointer();
  }

  void notePointer() {
    if (cursor_ && cursor_->takeChange(scene_->area())) pointerChanged_ = true;
  }

  bool wanted() const {
    return scene_->ready() && (scene_->dirty() || pointerChanged_ || drawAll_);
  }

  bool due(Steady::time_point now) const { return wanted() && now >= nextFrame_; }

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
    if (cursor_) cursor_->ask();
    const auto changed = drawPicture();
    readPointer(now);
    if (!changed) return;
    drawAll_ = false;
    const Layout layout = layOut(area.size());
    if (frames_ == nullptr || frames_->size() != output_ || layout != layout_) {
      frames_ = std::make_unique<X11Frames>(output_);
      layout_ = layout;
    }
    frames_->outdate(onFrame(changed->region));
    if (changed->region.empty() && !std::exchange(pointerChanged_, false)) return;
    pointerChanged_ = false;
    if (FramePtr frame = frameOf(changed->pixels, area)) onFrame_(std::move(frame));
  }

  struct Changed {
    Region region;  ///< Of the picture.
    PixelView pixels;
  };

  /// Brings the picture up to date, all of it where `drawAll_`. Nothing when that did not succeed.
  std::optional<Changed> drawPicture() {
    constexpr int attempts = 5;
    for (int attempt = 0; attempt < attempts; ++attempt) {
      const bool drawn = scene_->dirty() || drawAll_;
      Region changed = drawn ? scene_->draw(*picture_, drawAll_) : Region();
      const PixelView pixels = picture_->read();
      if (pixels.data == nullptr) return std::nullopt;
      takeEvents();
      if (!drawn || !scene_->spoiled()) return Changed{std::move(changed), pixels};
      drawAll_ = true;
    }
    return std::nullopt;
  }

  /// How pictures become frames.
  struct Layout {
    Size picture;
    PixelRect shown;

    friend bool operator==(const Layout&, const Layout&) = default;
  };

  /// The picture is fitted, but a pixel that only rounding left over becomes no black edge.
  Layout layOut(Size picture) const {
    const PixelRect whole{0, 0, output_.width, output_.height};
    const PixelRect fitted = place(picture, whole, false).target;
    constexpr int rounding = 100;  // a hundredth of a side
    const bool fills = output_.width - fitted.width <= output_.width / rounding &&
                       output_.height - fitted.height <= output_.height / rounding;
    return {picture, fills ? whole : fitted};
  }

  /// The frame's pixels that a part of the picture has a say in.
  Region onFrame(const Region& part) const {
    constexpr int reach = 1;  // of the filter, in pixels of either side
    const auto& [picture, shown] = layout_;
    const auto low = [](int edge, int to, int from) {
      return static_cast<int>(std::int64_t{edge - reach} * to / from) - reach - 1;
    };
    const auto high = [](int edge, int to, int from) {
      return static_cast<int>(std::int64_t{edge + reach} * to / from) + reach + 1;
    };
    Region onFrame;
    for (const auto& box : part.boxes()) {
      const int left = low(box.x1, shown.width, picture.width);
      const int top = low(box.y1, shown.height, picture.height);
      onFrame.add(
          Region({shown.x + left, shown.y + top, high(box.x2, shown.width, picture.width) - left,
                  high(box.y2, shown.height, picture.height) - top}));
    }
    return onFrame.intersect(Region(shown));
  }

  static bool drawParts(const PixelView& pixels, const PixelSpan& shown, const Region& parts) {
    const auto draw = [&](const pixman_box32_t& box) {
      const PixelRect part{box.x1, box.y1, box.x2 - box.x1, box.y2 - box.y1};
      return Compositor::scalePart(pixels, shown, part, Compositor::Alpha::opaque);
    };
    return std::ranges::all_of(parts.boxes(), draw);
  }

  FramePtr frameOf(const PixelView& pixels, const PixelRect& area) {
    const auto [frame, outdated] = frames_->take();
    const PixelSpan span = frame->span();
    const PixelSpan shown = span.part(layout_.shown);
    const bool bars = !Region(*outdated).subtract(Region(layout_.shown)).empty();
    if (bars) Compositor::fill(span, {});
    const Region whole({0, 0, shown.size.width, shown.size.height});
    Region parts = Region(*outdated).move(-layout_.shown.x, -layout_.shown.y);
    parts = bars ? whole : parts.coarser().intersect(whole);
    if (!drawParts(pixels, shown, parts)) return nullptr;
    // The pointer must go again before the buffer's next turn.
    PixelRect pointer = cursor_ ? cursor_->draw(area, shown) : PixelRect{};
    pointer.x += layout_.shown.x;
    pointer.y += layout_.shown.y;
    *outdated = Region(pointer);
    return frame;
  }

  void sleep(Steady::time_point now) {
    constexpr std::chrono::milliseconds restBetweenEvents(4);
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
    // While a picture waits for its time, what happens is taken in now and then, in one go: waking
    // up for each event costs more than the event.
    const bool waits = wanted();
    if (waits) noLaterThan(now + restBetweenEvents);
    timespec wait{};
    if (until) {
      const auto left = std::max(*until - now, Steady::duration::zero());
      wait.tv_sec = static_cast<time_t>(left / std::chrono::seconds(1));
      wait.tv_nsec = static_cast<long>((left % std::chrono::seconds(1)).count());
    }
    xcb_flush(x_.get());
    std::array<pollfd, 2> files{
        {{waits ? -1 : xcb_get_file_descriptor(x_.get()), POLLIN, 0}, {wake_.get(), POLLIN, 0}}};
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
  std::unique_ptr<X11Frames> frames_;
  Layout layout_;
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
