#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "control/CameraControl.h"

namespace lenslark {

/// Carries out the calls of the tools in the ToolTable. **Threads**: one call at a time.
class CameraTools {
 public:
  explicit CameraTools(CameraControl control) : control_(std::move(control)) {}

  /// The call's result as agents get it, JSON text: its content, or the error's code and words
  /// with "isError".
  std::string call(const std::string& tool, const nlohmann::json& arguments) const;

 private:
  /// Like those of the single tools: a JSON array, as text.
  std::string content(const std::string& tool, const nlohmann::json& arguments) const;
  std::string listDevices(const nlohmann::json& arguments) const;
  std::string setSource(const nlohmann::json& arguments) const;
  std::string getSource(const nlohmann::json& arguments) const;
  std::string resetSource(const nlohmann::json& arguments) const;
  std::string addMedia(const nlohmann::json& arguments) const;
  std::string snapshotFeed(const nlohmann::json& arguments) const;

  CameraControl control_;
};

}  // namespace lenslark
