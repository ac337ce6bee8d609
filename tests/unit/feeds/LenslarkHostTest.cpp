#include "feeds/LenslarkHost.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <thread>

#include "feeds/FeedReader.h"
#include "support/Eventually.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

class LenslarkHostTest : public testing::Test {
 protected:
  TemporaryDirectory directory;
  const std::string globalPath = (directory / "global.shm").string();
  ScopedVariable global{"LENSLARK_SHM", globalPath};
  const std::shared_ptr<ConfigStore> store = std::make_shared<ConfigStore>(directory / "config");
  const std::shared_ptr<MediaLibrary> media = std::make_shared<MediaLibrary>(directory / "media");
  const LenslarkHost::Overrides pattern{.source = SourceSpec{SourceSpec::Pattern{}}};
};

void expectNothing(const LenslarkHost& host) {
  EXPECT_FALSE(host.isRunning());
  EXPECT_EQ(host.framesCaptured(), 0U);
  EXPECT_EQ(host.screenAccess(), std::nullopt);
  EXPECT_TRUE(host.devices().empty());
  EXPECT_TRUE(host.sourceErrors().empty());
}

TEST_F(LenslarkHostTest, answersForNothingBeforeStart) {
  expectNothing(LenslarkHost(store, media, nullptr));
}

TEST_F(LenslarkHostTest, feedsWhileItRuns) {
  LenslarkHost host(store, media, nullptr);
  host.start(pattern);
  EXPECT_TRUE(host.isRunning());
  EXPECT_TRUE(eventually([&] { return host.framesCaptured() > 0; }));
  EXPECT_EQ(FeedReader::info(globalPath)->writerPid, ::getpid());
}

TEST_F(LenslarkHostTest, answersForNothingAfterStop) {
  LenslarkHost host(store, media, nullptr);
  host.start(pattern);
  ASSERT_TRUE(eventually([&] { return host.framesCaptured() > 0; }));
  host.stop();
  expectNothing(host);
  EXPECT_EQ(FeedReader::info(globalPath)->writerPid, 0);
}

TEST_F(LenslarkHostTest, startsAgainAfterStop) {
  LenslarkHost host(store, media, nullptr);
  host.start(pattern);
  host.stop();
  host.start(pattern);
  EXPECT_TRUE(eventually([&] { return host.framesCaptured() > 0; }));
}

TEST_F(LenslarkHostTest, aSecondStartAndStopAreHarmless) {
  LenslarkHost host(store, media, nullptr);
  host.start(pattern);
  host.start({});
  EXPECT_TRUE(eventually([&] { return host.framesCaptured() > 0; }));
  host.stop();
  host.stop();
}

TEST_F(LenslarkHostTest, tellsTheStatusOnceRightAfterStart) {
  std::atomic<int> told = 0;
  LenslarkHost host(store, media, nullptr);
  host.onStatusChange([&] {
    EXPECT_TRUE(host.isRunning());
    ++told;
  });
  host.start(pattern);
  EXPECT_TRUE(eventually([&] { return told == 1; }));
}

TEST_F(LenslarkHostTest, tellsNothingOnceItIsReleased) {
  std::atomic<int> told = 0;
  {
    LenslarkHost host(store, media, nullptr);
    host.onStatusChange([&] { ++told; });
    host.start(pattern);
  }
  const int before = told;
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(told, before);
}

TEST_F(LenslarkHostTest, closesItsFilesWhenItIsReleased) {
  {
    LenslarkHost host(store, media, nullptr);
    host.start(pattern);
  }
  EXPECT_EQ(FeedReader::info(globalPath)->writerPid, 0);
}

}  // namespace
}  // namespace lenslark
