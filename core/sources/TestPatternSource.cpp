#include "sources/TestPatternSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <map>
#include <mutex>
#include <utility>

#include "base/Log.h"
#include "codecs/Modules.h"
#include "graphics/PixelBuffer.h"
#include "sources/TestPattern.h"

namespace lenslark {
namespace {

constexpr int maxFps = 240;
// The closest face to it is taken where it is not installed; the list keeps that one monospaced.
constexpr const char* captionFont = "Menlo,DejaVu Sans Mono,monospace Bold";

using TimeText = std::array<char, 16>;

/// The local time as "HH:mm:ss.SSS".
std::string_view timeText(std::chrono::system_clock::time_point now, TimeText& buffer) noexcept {
  using namespace std::chrono;
  const auto seconds = floor<std::chrono::seconds>(now);
  const std::time_t time = system_clock::to_time_t(seconds);
  std::tm local{};
  ::localtime_r(&time, &local);
  const auto end = fmt::format_to_n(buffer.data(), buffer.size(), "{:02}:{:02}:{:02}.{:03}",
                                    local.tm_hour, local.tm_min, local.tm_sec,
                                    duration_cast<milliseconds>(now - seconds).count());
  return {buffer.data(), std::min(end.size, buffer.size())};
}

}  // namespace

struct TestPatternSource::Rendering {
  Rendering(Size pictureSize, std::string text, FrameHandler handler)
      : size(pictureSize), qrText(std::move(text)), onFrame(std::move(handler)) {}

  void prepare() {
    pattern.emplace(size, qrText);
    pool.emplace(size, true);
    shown.clear();
    try {
      auto& renderer = Modules::textRenderer();
      const double em = pattern->captionSize();
      pattern->setLetters(renderer.render(captionFont, em, TestPattern::captionText),
                          renderer.render(captionFont, em, TestPattern::captionDigits));
    } catch (const std::exception& error) {
      Log::router().error("test pattern without caption: {}", error.what());
      const std::lock_guard lock(mutex);
      problem = "test pattern without caption: " + std::string(error.what());
    }
  }

  void renderFrame() {
    if (!running) return;
    auto buffer = pool->take();
    TimeText text;
    const auto time = timeText(std::chrono::system_clock::now(), text);
    ++number;
    // Nobody but us draws into the pool's buffers, and it keeps them all while it lives: each still
    // shows what it showed last.
    auto [known, fresh] = shown.try_emplace(buffer.get(), number);
    if (fresh)
      pattern->draw(buffer->span(), number, time);
    else
      pattern->redraw(buffer->span(), std::exchange(known->second, number), number, time);
    onFrame(std::move(buffer));
  }

  const Size size;
  const std::string qrText;
  const FrameHandler onFrame;

  // The queue's.
  std::optional<TestPattern> pattern;
  std::optional<PixelBufferPool> pool;
  std::map<const PixelBuffer*, std::uint64_t> shown;  // the number of each buffer's frame
  std::uint64_t number = 0;
  bool running = false;

  std::mutex mutex;  // guards problem
  std::optional<std::string> problem;
};

// Frames are delivered on this queue, to any number of cameras: it is not timely work.
TestPatternSource::TestPatternSource(int width, int height, int fps, std::string qrText,
                                     FrameHandler onFrame)
    : rendering_(
          std::make_shared<Rendering>(Size{width, height}, std::move(qrText), std::move(onFrame))),
      queue_("lenslark.testpattern", SerialQueue::Lane::blocking),
      timer_(queue_,
             [weak = std::weak_ptr(rendering_)] {
               if (const auto rendering = weak.lock()) rendering->renderFrame();
             }),
      period_(std::chrono::nanoseconds(std::chrono::seconds(1)) / std::clamp(fps, 1, maxFps)) {}

TestPatternSource::~TestPatternSource() = default;

void TestPatternSource::start() {
  queue_.sync([this] {
    rendering_->prepare();
    rendering_->running = true;
  });
  timer_.schedule(std::chrono::nanoseconds(0), period_);
}

void TestPatternSource::stop() {
  timer_.stop();
  queue_.sync([this] { rendering_->running = false; });
}

std::optional<std::string> TestPatternSource::problem() const {
  const std::lock_guard lock(rendering_->mutex);
  return rendering_->problem;
}

}  // namespace lenslark
