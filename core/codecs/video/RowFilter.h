#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace lenslark::video {

/// Makes rows of bytes narrower, by no more than a half: each result is a mean of the two samples
/// around its place, weighted by how near they are. It takes what makes this slow, finding out
/// which two and how much of each, out of the rows: it is the same for all of them.
/// **Threads**: one at a time; rows may be filtered from any.
class RowFilter {
 public:
  /// Whether rows of `from` can be made `to` wide, by this processor.
  static bool suits(int from, int to) noexcept;

  /// `suits(from, to)` holds. **Fails** with std::bad_alloc.
  RowFilter(int from, int to);

  /// Reads `from` bytes and writes `to`, elsewhere.
  void apply(const std::uint8_t* row, std::uint8_t* result) const noexcept;

 private:
  static constexpr std::size_t lanes = 8;

  /// What is done for eight results at once: of sixteen samples from `start`, two are picked for
  /// each and weighted in 128ths.
  struct Step {
    std::int32_t start = 0;
    std::array<std::uint8_t, 2 * lanes> picks{};
    std::array<std::int8_t, 2 * lanes> weights{};
  };

  std::size_t to_;
  std::vector<Step> steps_;
};

}  // namespace lenslark::video
