#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "base/PosixError.h"

namespace lenslark {

/// A program that runs beside a test and ends with it, at the latest.
class Subprocess {
 public:
  /// Looked for on PATH; its output goes to the null device.
  explicit Subprocess(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
      ::posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    }
    const int error =
        ::posix_spawnp(&pid_, arguments.front(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw posixError(error, words.front());
  }
  ~Subprocess() { end(); }
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  pid_t pid() const noexcept { return pid_; }
  void signal(int number) const { ::kill(pid_, number); }

  /// Asks it to end, and waits for that.
  void end() {
    const pid_t pid = std::exchange(pid_, 0);
    if (pid == 0) return;
    ::kill(pid, SIGCONT);
    ::kill(pid, SIGTERM);
    ::waitpid(pid, nullptr, 0);
  }

 private:
  pid_t pid_ = 0;
};

}  // namespace lenslark
