#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "base/SerialQueue.h"
#include "feeds/RetryPace.h"
#include "graphics/PixelBuffer.h"

namespace lenslark {

/// Overlay pictures, each decoded once, away from the queue that asks for them.
///
/// **Threads**: queue-bound.
class OverlayCache {
 public:
  using Picture = std::shared_ptr<const PixelBuffer>;

  explicit OverlayCache(std::shared_ptr<SerialQueue> queue);
  ~OverlayCache();

  /// Called on the queue when a picture that was asked for has come, or turned out to be none. It
  /// may come while the cache is being destroyed: the handler holds its owner weakly.
  void onLoaded(std::function<void()> handler);

  /// Null while the picture is being decoded, and for one that cannot be.
  Picture picture(const std::filesystem::path& file);
  /// Whether the picture is still being decoded. Asks for it.
  bool isLoading(const std::filesystem::path& file);

  /// Drops the others.
  void keepOnly(const std::set<std::filesystem::path>& files);

  /// Tries again what could not be decoded, when it is asked for next.
  void forgetFailures();
  /// One round of attempts at what could not be decoded: its cause may have passed. What fails
  /// again is told no more, and nothing waits for it meanwhile.
  void retryFailures();

 private:
  struct Entry {
    Picture picture;
    bool loading = true;  ///< For the first time.
    bool retrying = false;
    std::string error;
    RetryPace pace;
  };
  struct Decoded {
    Picture picture;
    std::string error;  ///< Why there is none.
  };
  struct State {
    std::function<void()> onLoaded;
    std::map<std::filesystem::path, Entry> entries;

    void take(const std::filesystem::path& file, const Decoded& decoded);
  };

  const Entry& entry(const std::filesystem::path& file);
  void load(const std::filesystem::path& file);
  static Decoded decode(const std::filesystem::path& file);

  const std::shared_ptr<SerialQueue> queue_;
  const std::shared_ptr<State> state_;
};

}  // namespace lenslark
