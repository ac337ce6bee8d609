#pragma once

#include "config/ConfigFile.h"
#include "platform/Preferences.h"

/// The older application kept its settings in the user's preferences.
namespace lenslark::LegacySettings {

/// The first configuration of someone who used that application: the defaults, and over them what
/// the preferences hold. `preferences` may be null. Entries that make no sense are passed over.
ConfigFile migrated(const Preferences* preferences, Date now);

}  // namespace lenslark::LegacySettings
