#pragma once

#include <functional>
#include <string>
#include <vector>

#include "commands/Arguments.h"
#include "feeds/DeviceStatus.h"
#include "feeds/FeedOverrides.h"
#include "media/MediaLibrary.h"

/// `lenslark serve`: the cameras, run from a terminal.
namespace lenslark::ServeCommand {

/// Runs the cameras until SIGINT, SIGTERM or SIGHUP, closes every feed and returns. A second signal
/// ends the process at once.
/// **Fails** with UsageError, or with what an import throws; nothing runs then.
void run(const Arguments& arguments);

/// Imports a file that has to be of this kind.
using Import = std::function<MediaItem(const std::string& path, MediaItem::Kind kind)>;
/// What an assignment shows, in a few words.
using Summary = std::function<std::string(const Assignment& assignment)>;

/// What the flags put in place of the saved settings. **Fails** as `run`.
FeedOverrides overrides(const Arguments& arguments, const Import& import);

/// One line for each device, without a line feed at the end.
std::string statusText(const std::vector<DeviceStatus>& devices, const Summary& summary);

}  // namespace lenslark::ServeCommand
