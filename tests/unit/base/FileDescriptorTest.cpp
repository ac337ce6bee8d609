#include "base/FileDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <system_error>
#include <thread>

#include "base/Error.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) >= 0; }

TEST(FileDescriptorTest, closesWhatItOwns) {
  int number = -1;
  {
    const FileDescriptor file = FileDescriptor::open("/dev/null", O_RDONLY);
    number = file.get();
    EXPECT_TRUE(isOpen(number));
  }
  EXPECT_FALSE(isOpen(number));
}

TEST(FileDescriptorTest, handsOverWhenItIsMoved) {
  FileDescriptor a = FileDescriptor::open("/dev/null", O_RDONLY);
  const int number = a.get();
  FileDescriptor b = std::move(a);
  EXPECT_EQ(b.get(), number);
  EXPECT_FALSE(a);
}

TEST(FileDescriptorTest, waitsWhereTheDescriptorDoesNot) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_NONBLOCK), 0);
  const FileDescriptor reader(ends[0]);
  const std::string bytes(1'000'000, 'x');
  std::jthread writer([&bytes, end = ends[1]] {
    const FileDescriptor file(end);
    writeAll(file, std::as_bytes(std::span(bytes)), "pipe");
  });
  std::string read;
  std::array<char, 4096> piece{};
  for (ssize_t count = -1; count != 0;) {
    count = ::read(reader.get(), piece.data(), piece.size());
    if (count > 0) read.append(piece.data(), static_cast<std::size_t>(count));
  }
  EXPECT_EQ(read, bytes);
}

TEST(FileDescriptorTest, isNotInheritedByOtherPrograms) {
  const FileDescriptor file = FileDescriptor::open("/dev/null", O_RDONLY);
  EXPECT_EQ(::fcntl(file.get(), F_GETFD), FD_CLOEXEC);
}

TEST(FileDescriptorTest, namesThePathThatCannotBeOpened) {
  try {
    FileDescriptor::open("/missing/file", O_RDONLY);
    FAIL();
  } catch (const std::system_error& error) {
    EXPECT_STREQ(error.what(), "/missing/file: No such file or directory");
  }
  EXPECT_FALSE(FileDescriptor::tryOpen("/missing/file", O_RDONLY));
}

TEST(FileDescriptorTest, reportsAFullDevice) {
  const FileDescriptor full = FileDescriptor::open("/dev/full", O_WRONLY);
  const std::byte byte{};
  EXPECT_THROW(writeAll(full, std::span(&byte, 1), "/dev/full"), std::system_error);
}

TEST(FileDescriptorTest, readsAtAnOffsetUpToTheEnd) {
  const TemporaryDirectory directory;
  const FileDescriptor file = FileDescriptor::open(directory.write("f", "hello"), O_RDONLY);
  std::array<std::byte, 10> buffer;
  EXPECT_EQ(readAt(file, buffer, 3), 2);
  EXPECT_EQ(static_cast<char>(buffer[0]), 'l');
  EXPECT_EQ(readAt(file, buffer, 9), 0);
}

class ReadRegularFileTest : public testing::Test {
 protected:
  std::string read(const std::string& path, std::size_t limit) const {
    return readRegularFile(FileDescriptor::open(path, O_RDONLY | O_NONBLOCK), limit, path);
  }

  const TemporaryDirectory directory_;
};

TEST_F(ReadRegularFileTest, readsTheWholeFile) {
  for (const std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 100'000U}) {
    const std::string content(size, 'x');
    EXPECT_EQ(read(directory_.write("f", content), 1U << 20U), content) << size;
  }
}

TEST_F(ReadRegularFileTest, takesAFileOfExactlyTheLimit) {
  EXPECT_EQ(read(directory_.write("f", "12345"), 5), "12345");
}

TEST_F(ReadRegularFileTest, refusesALargerFile) {
  EXPECT_THROW(read(directory_.write("f", "123456"), 5), Error);
}

TEST_F(ReadRegularFileTest, readsFilesThatDoNotKnowTheirSize) {
  EXPECT_FALSE(read("/proc/self/maps", 1U << 24U).empty());
  EXPECT_THROW(read("/proc/self/maps", 10), Error);
}

TEST_F(ReadRegularFileTest, refusesWhatIsNotARegularFile) {
  const std::string pipe = directory_ / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_THROW(read(pipe, 100), Error);
  EXPECT_THROW(read("/dev/zero", 100), Error);
  EXPECT_THROW(read(directory_.path(), 100), Error);
}

}  // namespace
}  // namespace lenslark
