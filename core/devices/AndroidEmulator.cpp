#include "devices/AndroidEmulator.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "base/Text.h"
#include "base/WholeFile.h"
#include "config/Lenslark.h"
#include "devices/CommandError.h"
#include "devices/Injectors.h"
#include "platform/UserDirectories.h"

namespace lenslark::AndroidEmulator {
namespace {

/// ps cuts its lines to the width that COLUMNS gives, also into a pipe, and writes what the locale
/// does not know as question marks.
const Shell::Environment& wideOutput() {
  static const Shell::Environment environment{{"COLUMNS", "1000000"}, {"LC_ALL", "C.UTF-8"}};
  return environment;
}

Shell::Result ps(const std::vector<std::string>& arguments) {
  return Shell::run("/bin/ps", arguments, wideOutput());
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool isExecutableFile(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::access(path.c_str(), X_OK) == 0;
}

std::string_view trimBlanks(std::string_view text) noexcept {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::optional<Process> parseProcess(std::string_view line) {
  if (line.find(engine) == std::string_view::npos) return std::nullopt;
  const auto words = Text::split(line, ' ');
  const auto pid = Text::parseInt(words.front());
  const auto option = std::find(words.begin(), words.end(), "-avd");
  if (!pid || option == words.end() || option + 1 == words.end()) return std::nullopt;
  return Process{std::string(*(option + 1)), *pid};
}

constexpr std::string_view nameOpening = "Camera '";
constexpr std::string_view labelOpening = "' can be specified by label as '";

/// The label whose announcement stands at `position`; empty when there is none.
std::string_view labelAt(std::string_view line, std::size_t position) {
  constexpr std::string_view word = "webcam";
  const std::size_t start = position + labelOpening.size();
  if (line.substr(start, word.size()) != word) return {};
  const std::size_t end = line.find_first_not_of("0123456789", start + word.size());
  if (end == start + word.size() || end == std::string_view::npos || line[end] != '\'') return {};
  return line.substr(start, end - start);
}

/// Where a label with its announcement begins, at `from` or later.
std::size_t findLabel(std::string_view line, std::size_t from) {
  std::size_t position = line.find(labelOpening, from);
  while (position != std::string_view::npos && labelAt(line, position).empty()) {
    position = line.find(labelOpening, position + 1);
  }
  return position;
}

/// A name is as short as can be but never empty, so it may hold quotes; it ends on its line.
void appendWebcams(std::vector<Webcam>& webcams, std::string_view line) {
  std::size_t opening = line.find(nameOpening);
  while (opening != std::string_view::npos) {
    const std::size_t name = opening + nameOpening.size();
    const std::size_t end = findLabel(line, name + 1);
    if (end == std::string_view::npos) return;
    const std::string_view label = labelAt(line, end);
    webcams.push_back({std::string(label), std::string(line.substr(name, end - name))});
    opening = line.find(nameOpening, end + labelOpening.size() + label.size() + 1);
  }
}

}  // namespace

std::string_view rawValue(Facing facing) noexcept {
  switch (facing) {
    case Facing::back:
      return "back";
    case Facing::front:
      return "front";
    case Facing::both:
      break;
  }
  return "both";
}

std::optional<Facing> parseFacing(std::string_view text) noexcept {
  for (const Facing facing : {Facing::back, Facing::front, Facing::both}) {
    if (rawValue(facing) == text) return facing;
  }
  return std::nullopt;
}

std::vector<std::string> parseAVDList(std::string_view output) {
  std::vector<std::string> names;
  for (const std::string_view line : Text::split(output, '\n')) {
    const std::string_view name = trimBlanks(line);
    if (name.empty() || name.starts_with("INFO") || name.starts_with("WARNING")) continue;
    names.emplace_back(name);
  }
  return names;
}

std::vector<Webcam> parseWebcamList(std::string_view output) {
  std::vector<Webcam> webcams;
  for (const std::string_view line : Text::split(output, '\n')) {
    for (const std::string_view part : Text::split(line, '\r')) appendWebcams(webcams, part);
  }
  return webcams;
}

std::vector<Process> parseProcessList(std::string_view output) {
  std::vector<Process> processes;
  for (const std::string_view line : Text::split(output, '\n')) {
    if (auto process = parseProcess(line)) processes.push_back(std::move(*process));
  }
  return processes;
}

WebcamLabels chooseWebcams(const std::vector<Webcam>& webcams) {
  const auto named = [&](std::string_view name) {
    return std::find_if(webcams.begin(), webcams.end(),
                        [&](const Webcam& webcam) { return webcam.name == name; });
  };
  const auto back = named(Lenslark::virtualCameraName);
  if (back == webcams.end()) {
    throw CommandError(
        "The emulator did not list \"Lenslark Camera\"; is LenslarkEmuInject.dylib built?");
  }
  const auto front = named(Lenslark::virtualFrontCameraName);
  return {back->label, front == webcams.end() ? back->label : front->label};
}

std::vector<std::string> launchArguments(const std::string& avd, Facing facing,
                                         const std::string& label,
                                         const std::vector<std::string>& extraArguments) {
  const bool front = facing == Facing::front;
  std::vector<std::string> arguments{"-avd", avd};
  arguments.insert(arguments.end(), {front ? "-camera-front" : "-camera-back", label,
                                     front ? "-camera-back" : "-camera-front", "emulated"});
  arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
  return arguments;
}

std::string sdkRoot() {
  for (const char* variable : {"ANDROID_HOME", "ANDROID_SDK_ROOT"}) {
    if (const char* value = std::getenv(variable)) return value;
  }
  const std::string home = UserDirectories::home().string();
  const std::string usual = home + "/Library/Android/sdk";
  const std::string linuxUsual = home + "/Android/Sdk";
  return !isDirectory(usual) && isDirectory(linuxUsual) ? linuxUsual : usual;
}

std::string emulatorPath() {
  const std::string path = sdkRoot() + "/emulator/emulator";
  if (!isExecutableFile(path)) {
    throw CommandError("Android emulator not found at " + path + ". Set ANDROID_HOME.");
  }
  return path;
}

std::string injectorPath() {
  return Injectors::path("LenslarkEmuInject.dylib", "LENSLARK_EMU_INJECT_DYLIB");
}

Shell::Environment injection(const std::string& library) {
  Shell::Environment environment{{"DYLD_INSERT_LIBRARIES", library}};
  if (!Injectors::isElfLibrary(library)) return environment;
  if (library.find_first_of(": ") != std::string::npos) {
    throw CommandError("The emulator cannot load " + library +
                       " because of the space or colon in its path. Move it and set "
                       "LENSLARK_EMU_INJECT_DYLIB to where it is then.");
  }
  const char* preloaded = std::getenv("LD_PRELOAD");
  const bool alone = preloaded == nullptr || *preloaded == '\0';
  environment["LD_PRELOAD"] = alone ? library : library + ":" + preloaded;
  return environment;
}

std::vector<std::string> listAVDs() {
  return parseAVDList(Shell::run(emulatorPath(), {"-list-avds"}).output);
}

std::vector<Webcam> listWebcams() {
  const Shell::Result result =
      Shell::run(emulatorPath(), {"-webcam-list"}, injection(injectorPath()));
  return parseWebcamList(result.output + result.errors);
}

WebcamLabels lenslarkWebcamLabels() { return chooseWebcams(listWebcams()); }

pid_t launch(const std::string& avd, Facing facing,
             const std::vector<std::string>& extraArguments) {
  // The front webcam's label is of no use: an emulator shows the injector's main one.
  const std::string label = lenslarkWebcamLabels().back;
  return Shell::launchDetached(emulatorPath(), launchArguments(avd, facing, label, extraArguments),
                               injection(injectorPath()));
}

std::vector<Process> processes() {
  try {
    return parseProcessList(ps({"-axo", "pid=,args="}).output);
  } catch (const std::system_error& error) {
    const int number = error.code().value();
    if (isShortage(number) || number == EAGAIN) throw;
    return {};
  }
}

std::vector<RunningEmulator> running() {
  std::vector<RunningEmulator> emulators;
  try {
    for (Process& process : processes()) {
      // The command line, and the environment after it.
      const Shell::Result result = ps({"eww", "-o", "command=", "-p", std::to_string(process.pid)});
      const bool hasCamera = result.output.find("LenslarkEmuInject") != std::string::npos;
      emulators.push_back({std::move(process.avd), process.pid, hasCamera});
    }
  } catch (const std::system_error&) {
    // Then nobody knows of more.
  }
  return emulators;
}

std::set<std::string> runningAVDs() {
  std::set<std::string> names;
  for (const RunningEmulator& emulator : running()) names.insert(emulator.avd);
  return names;
}

}  // namespace lenslark::AndroidEmulator
