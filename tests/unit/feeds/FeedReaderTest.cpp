#include "feeds/FeedReader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <limits>
#include <thread>

#include "base/Clock.h"
#include "base/Error.h"
#include "codecs/Modules.h"
#include "devices/CommandError.h"
#include "feeds/SharedFrameWriter.h"
#include "graphics/Compositor.h"
#include "support/FrameFileCopy.h"
#include "support/NumberedPicture.h"
#include "support/ScopedVariable.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using ::testing::HasSubstr;

constexpr std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();

class FeedReaderTest : public ::testing::Test {
 protected:
  /// A file with this header and `tail` bytes after its first 4096, all of them 7.
  void plant(const LLFrameHeader& header, std::size_t tail = 0) const {
    directory.write("feed.shm", headerBytes(header) + std::string(tail, '\7'));
  }
  void expectNothing() const {
    EXPECT_FALSE(FeedReader::info(path));
    EXPECT_EQ(FeedReader::image(path), nullptr);
  }

  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
};

/// Version 2 with a 4 x 3 frame in slot 1, which starts 48 bytes after slot 0.
LLFrameHeader validHeader() {
  LLFrameHeader header{};
  header.magic = LL_FRAME_MAGIC;
  header.version = 2;
  header.writerPid = static_cast<std::uint32_t>(::getpid());
  header.dataOffset = 4096;
  header.slotCapacity = 48;
  header.frontSlot = 1;
  header.slots[1] = {8, 1, 4, 3, 16, 0};
  return header;
}

// What a feed tells.

TEST_F(FeedReaderTest, infoTellsWhatTheWriterWrote) {
  SharedFrameWriter writer(path, 16, 16, LLCameraBack);
  writer.setSceneMode(LLSceneModeFill);
  writer.write(*numberedPicture({6, 7}), ContentKind::pattern);
  const auto info = FeedReader::info(path);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->path, path);
  EXPECT_EQ(info->version, 2U);
  EXPECT_EQ(info->width, 6);
  EXPECT_EQ(info->height, 7);
  EXPECT_EQ(info->content, ContentKind::pattern);
  EXPECT_TRUE(info->fill);
  EXPECT_EQ(info->writerPid, ::getpid());
  EXPECT_EQ(info->sequence, 2U * 2 + 1);
  ASSERT_TRUE(info->heartbeatAge);
  EXPECT_GE(*info->heartbeatAge, 0);
  EXPECT_LT(*info->heartbeatAge, 60);
  EXPECT_TRUE(info->writerAlive());
}

TEST_F(FeedReaderTest, aFreshFeedHasNoFrameYet) {
  const SharedFrameWriter writer(path, 16, 16, LLCameraBack);
  const auto info = FeedReader::info(path);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->width, 0);
  EXPECT_FALSE(info->heartbeatAge);
  EXPECT_EQ(FeedReader::image(path), nullptr);
}

TEST_F(FeedReaderTest, aClosedFeedHasNoLivingWriterButItsLastFrame) {
  {
    SharedFrameWriter writer(path, 16, 16, LLCameraBack);
    writer.write(*numberedPicture({6, 7}), ContentKind::live);
  }
  EXPECT_FALSE(FeedReader::info(path)->writerAlive());
  EXPECT_NE(FeedReader::image(path), nullptr);
}

TEST_F(FeedReaderTest, aVersionOneFileIsReadFromItsHeader) {
  LLFrameHeader header{};
  header.magic = LL_FRAME_MAGIC;
  header.version = 1;
  header.width = 4;
  header.height = 3;
  header.bytesPerRow = 20;
  header.sequence = 34;
  header.contentKind = 3;
  header.frontSlot = 1;
  plant(header, 60);
  const auto info = FeedReader::info(path);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->version, 1U);
  EXPECT_EQ(info->width, 4);
  EXPECT_EQ(info->height, 3);
  EXPECT_EQ(info->content, ContentKind::live);
  EXPECT_EQ(info->sequence, 34U);
  const auto image = FeedReader::image(path);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(image->size(), (Size{4, 3}));
  EXPECT_EQ(image->view().stride, 20);
  EXPECT_EQ(pixelAt(image->view(), 3, 2), (Pixel{7, 7, 7, 7}));
}

TEST_F(FeedReaderTest, anUnknownContentIsLive) {
  LLFrameHeader header = validHeader();
  header.contentKind = 4;
  plant(header);
  EXPECT_EQ(FeedReader::info(path)->content, ContentKind::live);
}

TEST_F(FeedReaderTest, anyOtherSceneModeIsFit) {
  LLFrameHeader header = validHeader();
  header.sceneMode = 2;
  plant(header);
  EXPECT_FALSE(FeedReader::info(path)->fill);
}

TEST_F(FeedReaderTest, onlyTheLowestBitOfTheFrontSlotCounts) {
  LLFrameHeader header = validHeader();
  header.frontSlot = 0xFFFFFFFF;
  plant(header, 96);
  EXPECT_EQ(FeedReader::info(path)->width, 4);
  EXPECT_NE(FeedReader::image(path), nullptr);
}

TEST_F(FeedReaderTest, aHeartbeatOfZeroOrToComeHasNoAge) {
  LLFrameHeader header = validHeader();
  plant(header);
  EXPECT_FALSE(FeedReader::info(path)->heartbeatAge);
  header.heartbeat = huge;
  plant(header);
  EXPECT_FALSE(FeedReader::info(path)->heartbeatAge);
}

TEST_F(FeedReaderTest, aHeartbeatAgesInSeconds) {
  LLFrameHeader header = validHeader();
  header.heartbeat = Clock::uptimeNanoseconds() - 2'500'000'000U;
  plant(header);
  const auto age = FeedReader::info(path)->heartbeatAge;
  ASSERT_TRUE(age);
  EXPECT_GE(*age, 2.5);
  EXPECT_LT(*age, 60);
}

TEST_F(FeedReaderTest, aCounterNearItsEndWrapsInTheSequence) {
  LLFrameHeader header = validHeader();
  header.slots[1].seq = huge - 1;
  plant(header);
  EXPECT_EQ(FeedReader::info(path)->sequence, huge - 2);
}

// The writer's process.

TEST_F(FeedReaderTest, noProcessMeansNoLivingWriter) {
  LLFrameHeader header = validHeader();
  header.writerPid = 0;
  plant(header);
  EXPECT_FALSE(FeedReader::info(path)->writerAlive());
}

TEST_F(FeedReaderTest, aProcessThatEndedIsNotAlive) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  LLFrameHeader header = validHeader();
  header.writerPid = static_cast<std::uint32_t>(child);
  plant(header);
  EXPECT_FALSE(FeedReader::info(path)->writerAlive());
}

TEST_F(FeedReaderTest, aProcessOfSomebodyElseIsAlive) {
  if (::getuid() != 0) {
    EXPECT_TRUE(FeedReader::Info{.writerPid = 1}.writerAlive());
    return;
  }
  const pid_t child = ::fork();
  if (child == 0) {
    const bool away = ::setuid(65534) == 0;
    const pid_t parent = ::getppid();
    ::_exit(away && FeedReader::Info{.writerPid = parent}.writerAlive() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(FeedReaderTest, aNegativeWriterIsAnErrorWithThePath) {
  LLFrameHeader header = validHeader();
  header.writerPid = 0xFFFFFFFB;
  plant(header, 96);
  try {
    FeedReader::info(path);
    FAIL() << "no error";
  } catch (const Error& error) {
    EXPECT_THAT(error.what(), HasSubstr(path));
    EXPECT_THAT(error.what(), HasSubstr("-5"));
  }
  EXPECT_NE(FeedReader::image(path), nullptr);
}

// The picture.

TEST_F(FeedReaderTest, theImageIsTheLatestFrame) {
  SharedFrameWriter writer(path, 16, 16, LLCameraBack);
  for (const int height : {9, 7, 5}) {
    writer.write(*numberedPicture({6, height}), ContentKind::live);
    const auto image = FeedReader::image(path);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(image->size(), (Size{6, height}));
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < 6; ++x) ASSERT_EQ(pixelAt(image->view(), x, y), numberedPixel(x, y));
    }
  }
}

TEST_F(FeedReaderTest, aLargeImageShrinksToTheLongestSide) {
  SharedFrameWriter writer(path, 2048, 2048, LLCameraBack);
  writer.write(*numberedPicture({1920, 1080}), ContentKind::live);
  EXPECT_EQ(FeedReader::image(path, 640)->size(), (Size{640, 360}));
  EXPECT_EQ(FeedReader::image(path, 1920)->size(), (Size{1920, 1080}));
  EXPECT_EQ(FeedReader::image(path, 4000)->size(), (Size{1920, 1080}));
  EXPECT_EQ(FeedReader::image(path)->size(), (Size{1920, 1080}));
}

TEST_F(FeedReaderTest, shrunkSidesAreCutToWholePixelsAndNeverVanish) {
  SharedFrameWriter writer(path, 512, 512, LLCameraBack);
  writer.write(*numberedPicture({200, 99}), ContentKind::live);
  // 99 * 100 / 200 = 49.5
  EXPECT_EQ(FeedReader::image(path, 100)->size(), (Size{100, 49}));
  writer.write(*numberedPicture({500, 2}), ContentKind::live);
  EXPECT_EQ(FeedReader::image(path, 100)->size(), (Size{100, 1}));
}

TEST_F(FeedReaderTest, aShrunkImageStaysOpaque) {
  SharedFrameWriter writer(path, 1920, 1080, LLCameraBack);
  writer.write(*numberedPicture({1920, 1080}), ContentKind::live);
  const auto image = FeedReader::image(path, 1024);
  ASSERT_NE(image, nullptr);
  EXPECT_TRUE(Compositor::isOpaque(image->view()));
}

TEST_F(FeedReaderTest, rowsShorterThanTheirPixelsAreNoImage) {
  LLFrameHeader header = validHeader();
  header.slots[1].bytesPerRow = 15;
  plant(header, 96);
  EXPECT_TRUE(FeedReader::info(path));
  EXPECT_EQ(FeedReader::image(path), nullptr);
}

TEST_F(FeedReaderTest, sidesOfZeroAreNoImage) {
  for (const bool wide : {false, true}) {
    LLFrameHeader header = validHeader();
    (wide ? header.slots[1].height : header.slots[1].width) = 0;
    plant(header, 96);
    EXPECT_EQ(FeedReader::image(path), nullptr);
  }
}

TEST_F(FeedReaderTest, pixelsBeyondTheEndAreNoImage) {
  plant(validHeader(), 95);
  EXPECT_EQ(FeedReader::image(path), nullptr);
  plant(validHeader(), 96);
  EXPECT_NE(FeedReader::image(path), nullptr);
}

TEST_F(FeedReaderTest, aSlotThatStaysBusyIsNoImage) {
  LLFrameHeader header = validHeader();
  header.slots[1].seq = 9;
  plant(header, 96);
  EXPECT_EQ(FeedReader::image(path), nullptr);
}

TEST_F(FeedReaderTest, aBusySlotIsWaitedFor) {
  LLFrameHeader header = validHeader();
  header.slots[1].seq = 9;
  plant(header, 96);
  std::shared_ptr<PixelBuffer> image;
  std::jthread reader([&] { image = FeedReader::image(path); });
  // The writer comes to its end while the reader tries.
  const FileDescriptor file = FileDescriptor::open(path, O_WRONLY);
  constexpr std::uint64_t even = 10;
  ASSERT_EQ(::pwrite(file.get(), &even, sizeof(even), offsetof(LLFrameHeader, slots[1])),
            static_cast<ssize_t>(sizeof(even)));
  reader.join();
  EXPECT_NE(image, nullptr);
}

// What may lie at the path instead.

TEST_F(FeedReaderTest, nothingLiesThere) { expectNothing(); }

TEST_F(FeedReaderTest, aFileMustHoldAWholeHeader) {
  const std::string bytes = headerBytes(validHeader());
  directory.write("feed.shm", bytes.substr(0, 4095));
  expectNothing();
  directory.write("feed.shm", bytes);
  EXPECT_TRUE(FeedReader::info(path));
}

TEST_F(FeedReaderTest, aFileMustBeginWithItsMagic) {
  LLFrameHeader header = validHeader();
  header.magic = 0x314C464C;
  plant(header, 96);
  expectNothing();
}

TEST_F(FeedReaderTest, aFifoIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  expectNothing();
}

TEST_F(FeedReaderTest, aDirectoryIsNoFeed) {
  std::filesystem::create_directory(path);
  expectNothing();
}

TEST_F(FeedReaderTest, aLinkIsNotFollowed) {
  directory.write("real.shm", headerBytes(validHeader()) + std::string(96, '\7'));
  std::filesystem::create_symlink(directory / "real.shm", path);
  expectNothing();
}

TEST_F(FeedReaderTest, aDeviceIsNoFeed) {
  EXPECT_FALSE(FeedReader::info("/dev/zero"));
  EXPECT_EQ(FeedReader::image("/dev/zero"), nullptr);
}

TEST_F(FeedReaderTest, liesAboutSizesAreNoImage) {
  constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
  const auto lie = [this](auto&& change) {
    LLFrameHeader header = validHeader();
    change(header);
    plant(header, 96);
    EXPECT_EQ(FeedReader::image(path), nullptr);
    EXPECT_TRUE(FeedReader::info(path));
  };
  lie([](LLFrameHeader& head) { head.slots[1].width = most; });
  lie([](LLFrameHeader& head) { head.slots[1].height = most; });
  lie([](LLFrameHeader& head) { head.slots[1].bytesPerRow = most; });
  lie([](LLFrameHeader& head) { head.slots[1] = {8, 1, most, most, most, 0}; });
  lie([](LLFrameHeader& head) { head.slots[1] = {8, 1, most / 4, most, most, 0}; });
  lie([](LLFrameHeader& head) { head.slots[1] = {8, 1, 1, most, 4, 0}; });
  // Offsets that wrap around to the file's start, or just before its end.
  lie([](LLFrameHeader& head) { head.slotCapacity = huge; });
  lie([](LLFrameHeader& head) { head.slotCapacity = huge - 4095; });
  lie([](LLFrameHeader& head) { head.slotCapacity = huge - 4096; });
  lie([](LLFrameHeader& head) { head.slotCapacity = std::uint64_t{1} << 63; });
}

TEST_F(FeedReaderTest, sizesThatAreNoIntAreTheLargest) {
  LLFrameHeader header = validHeader();
  header.slots[1].width = 0xFFFFFFFF;
  plant(header);
  EXPECT_EQ(FeedReader::info(path)->width, std::numeric_limits<int>::max());
}

TEST_F(FeedReaderTest, aFileOfHolesIsReadOnlyWithinReason) {
  // Claims a picture of 64 GB, and the file is long enough.
  LLFrameHeader header = validHeader();
  header.slotCapacity = 0;
  header.slots[1] = {8, 1, 131072, 131072, 524288, 0};
  plant(header);
  std::filesystem::resize_file(path, std::uintmax_t{80} << 30);
  EXPECT_EQ(FeedReader::image(path), nullptr);
  // One of a believable size is read as what it is: nothing but zeros.
  header.slots[1] = {8, 1, 1024, 1024, 4096, 0};
  plant(header);
  std::filesystem::resize_file(path, std::uintmax_t{80} << 30);
  const auto image = FeedReader::image(path);
  ASSERT_NE(image, nullptr);
  EXPECT_EQ(pixelAt(image->view(), 1023, 1023), Pixel{});
}

TEST_F(FeedReaderTest, aFileThatShrinksWhileItIsReadHarmsNothing) {
  LLFrameHeader header = validHeader();
  header.slotCapacity = 0;
  header.slots[1] = {8, 1, 1024, 1024, 4096, 0};
  plant(header, 4 << 20);
  std::atomic<bool> done = false;
  std::jthread cutter([&] {
    while (!done) {
      std::filesystem::resize_file(path, 5000);
      std::filesystem::resize_file(path, 4096 + (4 << 20));
    }
  });
  for (int i = 0; i < 200; ++i) {
    const auto image = FeedReader::image(path);
    if (image) {
      EXPECT_EQ(image->size(), (Size{1024, 1024}));
    }
  }
  done = true;
}

// Pictures for others.

TEST_F(FeedReaderTest, aPictureIsWrittenAsPng) {
  const auto picture = numberedPicture({40, 30});
  const std::string file = (directory / "shot.png").string();
  FeedReader::writePNG(*picture, file);
  EXPECT_EQ(readFile(file).substr(0, 8), "\x89PNG\r\n\x1a\n");
  const auto back = Modules::imageCodec().load(file, 100);
  ASSERT_NE(back, nullptr);
  ASSERT_EQ(back->size(), (Size{40, 30}));
  EXPECT_EQ(pixelAt(back->view(), 31, 7), numberedPixel(31, 7));
  EXPECT_EQ(pixelAt(back->view(), 0, 29), numberedPixel(0, 29));
}

TEST_F(FeedReaderTest, pngDataIsTheSameInMemory) {
  const auto picture = numberedPicture({40, 30});
  const std::string file = (directory / "shot.png").string();
  FeedReader::writePNG(*picture, file);
  const auto data = FeedReader::pngData(*picture);
  ASSERT_TRUE(data);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(data->data()), data->size()), readFile(file));
}

TEST_F(FeedReaderTest, aPngThatCannotBeWrittenNamesItsPath) {
  const std::string file = (directory / "missing" / "shot.png").string();
  try {
    FeedReader::writePNG(*numberedPicture({4, 3}), file);
    FAIL() << "written";
  } catch (const CommandError& error) {
    EXPECT_EQ(std::string(error.what()), "cannot write " + file);
  }
}

// Which file a camera's picture lies in. The paths in /tmp are fixed: the id is the test's own.

class FeedPathTest : public FeedReaderTest {
 protected:
  ~FeedPathTest() override {
    for (const auto& file : made_) std::filesystem::remove(file);
  }
  std::string make(const std::string& file) {
    std::ofstream(file) << "feed";
    made_.push_back(file);
    return file;
  }

  const std::string udid = "TEST-" + std::to_string(::getpid());
  const ConnectedDevice phone{
      .key = {Platform::ios, udid}, .name = "Phone", .feed = ConnectedDevice::Simulator{udid}};
  const ScopedVariable shared{"LENSLARK_SHM", path};

 private:
  std::vector<std::string> made_;
};

TEST_F(FeedPathTest, theCamerasOwnFileComesFirst) {
  make(path);
  make("/tmp/lenslark-sim-" + udid + ".shm");
  const std::string own = make("/tmp/lenslark-sim-" + udid + "-front.shm");
  EXPECT_EQ(FeedReader::path(phone, CameraPosition::front), own);
}

TEST_F(FeedPathTest, theDevicesFileComesSecond) {
  make(path);
  make("/tmp/lenslark-sim-" + udid + "-front.shm");
  const std::string whole = make("/tmp/lenslark-sim-" + udid + ".shm");
  EXPECT_EQ(FeedReader::path(phone, CameraPosition::back), whole);
}

TEST_F(FeedPathTest, theSharedFileComesLast) {
  make(path);
  EXPECT_EQ(FeedReader::path(phone, CameraPosition::back), path);
}

TEST_F(FeedPathTest, noneMayExist) {
  EXPECT_EQ(FeedReader::path(phone, CameraPosition::back), std::nullopt);
}

TEST_F(FeedPathTest, anEmulatorsFileIsNamedAfterItsProcess) {
  const ConnectedDevice emulator{.key = {Platform::android, "Pixel"},
                                 .name = "Pixel",
                                 .feed = ConnectedDevice::Emulator{::getpid()}};
  const std::string file = make("/tmp/lenslark-pid-" + std::to_string(::getpid()) + ".shm");
  EXPECT_EQ(FeedReader::path(emulator, CameraPosition::back), file);
}

}  // namespace
}  // namespace lenslark
