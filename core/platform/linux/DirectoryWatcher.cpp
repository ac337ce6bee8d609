#include "platform/DirectoryWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "base/FileDescriptor.h"
#include "base/Log.h"
#include "base/PosixError.h"

namespace lenslark {
namespace {

/// What concerns the content: IN_MODIFY is left out, a file counts when its writer is done.
constexpr std::uint32_t contentEvents =
    IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB;
/// What happens to the way to the directory: an ancestor's entry on it came or went.
constexpr std::uint32_t entryEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr std::uint32_t selfEvents = IN_DELETE_SELF | IN_MOVE_SELF;

/// A reading of the inotify events that arrived together.
struct Burst {
  bool contentChanged = false;
  bool wayChanged = false;
};

}  // namespace

struct DirectoryWatcher::State : std::enable_shared_from_this<State> {
  State(const std::filesystem::path& watched, SerialQueue& eventQueue,
        std::function<void()> handler)
      : directory(std::filesystem::absolute(watched).lexically_normal()),
        queue(eventQueue),
        onChange(std::move(handler)),
        events(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
        stopSignal(::eventfd(0, EFD_CLOEXEC)) {
    if (!directory.has_filename()) directory = directory.parent_path();  // "/x/" is "/x"
    const int failure = errno;
    if (!stopSignal) throw posixError(failure, what());
    // As there was a descriptor for the signal, that is not what is short.
    if (!events && failure == EMFILE) throw watchShortage("fs.inotify.max_user_instances");
    if (!events) throw posixError(failure, what());
  }

  std::string what() const { return "cannot watch " + directory.string(); }
  /// The system's words for it ("No space left on device") would mislead.
  std::system_error watchShortage(const char* setting) const {
    return posixError(EAGAIN, what() + ": the user's watches are used up; raise " + setting);
  }

  /// Watches the directory and, by name, every entry on the way to it, from the root down: an
  /// entry that appears after its own watch was tried is reported by the watch above it.
  /// **Fails** with std::system_error.
  void arm();
  void run();
  Burst drain();
  void take(const inotify_event& event, Burst& burst);
  void announce();

  std::filesystem::path directory;
  SerialQueue& queue;
  const std::function<void()> onChange;
  const FileDescriptor events;
  const FileDescriptor stopSignal;

  // On the reader thread only, once it runs.
  std::map<int, std::set<std::string>> entriesOnTheWay;  // by watch: the names that matter in it
  int directoryWatch = -1;

  std::atomic<bool> announced = false;  // a call of onChange is posted and has not begun
  std::jthread reader;
};

void DirectoryWatcher::State::arm() {
  std::map<int, std::set<std::string>> entries;
  std::filesystem::path ancestor;
  for (const std::filesystem::path& step : directory) {
    if (!ancestor.empty()) {
      // An ancestor that is missing or may not be read is passed over: the rest still reports.
      const int watch = ::inotify_add_watch(events.get(), ancestor.c_str(),
                                            entryEvents | IN_ONLYDIR | IN_MASK_ADD);
      if (watch >= 0) entries[watch].insert(step.string());
    }
    ancestor /= step;
  }
  const int watch = ::inotify_add_watch(events.get(), directory.c_str(),
                                        contentEvents | selfEvents | IN_ONLYDIR | IN_MASK_ADD);
  const int failure = watch < 0 ? errno : 0;

  const auto stale = [&](int old) { return old >= 0 && old != watch && !entries.contains(old); };
  for (const auto& [old, names] : entriesOnTheWay) {
    if (stale(old)) ::inotify_rm_watch(events.get(), old);
  }
  if (stale(directoryWatch)) ::inotify_rm_watch(events.get(), directoryWatch);
  entriesOnTheWay = std::move(entries);
  directoryWatch = watch;
  const bool mayAppear = failure == ENOENT || failure == ENOTDIR;
  if (failure == ENOSPC) throw watchShortage("fs.inotify.max_user_watches");
  if (failure != 0 && !(mayAppear && !entriesOnTheWay.empty())) {
    throw posixError(failure, what());
  }
}

void DirectoryWatcher::State::run() {
  std::array<pollfd, 2> wanted{pollfd{events.get(), POLLIN, 0},
                               pollfd{stopSignal.get(), POLLIN, 0}};
  for (;;) {
    if (::poll(wanted.data(), wanted.size(), -1) < 0 && errno != EINTR) {
      Log::router().error("cannot watch {}: {}", directory.string(), std::strerror(errno));
      return;
    }
    if (wanted[1].revents != 0) return;
    const Burst burst = drain();
    if (burst.wayChanged) {
      try {
        arm();
      } catch (const std::exception& error) {
        Log::router().error("{}", error.what());  // a later change above it tries again
      }
    }
    if (burst.contentChanged || burst.wayChanged) announce();
  }
}

Burst DirectoryWatcher::State::drain() {
  alignas(inotify_event) std::array<char, 16 * 1024> buffer;
  Burst burst;
  for (;;) {
    const ssize_t count = ::read(events.get(), buffer.data(), buffer.size());
    if (count <= 0) return burst;
    for (std::size_t offset = 0; offset < static_cast<std::size_t>(count);) {
      const auto& event = *reinterpret_cast<const inotify_event*>(buffer.data() + offset);
      take(event, burst);
      offset += sizeof event + event.len;
    }
  }
}

void DirectoryWatcher::State::take(const inotify_event& event, Burst& burst) {
  if ((event.mask & IN_Q_OVERFLOW) != 0) {
    burst.wayChanged = true;
    return;
  }
  if (event.wd == directoryWatch) {
    if ((event.mask & contentEvents) != 0) burst.contentChanged = true;
    if ((event.mask & (selfEvents | IN_IGNORED | IN_UNMOUNT)) != 0) burst.wayChanged = true;
  }
  const auto ancestor = entriesOnTheWay.find(event.wd);
  if (ancestor == entriesOnTheWay.end()) return;
  const bool onTheWay = event.len > 0 && ancestor->second.contains(event.name);
  if (onTheWay || (event.mask & (IN_IGNORED | IN_UNMOUNT)) != 0) burst.wayChanged = true;
}

void DirectoryWatcher::State::announce() {
  if (announced.exchange(true)) return;
  try {
    queue.post([weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->announced = false;
      self->onChange();
    });
  } catch (const std::exception& error) {
    announced = false;  // a later change is told
    Log::router().error("cannot tell a change in {}: {}", directory.string(), error.what());
  }
}

DirectoryWatcher::DirectoryWatcher(const std::filesystem::path& directory, SerialQueue& queue,
                                   std::function<void()> onChange)
    : state_(std::make_shared<State>(directory, queue, std::move(onChange))) {
  state_->arm();
  try {
    state_->reader = std::jthread([state = state_.get()] { state->run(); });
  } catch (const std::system_error&) {
    throw threadShortage();
  }
}

DirectoryWatcher::~DirectoryWatcher() {
  constexpr std::uint64_t one = 1;
  // An eventfd takes eight bytes unless its counter is full, and this is its only write.
  [[maybe_unused]] const ssize_t written = ::write(state_->stopSignal.get(), &one, sizeof one);
  state_->reader.join();
}

}  // namespace lenslark
