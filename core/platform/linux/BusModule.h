#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "codecs/ModuleEntry.h"
#include "platform/NotificationBus.h"
#include "platform/RunningApplications.h"

namespace lenslark {

/// What the module that speaks D-Bus hands out. Its libraries take longer to map than a short
/// command takes to run, so it is loaded when the bus is first needed.
///
/// A notification is a signal: the last word of its name is the member, what comes before is the
/// interface and, with slashes for the dots, the object path.
///
/// All **fail** with std::exception when there is no bus or it goes away. A bus that accepts the
/// connection and then says nothing holds them up.
struct BusModule {
  std::optional<Notification> (*ask)(const Notification& question, const std::string& answerName,
                                     const NotificationBus::Acceptance& accepts,
                                     std::chrono::steady_clock::time_point deadline);
  void (*post)(const Notification& notification);
  std::optional<RunningApplications::Application> (*find)(const std::string& busName);
};

inline constexpr const char* busModuleSymbol = "lenslarkBusModule";

}  // namespace lenslark

extern "C" LENSLARK_MODULE_EXPORT lenslark::BusModule lenslarkBusModule();
