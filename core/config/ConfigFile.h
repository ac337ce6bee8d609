#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "config/Assignment.h"

namespace lenslark {

struct Settings {
  bool fill = true;       ///< Pictures cover the frame rather than fitting inside it.
  std::int64_t fps = 30;  ///< Frames per second at which cameras are fed.
  bool autoInjectSimulators = true;

  friend bool operator==(const Settings&, const Settings&) = default;
};

/// A device that was seen connected.
struct KnownDevice {
  DeviceKey key;
  std::string name;
  Date lastSeen;

  friend bool operator==(const KnownDevice&, const KnownDevice&) = default;
};

/// All lasting settings: the value of `config.json`. Its operations change only the value.
struct ConfigFile {
  static constexpr int currentSchema = 1;

  std::int64_t schemaVersion = currentSchema;
  Settings settings;
  std::vector<Assignment> assignments;  ///< At most one for each scope, the latest set last.
  std::vector<KnownDevice> knownDevices;

  /// Stores an assignment in place of the one for its scope.
  void set(Assignment assignment);
  /// Removes what is stored for exactly this scope.
  void reset(const Scope& scope);
  /// What is stored for exactly this scope, or null.
  const Assignment* assignment(const Scope& scope) const noexcept;

  /// What governs a camera: its own setting, else its device's, else the global one, else the
  /// built-in default (the desktop under the window, without a date). The result keeps its scope.
  Assignment resolve(const DeviceKey& device, CameraPosition camera) const;
  /// What governs cameras without a setting of their own.
  Assignment global() const;
  /// Every media id that any assignment names.
  std::set<std::string> referencedMedia() const;

  /// Notes that a device was seen; changes the value at most once a day unless its name changed.
  /// A device without an id is not noted.
  void remember(const DeviceKey& key, const std::string& name, Date now);
  /// Forgets devices not seen for longer than this, with their settings.
  void prune(double olderThanSeconds, Date now);

  friend bool operator==(const ConfigFile&, const ConfigFile&) = default;
};

}  // namespace lenslark
