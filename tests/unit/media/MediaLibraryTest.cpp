#include "media/MediaLibrary.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>

#include "base/FileDescriptor.h"
#include "codecs/Modules.h"
#include "media/ImageLoader.h"
#include "media/MediaError.h"
#include "support/DescriptorLimit.h"
#include "support/SamplePicture.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// A library in a directory of its own, and pictures to import.
class MediaLibraryTest : public testing::Test {
 protected:
  MediaLibraryTest() { sample_.run("vips copy sample.ppm sample.png"); }

  /// A picture with content of its own.
  std::string picture(const std::string& name, int variant) {
    sample_.run("{ cat sample.png; printf '" + std::to_string(variant) + "'; } > '" + name + "'");
    return sample_.path(name);
  }

  MediaError::Kind failureOf(const fs::path& path) {
    try {
      library_.importItem(path, false);
    } catch (const MediaError& error) {
      message_ = error.what();
      return error.kind();
    }
    ADD_FAILURE() << path << " was imported";
    return {};
  }

  /// Files below the library except the lock.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    if (!fs::exists(library_.directory())) return names;
    for (const auto& file : fs::recursive_directory_iterator(library_.directory())) {
      const std::string name = file.path().lexically_relative(library_.directory()).string();
      if (file.is_regular_file() && name != "index.lock") names.push_back(name);
    }
    return names;
  }

  const TemporaryDirectory directory_;
  const SamplePicture sample_{directory_};
  MediaLibrary library_{directory_ / "Media"};
  std::string message_;
};

TEST_F(MediaLibraryTest, importsAPictureWithItsDigestSizeAndName) {
  const MediaItem item = library_.importItem(sample_.path("sample.png"), false);
  sample_.run("[ \"sha256:$(sha256sum sample.png | cut -d' ' -f1)\" = " + item.id + " ]");
  EXPECT_EQ(item.kind, MediaItem::Kind::image);
  EXPECT_EQ(item.name, "sample.png");
  EXPECT_EQ(item.file, item.id.substr(7) + ".png");
  EXPECT_EQ(item.width, 96);
  EXPECT_EQ(item.height, 64);
  EXPECT_FALSE(item.duration);
  EXPECT_FALSE(item.pinned);
  EXPECT_EQ(item.addedAt, item.lastUsedAt);
  EXPECT_EQ(library_.items(), std::vector{item});
  EXPECT_EQ(library_.item(item.id), item);
  sample_.run("cmp sample.png Media/items/" + item.file);
}

TEST_F(MediaLibraryTest, makesAThumbnailOfAtMost256Pixels) {
  const SamplePicture large(directory_, {1200, 800});
  large.run("vips copy sample.ppm large.png");
  const MediaItem item = library_.importItem(large.path("large.png"), false);
  const fs::path file = library_.thumbnailURL(item.id);
  EXPECT_EQ(file, directory_ / "Media/thumbs" / (item.id.substr(7) + ".jpg"));
  const auto thumbnail = Modules::imageCodec().load(file.string(), 1000);
  ASSERT_TRUE(thumbnail);
  EXPECT_EQ(thumbnail->size(), (Size{256, 171}));
  expectSample(thumbnail->view(), 6);
}

TEST_F(MediaLibraryTest, measuresALargePictureBoundedBy4096) {
  sample_.run("vips resize sample.ppm huge.png 60");
  const MediaItem item = library_.importItem(sample_.path("huge.png"), false);
  EXPECT_EQ(item.width, 4096);
  EXPECT_EQ(item.height, 2731);
}

TEST_F(MediaLibraryTest, keepsOneItemForTheSameContentUnderTwoNames) {
  sample_.run("cp sample.png other.PNG");
  const MediaItem first = library_.importItem(sample_.path("sample.png"), false);
  const MediaItem second = library_.importItem(sample_.path("other.PNG"), false);
  EXPECT_EQ(second.name, "sample.png");
  EXPECT_EQ(second.id, first.id);
  EXPECT_EQ(library_.items().size(), 1U);
  EXPECT_EQ(files().size(), 3U) << "index, item and thumbnail";
}

TEST_F(MediaLibraryTest, setsButNeverClearsAPinByImporting) {
  EXPECT_FALSE(library_.importItem(sample_.path("sample.png"), false).pinned);
  EXPECT_TRUE(library_.importItem(sample_.path("sample.png"), true).pinned);
  EXPECT_TRUE(library_.importItem(sample_.path("sample.png"), false).pinned);
}

TEST_F(MediaLibraryTest, usesAnItemAgainByImporting) {
  const MediaItem item = library_.importItem(sample_.path("sample.png"), false);
  library_.touch({item.id}, item.addedAt - std::chrono::hours(5));
  const MediaItem again = library_.importItem(sample_.path("sample.png"), false);
  EXPECT_EQ(again, library_.items().at(0));
  EXPECT_GE(again.lastUsedAt, item.addedAt);
}

TEST_F(MediaLibraryTest, storesAnItemAgainWhoseFileWasLost) {
  const MediaItem item = library_.importItem(sample_.path("sample.png"), true);
  fs::remove(library_.url(item));
  EXPECT_TRUE(library_.importItem(sample_.path("sample.png"), false).pinned);
  EXPECT_TRUE(fs::exists(library_.url(item)));
  EXPECT_EQ(library_.items().size(), 1U);
}

TEST_F(MediaLibraryTest, writesTheExtensionInLowerCase) {
  sample_.run("cp sample.png LOUD.PNG");
  const MediaItem item = library_.importItem(sample_.path("LOUD.PNG"), false);
  EXPECT_EQ(item.name, "LOUD.PNG");
  EXPECT_EQ(item.file, item.id.substr(7) + ".png");
}

TEST_F(MediaLibraryTest, importsTheFileThatALinkLeadsTo) {
  sample_.run("ln -s sample.png link");
  const MediaItem item = library_.importItem(sample_.path("link"), false);
  EXPECT_EQ(item.name, "sample.png");
  EXPECT_FALSE(fs::is_symlink(library_.url(item)));
}

TEST_F(MediaLibraryTest, importsAPdfAsAPicture) {
  const auto path =
      directory_.write("page.pdf",
                       "%PDF-1.4\n1 0 obj\n<< /Type /Catalog /Pages 2 0 R >>\nendobj\n"
                       "2 0 obj\n<< /Type /Pages /Kids [3 0 R] /Count 1 >>\nendobj\n"
                       "3 0 obj\n<< /Type /Page /Parent 2 0 R /MediaBox [0 0 200 100] >>\nendobj\n"
                       "trailer\n<< /Root 1 0 R >>\n");
  const MediaItem item = library_.importItem(path, false);
  EXPECT_EQ(item.kind, MediaItem::Kind::image);
  EXPECT_EQ(item.width, 4096);
  EXPECT_EQ(item.height, 2048);
}

TEST_F(MediaLibraryTest, importsAFilmWithItsDuration) {
  sample_.run("ffmpeg -loglevel error -f lavfi -i testsrc2=size=320x240:rate=25 -t 2 film.mp4");
  const MediaItem item = library_.importItem(sample_.path("film.mp4"), false);
  EXPECT_EQ(item.kind, MediaItem::Kind::video);
  EXPECT_EQ(item.width, 320);
  EXPECT_EQ(item.height, 240);
  ASSERT_TRUE(item.duration);
  EXPECT_NEAR(*item.duration, 2, 0.1);
}

TEST_F(MediaLibraryTest, measuresAFilmUprightAndInSquarePixels) {
  sample_.run(
      "ffmpeg -loglevel error -f lavfi -i testsrc2=size=320x240:rate=25:duration=0.2 "
      "-vf setsar=2 film.mp4 && "
      "ffmpeg -loglevel error -i film.mp4 -c copy -metadata:s:v rotate=90 turned.mp4");
  const MediaItem item = library_.importItem(sample_.path("turned.mp4"), false);
  EXPECT_EQ(item.width, 240);
  EXPECT_EQ(item.height, 640);
}

TEST_F(MediaLibraryTest, makesAThumbnailOfAFilmsFirstPicture) {
  sample_.run("ffmpeg -loglevel error -loop 1 -i sample.ppm -t 0.2 -vf scale=960:640 film.mp4");
  const MediaItem item = library_.importItem(sample_.path("film.mp4"), false);
  const auto thumbnail = Modules::imageCodec().load(library_.thumbnailURL(item.id).string(), 1000);
  ASSERT_TRUE(thumbnail);
  // 170.7 rows: films that are shrunk get even sides.
  EXPECT_EQ(thumbnail->size(), (Size{256, 170}));
  expectSample(thumbnail->view(), 16);
}

TEST_F(MediaLibraryTest, refusesWhatIsNoFilmInsideAndLeavesNothingOfIt) {
  directory_.write("empty.mp4", "");
  directory_.write("noise.mov", std::string(5000, 'x'));
  directory_.write("list.mkv", "ffconcat version 1.0\nfile sound.mp4\n");
  sample_.run(
      "ffmpeg -loglevel error -f lavfi -i sine=duration=1 -c:a aac sound.mp4 && "
      "ffmpeg -loglevel error -f lavfi -i testsrc2=size=320x240:rate=25 -t 2 whole.mp4 && "
      // Without its table of contents, which is written last.
      "head -c $(($(stat -c %s whole.mp4) / 2)) whole.mp4 > truncated.mp4");
  for (const char* name : {"empty.mp4", "noise.mov", "list.mkv", "sound.mp4", "truncated.mp4"}) {
    EXPECT_EQ(failureOf(sample_.path(name)), MediaError::Kind::unsupported) << name;
    EXPECT_EQ(message_, std::string(name) + " is not an image or video Lenslark can show");
  }
  EXPECT_EQ(files(), std::vector<std::string>());
}

TEST_F(MediaLibraryTest, refusesWhatIsNoRegularFile) {
  ASSERT_EQ(::mkfifo(sample_.path("fifo.png").c_str(), 0600), 0);
  EXPECT_EQ(failureOf(sample_.path("fifo.png")), MediaError::Kind::notAFile);
  EXPECT_EQ(failureOf(directory_.path()), MediaError::Kind::notAFile);
  EXPECT_EQ(failureOf(sample_.path("missing.png")), MediaError::Kind::notAFile);
  EXPECT_EQ(message_, sample_.path("missing.png") + " is not a readable file");
  EXPECT_TRUE(files().empty());
}

TEST_F(MediaLibraryTest, takesNoPathUpToANulByte) {
  const std::string path = sample_.path("sample.png") + std::string("\0b.png", 6);
  EXPECT_EQ(failureOf(path), MediaError::Kind::notAFile);
  EXPECT_EQ(message_, sample_.path("sample.png") +
                          "\xEF\xBF\xBD"
                          "b.png is not a readable file");
  EXPECT_TRUE(files().empty());
}

TEST_F(MediaLibraryTest, takesTwoGigabytesButNotAByteMore) {
  sample_.run("truncate -s 2147483648 exact.txt && truncate -s 2147483649 more.txt");
  // The size is looked at before the type.
  EXPECT_EQ(failureOf(sample_.path("exact.txt")), MediaError::Kind::unsupported);
  EXPECT_EQ(failureOf(sample_.path("more.txt")), MediaError::Kind::tooLarge);
}

TEST_F(MediaLibraryTest, leavesNothingBehindOfAFileThatCannotBeShown) {
  directory_.write("text.txt", "text");
  directory_.write("empty.png", "");
  directory_.write("noise.jpg", std::string(5000, 'x'));
  sample_.run("head -c $(($(stat -c %s sample.png) / 2)) sample.png > truncated.png");
  for (const char* name : {"text.txt", "empty.png", "noise.jpg", "truncated.png"}) {
    EXPECT_EQ(failureOf(sample_.path(name)), MediaError::Kind::unsupported) << name;
    EXPECT_EQ(message_, std::string(name) + " is not an image or video Lenslark can show");
  }
  EXPECT_TRUE(files().empty());
}

TEST_F(MediaLibraryTest, leavesNothingBehindWhenTheIndexCannotBeWritten) {
  fs::create_directories(library_.directory() / "index.json");
  EXPECT_THROW(library_.importItem(sample_.path("sample.png"), false), Error);
  EXPECT_TRUE(files().empty());
}

TEST_F(MediaLibraryTest, storesWhatItHashedEvenWhenTheSourceChangesMeanwhile) {
  const std::string path = sample_.path("sample.png");
  bool changed = false;
  const MediaItem item = library_.importItem(path, false, [&](const MediaLibrary::Progress& step) {
    if (changed || step.step != MediaLibrary::Progress::Step::hashing) return;
    changed = true;
    // In place, and still the same picture to a decoder.
    std::fstream(path, std::ios::in | std::ios::out | std::ios::binary | std::ios::ate) << "more";
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(-1, std::ios::end);
    file << "!";
  });
  EXPECT_TRUE(changed);
  sample_.run("[ \"$(sha256sum Media/items/" + item.file +
              " | cut -d' ' -f1)\" = " + item.id.substr(7) + " ]");
}

TEST_F(MediaLibraryTest, tellsHowFarAnImportHasCome) {
  std::vector<MediaLibrary::Progress> seen;
  const auto size = fs::file_size(sample_.path("sample.png"));
  library_.importItem(sample_.path("sample.png"), false,
                      [&seen](const MediaLibrary::Progress& step) { seen.push_back(step); });
  ASSERT_EQ(seen.size(), 3U);
  EXPECT_EQ(seen[0].step, MediaLibrary::Progress::Step::hashing);
  EXPECT_EQ(seen[1].step, MediaLibrary::Progress::Step::copying);
  EXPECT_EQ(seen[1].bytesDone, size);
  EXPECT_EQ(seen[1].bytesTotal, size);
}

TEST_F(MediaLibraryTest, readsSomethingLargeOnceWhetherItIsNewOrKnown) {
  using Step = MediaLibrary::Progress::Step;
  sample_.run("cp sample.png large.png && head -c 17000000 /dev/zero >> large.png");
  std::set<Step> seen;
  const auto note = [&seen](const MediaLibrary::Progress& progress) { seen.insert(progress.step); };
  const MediaItem item = library_.importItem(sample_.path("large.png"), false, note);
  EXPECT_EQ(seen, std::set{Step::copying});
  sample_.run("[ \"sha256:$(sha256sum large.png | cut -d' ' -f1)\" = " + item.id + " ]");
  seen.clear();
  EXPECT_EQ(library_.importItem(sample_.path("large.png"), false, note).id, item.id);
  EXPECT_EQ(seen, std::set{Step::hashing});
  EXPECT_EQ(library_.items().size(), 1U);
}

TEST_F(MediaLibraryTest, tellsLargeFilesOfOneSizeApart) {
  sample_.run("cp sample.png a.png && head -c 17000000 /dev/zero >> a.png");
  sample_.run(
      "cp a.png b.png && printf x | dd of=b.png bs=1 seek=9000000 conv=notrunc status=none");
  const MediaItem a = library_.importItem(sample_.path("a.png"), false);
  const MediaItem b = library_.importItem(sample_.path("b.png"), false);
  EXPECT_NE(a.id, b.id);
  EXPECT_EQ(library_.items().size(), 2U);
}

TEST_F(MediaLibraryTest, aShortageIsToldAsThatAndNotAsMediaThatIsMissing) {
  const MediaItem item = library_.importItem(sample_.path("sample.png"), false);
  const DescriptorLimit limit(0);
  EXPECT_THROW(library_.items(), std::system_error);
  try {
    library_.find(item.id);
    FAIL() << "found it without a descriptor";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_files_open);
    EXPECT_THAT(error.what(), HasSubstr("index.json: Too many open files; the limit is "));
  }
}

TEST_F(MediaLibraryTest, anImportCanBeCalledOffAtAnyReport) {
  for (int last = 1; last <= 3; ++last) {
    int reports = 0;
    const auto callOff = [&](const MediaLibrary::Progress&) {
      if (++reports == last) throw std::runtime_error("called off");
    };
    EXPECT_THROW(library_.importItem(sample_.path("sample.png"), false, callOff),
                 std::runtime_error);
    EXPECT_THAT(library_.items(), testing::IsEmpty());
    EXPECT_THAT(files(), testing::Not(testing::Contains(HasSubstr("items/"))));
  }
}

TEST_F(MediaLibraryTest, takesAwayWhatADeadImporterLeft) {
  const fs::path items = directory_ / "Media" / "items";
  directory_.write("Media/items/.import-old.mov", "half");
  directory_.write("Media/items/.import-young.mov", "half");
  directory_.write("Media/items/.import-held.mov", "half");
  const auto hourAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(items / ".import-old.mov", hourAgo);
  fs::last_write_time(items / ".import-held.mov", hourAgo);
  const FileDescriptor holder =
      FileDescriptor::open((items / ".import-held.mov").string(), O_RDONLY);
  ASSERT_EQ(::flock(holder.get(), LOCK_EX), 0);
  library_.importItem(sample_.path("sample.png"), false);
  EXPECT_FALSE(fs::exists(items / ".import-old.mov"));
  EXPECT_TRUE(fs::exists(items / ".import-young.mov"));
  EXPECT_TRUE(fs::exists(items / ".import-held.mov"));
}

TEST_F(MediaLibraryTest, findsByIdPrefixAndName) {
  const MediaItem a = library_.importItem(picture("a.png", 1), false);
  const MediaItem b = library_.importItem(picture("b.png", 2), false);
  EXPECT_EQ(library_.find(a.id), a);
  EXPECT_EQ(library_.find(b.id.substr(7)), b);
  EXPECT_EQ(library_.find(a.id.substr(7, 6)), a);
  EXPECT_EQ(library_.find("b.png"), b);
  EXPECT_THROW(library_.find(a.id.substr(7, 5)), MediaError);
  EXPECT_THROW(library_.find("B.png"), MediaError);
  EXPECT_THROW(library_.find(""), MediaError);
}

TEST_F(MediaLibraryTest, refusesAPrefixThatTwoItemsHave) {
  const std::string one = "abcdef" + std::string(58, '1');
  const std::string two = "abcdef" + std::string(58, '2');
  const auto entry = [](const std::string& digest, const char* name) {
    return R"({"id": "sha256:)" + digest + R"(", "kind": "image", "name": ")" + name +
           R"(", "file": ")" + digest +
           R"(", "width": 1, "height": 1, "pinned": false, "addedAt": "2025-05-01T09:30:00Z",)" +
           R"( "lastUsedAt": "2025-05-01T09:30:00Z"})";
  };
  directory_.write("Media/index.json", "[" + entry(one, "one") + "," + entry(two, "two") + "]");
  EXPECT_THROW(library_.find("abcdef"), MediaError);
  EXPECT_EQ(library_.find("abcdef2").name, "two");
}

TEST_F(MediaLibraryTest, pinsAndTouchesOnlyTheItemsNamed) {
  const MediaItem a = library_.importItem(picture("a.png", 1), false);
  const MediaItem b = library_.importItem(picture("b.png", 2), false);
  library_.setPinned(a.id, true);
  const Date later = a.addedAt + std::chrono::hours(1);
  library_.touch({b.id, "sha256:unknown"}, later);
  EXPECT_TRUE(library_.item(a.id)->pinned);
  EXPECT_FALSE(library_.item(b.id)->pinned);
  EXPECT_EQ(library_.item(a.id)->lastUsedAt, a.lastUsedAt);
  EXPECT_EQ(library_.item(b.id)->lastUsedAt, later);
  library_.setPinned(a.id, false);
  EXPECT_FALSE(library_.item(a.id)->pinned);
}

TEST_F(MediaLibraryTest, removesItemFileAndThumbnail) {
  const MediaItem item = library_.importItem(sample_.path("sample.png"), true);
  library_.remove(item.id);
  EXPECT_TRUE(library_.items().empty());
  EXPECT_EQ(files(), std::vector<std::string>{"index.json"});
}

TEST_F(MediaLibraryTest, collectsWhatIsOldUnpinnedAndUnreferenced) {
  const auto importOld = [this](int variant, std::chrono::seconds age) {
    MediaItem item = library_.importItem(picture(std::to_string(variant) + ".png", variant), false);
    library_.touch({item.id}, Clock::now() - age);
    return *library_.item(item.id);
  };
  const Date now = Clock::now();
  const MediaItem old = importOld(1, std::chrono::days(31));
  const MediaItem pinned = importOld(2, std::chrono::days(400));
  const MediaItem referenced = importOld(3, std::chrono::days(400));
  const MediaItem exact = importOld(4, std::chrono::days(0));
  library_.touch({exact.id}, now - std::chrono::days(30));
  library_.setPinned(pinned.id, true);

  const auto removed = library_.collectGarbage({referenced.id}, now);
  ASSERT_EQ(removed.size(), 1U);
  EXPECT_THAT(removed[0], HasSubstr("1.png"));
  EXPECT_FALSE(library_.item(old.id));
  EXPECT_FALSE(fs::exists(library_.url(old)));
  EXPECT_FALSE(fs::exists(library_.thumbnailURL(old.id)));
  EXPECT_EQ(library_.items().size(), 3U);
  EXPECT_EQ(library_.collectGarbage({}, now + std::chrono::seconds(1)).size(), 2U);
}

TEST_F(MediaLibraryTest, collectsTheFilesOfAnImportThatDied) {
  const MediaItem item = library_.importItem(picture("kept.png", 1), false);
  const std::string digest(64, 'a');
  const auto stored = directory_.write("Media/items/" + digest + ".png", "of no entry");
  const auto thumbnail = directory_.write("Media/thumbs/" + digest + ".jpg", "of no entry");
  const auto other = directory_.write("Media/items/notes.txt", "somebody's own");
  library_.collectGarbage({}, Clock::now());
  EXPECT_FALSE(fs::exists(stored));
  EXPECT_FALSE(fs::exists(thumbnail));
  EXPECT_TRUE(fs::exists(other));
  EXPECT_TRUE(fs::exists(library_.url(item)));
  EXPECT_TRUE(fs::exists(library_.thumbnailURL(item.id)));
}

TEST_F(MediaLibraryTest, collectsNoFileThatALostEntryMayHaveNamed) {
  library_.importItem(picture("kept.png", 1), false);
  const auto stored = directory_.write("Media/items/" + std::string(64, 'a') + ".png", "unlisted");
  directory_.write("Media/index.json.broken-1715000000", "[");
  library_.collectGarbage({}, Clock::now());
  EXPECT_TRUE(fs::exists(stored));
}

TEST_F(MediaLibraryTest, keepsEveryPathInsideItsDirectory) {
  MediaItem item;
  item.file = "../../outside";
  EXPECT_EQ(library_.url(item), library_.directory() / "items/outside");
  EXPECT_EQ(library_.thumbnailURL("sha256:../../x"), library_.directory() / "thumbs/x.jpg");
  const auto victim = directory_.write("victim", "precious");
  directory_.write("Media/index.json",
                   R"([{"id": "sha256:)" + std::string(64, 'a') +
                       R"(", "kind": "image", "name": "n", "file": "../../victim", "width": 1,)" +
                       R"( "height": 1, "pinned": false, "addedAt": "2001-01-01T00:00:00Z",)" +
                       R"( "lastUsedAt": "2001-01-01T00:00:00Z"}])");
  library_.remove("sha256:" + std::string(64, 'a'));
  library_.collectGarbage({}, Clock::now());
  EXPECT_TRUE(fs::exists(victim));
}

TEST_F(MediaLibraryTest, makesNothingOnlyBecauseItIsAsked) {
  EXPECT_TRUE(library_.items().empty());
  library_.touch({"sha256:x"}, Clock::now());
  library_.setPinned("sha256:x", true);
  library_.remove("sha256:x");
  EXPECT_TRUE(library_.collectGarbage({}, Clock::now()).empty());
  EXPECT_FALSE(fs::exists(library_.directory()));
}

TEST_F(MediaLibraryTest, losesNothingWhenProcessesImportAtOnce) {
  constexpr int processes = 4;
  constexpr int picturesEach = 5;
  std::vector<pid_t> children;
  for (int process = 0; process < processes; ++process) {
    std::vector<std::string> words{MEDIA_IMPORTER, library_.directory(),
                                   sample_.path("sample.png")};
    for (int i = 0; i < picturesEach; ++i) {
      const int variant = process * picturesEach + i;
      words.push_back(picture(std::to_string(variant) + ".png", variant));
    }
    std::vector<char*> pointers;
    for (auto& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
      ::execv(pointers[0], pointers.data());
      ::_exit(127);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(library_.items().size(), 1U + processes * picturesEach);
  EXPECT_EQ(files().size(), 1U + 2 * (1U + processes * picturesEach));
}

}  // namespace
}  // namespace lenslark
