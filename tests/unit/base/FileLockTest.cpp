#include "base/FileLock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

TEST(FileLockTest, letsOneHolderInAtATime) {
  const TemporaryDirectory directory;
  const std::string path = directory / "lock";
  std::atomic<int> counter = 0;  // read and written in two steps, which only the lock makes one
  {
    std::vector<std::jthread> threads;
    for (int index = 0; index < 4; ++index) {
      threads.emplace_back([&] {
        for (int round = 0; round < 100; ++round) {
          const FileLock lock(path);
          const int before = counter.load();
          std::this_thread::yield();
          counter.store(before + 1);
        }
      });
    }
  }
  EXPECT_EQ(counter, 400);
}

TEST(FileLockTest, makesAPrivateFile) {
  const TemporaryDirectory directory;
  const FileLock lock(directory / "lock");
  EXPECT_EQ(std::filesystem::status(directory / "lock").permissions(),
            std::filesystem::perms(0600));
}

TEST(FileLockTest, followsNoLink) {
  const TemporaryDirectory directory;
  std::filesystem::create_symlink(directory / "victim", directory / "lock");
  EXPECT_THROW(FileLock(directory / "lock"), std::system_error);
  EXPECT_FALSE(std::filesystem::exists(directory / "victim"));
}

TEST(FileLockTest, failsWithoutItsDirectory) {
  EXPECT_THROW(FileLock("/missing/lock"), std::system_error);
}

}  // namespace
}  // namespace lenslark
