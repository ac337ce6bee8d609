#pragma once

#include "codecs/ModuleEntry.h"
#include "platform/Screen.h"

namespace lenslark {

inline constexpr const char* screenModule = "lenslark-screen.so";
inline constexpr const char* screenModuleSymbol = "lenslarkScreenModule";

}  // namespace lenslark

/// A new screen, which the caller owns.
extern "C" LENSLARK_MODULE_EXPORT lenslark::Screen* lenslarkScreenModule();
