#include "media/MediaIndex.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "base/Json.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

namespace fs = std::filesystem;

const std::string digestA(64, 'a');
const std::string digestB(64, 'b');

std::string entry(const std::string& digest, const std::string& file, const char* more = "") {
  return R"({"id": "sha256:)" + digest + R"(", "kind": "video", "name": "n", "file": ")" + file +
         R"(", "width": 4, "height": 3, "pinned": true, "addedAt": "2025-05-01T09:30:00Z",)" +
         R"( "lastUsedAt": "2025-05-02T09:30:00Z")" + more + "}";
}

std::string contents(const fs::path& file) {
  std::ifstream stream(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

std::size_t copiesKeptAside(const fs::path& directory) {
  std::size_t count = 0;
  for (const auto& file : fs::directory_iterator(directory)) {
    if (file.path().filename().string().starts_with("index.json.broken-")) ++count;
  }
  return count;
}

void addItem(const fs::path& index) {
  MediaIndex::rewrite(index, [](std::vector<MediaItem>& items) {
    MediaItem item;
    item.id = "sha256:" + digestB;
    item.file = digestB + ".png";
    items.push_back(item);
  });
}

TEST(MediaIndexTest, readsEveryField) {
  const TemporaryDirectory directory;
  const auto index = directory.write(
      "index.json", "[" + entry(digestA, digestA + ".mp4", R"(,"duration":2.5)") + "]");
  const auto items = MediaIndex::read(index);
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].id, "sha256:" + digestA);
  EXPECT_EQ(items[0].kind, MediaItem::Kind::video);
  EXPECT_EQ(items[0].file, digestA + ".mp4");
  EXPECT_EQ(items[0].width, 4);
  EXPECT_EQ(items[0].height, 3);
  EXPECT_EQ(items[0].duration, 2.5);
  EXPECT_TRUE(items[0].pinned);
  EXPECT_EQ(Json::formatDate(items[0].lastUsedAt), "2025-05-02T09:30:00Z");
}

TEST(MediaIndexTest, isEmptyWithoutAFile) {
  const TemporaryDirectory directory;
  EXPECT_TRUE(MediaIndex::read(directory / "index.json").empty());
}

TEST(MediaIndexTest, writesWhatItReads) {
  const TemporaryDirectory directory;
  const auto index = directory.write("index.json", "[" + entry(digestA, digestA) + "]");
  const auto before = MediaIndex::read(index);
  addItem(index);
  const auto after = MediaIndex::read(index);
  ASSERT_EQ(after.size(), 2U);
  EXPECT_EQ(after[0], before[0]);
  EXPECT_EQ(copiesKeptAside(directory.path()), 0U);
}

TEST(MediaIndexTest, leavesOutAFileThatLeadsOutOfTheLibrary) {
  const TemporaryDirectory directory;
  const std::vector<std::string> files{
      "../../x", "/etc/passwd", digestB + ".png", digestA + "/../../x", digestA + "./../x", ""};
  for (const std::string& file : files) {
    const auto index = directory.write("index.json", "[" + entry(digestA, file) + "]");
    EXPECT_TRUE(MediaIndex::read(index).empty()) << file;
  }
}

TEST(MediaIndexTest, leavesOutAnIdThatIsNoDigest) {
  const TemporaryDirectory directory;
  for (const std::string& digest :
       {std::string("../x"), std::string(63, 'a'), std::string(64, 'A')}) {
    const auto index = directory.write("index.json", "[" + entry(digest, digest) + "]");
    EXPECT_TRUE(MediaIndex::read(index).empty()) << digest;
  }
}

TEST(MediaIndexTest, keepsAnUndecodableIndexAsideBeforeItIsReplaced) {
  for (const char* broken : {"{", "", "{}", "[1]", "\xff\xfe", "[{\"id\": 3}]"}) {
    const TemporaryDirectory directory;
    const auto index = directory.write("index.json", broken);
    addItem(index);
    EXPECT_EQ(MediaIndex::read(index).size(), 1U) << broken;
    ASSERT_EQ(copiesKeptAside(directory.path()), 1U) << broken;
    for (const auto& file : fs::directory_iterator(directory.path())) {
      if (file.path() != index) {
        EXPECT_EQ(contents(file.path()), broken);
      }
    }
  }
}

TEST(MediaIndexTest, isNotWrittenWhenNothingChanges) {
  const TemporaryDirectory directory;
  const auto index = directory.write("index.json", "{ broken");
  MediaIndex::rewrite(index, [](std::vector<MediaItem>&) {});
  EXPECT_EQ(contents(index), "{ broken");
  EXPECT_EQ(copiesKeptAside(directory.path()), 0U);
}

}  // namespace
}  // namespace lenslark
