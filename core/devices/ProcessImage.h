#pragma once

#include <string>
#include <vector>

#include "devices/Shell.h"

namespace lenslark {

/// The arguments and environment of a program to start, in the form that the system takes. Made
/// whole before a fork: nothing may be allocated between that and the exec.
class ProcessImage {
 public:
  ProcessImage(const std::string& executable, const std::vector<std::string>& arguments,
               const Shell::Environment& environment);
  ProcessImage(const ProcessImage&) = delete;
  ProcessImage& operator=(const ProcessImage&) = delete;

  const char* path() const noexcept { return words_.front().c_str(); }
  char* const* arguments() const noexcept { return arguments_.data(); }
  char* const* environment() const noexcept;

 private:
  std::vector<std::string> words_;
  std::vector<std::string> variables_;  // empty: this process's own environment, untouched
  std::vector<char*> arguments_;
  std::vector<char*> environment_;
};

}  // namespace lenslark
