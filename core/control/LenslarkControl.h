#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "platform/NotificationBus.h"

/// Talks with the menu-bar application over the user's notification bus: a command of one word,
/// an answer of one line. Each carries the id of its question. docs/app-channel.md tells
/// applications how to take part.
///
/// **Threads**: any.
namespace lenslark::LenslarkControl {

inline constexpr const char* commandName = "dev.lenslark.command";  ///< Tool to application.
inline constexpr const char* statusName = "dev.lenslark.status";    ///< Application to tool.

/// The application's answer, from any application that gives this question's id or none at all;
/// nothing when there is none in time, also where there is no bus.
std::optional<std::string> send(const std::string& command, std::chrono::milliseconds timeout,
                                NotificationBus& bus = NotificationBus::session());

/// The application's side: answers a command that it received.
void reply(const std::string& text, const Notification& command,
           NotificationBus& bus = NotificationBus::session());

}  // namespace lenslark::LenslarkControl
