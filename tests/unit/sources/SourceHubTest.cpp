#include "sources/SourceHub.h"

#include <gtest/gtest.h>

#include <future>
#include <latch>
#include <thread>

#include "base/Error.h"
#include "support/Eventually.h"
#include "support/FakeSources.h"
#include "support/PlanarPicture.h"

namespace lenslark {
namespace {

/// Starts and stops on a queue of its own, as sources do whose pictures wait for disks.
class QueuedSource final : public FrameSource {
 public:
  explicit QueuedSource(std::latch& everybody) : everybody_(everybody) {}

  ContentKind kind() const noexcept override { return ContentKind::still; }
  void start(Emit) override {
    everybody_.arrive_and_wait();
    queue_.sync([] {});
  }
  void stop() override {
    queue_.sync([] {});
  }

 private:
  std::latch& everybody_;
  SerialQueue queue_{"source", SerialQueue::Lane::blocking};
};

class SourceHubTest : public testing::Test {
 protected:
  void startAndWait() {
    hub->start();
    ASSERT_TRUE(eventually([&] { return controls->starts == 1; }));
  }

  std::shared_ptr<ManualSource::Controls> controls = std::make_shared<ManualSource::Controls>();
  std::shared_ptr<SourceHub> hub =
      std::make_shared<SourceHub>("key", std::make_unique<ManualSource>(controls));
};

TEST_F(SourceHubTest, asManyAsThereAreThreadsStartAndStopAtOnce) {
  const auto count = std::max(8U, 4 * std::thread::hardware_concurrency());
  std::latch everybody(count);
  std::vector<std::shared_ptr<SourceHub>> hubs;
  std::vector<std::future<void>> stopped;
  for (unsigned i = 0; i < count; ++i) {
    hubs.push_back(std::make_shared<SourceHub>("key", std::make_unique<QueuedSource>(everybody)));
    hubs.back()->start();
  }
  everybody.wait();
  for (const auto& each : hubs) stopped.push_back(each->stop());
  for (const auto& result : stopped) {
    EXPECT_EQ(result.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  }
}

TEST_F(SourceHubTest, startsNothingBeforeStart) {
  hub->add(std::make_shared<RecordingSink>());
  EXPECT_EQ(controls->starts, 0);
}

TEST_F(SourceHubTest, handsEveryFrameToEverySink) {
  const auto first = std::make_shared<RecordingSink>();
  const auto second = std::make_shared<RecordingSink>();
  hub->add(first);
  hub->add(second);
  startAndWait();
  const auto picture = plainPicture({2, 2});
  controls->emit(picture);
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(first->count(), 2U);
  EXPECT_EQ(second->count(), 2U);
  EXPECT_EQ(second->frames()[0], picture);
}

TEST_F(SourceHubTest, tellsSinksTheSourcesKind) {
  controls->kind = ContentKind::video;
  hub = std::make_shared<SourceHub>("key", std::make_unique<ManualSource>(controls));
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  startAndWait();
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(sink->kind(), ContentKind::video);
}

TEST_F(SourceHubTest, givesTheLatestFrameToASinkThatJoinsLater) {
  startAndWait();
  controls->emit(plainPicture({2, 2}));
  const auto latest = plainPicture({2, 2});
  controls->emit(latest);
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  ASSERT_EQ(sink->count(), 1U);
  EXPECT_EQ(sink->frames()[0], latest);
}

TEST_F(SourceHubTest, countsFramesWithoutSinksToo) {
  startAndWait();
  EXPECT_EQ(hub->frames(), 0U);
  controls->emit(plainPicture({2, 2}));
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(hub->frames(), 2U);
}

TEST_F(SourceHubTest, leavesARemovedSinkAlone) {
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  startAndWait();
  hub->remove(*sink);
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(sink->count(), 0U);
  EXPECT_FALSE(hub->hasSinks());
}

TEST_F(SourceHubTest, removingAStrangerIsHarmless) {
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  hub->remove(RecordingSink());
  EXPECT_TRUE(hub->hasSinks());
}

TEST_F(SourceHubTest, addingASinkTwiceKeepsItOnce) {
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  hub->add(sink);
  startAndWait();
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(sink->count(), 1U);
}

TEST_F(SourceHubTest, holdsItsSinksWeakly) {
  auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  startAndWait();
  const std::weak_ptr<RecordingSink> watch = sink;
  sink.reset();
  EXPECT_TRUE(watch.expired());
  EXPECT_FALSE(hub->hasSinks());
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(hub->frames(), 1U);
}

TEST_F(SourceHubTest, removalWaitsForADeliveryUnderWay) {
  const auto sink = std::make_shared<RecordingSink>();
  std::latch inside(1);
  std::latch go(1);
  sink->onDeliver = [&](const FramePtr&) {
    inside.count_down();
    go.wait();
  };
  hub->add(sink);
  startAndWait();
  std::jthread emitter([&] { controls->emit(plainPicture({2, 2})); });
  inside.wait();
  auto removal = std::async(std::launch::async, [&] { hub->remove(*sink); });
  EXPECT_EQ(removal.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  go.count_down();
  removal.get();
  EXPECT_EQ(sink->count(), 1U);
}

TEST_F(SourceHubTest, noFrameFollowsARemoval) {
  startAndWait();
  const std::jthread emitter([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) controls->emit(plainPicture({1, 1}));
  });
  for (int round = 0; round < 500; ++round) {
    const auto sink = std::make_shared<RecordingSink>();
    hub->add(sink);
    hub->remove(*sink);
    const auto before = sink->count();
    std::this_thread::yield();
    ASSERT_EQ(sink->count(), before);
  }
}

TEST_F(SourceHubTest, aSinkGetsItsFramesInOrderAndEndsWithTheNewest) {
  startAndWait();
  std::vector<FramePtr> frames;
  for (int i = 0; i < 2000; ++i) frames.push_back(plainPicture({1, 1}));
  std::vector<std::shared_ptr<RecordingSink>> sinks;
  std::jthread emitter([&] {
    for (const auto& frame : frames) controls->emit(frame);
  });
  for (int i = 0; i < 50; ++i) {
    sinks.push_back(std::make_shared<RecordingSink>());
    hub->add(sinks.back());
    std::this_thread::yield();
  }
  emitter.join();
  for (const auto& sink : sinks) {
    const auto seen = sink->frames();
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), frames.back());
    auto position = frames.begin();
    for (const auto& frame : seen) {
      position = std::find(position, frames.end(), frame);
      ASSERT_NE(position, frames.end()) << "a frame came out of order";
    }
  }
}

TEST_F(SourceHubTest, aBusySinkDoesNotHoldUpAdding) {
  const auto slow = std::make_shared<RecordingSink>();
  std::latch inside(1);
  std::latch go(1);
  slow->onDeliver = [&](const FramePtr&) {
    inside.count_down();
    go.wait();
  };
  hub->add(slow);
  startAndWait();
  const auto picture = plainPicture({2, 2});
  std::jthread emitter([&] { controls->emit(picture); });
  inside.wait();
  const auto quick = std::make_shared<RecordingSink>();
  hub->add(quick);
  EXPECT_EQ(quick->frames().front(), picture);
  go.count_down();
}

TEST_F(SourceHubTest, aSourceThatIsQuickerThanASinkDoesNotKeepWhoeverAddsIt) {
  startAndWait();
  controls->emit(plainPicture({1, 1}));
  const auto slow = std::make_shared<RecordingSink>();
  std::atomic<bool> joined = false;
  std::atomic<bool> emitting = true;
  std::atomic<std::thread::id> emitterId;
  slow->onDeliver = [&](const FramePtr&) {
    joined = true;
    joined.notify_all();
    if (std::this_thread::get_id() == emitterId) return;
    // As long as the source takes for two more, unless it waits for this one.
    const auto before = hub->frames();
    eventually([&] { return hub->frames() >= before + 2 || !emitting; },
               std::chrono::milliseconds(500));
  };
  auto added = std::async(std::launch::async, [&] { hub->add(slow); });
  std::jthread emitter([&] {
    emitterId = std::this_thread::get_id();
    joined.wait(false);
    while (emitting) controls->emit(plainPicture({1, 1}));
  });
  EXPECT_EQ(added.wait_for(std::chrono::seconds(15)), std::future_status::ready);
  emitting = false;
}

TEST_F(SourceHubTest, keepsTheErrorOfASourceThatCannotStart) {
  controls->onStart = [] { throw Error("no such picture"); };
  hub->start();
  ASSERT_TRUE(eventually([&] { return hub->error().has_value(); }));
  EXPECT_EQ(*hub->error(), "no such picture");
}

TEST_F(SourceHubTest, aFailedSourceKeepsItsSinks) {
  controls->onStart = [] { throw Error("no such picture"); };
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  hub->start();
  ASSERT_TRUE(eventually([&] { return hub->error().has_value(); }));
  EXPECT_TRUE(hub->hasSinks());
}

TEST_F(SourceHubTest, stopsTheSourceAfterAStartThatIsUnderWay) {
  std::latch begun(1);
  std::latch go(1);
  controls->onStart = [&] {
    begun.count_down();
    go.wait();
  };
  hub->start();
  begun.wait();
  auto stopped = hub->stop();
  EXPECT_EQ(controls->stops, 0);
  go.count_down();
  stopped.get();
  EXPECT_EQ(controls->stops, 1);
}

TEST_F(SourceHubTest, neverStartsASourceThatWasStoppedBefore) {
  hub->stop().get();
  hub->start();
  hub->stop().get();
  EXPECT_EQ(controls->starts, 0);
}

TEST_F(SourceHubTest, passesNothingOnAfterStop) {
  std::latch go(1);
  controls->onStop = [&] { go.wait(); };
  const auto sink = std::make_shared<RecordingSink>();
  hub->add(sink);
  startAndWait();
  auto stopped = hub->stop();
  controls->emit(plainPicture({2, 2}));
  EXPECT_EQ(sink->count(), 0U);
  go.count_down();
  stopped.get();
}

TEST_F(SourceHubTest, livesUntilItsSourceHasStopped) {
  startAndWait();
  std::latch go(1);
  controls->onStop = [&] { go.wait(); };
  auto stopped = hub->stop();
  hub.reset();
  go.count_down();
  stopped.get();
  EXPECT_EQ(controls->stops, 1);
}

TEST_F(SourceHubTest, stopsASourceThatNobodyHoldsAnyMore) {
  startAndWait();
  hub.reset();
  EXPECT_TRUE(eventually([&] { return controls->stops == 1; }));
}

/// Of a picture of this size four sinks are worth sharing, and three are not.
constexpr Size fullHd{1920, 1080};

class SharingSourceHubTest : public SourceHubTest {
 protected:
  /// Emits to so many sinks; returns what each of them got.
  std::vector<FramePtr> emitTo(std::size_t count, const FramePtr& frame) {
    std::vector<std::shared_ptr<RecordingSink>> sinks;
    for (std::size_t i = 0; i < count; ++i) {
      sinks.push_back(std::make_shared<RecordingSink>());
      hub->add(sinks.back());
    }
    startAndWait();
    controls->emit(frame);
    std::vector<FramePtr> got;
    for (const auto& sink : sinks) got.push_back(sink->frames().at(0));
    return got;
  }
};

TEST_F(SharingSourceHubTest, drawsALargePictureOnceForAllWhoWantIt) {
  const auto frame = std::make_shared<PlanarPicture>(fullHd);
  for (const FramePtr& got : emitTo(4, frame)) {
    PixelBuffer shown(fullHd);
    ASSERT_TRUE(got->draw(got->bounds(), shown.span()));
    EXPECT_EQ(shown.view().row(1)[0], 3);
  }
  EXPECT_EQ(frame->drawn, 1);
}

TEST_F(SharingSourceHubTest, leavesDrawingToFewSinks) {
  const auto frame = std::make_shared<PlanarPicture>(fullHd);
  EXPECT_EQ(emitTo(3, frame)[0], frame);
  EXPECT_EQ(frame->drawn, 0);
}

TEST_F(SharingSourceHubTest, leavesDrawingASmallPictureToItsSinks) {
  const auto frame = std::make_shared<PlanarPicture>(Size{4, 2});
  EXPECT_EQ(emitTo(20, frame)[19], frame);
  EXPECT_EQ(frame->drawn, 0);
}

}  // namespace
}  // namespace lenslark
