#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <string>
#include <thread>

#include "feeds/SharedFrameWriter.h"
#include "support/FrameFileCopy.h"
#include "support/NumberedPicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

class ReadFeedExampleTest : public ::testing::Test {
 protected:
  /// The exit status of the example.
  int run(const std::vector<std::string>& arguments) const {
    std::vector<char*> argv{const_cast<char*>("read_feed")};
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int failure =
        ::posix_spawn(&child, LENSLARK_READ_FEED, &actions, nullptr, argv.data(), nullptr);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) return -1;
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
  }
  int readFeed() const { return run({path, picture}); }

  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
  const std::string picture = (directory / "picture.ppm").string();
};

TEST_F(ReadFeedExampleTest, writesTheLatestFrame) {
  SharedFrameWriter writer(path, 64, 64, LLCameraBack);
  writer.write(*numberedPicture({9, 9}), ContentKind::live);
  writer.write(*numberedPicture({7, 5}), ContentKind::live);
  ASSERT_EQ(readFeed(), 0);
  std::string expected = "P6\n7 5\n255\n";
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 7; ++x) {
      const Pixel pixel = numberedPixel(x, y);
      for (const int channel : {2, 1, 0}) {
        expected += static_cast<char>(pixel[static_cast<std::size_t>(channel)]);
      }
    }
  }
  EXPECT_EQ(readFile(picture), expected);
}

TEST_F(ReadFeedExampleTest, readsAVersionOneFile) {
  LLFrameHeader header{};
  header.magic = LL_FRAME_MAGIC;
  header.version = 1;
  header.width = 1;
  header.height = 2;
  header.bytesPerRow = 8;
  directory.write("feed.shm", headerBytes(header) + "abcd....efgh....");
  ASSERT_EQ(readFeed(), 0);
  EXPECT_EQ(readFile(picture), "P6\n1 2\n255\ncbagfe");
}

TEST_F(ReadFeedExampleTest, neverTakesHalfAFrame) {
  SharedFrameWriter writer(path, 256, 256, LLCameraBack);
  const std::jthread producer([&](const std::stop_token& stop) {
    do {
      for (const Pixel& pixel : {Pixel{1, 1, 1, 255}, {2, 2, 2, 255}, {3, 3, 3, 255}}) {
        writer.write(*uniformPicture({256, 256}, pixel), ContentKind::live);
      }
    } while (!stop.stop_requested());
  });
  // The writer may be too quick for a while.
  int taken = 0;
  for (int round = 0; taken < 20 && round < 1000; ++round) {
    if (readFeed() != 0) continue;
    ++taken;
    const std::string bytes = readFile(picture).substr(15);
    ASSERT_EQ(bytes.size(), 256U * 256 * 3);
    ASSERT_EQ(bytes.find_first_not_of(bytes[0]), std::string::npos);
  }
  EXPECT_GT(taken, 0);
}

TEST_F(ReadFeedExampleTest, refusesWhatIsNoFeed) {
  EXPECT_EQ(readFeed(), 1);
  directory.write("feed.shm", std::string(5000, 'x'));
  EXPECT_EQ(readFeed(), 1);
  std::filesystem::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  EXPECT_EQ(readFeed(), 1);
  EXPECT_FALSE(std::filesystem::exists(picture));
}

TEST_F(ReadFeedExampleTest, refusesAFeedWithoutAFrame) {
  const SharedFrameWriter writer(path, 64, 64, LLCameraBack);
  EXPECT_EQ(readFeed(), 1);
}

TEST_F(ReadFeedExampleTest, refusesALieAboutTheSize) {
  LLFrameHeader header{};
  header.magic = LL_FRAME_MAGIC;
  header.version = 2;
  header.frontSlot = 1;
  header.slotCapacity = ~std::uint64_t{0} - 5000;
  header.slots[1] = {2, 0, 4, 4, 16, 0};
  directory.write("feed.shm", headerBytes(header) + std::string(64, 'x'));
  EXPECT_EQ(readFeed(), 1);
}

TEST_F(ReadFeedExampleTest, tellsHowItIsUsed) { EXPECT_EQ(run({path}), 2); }

}  // namespace
}  // namespace lenslark
