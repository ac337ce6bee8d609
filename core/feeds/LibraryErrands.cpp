#include "feeds/LibraryErrands.h"

#include <atomic>
#include <utility>

#include "base/BrokenFile.h"
#include "base/Clock.h"
#include "base/Error.h"
#include "base/Log.h"
#include "config/SavedConfig.h"

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
    const std::filesystem::path settings = state.store->fileURL();
    // Not the store's value, which is the defaults where there are settings that cannot be read:
    // then nobody knows what is referenced, and nothing may be taken away.
    const SavedConfig saved = SavedConfig::read(settings);
    if (saved.condition == SavedConfig::Condition::unreadable) {
      throw Error("the settings cannot be read (" + saved.problem +
                  "); mend that file or move it away");
    }
    // Those that did not decode are kept aside, and whoever mends them wants their media too.
    const bool broken = saved.condition == SavedConfig::Condition::broken;
    if (broken || BrokenFile::hasCopy(settings.string())) return;
    referenced.merge(saved.config.referencedMedia());
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
