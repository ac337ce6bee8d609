// Any bytes as what an agent sends: every line is answered by at most one line, which is a response
// to it, and the server goes on.
#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "base/Json.h"
#include "base/Text.h"
#include "mcp/MCPServer.h"
#include "support/Devices.h"
#include "support/TemporaryDirectory.h"

namespace {

using namespace lenslark;
using nlohmann::json;

constexpr std::string_view probe = R"({"id":"still there","method":"ping"})";
constexpr std::string_view probeAnswer = R"({"id":"still there","jsonrpc":"2.0","result":{}})";

/// Two devices, and a support directory of their own.
struct Machine {
  TemporaryDirectory folder;
  ConfigStore store{folder.path()};
  MediaLibrary media{folder / "Media"};
  std::vector<ConnectedDevice> devices{simulator("U1", "iPhone 15"), emulator("Pixel_8", 42)};
  MCPServer server{CameraControl(store, media, [this] { return devices; })};

  /// What one input has set is not there for the next.
  void forgetSettings() { std::filesystem::remove(folder / "config.json"); }
};

FileDescriptor asInput(const std::string& bytes) {
  FileDescriptor file(::memfd_create("fuzz-mcp", MFD_CLOEXEC));
  writeAll(file, std::as_bytes(std::span(bytes)), "input");
  if (::lseek(file.get(), 0, SEEK_SET) != 0) std::abort();
  return file;
}

bool isResponse(const json& answer) {
  return answer.is_object() && answer.size() == 3 && answer.value("jsonrpc", "") == "2.0" &&
         answer.contains("id") && answer.contains("result") != answer.contains("error");
}

/// The text with numbers of two digits at most, which is what the reading library can hold.
std::string shortened(std::string_view text) {
  std::string result;
  bool quoted = false;
  int digits = 0;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const char character = text[index];
    if (character == '"') quoted = !quoted;
    digits = !quoted && character >= '0' && character <= '9' ? digits + 1 : 0;
    if (digits <= 2) result += character;
    if (quoted && character == '\\' && index + 1 < text.size()) result += text[++index];
  }
  return result;
}

/// Whether a line holds a number that the reading library cannot: the server sends it back as an id
/// and refuses it elsewhere, which the second reading does not tell.
bool isBeyondReading(std::string_view line) {
  return !line.contains('\0') && !json::accept(line) && json::accept(shortened(line));
}

/// The line, or nothing that is an object if the server cannot read it: for the reading library a
/// NUL byte ends a text and nesting has no end.
json read(std::string_view line) {
  if (line.contains('\0')) return {};
  int deepest = 0;
  const auto note = [&](int depth, json::parse_event_t event, const json&) {
    const bool begins =
        event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
    if (begins) deepest = std::max(deepest, depth + 1);
    return true;
  };
  json message = json::parse(line, note, false);
  return deepest > Json::maxDepth ? json() : message;
}

/// The lines that are answered, told by a second reading of them; nothing where that cannot tell.
std::optional<std::vector<json>> expectedIds(const std::string& input) {
  std::vector<json> ids;
  for (const std::string_view line : Text::split(input, '\n')) {
    if (Text::trim(line).empty()) continue;
    if (isBeyondReading(line)) return std::nullopt;
    const json message = read(line);
    if (!message.is_object()) {
      ids.emplace_back(nullptr);
    } else if (message.contains("id") &&
               (message.contains("method") ||
                !(message.contains("result") || message.contains("error")))) {
      ids.push_back(message.at("id"));
    }
  }
  return ids;
}

void check(const std::vector<std::string>& answers, const std::optional<std::vector<json>>& ids) {
  if (ids && answers.size() != ids->size()) std::abort();
  for (std::size_t index = 0; index < answers.size(); ++index) {
    if (answers[index].find('\n') != std::string::npos) std::abort();
    const bool refused = answers[index].starts_with(R"({"error":{"code":-32700,)");
    const json answer = json::parse(ids ? answers[index] : shortened(answers[index]));
    if (!isResponse(answer)) std::abort();
    if (refused && !answer.at("id").is_null()) std::abort();
    if (ids && !refused && answer.at("id") != ids->at(index)) std::abort();
  }
}

}  // namespace

/// Thousands of files a second are for memory, not for a disk.
extern "C" int LLVMFuzzerInitialize(int*, char***) { return ::setenv("TMPDIR", "/dev/shm", 1); }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static Machine machine;
  machine.forgetSettings();
  std::string input(reinterpret_cast<const char*>(data), size);
  input += '\n';
  input += probe;
  std::vector<std::string> answers;
  JsonRpc::LineReader lines(asInput(input));
  machine.server.run(lines, [&](std::string_view answer) {
    answers.emplace_back(answer);
    return true;
  });
  if (answers.empty() || answers.back() != probeAnswer) std::abort();
  check(answers, expectedIds(input));
  return 0;
}
