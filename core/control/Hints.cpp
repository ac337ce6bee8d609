#include "control/Hints.h"

#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "base/Error.h"
#include "base/FileDescriptor.h"
#include "base/Text.h"
#include "codecs/Modules.h"
#include "media/VectorPicture.h"
#include "platform/NotificationBus.h"

namespace lenslark::Doctor::Hints {
namespace {

using Checks = std::vector<Check>;

bool isSet(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && *value != '\0';
}

void addDisplay(Checks& checks) {
  if (isSet("DISPLAY")) return;
  Check check{Level::info,
              "No display: DISPLAY is not set",
              {"Displays, windows and the desktop cannot be shown from here; images, videos and "
               "patterns can."},
              {}};
  if (isSet("WAYLAND_DISPLAY")) {
    check.details.emplace_back("Wayland alone does not let programs film windows.");
  }
  checks.push_back(std::move(check));
}

/// Readable for processes of the same user.
bool hasAnotherTmp(pid_t pid) {
  struct stat ours {};
  struct stat theirs {};
  const auto path = std::filesystem::path("/proc") / std::to_string(pid) / "root" / "tmp";
  return ::stat("/tmp", &ours) == 0 && ::stat(path.c_str(), &theirs) == 0 &&
         (ours.st_dev != theirs.st_dev || ours.st_ino != theirs.st_ino);
}

void addPrivateTmp(Checks& checks, const std::vector<ConnectedDevice>& devices) {
  for (const ConnectedDevice& device : devices) {
    const auto* emulator = std::get_if<ConnectedDevice::Emulator>(&device.feed);
    if (emulator == nullptr || !hasAnotherTmp(emulator->pid)) continue;
    checks.push_back(
        {Level::info,
         fmt::format("{} [{}] has a /tmp of its own", device.name, device.key.description()),
         {"The feeds lie in this program's /tmp, where it cannot see them."},
         "start both inside or both outside the container"});
  }
}

/// Whether the process is the engine of an emulator, and of none that -avd names.
bool isNamelessEmulator(const std::filesystem::path& process) {
  std::error_code error;
  const std::string program = std::filesystem::read_symlink(process / "exe", error).string();
  // Other virtual machines have the same engine, elsewhere.
  if (error || program.find("/emulator/qemu/") == std::string::npos) return false;
  const std::string line = readFile((process / "cmdline").string());
  const auto words = Text::split(line, '\0');
  return std::ranges::find(words, "-avd") == words.end();
}

void addNamelessEmulators(Checks& checks) {
  std::error_code error;
  std::filesystem::directory_iterator entry("/proc", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const auto pid = Text::parseInt(entry->path().filename().string());
    try {
      if (!pid || !isNamelessEmulator(entry->path())) continue;
    } catch (const std::system_error&) {
      continue;  // it has ended
    }
    checks.push_back({Level::info,
                      fmt::format("An emulator runs without -avd (pid {})", *pid),
                      {"Emulators are known by the name after -avd; this one gets no feed."},
                      "quit it, then `lenslark android launch <avd>`"});
  }
}

void addTool(Checks& checks, const std::string& tool, const char* loss, const char* package) {
  if (::access(tool.c_str(), X_OK) == 0) return;
  checks.push_back({Level::info,
                    tool + " is missing",
                    {fmt::format("{} without it.", loss)},
                    fmt::format("install the package {}", package)});
}

void addModule(Checks& checks, void (*load)()) {
  try {
    load();
  } catch (const Error& error) {
    checks.push_back({Level::info, "A part of Lenslark cannot be loaded", {error.what()}, {}});
  }
}

}  // namespace

std::vector<Check> checks(const std::vector<ConnectedDevice>& devices) {
  Checks checks;
  addDisplay(checks);
  addPrivateTmp(checks, devices);
  addNamelessEmulators(checks);
  addTool(checks, "/bin/ps", "Emulators cannot be found", "procps");
  const VectorPicture::Tools tools;
  addTool(checks, tools.pdfPainter, "PDF pictures cannot be shown", "poppler-utils");
  addTool(checks, tools.svgPainter, "SVG pictures cannot be shown", "librsvg2-bin");
  addModule(checks, [] { Modules::imageCodec(); });
  addModule(checks, [] { Modules::videoCodec(); });
  addModule(checks, [] { NotificationBus::load(); });
  return checks;
}

}  // namespace lenslark::Doctor::Hints
