#include "base/ChildStatuses.h"

#include <csignal>

namespace lenslark {

void keepChildStatuses() noexcept {
  struct sigaction action {};
  if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    ::signal(SIGCHLD, SIG_DFL);
  }
}

}  // namespace lenslark
