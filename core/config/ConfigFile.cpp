#include "config/ConfigFile.h"

#include <algorithm>

namespace lenslark {

void ConfigFile::set(Assignment assignment) {
  reset(assignment.scope);
  assignments.push_back(std::move(assignment));
}

void ConfigFile::reset(const Scope& scope) {
  // The caller's scope may lie inside the array that is being changed.
  std::erase_if(assignments, [scope](const Assignment& stored) { return stored.scope == scope; });
}

const Assignment* ConfigFile::assignment(const Scope& scope) const noexcept {
  const auto stored = std::ranges::find(assignments, scope, &Assignment::scope);
  return stored == assignments.end() ? nullptr : &*stored;
}

Assignment ConfigFile::resolve(const DeviceKey& device, CameraPosition camera) const {
  if (const Assignment* own = assignment(Scope::camera(device, camera))) return *own;
  if (const Assignment* ofDevice = assignment(Scope::device(device))) return *ofDevice;
  return global();
}

Assignment ConfigFile::global() const {
  const Assignment* stored = assignment(Scope::global());
  return stored != nullptr ? *stored : Assignment{};
}

std::set<std::string> ConfigFile::referencedMedia() const {
  std::set<std::string> media;
  for (const Assignment& stored : assignments) {
    for (std::string& id : stored.mediaIDs()) media.insert(std::move(id));
  }
  return media;
}

void ConfigFile::remember(const DeviceKey& key, const std::string& name, Date now) {
  // Such a key has no text that can be read back: the file would be refused, and no other device
  // remembered.
  if (key.id.empty()) return;
  constexpr std::chrono::seconds rewriteAfter = std::chrono::days(1);
  const auto known = std::ranges::find(knownDevices, key, &KnownDevice::key);
  if (known == knownDevices.end()) {
    knownDevices.push_back({key, name, now});
  } else if (known->name != name) {
    known->name = name;
    known->lastSeen = now;
  } else if (now - known->lastSeen > rewriteAfter) {
    known->lastSeen = now;
  }
}

void ConfigFile::prune(double olderThanSeconds, Date now) {
  std::vector<DeviceKey> forgotten;
  std::erase_if(knownDevices, [&](const KnownDevice& known) {
    const std::chrono::duration<double> unseen = now - known.lastSeen;
    const bool old = unseen.count() > olderThanSeconds;
    if (old) forgotten.push_back(known.key);
    return old;
  });
  std::erase_if(assignments, [&](const Assignment& stored) {
    const auto device = stored.scope.device();
    return device && std::ranges::find(forgotten, *device) != forgotten.end();
  });
}

}  // namespace lenslark
