#include "control/SlideshowFiles.h"

#include <algorithm>
#include <system_error>

#include "base/PosixError.h"
#include "base/Text.h"
#include "media/MediaLibrary.h"

namespace lenslark::SlideshowFiles {
namespace {

namespace fs = std::filesystem;

bool isDigit(char character) noexcept { return character >= '0' && character <= '9'; }

/// Takes the run of digits at the front, without its leading zeros.
std::string_view takeNumber(std::string_view& text) noexcept {
  const auto end = std::ranges::find_if_not(text, isDigit);
  const auto length = static_cast<std::size_t>(end - text.begin());
  std::string_view digits = text.substr(0, length);
  text.remove_prefix(length);
  digits.remove_prefix(std::min(digits.find_first_not_of('0'), digits.size()));
  return digits;
}

/// Below, at or above zero as `a` comes before, with or after `b`; numbers of any length.
int compareNaturally(std::string_view a, std::string_view b) {
  while (!a.empty() && !b.empty()) {
    if (isDigit(a.front()) && isDigit(b.front())) {
      const std::string_view left = takeNumber(a);
      const std::string_view right = takeNumber(b);
      if (left.size() != right.size()) return left.size() < right.size() ? -1 : 1;
      if (const int order = left.compare(right); order != 0) return order;
    } else {
      if (a.front() != b.front()) {
        return static_cast<unsigned char>(a.front()) < static_cast<unsigned char>(b.front()) ? -1
                                                                                             : 1;
      }
      a.remove_prefix(1);
      b.remove_prefix(1);
    }
  }
  return static_cast<int>(!a.empty()) - static_cast<int>(!b.empty());
}

std::vector<fs::path> picturesIn(const fs::path& folder) {
  std::error_code error;
  std::vector<fs::path> files;
  auto entry = fs::directory_iterator(folder, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const fs::path& path = entry->path();
    std::error_code unreadable;  // A dangling link is no picture.
    if (path.filename().native().starts_with('.') || !mediaKind(path)) continue;
    if (fs::is_regular_file(path, unreadable)) files.push_back(path);
  }
  if (error) throw posixError(error.value(), folder.native());
  std::ranges::sort(files, [](const fs::path& a, const fs::path& b) {
    return naturallyBefore(a.filename().native(), b.filename().native());
  });
  return files;
}

}  // namespace

bool naturallyBefore(std::string_view a, std::string_view b) {
  const int order = compareNaturally(Text::lowercase(a), Text::lowercase(b));
  return order != 0 ? order < 0 : a < b;
}

std::vector<fs::path> expand(const std::vector<fs::path>& paths) {
  std::vector<fs::path> files;
  for (const fs::path& path : paths) {
    std::error_code missing;  // What is not there stands for itself; its import says so.
    // A path with a NUL byte names nothing, whatever stands before that byte.
    if (!path.native().contains('\0') && fs::is_directory(path, missing)) {
      std::ranges::move(picturesIn(path), std::back_inserter(files));
    } else {
      files.push_back(path);
    }
  }
  return files;
}

}  // namespace lenslark::SlideshowFiles
