#include "platform/DirectoryWatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include "support/Eventually.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

class DirectoryWatcherTest : public testing::Test {
 protected:
  DirectoryWatcherTest() { std::filesystem::create_directories(directory_); }

  std::unique_ptr<DirectoryWatcher> watch() {
    return std::make_unique<DirectoryWatcher>(directory_, queue_, [this] { changes_ += 1; });
  }

  /// Whether a change was told since the last question; waits for it.
  bool told() {
    const bool heard = eventually([this] { return changes_ > 0; });
    quiet();
    return heard;
  }

  /// Waits until everything that was done so far has been told.
  void quiet() {
    int before = -1;
    while (before != changes_) {
      before = changes_;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    changes_ = 0;
  }

  const TemporaryDirectory temporary_;
  const std::filesystem::path directory_ = temporary_ / "watched";
  std::atomic<int> changes_ = 0;
  SerialQueue queue_{"test"};
};

TEST_F(DirectoryWatcherTest, tellsOfANewFile) {
  const auto watcher = watch();
  temporary_.write("watched/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, tellsOfAFileWrittenInPlace) {
  temporary_.write("watched/file", "x");
  const auto watcher = watch();
  temporary_.write("watched/file", "y");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, tellsOfAFileRenamedIntoPlace) {
  temporary_.write("file", "x");
  const auto watcher = watch();
  std::filesystem::rename(temporary_ / "file", directory_ / "file");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, tellsOfADeletedFile) {
  temporary_.write("watched/file", "x");
  const auto watcher = watch();
  std::filesystem::remove(directory_ / "file");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, tellsOfAFileMovedAway) {
  temporary_.write("watched/file", "x");
  const auto watcher = watch();
  std::filesystem::rename(directory_ / "file", temporary_ / "file");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, tellsOnTheQueue) {
  std::atomic<int> onQueue = -1;
  const DirectoryWatcher watcher(directory_, queue_, [&] { onQueue = queue_.isCurrent() ? 1 : 0; });
  temporary_.write("watched/file", "x");
  ASSERT_TRUE(eventually([&] { return onQueue >= 0; }));
  EXPECT_EQ(onQueue, 1);
}

TEST_F(DirectoryWatcherTest, tellsOnceOfABurstWhileTheQueueIsBusy) {
  const auto watcher = watch();
  std::latch release(1);
  queue_.post([&] { release.wait(); });
  for (int index = 0; index < 100; ++index) temporary_.write("watched/file", std::to_string(index));
  release.count_down();
  ASSERT_TRUE(eventually([this] { return changes_ > 0; }));
  queue_.sync([] {});
  EXPECT_LE(changes_, 2);  // the last event may come in after the first call began
}

TEST_F(DirectoryWatcherTest, isQuietAboutTheNeighbours) {
  const auto watcher = watch();
  temporary_.write("neighbour", "x");
  temporary_.write("other/file", "x");
  std::filesystem::remove_all(temporary_ / "other");
  quiet();
  temporary_.write("neighbour", "y");
  std::filesystem::remove(temporary_ / "neighbour");
  queue_.sync([] {});
  EXPECT_EQ(changes_, 0);
  temporary_.write("watched/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, goesOnWhenTheDirectoryIsMadeAgain) {
  const auto watcher = watch();
  for (int round = 0; round < 3; ++round) {
    std::filesystem::remove_all(directory_);
    EXPECT_TRUE(told());
    std::filesystem::create_directories(directory_);
    EXPECT_TRUE(told());
    temporary_.write("watched/file", "x");
    EXPECT_TRUE(told());
  }
}

TEST_F(DirectoryWatcherTest, goesOnInTheNewDirectoryWhenItIsReplaced) {
  std::filesystem::create_directories(temporary_ / "other");
  const auto watcher = watch();
  std::filesystem::rename(directory_, temporary_ / "old");
  std::filesystem::rename(temporary_ / "other", directory_);
  EXPECT_TRUE(told());
  temporary_.write("watched/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, waitsForADirectoryThatIsNotThereYet) {
  DirectoryWatcher watcher(temporary_ / "a/b/c", queue_, [this] { changes_ += 1; });
  std::filesystem::create_directories(temporary_ / "a/b/c");
  EXPECT_TRUE(told());
  temporary_.write("a/b/c/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, goesOnWhenAnAncestorIsMadeAgain) {
  std::filesystem::create_directories(temporary_ / "a/b/c");
  DirectoryWatcher watcher(temporary_ / "a/b/c", queue_, [this] { changes_ += 1; });
  std::filesystem::rename(temporary_ / "a", temporary_ / "old");
  EXPECT_TRUE(told());
  std::filesystem::create_directories(temporary_ / "a/b/c");
  EXPECT_TRUE(told());
  temporary_.write("a/b/c/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, followsALinkThatIsPointedElsewhere) {
  std::filesystem::create_directories(temporary_ / "other");
  std::filesystem::create_directory_symlink(directory_, temporary_ / "link");
  DirectoryWatcher watcher(temporary_ / "link", queue_, [this] { changes_ += 1; });
  temporary_.write("watched/file", "x");
  EXPECT_TRUE(told());
  std::filesystem::create_directory_symlink(temporary_ / "other", temporary_ / "fresh");
  std::filesystem::rename(temporary_ / "fresh", temporary_ / "link");
  EXPECT_TRUE(told());
  temporary_.write("other/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, takesAPathThatEndsInASlash) {
  DirectoryWatcher watcher(directory_ / "", queue_, [this] { changes_ += 1; });
  std::filesystem::remove_all(directory_);
  std::filesystem::create_directories(directory_);
  EXPECT_TRUE(told());
  temporary_.write("watched/file", "x");
  EXPECT_TRUE(told());
}

TEST_F(DirectoryWatcherTest, tellsNobodyOnceItIsGone) {
  std::latch release(1);
  queue_.post([&] { release.wait(); });
  {
    const auto watcher = watch();
    temporary_.write("watched/file", "x");
  }
  release.count_down();
  queue_.sync([] {});
  EXPECT_EQ(changes_, 0);
}

TEST_F(DirectoryWatcherTest, mayBeDestroyedByItsOwnCall) {
  std::unique_ptr<DirectoryWatcher> watcher;
  std::atomic<bool> gone = false;
  queue_.sync([&] {
    watcher = std::make_unique<DirectoryWatcher>(directory_, queue_, [&] {
      watcher.reset();
      gone = true;
    });
  });
  temporary_.write("watched/file", "x");
  EXPECT_TRUE(eventually([&] { return gone.load(); }));
}

}  // namespace
}  // namespace lenslark
