#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace lenslark::Base64 {

/// Appends them to `text`: the standard alphabet with padding, on one line (RFC 4648, section 4).
void append(std::span<const std::byte> bytes, std::string& text);

}  // namespace lenslark::Base64
