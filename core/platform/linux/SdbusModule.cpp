#include <poll.h>
#include <sdbus-c++/sdbus-c++.h>

#include <algorithm>
#include <cstdint>
#include <memory>

#include "platform/linux/BusModule.h"

namespace lenslark {
namespace {

using SteadyTime = std::chrono::steady_clock::time_point;

/// Far more than a bus or an application that is well takes for an answer.
constexpr std::uint64_t callTimeoutMicroseconds = 250'000;

constexpr const char* busName = "org.freedesktop.DBus";

/// A notification's name as D-Bus has it.
struct SignalName {
  explicit SignalName(const std::string& name)
      : interface(name.substr(0, name.rfind('.'))),
        member(name.substr(name.rfind('.') + 1)),
        path("/" + interface) {
    std::ranges::replace(path, '.', '/');
  }

  std::string interface;
  std::string member;
  std::string path;
};

std::unique_ptr<sdbus::IConnection> connect() {
  auto connection = sdbus::createSessionBusConnection();
  connection->setMethodCallTimeout(callTimeoutMicroseconds);
  return connection;
}

void emit(sdbus::IConnection& connection, const Notification& notification) {
  const SignalName name(notification.name);
  const auto object = sdbus::createObject(connection, name.path);
  auto signal = object->createSignal(name.interface, name.member);
  signal << notification.object.value_or("") << notification.userInfo;
  object->emitSignal(signal);
}

/// The texts in a table of anything, which is how many programs send every table.
std::map<std::string, std::string> readTexts(sdbus::Message& message) {
  std::map<std::string, sdbus::Variant> table;
  try {
    message >> table;
  } catch (const sdbus::Error&) {
    // A descriptor that was not sent along, for one. What stands before it has been read.
  }
  std::map<std::string, std::string> texts;
  for (const auto& [key, value] : table) {
    if (value.containsValueOfType<std::string>()) texts.emplace(key, value.get<std::string>());
  }
  return texts;
}

/// Leaves out what the sender should not have sent.
Notification read(const std::string& name, sdbus::Message& message) {
  Notification notification{.name = name, .object = {}, .userInfo = {}};
  std::string type;
  std::string contents;
  message.peekType(type, contents);
  if (type != "s") return notification;
  message >> notification.object.emplace();
  message.peekType(type, contents);
  if (type == "a" && contents == "{ss}") message >> notification.userInfo;
  if (type == "a" && contents == "{sv}") notification.userInfo = readTexts(message);
  return notification;
}

/// Sleeps until the connection has something to do.
void wait(const sdbus::IConnection& connection, SteadyTime deadline) {
  using std::chrono::milliseconds;
  const auto left =
      std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  const auto events = connection.getEventLoopPollData();
  const int own = events.getPollTimeout();
  const int most = static_cast<int>(std::clamp<std::int64_t>(left, 0, 60'000));
  pollfd socket{events.fd, events.events, 0};
  ::poll(&socket, 1, own < 0 ? most : std::min(own, most));
}

std::optional<Notification> ask(const Notification& question, const std::string& answerName,
                                const NotificationBus::Acceptance& accepts, SteadyTime deadline) {
  const auto connection = connect();
  std::optional<Notification> answer;
  const SignalName name(answerName);
  // Listening comes first: an answer may be quicker than the way back from posting.
  const auto listening =
      connection->addMatch("type='signal',interface='" + name.interface + "',member='" +
                               name.member + "',path='" + name.path + "'",
                           [&](sdbus::Message& message) {
                             if (answer) return;
                             auto notification = read(answerName, message);
                             if (accepts(notification)) answer = std::move(notification);
                           });
  emit(*connection, question);
  while (!answer && std::chrono::steady_clock::now() < deadline) {
    if (!connection->processPendingRequest()) wait(*connection, deadline);
  }
  return answer;
}

void post(const Notification& notification) { emit(*connect(), notification); }

std::string version(sdbus::IConnection& connection, const std::string& owner) {
  try {
    const auto application = sdbus::createProxy(connection, owner, "/dev/lenslark");
    const sdbus::Variant version = application->getProperty("Version").onInterface("dev.lenslark");
    auto text = version.get<std::string>();
    if (!text.empty()) return text;
  } catch (const sdbus::Error&) {
    // It need not tell.
  }
  return "?";
}

std::optional<RunningApplications::Application> find(const std::string& applicationName) {
  const auto connection = connect();
  const auto bus = sdbus::createProxy(*connection, busName, "/org/freedesktop/DBus");
  std::string owner;
  std::uint32_t pid = 0;
  try {
    bus->callMethod("GetNameOwner")
        .onInterface(busName)
        .withArguments(applicationName)
        .storeResultsTo(owner);
    bus->callMethod("GetConnectionUnixProcessID")
        .onInterface(busName)
        .withArguments(owner)
        .storeResultsTo(pid);
  } catch (const sdbus::Error&) {
    return std::nullopt;
  }
  // The owner itself is asked: a call to the name could start an application that has just ended.
  return RunningApplications::Application{static_cast<pid_t>(pid), version(*connection, owner)};
}

}  // namespace
}  // namespace lenslark

const char lenslarkModuleStamp[] = LENSLARK_MODULE_STAMP;

lenslark::BusModule lenslarkBusModule() { return {lenslark::ask, lenslark::post, lenslark::find}; }
