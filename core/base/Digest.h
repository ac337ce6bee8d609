#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace lenslark {

/// A running SHA-256 (FIPS 180-4).
class Sha256 {
 public:
  Sha256();
  ~Sha256();
  Sha256(Sha256&&) noexcept;
  Sha256& operator=(Sha256&&) noexcept;

  void add(std::span<const std::byte> bytes);

  /// The digest as 64 lower-case hexadecimal digits. Ends the running hash.
  std::string finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace lenslark
