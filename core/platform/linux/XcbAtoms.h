#pragma once

#include "platform/linux/XcbConnection.h"

namespace lenslark {

/// The names that window managers and applications speak in (EWMH 1.5, ICCCM 2).
struct XcbAtoms {
  explicit XcbAtoms(const XcbConnection& connection);

  // Of the root window.
  xcb_atom_t clientListStacking;
  xcb_atom_t supportingCheck;
  xcb_atom_t currentDesktop;
  // Of clients.
  xcb_atom_t name;
  xcb_atom_t pid;
  xcb_atom_t desktop;
  xcb_atom_t state;
  xcb_atom_t stateHidden;
  xcb_atom_t type;
  xcb_atom_t typeNormal;
  xcb_atom_t typeDialog;
  xcb_atom_t typeUtility;
  xcb_atom_t typeDesktop;
  xcb_atom_t typeDock;
  xcb_atom_t gtkFrameExtents;
  xcb_atom_t wmState;
};

}  // namespace lenslark
