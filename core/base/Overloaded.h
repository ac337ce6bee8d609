#pragma once

namespace lenslark {

/// One function object of several, for std::visit: each case of a variant finds its own.
template <typename... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace lenslark
