#pragma once

#include "codecs/ImageCodec.h"
#include "codecs/TextRenderer.h"
#include "codecs/VideoDecoder.h"

/// What the program and its modules agree on. Each module exports two C symbols: its stamp, and
/// the function that hands out its codecs.
///
///     extern "C" const char lenslarkModuleStamp[] = LENSLARK_MODULE_STAMP;
///     extern "C" lenslark::VideoModule lenslarkVideoModule() { ... }

#define LENSLARK_MODULE_EXPORT __attribute__((visibility("default")))

/// Compared as text before anything else of a module is used: C++ objects cross the border, so
/// both sides must come from one build of these headers, which the stamp holds a digest of
/// (cmake/ModuleStamp.cmake).
#define LENSLARK_MODULE_STAMP "lenslark-module-1 " LENSLARK_BUILD_STAMP

namespace lenslark {

/// Everything lives as long as the process.
struct ImageModule {
  ImageCodec* images;
  TextRenderer* text;
};

struct VideoModule {
  VideoCodec* films;
};

/// The entries' types. They **fail** with Error when their library cannot be started.
using ImageModuleEntry = ImageModule();
using VideoModuleEntry = VideoModule();

inline constexpr const char* moduleStampSymbol = "lenslarkModuleStamp";
inline constexpr const char* imageModuleSymbol = "lenslarkImageModule";
inline constexpr const char* videoModuleSymbol = "lenslarkVideoModule";

}  // namespace lenslark

// Declared here, so that a definition that differs does not compile.
extern "C" {
extern LENSLARK_MODULE_EXPORT const char lenslarkModuleStamp[];
LENSLARK_MODULE_EXPORT lenslark::ImageModule lenslarkImageModule();
LENSLARK_MODULE_EXPORT lenslark::VideoModule lenslarkVideoModule();
}
