#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace lenslark {

/// A message to whoever listens for its name.
struct Notification {
  std::string name;                             ///< "dev.lenslark.command".
  std::optional<std::string> object;            ///< Nothing when what was sent is no text.
  std::map<std::string, std::string> userInfo;  ///< Empty when what was sent is no such table.

  friend bool operator==(const Notification&, const Notification&) = default;
};

/// The bus between a user's programs, which any of them may post to and listen on.
///
/// **Threads**: any; every operation waits, never longer than it is told. A bus that is missing,
/// silent or dying is no failure: nothing is heard on it then.
class NotificationBus {
 public:
  using Acceptance = std::function<bool(const Notification&)>;

  virtual ~NotificationBus() = default;

  /// Posts the question and returns the first notification named `answerName` that is accepted;
  /// nothing when there is none in time. `accepts` is called on a thread of the bus, perhaps even
  /// after this has returned: it owns what it uses.
  virtual std::optional<Notification> ask(const Notification& question,
                                          const std::string& answerName, Acceptance accepts,
                                          std::chrono::milliseconds patience) = 0;

  virtual void post(const Notification& notification) = 0;

  /// The bus of the user's session.
  static NotificationBus& session();

  /// **Fails** with Error when the module that speaks to that bus cannot be loaded.
  static void load();
};

}  // namespace lenslark
