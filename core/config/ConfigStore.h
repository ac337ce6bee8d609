#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "config/ConfigFile.h"
#include "platform/Preferences.h"

namespace lenslark {

/// Owns `config.json` for one process, while others read and change it too.
///
/// **Threads**: any. Observers are called without the store's lock, on the thread that changed the
/// configuration or on the store's watch queue; they may read `config` but not change it.
class ConfigStore {
 public:
  using Observer = std::function<void(const ConfigFile&)>;
  using Token = std::string;

  /// Reads nothing yet. `legacyPreferences` (may be null) seeds the first configuration.
  explicit ConfigStore(std::filesystem::path directory,
                       std::shared_ptr<const Preferences> legacyPreferences = nullptr);
  /// Waits for observers that another thread is telling; none is called afterwards.
  ~ConfigStore();

  /// The store in `Lenslark::supportDirectory`.
  static ConfigStore& shared();

  const std::filesystem::path& directory() const noexcept;
  std::filesystem::path fileURL() const;

  /// The present configuration; reads the file only after it changed. A file that is missing or
  /// cannot be read gives the defaults; one that does not decode is kept aside first. While the
  /// system lacks what reading takes (descriptors, say), what was read before stands. Never fails.
  ConfigFile config();

  /// Reads the file afresh under the lock that all processes share, applies `body`, and replaces
  /// the file atomically if that changed the value.
  /// **Fails** with what `body` throws (nothing is written) and with std::system_error or Error
  /// when the directory, the lock or the file cannot be written, or an existing file cannot be
  /// read: the old file is then intact.
  void update(const std::function<void(ConfigFile&)>& body);

  void set(const Assignment& assignment);
  void reset(const Scope& scope);
  void updateSettings(const std::function<void(Settings&)>& body);

  /// Tells of every change that alters the value, by this process or any other.
  Token observe(Observer handler);
  void removeObserver(const Token& token);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace lenslark
