#include "commands/MediaCommand.h"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/Text.h"
#include "commands/Failure.h"
#include "commands/HelpText.h"
#include "commands/InterruptibleImport.h"
#include "commands/Output.h"
#include "commands/SharedControl.h"
#include "media/MediaIndex.h"

namespace lenslark::MediaCommand {
namespace {

using nlohmann::json;

/// Most pictures' sizes are no wider than "1920x1080", so that lines printed one by one align too.
constexpr std::size_t usualSizeWidth = 9;

std::string pixelSize(const MediaItem& item) {
  return fmt::format("{}x{}", item.width, item.height);
}

std::string line(const MediaItem& item, std::size_t sizeWidth) {
  return Text::printable(fmt::format(
      "{}  {}  {:<{}}  {}{}", MediaIndex::digestOf(item.id).value_or(item.id), rawValue(item.kind),
      pixelSize(item), sizeWidth, item.name, item.pinned ? "  pinned" : ""));
}

/// The item that the first operand names.
MediaItem find(const Arguments& arguments, const CameraControl& control, const char* usage) {
  const auto words = arguments.positional(2);
  if (words.empty()) throw UsageError(usage);
  return control.media().find(words.front());
}

void add(const Arguments& arguments) {
  const auto files = arguments.positional(2);
  if (files.empty()) throw UsageError("usage: lenslark media add FILE…");
  const CameraControl control = sharedControl();
  const bool pin = arguments.contains("--pin");
  const bool asJSON = arguments.contains("--json");
  json described = json::array();
  for (const std::string& file : files) {
    MediaItem item =
        importing([&](const auto& progress) { return control.importMedia(file, {}, progress); });
    if (pin) {
      control.media().setPinned(item.id, true);
      item.pinned = true;
    }
    if (asJSON) {
      described.push_back(CameraDescription::mediaJSON(item));
    } else {
      Output::printLine(line(item, usualSizeWidth));
    }
  }
  if (asJSON) Output::printJSON(described);
}

void list(const Arguments& arguments) {
  const std::vector<MediaItem> items = MediaLibrary::shared().items();
  if (arguments.contains("--json")) {
    json described = json::array();
    for (const MediaItem& item : items) described.push_back(CameraDescription::mediaJSON(item));
    return Output::printJSON(described);
  }
  if (items.empty()) {
    return Output::printLine("The library is empty. Add files with `lenslark media add FILE…`.");
  }
  std::size_t width = usualSizeWidth;
  for (const MediaItem& item : items) width = std::max(width, pixelSize(item).size());
  std::string text;
  for (const MediaItem& item : items) text += line(item, width) + "\n";
  Output::print(text);
}

void remove(const Arguments& arguments) {
  const CameraControl control = sharedControl();
  const MediaItem item = find(arguments, control, "usage: lenslark media rm ID|NAME");
  const bool used = control.store().config().referencedMedia().contains(item.id);
  if (used && !arguments.contains("--force")) {
    throw UsageError(item.name + " is in use by a camera; reset it first or pass --force");
  }
  control.media().remove(item.id);
  Output::printLine("Removed " + item.name);
}

void pin(const Arguments& arguments, bool pinned) {
  const CameraControl control = sharedControl();
  const MediaItem item = find(arguments, control, "usage: lenslark media pin ID|NAME");
  control.media().setPinned(item.id, pinned);
  Output::printLine((pinned ? "Pinned " : "Unpinned ") + item.name);
}

}  // namespace

void run(const Arguments& arguments) {
  const std::string_view verb = arguments.at(1);
  if (verb == "add") return add(arguments);
  if (verb == "list") return list(arguments);
  if (verb == "rm") return remove(arguments);
  if (verb == "pin") return pin(arguments, true);
  if (verb == "unpin") return pin(arguments, false);
  HelpText::print();
}

}  // namespace lenslark::MediaCommand
