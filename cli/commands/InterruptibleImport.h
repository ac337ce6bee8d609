#pragma once

#include "commands/ImportProgressLine.h"
#include "control/CameraControl.h"

namespace lenslark {

/// As long as it lives, Ctrl-C (or the end of the terminal or session) does not cut an import in
/// the middle: the import's next report throws, so that what was copied by then is taken away. A
/// second one ends the process at once.
/// **Threads**: one at a time in a process.
class InterruptibleImport {
 public:
  InterruptibleImport();
  /// Ends the process as the signal would have, when one came: also when that was too late for the
  /// import to be called off.
  ~InterruptibleImport();
  InterruptibleImport(const InterruptibleImport&) = delete;
  InterruptibleImport& operator=(const InterruptibleImport&) = delete;

  /// To be passed to an import; shows its progress, too. Refers to this object.
  CameraControl::ImportProgress handler();

 private:
  ImportProgressLine line_;
};

/// Runs `body`, which imports with the progress handler that it is given, and returns what it does.
template <typename Body>
auto importing(Body&& body) {
  InterruptibleImport import;
  return body(import.handler());
}

}  // namespace lenslark
