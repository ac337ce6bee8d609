#pragma once

#include <memory>

namespace lenslark {

/// Catches the signals that ask a program to end: SIGINT, SIGTERM, and SIGHUP unless the program
/// was told to ignore it (nohup).
///
/// **Threads**: `wait` on one thread, `cancel` on any. One object in a process.
class StopSignals {
 public:
  /// From here on a first signal is kept for `wait` instead of ending the process.
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Returns at the first signal or after `cancel`. From then on the signals do what they do by
  /// default: a second one ends the process at once, however long the orderly end may take.
  void wait();
  void cancel();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace lenslark
