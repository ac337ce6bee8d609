#include "codecs/Modules.h"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "codecs/ModuleEntry.h"
#include "codecs/ModuleFinder.h"

namespace lenslark::Modules {
namespace {

std::vector<std::filesystem::path> searchPath() {
  const char* variable = std::getenv("LENSLARK_MODULE_DIR");
  std::error_code ignored;
  return ModuleFinder::searchPath(variable != nullptr ? variable : "",
                                  std::filesystem::read_symlink("/proc/self/exe", ignored));
}

/// A module's codecs, loaded by whoever asks first. A failure is not remembered: the module may
/// have been installed by the next time.
template <typename Module>
class LazyModule {
 public:
  constexpr LazyModule(const char* library, const char* symbol) noexcept
      : library_(library), symbol_(symbol) {}

  const Module& get() {
    if (!loaded_.load(std::memory_order_acquire)) load();
    return module_;
  }

 private:
  void load() {
    const std::scoped_lock guard(loading_);
    if (loaded_.load(std::memory_order_relaxed)) return;
    auto* entry =
        reinterpret_cast<Module (*)()>(ModuleFinder::load(library_, symbol_, searchPath()));
    module_ = entry();
    loaded_.store(true, std::memory_order_release);
  }

  // Constant after construction.
  const char* library_;
  const char* symbol_;

  std::mutex loading_;
  std::atomic<bool> loaded_ = false;
  // Written once under `loading_`, before `loaded_` becomes true.
  Module module_{};
};

constinit LazyModule<ImageModule> imageModule("lenslark-image.so", imageModuleSymbol);
constinit LazyModule<VideoModule> videoModule("lenslark-video.so", videoModuleSymbol);

}  // namespace

ImageCodec& imageCodec() { return *imageModule.get().images; }
TextRenderer& textRenderer() { return *imageModule.get().text; }
VideoCodec& videoCodec() { return *videoModule.get().films; }

void* entry(const char* library, const char* symbol) {
  return ModuleFinder::load(library, symbol, searchPath());
}

}  // namespace lenslark::Modules
