#include "devices/DeviceScanner.h"

#include <exception>
#include <utility>

#include "devices/DeviceMerge.h"

namespace lenslark {
namespace ScanPacing {
namespace {

using namespace std::chrono_literals;

bool moreThan(std::chrono::steady_clock::duration interval, Instant since, Instant now) noexcept {
  return now > since + interval;
}

}  // namespace

bool screenIsDue(const LastAsked& last, std::optional<bool> screenAccess, Instant now) noexcept {
  return screenAccess.value_or(true) || moreThan(10s, last.screen, now);
}

bool simulatorsAreDue(const LastAsked& last, bool unknownSimulator, Instant now) noexcept {
  return moreThan(unknownSimulator ? 1s : 5s, last.simulators, now);
}

bool emulatorsAreDue(const LastAsked& last, Instant now) noexcept {
  return moreThan(3s, last.emulators, now);
}

}  // namespace ScanPacing

DeviceDiscovery DeviceDiscovery::ofSystem(Screen* screen) {
  return {.simulators = Simulator::bootedDevices,
          .emulators = AndroidEmulator::processes,
          .screenContent = [screen]() -> std::optional<ScreenContent> {
            if (screen == nullptr) return std::nullopt;
            try {
              return screen->content();
            } catch (const std::exception&) {
              return std::nullopt;
            }
          }};
}

DeviceScanner::DeviceScanner(DeviceDiscovery discovery) : discovery_(std::move(discovery)) {}

void DeviceScanner::askScreen(Pace pace, ScanPacing::Instant now) {
  if (pace == Pace::paced && !ScanPacing::screenIsDue(last_, screenAccess_, now)) return;
  content_ = discovery_.screenContent();
  screenAccess_ = content_.has_value();
  last_.screen = now;
}

void DeviceScanner::askSimulators(Pace pace, ScanPacing::Instant now) {
  const bool unknown = DeviceMerge::hasUnknownSimulator(content_, simulators_);
  if (pace == Pace::paced && !ScanPacing::simulatorsAreDue(last_, unknown, now)) return;
  last_.simulators = now;
  try {
    simulators_ = discovery_.simulators();
  } catch (const std::exception&) {
    // A tool that fails once says nothing of the simulators: those known before stay.
  }
}

void DeviceScanner::askEmulators(Pace pace, ScanPacing::Instant now) {
  if (pace == Pace::paced && !ScanPacing::emulatorsAreDue(last_, now)) return;
  last_.emulators = now;
  try {
    emulators_ = discovery_.emulators();
  } catch (const std::exception&) {
    // As with simulators: a process list that nobody could make tells of no emulator that ended.
  }
}

bool DeviceScanner::scan(Pace pace, ScanPacing::Instant now) {
  askScreen(pace, now);
  askSimulators(pace, now);
  askEmulators(pace, now);

  DeviceSnapshot next{DeviceMerge::merge(simulators_, emulators_, content_), content_,
                      screenAccess_};
  const bool news = next.devices != snapshot_.devices ||
                    next.screenAccess != snapshot_.screenAccess ||
                    next.content.has_value() != snapshot_.content.has_value();
  snapshot_ = std::move(next);
  return news;
}

}  // namespace lenslark
