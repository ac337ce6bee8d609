#include "commands/InterruptibleImport.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <exception>

namespace lenslark {
namespace {

constexpr std::array endings{SIGINT, SIGTERM, SIGHUP};
constexpr int signalStatus = 128;

volatile sig_atomic_t received = 0;
std::array<struct sigaction, endings.size()> before;

struct Interrupted final : std::exception {
  const char* what() const noexcept override { return "interrupted"; }
};

[[noreturn]] void die(int signal) noexcept {
  ::signal(signal, SIG_DFL);
  ::raise(signal);
  ::_exit(signalStatus + signal);
}

}  // namespace

InterruptibleImport::InterruptibleImport() {
  received = 0;
  struct sigaction action = {};
  action.sa_handler = [](int signal) { received = signal; };
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  for (std::size_t index = 0; index < endings.size(); ++index) {
    sigaction(endings[index], nullptr, &before[index]);
    // What a shell or nohup has switched off stays off.
    if (before[index].sa_handler != SIG_IGN) sigaction(endings[index], &action, nullptr);
  }
}

InterruptibleImport::~InterruptibleImport() {
  for (std::size_t index = 0; index < endings.size(); ++index) {
    sigaction(endings[index], &before[index], nullptr);
  }
  line_.clear();
  if (received != 0) die(received);
}

CameraControl::ImportProgress InterruptibleImport::handler() {
  return [this, show = line_.handler()](const std::string& path,
                                        const MediaLibrary::Progress& progress) {
    if (received != 0) throw Interrupted();
    if (show) show(path, progress);
  };
}

}  // namespace lenslark
