#include "media/BoundedProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include "base/ChildStatuses.h"
#include "base/PosixError.h"

// This header of glibc 2.36 does not say that it is C.
extern "C" {
#include <sys/pidfd.h>
}

namespace lenslark::BoundedProcess {
namespace {

using TimePoint = std::chrono::steady_clock::time_point;
using Bytes = std::vector<std::byte>;

int remainingMilliseconds(TimePoint deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
}

/// Whether there is something to read, or the other side has ended, before the deadline.
bool waitReadable(int descriptor, TimePoint deadline) {
  pollfd wait{.fd = descriptor, .events = POLLIN, .revents = 0};
  for (;;) {
    const int ready = ::poll(&wait, 1, remainingMilliseconds(deadline));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

/// A child that is killed and collected at the latest when its owner goes.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid), handle_(::pidfd_open(pid, 0)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() {
    if (pid_ < 0) return;
    ::kill(pid_, SIGKILL);
    collect();
  }

  /// Whether it ended with status 0 before the deadline.
  bool succeeds(TimePoint deadline) {
    return handle_ && waitReadable(handle_.get(), deadline) && collect() == 0;
  }

 private:
  int collect() {
    int status = -1;
    while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return status;
  }

  pid_t pid_;
  FileDescriptor handle_;
};

void limit(__rlimit_resource resource, std::size_t value) noexcept {
  const rlimit both{.rlim_cur = value, .rlim_max = value};
  ::setrlimit(resource, &both);
}

/// The child's side of the fork: only calls that are safe where other threads' locks may be held.
[[noreturn]] void becomeProgram(const char* executable, char* const* arguments, int input,
                                int output, const Limits& limits, pid_t parent) noexcept {
  constexpr int cannotRun = 127;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(cannotRun);
  const int null = ::open("/dev/null", O_WRONLY);
  if (::dup2(input, STDIN_FILENO) < 0 || ::dup2(output, STDOUT_FILENO) < 0 ||
      ::dup2(null, STDERR_FILENO) < 0) {
    ::_exit(cannotRun);
  }
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  // Libraries that would write a cache are told that they cannot, not ended.
  ::signal(SIGXFSZ, SIG_IGN);
  // Ours are close-on-exec; those that libraries opened may not be.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  limit(RLIMIT_FSIZE, 0);
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_AS, limits.memoryBytes);
  limit(RLIMIT_CPU, static_cast<std::size_t>(limits.cpuTime.count()));
  ::execv(executable, arguments);
  ::_exit(cannotRun);
}

struct Pipe {
  FileDescriptor reader;
  FileDescriptor writer;
};

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throwErrno("pipe");
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

/// Everything until the end of the stream. Nothing when it is too long or too slow.
std::optional<Bytes> readOutput(const FileDescriptor& reader, std::size_t mostBytes,
                                TimePoint deadline) {
  Bytes output;
  std::size_t size = 0;
  for (;;) {
    constexpr std::size_t step = 1UL << 20;
    if (output.size() - size < step) output.resize(std::max(output.size() * 2, size + step));
    if (!waitReadable(reader.get(), deadline)) return std::nullopt;
    const ssize_t count = ::read(reader.get(), output.data() + size, output.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
    if (size > mostBytes) return std::nullopt;
  }
  output.resize(size);
  return output;
}

}  // namespace

std::optional<Bytes> run(const std::string& executable, const std::vector<std::string>& arguments,
                         const FileDescriptor& input, const Limits& limits) {
  // Everything that needs memory happens before the fork.
  std::vector<std::string> words{executable};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  Pipe pipe = makePipe();
  const pid_t parent = ::getpid();
  keepChildStatuses();
  ::lseek(input.get(), 0, SEEK_SET);

  const pid_t pid = ::fork();
  if (pid < 0) throwErrno(executable);
  if (pid == 0) {
    becomeProgram(executable.c_str(), pointers.data(), input.get(), pipe.writer.get(), limits,
                  parent);
  }
  Child child(pid);
  pipe.writer.reset();
  const TimePoint deadline = std::chrono::steady_clock::now() + limits.wallTime;
  auto output = readOutput(pipe.reader, limits.outputBytes, deadline);
  if (!output || !child.succeeds(deadline)) return std::nullopt;
  return output;
}

}  // namespace lenslark::BoundedProcess
