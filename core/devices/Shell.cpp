#include "devices/Shell.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "base/ChildStatuses.h"
#include "base/FileDescriptor.h"
#include "base/Log.h"
#include "base/PosixError.h"
#include "base/Text.h"
#include "devices/ProcessImage.h"

namespace lenslark::Shell {
namespace {

struct Pipe {
  FileDescriptor read;
  FileDescriptor write;
};

/// A descriptor above the standard three. Where this process was started with one of those closed,
/// a pipe may land there, and be overwritten while the child's streams are put in place.
FileDescriptor aboveStandardStreams(FileDescriptor file) {
  if (file.get() > STDERR_FILENO) return file;
  FileDescriptor moved(::fcntl(file.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!moved) throwErrno("fcntl");
  return moved;
}

Pipe makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throwErrno("pipe");
  FileDescriptor read(ends[0]);
  FileDescriptor write(ends[1]);
  return {aboveStandardStreams(std::move(read)), aboveStandardStreams(std::move(write))};
}

/// What the child does between its birth and its program.
class FileActions {
 public:
  FileActions(const Pipe& output, const Pipe& errors, StandardInput standardInput) {
    check(::posix_spawn_file_actions_init(&actions_));
    if (standardInput == StandardInput::null) {
      check(::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
    }
    check(::posix_spawn_file_actions_adddup2(&actions_, output.write.get(), STDOUT_FILENO));
    check(::posix_spawn_file_actions_adddup2(&actions_, errors.write.get(), STDERR_FILENO));
    // Ours are all close-on-exec; those that libraries opened may not be.
    check(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
  }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  const posix_spawn_file_actions_t* get() const noexcept { return &actions_; }

 private:
  static void check(int error) {
    if (error != 0) throw posixError(error, "posix_spawn_file_actions");
  }

  posix_spawn_file_actions_t actions_{};
};

class SpawnAttributes {
 public:
  SpawnAttributes() {
    check(::posix_spawnattr_init(&attributes_));
    sigset_t signals;
    ::sigemptyset(&signals);
    check(::posix_spawnattr_setsigmask(&attributes_, &signals));
    ::sigfillset(&signals);
    check(::posix_spawnattr_setsigdefault(&attributes_, &signals));
    check(::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF));
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;

  const posix_spawnattr_t* get() const noexcept { return &attributes_; }

 private:
  static void check(int error) {
    if (error != 0) throw posixError(error, "posix_spawnattr");
  }

  posix_spawnattr_t attributes_{};
};

pid_t spawn(const ProcessImage& image, const Pipe& output, const Pipe& errors,
            StandardInput standardInput) {
  const FileActions actions(output, errors, standardInput);
  const SpawnAttributes attributes;
  pid_t child = 0;
  const int error = ::posix_spawn(&child, image.path(), actions.get(), attributes.get(),
                                  image.arguments(), image.environment());
  if (error != 0) throw posixError(error, image.path());
  return child;
}

/// Takes what a stream has to give into `text`; closes the stream at its end.
void drain(FileDescriptor& stream, std::string& text) {
  std::array<char, 65536> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init): read into
  const ssize_t count = ::read(stream.get(), buffer.data(), buffer.size());
  if (count < 0 && errno == EINTR) return;
  if (count <= 0) {
    stream.reset();
    return;
  }
  const std::size_t room = outputLimit - text.size();
  text.append(buffer.data(), std::min(static_cast<std::size_t>(count), room));
}

/// Reads both streams to their ends, whichever has something: a child that fills one pipe never
/// waits for a reader that waits on the other. `onSilence` is called once, should neither have
/// anything for long.
template <typename OnSilence>
void drainBoth(FileDescriptor& output, std::string& outputText, FileDescriptor& errors,
               std::string& errorText, OnSilence onSilence) {
  constexpr int forEver = -1;
  int patience = 10'000;  // milliseconds
  while (output || errors) {
    // A negative descriptor, which a closed stream has, is passed over.
    std::array<pollfd, 2> streams{pollfd{output.get(), POLLIN, 0}, pollfd{errors.get(), POLLIN, 0}};
    const int ready = ::poll(streams.data(), streams.size(), patience);
    if (ready < 0) {
      if (errno == EINTR) continue;
      throwErrno("poll");
    }
    if (ready == 0) {
      patience = forEver;
      onSilence();
      continue;
    }
    if (streams[0].revents != 0) drain(output, outputText);
    if (streams[1].revents != 0) drain(errors, errorText);
  }
}

int waitFor(pid_t child, const std::string& executable) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throwErrno(executable);
  }
  constexpr int killed = 128;
  return WIFSIGNALED(status) ? killed + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

Result run(const std::string& executable, const std::vector<std::string>& arguments,
           const Environment& environment, StandardInput standardInput) {
  const ProcessImage image(executable, arguments, environment);
  Pipe output = makePipe();
  Pipe errors = makePipe();
  keepChildStatuses();

  const pid_t child = spawn(image, output, errors, standardInput);
  output.write.reset();
  errors.write.reset();

  Result result;
  drainBoth(output.read, result.output, errors.read, result.errors, [&] {
    Log::router().error("still waiting for {} (process {}), which says nothing and does not end",
                        executable, child);
  });
  result.status = waitFor(child, executable);
  result.output = Text::repairUtf8(result.output);
  result.errors = Text::repairUtf8(result.errors);
  return result;
}

}  // namespace lenslark::Shell
