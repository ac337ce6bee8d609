#pragma once

#include <filesystem>
#include <vector>

#include "control/Doctor.h"

/// What is wrong with the frame files. Anything may lie there under their names: nothing is
/// followed, waited for or changed but what `checks` says. **Threads**: any.
namespace lenslark::Doctor::FeedFindings {

/// The findings for each file of the directory that is named as a feed, by name; then a hint for
/// each that is none. With `removeStale`, regular files of this user whose header names a process
/// that is gone are removed.
std::vector<Check> checks(const std::filesystem::path& directory, bool removeStale);

}  // namespace lenslark::Doctor::FeedFindings
