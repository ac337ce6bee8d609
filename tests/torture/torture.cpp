/// A writer and readers of one frame file, each a process of its own, at full rate: every pixel of
/// every frame that a reader takes is looked at.
///
///     torture [--reads 100000] [--readers 2] [--width 64] [--height 36] [--dir DIRECTORY]
///             [--careless 1]
///
/// Ends with status 0 once the readers have taken that many frames together and none was torn.
/// Careless readers map the file and do not look at the counter again: then a torn frame is what is
/// wanted.

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "base/Error.h"
#include "base/FileDescriptor.h"
#include "base/PosixError.h"
#include "base/Text.h"
#include "feeds/FeedReader.h"
#include "feeds/SharedFrameWriter.h"
#include "graphics/SharedPicture.h"

namespace lenslark {
namespace {

struct Options {
  std::uint64_t reads = 100'000;
  int readers = 2;
  bool careless = false;
  Size size{64, 36};
  std::string directory = std::filesystem::temp_directory_path();
};

/// Of every process, in shared memory.
struct Counts {
  std::atomic<std::uint64_t> written = 0;
  std::atomic<std::uint64_t> taken = 0;  ///< Whole frames, each of its pixels looked at.
  std::atomic<std::uint64_t> again = 0;  ///< Mapped readings that the writer came in between.
  std::atomic<std::uint64_t> torn = 0;
  std::atomic<std::uint64_t> backwards = 0;
};

/// The picture of a number: its sides and every one of its pixels follow from it.
Size sizeOf(std::uint32_t number, Size most) {
  const int smaller = static_cast<int>(number % 4);
  return {most.width - 2 * smaller, most.height - smaller};
}

std::uint32_t pixelOf(std::uint32_t number, std::size_t at) {
  return number ^ (static_cast<std::uint32_t>(at) * 0x9E3779B9U);
}

class StampedFrame final : public Frame {
 public:
  StampedFrame(std::uint32_t number, Size most) : number_(number), size_(sizeOf(number, most)) {}
  Size size() const noexcept override { return size_; }
  bool opaque() const noexcept override { return true; }
  bool draw(const PixelRect&, const PixelSpan& target) const noexcept override {
    std::size_t at = 0;
    for (int y = 0; y < size_.height; ++y) {
      auto* const row = reinterpret_cast<std::uint32_t*>(target.row(y));
      for (int x = 0; x < size_.width; ++x) row[x] = pixelOf(number_, at++);
    }
    return true;
  }

 private:
  std::uint32_t number_;
  Size size_;
};

/// Every other picture goes the way of one that many cameras show: copied past the caches.
FramePtr pictureOf(std::uint32_t number, Size most) {
  auto stamped = std::make_shared<const StampedFrame>(number, most);
  if (number % 2 == 0) return stamped;
  const auto pool = std::make_shared<PixelBufferPool>(stamped->size(), true);
  return std::make_shared<SharedPicture>(stamped, pool);
}

/// The number of a whole picture. Nothing for a torn one.
std::optional<std::uint32_t> numberOf(const std::uint8_t* pixels, Size size, Size most) {
  std::uint32_t number = 0;
  std::memcpy(&number, pixels, sizeof(number));
  if (sizeOf(number, most) != size) return std::nullopt;
  const auto count = static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height);
  std::uint32_t differences = 0;
  for (std::size_t at = 0; at < count; ++at) {
    std::uint32_t pixel = 0;
    std::memcpy(&pixel, pixels + at * sizeof(pixel), sizeof(pixel));
    differences |= pixel ^ pixelOf(number, at);
  }
  return differences == 0 ? std::optional(number) : std::nullopt;
}

[[noreturn]] void write(const std::string& path, const Options& options, Counts& counts) {
  SharedFrameWriter writer(path, options.size.width, options.size.height, LLCameraBack);
  for (std::uint32_t number = 1;; ++number) {
    // A picture that stays now and then, which goes to both slots.
    const ContentKind kind = number % 5 == 0 ? ContentKind::still : ContentKind::live;
    writer.write(*pictureOf(number, options.size), kind);
    counts.written.store(number, std::memory_order_relaxed);
  }
}

class Tally {
 public:
  Tally(Counts& counts, const Options& options) : counts_(counts), options_(options) {}

  void take(const std::uint8_t* pixels, Size size) {
    const auto number = numberOf(pixels, size, options_.size);
    if (!number) {
      ++counts_.torn;
      return;
    }
    if (*number < latest_) ++counts_.backwards;
    latest_ = *number;
    ++counts_.taken;
  }

 private:
  Counts& counts_;
  const Options& options_;
  std::uint32_t latest_ = 0;
};

[[noreturn]] void readFile(const std::string& path, const Options& options, Counts& counts) {
  for (Tally tally(counts, options);;) {
    const auto frame = FeedReader::image(path);
    if (frame) tally.take(frame->view().data, frame->size());
  }
}

template <typename T>
T load(const std::byte* base, std::size_t offset) {
  T& field = *reinterpret_cast<T*>(const_cast<std::byte*>(base) + offset);
  return std::atomic_ref(field).load(std::memory_order_acquire);
}

/// A reader as docs/frame-file.md tells one that maps the file to be.
[[noreturn]] void readMapping(const std::string& path, const Options& options, Counts& counts) {
  const FileDescriptor file = FileDescriptor::open(path, O_RDONLY);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throwErrno(path);
  const MappedFile mapping =
      MappedFile::map(file, static_cast<std::size_t>(status.st_size), MappedFile::Access::read);
  const std::byte* base = mapping.data();
  const auto capacity = load<std::uint64_t>(base, offsetof(LLFrameHeader, slotCapacity));
  std::vector<std::uint8_t> copy(capacity);
  for (Tally tally(counts, options);;) {
    const auto front = load<std::uint32_t>(base, offsetof(LLFrameHeader, frontSlot)) & 1U;
    const std::size_t slot = offsetof(LLFrameHeader, slots) + front * sizeof(LLFrameSlot);
    const auto counter = load<std::uint64_t>(base, slot);
    if (counter % 2 != 0) continue;
    if ((load<std::uint32_t>(base, offsetof(LLFrameHeader, frontSlot)) & 1U) != front) continue;
    const Size size{
        static_cast<int>(load<std::uint32_t>(base, slot + offsetof(LLFrameSlot, width))),
        static_cast<int>(load<std::uint32_t>(base, slot + offsetof(LLFrameSlot, height)))};
    const std::size_t bytes = static_cast<std::size_t>(size.width) *
                              static_cast<std::size_t>(size.height) * LL_FRAME_BYTES_PER_PIXEL;
    if (bytes == 0 || bytes > capacity) continue;
    std::memcpy(copy.data(), base + LL_FRAME_DATA_OFFSET + front * capacity, bytes);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (!options.careless && load<std::uint64_t>(base, slot) != counter) {
      ++counts.again;
      continue;
    }
    tally.take(copy.data(), size);
  }
}

/// A process that does one thing and ends with this one.
pid_t start(const std::function<void()>& work) {
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) throwErrno("fork");
  if (child > 0) return child;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  try {
    work();
  } catch (const std::exception& error) {
    fmt::print(stderr, "torture: {}\n", error.what());
  }
  ::_exit(1);
}

Counts& sharedCounts() {
  void* memory =
      ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throwErrno("mmap");
  return *new (memory) Counts;
}

bool allRun(const std::vector<pid_t>& children) {
  for (const pid_t child : children) {
    if (::waitpid(child, nullptr, WNOHANG) != 0) return false;
  }
  return true;
}

/// Whether enough frames were taken and all were whole and in order, or one was found that was not
/// where readers are careless.
bool torture(const Options& options) {
  const std::string path =
      (std::filesystem::path(options.directory) / fmt::format("torture-{}.shm", ::getpid()))
          .string();
  Counts& counts = sharedCounts();
  std::vector<pid_t> children{start([&] { write(path, options, counts); })};
  while (counts.written == 0 && allRun(children)) ::usleep(1000);
  for (int reader = 0; reader < options.readers; ++reader) {
    const auto read = options.careless || reader % 2 == 0 ? readMapping : readFile;
    children.push_back(start([&, read] { read(path, options, counts); }));
  }
  bool alive = true;
  const auto orderly = [&] { return options.careless || counts.backwards == 0; };
  while (alive && counts.taken < options.reads && counts.torn == 0 && orderly()) {
    ::usleep(10'000);
    alive = allRun(children);
  }
  for (const pid_t child : children) {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  ::unlink(path.c_str());
  fmt::print(
      "{} x {}: {} frames written, {} taken and whole, {} torn, {} out of order, {} copies begun "
      "again\n",
      options.size.width, options.size.height, counts.written.load(), counts.taken.load(),
      counts.torn.load(), counts.backwards.load(), counts.again.load());
  if (options.careless) return counts.torn > 0;
  return alive && counts.torn == 0 && counts.backwards == 0;
}

Options parse(int count, char** words) {
  Options options;
  for (int word = 1; word + 1 < count; word += 2) {
    const std::string_view name = words[word];
    if (name == "--dir") {
      options.directory = words[word + 1];
      continue;
    }
    const int number = Text::parseInt(words[word + 1]).value_or(0);
    if (number < 1) throw Error(fmt::format("{} wants a number from 1", name));
    if (name == "--reads") options.reads = static_cast<std::uint64_t>(number);
    if (name == "--readers") options.readers = number;
    if (name == "--careless") options.careless = true;
    if (name == "--width") options.size.width = number;
    if (name == "--height") options.size.height = number;
  }
  // Sides that vary with the picture stay above nothing.
  if (options.size.width < 8 || options.size.height < 8) throw Error("pictures are 8 x 8 at least");
  return options;
}

}  // namespace
}  // namespace lenslark

int main(int count, char** words) {
  try {
    return lenslark::torture(lenslark::parse(count, words)) ? 0 : 1;
  } catch (const std::exception& error) {
    fmt::print(stderr, "torture: {}\n", error.what());
    return 2;
  }
}
