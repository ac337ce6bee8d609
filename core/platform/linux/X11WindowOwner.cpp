#include "platform/linux/X11WindowOwner.h"

#include <fmt/core.h>
#include <xcb/res.h>

#include <cstring>
#include <filesystem>
#include <string_view>

namespace lenslark {
namespace {

/// Window managers nest their frames two or three deep.
constexpr int deepestClient = 4;

}  // namespace

X11WindowOwner::X11WindowOwner(const X11Connection& x)
    : x_(x),
      wmState_(x.atom("WM_STATE")),
      netWmPid_(x.atom("_NET_WM_PID")),
      hasResources_(x.ask(xcb_res_query_version, xcb_res_query_version_reply, std::uint8_t{1},
                          std::uint8_t{2}) != nullptr) {}

bool X11WindowOwner::hasState(xcb_window_t window) const {
  const auto property = x_.ask(xcb_get_property, xcb_get_property_reply, std::uint8_t{0}, window,
                               wmState_, xcb_atom_t{XCB_GET_PROPERTY_TYPE_ANY}, 0U, 0U);
  return property && property->type != XCB_ATOM_NONE;
}

void X11WindowOwner::collectClients(xcb_window_t window, int depth,
                                    std::vector<xcb_window_t>& found) const {
  if (hasState(window)) {
    found.push_back(window);
    return;
  }
  if (depth == 0) return;
  const auto tree = x_.ask(xcb_query_tree, xcb_query_tree_reply, window);
  if (!tree) return;
  const xcb_window_t* children = xcb_query_tree_children(tree.get());
  for (int index = 0; index < xcb_query_tree_children_length(tree.get()); ++index) {
    collectClients(children[index], depth - 1, found);
  }
}

std::vector<xcb_window_t> X11WindowOwner::clients(xcb_window_t topLevel) const {
  std::vector<xcb_window_t> found;
  collectClients(topLevel, deepestClient, found);
  if (found.empty()) found.push_back(topLevel);
  return found;
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

std::string X11WindowOwner::applicationOf(xcb_window_t window) const {
  if (const pid_t pid = processOf(window); pid > 0) {
    std::error_code error;
    const auto executable = std::filesystem::read_symlink(fmt::format("/proc/{}/exe", pid), error);
    if (!error) return executable.filename().string();
  }
  return classOf(window);
}

std::string X11WindowOwner::classOf(xcb_window_t window) const {
  const auto property =
      x_.ask(xcb_get_property, xcb_get_property_reply, std::uint8_t{0}, window,
             xcb_atom_t{XCB_ATOM_WM_CLASS}, xcb_atom_t{XCB_ATOM_STRING}, 0U, 256U);
  if (!property) return {};
  // Two texts, each with a zero behind it: the instance, then the class.
  const std::string_view both(
      static_cast<const char*>(xcb_get_property_value(property.get())),
      static_cast<std::size_t>(xcb_get_property_value_length(property.get())));
  const std::size_t end = both.find('\0');
  if (end == std::string_view::npos) return std::string(both);
  const std::string_view second = both.substr(end + 1);
  return std::string(second.substr(0, second.find('\0')));
}

}  // namespace lenslark
