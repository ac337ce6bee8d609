#pragma once

#include <unistd.h>

#include <array>
#include <csignal>
#include <optional>
#include <string>

#include "base/FileDescriptor.h"
#include "base/PosixError.h"
#include "support/ScopedVariable.h"
#include "support/Subprocess.h"

namespace lenslark {

/// An X server of a test's own, without a monitor, that $DISPLAY names as long as it lives.
class XvfbServer {
 public:
  explicit XvfbServer(const std::string& screen = "1280x800x24") {
    // Whoever writes to a server that has gone gets an error, as in the program itself.
    std::signal(SIGPIPE, [](int) {});
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) throwErrno("pipe");
    const FileDescriptor read(ends[0]);
    FileDescriptor write(ends[1]);
    server_.emplace(std::vector<std::string>{"Xvfb", "-displayfd", std::to_string(ends[1]),
                                             "-screen", "0", screen, "-nolisten", "tcp",
                                             "-noreset"});
    write.reset();
    name_ = ":";
    // The server tells the number that it found free, then a line feed.
    for (char digit = 0; ::read(read.get(), &digit, 1) == 1 && digit != '\n';) name_ += digit;
    if (name_ == ":") throw std::runtime_error("Xvfb did not start");
    display_.emplace("DISPLAY", name_);
  }

  const std::string& name() const noexcept { return name_; }
  const Subprocess& process() const noexcept { return *server_; }
  void end() { server_->end(); }

 private:
  std::optional<Subprocess> server_;
  std::string name_;
  std::optional<ScopedVariable> display_;
};

}  // namespace lenslark
