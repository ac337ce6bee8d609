#pragma once

#include "base/Error.h"

namespace lenslark {

/// Something an external program or file would not do, in one sentence.
class CommandError final : public Error {
 public:
  explicit CommandError(const std::string& message) : Error(message) {}
};

}  // namespace lenslark
