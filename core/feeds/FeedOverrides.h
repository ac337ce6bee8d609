#pragma once

#include <cstdint>
#include <optional>

#include "config/SourceSpec.h"

namespace lenslark {

/// What one run shows in place of the saved settings; never saved itself.
struct FeedOverrides {
  std::optional<SourceSpec> source;  ///< For every camera, and for the global feed.
  std::optional<std::int64_t> fps;
  std::optional<bool> fill;

  friend bool operator==(const FeedOverrides&, const FeedOverrides&) = default;
};

}  // namespace lenslark
