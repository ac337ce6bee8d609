#include "platform/linux/X11WindowOwner.h"

#include <fmt/core.h>
#include <xcb/res.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace lenslark {
namespace {

/// Toolkits of today make a handful of windows, those of old some hundreds.
constexpr std::size_t mostWindows = 4096;
/// The bits of a window's number that the server hands out; those above are its own.
constexpr std::uint32_t handedOut = 0x1FFFFFFF;

std::vector<std::string> texts(std::string_view bytes) {
  std::vector<std::string> found;
  while (!bytes.empty()) {
    const std::size_t end = std::min(bytes.find('\0'), bytes.size());
    if (end > 0) found.emplace_back(bytes.substr(0, end));
    bytes.remove_prefix(std::min(end + 1, bytes.size()));
  }
  return found;
}

}  // namespace

X11WindowOwner::X11WindowOwner(const X11Connection& x)
    : x_(x),
      netWmPid_(x.atom("_NET_WM_PID")),
      hasResources_(x.ask(xcb_res_query_version, xcb_res_query_version_reply, std::uint8_t{1},
                          std::uint8_t{2}) != nullptr) {}

xcb_window_t X11WindowOwner::clientOf(xcb_window_t window) const noexcept {
  return window & handedOut & ~xcb_get_setup(x_.get())->resource_id_mask;
}

bool X11WindowOwner::isServersOwn(xcb_window_t window) const noexcept {
  return clientOf(window) == 0;
}

X11WindowOwner::Family X11WindowOwner::familyOf(xcb_window_t window) const {
  Family family{{window}, {window}};
  // Level by level, each in one trip to the server.
  for (std::size_t begin = 0; begin < family.all.size();) {
    const std::size_t end = family.all.size();
    std::vector<xcb_query_tree_cookie_t> trees;
    for (std::size_t index = begin; index < end; ++index) {
      const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
      xcb_change_window_attributes(x_.get(), family.all[index], XCB_CW_EVENT_MASK, &mask);
      trees.push_back(xcb_query_tree(x_.get(), family.all[index]));
    }
    for (std::size_t index = begin; index < end; ++index) {
      const auto answer = x_.reply(xcb_query_tree_reply, trees[index - begin]);
      if (!answer) continue;
      const xcb_window_t* children = xcb_query_tree_children(answer.get());
      for (int child = 0; child < xcb_query_tree_children_length(answer.get()); ++child) {
        if (family.all.size() >= mostWindows) continue;
        const bool another = !sameOwner(children[child], family.all[index]);
        if (another) family.members.push_back(children[child]);
        family.all.push_back(children[child]);
      }
    }
    begin = end;
  }
  return family;
}

pid_t X11WindowOwner::processOf(xcb_window_t window) const {
  if (hasResources_) {
    const xcb_res_client_id_spec_t wanted{window, XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID};
    const auto answer =
        x_.ask(xcb_res_query_client_ids, xcb_res_query_client_ids_reply, 1U, &wanted);
    if (answer) {
      for (auto ids = xcb_res_query_client_ids_ids_iterator(answer.get()); ids.rem > 0;
           xcb_res_client_id_value_next(&ids)) {
        const bool isPid = (ids.data->spec.mask & XCB_RES_CLIENT_ID_MASK_LOCAL_CLIENT_PID) != 0;
        if (isPid && xcb_res_client_id_value_value_length(ids.data) > 0) {
          return static_cast<pid_t>(*xcb_res_client_id_value_value(ids.data));
        }
      }
    }
  }
  const auto property = x_.ask(xcb_get_property, xcb_get_property_reply, std::uint8_t{0}, window,
                               netWmPid_, xcb_atom_t{XCB_ATOM_CARDINAL}, 0U, 1U);
  if (!property || xcb_get_property_value_length(property.get()) < 4) return 0;
  std::uint32_t pid = 0;
  std::memcpy(&pid, xcb_get_property_value(property.get()), sizeof pid);
  return static_cast<pid_t>(pid);
}

std::vector<std::string> X11WindowOwner::namesOf(const std::vector<xcb_window_t>& windows) const {
  std::vector<std::string> names;
  std::vector<xcb_window_t> known;
  for (const xcb_window_t window : windows) {
    if (std::ranges::find(known, clientOf(window)) != known.end()) continue;
    known.push_back(clientOf(window));
    // Two texts, each with a zero behind it: the instance, then the class.
    const auto classes =
        x_.ask(xcb_get_property, xcb_get_property_reply, std::uint8_t{0}, window,
               xcb_atom_t{XCB_ATOM_WM_CLASS}, xcb_atom_t{XCB_ATOM_STRING}, 0U, 256U);
    if (classes) {
      std::ranges::move(
          texts({static_cast<const char*>(xcb_get_property_value(classes.get())),
                 static_cast<std::size_t>(xcb_get_property_value_length(classes.get()))}),
          std::back_inserter(names));
    }
    const pid_t pid = processOf(window);
    if (pid <= 0) continue;
    std::error_code error;
    const auto executable = std::filesystem::read_symlink(fmt::format("/proc/{}/exe", pid), error);
    if (!error) names.push_back(executable.filename().string());
  }
  return names;
}

}  // namespace lenslark
