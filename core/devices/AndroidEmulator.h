#pragma once

#include <sys/types.h>

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "devices/Shell.h"

/// Drives the Android SDK's `emulator` tool and finds the emulators that run.
///
/// **Threads**: any; every operation waits for its programs.
/// **Fails** with CommandError where the tool or the injector is missing, with std::system_error
/// where a program cannot be started. `running` and `runningAVDs` never fail.
namespace lenslark::AndroidEmulator {

/// What the name of an emulator's engine starts with: the process that runs the device.
inline constexpr std::string_view engine = "qemu-system";

/// Which of the emulator's cameras is fed. `both` is as `back`: an emulator takes one webcam.
enum class Facing { back, front, both };

std::string_view rawValue(Facing facing) noexcept;
std::optional<Facing> parseFacing(std::string_view text) noexcept;

struct Process {
  std::string avd;
  pid_t pid = 0;

  friend bool operator==(const Process&, const Process&) = default;
};

struct RunningEmulator {
  std::string avd;
  pid_t pid = 0;
  bool hasCamera = false;  ///< It was started with the injector.

  friend bool operator==(const RunningEmulator&, const RunningEmulator&) = default;
};

struct Webcam {
  std::string label;  ///< "webcam0".
  std::string name;

  friend bool operator==(const Webcam&, const Webcam&) = default;
};

struct WebcamLabels {
  std::string back;
  std::string front;

  friend bool operator==(const WebcamLabels&, const WebcamLabels&) = default;
};

/// $ANDROID_HOME, else $ANDROID_SDK_ROOT, else the place below the home directory where the SDK's
/// own installer puts it.
std::string sdkRoot();
std::string emulatorPath();
/// The library that is put into emulators.
std::string injectorPath();

/// The virtual devices' names.
std::vector<std::string> listAVDs();
/// The webcams that an emulator with the injector offers.
std::vector<Webcam> listWebcams();
/// The labels of our own webcams.
WebcamLabels lenslarkWebcamLabels();

/// Starts an emulator with our webcam as its camera and returns its process id. It goes on when
/// this process ends.
pid_t launch(const std::string& avd, Facing facing, const std::vector<std::string>& extraArguments);

/// None where there is no ps, or one that fails. **Fails** with std::system_error only where this
/// process is short of what starting a program takes: then the emulators may run all the same.
std::vector<Process> processes();
std::vector<RunningEmulator> running();
std::set<std::string> runningAVDs();

/// The variables that load the library into an emulator, over those of this process.
/// **Fails** with CommandError when its path cannot be written in them.
Shell::Environment injection(const std::string& library);

/// What the tools print, read.
std::vector<std::string> parseAVDList(std::string_view output);
std::vector<Webcam> parseWebcamList(std::string_view output);
std::vector<Process> parseProcessList(std::string_view output);

/// Which of the listed webcams are ours. **Fails** with CommandError when none is.
WebcamLabels chooseWebcams(const std::vector<Webcam>& webcams);

/// The emulator tool's arguments for a start with the webcam `label`.
std::vector<std::string> launchArguments(const std::string& avd, Facing facing,
                                         const std::string& label,
                                         const std::vector<std::string>& extraArguments);

}  // namespace lenslark::AndroidEmulator
