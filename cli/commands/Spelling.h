#pragma once

#include <optional>
#include <string_view>
#include <vector>

/// Finds what a mistyped word was meant to be.
namespace lenslark::Spelling {

/// The one of `known` that `word` was probably meant to be: nothing when it is one or resembles
/// none.
std::optional<std::string_view> nearest(std::string_view word,
                                        const std::vector<std::string_view>& known);

}  // namespace lenslark::Spelling
