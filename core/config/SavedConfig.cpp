#include "config/SavedConfig.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <system_error>

#include "base/BrokenFile.h"
#include "base/FileDescriptor.h"
#include "base/Json.h"
#include "base/PosixError.h"
#include "base/WholeFile.h"
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

/// Fills in condition and value from the open file.
void take(SavedConfig& saved, const FileDescriptor& file, const std::string& path) {
  saved.content = readRegularFile(file, SavedConfig::maxSize, path);
  try {
    saved.config = ConfigJson::read(saved.content);
    saved.content.clear();
    saved.condition = SavedConfig::Condition::good;
  } catch (const JsonError& error) {
    saved.condition = SavedConfig::Condition::broken;
    saved.problem = error.what();
  }
}

/// Of a missing file, the directory tells when it went.
bool isSettled(const std::optional<FileStamp>& stamp, const std::filesystem::path& file) {
  const auto telling = stamp ? stamp : FileStamp::of(file.parent_path());
  return !telling || telling->settled();
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
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now) - changed > std::chrono::nanoseconds(settlingTime).count();
}

SavedConfig SavedConfig::read(const std::filesystem::path& file) {
  SavedConfig saved;
  const FileDescriptor open =
      FileDescriptor::tryOpen(file.string(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
  const int failure = errno;
  saved.stamp = open ? FileStamp::of(open.get()) : FileStamp::of(file);
  saved.settled = isSettled(saved.stamp, file);
  if (!open && (failure == ENOENT || failure == ENOTDIR)) return saved;
  saved.condition = Condition::unreadable;
  try {
    if (!open) throw posixError(failure, file.string());
    take(saved, open, file.string());
  } catch (const std::system_error& error) {
    saved.problem = error.what();
    saved.shortage = isShortage(error.code().value());
  } catch (const std::exception& error) {
    saved.problem = error.what();
  }
  return saved;
}

void SavedConfig::keepAside(const std::filesystem::path& file) {
  if (condition != Condition::broken) return;
  try {
    BrokenFile::keepAside(file.string(), content);
  } catch (const std::exception& error) {
    condition = Condition::unreadable;
    problem = error.what();
  }
}

}  // namespace lenslark
