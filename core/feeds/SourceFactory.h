#pragma once

#include <functional>
#include <memory>

#include "feeds/SourceKey.h"
#include "platform/Screen.h"
#include "sources/FrameSource.h"

namespace lenslark {

/// Makes a source that was not started yet. One that cannot be had comes as a source whose start
/// fails and says why.
using SourceFactory = std::function<std::unique_ptr<FrameSource>(const SourceDescription&)>;

/// The real sources. `screen` may be null where there is none; it must outlive what is made.
SourceFactory systemSources(Screen* screen);

}  // namespace lenslark
