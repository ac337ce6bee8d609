#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace lenslark::Base64 {

/// The standard alphabet with padding, on one line (RFC 4648, section 4).
std::string encode(std::span<const std::byte> bytes);

}  // namespace lenslark::Base64
