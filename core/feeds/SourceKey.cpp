#include "feeds/SourceKey.h"

#include <fmt/core.h>

#include <algorithm>

#include "base/Text.h"

namespace lenslark {
namespace {

const std::filesystem::path* find(const MediaFiles& files, const std::string& id) {
  const auto entry = files.find(id);
  return entry == files.end() ? nullptr : &entry->second;
}

class Requests {
 public:
  Requests(const ConnectedDevice* device, int fps, const MediaFiles& files,
           const std::string& unread)
      : device_(device), fps_(fps), files_(files), unread_(unread) {}

  using Result = std::optional<SourceRequest>;

  Result operator()(const SourceSpec::Desktop&) const {
    if (!device_ || !device_->window) return std::nullopt;
    return request(fmt::format("desktop:{}:{}", device_->window->windowID, fps_),
                   SourceDescription::Desktop{*device_, fps_});
  }
  Result operator()(const SourceSpec::Display& spec) const {
    return request(fmt::format("display:{}:{}", spec.index, fps_),
                   SourceDescription::Display{spec.index, fps_});
  }
  Result operator()(const SourceSpec::Window& spec) const {
    return request(fmt::format("window:{}:{}", spec.match, fps_),
                   SourceDescription::Window{spec.match, fps_});
  }
  Result operator()(const SourceSpec::Image& spec) const {
    const auto* file = find(files_, spec.mediaId);
    if (!file) return missing("image:" + spec.mediaId, spec.mediaId);
    return request("image:" + file->string(), SourceDescription::Image{*file}, {spec.mediaId});
  }
  Result operator()(const SourceSpec::Video& spec) const {
    const auto* file = find(files_, spec.mediaId);
    const auto key =
        fmt::format("video:{}:{}:{}", file ? file->string() : spec.mediaId, spec.loop, fps_);
    if (!file) return missing(key, spec.mediaId);
    return request(key, SourceDescription::Video{*file, spec.loop, fps_}, {spec.mediaId});
  }
  Result operator()(const SourceSpec::Slideshow& spec) const {
    if (spec.mediaIds.empty()) return std::nullopt;
    std::vector<std::string> names;
    SourceDescription::Slideshow slideshow{{}, spec.intervalSec};
    std::set<std::string> ids;
    for (const auto& id : spec.mediaIds) {
      const auto* file = find(files_, id);
      names.push_back(file ? file->string() : id);
      slideshow.files.push_back(file ? *file : std::filesystem::path());
      if (file) ids.insert(id);
    }
    const auto key = fmt::format("slideshow:{}:{}", Text::join(names, ","),
                                 Text::shortestDouble(spec.intervalSec));
    if (ids.empty()) return missing(key, spec.mediaIds.front());
    return request(key, std::move(slideshow), std::move(ids));
  }
  Result operator()(const SourceSpec::Pattern&) const {
    return request(fmt::format("pattern:{}", fps_), SourceDescription::Pattern{fps_});
  }

 private:
  template <typename Case>
  static Result request(std::string key, Case description, std::set<std::string> ids = {}) {
    return SourceRequest{std::move(key), {std::move(description)}, std::move(ids)};
  }

  SourceRequest missing(const std::string& key, const std::string& id) const {
    if (!unread_.empty())
      return {key + ":" + unread_, {SourceDescription::Unavailable{unread_}}, {}};
    return {
        key,
        {SourceDescription::Unavailable{fmt::format(
            "the media library has no \"{}\"; add the file again, or show something else", id)}},
        {}};
  }

  const ConnectedDevice* device_;
  int fps_;
  const MediaFiles& files_;
  const std::string& unread_;
};

}  // namespace

bool SourceDescription::capturesScreen() const noexcept {
  return std::holds_alternative<Desktop>(value) || std::holds_alternative<Display>(value) ||
         std::holds_alternative<Window>(value);
}

std::optional<SourceRequest> sourceRequest(const SourceSpec& spec, const ConnectedDevice* device,
                                           int fps, const MediaFiles& files,
                                           const std::string& unread) {
  return std::visit(Requests(device, fps, files, unread), spec.value);
}

}  // namespace lenslark
