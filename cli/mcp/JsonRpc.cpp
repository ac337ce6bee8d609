#include "mcp/JsonRpc.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "base/Json.h"

namespace lenslark::JsonRpc {
namespace {

using nlohmann::json;

/// Writes a message's id down while the message is read. As a value, a number that is larger than
/// 64 bits hold would be a rounded one and come back changed, also from within an array.
class IdText final : public nlohmann::json_sax<json> {
 public:
  std::string text;

  bool null() override { return scalar("null"); }
  bool boolean(bool value) override { return scalar(value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override { return scalar(std::to_string(value)); }
  bool number_unsigned(number_unsigned_t value) override { return scalar(std::to_string(value)); }
  bool number_float(number_float_t, const string_t& digits) override { return scalar(digits); }
  bool string(string_t& value) override { return scalar(Json::compact(value)); }
  bool binary(binary_t&) override { return false; }
  bool start_object(std::size_t) override { return start('{'); }
  bool start_array(std::size_t) override { return start('['); }
  bool end_object() override { return end('}'); }
  bool end_array() override { return end(']'); }
  bool parse_error(std::size_t, const std::string&, const json::exception&) override {
    return false;
  }

  bool key(string_t& name) override {
    if (depth_ == 1) {
      writing_ = name == "id";
      // The last of two ids counts.
      if (writing_) text.clear();
    } else if (writing_) {
      separate();
      text += Json::compact(name) + ":";
    }
    return true;
  }

 private:
  bool scalar(std::string_view value) {
    if (!writing_) return true;
    separate();
    text += value;
    return true;
  }

  bool start(char bracket) {
    ++depth_;
    if (writing_) {
      separate();
      text += bracket;
    }
    return true;
  }

  bool end(char bracket) {
    --depth_;
    if (writing_ && depth_ > 0) text += bracket;
    return true;
  }

  void separate() {
    const bool first = text.empty() || text.back() == '[' || text.back() == '{';
    if (!first && text.back() != ':') text += ',';
  }

  int depth_ = 0;
  bool writing_ = false;
};

std::string idText(const json& id, std::string_view line) {
  if (!id.is_number_float() && !id.is_structured()) return Json::compact(id);
  IdText writer;
  json::sax_parse(line, &writer);
  return writer.text;
}

}  // namespace

Message read(std::string_view line) {
  json object = Json::parse(line);
  if (!object.is_object()) throw JsonError("not a JSON object");
  Message message;
  if (const auto id = object.find("id"); id != object.end()) message.id = idText(*id, line);
  const auto method = object.find("method");
  if (method != object.end() && method->is_string()) message.method = *method;
  if (const auto params = object.find("params"); params != object.end()) {
    message.params = std::move(*params);
  }
  message.response =
      method == object.end() && (object.contains("result") || object.contains("error"));
  return message;
}

std::string result(std::string_view id, const json& result) {
  std::string line = R"({"id":)";
  line += id;
  line += R"(,"jsonrpc":"2.0","result":)";
  line += Json::compact(result);
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
