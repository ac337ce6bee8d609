#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

#include "base/FileDescriptor.h"
#include "base/PosixError.h"
#include "devices/ProcessImage.h"
#include "devices/Shell.h"

#ifdef __linux__
#include <linux/close_range.h>
#endif

namespace lenslark::Shell {
namespace {

/// What the new process tells before its program takes over.
struct Report {
  pid_t pid = 0;
  int error = 0;
};

void resetSignals() noexcept {
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool putStreamsOnNullDevice() noexcept {
  const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  if (null < 0) return false;
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    // Equal numbers would leave the descriptor close-on-exec.
    if (null == stream ? ::fcntl(null, F_SETFD, 0) < 0 : ::dup2(null, stream) < 0) return false;
  }
  return true;
}

/// Only calls that are allowed between a fork in a process of many threads and an exec.
[[noreturn]] void become(const ProcessImage& image, int reportTo) noexcept {
  Report report{.pid = ::getpid(), .error = 0};
  if (putStreamsOnNullDevice()) {
    resetSignals();
#ifdef __linux__
    // Also what libraries left open. Where the system refuses, our own are close-on-exec anyway.
    ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
#endif
    [[maybe_unused]] const ssize_t born = ::write(reportTo, &report, sizeof report);
    ::execve(image.path(), image.arguments(), image.environment());
  }
  report.error = errno;
  [[maybe_unused]] const ssize_t failed = ::write(reportTo, &report, sizeof report);
  ::_exit(127);
}

/// The process between us and the program: its end makes the program nobody's child, and the new
/// session leaves our terminal behind.
[[noreturn]] void becomeIntermediate(const ProcessImage& image, int reportTo) noexcept {
  ::setsid();
  const pid_t child = ::fork();
  if (child == 0) become(image, reportTo);
  if (child < 0) {
    const Report report{.pid = 0, .error = errno};
    [[maybe_unused]] const ssize_t failed = ::write(reportTo, &report, sizeof report);
  }
  ::_exit(0);
}

/// Holds all signals back, so that no handler of ours runs in a forked child.
class SignalsHeld {
 public:
  SignalsHeld() noexcept {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalsHeld() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;

 private:
  sigset_t before_{};
};

bool readReport(const FileDescriptor& pipe, Report& report) {
  ssize_t count = 0;
  do {
    count = ::read(pipe.get(), &report, sizeof report);
  } while (count < 0 && errno == EINTR);
  return count == static_cast<ssize_t>(sizeof report);
}

}  // namespace

pid_t launchDetached(const std::string& executable, const std::vector<std::string>& arguments,
                     const Environment& environment) {
  const ProcessImage image(executable, arguments, environment);
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throwErrno("pipe");
  const FileDescriptor reports(ends[0]);
  FileDescriptor reportTo(ends[1]);
  // The child puts the null device on the lowest three.
  if (reportTo.get() <= STDERR_FILENO) {
    reportTo = FileDescriptor(::fcntl(reportTo.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    if (!reportTo) throwErrno("fcntl");
  }

  pid_t intermediate = -1;
  {
    const SignalsHeld held;
    intermediate = ::fork();
    if (intermediate == 0) becomeIntermediate(image, reportTo.get());
  }
  if (intermediate < 0) throwErrno(executable);
  reportTo.reset();
  while (::waitpid(intermediate, nullptr, 0) < 0 && errno == EINTR) {
  }

  // The pipe ends when the program runs: a second report can only be its failure.
  Report born;
  Report failed;
  if (!readReport(reports, born)) throw posixError(EIO, executable);
  if (born.error != 0) throw posixError(born.error, executable);
  if (readReport(reports, failed)) throw posixError(failed.error, executable);
  return born.pid;
}

}  // namespace lenslark::Shell
