#include "base/BrokenFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <span>

#include "base/Clock.h"
#include "base/FileDescriptor.h"
#include "base/PosixError.h"

namespace lenslark::BrokenFile {
namespace {

/// What the names of all copies of a file begin with.
std::string prefixOf(const std::string& path) {
  return std::filesystem::absolute(path).string() + ".broken-";
}

bool holds(const std::string& path, std::string_view content) {
  const FileDescriptor file = FileDescriptor::tryOpen(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (static_cast<std::size_t>(status.st_size) != content.size()) return false;
  std::string kept(content.size(), '\0');
  const ssize_t count = readAt(file, std::as_writable_bytes(std::span(kept)), 0);
  return count == status.st_size && kept == content;
}

/// The copies made before; `error` tells that not all could be looked at.
std::vector<std::string> copiesNamed(const std::filesystem::path& prefix, std::error_code& error) {
  std::vector<std::string> copies;
  const std::string namePrefix = prefix.filename().string();
  std::filesystem::directory_iterator entries(prefix.parent_path(), error);
  for (const std::filesystem::directory_iterator end; !error && entries != end;
       entries.increment(error)) {
    const std::filesystem::path& entry = entries->path();
    if (entry.filename().string().starts_with(namePrefix)) copies.push_back(entry.string());
  }
  return copies;
}

/// A new file under the first name that is free, and that name.
std::pair<FileDescriptor, std::string> createCopy(const std::string& prefix) {
  constexpr int attempts = 100;
  const auto seconds = Clock::now().time_since_epoch().count();
  for (int attempt = 0;; ++attempt) {
    std::string name = prefix + std::to_string(seconds + attempt);
    FileDescriptor copy =
        FileDescriptor::tryOpen(name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (copy) return {std::move(copy), std::move(name)};
    if (errno != EEXIST || attempt == attempts) throwErrno(name);
  }
}

}  // namespace

void keepAside(const std::string& path, std::string_view content) {
  const std::string prefix = prefixOf(path);
  std::error_code ignored;
  const auto before = copiesNamed(prefix, ignored);
  if (std::ranges::any_of(before, [&](const auto& copy) { return holds(copy, content); })) return;
  const auto [copy, name] = createCopy(prefix);
  try {
    writeAll(copy, std::as_bytes(std::span(content)), name);
  } catch (...) {
    ::unlink(name.c_str());
    throw;
  }
}

std::vector<std::string> copies(const std::string& path) {
  std::error_code ignored;
  auto found = copiesNamed(prefixOf(path), ignored);
  std::ranges::sort(found);
  return found;
}

bool hasCopy(const std::string& path) {
  std::error_code error;
  return !copiesNamed(prefixOf(path), error).empty() || error;
}

}  // namespace lenslark::BrokenFile
