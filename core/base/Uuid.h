#pragma once

#include <string>
#include <string_view>

namespace lenslark::Uuid {

/// A fresh random UUID (RFC 4122, version 4) in upper-case canonical text form.
std::string make();

/// Whether a text has the form that `make` gives.
bool isWellFormed(std::string_view text) noexcept;

}  // namespace lenslark::Uuid
