#pragma once

#include "codecs/ImageCodec.h"
#include "codecs/TextRenderer.h"
#include "codecs/VideoDecoder.h"

/// The codec families lie in modules that are loaded when the first picture or film is touched:
/// their libraries take many times longer to map than a short command takes to run.
///
/// A module is looked for in $LENSLARK_MODULE_DIR when it is set, then beside the executable, in
/// "lenslark" below the library directories that belong to the executable's prefix, and where the
/// program was configured to be installed.
///
/// **Threads**: any. The objects live as long as the process.
/// **Fails** with Error that names the module, where it was looked for and what is wrong with it;
/// the next call tries again.
namespace lenslark::Modules {

ImageCodec& imageCodec();
TextRenderer& textRenderer();
VideoCodec& videoCodec();

/// The function `symbol` of a module that holds something else than codecs.
void* entry(const char* library, const char* symbol);

}  // namespace lenslark::Modules
