#include "control/LenslarkControl.h"

#include <utility>

#include "base/Text.h"
#include "base/Uuid.h"

namespace lenslark::LenslarkControl {
namespace {

constexpr const char* idKey = "id";

/// An application that does not give ids back is understood too.
bool answers(const Notification& status, const std::string& id) {
  const auto given = status.userInfo.find(idKey);
  return status.object && (given == status.userInfo.end() || given->second == id);
}

}  // namespace

std::optional<std::string> send(const std::string& command, std::chrono::milliseconds timeout,
                                NotificationBus& bus) {
  const std::string id = Uuid::make();
  const Notification question{.name = commandName, .object = command, .userInfo = {{idKey, id}}};
  auto answer = bus.ask(
      question, statusName, [id](const Notification& status) { return answers(status, id); },
      timeout);
  return answer ? std::move(answer->object) : std::nullopt;
}

void reply(const std::string& text, const Notification& command, NotificationBus& bus) {
  Notification status{.name = statusName, .object = Text::repairUtf8(text), .userInfo = {}};
  if (const auto id = command.userInfo.find(idKey); id != command.userInfo.end()) {
    status.userInfo.insert(*id);
  }
  bus.post(status);
}

}  // namespace lenslark::LenslarkControl
