#include "feeds/FeedOutput.h"

#include <new>
#include <utility>

#include "graphics/Compositor.h"

namespace lenslark {
namespace {

constexpr Compositor::Color black{};

/// Blackens what a picture leaves of its frame, and only that.
void drawBars(const PixelSpan& frame, const PixelRect& picture) noexcept {
  const int right = picture.x + picture.width;
  const int bottom = picture.y + picture.height;
  const Size size = frame.size;
  Compositor::fill(frame.part({0, 0, size.width, picture.y}), black);
  Compositor::fill(frame.part({0, bottom, size.width, size.height - bottom}), black);
  Compositor::fill(frame.part({0, picture.y, picture.x, picture.height}), black);
  Compositor::fill(frame.part({right, picture.y, size.width - right, picture.height}), black);
}

}  // namespace

FeedOutput::FeedOutput(const std::string& path, LLCamera camera, int maxSide, std::size_t room)
    : maxSide_(maxSide), writer_(path, maxSide, maxSide, camera, room) {}

void FeedOutput::deliver(const FramePtr& frame, ContentKind kind) noexcept {
  if (!frame) return;
  const std::lock_guard guard(lock_);
  last_ = frame;
  lastKind_ = kind;
  writeLocked(*frame, kind);
}

void FeedOutput::update(const Style& style, std::shared_ptr<const PixelBuffer> overlayImage) {
  const std::lock_guard guard(lock_);
  if (style == style_ && overlayImage == overlayImage_) return;
  style_ = style;
  overlayImage_ = std::move(overlayImage);
  overlay_ = {};
  if (last_) writeLocked(*last_, lastKind_);
}

void FeedOutput::setSceneMode(LLSceneMode mode) {
  const std::lock_guard guard(lock_);
  writer_.setSceneMode(mode);
}

void FeedOutput::heartbeat() noexcept { writer_.heartbeat(); }

bool FeedOutput::stillInPlace() const noexcept { return writer_.stillInPlace(); }

bool FeedOutput::isTakenOver() const noexcept { return writer_.isTakenOver(); }

bool FeedOutput::isVacant() const noexcept { return writer_.isVacant(); }

std::size_t FeedOutput::missingRoom() const noexcept { return writer_.missingRoom(); }

const std::string& FeedOutput::path() const noexcept { return writer_.path(); }

void FeedOutput::close() noexcept {
  const std::lock_guard guard(lock_);
  writer_.close();
}

void FeedOutput::writeLocked(const Frame& frame, ContentKind kind) noexcept {
  const bool unchanged =
      !onCanvasLocked() && !hasOverlayLocked() && frame.size().longerSide() <= maxSide_;
  if (unchanged || !composeLocked(frame, kind)) writer_.write(frame, kind);
}

bool FeedOutput::composeLocked(const Frame& frame, ContentKind kind) noexcept {
  const std::optional<FrameLayout::Plan> plan =
      onCanvasLocked() ? FrameLayout::planOnCanvas(frame.size(), style_.fill, maxSide_)
                       : FrameLayout::planWhole(frame.size(), maxSide_);
  if (!plan) return false;
  readyOverlayLocked(plan->output);
  return writer_.write(plan->output, kind, [&](const PixelSpan& target) noexcept {
    const PixelSpan place = target.part(plan->picture.target);
    if (!frame.draw(plan->picture.source, place)) return false;
    if (plan->leavesBars()) drawBars(target, plan->picture.target);
    // The canvas is black and whole: what shines through a picture on it is black as well.
    if (onCanvasLocked() && !frame.opaque()) Compositor::makeOpaque(place);
    if (overlay_.picture) {
      Compositor::blend(overlay_.picture->view(), target, overlay_.x, overlay_.y,
                        onCanvasLocked() || frame.opaque());
    }
    return true;
  });
}

void FeedOutput::readyOverlayLocked(Size frame) noexcept {
  if (!hasOverlayLocked() || overlay_.frame == frame) return;
  try {
    overlay_ = makeOverlayLocked(frame);
  } catch (const std::bad_alloc&) {
    // The picture itself matters more; the next frame tries again.
    overlay_ = {};
  }
}

FeedOutput::ReadyOverlay FeedOutput::makeOverlayLocked(Size frame) const {
  const OverlaySpec& spec = *style_.overlay;
  const Rect region = FrameLayout::overlayRegion(frame, style_.android, style_.fill);
  const std::optional<Placement> placement =
      FrameLayout::placeOverlay(overlayImage_->size(), spec, region, frame);
  ReadyOverlay ready{.frame = frame};
  if (!placement || spec.opacity <= 0) return ready;
  auto picture = std::make_shared<PixelBuffer>(placement->target.size());
  if (!overlayImage_->draw(placement->source, picture->span())) return ready;
  if (spec.opacity < 1) Compositor::fade(picture->span(), spec.opacity);
  ready.picture = std::move(picture);
  ready.x = placement->target.x;
  ready.y = placement->target.y;
  return ready;
}

}  // namespace lenslark
