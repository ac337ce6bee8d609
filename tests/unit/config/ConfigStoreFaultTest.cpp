#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "base/Error.h"
#include "config/SavedConfig.h"
#include "unit/config/StoreFixture.h"

namespace lenslark {
namespace {

/// What may go wrong with the directory and the file: nothing is lost, and the message says why.
class ConfigStoreFaultTest : public StoreFixture {
 protected:
  /// The message with which a change fails.
  static std::string failureOfChange(ConfigStore& store) {
    try {
      store.set(imageFor(Scope::global(), "m"));
    } catch (const std::exception& error) {
      return error.what();
    }
    ADD_FAILURE() << "the change did not fail";
    return {};
  }
};

/// No file may grow beyond this, as on a full disk.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  void (*handler_)(int);
  rlimit before_{};
};

/// No file can be opened while it lives.
class NoDescriptors {
 public:
  NoDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const int lowestFree = ::dup(STDERR_FILENO);
    ::close(lowestFree);
    const rlimit limit{static_cast<rlim_t>(lowestFree), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;
  ~NoDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

/// For root, who may read everything: somebody else as long as it lives.
class OrdinaryUser {
 public:
  OrdinaryUser() {
    constexpr uid_t nobody = 65534;
    if (wasRoot_ && ::seteuid(nobody) != 0) throw std::runtime_error("seteuid failed");
  }
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;
  ~OrdinaryUser() {
    if (wasRoot_ && ::seteuid(0) != 0) std::abort();
  }

 private:
  const bool wasRoot_ = ::geteuid() == 0;
};

TEST_F(ConfigStoreFaultTest, aFileInPlaceOfTheDirectoryGivesDefaultsAndRefusesChanges) {
  temporary_.write("Lenslark", "in the way");
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  EXPECT_EQ(failureOfChange(store), "cannot create " + directory_.string() + ": Not a directory");
  EXPECT_EQ(textOf(directory_), "in the way");
}

TEST_F(ConfigStoreFaultTest, aDirectoryInPlaceOfTheFileIsLeftAlone) {
  std::filesystem::create_directories(file_);
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  EXPECT_EQ(failureOfChange(store),
            "the settings cannot be read and stay as they are (" + file_.string() +
                ": not a regular file); mend that file or move it away, then try again");
  EXPECT_TRUE(std::filesystem::is_directory(file_));
}

TEST_F(ConfigStoreFaultTest, aPipeInPlaceOfTheFileHoldsNobodyUp) {
  std::filesystem::create_directories(directory_);
  ASSERT_EQ(::mkfifo(file_.c_str(), 0600), 0);
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  failureOfChange(store);
  EXPECT_TRUE(std::filesystem::is_fifo(file_));
  EXPECT_TRUE(keptAside().empty());
}

TEST_F(ConfigStoreFaultTest, anEndlessDeviceBehindALinkIsNotRead) {
  std::filesystem::create_directories(directory_);
  std::filesystem::create_symlink("/dev/zero", file_);
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  failureOfChange(store);
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
}

TEST_F(ConfigStoreFaultTest, aLinkToItselfIsLeftAlone) {
  std::filesystem::create_directories(directory_);
  std::filesystem::create_symlink(file_, file_);
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  failureOfChange(store);
  EXPECT_TRUE(std::filesystem::is_symlink(file_));
}

TEST_F(ConfigStoreFaultTest, aGiganticFileIsNeitherReadNorReplaced) {
  edit("");
  constexpr off_t terabyte = off_t{1} << 40U;
  ASSERT_EQ(::truncate(file_.c_str(), terabyte), 0);
  ConfigStore store(directory_);
  EXPECT_EQ(store.config(), ConfigFile());
  failureOfChange(store);
  EXPECT_EQ(std::filesystem::file_size(file_), static_cast<std::uintmax_t>(terabyte));
  EXPECT_TRUE(keptAside().empty());
}

TEST_F(ConfigStoreFaultTest, settingsThatWouldGrowGiganticAreNotSaved) {
  ConfigStore store(directory_);
  store.updateSettings([](Settings& settings) { settings.fps = 24; });
  const std::string gigantic(SavedConfig::maxSize, 'w');
  EXPECT_THROW(store.set(imageFor(Scope::global(), gigantic)), Error);
  EXPECT_EQ(ConfigJson::read(textOf(file_)), withFps(24));
  EXPECT_EQ(store.config(), withFps(24));
  EXPECT_TRUE(filesNamed("config.json.").empty());
}

TEST_F(ConfigStoreFaultTest, aFileThatMayNotBeReadIsNotReplaced) {
  edit(withFps(24));
  std::filesystem::permissions(temporary_.path(), std::filesystem::perms(0777));
  std::filesystem::permissions(directory_, std::filesystem::perms(0777));
  std::filesystem::permissions(file_, std::filesystem::perms(0));
  {
    const OrdinaryUser ordinary;
    ConfigStore store(directory_);
    EXPECT_EQ(store.config(), ConfigFile());
    EXPECT_EQ(failureOfChange(store),
              "the settings cannot be read and stay as they are (" + file_.string() +
                  ": Permission denied); mend that file or move it away, then try again");
  }
  std::filesystem::permissions(file_, std::filesystem::perms(0600));
  EXPECT_EQ(ConfigStore(directory_).config(), withFps(24));
}

TEST_F(ConfigStoreFaultTest, aFileThatBecomesReadableIsRead) {
  edit(withFps(24));
  std::filesystem::permissions(temporary_.path(), std::filesystem::perms(0777));
  std::filesystem::permissions(directory_, std::filesystem::perms(0777));
  std::filesystem::permissions(file_, std::filesystem::perms(0));
  ConfigStore store(directory_);
  {
    const OrdinaryUser ordinary;
    EXPECT_EQ(store.config(), ConfigFile());
  }
  std::filesystem::permissions(file_, std::filesystem::perms(0644));
  EXPECT_EQ(store.config(), withFps(24));
}

TEST_F(ConfigStoreFaultTest, keepsWhatItReadWhileThereAreNoDescriptors) {
  edit(withFps(24));
  ConfigStore store(directory_);
  ASSERT_EQ(store.config(), withFps(24));
  edit(withFps(25));
  {
    const NoDescriptors none;
    EXPECT_EQ(store.config(), withFps(24));
  }
  EXPECT_EQ(store.config(), withFps(25));
}

TEST_F(ConfigStoreFaultTest, tellsOfAChangeThatCouldNotBeReadForWantOfDescriptors) {
  edit(withFps(24));
  Told told;
  ConfigStore store(directory_);
  store.observe(told.observer());
  temporary_.write("draft", ConfigJson::write(withFps(25)));
  {
    const NoDescriptors none;
    std::filesystem::rename(temporary_ / "draft", file_);
    EXPECT_EQ(store.config(), withFps(24));
  }
  ASSERT_TRUE(told.endsWith(withFps(25)));
  EXPECT_EQ(told.configs(), std::vector{withFps(25)});
}

TEST_F(ConfigStoreFaultTest, anUnwritableDirectoryRefusesChangesAndStillReads) {
  edit(withFps(24));
  std::filesystem::permissions(temporary_.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(directory_, std::filesystem::perms(0555));
  std::filesystem::permissions(file_, std::filesystem::perms(0644));
  {
    const OrdinaryUser ordinary;
    ConfigStore store(directory_);
    EXPECT_EQ(store.config(), withFps(24));
    EXPECT_EQ(failureOfChange(store),
              (directory_ / "config.lock").string() + ": Permission denied");
  }
  std::filesystem::permissions(directory_, std::filesystem::perms(0755));
  EXPECT_EQ(ConfigStore(directory_).config(), withFps(24));
}

TEST_F(ConfigStoreFaultTest, aFullDiskLeavesTheOldFileAndNoRemains) {
  ConfigStore store(directory_);
  store.updateSettings([](Settings& settings) { settings.fps = 24; });
  {
    const FullDisk full(16);
    EXPECT_EQ(failureOfChange(store),
              "cannot save " + file_.string() + ", the settings stay as they were: File too large");
  }
  EXPECT_EQ(ConfigJson::read(textOf(file_)), withFps(24));
  EXPECT_EQ(store.config(), withFps(24));
  EXPECT_TRUE(filesNamed("config.json.").empty());
  store.set(imageFor(Scope::global(), "m"));
  EXPECT_EQ(store.config().assignments.size(), 1U);
}

TEST_F(ConfigStoreFaultTest, aBrokenFileThatCannotBeKeptAsideIsNotReplaced) {
  edit("much work of somebody, and a typing error");
  ConfigStore store(directory_);
  {
    const FullDisk full(8);
    EXPECT_EQ(store.config(), ConfigFile());
    failureOfChange(store);
  }
  EXPECT_EQ(textOf(file_), "much work of somebody, and a typing error");
  EXPECT_TRUE(keptAside().empty());
}

TEST_F(ConfigStoreFaultTest, aLockFileThatIsALinkIsNotFollowed) {
  std::filesystem::create_directories(directory_);
  std::filesystem::create_symlink(temporary_ / "victim", directory_ / "config.lock");
  ConfigStore store(directory_);
  failureOfChange(store);
  EXPECT_FALSE(std::filesystem::exists(temporary_ / "victim"));
}

TEST_F(ConfigStoreFaultTest, aDirectoryInPlaceOfTheLockIsAnError) {
  std::filesystem::create_directories(directory_ / "config.lock");
  ConfigStore store(directory_);
  EXPECT_EQ(failureOfChange(store), (directory_ / "config.lock").string() + ": Is a directory");
}

}  // namespace
}  // namespace lenslark
