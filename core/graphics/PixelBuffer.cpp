#include "graphics/PixelBuffer.h"

#include <algorithm>
#include <limits>
#include <memory_resource>
#include <new>
#include <utility>
#include <vector>

#include "graphics/Compositor.h"

namespace lenslark {
namespace {

constexpr std::align_val_t alignment{64};

std::uint8_t* allocatePixels(std::size_t stride, int height) {
  const auto rows = static_cast<std::size_t>(std::max(height, 0));
  if (rows != 0 && stride > std::numeric_limits<std::ptrdiff_t>::max() / rows) {
    throw std::bad_array_new_length();
  }
  return static_cast<std::uint8_t*>(
      ::operator new(std::max<std::size_t>(stride * rows, 1), alignment));
}

std::size_t tightStride(Size size) noexcept {
  return static_cast<std::size_t>(std::max(size.width, 0)) * 4;
}

}  // namespace

PixelBuffer::PixelBuffer(Size size, bool opaque) : PixelBuffer(size, opaque, tightStride(size)) {}

PixelBuffer::PixelBuffer(Size size, bool opaque, std::size_t stride)
    : data_(allocatePixels(std::max(stride, tightStride(size)), size.height)),
      size_(size),
      stride_(static_cast<std::ptrdiff_t>(std::max(stride, tightStride(size)))),
      opaque_(opaque) {}

PixelBuffer::~PixelBuffer() { ::operator delete(data_, alignment); }

bool PixelBuffer::draw(const PixelRect& part, const PixelSpan& target) const noexcept {
  const PixelView source = view().part(part);
  if (source.size == target.size) {
    Compositor::copy(source, target);
    return true;
  }
  using Compositor::Alpha;
  return Compositor::scale(source, target, opaque_ ? Alpha::opaque : Alpha::scaled);
}

std::shared_ptr<PixelBuffer> materialize(const Frame& frame) {
  auto buffer = std::make_shared<PixelBuffer>(frame.size(), frame.opaque());
  return frame.draw(frame.bounds(), buffer->span()) ? buffer : nullptr;
}

/// Shared by the pool and the deleters of the buffers in use, so that either may go first. The
/// small block that each shared_ptr needs is kept for the next one as well.
struct PixelBufferPool::State {
  State(Size itsSize, bool itsOpaque) : size(itsSize), opaque(itsOpaque) {}

  const Size size;
  const bool opaque;

  std::mutex mutex;
  std::vector<std::unique_ptr<PixelBuffer>> free;      ///< Guarded by mutex.
  std::pmr::unsynchronized_pool_resource countBlocks;  ///< Guarded by mutex.

  template <typename T>
  struct Allocator {
    using value_type = T;

    explicit Allocator(std::shared_ptr<State> state) noexcept : pool(std::move(state)) {}
    template <typename U>
    Allocator(const Allocator<U>& other) noexcept : pool(other.pool) {}

    T* allocate(std::size_t count) {
      const std::lock_guard lock(pool->mutex);
      return static_cast<T*>(pool->countBlocks.allocate(count * sizeof(T), alignof(T)));
    }
    void deallocate(T* block, std::size_t count) noexcept {
      const std::lock_guard lock(pool->mutex);
      pool->countBlocks.deallocate(block, count * sizeof(T), alignof(T));
    }
    template <typename U>
    bool operator==(const Allocator<U>& other) const noexcept {
      return pool == other.pool;
    }

    std::shared_ptr<State> pool;
  };
};

PixelBufferPool::PixelBufferPool(Size size, bool opaque)
    : state_(std::make_shared<State>(size, opaque)) {}

PixelBufferPool::~PixelBufferPool() = default;

Size PixelBufferPool::size() const noexcept { return state_->size; }

bool PixelBufferPool::opaque() const noexcept { return state_->opaque; }

std::shared_ptr<PixelBuffer> PixelBufferPool::take() {
  std::unique_ptr<PixelBuffer> buffer;
  {
    const std::lock_guard lock(state_->mutex);
    if (!state_->free.empty()) {
      buffer = std::move(state_->free.back());
      state_->free.pop_back();
    } else {
      // Room for this buffer's return, which must not fail.
      state_->free.reserve(state_->free.capacity() + 1);
    }
  }
  if (!buffer) buffer = std::make_unique<PixelBuffer>(state_->size, state_->opaque);
  const auto giveBack = [state = state_](PixelBuffer* used) noexcept {
    const std::lock_guard lock(state->mutex);
    state->free.emplace_back(used);
  };
  return {buffer.release(), giveBack, State::Allocator<PixelBuffer>(state_)};
}

}  // namespace lenslark
