#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Runs external programs.
///
/// Programs are named by absolute paths; none is looked for on PATH. They get none of this
/// process's descriptors beyond the standard three, no blocked or ignored signals, and its working
/// directory.
///
/// **Threads**: any. Calls share nothing.
namespace lenslark::Shell {

/// Variables added to this process's environment, in front of those of the same name.
using Environment = std::map<std::string, std::string>;

enum class StandardInput { inherited, null };

struct Result {
  /// What the program ended with: its exit status, or 128 + the signal that killed it.
  int status = 0;
  /// Everything it printed, as UTF-8 with what is broken repaired; the first `outputLimit` bytes
  /// of a stream that is longer.
  std::string output;
  std::string errors;
};

/// So much of a stream is kept. The rest is read and dropped, so that a program that floods its
/// output goes on to its end and does not fill this one's memory.
inline constexpr std::size_t outputLimit = std::size_t{64} << 20U;

/// Runs a program to its end and returns what it printed. Waits for as long as it takes, which is
/// also until nobody holds its output streams open any more; a program that is silent for some
/// seconds is logged, once, since whoever waits for its devices could not tell why. A status other
/// than 0 is no failure here.
/// **Fails** with std::system_error that names the program when it cannot be started.
Result run(const std::string& executable, const std::vector<std::string>& arguments,
           const Environment& environment = {},
           StandardInput standardInput = StandardInput::inherited);

/// Starts a program that goes on by itself: in a session of its own, so without our terminal, its
/// standard streams on the null device, and never a child that this process would have to collect.
/// Returns its process id as soon as it runs.
/// **Fails** with std::system_error that names the program when it cannot be started.
pid_t launchDetached(const std::string& executable, const std::vector<std::string>& arguments,
                     const Environment& environment = {});

}  // namespace lenslark::Shell
