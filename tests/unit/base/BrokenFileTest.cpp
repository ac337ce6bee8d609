#include "base/BrokenFile.h"

#include <gtest/gtest.h>

#include "base/FileDescriptor.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

std::vector<std::filesystem::path> copiesIn(const TemporaryDirectory& directory) {
  std::vector<std::filesystem::path> copies;
  for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
    if (entry.path().filename().string().starts_with("index.json.broken-")) {
      copies.push_back(entry.path());
    }
  }
  return copies;
}

TEST(BrokenFileTest, keepsTheContentPrivatelyBesideTheFile) {
  const TemporaryDirectory directory;
  const std::string content("half\0a file", 11);
  BrokenFile::keepAside(directory / "index.json", content);
  ASSERT_EQ(copiesIn(directory).size(), 1U);
  EXPECT_EQ(readFile(copiesIn(directory)[0]), content);
  EXPECT_EQ(std::filesystem::status(copiesIn(directory)[0]).permissions(),
            std::filesystem::perms(0600));
}

TEST(BrokenFileTest, keepsTheSameContentOnce) {
  const TemporaryDirectory directory;
  for (const char* content : {"one", "two", "one", "two", ""}) {
    BrokenFile::keepAside(directory / "index.json", content);
  }
  EXPECT_EQ(copiesIn(directory).size(), 3U);
}

TEST(BrokenFileTest, takesNoLinkToTheContentForACopy) {
  const TemporaryDirectory directory;
  const std::string other = directory.write("other", "one");
  std::filesystem::create_symlink(other, directory / "index.json.broken-1");
  BrokenFile::keepAside(directory / "index.json", "one");
  EXPECT_EQ(copiesIn(directory).size(), 2U);
}

TEST(BrokenFileTest, listsTheCopiesInOrder) {
  const TemporaryDirectory directory;
  const std::string later = directory.write("index.json.broken-1715000002", "b");
  const std::string earlier = directory.write("index.json.broken-1715000001", "a");
  directory.write("index.json", "[]");
  directory.write("other.json.broken-1715000001", "c");
  EXPECT_EQ(BrokenFile::copies(directory / "index.json"), (std::vector{earlier, later}));
}

TEST(BrokenFileTest, aDirectoryThatIsMissingHasNoCopies) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(BrokenFile::copies(directory / "missing/index.json").empty());
}

TEST(BrokenFileTest, failsWhereNothingCanBeWritten) {
  const TemporaryDirectory directory;
  EXPECT_THROW(BrokenFile::keepAside(directory / "missing/index.json", "one"), std::system_error);
}

}  // namespace
}  // namespace lenslark
