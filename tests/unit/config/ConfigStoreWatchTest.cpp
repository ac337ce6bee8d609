#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <atomic>
#include <future>
#include <latch>
#include <memory>
#include <thread>

#include "base/FileDescriptor.h"
#include "base/SerialQueue.h"
#include "unit/config/StoreFixture.h"

namespace lenslark {
namespace {

class ConfigStoreWatchTest : public StoreFixture {};

using Configs = std::vector<ConfigFile>;

TEST_F(ConfigStoreWatchTest, tellsOnceOfAnEditInPlace) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  edit(withFps(25));
  ASSERT_TRUE(told.endsWith(withFps(25)));
  edit(withFps(26));
  ASSERT_TRUE(told.endsWith(withFps(26)));
  EXPECT_EQ(told.configs(), (Configs{withFps(25), withFps(26)}));
}

TEST_F(ConfigStoreWatchTest, tellsOnceOfAnEditByRename) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  editByRename(withFps(25));
  ASSERT_TRUE(told.endsWith(withFps(25)));
  editByRename(withFps(26));
  ASSERT_TRUE(told.endsWith(withFps(26)));
  EXPECT_EQ(told.configs(), (Configs{withFps(25), withFps(26)}));
}

TEST_F(ConfigStoreWatchTest, tellsOfEveryEditBehindALink) {
  temporary_.write("elsewhere", ConfigJson::write(withFps(24)));
  std::filesystem::create_directories(directory_);
  std::filesystem::create_symlink(temporary_ / "elsewhere", file_);
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  temporary_.write("elsewhere", ConfigJson::write(withFps(25)));
  ASSERT_TRUE(told.endsWith(withFps(25)));
  temporary_.write("draft", ConfigJson::write(withFps(26)));
  std::filesystem::rename(temporary_ / "draft", temporary_ / "elsewhere");
  EXPECT_TRUE(told.endsWith(withFps(26)));
}

TEST_F(ConfigStoreWatchTest, tellsNobodyOfASaveWithoutChange) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  edit(withFps(24));
  editByRename(withFps(24));
  edit(withFps(25));
  ASSERT_TRUE(told.endsWith(withFps(25)));
  EXPECT_EQ(told.configs(), Configs{withFps(25)});
}

TEST_F(ConfigStoreWatchTest, tellsOfAChangeByAnotherStore) {
  Told told;
  ConfigStore mine(directory_);
  mine.observe(told.observer());
  ConfigStore(directory_).updateSettings([](Settings& settings) { settings.fps = 5; });
  EXPECT_TRUE(told.endsWith(withFps(5)));
}

TEST_F(ConfigStoreWatchTest, tellsOfAnOwnChangeBeforeItReturnsAndOnlyOnce) {
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  store.updateSettings([](Settings& settings) { settings.fps = 5; });
  EXPECT_EQ(told.configs(), Configs{withFps(5)});
  edit(withFps(6));
  ASSERT_TRUE(told.endsWith(withFps(6)));
  EXPECT_EQ(told.configs(), (Configs{withFps(5), withFps(6)}));
}

TEST_F(ConfigStoreWatchTest, tellsNobodyWhenAnOwnChangeAltersNothing) {
  Told told;
  ConfigStore store(directory_);
  store.set(imageFor(Scope::global(), "m"));
  store.observe(told.observer());
  store.set(imageFor(Scope::global(), "m"));
  EXPECT_TRUE(told.configs().empty());
}

TEST_F(ConfigStoreWatchTest, tellsOfAChangeThatSomeoneReadFirst) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  edit(withFps(25));
  EXPECT_EQ(store.config(), withFps(25));
  EXPECT_TRUE(told.endsWith(withFps(25)));
}

TEST_F(ConfigStoreWatchTest, tellsTheDefaultsWhenTheFileIsDeleted) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  std::filesystem::remove(file_);
  EXPECT_TRUE(told.endsWith(ConfigFile()));
}

TEST_F(ConfigStoreWatchTest, tellsAnObserverNoMoreOnceItIsRemoved) {
  Told gone;
  Told told;
  ConfigStore store(directory_);
  const ConfigStore::Token token = store.observe(gone.observer());
  store.observe(told.observer());
  store.removeObserver(token);
  edit(withFps(5));
  ASSERT_TRUE(told.endsWith(withFps(5)));
  EXPECT_TRUE(gone.configs().empty());
}

TEST_F(ConfigStoreWatchTest, tellsTheOthersWhenAnObserverThrows) {
  Told told;
  ConfigStore store(directory_);
  store.observe([](const ConfigFile&) { throw std::runtime_error("cannot"); });
  store.observe(told.observer());
  store.observe([](const ConfigFile&) { throw std::runtime_error("cannot"); });
  store.set(imageFor(Scope::global(), "m"));
  EXPECT_EQ(told.configs().size(), 1U);
}

TEST_F(ConfigStoreWatchTest, noticesChangesAlsoWhenItCouldNotBeginToWatch) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  {
    // Enough to read the file, too little to watch it.
    const FileDescriptor next = FileDescriptor::open("/dev/null", O_RDONLY);
    const rlimit few{.rlim_cur = static_cast<rlim_t>(next.get()) + 1, .rlim_max = before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &few);
  }
  store.observe(told.observer());
  ::setrlimit(RLIMIT_NOFILE, &before);
  edit(withFps(25));
  EXPECT_TRUE(told.endsWith(withFps(25)));
}

TEST_F(ConfigStoreWatchTest, letsAnObserverReadTheStore) {
  ConfigStore store(directory_);
  std::atomic<std::int64_t> seen = 0;
  store.observe([&](const ConfigFile&) { seen = store.config().settings.fps; });
  edit(withFps(5));
  EXPECT_TRUE(eventually([&] { return seen == 5; }));
}

TEST_F(ConfigStoreWatchTest, recoversWhenItsDirectoryIsMadeAgain) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  std::filesystem::remove_all(directory_);
  ASSERT_TRUE(told.endsWith(ConfigFile()));
  edit(withFps(25));
  ASSERT_TRUE(told.endsWith(withFps(25)));
  edit(withFps(26));
  EXPECT_TRUE(told.endsWith(withFps(26)));
}

TEST_F(ConfigStoreWatchTest, recoversWhenItsDirectoryIsSwappedForAnother) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  temporary_.write("other/config.json", ConfigJson::write(withFps(25)));
  std::filesystem::rename(directory_, temporary_ / "old");
  std::filesystem::rename(temporary_ / "other", directory_);
  ASSERT_TRUE(told.endsWith(withFps(25)));
  edit(withFps(26));
  EXPECT_TRUE(told.endsWith(withFps(26)));
}

TEST_F(ConfigStoreWatchTest, ownChangesMakeADeletedDirectoryAgainAndAreFollowed) {
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  std::filesystem::remove_all(directory_);
  store.updateSettings([](Settings& settings) { settings.fps = 5; });
  ASSERT_TRUE(told.endsWith(withFps(5)));
  edit(withFps(6));
  EXPECT_TRUE(told.endsWith(withFps(6)));
}

TEST_F(ConfigStoreWatchTest, watchesADirectoryThatCouldNotBeMadeAtFirst) {
  temporary_.write("Lenslark", "in the way");
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  std::filesystem::remove(directory_);
  edit(withFps(5));
  EXPECT_TRUE(told.endsWith(withFps(5)));
}

TEST_F(ConfigStoreWatchTest, tellsTheDefaultsWhenTheFileStaysBroken) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  editByRename("oops");
  ASSERT_TRUE(told.endsWith(ConfigFile()));
  EXPECT_EQ(told.configs(), Configs{ConfigFile()});
  EXPECT_EQ(keptAside().size(), 1U);
}

TEST_F(ConfigStoreWatchTest, isNotHeldUpByAPipeInPlaceOfTheFile) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  ASSERT_EQ(::mkfifo((temporary_ / "pipe").c_str(), 0600), 0);
  std::filesystem::rename(temporary_ / "pipe", file_);
  ASSERT_TRUE(told.endsWith(ConfigFile()));
  editByRename(withFps(25));
  EXPECT_TRUE(told.endsWith(withFps(25)));
}

TEST_F(ConfigStoreWatchTest, endsWithTheLastValueWhateverRaces) {
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  const auto change = [&](ConfigStore& by, int parity) {
    for (int round = 0; round < 25; ++round) {
      by.updateSettings([&](Settings& settings) { settings.fps = 100 + 2 * round + parity; });
    }
  };
  ConfigStore other(directory_);
  {
    const std::jthread own([&] { change(store, 0); });
    const std::jthread foreign([&] { change(other, 1); });
  }
  EXPECT_TRUE(told.endsWith(ConfigStore(directory_).config()));
}

TEST_F(ConfigStoreWatchTest, mayGoWhileItIsBeingChanged) {
  ConfigStore other(directory_);
  for (int round = 0; round < 20; ++round) {
    Told told;
    ConfigStore store(directory_);
    store.observe(told.observer());
    other.updateSettings([&](Settings& settings) { settings.fps = 100 + round; });
  }
  EXPECT_EQ(other.config(), withFps(119));
}

TEST_F(ConfigStoreWatchTest, holdsUpNoTimelyWorkHoweverLongALookTakes) {
  constexpr int stores = 4;  // more than timely work has threads
  std::atomic<int> inside = 0;
  std::latch go(1);
  std::vector<std::unique_ptr<ConfigStore>> looking;
  for (int i = 0; i < stores; ++i) {
    looking.push_back(std::make_unique<ConfigStore>(directory_));
    looking.back()->observe([&](const ConfigFile&) {
      ++inside;
      go.wait();
    });
  }
  edit(withFps(25));
  EXPECT_TRUE(eventually([&] { return inside == stores; }, std::chrono::seconds(15)));
  std::atomic<bool> ran = false;
  SerialQueue timely("test", SerialQueue::Lane::timely);
  timely.post([&] { ran = true; });
  EXPECT_TRUE(eventually([&] { return ran.load(); }, std::chrono::seconds(15)));
  go.count_down();
  looking.clear();
}

TEST_F(ConfigStoreWatchTest, goesOnlyWhenItsObserversHaveBeenTold) {
  std::latch inside(1);
  std::latch go(1);
  std::atomic<bool> ended = false;
  auto store = std::make_unique<ConfigStore>(directory_);
  store->observe([&](const ConfigFile&) {
    inside.count_down();
    go.wait();
    ended = true;
  });
  edit(withFps(25));
  inside.wait();
  auto gone = std::async(std::launch::async, [&] { store.reset(); });
  EXPECT_EQ(gone.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
  go.count_down();
  gone.get();
  EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace lenslark
