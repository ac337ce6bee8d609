#include "media/MediaImport.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <span>

#include "base/Digest.h"
#include "base/PosixError.h"
#include "base/Text.h"
#include "base/Uuid.h"
#include "base/WholeFile.h"
#include "codecs/Modules.h"
#include "media/ImageLoader.h"
#include "media/MediaError.h"

namespace lenslark::MediaImport {
namespace {

namespace fs = std::filesystem;

constexpr int measuredSide = 4096;
constexpr int thumbnailSide = 256;
constexpr int thumbnailQuality = 85;
constexpr const char* copyPrefix = ".import-";

/// Hands the content over in pieces, and says how far it has come. It ends where the file had its
/// end when it was opened.
template <typename Consume>
void readThrough(const Original& original, MediaLibrary::Progress::Step step,
                 const MediaLibrary::ProgressHandler& progress, Consume consume) {
  constexpr std::size_t pieceBytes = 1UL << 20;
  std::vector<std::byte> piece(pieceBytes);
  std::uint64_t done = 0;
  while (done < original.size) {
    const auto wanted = std::min<std::uint64_t>(pieceBytes, original.size - done);
    const ssize_t count =
        readAt(original.file, std::span(piece).first(wanted), static_cast<off_t>(done));
    if (count < 0) throwErrno(original.path.string());
    if (count == 0) return;
    consume(std::span<const std::byte>(piece).first(static_cast<std::size_t>(count)));
    done += static_cast<std::uint64_t>(count);
    if (progress) progress({.bytesDone = done, .bytesTotal = original.size, .step = step});
  }
}

/// Takes away what processes that died left of their copies. What is young may belong to one that
/// has not locked it yet.
void removeAbandonedCopies(const fs::path& directory) {
  constexpr auto young = std::chrono::minutes(1);
  const auto now = fs::file_time_type::clock::now();
  std::error_code ignored;
  for (auto entry = fs::directory_iterator(directory, ignored); entry != fs::directory_iterator();
       entry.increment(ignored)) {
    const std::string path = entry->path().string();
    if (!entry->path().filename().string().starts_with(copyPrefix)) continue;
    if (now - entry->last_write_time(ignored) < young) continue;
    const auto file = FileDescriptor::tryOpen(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(path.c_str());
  }
}

std::vector<std::byte> encodeThumbnail(const PixelBuffer& picture) {
  return Modules::imageCodec().encodeJpeg(picture.view(), thumbnailQuality);
}

Measured measurePicture(const fs::path& file, const std::string& name) {
  const auto size = ImageLoader::measure(file, measuredSide);
  const auto thumbnail = size ? ImageLoader::load(file, thumbnailSide) : nullptr;
  if (!thumbnail) throw MediaError::unsupported(name);
  return {.width = size->width,
          .height = size->height,
          .duration = {},
          .thumbnail = encodeThumbnail(*thumbnail)};
}

Measured measureFilm(const fs::path& file, const std::string& name) {
  VideoCodec& codec = Modules::videoCodec();
  VideoInfo info;
  std::shared_ptr<PixelBuffer> first;
  try {
    const auto film = codec.open(file.string(), thumbnailSide);
    info = film->info();
    const auto frame = film->next();
    if (frame) first = materialize(*frame->picture);
  } catch (const Error&) {
    throw MediaError::unsupported(name);
  }
  if (!first || info.size.empty()) throw MediaError::unsupported(name);
  return {.width = info.size.width,
          .height = info.size.height,
          .duration = info.durationSec > 0 ? std::optional(info.durationSec) : std::nullopt,
          .thumbnail = encodeThumbnail(*first)};
}

}  // namespace

std::string Original::name() const { return Text::repairUtf8(path.filename().string()); }

Original open(const fs::path& path) {
  constexpr std::uint64_t largestFile = std::uint64_t{1} << 31;
  // The system would read such a path up to its NUL byte and open another file than was named.
  if (path.native().contains('\0')) throw MediaError::notAFile(path.string());
  std::error_code unresolved;
  Original original;
  original.path = fs::canonical(path, unresolved);
  if (unresolved) throw MediaError::notAFile(path.string());
  const std::string shown = original.path.string();
  original.file = FileDescriptor::tryOpen(shown, O_RDONLY | O_NONBLOCK | O_NOCTTY);
  // That is no fault of the file's.
  if (!original.file && isShortage(errno)) throwErrno(shown);
  struct stat status {};
  if (!original.file || ::fstat(original.file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw MediaError::notAFile(shown);
  }
  original.size = static_cast<std::uint64_t>(status.st_size);
  if (original.size > largestFile) throw MediaError::tooLarge(shown);
  const auto kind = mediaKind(original.path);
  if (!kind) throw MediaError::unsupported(original.name());
  original.kind = *kind;
  return original;
}

bool mayBeIn(const fs::path& directory, const Original& original) {
  constexpr std::uint64_t worthLooking = 16UL << 20;
  if (original.size < worthLooking) return true;
  std::error_code ignored;
  for (auto entry = fs::directory_iterator(directory, ignored); entry != fs::directory_iterator();
       entry.increment(ignored)) {
    std::error_code unknown;
    if (entry->file_size(unknown) == original.size) return true;
  }
  return false;
}

std::string sha256(const Original& original, const MediaLibrary::ProgressHandler& progress) {
  Sha256 hash;
  readThrough(original, MediaLibrary::Progress::Step::hashing, progress,
              [&hash](std::span<const std::byte> piece) { hash.add(piece); });
  return hash.finish();
}

Copy::Copy(const Original& original, const fs::path& directory,
           const MediaLibrary::ProgressHandler& progress)
    : path_(directory / (copyPrefix + Uuid::make() + original.path.extension().string())) {
  removeAbandonedCopies(directory);
  file_ = FileDescriptor::open(path_.string(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0666);
  try {
    ::flock(file_.get(), LOCK_EX | LOCK_NB);
    Sha256 hash;
    readThrough(original, MediaLibrary::Progress::Step::copying, progress,
                [&](std::span<const std::byte> piece) {
                  hash.add(piece);
                  writeAll(file_, piece, path_.string());
                });
    digest_ = hash.finish();
    flush(file_, path_.string());
  } catch (...) {
    ::unlink(path_.c_str());
    throw;
  }
}

Copy::~Copy() {
  if (!path_.empty()) ::unlink(path_.c_str());
}

void Copy::renameTo(const fs::path& target) {
  if (::rename(path_.c_str(), target.c_str()) != 0) throwErrno(target.string());
  path_.clear();
}

Measured measure(const fs::path& file, MediaItem::Kind kind, const std::string& name) {
  return kind == MediaItem::Kind::video ? measureFilm(file, name) : measurePicture(file, name);
}

}  // namespace lenslark::MediaImport
