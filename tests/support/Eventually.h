#pragma once

#include <chrono>
#include <thread>

namespace lenslark {

/// Whether the predicate comes true before the deadline; asks again and again until then.
template <typename Predicate>
bool eventually(Predicate&& predicate,
                std::chrono::milliseconds deadline = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace lenslark
