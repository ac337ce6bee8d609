#include "base/SerialQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <iterator>
#include <latch>
#include <stdexcept>
#include <thread>
#include <vector>

#include "support/Eventually.h"

namespace lenslark {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST(SerialQueueTest, runsItemsInOrder) {
  SerialQueue queue("test");
  std::vector<int> order;
  for (int index = 0; index < 1000; ++index) {
    queue.post([&order, index] { order.push_back(index); });
  }
  queue.sync([] {});
  ASSERT_EQ(order.size(), 1000U);
  EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(SerialQueueTest, runsOneItemAtATimeWhoeverPosts) {
  SerialQueue queue("test");
  int counter = 0;  // no lock: the queue is one
  {
    std::vector<std::jthread> posters;
    for (int poster = 0; poster < 4; ++poster) {
      posters.emplace_back([&] {
        for (int index = 0; index < 500; ++index) queue.post([&] { counter += 1; });
      });
    }
  }
  EXPECT_EQ(queue.sync([&] { return counter; }), 2000);
}

TEST(SerialQueueTest, returnsWhatASyncBodyReturns) {
  SerialQueue queue("test");
  EXPECT_EQ(queue.sync([] { return std::string("x"); }), "x");
}

TEST(SerialQueueTest, throwsWhatASyncBodyThrows) {
  SerialQueue queue("test");
  EXPECT_THROW(queue.sync([] { throw std::logic_error("no"); }), std::logic_error);
}

TEST(SerialQueueTest, goesOnAfterAnItemThrew) {
  SerialQueue queue("test");
  queue.post([] { throw std::runtime_error("an item of a test throws"); });
  EXPECT_EQ(queue.sync([] { return 1; }), 1);
}

TEST(SerialQueueTest, makesTheThreadsOfAllLanesAtOnceAndOnlyOnce) {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
  };
  SerialQueue::prepareThreads();
  const auto before = threads();
  SerialQueue queue("test", SerialQueue::Lane::waiting);
  EXPECT_EQ(queue.sync([&] { return threads(); }), before);
  SerialQueue::prepareThreads();
  EXPECT_EQ(threads(), before);
}

TEST(SerialQueueTest, knowsWhetherItIsCurrent) {
  SerialQueue queue("test");
  SerialQueue other("other");
  EXPECT_FALSE(queue.isCurrent());
  EXPECT_TRUE(queue.sync([&] { return queue.isCurrent(); }));
  EXPECT_FALSE(queue.sync([&] { return other.isCurrent(); }));
}

TEST(SerialQueueTest, keepsItsLabel) { EXPECT_EQ(SerialQueue("lenslark.x").label(), "lenslark.x"); }

TEST(SerialQueueTest, stillRunsItsItemsWhenItIsDestroyed) {
  std::latch done(1);
  {
    SerialQueue queue("test");
    queue.post([&] { done.count_down(); });
  }
  done.wait();
}

TEST(SerialQueueTest, doesNotKeepTimelyWorkBehindBlockingWork) {
  constexpr int waiting = 64;
  std::latch release(1);
  std::latch ended(waiting);
  for (int index = 0; index < waiting; ++index) {
    runInBackground([&] {
      release.wait();
      ended.count_down();
    });
  }
  SerialQueue timely("test", SerialQueue::Lane::timely);
  EXPECT_EQ(timely.sync([] { return 1; }), 1);  // would never return behind the waiting items
  release.count_down();
  ended.wait();
}

TEST(SerialQueueTest, goesOnBesideItemsThatHangOnEveryThread) {
  const int hanging = std::max(8, 4 * static_cast<int>(std::thread::hardware_concurrency()));
  std::latch release(1);
  std::latch ended(hanging);
  for (int index = 0; index < hanging; ++index) {
    runInBackground([&] {
      release.wait();
      ended.count_down();
    });
  }
  std::atomic<bool> ran = false;
  SerialQueue other("test", SerialQueue::Lane::blocking);
  other.post([&] { ran = true; });
  EXPECT_TRUE(eventually([&] { return ran.load(); }, std::chrono::seconds(60)));
  release.count_down();
  ended.wait();
  other.sync([] {});
}

TEST(RepeatingTimerTest, isSilentUntilItIsScheduled) {
  SerialQueue queue("test");
  std::atomic<int> fired = 0;
  RepeatingTimer silent(queue, [&] { fired += 1; });
  std::atomic<int> other = 0;
  RepeatingTimer witness(queue, [&] { other += 1; });
  witness.schedule(milliseconds(0), milliseconds(1));
  ASSERT_TRUE(eventually([&] { return other >= 5; }));
  EXPECT_EQ(fired, 0);
  witness.stop();
  queue.sync([] {});
}

TEST(RepeatingTimerTest, firesAgainAndAgainOnItsQueue) {
  SerialQueue queue("test");
  std::atomic<int> fired = 0;
  std::atomic<bool> elsewhere = false;
  RepeatingTimer timer(queue, [&] {
    fired += 1;
    if (!queue.isCurrent()) elsewhere = true;
  });
  timer.schedule(milliseconds(0), milliseconds(1));
  EXPECT_TRUE(eventually([&] { return fired >= 3; }));
  timer.stop();
  queue.sync([] {});
  EXPECT_FALSE(elsewhere);
}

TEST(RepeatingTimerTest, waitsForItsDelay) {
  SerialQueue queue("test");
  const auto begin = steady_clock::now();
  std::atomic<bool> fired = false;
  RepeatingTimer timer(queue, [&] { fired = true; });
  timer.schedule(milliseconds(30), std::chrono::hours(1));
  ASSERT_TRUE(eventually([&] { return fired.load(); }));
  EXPECT_GE(steady_clock::now() - begin, milliseconds(30));
}

TEST(RepeatingTimerTest, dropsTheFiringsItMissed) {
  SerialQueue queue("test");
  std::vector<steady_clock::time_point> times;
  RepeatingTimer timer(queue, [&] {
    times.push_back(steady_clock::now());
    if (times.size() == 1) std::this_thread::sleep_for(milliseconds(60));
  });
  timer.schedule(milliseconds(0), milliseconds(20));
  ASSERT_TRUE(eventually([&] { return queue.sync([&] { return times.size() >= 3; }); }));
  timer.stop();
  queue.sync([] {});
  // After the long firing the grid goes on: the two after it are not fired in a burst.
  EXPECT_GE(times[2] - times[0], milliseconds(80));
}

TEST(RepeatingTimerTest, firesNoMoreOnceItWasStoppedOnItsQueue) {
  SerialQueue queue("test");
  int fired = 0;
  RepeatingTimer timer(queue, [&] { fired += 1; });
  timer.schedule(milliseconds(0), milliseconds(1));
  ASSERT_TRUE(eventually([&] { return queue.sync([&] { return fired >= 2; }); }));
  const int atStop = queue.sync([&] {
    timer.stop();
    return fired;
  });
  std::atomic<int> other = 0;
  RepeatingTimer witness(queue, [&] { other += 1; });
  witness.schedule(milliseconds(0), milliseconds(1));
  ASSERT_TRUE(eventually([&] { return other >= 10; }));
  EXPECT_EQ(queue.sync([&] { return fired; }), atStop);
  queue.sync([&] { witness.stop(); });
}

TEST(RepeatingTimerTest, mayStopItselfInItsHandler) {
  SerialQueue queue("test");
  std::atomic<int> fired = 0;
  RepeatingTimer* self = nullptr;
  RepeatingTimer timer(queue, [&] {
    fired += 1;
    self->stop();
  });
  self = &timer;
  timer.schedule(milliseconds(0), milliseconds(1));
  ASSERT_TRUE(eventually([&] { return fired == 1; }));
  std::atomic<int> other = 0;
  RepeatingTimer witness(queue, [&] { other += 1; });
  witness.schedule(milliseconds(0), milliseconds(1));
  ASSERT_TRUE(eventually([&] { return other >= 10; }));
  EXPECT_EQ(fired, 1);
  queue.sync([&] { witness.stop(); });
}

TEST(RepeatingTimerTest, takesANewScheduleInPlaceOfTheOld) {
  SerialQueue queue("test");
  std::atomic<int> fired = 0;
  RepeatingTimer timer(queue, [&] { fired += 1; });
  timer.schedule(std::chrono::hours(1), std::chrono::hours(1));
  timer.schedule(milliseconds(0), std::chrono::hours(1));
  EXPECT_TRUE(eventually([&] { return fired == 1; }));
}

TEST(RepeatingTimerTest, goesOnAfterItsHandlerThrew) {
  SerialQueue queue("test");
  std::atomic<int> fired = 0;
  RepeatingTimer timer(queue, [&] {
    fired += 1;
    throw std::runtime_error("a timer of a test throws");
  });
  timer.schedule(milliseconds(0), milliseconds(1));
  EXPECT_TRUE(eventually([&] { return fired >= 3; }));
  queue.sync([&] { timer.stop(); });
}

}  // namespace
}  // namespace lenslark
