#include "control/SlideshowFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>

#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

using SlideshowFiles::expand;
using SlideshowFiles::naturallyBefore;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> namesIn(const TemporaryDirectory& folder) {
  std::vector<std::string> names;
  for (const auto& path : expand({folder.path()})) names.push_back(path.filename());
  return names;
}

TEST(NaturalOrderTest, numbersCountAsNumbers) {
  EXPECT_TRUE(naturallyBefore("page 2.png", "page 10.png"));
  EXPECT_FALSE(naturallyBefore("page 10.png", "page 2.png"));
}

TEST(NaturalOrderTest, leadingZerosDoNotCount) {
  EXPECT_TRUE(naturallyBefore("a007", "a8"));
  EXPECT_TRUE(naturallyBefore("a08", "a10"));
}

TEST(NaturalOrderTest, numbersMayBeLongerThanAnyInteger) {
  EXPECT_TRUE(naturallyBefore("99999999999999999999998", "99999999999999999999999"));
}

TEST(NaturalOrderTest, letterCaseCountsLast) {
  EXPECT_TRUE(naturallyBefore("a1", "B1"));
  EXPECT_TRUE(naturallyBefore("B1", "b1"));
  EXPECT_FALSE(naturallyBefore("b1", "B1"));
}

TEST(NaturalOrderTest, aShorterNameComesFirst) { EXPECT_TRUE(naturallyBefore("img", "img1")); }

TEST(NaturalOrderTest, equalNamesAreNotBeforeEachOther) {
  EXPECT_FALSE(naturallyBefore("a01", "a01"));
}

TEST(NaturalOrderTest, differentZerosStillHaveAnOrder) {
  EXPECT_NE(naturallyBefore("a01", "a1"), naturallyBefore("a1", "a01"));
}

TEST(SlideshowFilesTest, noFolderIsNamedUpToANulByte) {
  const TemporaryDirectory folder;
  folder.write("1.png", "");
  const std::filesystem::path path = folder.path().string() + std::string("\0x", 2);
  EXPECT_THAT(expand({path}), ElementsAre(path));
}

TEST(SlideshowFilesTest, aFolderStandsForItsPicturesInNaturalOrder) {
  const TemporaryDirectory folder;
  for (const char* name : {"10.png", "2.png", "1.jpg"}) folder.write(name, "");
  EXPECT_THAT(namesIn(folder), ElementsAre("1.jpg", "2.png", "10.png"));
}

TEST(SlideshowFilesTest, filmsBelongToASlideshowToo) {
  const TemporaryDirectory folder;
  folder.write("clip.mp4", "");
  EXPECT_THAT(namesIn(folder), ElementsAre("clip.mp4"));
}

TEST(SlideshowFilesTest, hiddenFilesAreLeftOut) {
  const TemporaryDirectory folder;
  folder.write(".a.png", "");
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(SlideshowFilesTest, subfoldersAreLeftOut) {
  const TemporaryDirectory folder;
  folder.write("deep/a.png", "");
  std::filesystem::create_directory(folder / "named.png");
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(SlideshowFilesTest, whatIsNoPictureIsLeftOut) {
  const TemporaryDirectory folder;
  folder.write("notes.txt", "");
  folder.write("README", "");
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(SlideshowFilesTest, linksToPicturesCount) {
  const TemporaryDirectory folder;
  const TemporaryDirectory elsewhere;
  std::filesystem::create_symlink(elsewhere.write("a.png", ""), folder / "link.png");
  std::filesystem::create_symlink(elsewhere / "missing.png", folder / "dangling.png");
  EXPECT_THAT(namesIn(folder), ElementsAre("link.png"));
}

TEST(SlideshowFilesTest, aFIFOIsLeftOut) {
  const TemporaryDirectory folder;
  ASSERT_EQ(::mkfifo((folder / "pipe.png").c_str(), 0600), 0);
  EXPECT_THAT(namesIn(folder), IsEmpty());
}

TEST(SlideshowFilesTest, filesStandForThemselvesInTheGivenOrder) {
  EXPECT_THAT(expand({"/b.txt", "/a.png"}), ElementsAre("/b.txt", "/a.png"));
}

TEST(SlideshowFilesTest, foldersAndFilesMayBeMixed) {
  const TemporaryDirectory folder;
  const std::string inside = folder.write("a.png", "");
  EXPECT_THAT(expand({"/z.png", folder.path(), "/z.png"}), ElementsAre("/z.png", inside, "/z.png"));
}

TEST(SlideshowFilesTest, aFolderThatCannotBeListedIsAnError) {
  if (::geteuid() == 0) GTEST_SKIP() << "nothing is unreadable to root";
  const TemporaryDirectory folder;
  std::filesystem::permissions(folder.path(), std::filesystem::perms::none);
  EXPECT_THROW(expand({folder.path()}), std::system_error);
  std::filesystem::permissions(folder.path(), std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace lenslark
