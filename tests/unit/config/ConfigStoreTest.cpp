#include "config/ConfigStore.h"

#include <sys/stat.h>

#include <thread>

#include "base/Clock.h"
#include "base/Error.h"
#include "config/SavedConfig.h"
#include "unit/config/StoreFixture.h"

namespace lenslark {
namespace {

class ConfigStoreTest : public StoreFixture {};

/// An older user's preferences: the third display, and a frame rate that makes no sense.
class OldPreferences final : public Preferences {
 public:
  std::optional<Value> value(const std::string& key) const override {
    if (key == "source2") return "display:2";
    if (key == "fps") return 0L;
    return std::nullopt;
  }
};

ino_t inodeOf(const std::filesystem::path& file) {
  struct stat status {};
  ::stat(file.c_str(), &status);
  return status.st_ino;
}

TEST_F(ConfigStoreTest, givesTheDefaultsOnTheFirstRunAndWritesNothing) {
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  EXPECT_FALSE(std::filesystem::exists(directory_));
}

TEST_F(ConfigStoreTest, knowsItsPlaces) {
  const ConfigStore store(directory_);
  EXPECT_EQ(store.directory(), directory_);
  EXPECT_EQ(store.fileURL(), file_);
}

TEST_F(ConfigStoreTest, startsFromTheOlderPreferences) {
  ConfigStore store(directory_, std::make_shared<OldPreferences>());
  const ConfigFile config = store.config();
  EXPECT_EQ(config.global().source, SourceSpec{SourceSpec::Display{2}});
  EXPECT_TRUE(config.global().updatedAt);
  EXPECT_EQ(config.settings.fps, 30);
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(ConfigStoreTest, savesTheOlderPreferencesWithTheFirstChange) {
  ConfigStore store(directory_, std::make_shared<OldPreferences>());
  store.updateSettings([](Settings& settings) { settings.fill = false; });
  const ConfigFile saved = ConfigJson::read(textOf(file_));
  EXPECT_EQ(saved.global().source, SourceSpec{SourceSpec::Display{2}});
  EXPECT_FALSE(saved.settings.fill);
}

TEST_F(ConfigStoreTest, looksAtTheOlderPreferencesNoMoreOnceThereIsAFile) {
  edit(ConfigFile());
  ConfigStore store(directory_, std::make_shared<OldPreferences>());
  EXPECT_EQ(store.config(), ConfigFile());
}

TEST_F(ConfigStoreTest, writesTheFirstFileEvenWithoutAChange) {
  ConfigStore(directory_).update([](ConfigFile&) {});
  EXPECT_EQ(ConfigJson::read(textOf(file_)), ConfigFile());
}

TEST_F(ConfigStoreTest, keepsWhatWasSet) {
  const Assignment assignment = imageFor(Scope::device(DeviceKey::ios("A")), "m");
  ConfigStore store(directory_);
  store.set(assignment);
  EXPECT_EQ(store.config().assignments, std::vector{assignment});
  EXPECT_EQ(ConfigStore(directory_).config().assignments, std::vector{assignment});
}

TEST_F(ConfigStoreTest, forgetsWhatWasReset) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  store.reset(Scope::global());
  EXPECT_EQ(ConfigJson::read(textOf(file_)), ConfigFile());
}

TEST_F(ConfigStoreTest, makesMissingDirectoriesAndAPrivateLockFile) {
  const std::filesystem::path deep = temporary_ / "a/b/c";
  ConfigStore(deep).set(imageFor(Scope::global(), "m"));
  struct stat status {};
  ASSERT_EQ(::stat((deep / "config.lock").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(ConfigStoreTest, givesTheFileTheModeOfNewFiles) {
  const mode_t mask = ::umask(022);
  ConfigStore(directory_).set(imageFor(Scope::global(), "m"));
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST_F(ConfigStoreTest, writesNothingWhenTheValueStaysEqual) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  const ino_t before = inodeOf(file_);
  store.set(imageFor(Scope::global(), "m"));
  EXPECT_EQ(inodeOf(file_), before);
}

TEST_F(ConfigStoreTest, replacesTheFileRatherThanWritingIntoIt) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  const ino_t before = inodeOf(file_);
  store.set(imageFor(Scope::global(), "n"));
  EXPECT_NE(inodeOf(file_), before);
  EXPECT_TRUE(filesNamed("config.json.").empty());
}

TEST_F(ConfigStoreTest, writesNothingWhenTheChangeThrows) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  const std::string before = textOf(file_);
  const auto failing = [](ConfigFile& config) {
    config.settings.fps = 5;
    throw std::logic_error("changed my mind");
  };
  EXPECT_THROW(store.update(failing), std::logic_error);
  EXPECT_EQ(textOf(file_), before);
  EXPECT_EQ(store.config().settings.fps, 30);
}

TEST_F(ConfigStoreTest, canBeChangedAfterAChangeThrew) {
  ConfigStore store(directory_);
  EXPECT_THROW(store.update([](ConfigFile&) { throw std::logic_error("no"); }), std::logic_error);
  store.set(imageFor(Scope::global(), "m"));
  EXPECT_EQ(store.config().assignments.size(), 1U);
}

TEST_F(ConfigStoreTest, appliesAChangeToWhatOthersWroteLast) {
  ConfigStore mine(directory_);
  ConfigStore theirs(directory_);
  EXPECT_EQ(mine.config(), ConfigFile());
  theirs.set(imageFor(Scope::device(DeviceKey::ios("A")), "a"));
  mine.set(imageFor(Scope::device(DeviceKey::ios("B")), "b"));
  EXPECT_EQ(theirs.config().assignments.size(), 2U);
}

TEST_F(ConfigStoreTest, letsAChangeReadTheStore) {
  ConfigStore store(directory_);
  store.update([&](ConfigFile& config) { config.settings.fps = store.config().settings.fps + 1; });
  EXPECT_EQ(store.config().settings.fps, 31);
}

TEST_F(ConfigStoreTest, seesEveryEditInPlaceWithoutWatching) {
  ConfigStore store(directory_);
  for (int round = 0; round < 200; ++round) {
    edit(withFps(round % 2 == 0 ? 24 : 60));  // the same size, within one step of file times
    ASSERT_EQ(store.config().settings.fps, round % 2 == 0 ? 24 : 60) << round;
  }
}

TEST_F(ConfigStoreTest, seesAnEditThatPutsTheOldDateBack) {
  edit(withFps(24));
  ConfigStore store(directory_);
  ASSERT_TRUE(eventually([&] {
    return std::chrono::file_clock::now() - std::filesystem::last_write_time(file_) >
           2 * FileStamp::settlingTime;
  }));
  EXPECT_EQ(store.config().settings.fps, 24);
  const auto date = std::filesystem::last_write_time(file_);
  edit(withFps(60));
  std::filesystem::last_write_time(file_, date);
  EXPECT_EQ(store.config().settings.fps, 60);
}

TEST_F(ConfigStoreTest, goesBackToTheDefaultsWhenTheFileIsDeleted) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  std::filesystem::remove(file_);
  EXPECT_TRUE(eventually([&] { return store.config() == ConfigFile(); }));
}

TEST_F(ConfigStoreTest, keepsItsValueWhileAnEditorEmptiesAndWritesTheFile) {
  edit(withFps(24));
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), withFps(24));
  edit("");
  const ConfigFile meanwhile = store.config();
  if (FileStamp::of(file_)->settled()) GTEST_SKIP() << "the machine is too busy to ask in time";
  EXPECT_EQ(meanwhile, withFps(24));
  EXPECT_TRUE(keptAside().empty());
  edit(withFps(25));
  EXPECT_EQ(store.config(), withFps(25));
}

TEST_F(ConfigStoreTest, keepsItsValueWhileAnEditorMovesTheFileAwayAndWritesANewOne) {
  edit(withFps(24));
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), withFps(24));
  std::filesystem::rename(file_, file_.string() + "~");
  const ConfigFile meanwhile = store.config();
  if (FileStamp::of(directory_)->settled()) {
    GTEST_SKIP() << "the machine is too busy to ask in time";
  }
  EXPECT_EQ(meanwhile, withFps(24));
  edit(withFps(25));
  EXPECT_EQ(store.config(), withFps(25));
}

TEST_F(ConfigStoreTest, takesAFileForBrokenThatStaysSo) {
  edit(withFps(24));
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), withFps(24));
  edit("oops");
  EXPECT_TRUE(eventually([&] { return store.config() == ConfigFile(); }));
  EXPECT_EQ(keptAside().size(), 1U);
}

TEST_F(ConfigStoreTest, aChangeLosesNoEditThatIsBeingWritten) {
  ConfigStore store(directory_);
  edit("");
  {
    const std::jthread editor([&] { edit(withFps(25)); });
    store.set(imageFor(Scope::global(), "m"));
  }
  EXPECT_EQ(store.config().settings.fps, 25);
}

TEST_F(ConfigStoreTest, writesAgainAfterItsDirectoryWasDeleted) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  std::filesystem::remove_all(directory_);
  store.set(imageFor(Scope::global(), "n"));
  EXPECT_EQ(ConfigJson::read(textOf(file_)).global(), imageFor(Scope::global(), "n"));
}

TEST_F(ConfigStoreTest, refusesToSaveWhatItCouldNotReadAgain) {
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  const std::string before = textOf(file_);
  EXPECT_THROW(store.set(imageFor(Scope::device(DeviceKey::ios("")), "n")), Error);
  EXPECT_EQ(textOf(file_), before);
  EXPECT_EQ(store.config().assignments.size(), 1U);
}

TEST_F(ConfigStoreTest, keepsAFileAsideThatDoesNotDecode) {
  edit("{ \"settings\": oops");
  ConfigStore store(directory_);
  const auto before = Clock::now().time_since_epoch().count();
  EXPECT_EQ(store.config(), ConfigFile());
  ASSERT_EQ(keptAside().size(), 1U);
  EXPECT_EQ(textOf(keptAside()[0]), "{ \"settings\": oops");
  EXPECT_EQ(textOf(file_), "{ \"settings\": oops");
  const auto seconds = std::stoll(keptAside()[0].extension().string().substr(8));
  EXPECT_GE(seconds, before);
  EXPECT_LE(seconds, Clock::now().time_since_epoch().count());
}

TEST_F(ConfigStoreTest, replacesABrokenFileWithTheNextChange) {
  edit("oops");
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  EXPECT_EQ(ConfigJson::read(textOf(file_)).assignments.size(), 1U);
  ASSERT_EQ(keptAside().size(), 1U);
  EXPECT_EQ(textOf(keptAside()[0]), "oops");
}

TEST_F(ConfigStoreTest, leavesABrokenFileWhenTheValueStaysEqual) {
  edit("oops");
  ConfigStore(directory_).reset(Scope::global());
  EXPECT_EQ(textOf(file_), "oops");
}

TEST_F(ConfigStoreTest, keepsTheSameBrokenContentOnlyOnce) {
  edit("oops");
  EXPECT_EQ(ConfigStore(directory_).config(), ConfigFile());
  edit("oops");
  EXPECT_EQ(ConfigStore(directory_).config(), ConfigFile());
  EXPECT_EQ(keptAside().size(), 1U);
}

TEST_F(ConfigStoreTest, keepsEveryDistinctBrokenContent) {
  for (const char* text : {"one", "two", "three", "one"}) {
    edit(text);
    EXPECT_EQ(ConfigStore(directory_).config(), ConfigFile());
  }
  EXPECT_EQ(keptAside().size(), 3U);
}

TEST_F(ConfigStoreTest, keepsBrokenFilesForTheOwnersEyesOnly) {
  edit("oops");
  std::filesystem::permissions(file_, std::filesystem::perms(0666));
  EXPECT_EQ(ConfigStore(directory_).config(), ConfigFile());
  ASSERT_EQ(keptAside().size(), 1U);
  EXPECT_EQ(std::filesystem::status(keptAside()[0]).permissions(), std::filesystem::perms(0600));
}

TEST_F(ConfigStoreTest, neitherFollowsNorOverwritesWhatStandsAtTheCopysName) {
  edit("oops");
  const std::filesystem::path victim = temporary_ / "victim";
  const auto now = Clock::now().time_since_epoch().count();
  for (int seconds = 0; seconds < 20; ++seconds) {
    std::filesystem::create_symlink(victim,
                                    file_.string() + ".broken-" + std::to_string(now + seconds));
  }
  EXPECT_EQ(ConfigStore(directory_).config(), ConfigFile());
  EXPECT_FALSE(std::filesystem::exists(victim));
  ASSERT_EQ(keptAside().size(), 21U);
  EXPECT_EQ(textOf(keptAside().back()), "oops");
}

TEST_F(ConfigStoreTest, usesTheDefaultsForATruncatedFile) {
  const std::string text = ConfigJson::write(withFps(24));
  for (std::size_t size = 0; size < text.size(); size += 7) {
    edit(text.substr(0, size));
    ASSERT_EQ(ConfigStore(directory_).config(), ConfigFile()) << size;
  }
  edit(text);
  EXPECT_EQ(ConfigStore(directory_).config(), withFps(24));
}

TEST_F(ConfigStoreTest, keepsTheChangesOfManyThreads) {
  ConfigStore shared(directory_);
  const auto change = [&](const std::string& name, bool own) {
    ConfigStore another(directory_);
    ConfigStore& store = own ? another : shared;
    for (int index = 0; index < 10; ++index) {
      store.set(imageFor(Scope::device(DeviceKey::ios(name + std::to_string(index))), "m"));
    }
  };
  {
    const std::jthread a(change, "a", false);
    const std::jthread b(change, "b", false);
    const std::jthread c(change, "c", true);
  }
  EXPECT_EQ(shared.config().assignments.size(), 30U);
}

}  // namespace
}  // namespace lenslark
