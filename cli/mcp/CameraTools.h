#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "control/CameraControl.h"

namespace lenslark {

/// Carries out the calls of the tools in the ToolTable. **Threads**: one call at a time.
class CameraTools {
 public:
  explicit CameraTools(CameraControl control) : control_(std::move(control)) {}

  /// The call's result as agents get it: its content, or the error's code and words with
  /// "isError".
  nlohmann::json call(const std::string& tool, const nlohmann::json& arguments) const;

 private:
  nlohmann::json content(const std::string& tool, const nlohmann::json& arguments) const;
  nlohmann::json listDevices(const nlohmann::json& arguments) const;
  nlohmann::json setSource(const nlohmann::json& arguments) const;
  nlohmann::json getSource(const nlohmann::json& arguments) const;
  nlohmann::json resetSource(const nlohmann::json& arguments) const;
  nlohmann::json addMedia(const nlohmann::json& arguments) const;
  nlohmann::json snapshotFeed(const nlohmann::json& arguments) const;

  CameraControl control_;
};

}  // namespace lenslark
