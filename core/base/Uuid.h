#pragma once

#include <string>

namespace lenslark::Uuid {

/// A fresh random UUID (RFC 4122, version 4) in upper-case canonical text form.
std::string make();

}  // namespace lenslark::Uuid
