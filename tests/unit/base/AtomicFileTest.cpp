#include "base/AtomicFile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <system_error>
#include <thread>

#include "base/FileDescriptor.h"
#include "base/Uuid.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

std::ptrdiff_t entriesIn(const TemporaryDirectory& directory) {
  return std::distance(std::filesystem::directory_iterator(directory.path()),
                       std::filesystem::directory_iterator());
}

TEST(AtomicFileTest, writesANewFile) {
  const TemporaryDirectory directory;
  const std::string file = directory / "file";
  AtomicFile::replace(file, std::string_view("a\0b", 3));
  EXPECT_EQ(readFile(file), std::string("a\0b", 3));
  EXPECT_EQ(entriesIn(directory), 1);
}

TEST(AtomicFileTest, leavesTheOldFileToThoseWhoHaveItOpen) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "old");
  const FileDescriptor open = FileDescriptor::open(file, 0);
  AtomicFile::replace(file, "new");
  std::array<std::byte, 8> buffer;
  EXPECT_EQ(readAt(open, buffer, 0), 3);
  EXPECT_EQ(readFile(file), "new");
}

TEST(AtomicFileTest, showsReadersTheOldOrTheNewFileOnly) {
  const TemporaryDirectory directory;
  const std::string a(50'000, 'a');
  const std::string b(70'000, 'b');
  const std::string file = directory.write("file", a);
  std::atomic<bool> done = false;
  std::jthread writer([&] {
    for (int round = 0; round < 50; ++round) AtomicFile::replace(file, round % 2 == 0 ? b : a);
    done = true;
  });
  while (!done) {
    const std::string seen = readFile(file);
    ASSERT_TRUE(seen == a || seen == b) << seen.size();
  }
}

TEST(AtomicFileTest, givesTheModeOfNewFiles) {
  const TemporaryDirectory directory;
  const std::string file = directory / "file";
  const mode_t mask = ::umask(027);
  AtomicFile::replace(file, "x");
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST(AtomicFileTest, replacesALinkRatherThanWhatItPointsTo) {
  const TemporaryDirectory directory;
  const std::string victim = directory.write("victim", "untouched");
  std::filesystem::create_symlink(victim, directory / "link");
  AtomicFile::replace(directory / "link", "new");
  EXPECT_EQ(readFile(victim), "untouched");
  EXPECT_FALSE(std::filesystem::is_symlink(directory / "link"));
}

TEST(AtomicFileTest, failsWithoutItsDirectory) {
  const TemporaryDirectory directory;
  EXPECT_THROW(AtomicFile::replace(directory / "missing/file", "x"), std::system_error);
}

TEST(AtomicFileTest, leavesNothingBehindWhenTheNameIsADirectory) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory / "file/inside");
  EXPECT_THROW(AtomicFile::replace(directory / "file", "x"), std::system_error);
  EXPECT_EQ(entriesIn(directory), 1);
}

TEST(AtomicFileTest, leavesTheOldFileOnAFullDisk) {
  const TemporaryDirectory directory;
  const std::string file = directory.write("file", "old");
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  const rlimit full{100, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  EXPECT_THROW(AtomicFile::replace(file, std::string(1000, 'x')), std::system_error);
  ::setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(readFile(file), "old");
  EXPECT_EQ(entriesIn(directory), 1);
}

TEST(AtomicFileTest, removesWhatADeadWriterOfTheFileLeftAndNothingElse) {
  const TemporaryDirectory directory;
  const std::string left = ".tmp-" + Uuid::make();
  const std::string file = directory.write("file", "kept");
  directory.write("file" + left, "half");
  const std::string other = directory.write("other" + left, "of another file");
  const std::string own = directory.write("file.tmp-notes", "somebody's own");
  AtomicFile::removeAbandoned(directory.path(), "file");
  EXPECT_EQ(entriesIn(directory), 3);
  for (const std::string& kept : {file, other, own}) EXPECT_TRUE(std::filesystem::exists(kept));
  AtomicFile::removeAbandoned(directory.path(), "");
  EXPECT_FALSE(std::filesystem::exists(other));
  EXPECT_TRUE(std::filesystem::exists(own));
}

TEST(AtomicFileTest, hasNothingToRemoveWhereThereIsNoDirectory) {
  const TemporaryDirectory directory;
  AtomicFile::removeAbandoned(directory / "missing", "");
  EXPECT_EQ(entriesIn(directory), 0);
}

TEST(AtomicFileTest, takesANameWithoutADirectory) {
  const TemporaryDirectory directory;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  AtomicFile::replace("file", "x");
  std::filesystem::current_path(before);
  EXPECT_EQ(readFile(directory / "file"), "x");
}

}  // namespace
}  // namespace lenslark
