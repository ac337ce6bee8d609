#include "feeds/SharedFrameWriter.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "base/Clock.h"
#include "support/FrameFileCopy.h"
#include "support/NumberedPicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

class SharedFrameWriterTest : public ::testing::Test {
 protected:
  SharedFrameWriter& open(int maxSide = 16, LLCamera camera = LLCameraBack) {
    writer.emplace(path, maxSide, maxSide, camera);
    return *writer;
  }
  FrameFileCopy file() const { return FrameFileCopy(path); }

  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
  std::optional<SharedFrameWriter> writer;
};

/// A frame that paints half of itself and gives up.
class BrokenFrame final : public Frame {
 public:
  Size size() const noexcept override { return {8, 8}; }
  bool opaque() const noexcept override { return true; }
  bool draw(const PixelRect&, const PixelSpan& target) const noexcept override {
    setPixel(target, 0, 0, {1, 2, 3, 4});
    return false;
  }
};

TEST_F(SharedFrameWriterTest, aFreshFileHasAHeaderAndNoFrame) {
  const std::uint64_t before = Clock::uptimeNanoseconds();
  open(16, LLCameraFront);
  const FrameFileCopy copy = file();
  const LLFrameHeader& head = copy.header();
  EXPECT_EQ(copy.size(), 4096U + 2 * 16 * 16 * 4);
  EXPECT_EQ(head.magic, LL_FRAME_MAGIC);
  EXPECT_EQ(head.version, 2U);
  EXPECT_EQ(head.width, 0U);
  EXPECT_EQ(head.height, 0U);
  EXPECT_EQ(head.bytesPerRow, 0U);
  EXPECT_EQ(head.sceneMode, 0U);
  EXPECT_EQ(head.sequence, 0U);
  EXPECT_EQ(head.timestamp, 0U);
  EXPECT_EQ(head.heartbeat, 0U);
  EXPECT_EQ(head.writerPid, static_cast<std::uint32_t>(::getpid()));
  EXPECT_EQ(head.dataOffset, 4096U);
  EXPECT_EQ(head.slotCapacity, 1024U);
  EXPECT_EQ(head.contentKind, 0U);
  EXPECT_EQ(head.frontSlot, 0U);
  EXPECT_EQ(head.camera, 2U);
  EXPECT_EQ(head.isStill, 0U);
  EXPECT_EQ(head.slots[0].seq, 0U);
  EXPECT_EQ(head.slots[1].seq, 0U);
  EXPECT_EQ(head.slots[1].width, 0U);
  EXPECT_LE(before, Clock::uptimeNanoseconds());
}

TEST_F(SharedFrameWriterTest, theFileOfARealFeedHasItsFixedLength) {
  open(2048);
  EXPECT_EQ(std::filesystem::file_size(path), 4096U + 2U * 16'777'216U);
}

TEST_F(SharedFrameWriterTest, aFileTakesTheRoomOfUsualFramesAndThatOfALargerOneWhenItComes) {
  open(2048);
  const auto room = [this] {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return static_cast<std::size_t>(status.st_blocks) * 512;
  };
  const std::size_t usual = 2 * SharedFrameWriter::usualRoom;
  EXPECT_GE(room(), usual);
  EXPECT_LT(room(), 2 * usual);
  ASSERT_TRUE(writer->write(*numberedPicture({2048, 2048}), ContentKind::live));
  EXPECT_GE(room(), 2U * 16'777'216U) << "in both slots: the next frame is as large";
  EXPECT_EQ(writer->missingRoom(), 0U);
}

TEST_F(SharedFrameWriterTest, framesGoToTheSlotsInTurn) {
  open();
  for (const std::uint32_t slot : {1U, 0U, 1U, 0U}) {
    const Size size{5, static_cast<int>(slot) + 3};
    ASSERT_TRUE(writer->write(*numberedPicture(size), ContentKind::live));
    const FrameFileCopy copy = file();
    EXPECT_EQ(copy.header().frontSlot, slot);
    EXPECT_EQ(copy.frontFrame().size, size);
    EXPECT_EQ(pixelAt(copy.frontFrame(), 4, 2), numberedPixel(4, 2));
  }
}

TEST_F(SharedFrameWriterTest, aFrameIsDescribedInItsSlot) {
  open();
  const std::uint64_t before = Clock::uptimeNanoseconds();
  writer->write(*numberedPicture({6, 7}), ContentKind::video);
  const std::uint64_t after = Clock::uptimeNanoseconds();
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.slots[1].seq, 2U);
  EXPECT_EQ(head.slots[1].width, 6U);
  EXPECT_EQ(head.slots[1].height, 7U);
  EXPECT_EQ(head.slots[1].bytesPerRow, 24U);
  EXPECT_EQ(head.slots[1].contentKind, 2U);
  EXPECT_GE(head.slots[1].timestamp, before);
  EXPECT_LE(head.slots[1].timestamp, after);
  EXPECT_GE(head.heartbeat, head.slots[1].timestamp);
  EXPECT_EQ(head.contentKind, 2U);
  EXPECT_EQ(head.isStill, 0U);
}

TEST_F(SharedFrameWriterTest, theOldestReadersSeeTheFirstSlotAlone) {
  open();
  writer->write(*numberedPicture({6, 7}), ContentKind::live);
  EXPECT_EQ(file().header().width, 0U);
  EXPECT_EQ(file().header().sequence, 0U);
  writer->write(*numberedPicture({9, 8}), ContentKind::live);
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.width, 9U);
  EXPECT_EQ(head.height, 8U);
  EXPECT_EQ(head.bytesPerRow, 36U);
  EXPECT_EQ(head.sequence, 2U);
  EXPECT_EQ(head.timestamp, head.slots[0].timestamp);
}

TEST_F(SharedFrameWriterTest, aStillPictureLandsInBothSlotsWhenTheFirstIsInFront) {
  open();
  writer->write(*numberedPicture({6, 7}), ContentKind::still);
  const FrameFileCopy copy = file();
  EXPECT_EQ(copy.header().frontSlot, 1U);
  EXPECT_EQ(copy.header().isStill, 1U);
  EXPECT_EQ(copy.header().contentKind, 1U);
  EXPECT_EQ(copy.header().width, 6U);
  EXPECT_EQ(copy.header().slots[0].contentKind, 1U);
  for (const std::uint32_t slot : {0U, 1U}) {
    EXPECT_EQ(copy.header().slots[slot].seq, 2U);
    EXPECT_EQ(copy.frame(slot).size, (Size{6, 7}));
    EXPECT_EQ(pixelAt(copy.frame(slot), 5, 6), numberedPixel(5, 6));
  }
}

TEST_F(SharedFrameWriterTest, aStillPictureForTheFirstSlotIsWrittenOnce) {
  open();
  writer->write(*numberedPicture({3, 3}), ContentKind::live);
  writer->write(*numberedPicture({6, 7}), ContentKind::still);
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.frontSlot, 0U);
  EXPECT_EQ(head.slots[0].width, 6U);
  EXPECT_EQ(head.slots[1].width, 3U);
  EXPECT_EQ(head.slots[1].seq, 2U);
}

TEST_F(SharedFrameWriterTest, aStillPictureIsDrawnOnce) {
  open();
  int draws = 0;
  writer->write({4, 4}, ContentKind::still, [&draws](const PixelSpan& target) {
    ++draws;
    setPixel(target, 3, 3, {9, 8, 7, 255});
    return true;
  });
  EXPECT_EQ(draws, 1);
  EXPECT_EQ(pixelAt(file().frame(0), 3, 3), (Pixel{9, 8, 7, 255}));
}

TEST_F(SharedFrameWriterTest, paddedRowsAreWrittenTightly) {
  open();
  writer->write(*numberedPicture({7, 5}, 36), ContentKind::live);
  const FrameFileCopy copy = file();
  EXPECT_EQ(copy.header().slots[1].bytesPerRow, 28U);
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 7; ++x) {
      ASSERT_EQ(pixelAt(copy.frontFrame(), x, y), numberedPixel(x, y));
    }
  }
}

TEST_F(SharedFrameWriterTest, aFrameThatFillsTheSlotIsTaken) {
  open();
  EXPECT_TRUE(writer->write(*numberedPicture({16, 16}), ContentKind::live));
  EXPECT_TRUE(writer->write(*numberedPicture({64, 4}), ContentKind::live));
  EXPECT_TRUE(writer->write(*numberedPicture({1, 256}), ContentKind::live));
}

TEST_F(SharedFrameWriterTest, aLargerFrameIsDroppedWithoutATrace) {
  open();
  const LLFrameHeader before = file().header();
  EXPECT_FALSE(writer->write(*numberedPicture({257, 1}), ContentKind::live));
  EXPECT_FALSE(writer->write(*numberedPicture({16, 17}), ContentKind::live));
  const LLFrameHeader after = file().header();
  EXPECT_EQ(std::memcmp(&before, &after, sizeof(before)), 0);
}

TEST_F(SharedFrameWriterTest, sizesBeyondAllBoundsAreDropped) {
  open();
  const auto never = [](const PixelSpan&) {
    ADD_FAILURE() << "drawn";
    return true;
  };
  constexpr int most = std::numeric_limits<int>::max();
  for (const Size size : {Size{most, most}, Size{most, 1}, Size{1, most}, Size{0, 5}, Size{5, 0},
                          Size{-4, 4}, Size{1 << 30, 4}}) {
    EXPECT_FALSE(writer->write(size, ContentKind::live, never));
  }
}

TEST_F(SharedFrameWriterTest, aFrameThatCannotBeDrawnIsNotPublished) {
  open();
  writer->write(*numberedPicture({6, 7}), ContentKind::live);
  writer->write(*numberedPicture({6, 7}), ContentKind::live);
  const LLFrameHeader before = file().header();
  EXPECT_FALSE(writer->write(BrokenFrame(), ContentKind::live));
  const LLFrameHeader after = file().header();
  EXPECT_EQ(after.frontSlot, before.frontSlot);
  EXPECT_EQ(after.slots[1].seq, before.slots[1].seq + 2);
  EXPECT_EQ(after.slots[1].width, 0U);
}

TEST_F(SharedFrameWriterTest, theOldestReadersAreNotShownABrokenFrame) {
  open();
  writer->write(*numberedPicture({6, 7}), ContentKind::live);
  EXPECT_FALSE(writer->write(BrokenFrame(), ContentKind::live));
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.frontSlot, 1U);
  EXPECT_EQ(head.sequence, 2U);
  EXPECT_EQ(head.width, 0U);
}

TEST_F(SharedFrameWriterTest, aHeartbeatIsTheUptimeClock) {
  open();
  const std::uint64_t before = Clock::uptimeNanoseconds();
  writer->heartbeat();
  EXPECT_GE(file().header().heartbeat, before);
  EXPECT_LE(file().header().heartbeat, Clock::uptimeNanoseconds());
}

TEST_F(SharedFrameWriterTest, theSceneModeLivesInTheFile) {
  open();
  EXPECT_EQ(writer->sceneMode(), LLSceneModeFit);
  writer->setSceneMode(LLSceneModeFill);
  EXPECT_EQ(file().header().sceneMode, 1U);
  EXPECT_EQ(writer->sceneMode(), LLSceneModeFill);
}

TEST_F(SharedFrameWriterTest, nothingIsWrittenOnceItIsClosed) {
  open();
  ASSERT_TRUE(writer->write(*numberedPicture({4, 4}), ContentKind::live));
  writer->close();
  const std::string before = readFile(path);
  EXPECT_FALSE(writer->write(*numberedPicture({4, 4}), ContentKind::live));
  writer->heartbeat();
  writer->setSceneMode(LLSceneModeFill);
  EXPECT_TRUE(readFile(path) == before);
  EXPECT_EQ(file().header().writerPid, 0U);
}

TEST_F(SharedFrameWriterTest, aClosedFileStaysAndNamesNoWriter) {
  open();
  writer->write(*numberedPicture({6, 7}), ContentKind::live);
  writer.reset();
  EXPECT_EQ(file().header().writerPid, 0U);
  EXPECT_EQ(pixelAt(file().frontFrame(), 5, 6), numberedPixel(5, 6));
}

/// The file as another process changes it.
class TakenOverFileTest : public SharedFrameWriterTest {
 protected:
  TakenOverFileTest() {
    open();
    writer->write(*numberedPicture({6, 7}), ContentKind::live);
    change([](LLFrameHeader& head) { head.writerPid = other; });
  }

  template <typename Change>
  void change(Change body) {
    std::string bytes = readFile(path);
    LLFrameHeader head{};
    std::memcpy(&head, bytes.data(), sizeof(head));
    body(head);
    std::memcpy(bytes.data(), &head, sizeof(head));
    directory.write("feed.shm", bytes);
  }

  static constexpr std::uint32_t other = 4242;
};

TEST_F(TakenOverFileTest, isNotClosed) {
  writer.reset();
  EXPECT_EQ(file().header().writerPid, other);
}

TEST_F(TakenOverFileTest, isLeftAlone) {
  const std::string before = readFile(path);
  EXPECT_FALSE(writer->write(*numberedPicture({4, 4}), ContentKind::still));
  writer->heartbeat();
  writer->setSceneMode(LLSceneModeFill);
  EXPECT_TRUE(readFile(path) == before);
  EXPECT_TRUE(writer->isTakenOver());
}

TEST_F(TakenOverFileTest, isVacantOnceItIsClosed) {
  EXPECT_FALSE(writer->isVacant());
  change([](LLFrameHeader& head) { head.writerPid = 0; });
  EXPECT_TRUE(writer->isVacant());
}

TEST_F(TakenOverFileTest, isVacantWhenItsHeartHasStopped) {
  const std::uint64_t now = Clock::uptimeNanoseconds();
  change([&](LLFrameHeader& head) { head.heartbeat = now - 2'000'000'000; });
  EXPECT_FALSE(writer->isVacant());
  change([&](LLFrameHeader& head) { head.heartbeat = now - 3'100'000'000; });
  EXPECT_TRUE(writer->isVacant());
}

TEST_F(TakenOverFileTest, isNotVacantWhileItsWriterHasOnlyJustOpenedIt) {
  change([](LLFrameHeader& head) {
    head.heartbeat = 0;
    head.writerPid = 1;  // a process that there always is
  });
  EXPECT_FALSE(writer->isVacant());
}

TEST_F(TakenOverFileTest, isVacantWhenItsWriterEndedBeforeItsFirstHeartbeat) {
  const pid_t ended = ::fork();
  if (ended == 0) ::_exit(0);
  ASSERT_EQ(::waitpid(ended, nullptr, 0), ended);
  change([&](LLFrameHeader& head) {
    head.heartbeat = 0;
    head.writerPid = static_cast<std::uint32_t>(ended);
  });
  EXPECT_TRUE(writer->isVacant());
}

TEST_F(SharedFrameWriterTest, whatMakesItAFrameFileIsWrittenAnewWithTheHeartbeat) {
  open();
  writer->write(*numberedPicture({6, 7}), ContentKind::still);
  const LLFrameHeader before = file().header();
  std::string bytes = readFile(path);
  std::memset(bytes.data(), 'x', 8);
  std::memset(bytes.data() + offsetof(LLFrameHeader, dataOffset), 'x', 12);
  directory.write("feed.shm", bytes);
  writer->heartbeat();
  const LLFrameHeader after = file().header();
  EXPECT_EQ(after.magic, before.magic);
  EXPECT_EQ(after.version, before.version);
  EXPECT_EQ(after.dataOffset, before.dataOffset);
  EXPECT_EQ(after.slotCapacity, before.slotCapacity);
  EXPECT_EQ(pixelAt(file().frontFrame(), 5, 6), numberedPixel(5, 6));
}

TEST_F(SharedFrameWriterTest, aFileOfOnesOwnIsNeverVacant) {
  open();
  EXPECT_FALSE(writer->isTakenOver());
  EXPECT_FALSE(writer->isVacant());
}

// A file that an earlier writer left.

LLFrameHeader oldHeader() {
  LLFrameHeader head{};
  head.magic = LL_FRAME_MAGIC;
  head.version = 2;
  head.width = 99;
  head.height = 98;
  head.bytesPerRow = 97;
  head.sceneMode = LLSceneModeFill;
  head.sequence = 41;
  head.timestamp = 7;
  head.heartbeat = 8;
  head.writerPid = 9;
  head.dataOffset = 10;
  head.slotCapacity = 11;
  head.contentKind = 3;
  head.frontSlot = 1;
  head.camera = 2;
  head.isStill = 1;
  head.slots[0] = {100, 1, 2, 3, 4, 1};
  head.slots[1] = {301, 5, 6, 7, 8, 2};
  return head;
}

TEST_F(SharedFrameWriterTest, takingOverKeepsTheSceneModeAndRaisesTheCounters) {
  directory.write("feed.shm", headerBytes(oldHeader()));
  open();
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.sceneMode, LLSceneModeFill);
  EXPECT_EQ(head.sequence, 42U);
  EXPECT_EQ(head.slots[0].seq, 102U);
  EXPECT_EQ(head.slots[1].seq, 302U);
}

TEST_F(SharedFrameWriterTest, takingOverForgetsTheOldFrames) {
  directory.write("feed.shm", headerBytes(oldHeader()));
  open();
  LLFrameHeader expected{};
  expected.magic = LL_FRAME_MAGIC;
  expected.version = 2;
  expected.sceneMode = LLSceneModeFill;
  expected.sequence = 42;
  expected.writerPid = static_cast<std::uint32_t>(::getpid());
  expected.dataOffset = 4096;
  expected.slotCapacity = 1024;
  expected.camera = LLCameraBack;
  expected.slots[0].seq = 102;
  expected.slots[1].seq = 302;
  const LLFrameHeader head = file().header();
  EXPECT_EQ(std::memcmp(&head, &expected, sizeof(head)), 0);
}

TEST_F(SharedFrameWriterTest, anUnknownSceneModeIsKeptToo) {
  LLFrameHeader old = oldHeader();
  old.sceneMode = 77;
  directory.write("feed.shm", headerBytes(old));
  EXPECT_EQ(open().sceneMode(), 77U);
}

TEST_F(SharedFrameWriterTest, aVersionOneFileHasNoSlotCountersToKeep) {
  LLFrameHeader old = oldHeader();
  old.version = 1;
  directory.write("feed.shm", headerBytes(old));
  open();
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.version, 2U);
  EXPECT_EQ(head.sceneMode, LLSceneModeFill);
  EXPECT_EQ(head.sequence, 42U);
  EXPECT_EQ(head.slots[0].seq, 0U);
  EXPECT_EQ(head.slots[1].seq, 0U);
}

TEST_F(SharedFrameWriterTest, aFileOfAnotherKindStartsAtZero) {
  LLFrameHeader old = oldHeader();
  old.magic = 0x12345678;
  directory.write("feed.shm", headerBytes(old));
  open();
  const LLFrameHeader head = file().header();
  EXPECT_EQ(head.magic, LL_FRAME_MAGIC);
  EXPECT_EQ(head.sceneMode, 0U);
  EXPECT_EQ(head.sequence, 0U);
  EXPECT_EQ(head.slots[0].seq, 0U);
  EXPECT_EQ(head.slots[1].seq, 0U);
}

TEST_F(SharedFrameWriterTest, countersAtTheirEndWrapAround) {
  LLFrameHeader old = oldHeader();
  old.sequence = old.slots[0].seq = std::numeric_limits<std::uint64_t>::max();
  old.slots[1].seq = std::numeric_limits<std::uint64_t>::max() - 3;
  directory.write("feed.shm", headerBytes(old));
  open();
  EXPECT_EQ(file().header().sequence, 0U);
  EXPECT_EQ(file().header().slots[0].seq, 0U);
  EXPECT_EQ(file().header().slots[1].seq, std::numeric_limits<std::uint64_t>::max() - 1);
  writer->write(*numberedPicture({2, 2}), ContentKind::live);
  EXPECT_EQ(file().header().slots[1].seq, 0U);
}

TEST_F(SharedFrameWriterTest, aFileOfAnotherLengthIsFitted) {
  for (const std::size_t length : {std::size_t{3}, std::size_t{4096}, std::size_t{1} << 20}) {
    std::string bytes = headerBytes(oldHeader());
    bytes.resize(length, 'x');
    directory.write("feed.shm", bytes);
    open();
    EXPECT_EQ(std::filesystem::file_size(path), 4096U + 2 * 1024U);
    EXPECT_TRUE(writer->write(*numberedPicture({16, 16}), ContentKind::still));
    writer.reset();
  }
}

TEST_F(SharedFrameWriterTest, theOldWritersCountersAreReadAfterACleanEnd) {
  open();
  writer->write(*numberedPicture({2, 2}), ContentKind::live);
  open();
  EXPECT_EQ(file().header().slots[1].seq, 4U);
  EXPECT_EQ(file().header().slots[0].seq, 2U);
}

// What may happen to the file under the writer.

TEST_F(SharedFrameWriterTest, aFileCutShortIsLeftAlone) {
  open(2048);
  std::filesystem::resize_file(path, 0);
  EXPECT_FALSE(writer->write(*numberedPicture({64, 64}), ContentKind::live));
  writer->heartbeat();
  writer->setSceneMode(LLSceneModeFill);
  EXPECT_EQ(writer->sceneMode(), LLSceneModeFit);
  EXPECT_FALSE(writer->stillInPlace());
  writer.reset();
  EXPECT_EQ(std::filesystem::file_size(path), 0U);
}

TEST_F(SharedFrameWriterTest, aRemovedFileIsNoLongerInPlace) {
  open();
  EXPECT_TRUE(writer->stillInPlace());
  std::filesystem::remove(path);
  EXPECT_FALSE(writer->stillInPlace());
  EXPECT_TRUE(writer->write(*numberedPicture({4, 4}), ContentKind::live));
}

TEST_F(SharedFrameWriterTest, anotherFileAtThePathIsNotItsOwn) {
  open();
  std::filesystem::rename(path, directory / "elsewhere");
  directory.write("feed.shm", "something else");
  EXPECT_FALSE(writer->stillInPlace());
}

TEST_F(SharedFrameWriterTest, aSizeThatIsNoneIsRefused) {
  for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {-1, 5}, {1 << 20, 1 << 20}}) {
    EXPECT_THROW(SharedFrameWriter(path, width, height, LLCameraDevice), std::system_error);
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(SharedFrameWriterTest, nothingFaultsOnceBothSlotsAreTouched) {
  // Where the disk writes pages back, the system watches them anew; memory has no such trouble.
  const std::string inMemory = "/dev/shm/lenslark-test-" + std::to_string(::getpid()) + ".shm";
  const auto picture = numberedPicture({1280, 720});
  long faults = 0;
  {
    SharedFrameWriter quick(inMemory, 2048, 2048, LLCameraDevice);
    for (int i = 0; i < 4; ++i) quick.write(*picture, ContentKind::live);
    rusage before{};
    rusage after{};
    ::getrusage(RUSAGE_THREAD, &before);
    for (int i = 0; i < 50; ++i) quick.write(*picture, ContentKind::live);
    ::getrusage(RUSAGE_THREAD, &after);
    faults = after.ru_minflt - before.ru_minflt;
  }
  std::filesystem::remove(inMemory);
  // 900 pages a frame: a handful is the sanitizers' own.
  EXPECT_LT(faults, 50);
}

}  // namespace
}  // namespace lenslark
