#include "mcp/JsonRpc.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "base/Json.h"
#include "base/Text.h"

namespace lenslark::JsonRpc {
namespace {

using nlohmann::json;

std::size_t afterString(std::string_view text, std::size_t quote) {
  std::size_t index = quote + 1;
  while (index < text.size() && text[index] != '"') index += text[index] == '\\' ? 2 : 1;
  return std::min(index + 1, text.size());
}

bool isId(std::string_view key) {
  // Any letter may be written as an escape.
  return key == R"("id")" || (key.contains('\\') && Json::parse(key) == "id");
}

/// The text of an object's id, the last of several; empty where there is none. What is no JSON
/// gives any part of it.
std::string_view idText(std::string_view line) {
  std::string_view found;
  std::string_view lastString;
  std::size_t value = line.npos;  // Where the id begins while it is being passed.
  int depth = 0;
  for (std::size_t index = 0; index < line.size(); ++index) {
    const char character = line[index];
    if (character == '"') {
      const std::size_t end = afterString(line, index);
      lastString = line.substr(index, end - index);
      index = end - 1;
    } else if (character == '{' || character == '[') {
      ++depth;
    } else if (depth == 1 && character == ':') {
      if (isId(lastString)) value = index + 1;
    } else if (depth == 1 && (character == ',' || character == '}') && value != line.npos) {
      found = Text::trim(line.substr(value, index - value));
      value = line.npos;
    }
    if (character == '}' || character == ']') --depth;
  }
  return found;
}

/// Takes one digit or more off the front of `text`. Returns whether there was any.
bool takeDigits(std::string_view& text) {
  const std::size_t count = std::min(text.find_first_not_of("0123456789"), text.size());
  text.remove_prefix(count);
  return count > 0;
}

bool takeAny(std::string_view& text, std::string_view wanted) {
  if (text.empty() || !wanted.contains(text.front())) return false;
  text.remove_prefix(1);
  return true;
}

/// Whether `text` is a number as JSON writes it, of any size.
bool isNumber(std::string_view text) {
  takeAny(text, "-");
  if (!takeAny(text, "0") && !takeDigits(text)) return false;
  if (takeAny(text, ".") && !takeDigits(text)) return false;
  if (takeAny(text, "eE")) {
    takeAny(text, "+-");
    if (!takeDigits(text)) return false;
  }
  return text.empty();
}

/// Parses a line whose id may be a number that no type here holds: it is passed back as text, and
/// what it amounts to does not matter.
json parse(std::string_view line, std::string_view id) {
  if (!isNumber(id)) return Json::parse(line);
  const auto start = static_cast<std::size_t>(id.data() - line.data());
  std::string readable(line.substr(0, start));
  readable += '0';
  readable += line.substr(start + id.size());
  return Json::parse(readable);
}

/// JSON without white space and with plain slashes, its numbers in the very digits they came in.
std::string compact(std::string_view text) {
  std::string result;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (text[index] == '"') {
      const std::size_t end = afterString(text, index);
      result += Json::compact(Json::parse(text.substr(index, end - index)));
      index = end - 1;
    } else if (!std::string_view(" \t\r\n").contains(text[index])) {
      result += text[index];
    }
  }
  return result;
}

}  // namespace

Message read(std::string_view line) {
  const std::string_view id = idText(line);
  json object = parse(line, id);
  if (!object.is_object()) throw JsonError("not a JSON object");
  Message message;
  if (!id.empty()) message.id = compact(id);
  const auto method = object.find("method");
  if (method != object.end() && method->is_string()) message.method = *method;
  if (const auto params = object.find("params"); params != object.end()) {
    message.params = std::move(*params);
  }
  message.response =
      method == object.end() && (object.contains("result") || object.contains("error"));
  return message;
}

std::string result(std::string_view id, std::string_view result) {
  constexpr std::string_view start = R"({"id":)";
  constexpr std::string_view middle = R"(,"jsonrpc":"2.0","result":)";
  std::string line;
  line.reserve(start.size() + id.size() + middle.size() + result.size() + 1);
  line += start;
  line += id;
  line += middle;
  line += result;
  line += '}';
  return line;
}

std::string error(std::string_view id, int code, const std::string& message) {
  std::string line = R"({"error":)";
  line += Json::compact({{"code", code}, {"message", message}});
  line += R"(,"id":)";
  line += id;
  line += R"(,"jsonrpc":"2.0"})";
  return line;
}

std::optional<LineReader::Line> LineReader::next() {
  bool tooLong = false;
  std::size_t searched = start_;
  for (;;) {
    const std::size_t end = buffer_.find('\n', searched);
    const bool ended = end != std::string::npos;
    const std::size_t length = (ended ? end : buffer_.size()) - start_;
    tooLong = tooLong || length > longest_;
    if (ended) {
      Line line{tooLong ? std::string() : buffer_.substr(start_, length), tooLong};
      start_ = end + 1;
      return line;
    }
    if (tooLong) start_ = buffer_.size();
    searched = buffer_.size() - start_;  // `fill` moves what is left to the front.
    if (fill()) continue;
    if (length == 0 && !tooLong) return std::nullopt;
    Line line{tooLong ? std::string() : buffer_.substr(start_), tooLong};
    start_ = buffer_.size();
    return line;
  }
}

bool LineReader::waitForInput() const {
  pollfd input{.fd = input_.get(), .events = POLLIN, .revents = 0};
  return ::poll(&input, 1, -1) > 0 || errno == EINTR;
}

bool LineReader::fill() {
  constexpr std::size_t pieceSize = std::size_t{64} << 10U;
  buffer_.erase(0, start_);
  start_ = 0;
  const std::size_t size = buffer_.size();
  buffer_.resize(size + pieceSize);
  ssize_t count = -1;
  do {
    count = ::read(input_.get(), buffer_.data() + size, pieceSize);
  } while (count < 0 && (errno == EINTR || (errno == EAGAIN && waitForInput())));
  buffer_.resize(size + (count > 0 ? static_cast<std::size_t>(count) : 0));
  return count > 0;
}

}  // namespace lenslark::JsonRpc
