#include "config/SavedConfig.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>

#include "base/BrokenFile.h"
#include "base/FileDescriptor.h"
#include "base/Json.h"
#include "base/PosixError.h"
#include "config/ConfigJson.h"

namespace lenslark {
namespace {

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileStamp makeStamp(const struct stat& status) {
  return {.device = status.st_dev,
          .inode = status.st_ino,
          .size = status.st_size,
          .modified = nanoseconds(status.st_mtim),
          .changed = nanoseconds(status.st_ctim)};
}

/// Fills in condition, value and problem from the open file.
void take(SavedConfig& saved, const FileDescriptor& file, const std::string& path) {
  std::string text;
  try {
    text = readRegularFile(file, SavedConfig::maxSize, path);
    saved.config = ConfigJson::read(text);
    saved.condition = SavedConfig::Condition::good;
  } catch (const JsonError& unclear) {
    BrokenFile::keepAside(path, text);
    saved.condition = SavedConfig::Condition::broken;
  }
}

}  // namespace

std::optional<FileStamp> FileStamp::of(const std::filesystem::path& file) noexcept {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  return makeStamp(status);
}

std::optional<FileStamp> FileStamp::of(int descriptor) noexcept {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return std::nullopt;
  return makeStamp(status);
}

bool FileStamp::settled() const noexcept {
  constexpr std::chrono::nanoseconds coarsestStep = std::chrono::milliseconds(50);
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now) - changed > coarsestStep.count();
}

SavedConfig SavedConfig::read(const std::filesystem::path& file) {
  SavedConfig saved;
  const FileDescriptor open =
      FileDescriptor::tryOpen(file.string(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  const int failure = errno;
  saved.stamp = open ? FileStamp::of(open.get()) : FileStamp::of(file);
  saved.settled = !saved.stamp || saved.stamp->settled();
  if (!open && (failure == ENOENT || failure == ENOTDIR)) return saved;
  saved.condition = Condition::unreadable;
  try {
    if (!open) throw posixError(failure, file.string());
    take(saved, open, file.string());
  } catch (const std::exception& error) {
    saved.problem = error.what();
  }
  return saved;
}

}  // namespace lenslark
