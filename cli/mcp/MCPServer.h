#pragma once

#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "mcp/CameraTools.h"
#include "mcp/JsonRpc.h"

namespace lenslark {

/// Lets agents drive the cameras: the Model Context Protocol (revision 2025-06-18) over lines of
/// JSON-RPC 2.0.
///
/// **Threads**: one. A request is carried out and answered before the next is read, so that
/// answers come in the order of the requests.
class MCPServer {
 public:
  /// Sends one line. Returns whether anyone still listens.
  using Send = std::function<bool(std::string line)>;

  explicit MCPServer(CameraControl control) : tools_(std::move(control)) {}

  /// Serves until the input ends or nobody listens any more.
  void run(JsonRpc::LineReader& input, const Send& send) const;

  /// The answer to one line; nothing for notifications and blank lines. Never fails on what the
  /// line says.
  std::optional<std::string> answer(std::string_view line) const;

 private:
  std::string answer(const JsonRpc::Message& request) const;

  CameraTools tools_;
};

}  // namespace lenslark
