#include "config/ConfigStore.h"

#include <fmt/core.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#include "base/AtomicFile.h"
#include "base/Directory.h"
#include "base/Error.h"
#include "base/FileLock.h"
#include "base/Log.h"
#include "base/PosixError.h"
#include "base/Uuid.h"
#include "config/ConfigJson.h"
#include "config/LegacySettings.h"
#include "config/Lenslark.h"
#include "config/SavedConfig.h"
#include "platform/DirectoryWatcher.h"

namespace lenslark {
namespace {

/// After it a file that could not be read is looked at again.
constexpr std::chrono::seconds untilNextTry(2);
/// What happens behind a link is nothing to the directory that is watched.
constexpr std::chrono::milliseconds untilNextLookBehindALink(500);

/// The preferences of the menu-bar application exist on its own platform only.
std::shared_ptr<const Preferences> appPreferences() { return nullptr; }

void call(const ConfigStore::Observer& observer, const ConfigFile& config) {
  try {
    observer(config);
  } catch (const std::exception& error) {
    Log::router().error("lenslark.config.watch: {}", error.what());
  }
}

}  // namespace

struct ConfigStore::State : std::enable_shared_from_this<State> {
  State(std::filesystem::path where, std::shared_ptr<const Preferences> preferences)
      : directory(std::move(where)),
        file(directory / "config.json"),
        legacyPreferences(std::move(preferences)) {}

  /// The value that a reading stands for.
  ConfigFile valueOf(const SavedConfig& saved) const;
  /// The file as it is now, with the lock that all processes share. Gives an editor that is
  /// writing it the time to end.
  SavedConfig readToReplace() const;
  /// Replaces the file and takes its new stamp.
  void save(const ConfigFile& config);
  void startWatching();
  void lookAgain();
  void reloadIfChanged();

  // With the mutex held.
  /// After how long to look at the file although nothing told of a change.
  std::optional<std::chrono::milliseconds> untilSecondLook() const;
  bool cacheIsCurrent() const;
  const ConfigFile& current();
  void remember(const ConfigFile& config, const std::optional<FileStamp>& newStamp, bool isSettled);
  /// Lets go of the mutex while the observers are called.
  void announce(std::unique_lock<std::mutex>& lock, const ConfigFile& config);
  void forgetObservers();

  const std::filesystem::path directory;
  const std::filesystem::path file;
  const std::shared_ptr<const Preferences> legacyPreferences;

  std::mutex mutex;
  // Guarded by the mutex.
  std::optional<ConfigFile> cached;  // the value last read or written
  std::optional<FileStamp> stamp;    // the file's, at that time
  bool settled = true;               // whether that stamp tells every later change
  bool halfWritten = false;          // the file seems to be in an editor's hands: the cache stands
  bool unreadable = false;           // there is a file, but not for us, or not now
  std::map<Token, Observer> observers;
  std::optional<ConfigFile> announced;  // what the observers know
  std::deque<ConfigFile> undelivered;   // announced, and still to be told in this order
  std::thread::id deliverer;            // the thread that is telling them, if one is
  std::condition_variable delivered;    // no thread is any more

  std::atomic<bool> toldUnwatched = false;

  SerialQueue watchQueue{"lenslark.config.watch", SerialQueue::Lane::blocking};
  // Guarded by the mutex; they end before their queue.
  std::unique_ptr<DirectoryWatcher> watcher;
  std::unique_ptr<RepeatingTimer> secondLook;
};

ConfigFile ConfigStore::State::valueOf(const SavedConfig& saved) const {
  if (saved.condition == SavedConfig::Condition::good) return saved.config;
  return LegacySettings::migrated(legacyPreferences.get(), Clock::now());
}

SavedConfig ConfigStore::State::readToReplace() const {
  SavedConfig saved = SavedConfig::read(file);
  if (saved.condition == SavedConfig::Condition::broken && saved.mayBeHalfWritten()) {
    std::this_thread::sleep_for(FileStamp::settlingTime);
    saved = SavedConfig::read(file);
  }
  saved.keepAside(file);
  return saved;
}

bool ConfigStore::State::cacheIsCurrent() const {
  return cached && settled && FileStamp::of(file) == stamp;
}

const ConfigFile& ConfigStore::State::current() {
  if (cacheIsCurrent()) return *cached;
  SavedConfig saved = SavedConfig::read(file);
  halfWritten = cached && saved.mayBeHalfWritten();
  if (halfWritten) {
    settled = false;  // a look at the stamp is not enough: read again
    return *cached;
  }
  saved.keepAside(file);
  unreadable = saved.condition == SavedConfig::Condition::unreadable;
  if (cached && saved.shortage) {
    settled = false;
    return *cached;
  }
  // What cannot be read now may be readable later, although the file stays as it is.
  remember(valueOf(saved), saved.stamp, saved.settled && !unreadable);
  return *cached;
}

void ConfigStore::State::remember(const ConfigFile& config,
                                  const std::optional<FileStamp>& newStamp, bool isSettled) {
  cached = config;
  stamp = newStamp;
  settled = isSettled;
}

void ConfigStore::State::save(const ConfigFile& config) {
  const std::string text = ConfigJson::write(config);
  // What could not be read again is not written either.
  ConfigJson::read(text);
  if (text.size() > SavedConfig::maxSize) {
    throw Error(
        fmt::format("the settings stay as they were: they would be larger than {} bytes; reset "
                    "those of devices that are gone, or set less",
                    SavedConfig::maxSize));
  }
  std::unique_lock lock(mutex);
  try {
    AtomicFile::replace(file.string(), text);
  } catch (const std::system_error& error) {
    throw posixError(error.code().value(),
                     "cannot save " + file.string() + ", the settings stay as they were");
  }
  // Not settled: someone else may have written since the rename.
  remember(config, FileStamp::of(file), false);
  announce(lock, config);
}

void ConfigStore::State::announce(std::unique_lock<std::mutex>& lock, const ConfigFile& config) {
  announced = config;
  undelivered.push_back(config);
  // One thread at a time tells, so that no observer ends with an older value than the last.
  if (deliverer != std::thread::id()) return;
  deliverer = std::this_thread::get_id();
  while (!undelivered.empty()) {
    const ConfigFile next = std::move(undelivered.front());
    undelivered.pop_front();
    const std::map<Token, Observer> handlers = observers;
    lock.unlock();
    for (const auto& [token, handler] : handlers) call(handler, next);
    lock.lock();
  }
  deliverer = {};
  delivered.notify_all();
}

void ConfigStore::State::forgetObservers() {
  std::unique_lock lock(mutex);
  observers.clear();
  delivered.wait(lock, [this] {
    return deliverer == std::thread::id() || deliverer == std::this_thread::get_id();
  });
}

void ConfigStore::State::startWatching() {
  const auto look = [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->reloadIfChanged();
  };
  {
    const std::scoped_lock lock(mutex);
    if (watcher) return;
    if (!secondLook)
      secondLook = std::make_unique<RepeatingTimer>(watchQueue, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->lookAgain();
      });
  }
  std::unique_ptr<DirectoryWatcher> fresh;
  try {
    std::error_code ignored;  // a directory that cannot be made now may be made by someone else
    std::filesystem::create_directories(directory, ignored);
    fresh = std::make_unique<DirectoryWatcher>(directory, watchQueue, look);
  } catch (const std::system_error& error) {
    if (!toldUnwatched.exchange(true)) {
      Log::router().error("changes of the settings will be noticed late: {}", error.what());
    }
    return;
  }
  const std::scoped_lock lock(mutex);
  if (!watcher) watcher = std::move(fresh);
}

void ConfigStore::State::lookAgain() {
  startWatching();  // what was missing for it may be there now
  reloadIfChanged();
}

std::optional<std::chrono::milliseconds> ConfigStore::State::untilSecondLook() const {
  if (halfWritten) return FileStamp::settlingTime;
  std::error_code unknown;
  if (std::filesystem::is_symlink(file, unknown)) return untilNextLookBehindALink;
  if (unreadable || !watcher) return untilNextTry;
  return std::nullopt;
}

void ConfigStore::State::reloadIfChanged() {
  std::unique_lock lock(mutex);
  const ConfigFile config = current();
  const auto pause = untilSecondLook();
  if (secondLook && pause) {
    secondLook->schedule(*pause, *pause);
  } else if (secondLook) {
    secondLook->stop();
  }
  if (config != announced) announce(lock, config);
}

ConfigStore::ConfigStore(std::filesystem::path directory,
                         std::shared_ptr<const Preferences> legacyPreferences)
    : state_(std::make_shared<State>(std::move(directory), std::move(legacyPreferences))) {}

ConfigStore::~ConfigStore() { state_->forgetObservers(); }

ConfigStore& ConfigStore::shared() {
  // Never destroyed: work in the background may still need it while the process ends.
  static auto& store = *new ConfigStore(Lenslark::supportDirectory(), appPreferences());
  return store;
}

const std::filesystem::path& ConfigStore::directory() const noexcept { return state_->directory; }

std::filesystem::path ConfigStore::fileURL() const { return state_->file; }

ConfigFile ConfigStore::config() {
  const std::scoped_lock lock(state_->mutex);
  return state_->current();
}

void ConfigStore::update(const std::function<void(ConfigFile&)>& body) {
  createDirectories(state_->directory);
  const FileLock writers((state_->directory / "config.lock").string());
  AtomicFile::removeAbandoned(state_->directory, state_->file.filename().string());
  const SavedConfig saved = state_->readToReplace();
  if (saved.condition == SavedConfig::Condition::unreadable) {
    throw Error("the settings cannot be read and stay as they are (" + saved.problem +
                "); mend that file or move it away, then try again");
  }
  const ConfigFile before = state_->valueOf(saved);
  ConfigFile after = before;
  body(after);
  if (after == before && saved.condition != SavedConfig::Condition::missing) return;
  state_->save(after);
}

void ConfigStore::set(const Assignment& assignment) {
  update([&](ConfigFile& config) { config.set(assignment); });
}

void ConfigStore::reset(const Scope& scope) {
  update([&](ConfigFile& config) { config.reset(scope); });
}

void ConfigStore::updateSettings(const std::function<void(Settings&)>& body) {
  update([&](ConfigFile& config) { body(config.settings); });
}

ConfigStore::Token ConfigStore::observe(Observer handler) {
  Token token = Uuid::make();
  {
    const std::scoped_lock lock(state_->mutex);
    if (!state_->announced) state_->announced = state_->current();
    state_->observers.emplace(token, std::move(handler));
  }
  state_->startWatching();
  state_->reloadIfChanged();  // what changed before the watch stood
  return token;
}

void ConfigStore::removeObserver(const Token& token) {
  const std::scoped_lock lock(state_->mutex);
  state_->observers.erase(token);
}

}  // namespace lenslark
