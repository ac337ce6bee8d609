#include "codecs/image/VipsLibrary.h"

#include <fmt/core.h>

#include <array>

#include "base/Error.h"

namespace lenslark::VipsLibrary {
namespace {

/// Everything else that libvips can read stays blocked: formats that cameras do not need, and
/// loaders that hand files to large collections of decoders.
constexpr std::array wantedLoaders{
    "VipsForeignLoadJpeg", "VipsForeignLoadPng",  "VipsForeignLoadNsgif", "VipsForeignLoadWebp",
    "VipsForeignLoadTiff", "VipsForeignLoadHeif", "VipsForeignLoadJxl",   "VipsForeignLoadSvg"};

void ignoreMessage(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

}  // namespace

void start() {
  // Standard output and standard error belong to the program: what a broken picture makes the
  // libraries say is told by the result.
  constexpr auto chatter =
      static_cast<GLogLevelFlags>(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_MESSAGE | G_LOG_LEVEL_INFO |
                                  G_LOG_LEVEL_DEBUG | G_LOG_FLAG_RECURSION);
  for (const char* domain : {"VIPS", "GdkPixbuf", "Pango", "librsvg"}) {
    g_log_set_handler(domain, chatter, ignoreMessage, nullptr);
  }
  if (vips_init("lenslark") != 0) {
    const std::string reason = vips_error_buffer();
    vips_error_clear();
    throw Error(fmt::format("libvips could not be started: {}", reason));
  }
  // Each file is decoded once, so kept results are only memory.
  vips_cache_set_max(0);
  constexpr int threads = 2;
  vips_concurrency_set(threads);
  vips_operation_block_set("VipsForeignLoad", TRUE);
  for (const char* loader : wantedLoaders) vips_operation_block_set(loader, FALSE);
}

}  // namespace lenslark::VipsLibrary
