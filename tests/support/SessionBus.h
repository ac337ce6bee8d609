#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "base/FileDescriptor.h"
#include "support/Eventually.h"
#include "support/ScopedVariable.h"
#include "support/Subprocess.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {

/// A session bus of a test's own, which is the process's session bus as long as it lives.
class SessionBus {
 public:
  SessionBus() {
    if (!eventually([this] { return answers(); })) throw posixError(ETIMEDOUT, "dbus-daemon");
  }

  const Subprocess& daemon() const noexcept { return daemon_; }

 private:
  bool answers() const {
    const FileDescriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = (folder_ / "bus").string();
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
           0;
  }

  const TemporaryDirectory folder_;
  const std::string address_ = "unix:path=" + (folder_ / "bus").string();
  Subprocess daemon_{{"dbus-daemon", "--session", "--nofork", "--address=" + address_}};
  const ScopedVariable variable_{"DBUS_SESSION_BUS_ADDRESS", address_};
};

}  // namespace lenslark
