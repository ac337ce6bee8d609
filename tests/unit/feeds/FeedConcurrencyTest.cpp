#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "feeds/FeedOutput.h"
#include "feeds/FeedReader.h"
#include "feeds/SharedFrameWriter.h"
#include "support/NumberedPicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using Word = std::uint64_t;
constexpr auto tortureTime = std::chrono::milliseconds(1500);

/// A frame of a number: every pixel is the number, and so are its sides in a way.
Size sizeOfFrame(std::uint32_t number) {
  return {64 + static_cast<int>(number % 5) * 32, 60 + static_cast<int>(number % 7) * 20};
}

class StampedFrame final : public Frame {
 public:
  explicit StampedFrame(std::uint32_t number) : number_(number) {}
  Size size() const noexcept override { return sizeOfFrame(number_); }
  bool opaque() const noexcept override { return true; }
  bool draw(const PixelRect& part, const PixelSpan& target) const noexcept override {
    for (int y = 0; y < part.height; ++y) {
      for (int x = 0; x < part.width; ++x) {
        std::memcpy(target.row(y) + std::ptrdiff_t{x} * 4, &number_, sizeof(number_));
      }
    }
    return true;
  }

 private:
  std::uint32_t number_;
};

TEST(FeedConcurrencyTest, aReaderNeverSeesHalfAFrame) {
  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
  SharedFrameWriter writer(path, 512, 512, LLCameraBack);
  const std::jthread producer([&](const std::stop_token& stop) {
    for (std::uint32_t number = 1; !stop.stop_requested(); ++number) {
      const auto kind = number % 3 == 0 ? ContentKind::still : ContentKind::live;
      writer.write(StampedFrame(number), kind);
    }
  });
  const auto end = std::chrono::steady_clock::now() + tortureTime;
  int whole = 0;
  std::uint32_t latest = 0;
  while (std::chrono::steady_clock::now() < end) {
    const auto image = FeedReader::image(path);
    if (!image) continue;
    ++whole;
    std::uint32_t number = 0;
    std::memcpy(&number, image->view().data, sizeof(number));
    ASSERT_EQ(image->size(), sizeOfFrame(number));
    ASSERT_GE(number, latest);
    latest = number;
    for (int y = 0; y < image->size().height; ++y) {
      for (int x = 0; x < image->size().width; ++x) {
        ASSERT_EQ(std::memcmp(image->view().row(y) + std::ptrdiff_t{x} * 4, &number, 4), 0)
            << number << " is torn at " << x << "," << y;
      }
    }
  }
  EXPECT_GT(whole, 10);
}

/// Pixels as words that two threads may touch, so that only the counters keep them apart.
void paint(const PixelSpan& target, Word value) {
  auto* const words = reinterpret_cast<Word*>(target.data);
  const int count = target.size.width * target.size.height / 2;
  for (int i = 0; i < count; ++i) {
    std::atomic_ref(words[i]).store(value, std::memory_order_relaxed);
  }
}

template <typename T>
T acquire(const std::byte* base, std::size_t offset) {
  T& field = *reinterpret_cast<T*>(const_cast<std::byte*>(base) + offset);
  return std::atomic_ref(field).load(std::memory_order_acquire);
}

TEST(FeedConcurrencyTest, theCountersKeepReaderAndWriterOfOneMappingApart) {
  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
  constexpr Size size{32, 32};
  constexpr std::size_t slotBytes = 32 * 32 * 4;
  SharedFrameWriter writer(path, size.width, size.height, LLCameraBack);
  // The first frame goes to slot 1: its pixels tell where the mapping starts.
  const std::byte* base = nullptr;
  writer.write(size, ContentKind::live, [&](const PixelSpan& target) {
    paint(target, 0);
    base = reinterpret_cast<const std::byte*>(target.data) - LL_FRAME_DATA_OFFSET - slotBytes;
    return true;
  });
  const std::jthread producer([&](const std::stop_token& stop) {
    for (Word value = 1; !stop.stop_requested(); ++value) {
      writer.write(size, ContentKind::live, [value](const PixelSpan& target) {
        paint(target, value);
        return true;
      });
    }
  });
  const std::jthread router([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) writer.heartbeat();
  });
  const auto end = std::chrono::steady_clock::now() + tortureTime;
  int whole = 0;
  while (std::chrono::steady_clock::now() < end) {
    const std::size_t front = acquire<std::uint32_t>(base, offsetof(LLFrameHeader, frontSlot));
    const std::size_t counter = offsetof(LLFrameHeader, slots) + front * sizeof(LLFrameSlot);
    const Word before = acquire<Word>(base, counter);
    if (before % 2 != 0) continue;
    const std::size_t pixels = LL_FRAME_DATA_OFFSET + front * slotBytes;
    const Word first = acquire<Word>(base, pixels);
    bool same = true;
    for (std::size_t offset = 0; offset < slotBytes; offset += sizeof(Word)) {
      same = acquire<Word>(base, pixels + offset) == first && same;
    }
    if (acquire<Word>(base, counter) != before) continue;
    ++whole;
    ASSERT_TRUE(same) << "torn at " << first;
    ASSERT_EQ(acquire<std::uint32_t>(base, counter + offsetof(LLFrameSlot, width)), 32U);
  }
  EXPECT_GT(whole, 10);
}

TEST(FeedConcurrencyTest, framesStylesAndHeartbeatsMayComeTogether) {
  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
  FeedOutput output(path, LLCameraDevice, 256);
  const auto picture = uniformPicture({8, 8}, {0, 0, 255, 255});
  std::atomic<bool> done = false;
  std::jthread source([&] {
    const auto frame = numberedPicture({200, 120});
    do {
      output.deliver(frame, ContentKind::live);
    } while (!done);
  });
  std::jthread timer([&] {
    while (!done) {
      output.heartbeat();
      EXPECT_TRUE(output.stillInPlace());
    }
  });
  for (int round = 0; round < 300; ++round) {
    FeedOutput::Style style{.android = round % 2 == 0, .fill = round % 3 == 0};
    if (round % 5 != 0) style.overlay = OverlaySpec{.media = "m", .scale = 0.3, .opacity = 0.5};
    output.update(style, picture);
    output.setSceneMode(round % 2 == 0 ? LLSceneModeFill : LLSceneModeFit);
  }
  done = true;
  source.join();
  const auto image = FeedReader::image(path);
  ASSERT_NE(image, nullptr);
  EXPECT_LE(image->size().longerSide(), 256);
}

}  // namespace
}  // namespace lenslark
