#include "feeds/FrameFileOpening.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "feeds/SharedFrameWriter.h"
#include "support/DescriptorLimit.h"
#include "support/NumberedPicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using ::testing::HasSubstr;

constexpr uid_t nobody = 65534;

class FrameFileOpeningTest : public ::testing::Test {
 protected:
  struct stat status() const {
    struct stat result {};
    EXPECT_EQ(::lstat(path.c_str(), &result), 0);
    return result;
  }
  void expectFresh(const FileDescriptor& file) const {
    struct stat opened {};
    ASSERT_EQ(::fstat(file.get(), &opened), 0);
    const struct stat there = status();
    EXPECT_TRUE(S_ISREG(there.st_mode));
    EXPECT_EQ(there.st_mode & 07777U, 0600U);
    EXPECT_EQ(there.st_uid, ::getuid());
    EXPECT_EQ(there.st_ino, opened.st_ino);
    EXPECT_EQ(there.st_size, 0);
  }

  const TemporaryDirectory directory;
  const std::string path = (directory / "feed.shm").string();
};

TEST_F(FrameFileOpeningTest, createsAPrivateFile) {
  const mode_t mask = ::umask(0);
  const FileDescriptor file = FrameFileOpening::openPrivate(path);
  ::umask(mask);
  expectFresh(file);
}

TEST_F(FrameFileOpeningTest, closesItInChildren) {
  const FileDescriptor file = FrameFileOpening::openPrivate(path);
  EXPECT_NE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(FrameFileOpeningTest, keepsAnOwnFileAndMakesItPrivate) {
  directory.write("feed.shm", "old");
  std::filesystem::permissions(path, std::filesystem::perms(0644));
  const ino_t before = status().st_ino;
  FrameFileOpening::openPrivate(path);
  EXPECT_EQ(status().st_ino, before);
  EXPECT_EQ(status().st_size, 3);
  EXPECT_EQ(status().st_mode & 07777U, 0600U);
}

TEST_F(FrameFileOpeningTest, replacesALinkAndLeavesItsTarget) {
  const std::string victim = directory.write("victim", "precious");
  std::filesystem::create_symlink(victim, path);
  expectFresh(FrameFileOpening::openPrivate(path));
  EXPECT_EQ(readFile(victim), "precious");
}

TEST_F(FrameFileOpeningTest, replacesALinkToNothing) {
  std::filesystem::create_symlink(directory / "missing", path);
  expectFresh(FrameFileOpening::openPrivate(path));
  EXPECT_FALSE(std::filesystem::exists(directory / "missing"));
}

TEST_F(FrameFileOpeningTest, replacesAFileWithASecondName) {
  const std::string victim = directory.write("victim", "precious");
  std::filesystem::create_hard_link(victim, path);
  expectFresh(FrameFileOpening::openPrivate(path));
  EXPECT_EQ(readFile(victim), "precious");
}

TEST_F(FrameFileOpeningTest, replacesAFifoWithoutWaiting) {
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  expectFresh(FrameFileOpening::openPrivate(path));
}

TEST_F(FrameFileOpeningTest, replacesASocket) {
  const FileDescriptor server(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(path.size(), sizeof(address.sun_path));
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(::bind(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  expectFresh(FrameFileOpening::openPrivate(path));
}

TEST_F(FrameFileOpeningTest, replacesAFileOfAnotherUser) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can give a file away";
  directory.write("feed.shm", "foreign");
  ASSERT_EQ(::chown(path.c_str(), nobody, nobody), 0);
  expectFresh(FrameFileOpening::openPrivate(path));
}

TEST_F(FrameFileOpeningTest, refusesADirectoryAndSaysSo) {
  std::filesystem::create_directory(path);
  directory.write("feed.shm/inside", "kept");
  try {
    FrameFileOpening::openPrivate(path);
    FAIL() << "opened a directory";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EISDIR);
    EXPECT_THAT(error.what(), HasSubstr(path + ": it is a directory of "));
    EXPECT_THAT(error.what(), HasSubstr("remove it"));
  }
  EXPECT_EQ(readFile(path + "/inside"), "kept");
}

TEST_F(FrameFileOpeningTest, leavesADeviceWhereItIs) {
  constexpr unsigned memory = 1;
  constexpr unsigned null = 3;
  if (::mknod(path.c_str(), S_IFCHR | 0600U, makedev(memory, null)) != 0)
    GTEST_SKIP() << "may make no device";
  try {
    FrameFileOpening::openPrivate(path);
    FAIL() << "opened a device";
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr(path + ": it is a device, which is never replaced"));
  }
  EXPECT_TRUE(S_ISCHR(status().st_mode));
}

TEST_F(FrameFileOpeningTest, saysSoOfADeviceThatItCouldNotReplaceEither) {
  if (::getuid() == 0) GTEST_SKIP() << "root could replace it";
  try {
    FrameFileOpening::openPrivate("/dev/null");
    FAIL() << "opened a device";
  } catch (const std::system_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("/dev/null: it is a device, which is never replaced"));
  }
}

TEST_F(FrameFileOpeningTest, aMissingDirectoryIsAnErrorWithThePath) {
  const std::string nowhere = (directory / "missing" / "feed.shm").string();
  try {
    FrameFileOpening::openPrivate(nowhere);
    FAIL() << "opened nowhere";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOENT);
    EXPECT_THAT(error.what(), HasSubstr(nowhere));
  }
}

/// Runs `body` in a child process and returns its exit status.
template <typename Body>
int inChild(Body&& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

constexpr int passed = 0;
constexpr int failed = 1;
constexpr int cannotPrepare = 77;

TEST_F(FrameFileOpeningTest, aForeignFileInAStickyDirectoryIsNamedWithItsOwner) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can act as two users";
  std::filesystem::permissions(directory.path(), std::filesystem::perms(01777));
  directory.write("feed.shm", "of root");
  std::filesystem::permissions(path, std::filesystem::perms(0666));
  const std::string heard = (directory / "heard").string();
  const int result = inChild([&] {
    if (::setgid(nobody) != 0 || ::setuid(nobody) != 0) return cannotPrepare;
    try {
      FrameFileOpening::openPrivate(path);
    } catch (const std::system_error& error) {
      std::ofstream(heard) << error.what();
      return error.code().value() == EPERM ? passed : failed;
    }
    return failed;
  });
  ASSERT_EQ(result, passed);
  EXPECT_THAT(readFile(heard), HasSubstr(path + ": it belongs to root and cannot be replaced"));
  EXPECT_EQ(readFile(path), "of root");
}

TEST_F(FrameFileOpeningTest, oneOfTheLastDescriptorsIsLeftForOthers) {
  const DescriptorLimit limit(10, 60);
  const FileDescriptor file = FrameFileOpening::openPrivate(path);
  try {
    FrameFileOpening::mapWhole(file, path, 4096, {});
    FAIL() << "took it";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_files_open);
    EXPECT_THAT(error.what(), HasSubstr(path + ": Too many open files; the limit is "));
    EXPECT_THAT(error.what(), HasSubstr("raise it (`ulimit -n`)"));
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FrameFileOpeningTest, aFewDescriptorsAreEnoughWhereThereAreMoreThanAFew) {
  const DescriptorLimit limit(20, 60);
  const FileDescriptor file = FrameFileOpening::openPrivate(path);
  FrameFileOpening::mapWhole(file, path, 4096, {});
  EXPECT_EQ(std::filesystem::file_size(path), 4096U);
}

/// In the calling process alone: a file system in memory that holds `bytes`.
bool mountSmallDisk(const std::string& at, const std::string& bytes) {
  const uid_t user = ::getuid();
  const gid_t group = ::getgid();
  if (::unshare(CLONE_NEWNS) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user << " " << user << " 1";
    std::ofstream("/proc/self/gid_map") << group << " " << group << " 1";
  }
  return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         ::mount("tmpfs", at.c_str(), "tmpfs", 0, ("size=" + bytes).c_str()) == 0;
}

TEST_F(FrameFileOpeningTest, aFullDiskIsAnErrorAndNotASignal) {
  const int result = inChild([this] {
    if (!mountSmallDisk(directory.path().string(), "1m")) return cannotPrepare;
    try {
      const SharedFrameWriter writer(path, 2048, 2048, LLCameraDevice);
    } catch (const std::system_error& error) {
      const bool clean = error.code().value() == ENOSPC && !std::filesystem::exists(path) &&
                         std::string(error.what()).find(path) != std::string::npos;
      return clean ? passed : failed;
    }
    return failed;
  });
  if (result == cannotPrepare) GTEST_SKIP() << "cannot mount a small disk here";
  EXPECT_EQ(result, passed);
}

TEST_F(FrameFileOpeningTest, aDiskThatFillsUpLaterDoesNotHurtAWriter) {
  const int result = inChild([this] {
    if (!mountSmallDisk(directory.path().string(), "4m")) return cannotPrepare;
    SharedFrameWriter writer(path, 512, 512, LLCameraDevice);
    std::ofstream(directory / "rest") << std::string(8 << 20, 'x');
    const auto picture = numberedPicture({512, 512});
    return writer.write(*picture, ContentKind::live) && writer.write(*picture, ContentKind::live)
               ? passed
               : failed;
  });
  if (result == cannotPrepare) GTEST_SKIP() << "cannot mount a small disk here";
  EXPECT_EQ(result, passed);
}

TEST_F(FrameFileOpeningTest, aShortageOfDescriptorsRemovesNothing) {
  directory.write("feed.shm", "kept");
  const int result = inChild([this] {
    while (::dup(STDIN_FILENO) >= 0) {
    }
    try {
      FrameFileOpening::openPrivate(path);
    } catch (const std::system_error& error) {
      return error.code().value() == EMFILE ? passed : failed;
    }
    return failed;
  });
  EXPECT_EQ(result, passed);
  EXPECT_EQ(readFile(path), "kept");
}

TEST_F(FrameFileOpeningTest, aDiskThatFillsUpBeforeALargerFrameDropsIt) {
  const int result = inChild([this] {
    if (!mountSmallDisk(directory.path().string(), "12m")) return cannotPrepare;
    SharedFrameWriter writer(path, 2048, 2048, LLCameraDevice);
    const auto usual = numberedPicture({1280, 720});
    const auto large = numberedPicture({2048, 1024});
    if (!writer.write(*usual, ContentKind::live) || writer.missingRoom() != 0) return failed;
    if (writer.write(*large, ContentKind::still) || writer.missingRoom() != 8U << 20) return failed;
    if (!writer.write(*usual, ContentKind::live)) return failed;
    return writer.missingRoom() != 0 ? passed : failed;
  });
  if (result == cannotPrepare) GTEST_SKIP() << "cannot mount a small disk here";
  EXPECT_EQ(result, passed);
}

TEST_F(FrameFileOpeningTest, aDiskThatHasRoomAgainTakesTheLargerFrame) {
  const int result = inChild([this] {
    if (!mountSmallDisk(directory.path().string(), "20m")) return cannotPrepare;
    SharedFrameWriter writer(path, 2048, 2048, LLCameraDevice);
    std::ofstream(directory / "rest") << std::string(32 << 20, 'x');
    const auto large = numberedPicture({2048, 1024});
    if (writer.write(*large, ContentKind::live)) return failed;
    std::filesystem::remove(directory / "rest");
    const bool written = writer.write(*large, ContentKind::live);
    return written && writer.missingRoom() == 0 ? passed : failed;
  });
  if (result == cannotPrepare) GTEST_SKIP() << "cannot mount a small disk here";
  EXPECT_EQ(result, passed);
}

TEST_F(FrameFileOpeningTest, whatIsReservedHasNoHoles) {
  const FileDescriptor file = FrameFileOpening::openPrivate(path);
  FrameFileOpening::mapWhole(file, path, 1 << 20, {{0, 1 << 20}});
  const struct stat there = status();
  EXPECT_EQ(there.st_size, 1 << 20);
  EXPECT_GE(there.st_blocks * 512, 1 << 20);
}

TEST_F(FrameFileOpeningTest, theRestTakesNoRoom) {
  const FileDescriptor file = FrameFileOpening::openPrivate(path);
  FrameFileOpening::mapWhole(file, path, 8 << 20, {{0, 1 << 20}, {4 << 20, 1 << 20}});
  const struct stat there = status();
  EXPECT_EQ(there.st_size, 8 << 20);
  EXPECT_GE(there.st_blocks * 512, 2 << 20);
  EXPECT_LT(there.st_blocks * 512, 3 << 20);
}

}  // namespace
}  // namespace lenslark
