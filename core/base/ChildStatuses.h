#pragma once

namespace lenslark {

/// A parent that ignored SIGCHLD when it started this process handed that on, and then the system
/// throws the statuses of children away. To be called before a child is made whose end is waited
/// for. **Threads**: any.
void keepChildStatuses() noexcept;

}  // namespace lenslark
