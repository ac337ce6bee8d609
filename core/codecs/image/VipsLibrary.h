#pragma once

#include <vips/vips.h>

#include <memory>

namespace lenslark {

struct VipsUnref {
  void operator()(VipsImage* image) const noexcept { g_object_unref(image); }
  void operator()(VipsRegion* region) const noexcept { g_object_unref(region); }
  void operator()(VipsSource* source) const noexcept { g_object_unref(source); }
};
using VipsImagePtr = std::unique_ptr<VipsImage, VipsUnref>;
using VipsRegionPtr = std::unique_ptr<VipsRegion, VipsUnref>;
using VipsSourcePtr = std::unique_ptr<VipsSource, VipsUnref>;

namespace VipsLibrary {

/// Starts libvips once: no operation cache, few threads, silent, and only the loaders of the
/// formats that are wanted. **Fails** with Error.
void start();

/// Wraps the image that a libvips operation has made.
inline VipsImagePtr adopt(int status, VipsImage* image) {
  if (status != 0) {
    // The library collects its messages until they are fetched.
    vips_error_clear();
    return nullptr;
  }
  return VipsImagePtr(image);
}

}  // namespace VipsLibrary
}  // namespace lenslark
