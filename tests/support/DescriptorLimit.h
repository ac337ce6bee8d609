#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <vector>

#include "base/FileDescriptor.h"

namespace lenslark {

/// As long as it lives, `taken` descriptors more are in use, and so many can be had as are `left`.
class DescriptorLimit {
 public:
  explicit DescriptorLimit(rlim_t left, std::size_t taken = 0) {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    while (taken_.size() < taken) taken_.emplace_back(::dup(STDERR_FILENO));
    const FileDescriptor next(::dup(STDERR_FILENO));
    const rlimit limit{.rlim_cur = static_cast<rlim_t>(next.get()) + left,
                       .rlim_max = before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
  ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit before_{};
  std::vector<FileDescriptor> taken_;
};

}  // namespace lenslark
