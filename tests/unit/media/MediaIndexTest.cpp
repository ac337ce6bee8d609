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

/// Whether an entry with these members more is understood: of members with one name the last
/// counts.
bool understands(const char* more) {
  const TemporaryDirectory directory;
  const auto index =
      directory.write("index.json", "[" + entry(digestA, digestA + ".mp4", more) + "]");
  return MediaIndex::read(index).size() == 1;
}

TEST(MediaIndexTest, leavesOutAnEntryWithAMemberOfTheWrongType) {
  for (const char* wrong :
       {R"(,"id":3)", R"(,"kind":"sound")", R"(,"kind":[])", R"(,"name":null)", R"(,"name":{})",
        R"(,"file":true)", R"(,"width":"4")", R"(,"width":4.5)", R"(,"height":1e10)",
        R"(,"height":null)", R"(,"duration":"2")", R"(,"duration":[2])", R"(,"pinned":1)",
        R"(,"addedAt":5)", R"(,"addedAt":"yesterday")", R"(,"lastUsedAt":{})"}) {
    EXPECT_FALSE(understands(wrong)) << wrong;
  }
}

TEST(MediaIndexTest, takesWhatMeansTheSame) {
  for (const char* same :
       {R"(,"width":4.0)", R"(,"duration":null)", R"(,"duration":3)", R"(,"duration":1e-999)",
        R"(,"note":-1e-999)", R"(,"name":1,"name":"n")", R"(,"note":null)",
        R"(,"note":{"id":[1,{"width":"x"}]})", R"(,"addedAt":"2025-05-01T11:30:00+02:00")"}) {
    EXPECT_TRUE(understands(same)) << same;
  }
}

TEST(MediaIndexTest, readsTheEntriesAroundOneThatIsMalformed) {
  const TemporaryDirectory directory;
  const auto index = directory.write("index.json", "[" + entry(digestA, digestA) +
                                                       R"(, 7, [{"id": {}}], {"id": "x"}, )" +
                                                       entry(digestB, digestB) + "]");
  const auto items = MediaIndex::read(index);
  ASSERT_EQ(items.size(), 2U);
  EXPECT_EQ(items[0].id, "sha256:" + digestA);
  EXPECT_EQ(items[1].id, "sha256:" + digestB);
}

TEST(MediaIndexTest, failsForWhatIsNoList) {
  const TemporaryDirectory directory;
  const std::string deep(100, '[');
  for (const std::string& text :
       {std::string("{}"), std::string("7"),
        std::string(R"({"a": [)" + entry(digestA, digestA) + "]}"), std::string("[] []"),
        deep + std::string(100, ']'), std::string("[\"\xff\"]"), std::string("[\"\xed\xa0\x80\"]"),
        std::string(R"(["\ud800"])"), std::string(R"(["\udc00"])"), std::string("[1e999]"),
        std::string("[01]"), std::string("[\"\n\"]"), std::string("[1,]"), std::string("[NaN]"),
        std::string("[]\0[]", 5)}) {
    const auto index = directory.write("index.json", text);
    EXPECT_THROW(MediaIndex::read(index), JsonError) << text;
  }
}

/// Long enough for the heap, where a reader that goes past the end is seen.
TEST(MediaIndexTest, failsForATextThatEndsInsideACharacter) {
  const TemporaryDirectory directory;
  for (const char* start : {"\xC3", "\xE2", "\xE2\x82", "\xF0", "\xF0\x9F", "\xF0\x9F\x98"}) {
    const auto index =
        directory.write("index.json", R"([{"name": "the name of a picture )" + std::string(start));
    EXPECT_THROW(MediaIndex::read(index), JsonError) << start;
  }
}

TEST(MediaIndexTest, readsBehindAByteOrderMark) {
  const TemporaryDirectory directory;
  const auto index = directory.write("index.json", "\xEF\xBB\xBF[" + entry(digestA, digestA) + "]");
  EXPECT_EQ(MediaIndex::read(index).size(), 1U);
}

TEST(MediaIndexTest, readsNamesBeyondAscii) {
  const TemporaryDirectory directory;
  const auto index = directory.write(
      "index.json", "[" + entry(digestA, digestA, R"(,"name":"h\u00e9 \ud83d\ude00 – ü")") + "]");
  const auto items = MediaIndex::read(index);
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].name, "hé 😀 – ü");
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
