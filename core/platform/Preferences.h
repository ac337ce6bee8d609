#pragma once

#include <optional>
#include <string>
#include <variant>

namespace lenslark {

/// The preferences of the older application, read once to carry its settings over.
class Preferences {
 public:
  using Value = std::variant<bool, long, double, std::string>;

  virtual ~Preferences() = default;
  virtual std::optional<Value> value(const std::string& key) const = 0;
};

}  // namespace lenslark
