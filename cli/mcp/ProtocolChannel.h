#pragma once

#include <string>

#include "base/FileDescriptor.h"

namespace lenslark {

/// Keeps the protocol's standard input and output for itself: from its construction on, whatever
/// else in the process writes to standard output lands on standard error, and what reads standard
/// input (child processes, too) finds the null device.
/// **Threads**: one at a time.
class ProtocolChannel {
 public:
  /// **Fails** with std::system_error when there is no standard input or output.
  ProtocolChannel();

  /// The protocol's input, once.
  FileDescriptor takeInput() { return std::move(input_); }

  /// Sends a line at once. Returns false when nobody reads it any more.
  /// **Fails** with std::system_error on any other trouble.
  bool send(std::string line) const;

 private:
  FileDescriptor input_;
  FileDescriptor output_;
};

}  // namespace lenslark
