#include "commands/AppCommand.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

#include "base/Text.h"
#include "commands/HelpText.h"
#include "commands/Output.h"
#include "control/ControlError.h"
#include "control/LenslarkControl.h"

namespace lenslark::AppCommand {
namespace {

constexpr std::array<std::string_view, 4> words{"enable", "disable", "toggle", "status"};
constexpr std::chrono::seconds patience{3};

}  // namespace

void run(const Arguments& arguments) {
  const std::string_view word = arguments.at(1);
  if (std::ranges::find(words, word) == words.end()) return HelpText::print();
  const auto answer = LenslarkControl::send(std::string(word), patience);
  if (!answer) throw ControlError::appNotRunning("Lenslark app is not running");
  // Line feeds and tabs stay: how the answer is laid out is the application's choice.
  Output::print(Text::printable(*answer, "\n\t") + "\n");
}

}  // namespace lenslark::AppCommand
