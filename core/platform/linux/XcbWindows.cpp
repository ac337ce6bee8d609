#include "platform/linux/XcbWindows.h"

#include <xcb/randr.h>
#include <xcb/res.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>

#include "base/Text.h"
#include "platform/linux/XcbTree.h"

namespace lenslark::XcbWindows {
namespace {

constexpr std::uint32_t longestText = 4096;
constexpr std::uint32_t longestList = 256;

/// What is asked about one window, sent at once and received later.
class Questions {
 public:
  Questions(const XcbConnection& connection, const XcbAtoms& atoms, xcb_window_t window,
            bool serverKnowsPids)
      : connection_(connection),
        attributes_(::xcb_get_window_attributes(connection.get(), window)),
        name_(connection, window, atoms.name, longestText),
        plainName_(connection, window, XCB_ATOM_WM_NAME, longestText),
        class_(connection, window, XCB_ATOM_WM_CLASS, longestText),
        pid_(connection, window, atoms.pid, 4),
        desktop_(connection, window, atoms.desktop, 4),
        state_(connection, window, atoms.state, longestList),
        type_(connection, window, atoms.type, longestList),
        serverKnowsPids_(serverKnowsPids) {
    if (!serverKnowsPids) return;
    const xcb_res_client_id_spec_t spec{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    clientIds_ = ::xcb_res_query_client_ids(connection.get(), 1, &spec);
  }

  void receive() {
    const auto attributes = connection_.reply(::xcb_get_window_attributes_reply, attributes_);
    viewable = attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE;
    for (auto* property : {&name_, &plainName_, &class_, &pid_, &desktop_, &state_, &type_}) {
      property->receive();
    }
    if (serverKnowsPids_) serverPid_ = receiveServerPid();
  }

  std::string title() const;
  std::string className() const;
  /// The server knows who is connected; what a window says of itself may be of another machine.
  pid_t pid() const;
  std::optional<std::uint32_t> desktop() const { return first(desktop_); }
  std::vector<std::uint32_t> states() const { return state_.words(); }
  std::vector<std::uint32_t> types() const { return type_.words(); }

  bool viewable = false;

 private:
  static std::optional<std::uint32_t> first(const XcbProperty& property) {
    const auto words = property.words();
    return words.empty() ? std::nullopt : std::optional(words.front());
  }
  pid_t receiveServerPid() const;

  const XcbConnection& connection_;
  xcb_get_window_attributes_cookie_t attributes_;
  XcbProperty name_;
  XcbProperty plainName_;
  XcbProperty class_;
  XcbProperty pid_;
  XcbProperty desktop_;
  XcbProperty state_;
  XcbProperty type_;
  xcb_res_query_client_ids_cookie_t clientIds_{};
  bool serverKnowsPids_;
  pid_t serverPid_ = 0;
};

std::string latin1ToUtf8(const std::string& bytes) {
  std::string text;
  for (const char character : bytes) {
    const auto code = static_cast<unsigned char>(character);
    if (code < 0x80) {
      text += character;
    } else {
      text += static_cast<char>(0xC0 | (code >> 6));
      text += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return text;
}

std::string Questions::title() const {
  const std::string name = name_.bytes();
  if (!name.empty()) return Text::repairUtf8(name);
  const std::string plain = plainName_.bytes();
  return plainName_.type() == XCB_ATOM_STRING ? latin1ToUtf8(plain) : Text::repairUtf8(plain);
}

/// The second of the two names in WM_CLASS, each of which a zero byte ends.
std::string Questions::className() const {
  const std::string names = class_.bytes();
  const auto parts = Text::split(names, '\0', true);
  return parts.size() < 2 ? std::string() : latin1ToUtf8(std::string(parts[1]));
}

pid_t Questions::receiveServerPid() const {
  const auto reply = connection_.reply(::xcb_res_query_client_ids_reply, clientIds_);
  if (!reply) return 0;
  auto ids = ::xcb_res_query_client_ids_ids_iterator(reply.get());
  for (; ids.rem > 0; ::xcb_res_client_id_value_next(&ids)) {
    const bool isPid = (ids.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0;
    if (isPid && ::xcb_res_client_id_value_value_length(ids.data) > 0) {
      return static_cast<pid_t>(*::xcb_res_client_id_value_value(ids.data));
    }
  }
  return 0;
}

pid_t Questions::pid() const {
  return serverPid_ > 0 ? serverPid_ : static_cast<pid_t>(first(pid_).value_or(0));
}

/// The base name of the process's executable: the kernel's own short name is cut.
std::string executableName(pid_t pid) {
  if (pid <= 0) return {};
  std::error_code error;
  const auto link = std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", error);
  if (error) return {};
  std::string name = link.filename().string();
  constexpr std::string_view replaced = " (deleted)";  // by an update, while it runs
  if (name.ends_with(replaced)) name.resize(name.size() - replaced.size());
  return Text::repairUtf8(name);
}

/// By the first of its types that says something; a window without types is a normal one.
int layer(const XcbAtoms& atoms, const std::vector<std::uint32_t>& types) {
  constexpr int behind = -1;
  constexpr int above = 1;
  for (const auto type : types) {
    if (type == atoms.typeNormal || type == atoms.typeDialog || type == atoms.typeUtility) return 0;
    if (type == atoms.typeDesktop) return behind;
  }
  return types.empty() ? 0 : above;
}

bool isShown(const XcbAtoms& atoms, const Questions& window,
             std::optional<std::uint32_t> currentDesktop) {
  constexpr std::uint32_t allDesktops = 0xFFFFFFFF;
  const auto states = window.states();
  if (std::find(states.begin(), states.end(), atoms.stateHidden) != states.end()) return false;
  const auto desktop = window.desktop();
  return !desktop || !currentDesktop || *desktop == allDesktops || *desktop == *currentDesktop;
}

std::optional<std::uint32_t> currentDesktop(const XcbConnection& connection,
                                            const XcbAtoms& atoms) {
  XcbProperty property(connection, connection.root(), atoms.currentDesktop, 4);
  property.receive();
  const auto words = property.words();
  return words.empty() ? std::nullopt : std::optional(words.front());
}

bool isAtLeast(std::uint32_t major, std::uint32_t minor, std::uint32_t wantedMajor,
               std::uint32_t wantedMinor) {
  return std::pair(major, minor) >= std::pair(wantedMajor, wantedMinor);
}

bool knowsPids(const XcbConnection& connection) {
  if (!connection.has(xcb_res_id)) return false;
  const auto version = connection.reply(::xcb_res_query_version_reply,
                                        ::xcb_res_query_version(connection.get(), 1, 2));
  return version && isAtLeast(version->server_major, version->server_minor, 1, 2);
}

WindowInfo describe(const XcbAtoms& atoms, xcb_window_t id, const Questions& window,
                    const Rect& frame, std::optional<std::uint32_t> currentDesktop) {
  WindowInfo info{.id = id,
                  .title = window.title(),
                  .applicationName = executableName(window.pid()),
                  .pid = window.pid(),
                  .layer = layer(atoms, window.types()),
                  .onScreen = isShown(atoms, window, currentDesktop),
                  .frame = frame};
  if (info.applicationName.empty()) info.applicationName = window.className();
  return info;
}

std::string atomName(const XcbConnection& connection, xcb_atom_t atom) {
  const auto name =
      connection.reply(::xcb_get_atom_name_reply, ::xcb_get_atom_name(connection.get(), atom));
  if (!name) return {};
  const auto length = static_cast<std::size_t>(::xcb_get_atom_name_name_length(name.get()));
  return Text::repairUtf8({::xcb_get_atom_name_name(name.get()), length});
}

std::vector<DisplayInfo> monitors(const XcbConnection& connection) {
  if (!connection.has(xcb_randr_id)) return {};
  // Asking for the version tells the server which one is spoken.
  const auto version = connection.reply(::xcb_randr_query_version_reply,
                                        ::xcb_randr_query_version(connection.get(), 1, 5));
  if (!version || !isAtLeast(version->major_version, version->minor_version, 1, 5)) return {};
  const auto reply =
      connection.reply(::xcb_randr_get_monitors_reply,
                       ::xcb_randr_get_monitors(connection.get(), connection.root(), 1));
  if (!reply) return {};
  std::vector<DisplayInfo> displays;
  auto monitor = ::xcb_randr_get_monitors_monitors_iterator(reply.get());
  for (; monitor.rem > 0; ::xcb_randr_monitor_info_next(&monitor)) {
    displays.push_back(
        {.id = monitor.data->name,
         .name = atomName(connection, monitor.data->name),
         .frame = {static_cast<double>(monitor.data->x), static_cast<double>(monitor.data->y),
                   static_cast<double>(monitor.data->width),
                   static_cast<double>(monitor.data->height)}});
  }
  return displays;
}

}  // namespace

std::vector<DisplayInfo> displays(const XcbConnection& connection) {
  auto displays = monitors(connection);
  if (!displays.empty()) return displays;
  const xcb_screen_t& screen = connection.screen();
  return {{.id = 0,
           .name = "screen",
           .frame = {0, 0, static_cast<double>(screen.width_in_pixels),
                     static_cast<double>(screen.height_in_pixels)}}};
}

std::vector<WindowInfo> list(const XcbConnection& connection, const XcbAtoms& atoms) {
  auto clients = XcbTree::clients(connection, atoms);
  std::reverse(clients.begin(), clients.end());

  const bool serverKnowsPids = knowsPids(connection);
  const auto desktop = currentDesktop(connection, atoms);
  std::vector<Questions> questions;
  questions.reserve(clients.size());
  for (const auto client : clients) {
    questions.emplace_back(connection, atoms, client, serverKnowsPids);
  }
  const auto frames = XcbTree::frames(connection, atoms, clients);

  std::vector<WindowInfo> windows;
  for (std::size_t index = 0; index < clients.size(); ++index) {
    questions[index].receive();
    if (!questions[index].viewable || !frames[index]) continue;
    windows.push_back(describe(atoms, clients[index], questions[index], *frames[index], desktop));
  }
  return windows;
}

}  // namespace lenslark::XcbWindows
