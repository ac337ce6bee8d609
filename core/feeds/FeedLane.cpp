#include "feeds/FeedLane.h"

#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "base/Error.h"
#include "feeds/FeedReader.h"

namespace lenslark {
namespace {

/// Whether a file is a feed of ours without a writer. In doubt it is not: a process id may be one
/// of another container's, so that only a heart that has stopped tells of its end.
bool isAbandoned(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || status.st_uid != ::getuid()) return false;
  try {
    const auto info = FeedReader::info(path);
    return info &&
           (info->writerPid == 0 || info->heartbeatAge.value_or(0) > FeedReader::liveHeartbeat);
  } catch (const Error&) {
    return false;  // a header that no writer makes
  }
}

}  // namespace

FeedLane::FeedLane(std::string path)
    : path_(std::move(path)), queue_("lenslark.feed", SerialQueue::Lane::blocking) {}

std::shared_ptr<FeedOutput> FeedLane::open(const Opening& opening) {
  const bool mayRemove = isOurs();
  close();  // first: that marks the file as abandoned, and it may be the same one
  std::shared_ptr<FeedOutput> output;
  try {
    output = std::make_shared<FeedOutput>(path_, opening.camera, opening.maxSide, opening.room);
  } catch (const std::exception&) {
    if (mayRemove) ::unlink(path_.c_str());
    throw;
  }
  output->heartbeat();
  output->setSceneMode(opening.look.sceneMode);
  output->update(opening.look.style, opening.look.overlay);
  output->deliver(opening.before, opening.beforeKind);
  output_ = output;
  return output;
}

void FeedLane::restyle(const Look& look) {
  output_->setSceneMode(look.sceneMode);
  output_->update(look.style, look.overlay);
}

void FeedLane::follow(std::shared_ptr<SourceHub> hub) {
  if (hub == hub_) return;
  unfollow();
  hub_ = std::move(hub);
  hub_->add(output_);
}

void FeedLane::unfollow() {
  if (hub_) hub_->remove(*output_);
  hub_ = nullptr;
}

void FeedLane::close() {
  unfollow();
  if (output_) output_->close();
  output_ = nullptr;
}

void FeedLane::remove() {
  unfollow();
  if (isOurs()) ::unlink(path_.c_str());
  close();
}

void FeedLane::removeLeftover() {
  if (!output_ && isAbandoned(path_)) ::unlink(path_.c_str());
}

bool FeedLane::isOurs() const {
  return output_ && output_->stillInPlace() && !output_->isTakenOver();
}

}  // namespace lenslark
