#include "codecs/ModuleEntry.h"
#include "codecs/image/PangoTextRenderer.h"
#include "codecs/image/VipsImageCodec.h"
#include "codecs/image/VipsLibrary.h"

extern "C" {

const char lenslarkModuleStamp[] = LENSLARK_MODULE_STAMP;

lenslark::ImageModule lenslarkImageModule() {
  static lenslark::VipsImageCodec images;
  static lenslark::PangoTextRenderer text;
  lenslark::VipsLibrary::start();
  return {&images, &text};
}
}
