#include "control/FeedFindings.h"

#include <fmt/core.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <system_error>

#include "base/Error.h"
#include "feeds/FeedReader.h"

namespace lenslark::Doctor::FeedFindings {
namespace {

constexpr mode_t permissionBits = 0777;
constexpr mode_t othersBits = 0077;

struct Found {
  std::string path;
  struct stat status {};
};

bool isNamedAsFeed(const std::string& name) {
  return name.starts_with("lenslark") && name.ends_with(".shm");
}

/// What a directory that cannot be listed holds is nothing to this user.
std::vector<Found> list(const std::filesystem::path& directory) {
  std::vector<Found> files;
  std::error_code error;
  std::filesystem::directory_iterator entry(directory, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (!isNamedAsFeed(entry->path().filename().string())) continue;
    Found found{.path = entry->path().string()};
    if (::lstat(found.path.c_str(), &found.status) == 0) files.push_back(std::move(found));
  }
  std::ranges::sort(files, {}, &Found::path);
  return files;
}

const char* kind(mode_t mode) noexcept {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISLNK(mode)) return "a symbolic link";
  if (S_ISFIFO(mode)) return "a pipe";
  if (S_ISSOCK(mode)) return "a socket";
  return "a device";
}

bool isOwn(const struct stat& status) noexcept { return status.st_uid == ::getuid(); }

/// Whether the path still leads to the file that was found, and that one is a feed of ours which
/// is stale: another program may have put something else there since.
bool isStill(const Found& file) {
  struct stat now {};
  if (::lstat(file.path.c_str(), &now) != 0 || now.st_dev != file.status.st_dev ||
      now.st_ino != file.status.st_ino || !S_ISREG(now.st_mode) || !isOwn(now)) {
    return false;
  }
  const auto info = FeedReader::info(file.path);
  return info && info->writerPid >= 1 && !info->writerAlive();
}

Check staleCheck(const Found& file, pid_t writer, bool remove) {
  Check check{Level::warning,
              fmt::format("Stale feed {} (writer pid {} is gone)", file.path, writer),
              {},
              "lenslark doctor --fix"};
  if (!isOwn(file.status)) {
    check.details.push_back(
        fmt::format("It belongs to user {}, who alone may remove it.", file.status.st_uid));
    return check;
  }
  if (!remove) return check;
  if (isStill(file)) {
    if (::unlink(file.path.c_str()) == 0) {
      return {Level::info, "Removed stale feed " + file.path, {}, {}};
    }
    check.details.push_back(fmt::format("It cannot be removed: {}.", std::strerror(errno)));
  } else {
    check.details.emplace_back("It was left alone: it changed meanwhile.");
  }
  return check;
}

void addFindings(std::vector<Check>& checks, const Found& file, bool removeStale) {
  const mode_t permissions = file.status.st_mode & permissionBits;
  if ((permissions & othersBits) != 0) {
    checks.push_back({Level::warning,
                      file.path + " is readable by other users",
                      {fmt::format("mode {:o} (written by Lenslark 1.0)", permissions)},
                      "restart Lenslark; 1.1 recreates feeds as 0600"});
  }
  try {
    const auto info = FeedReader::info(file.path);
    if (info && info->writerPid >= 1 && !info->writerAlive()) {
      checks.push_back(staleCheck(file, info->writerPid, removeStale));
    }
  } catch (const Error& error) {
    checks.push_back({Level::warning,
                      file.path + " has a header that no writer makes",
                      {error.what()},
                      "rm \"" + file.path + "\""});
  }
}

std::optional<Check> hint(const Found& file) {
  if (!S_ISREG(file.status.st_mode)) {
    // Whoever feeds the camera unlinks what it may, of its own, but no directory and no device.
    const mode_t mode = file.status.st_mode;
    const bool replaceable =
        isOwn(file.status) && (S_ISLNK(mode) || S_ISFIFO(mode) || S_ISSOCK(mode));
    return Check{
        Level::info,
        fmt::format("{} is {}, no feed", file.path, kind(mode)),
        {replaceable ? "A camera whose feed has this name puts a file in its place."
                     : "A camera whose feed has this name cannot be fed until it is removed."},
        {}};
  }
  if (!isOwn(file.status)) {
    return Check{Level::info,
                 fmt::format("{} belongs to user {}", file.path, file.status.st_uid),
                 {"This user's cameras cannot be fed through it."},
                 {}};
  }
  return std::nullopt;
}

}  // namespace

std::vector<Check> checks(const std::filesystem::path& directory, bool removeStale) {
  std::vector<Check> checks;
  std::vector<Check> hints;
  for (const Found& file : list(directory)) {
    if (S_ISREG(file.status.st_mode)) addFindings(checks, file, removeStale);
    if (auto found = hint(file)) hints.push_back(*std::move(found));
  }
  checks.insert(checks.end(), hints.begin(), hints.end());
  return checks;
}

}  // namespace lenslark::Doctor::FeedFindings
