#include "base/HeldThreads.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

namespace lenslark {
namespace {

auto threadsOfTheProcess() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(HeldThreadsTest, haveBeenStarted) {
  const auto before = threadsOfTheProcess();
  const HeldThreads threads(3);
  EXPECT_EQ(threads.count(), 3U);
  EXPECT_EQ(threadsOfTheProcess(), before + 3);
}

TEST(HeldThreadsTest, areTheSystemsAgainOnceTheyAreLetGo) {
  const auto before = threadsOfTheProcess();
  HeldThreads threads(2);
  EXPECT_TRUE(threads.letOneGo());
  EXPECT_EQ(threadsOfTheProcess(), before + 1);
  EXPECT_TRUE(threads.letOneGo());
  EXPECT_EQ(threadsOfTheProcess(), before);
  EXPECT_FALSE(threads.letOneGo());
}

}  // namespace
}  // namespace lenslark
