#include "mcp/ProtocolChannel.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <span>
#include <string>
#include <system_error>

#include "base/PosixError.h"

namespace lenslark {
namespace {

/// A copy beyond the standard descriptors that children do not inherit.
FileDescriptor keep(int standard, const char* name) {
  FileDescriptor copy(fcntl(standard, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  if (!copy) throwErrno(name);
  return copy;
}

/// What a pipe may hold of an unprivileged user's (/proc/sys/fs/pipe-max-size as it is shipped).
constexpr int largestPipe = 1 << 20;

/// Fails at once for one that was closed when the program was started, and leads nowhere now.
FileDescriptor keepOutput() {
  FileDescriptor copy = keep(STDOUT_FILENO, "standard output");
  if ((fcntl(copy.get(), F_GETFL) & O_ACCMODE) == O_RDONLY) {
    throw posixError(EBADF, "standard output");
  }
  // A picture is some megabytes: in a larger pipe, the host and we wait for each other less often.
  fcntl(copy.get(), F_SETPIPE_SZ, largestPipe);
  return copy;
}

}  // namespace

ProtocolChannel::ProtocolChannel()
    : input_(keep(STDIN_FILENO, "standard input")), output_(keepOutput()) {
  FileDescriptor nothing = FileDescriptor::open("/dev/null", O_RDWR);
  dup2(nothing.get(), STDIN_FILENO);
  // A host may have closed standard error: then the null device has taken its place just now, and
  // stays there.
  if (nothing.get() == STDERR_FILENO) nothing.release();
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

bool ProtocolChannel::send(std::string line) const {
  line += '\n';
  try {
    writeAll(output_, std::as_bytes(std::span(line)), "standard output");
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::broken_pipe) return false;
    throw;
  }
  return true;
}

}  // namespace lenslark
