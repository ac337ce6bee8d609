#include "commands/ServeCommand.h"

#include <chrono>
#include <exception>
#include <future>
#include <mutex>

#include "base/SerialQueue.h"
#include "base/Text.h"
#include "commands/Failure.h"
#include "commands/InterruptibleImport.h"
#include "commands/Output.h"
#include "commands/ProcessLimits.h"
#include "commands/SharedControl.h"
#include "commands/StopSignals.h"
#include "feeds/LenslarkHost.h"
#include "platform/Screen.h"

namespace lenslark::ServeCommand {
namespace {

/// Standard output of a program that goes on without readers.
void printWhilePossible(std::string_view lines) noexcept {
  try {
    Output::print(std::string(lines) + "\n");
  } catch (const std::exception&) {
    // The cameras matter, not the terminal that watched them.
  }
}

/// Prints a text whenever it differs from the one before.
class ChangePrinter {
 public:
  void print(std::string text) {
    const std::scoped_lock guard(lock_);
    if (text == last_) return;
    last_ = std::move(text);
    printWhilePossible(last_);
  }

 private:
  std::mutex lock_;
  std::string last_;  // Guarded by `lock_`.
};

std::optional<SourceSpec> sourceOverride(const Arguments& arguments, const Import& import,
                                         std::optional<std::int64_t> display) {
  if (display) return SourceSpec{SourceSpec::Display{*display}};
  if (auto match = arguments.value("--window")) {
    return SourceSpec{SourceSpec::Window{std::move(*match)}};
  }
  if (arguments.contains("--test-pattern")) return SourceSpec{SourceSpec::Pattern{}};
  if (const auto file = arguments.value("--image")) {
    return SourceSpec{SourceSpec::Image{import(*file, MediaItem::Kind::image).id}};
  }
  if (const auto file = arguments.value("--video")) {
    return SourceSpec{SourceSpec::Video{import(*file, MediaItem::Kind::video).id}};
  }
  return std::nullopt;
}

std::optional<std::int64_t> framesPerSecond(const Arguments& arguments) {
  const auto text = arguments.value("--fps");
  if (!text) return std::nullopt;
  const auto number = Text::parseInteger(*text);
  if (!number || *number < 1) throw UsageError("--fps expects a positive number");
  return number;
}

/// Never destroyed: a look at a hanging display outlives the host that asked for it.
Screen& screenOfTheProcess() {
  static Screen& screen = *makeScreen().release();
  return screen;
}

std::string cameraText(const CameraStatus& camera, const Summary& summary) {
  std::string text(rawValue(camera.camera));
  text += ": " + summary(camera.assignment);
  if (!camera.feedPath) text += " [no feed]";
  return text;
}

void printNotes(const LenslarkHost& host) {
  if (host.screenAccess() == false) {
    printWhilePossible(
        "note: no Screen Recording permission; image, video and pattern cameras work, the live "
        "desktop doesn't.");
    printWhilePossible(
        "      Allow your terminal in System Settings → Privacy & Security → Screen & System Audio "
        "Recording.");
  }
  printWhilePossible(
      "Lenslark is serving cameras. Change them with `lenslark source set …`. Ctrl-C to stop.");
}

/// What lives as long as the process needs no owner.
template <typename T>
std::shared_ptr<T> neverDestroyed(T& object) {
  return {std::shared_ptr<void>(), &object};
}

/// The host, and what is printed of it.
///
/// Never destroyed: a terminal that takes no more text may hold up whoever prints for longer than
/// the end may last.
class Service {
 public:
  explicit Service(const CameraControl& control)
      : control_(control),
        host_(neverDestroyed(control.store()), neverDestroyed(control.media()),
              &screenOfTheProcess()) {
    host_.onStatusChange([this] { printStatus(); });
  }

  void runUntilStopped(const FeedOverrides& flags) {
    auto started = startBeside(flags);
    signals_.wait();
    host_.stop();
    if (started.wait_for(longestFarewell) == std::future_status::ready) started.get();
  }

 private:
  static constexpr std::chrono::milliseconds longestFarewell{250};

  /// Beside the wait: a signal counts while the devices are still being looked for, too.
  std::future<void> startBeside(const FeedOverrides& flags) {
    std::promise<void> promise;
    auto started = promise.get_future();
    starting_.post([this, flags, promise = std::move(promise)]() mutable {
      try {
        start(flags);
        promise.set_value();
      } catch (...) {
        promise.set_exception(std::current_exception());
        signals_.cancel();
      }
    });
    return started;
  }

  void start(const FeedOverrides& flags) {
    host_.start(flags);
    printStatus();
    if (host_.isRunning()) printNotes(host_);
  }

  void printStatus() {
    const auto media = control_.mediaNames();
    printer_.print(statusText(host_.devices(), [&media](const Assignment& assignment) {
      return CameraDescription::summary(assignment, media);
    }));
  }

  const CameraControl control_;
  StopSignals signals_;
  ChangePrinter printer_;
  SerialQueue starting_{"lenslark.serve", SerialQueue::Lane::waiting};
  LenslarkHost host_;
};

}  // namespace

FeedOverrides overrides(const Arguments& arguments, const Import& import) {
  FeedOverrides result;
  // Numbers first: a mistyped one must not cost an import.
  const auto display = arguments.intAfter("--display");
  result.fps = framesPerSecond(arguments);
  result.source = sourceOverride(arguments, import, display);
  if (const auto mode = arguments.value("--mode")) result.fill = *mode != "fit";
  return result;
}

std::string statusText(const std::vector<DeviceStatus>& devices, const Summary& summary) {
  if (devices.empty()) return "  (no booted simulators or running emulators)";
  std::vector<std::string> lines;
  for (const auto& [device, cameras] : devices) {
    std::vector<std::string> texts;
    for (const auto& camera : cameras) texts.push_back(cameraText(camera, summary));
    std::string line(device.platform());
    line += " " + device.name;
    if (!device.window) line += " (no window)";
    lines.push_back(Text::printable(line + " — " + Text::join(texts, ", ")));
  }
  return Text::join(lines, "\n");
}

void run(const Arguments& arguments) {
  ProcessLimits::allowMoreDescriptors();
  SerialQueue::prepareThreads();
  const auto control = sharedControl();
  const auto flags = overrides(arguments, [&](const std::string& path, MediaItem::Kind kind) {
    return importing(
        [&](const auto& progress) { return control.importMedia(path, kind, progress); });
  });
  static Service& service = *new Service(control);
  service.runUntilStopped(flags);
}

}  // namespace lenslark::ServeCommand
