#include "feeds/LibraryErrands.h"

#include <atomic>
#include <utility>

#include "base/BrokenFile.h"
#include "base/Clock.h"
#include "base/Log.h"

namespace lenslark {
namespace {

constexpr double forgottenAfterSeconds = 90.0 * 24 * 60 * 60;

}  // namespace

struct LibraryErrands::State {
  State(std::shared_ptr<ConfigStore> configStore, std::shared_ptr<MediaLibrary> library)
      : store(std::move(configStore)), media(std::move(library)) {}

  const std::shared_ptr<ConfigStore> store;
  const std::shared_ptr<MediaLibrary> media;
  std::atomic<bool> finished = false;
  std::set<std::string> loggedFailures;  // the queue's
};

LibraryErrands::LibraryErrands(std::shared_ptr<ConfigStore> store,
                               std::shared_ptr<MediaLibrary> media)
    : state_(std::make_shared<State>(std::move(store), std::move(media))),
      queue_("lenslark.router.errands", SerialQueue::Lane::blocking) {}

LibraryErrands::~LibraryErrands() { state_->finished = true; }

void LibraryErrands::post(std::move_only_function<void(State&)> errand) {
  queue_.post([state = state_, errand = std::move(errand)]() mutable {
    if (state->finished) return;
    try {
      errand(*state);
    } catch (const std::exception& error) {
      if (state->loggedFailures.insert(error.what()).second)
        Log::router().error("{}", error.what());
    }
  });
}

void LibraryErrands::remember(std::vector<ConnectedDevice> devices) {
  post([devices = std::move(devices)](State& state) {
    const auto note = [&, now = Clock::now()](ConfigFile& config) {
      for (const auto& device : devices) config.remember(device.key, device.name, now);
      config.prune(forgottenAfterSeconds, now);
    };
    // Mostly there is nothing new, and then no lock to wait for.
    const ConfigFile known = state.store->config();
    ConfigFile noted = known;
    note(noted);
    if (noted != known) state.store->update(note);
  });
}

void LibraryErrands::touch(std::set<std::string> mediaIDs) {
  if (mediaIDs.empty()) return;
  post([ids = std::move(mediaIDs)](State& state) { state.media->touch(ids, Clock::now()); });
}

void LibraryErrands::collectGarbage(std::set<std::string> shown) {
  post([referenced = std::move(shown)](State& state) mutable {
    // Unlike a plain reading this fails when the file is there but cannot be read: then nobody
    // knows what is referenced, and nothing may be taken away.
    state.store->update(
        [&](const ConfigFile& config) { referenced.merge(config.referencedMedia()); });
    // Settings that did not decode were kept aside, and whoever mends them wants their media too.
    if (BrokenFile::hasCopy(state.store->fileURL().string())) return;
    state.media->collectGarbage(referenced, Clock::now());
  });
}

std::future<void> LibraryErrands::finish() {
  state_->finished = true;
  std::promise<void> done;
  auto result = done.get_future();
  queue_.post([done = std::move(done)]() mutable { done.set_value(); });
  return result;
}

}  // namespace lenslark
