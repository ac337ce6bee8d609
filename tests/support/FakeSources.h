#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "graphics/Compositor.h"
#include "graphics/PixelBuffer.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// A picture of one colour.
inline std::shared_ptr<PixelBuffer> plainPicture(Size size, Compositor::Color color = {}) {
  auto picture = std::make_shared<PixelBuffer>(size, true);
  Compositor::fill(picture->span(), color);
  return picture;
}

/// Emits what a test tells it to, and counts how it was treated.
class ManualSource : public FrameSource {
 public:
  struct Controls {
    ContentKind kind = ContentKind::live;
    std::function<void()> onStart;
    std::function<void()> onStop;
    std::function<bool()> onTrack;

    std::atomic<int> starts = 0;
    std::atomic<int> stops = 0;

    bool running() {
      const std::lock_guard lock(mutex);
      return emitter != nullptr;
    }

    void emit(FramePtr frame) {
      Emit target;
      {
        const std::lock_guard lock(mutex);
        target = emitter;
      }
      if (target) target(std::move(frame));
    }

    std::mutex mutex;
    Emit emitter;
  };

  explicit ManualSource(std::shared_ptr<Controls> controls) : controls_(std::move(controls)) {}

  ContentKind kind() const noexcept override { return controls_->kind; }
  void start(Emit emit) override {
    if (controls_->onStart) controls_->onStart();
    {
      const std::lock_guard lock(controls_->mutex);
      controls_->emitter = std::move(emit);
    }
    started_ = true;
    ++controls_->starts;
  }
  void stop() override {
    if (controls_->onStop) controls_->onStop();
    if (started_) {
      const std::lock_guard lock(controls_->mutex);
      controls_->emitter = nullptr;
    }
    ++controls_->stops;
  }

 private:
  std::shared_ptr<Controls> controls_;
  bool started_ = false;
};

/// Remembers every frame it gets.
class RecordingSink : public FrameSink {
 public:
  void deliver(const FramePtr& frame, ContentKind kind) noexcept override {
    if (onDeliver) onDeliver(frame);
    const std::lock_guard lock(mutex_);
    frames_.push_back(frame);
    kind_ = kind;
  }

  std::vector<FramePtr> frames() const {
    const std::lock_guard lock(mutex_);
    return frames_;
  }
  std::size_t count() const { return frames().size(); }
  ContentKind kind() const {
    const std::lock_guard lock(mutex_);
    return kind_;
  }

  std::function<void(const FramePtr&)> onDeliver;

 private:
  mutable std::mutex mutex_;
  std::vector<FramePtr> frames_;
  ContentKind kind_ = ContentKind::live;
};

}  // namespace lenslark
