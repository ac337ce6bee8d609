#include "codecs/ModuleEntry.h"
#include "codecs/video/FilmReader.h"

extern "C" {
#include <libavutil/log.h>
}

namespace lenslark::video {
namespace {

class LibavCodec final : public VideoCodec {
 public:
  std::unique_ptr<VideoDecoder> open(const std::string& path, int maxSide) override {
    return std::make_unique<FilmReader>(path, maxSide);
  }
};

}  // namespace
}  // namespace lenslark::video

extern "C" {

const char lenslarkModuleStamp[] = LENSLARK_MODULE_STAMP;

lenslark::VideoModule lenslarkVideoModule() {
  // What goes wrong is told by exceptions; a broken film must not flood standard error.
  av_log_set_level(AV_LOG_QUIET);
  static lenslark::video::LibavCodec codec;
  return {&codec};
}
}
