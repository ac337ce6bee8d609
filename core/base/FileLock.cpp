#include "base/FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stop_token>
#include <system_error>
#include <thread>

#include "base/Log.h"
#include "base/PosixError.h"

namespace lenslark {
namespace {

/// Much longer than anybody needs a lock who goes on.
constexpr std::chrono::seconds patience(5);

void tellUnlessStopped(const std::stop_token& stop, const std::string& path) {
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock lock(mutex);
  never.wait_for(lock, stop, patience, [] { return false; });
  if (stop.stop_requested()) return;
  Log::router().error(
      "waiting for {}, which another process holds; one that was stopped (Ctrl-Z) has to go on or "
      "end first",
      path);
}

/// Tells of a wait that lasts, as long as it lives.
class WaitNotice {
 public:
  explicit WaitNotice(const std::string& path) {
    try {
      thread_ = std::jthread(tellUnlessStopped, path);
    } catch (const std::system_error&) {
      // The system has no thread to give: then the wait is a silent one.
    }
  }

 private:
  std::jthread thread_;
};

}  // namespace

FileLock::FileLock(const std::string& path)
    : file_(FileDescriptor::open(path, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600)) {
  std::optional<WaitNotice> notice;
  int mode = LOCK_EX | LOCK_NB;
  while (::flock(file_.get(), mode) != 0) {
    if (errno == EWOULDBLOCK) {
      notice.emplace(path);
      mode = LOCK_EX;
    } else if (errno != EINTR) {
      throwErrno(path);
    }
  }
}

}  // namespace lenslark
