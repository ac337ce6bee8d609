#include "commands/SourcesCommand.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "base/Text.h"
#include "commands/Output.h"

namespace lenslark::SourcesCommand {
namespace {

using Row = std::vector<std::string>;

int whole(double value) { return static_cast<int>(value); }

std::string sizeText(const Rect& frame) {
  return fmt::format("{}x{}", whole(frame.width), whole(frame.height));
}

/// Characters, as far as a terminal gives each its place.
std::size_t lengthOf(const std::string& text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text, [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

void appendTable(std::string& out, const std::vector<Row>& rows) {
  std::vector<std::size_t> widths;
  for (const Row& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], lengthOf(row[i]));
  }
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += "  " + row[i] + std::string(widths[i] - lengthOf(row[i]), ' ');
    }
    out += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
}

nlohmann::json frameJson(const Rect& frame) {
  return {{"x", whole(frame.x)},
          {"y", whole(frame.y)},
          {"width", whole(frame.width)},
          {"height", whole(frame.height)}};
}

nlohmann::json json(const ScreenCapturer::Sources& sources) {
  nlohmann::json displays = nlohmann::json::array();
  for (const DisplayInfo& display : sources.displays) {
    auto entry = frameJson(display.frame);
    entry["index"] = displays.size();
    entry["name"] = display.name;
    displays.push_back(std::move(entry));
  }
  nlohmann::json windows = nlohmann::json::array();
  for (const WindowInfo& window : sources.windows) {
    auto entry = frameJson(window.frame);
    entry["id"] = window.id;
    entry["application"] = window.applicationName;
    entry["title"] = window.title;
    windows.push_back(std::move(entry));
  }
  return {{"displays", std::move(displays)}, {"windows", std::move(windows)}};
}

ScreenCapturer::Sources list() {
  try {
    return ScreenCapturer::listSources(*makeScreen());
  } catch (const CaptureError& error) {
    std::string_view message = error.what();
    if (message.ends_with('.')) message.remove_suffix(1);
    throw Error(std::string(message) + " — grant Screen Recording permission to your terminal.");
  }
}

}  // namespace

std::string text(const ScreenCapturer::Sources& sources) {
  std::vector<Row> displays;
  for (const DisplayInfo& display : sources.displays) {
    displays.push_back({std::to_string(displays.size()), Text::printable(display.name),
                        sizeText(display.frame),
                        fmt::format("at {},{}", whole(display.frame.x), whole(display.frame.y))});
  }
  std::vector<Row> windows;
  for (const WindowInfo& window : sources.windows) {
    windows.push_back({std::to_string(window.id), Text::printable(window.applicationName),
                       sizeText(window.frame), Text::printable(window.title)});
  }
  std::string out = "Displays (index, name, size, position):\n";
  appendTable(out, displays);
  out += "Windows (id, application, size, title):\n";
  if (windows.empty()) out += "  none\n";
  appendTable(out, windows);
  return out;
}

void run(const Arguments& arguments) {
  const auto sources = list();
  if (arguments.contains("--json")) return Output::printJSON(json(sources));
  Output::print(text(sources));
}

}  // namespace lenslark::SourcesCommand
