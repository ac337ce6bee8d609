#pragma once

#include <memory>

#include "platform/Screen.h"
#include "platform/linux/X11Scene.h"

namespace lenslark {

/// Makes what is to be filmed, on the stream's own connection.
using X11SceneMaker = std::function<std::unique_ptr<X11Scene>(const X11Connection&)>;

/// Films a scene on a thread and a connection of its own: sleeps until something changes, and then
/// makes a picture, at most `fps` a second.
/// **Fails** with CaptureError when there is no display or no such scene.
std::unique_ptr<ScreenStream> startX11Stream(const X11SceneMaker& makeScene,
                                             const Screen::Request& request,
                                             Screen::FrameHandler onFrame,
                                             Screen::StopHandler onStop);

}  // namespace lenslark
