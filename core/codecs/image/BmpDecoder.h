#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <memory>
#include <optional>

#include "base/FileDescriptor.h"
#include "graphics/Geometry.h"

/// Windows bitmaps, which libvips reads only by handing them to a decoder that is not fit for
/// untrusted files. gdk-pixbuf's decoder, confined to this one format, is.
namespace lenslark::BmpDecoder {

struct Unref {
  void operator()(GdkPixbuf* pixels) const noexcept { g_object_unref(pixels); }
};
using Pixels = std::unique_ptr<GdkPixbuf, Unref>;

/// Whether the first bytes are a bitmap's.
bool recognises(const FileDescriptor& file) noexcept;

/// The size from the header; no room for the pixels is made.
std::optional<Size> measure(const FileDescriptor& file);

/// The whole picture, straight RGB or RGBA, at its own size, which must be `size`: the caller has
/// checked it. Nothing when it is broken.
Pixels decode(const FileDescriptor& file, Size size);

}  // namespace lenslark::BmpDecoder
