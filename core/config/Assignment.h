#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/Clock.h"
#include "config/OverlaySpec.h"
#include "config/Scope.h"
#include "config/SourceSpec.h"

namespace lenslark {

/// One stored setting: what the cameras of a scope see.
struct Assignment {
  Scope scope;
  SourceSpec source;
  std::optional<OverlaySpec> overlay;
  std::optional<Date> updatedAt;

  /// The source's media, then the overlay's; duplicates are kept.
  std::vector<std::string> mediaIDs() const;

  /// Whether a camera would show the same picture, whatever the scope and the date.
  bool sameContent(const Assignment& other) const;

  friend bool operator==(const Assignment&, const Assignment&) = default;
};

}  // namespace lenslark
