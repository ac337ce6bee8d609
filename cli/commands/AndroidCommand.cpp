#include "commands/AndroidCommand.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/Text.h"
#include "commands/Failure.h"
#include "commands/HelpText.h"
#include "commands/Output.h"
#include "config/Lenslark.h"

namespace lenslark::AndroidCommand {
namespace {

void launch(const Arguments& arguments) {
  if (arguments.count() < 3) throw UsageError("usage: lenslark android launch <avd>");
  const pid_t pid = AndroidEmulator::launch(std::string(arguments.at(2)), facing(arguments),
                                            emulatorArguments(arguments));
  Output::printLine(
      fmt::format("emulator started (pid {}) with {}", pid, Lenslark::virtualCameraName));
}

void printWebcams() {
  for (const auto& webcam : AndroidEmulator::listWebcams()) {
    Output::print(webcam.label + "\t" + Text::printable(webcam.name) + "\n");
  }
}

void printDevices() {
  for (const std::string& name : AndroidEmulator::listAVDs()) Output::printLine(name);
}

}  // namespace

AndroidEmulator::Facing facing(const Arguments& arguments) {
  if (arguments.contains("--back")) return AndroidEmulator::Facing::back;
  if (arguments.contains("--front")) return AndroidEmulator::Facing::front;
  return AndroidEmulator::Facing::both;
}

std::vector<std::string> emulatorArguments(const Arguments& arguments) {
  const auto& words = arguments.words();
  const auto separator = std::find(words.begin(), words.end(), "--");
  if (separator == words.end()) return {};
  return {separator + 1, words.end()};
}

void run(const Arguments& arguments) {
  const std::string_view action = arguments.at(1);
  if (action == "launch") return launch(arguments);
  if (action == "webcams") return printWebcams();
  if (action == "avds") return printDevices();
  HelpText::print();
}

}  // namespace lenslark::AndroidCommand
