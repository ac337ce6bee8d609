#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "config/ConfigFile.h"

/// The JSON form of the configuration and of the values in it. Decoding **fails** with JsonError
/// that says what is missing or malformed.
namespace lenslark::ConfigJson {

nlohmann::json encode(const Scope& scope);
nlohmann::json encode(const SourceSpec& source);
nlohmann::json encode(const OverlaySpec& overlay);
nlohmann::json encode(const Assignment& assignment);
nlohmann::json encode(const ConfigFile& config);

Scope decodeScope(const nlohmann::json& json);
SourceSpec decodeSource(const nlohmann::json& json);
OverlaySpec decodeOverlay(const nlohmann::json& json);
Assignment decodeAssignment(const nlohmann::json& json);
DeviceKey decodeDeviceKey(const nlohmann::json& json);

/// The text of `config.json`.
std::string write(const ConfigFile& config);
ConfigFile read(std::string_view text);

}  // namespace lenslark::ConfigJson
