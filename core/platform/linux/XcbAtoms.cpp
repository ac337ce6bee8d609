#include "platform/linux/XcbAtoms.h"

namespace lenslark {

XcbAtoms::XcbAtoms(const XcbConnection& connection) {
  const struct {
    const char* name;
    xcb_atom_t XcbAtoms::*atom;
  } table[] = {
      {"_NET_CLIENT_LIST_STACKING", &XcbAtoms::clientListStacking},
      {"_NET_SUPPORTING_WM_CHECK", &XcbAtoms::supportingCheck},
      {"_NET_CURRENT_DESKTOP", &XcbAtoms::currentDesktop},
      {"_NET_WM_NAME", &XcbAtoms::name},
      {"_NET_WM_PID", &XcbAtoms::pid},
      {"_NET_WM_DESKTOP", &XcbAtoms::desktop},
      {"_NET_WM_STATE", &XcbAtoms::state},
      {"_NET_WM_STATE_HIDDEN", &XcbAtoms::stateHidden},
      {"_NET_WM_WINDOW_TYPE", &XcbAtoms::type},
      {"_NET_WM_WINDOW_TYPE_NORMAL", &XcbAtoms::typeNormal},
      {"_NET_WM_WINDOW_TYPE_DIALOG", &XcbAtoms::typeDialog},
      {"_NET_WM_WINDOW_TYPE_UTILITY", &XcbAtoms::typeUtility},
      {"_NET_WM_WINDOW_TYPE_DESKTOP", &XcbAtoms::typeDesktop},
      {"_NET_WM_WINDOW_TYPE_DOCK", &XcbAtoms::typeDock},
      {"_GTK_FRAME_EXTENTS", &XcbAtoms::gtkFrameExtents},
      {"WM_STATE", &XcbAtoms::wmState},
  };
  std::vector<const char*> names;
  for (const auto& entry : table) names.push_back(entry.name);
  const auto atoms = connection.atoms(names);
  for (std::size_t index = 0; index < names.size(); ++index) {
    this->*table[index].atom = atoms[index];
  }
}

}  // namespace lenslark
