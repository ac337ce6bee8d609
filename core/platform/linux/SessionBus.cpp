#include <utility>

#include "codecs/Modules.h"
#include "platform/NotificationBus.h"
#include "platform/RunningApplications.h"
#include "platform/linux/BoundedCall.h"
#include "platform/linux/BusModule.h"

namespace lenslark {
namespace {

using std::chrono::milliseconds;

/// How much longer than its own deadline a call may take to let go of the bus.
constexpr milliseconds grace{100};
constexpr milliseconds patienceOfFind{1000};
constexpr milliseconds patienceOfPost{1000};

BusModule busModule() {
  const auto entry = reinterpret_cast<decltype(&lenslarkBusModule)>(
      Modules::entry("lenslark-bus.so", busModuleSymbol));
  return entry();
}

/// What the work returns; nothing when there is no bus, or none that answers. The thread that
/// connects may hang in a bus that is stopped, so it is one that can be left behind.
template <typename Work>
auto withBus(milliseconds patience, Work work) -> std::invoke_result_t<Work&, const BusModule&> {
  static BoundedCall& bounded = *new BoundedCall;  // outlives the calls that were left behind
  using Answer = std::invoke_result_t<Work&, const BusModule&>;
  auto answer = bounded(patience, [work = std::move(work)]() mutable -> Answer {
    try {
      return work(busModule());
    } catch (const std::exception&) {
      return Answer{};
    }
  });
  return answer ? *std::move(answer) : Answer{};
}

class SessionBus final : public NotificationBus {
 public:
  std::optional<Notification> ask(const Notification& question, const std::string& answerName,
                                  Acceptance accepts, milliseconds patience) override {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    return withBus(patience + grace, [=](const BusModule& bus) {
      return bus.ask(question, answerName, accepts, deadline);
    });
  }

  void post(const Notification& notification) override {
    withBus(patienceOfPost, [=](const BusModule& bus) {
      bus.post(notification);
      return true;
    });
  }
};

}  // namespace

void NotificationBus::load() { busModule(); }

NotificationBus& NotificationBus::session() {
  static SessionBus& bus = *new SessionBus;
  return bus;
}

std::optional<RunningApplications::Application> RunningApplications::find(
    const std::string& bundleID) {
  return withBus(patienceOfFind, [=](const BusModule& bus) { return bus.find(bundleID); });
}

}  // namespace lenslark
