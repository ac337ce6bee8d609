#pragma once

#include <cstddef>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "base/FileDescriptor.h"

/// JSON-RPC 2.0 messages, one JSON object to a line.
namespace lenslark::JsonRpc {

/// Longer lines are dropped and answered like any line that is no message.
inline constexpr std::size_t longestLine = std::size_t{64} << 20U;

inline constexpr int parseErrorCode = -32700;
inline constexpr int methodNotFoundCode = -32601;

struct Message {
  /// The id as JSON text, its numbers in the very digits they came in; nothing for a notification.
  std::optional<std::string> id;
  std::string method;  ///< Empty where there is none.
  nlohmann::json params;
  /// Whether it answers a request: no method, but a result or an error.
  bool response = false;
};

/// **Fails** with JsonError on anything but one JSON object in UTF-8, nested at most
/// `Json::maxDepth`.
Message read(std::string_view line);

/// A line to send, without its line feed. `id` and `result` are JSON text.
std::string result(std::string_view id, std::string_view result);
std::string error(std::string_view id, int code, const std::string& message);

/// Takes lines from a descriptor. **Threads**: one at a time.
class LineReader {
 public:
  explicit LineReader(FileDescriptor input, std::size_t longest = longestLine)
      : input_(std::move(input)), longest_(longest) {}

  struct Line {
    std::string text;      ///< Without its line feed; a carriage return is white space to JSON.
    bool tooLong = false;  ///< It was longer than allowed: `text` is empty.
  };

  /// Waits for the next line, the unended one at the end of the input included. Nothing at the end
  /// of the input; an input that cannot be read counts as ended.
  std::optional<Line> next();

 private:
  bool fill();
  /// A host may hand over an input that does not wait by itself.
  bool waitForInput() const;

  FileDescriptor input_;
  std::size_t longest_;
  std::string buffer_;
  std::size_t start_ = 0;  ///< Where the next line begins in `buffer_`.
};

}  // namespace lenslark::JsonRpc
