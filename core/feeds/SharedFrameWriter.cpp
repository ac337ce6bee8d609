#include "feeds/SharedFrameWriter.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>

#include "base/Clock.h"
#include "base/PosixError.h"
#include "feeds/FrameFileOpening.h"
#include "graphics/Compositor.h"

namespace lenslark {
namespace {

// Readers in other processes look at every field at any time: each is loaded and stored whole.
// Counters and the front slot are ordered against the pixels as well.

template <typename T>
T get(T& field) noexcept {
  return std::atomic_ref(field).load(std::memory_order_relaxed);
}

template <typename T>
void put(T& field, T value) noexcept {
  std::atomic_ref(field).store(value, std::memory_order_relaxed);
}

/// Between two full barriers: what stands before it is visible before it, what stands after it is
/// visible after it.
template <typename T>
void putInOrder(T& field, T value) noexcept {
  __sync_synchronize();
  std::atomic_ref(field).store(value, std::memory_order_release);
  __sync_synchronize();
}

/// The first even value after a counter that an older writer left, odd if it died in a frame.
std::uint64_t nextEven(std::uint64_t counter) noexcept { return (counter & ~std::uint64_t{1}) + 2; }

std::uint32_t ownPid() noexcept { return static_cast<std::uint32_t>(::getpid()); }

/// False in doubt.
bool isGone(std::uint32_t pid) noexcept {
  return ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH;
}

std::size_t slotCapacity(const std::string& path, int maxWidth, int maxHeight) {
  constexpr std::int64_t mostPixels = std::int64_t{1} << 28;
  const std::int64_t pixels = std::int64_t{maxWidth} * maxHeight;
  if (maxWidth <= 0 || maxHeight <= 0 || pixels > mostPixels) throw posixError(EINVAL, path);
  return static_cast<std::size_t>(pixels) * LL_FRAME_BYTES_PER_PIXEL;
}

}  // namespace

SharedFrameWriter::SharedFrameWriter(const std::string& path, int maxWidth, int maxHeight,
                                     LLCamera camera, std::size_t room)
    : path_(path),
      capacity_(slotCapacity(path, maxWidth, maxHeight)),
      camera_(camera),
      room_(std::min(room, capacity_)) {
  const std::size_t secondSlot = LL_FRAME_DATA_OFFSET + capacity_;
  file_ = FrameFileOpening::openPrivate(path);
  mapping_ = FrameFileOpening::mapWhole(file_, path, secondSlot + capacity_,
                                        {{0, LL_FRAME_DATA_OFFSET + room_}, {secondSlot, room_}});
  writeHeader();
}

SharedFrameWriter::~SharedFrameWriter() { close(); }

void SharedFrameWriter::close() noexcept {
  if (!isWhole()) return;
  // Another process may have taken the file over meanwhile: then it is that one's to close.
  std::uint32_t pid = ownPid();
  std::atomic_ref(header().writerPid).compare_exchange_strong(pid, 0);
}

void SharedFrameWriter::writeHeader() noexcept {
  LLFrameHeader& head = header();
  const bool known = get(head.magic) == LL_FRAME_MAGIC;
  const bool hasSlots = known && get(head.version) >= LL_FRAME_VERSION;
  // First the old frames go out of sight, then the counters tell.
  put(head.width, 0U);
  put(head.height, 0U);
  put(head.bytesPerRow, 0U);
  for (LLFrameSlot& slot : head.slots) {
    put(slot.width, 0U);
    put(slot.height, 0U);
    put(slot.bytesPerRow, 0U);
    put(slot.contentKind, LLContentKind{LLContentKindLive});
    put(slot.timestamp, std::uint64_t{0});
  }
  put(head.timestamp, std::uint64_t{0});
  put(head.heartbeat, std::uint64_t{0});
  put(head.contentKind, LLContentKind{LLContentKindLive});
  put(head.frontSlot, 0U);
  put(head.isStill, 0U);
  describeFile();
  put(head.writerPid, ownPid());
  if (!known) put(head.sceneMode, LLSceneMode{LLSceneModeFit});
  for (LLFrameSlot& slot : head.slots) {
    putInOrder(slot.seq, hasSlots ? nextEven(get(slot.seq)) : 0);
  }
  putInOrder(head.sequence, known ? nextEven(get(head.sequence)) : 0);
  // A fresh file is a frame file only when all of its header stands.
  signFile();
}

void SharedFrameWriter::describeFile() noexcept {
  LLFrameHeader& head = header();
  put(head.camera, camera_);
  put(head.dataOffset, std::uint32_t{LL_FRAME_DATA_OFFSET});
  put(head.slotCapacity, std::uint64_t{capacity_});
}

void SharedFrameWriter::signFile() noexcept {
  LLFrameHeader& head = header();
  putInOrder(head.version, std::uint32_t{LL_FRAME_VERSION});
  putInOrder(head.magic, std::uint32_t{LL_FRAME_MAGIC});
}

bool SharedFrameWriter::isSigned() const noexcept {
  LLFrameHeader& head = header();
  return get(head.magic) == LL_FRAME_MAGIC && get(head.version) == LL_FRAME_VERSION &&
         get(head.dataOffset) == LL_FRAME_DATA_OFFSET && get(head.slotCapacity) == capacity_;
}

bool SharedFrameWriter::write(const Frame& frame, ContentKind kind) noexcept {
  return write(frame.size(), kind, [&frame](const PixelSpan& target) noexcept {
    return frame.draw(frame.bounds(), target);
  });
}

void SharedFrameWriter::heartbeat() noexcept {
  if (!isWhole() || !isOurs()) return;
  if (!isSigned()) {
    describeFile();
    signFile();
  }
  put(header().heartbeat, Clock::uptimeNanoseconds());
}

bool SharedFrameWriter::isVacant() const noexcept {
  constexpr std::uint64_t longestPause = 3'000'000'000;  // nanoseconds; six heartbeats
  if (!isTakenOver()) return false;
  const std::uint32_t pid = get(header().writerPid);
  if (pid == 0) return true;
  const std::uint64_t heartbeat = get(header().heartbeat);
  // Only just opened, by somebody who may have ended right there.
  if (heartbeat == 0) return isGone(pid);
  // Not by its process id: that may be one of another container's.
  const std::uint64_t now = Clock::uptimeNanoseconds();
  return heartbeat <= now && now - heartbeat > longestPause;
}

bool SharedFrameWriter::stillInPlace() const noexcept {
  struct stat mine {};
  struct stat there {};
  return isWhole() && ::fstat(file_.get(), &mine) == 0 && ::lstat(path_.c_str(), &there) == 0 &&
         mine.st_dev == there.st_dev && mine.st_ino == there.st_ino;
}

LLSceneMode SharedFrameWriter::sceneMode() const noexcept {
  return isWhole() ? get(header().sceneMode) : LLSceneMode{LLSceneModeFit};
}

void SharedFrameWriter::setSceneMode(LLSceneMode mode) noexcept {
  if (isWhole() && isOurs()) put(header().sceneMode, mode);
}

LLFrameHeader& SharedFrameWriter::header() const noexcept {
  return *reinterpret_cast<LLFrameHeader*>(mapping_.data());
}

bool SharedFrameWriter::isWhole() const noexcept {
  struct stat status {};
  return ::fstat(file_.get(), &status) == 0 &&
         static_cast<std::uint64_t>(status.st_size) >= mapping_.size();
}

bool SharedFrameWriter::isOurs() const noexcept { return get(header().writerPid) == ownPid(); }

bool SharedFrameWriter::fits(Size size) const noexcept {
  if (size.empty()) return false;
  const auto rowBytes = static_cast<std::uint64_t>(size.width) * LL_FRAME_BYTES_PER_PIXEL;
  return rowBytes <= std::numeric_limits<std::uint32_t>::max() &&
         static_cast<std::uint64_t>(size.height) <= capacity_ / rowBytes;
}

bool SharedFrameWriter::hasRoom(Size size) noexcept {
  const std::size_t needed = static_cast<std::size_t>(size.width) *
                             static_cast<std::size_t>(size.height) * LL_FRAME_BYTES_PER_PIXEL;
  return needed <= room_ || makeRoom(needed);
}

/// In both slots: the next frame is of the same size, most likely.
bool SharedFrameWriter::makeRoom(std::size_t bytes) noexcept {
  // Not for a few rows at a time, while a window is being made larger.
  constexpr std::size_t step = std::size_t{1} << 20;
  const std::size_t room = std::min((bytes + step - 1) / step * step, capacity_);
  for (const std::size_t slot : {std::size_t{0}, capacity_}) {
    if (FrameFileOpening::reserve(file_, {LL_FRAME_DATA_OFFSET + slot + room_, room - room_}) == 0)
      continue;
    missingRoom_ = room;
    return false;
  }
  room_ = room;
  if (missingRoom_ <= room) missingRoom_ = 0;
  return true;
}

std::uint32_t SharedFrameWriter::frontSlot() const noexcept { return get(header().frontSlot) & 1U; }

PixelSpan SharedFrameWriter::slotPixels(std::uint32_t slot, Size size) const noexcept {
  std::byte* const pixels = mapping_.data() + LL_FRAME_DATA_OFFSET + slot * capacity_;
  return {reinterpret_cast<std::uint8_t*>(pixels), size, std::ptrdiff_t{size.width} * 4};
}

PixelSpan SharedFrameWriter::beginSlot(std::uint32_t slot, Size size) noexcept {
  LLFrameHeader& head = header();
  putInOrder(head.slots[slot].seq, get(head.slots[slot].seq) | 1U);
  if (slot == 0) putInOrder(head.sequence, get(head.sequence) | 1U);
  return slotPixels(slot, size);
}

void SharedFrameWriter::endSlot(std::uint32_t slot, Size size, ContentKind kind) noexcept {
  LLFrameHeader& head = header();
  LLFrameSlot& descriptor = head.slots[slot];
  const std::uint64_t now = Clock::uptimeNanoseconds();
  const auto width = static_cast<std::uint32_t>(size.width);
  const auto height = static_cast<std::uint32_t>(size.height);
  put(descriptor.width, width);
  put(descriptor.height, height);
  put(descriptor.bytesPerRow, width * LL_FRAME_BYTES_PER_PIXEL);
  put(descriptor.contentKind, static_cast<LLContentKind>(kind));
  put(descriptor.timestamp, now);
  if (slot == 0) {
    put(head.width, width);
    put(head.height, height);
    put(head.bytesPerRow, width * LL_FRAME_BYTES_PER_PIXEL);
    put(head.timestamp, now);
    putInOrder(head.sequence, get(head.sequence) + 1);
  }
  putInOrder(descriptor.seq, get(descriptor.seq) + 1);
}

void SharedFrameWriter::publish(std::uint32_t slot, ContentKind kind) noexcept {
  LLFrameHeader& head = header();
  put(head.contentKind, static_cast<LLContentKind>(kind));
  put(head.isStill, kind == ContentKind::still ? 1U : 0U);
  put(head.heartbeat, Clock::uptimeNanoseconds());
  // Last: whoever sees the new front finds a whole frame there.
  putInOrder(head.frontSlot, slot);
}

void SharedFrameWriter::repeatInFirstSlot(Size size, ContentKind kind) noexcept {
  const PixelSpan second = slotPixels(1, size);
  Compositor::copy(second, beginSlot(0, size));
  endSlot(0, size, kind);
}

}  // namespace lenslark
