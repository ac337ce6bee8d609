#include "commands/ImportProgressLine.h"

#include <fmt/core.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "base/Text.h"

namespace lenslark {
namespace {

using std::chrono::steady_clock;

constexpr auto quietTime = std::chrono::milliseconds(300);
constexpr auto redrawTime = std::chrono::milliseconds(100);

/// Short enough that the line fits a terminal: one that wraps cannot be written over.
std::string shortName(const std::string& path) {
  constexpr std::size_t longest = 30;
  const std::string name = Text::printable(std::filesystem::path(path).filename().string());
  if (name.size() <= longest) return name;
  const auto continues = [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
  };
  std::size_t end = longest - 1;
  while (continues(name[end])) --end;  // no letter is cut
  return name.substr(0, end) + "…";
}

}  // namespace

std::string humanBytes(std::uint64_t bytes) {
  constexpr std::array units{"KB", "MB", "GB", "TB"};
  if (bytes < 1000) return fmt::format("{} bytes", bytes);
  double value = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  // What would be rounded to 1000.0 belongs to the next unit.
  while (value >= 999.95 && unit + 1 < units.size()) {
    value /= 1000;
    ++unit;
  }
  return fmt::format("{:.1f} {}", value, units[unit]);
}

ImportProgressLine::ImportProgressLine() : terminal_(isatty(STDERR_FILENO) == 1) {}

CameraControl::ImportProgress ImportProgressLine::handler() {
  if (!terminal_) return {};
  return [this](const std::string& path, const MediaLibrary::Progress& progress) {
    show(path, progress);
  };
}

std::string ImportProgressLine::line(const std::string& path,
                                     const MediaLibrary::Progress& progress, double seconds) {
  const bool hashing = progress.step == MediaLibrary::Progress::Step::hashing;
  const double rate = seconds > 0 ? static_cast<double>(progress.bytesDone) / seconds : 0;
  return fmt::format("{}: {} {} of {}, {}/s", shortName(path), hashing ? "hashing" : "copying",
                     humanBytes(progress.bytesDone), humanBytes(progress.bytesTotal),
                     humanBytes(static_cast<std::uint64_t>(rate)));
}

void ImportProgressLine::show(const std::string& path, const MediaLibrary::Progress& progress) {
  const Instant now = steady_clock::now();
  if (path != path_ || progress.step != step_) {
    path_ = path;
    step_ = progress.step;
    stepBegan_ = now;
  }
  if (now - stepBegan_ < quietTime || now - lastShown_ < redrawTime) return;
  lastShown_ = now;
  shown_ = true;
  const double seconds = std::chrono::duration<double>(now - stepBegan_).count();
  std::fputs(("\r\033[K" + line(path, progress, seconds)).c_str(), stderr);
}

void ImportProgressLine::clear() noexcept {
  if (!shown_) return;
  shown_ = false;
  std::fputs("\r\033[K", stderr);
}

}  // namespace lenslark
