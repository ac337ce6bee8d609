// An application for end-to-end tests: windows in plain colours, as it is told on standard input.
// Every command is one line and is answered with one, when the X server has done it.

#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>

#include "support/XPainter.h"

namespace {

using lenslark::PixelRect;
using lenslark::XPainter;

PixelRect readRect(std::istream& words) {
  PixelRect rect;
  words >> std::dec >> rect.x >> rect.y >> rect.width >> rect.height;
  return rect;
}

std::uint32_t readColour(std::istream& words) {
  std::uint32_t colour = 0;
  words >> std::hex >> colour >> std::dec;
  return colour;
}

xcb_window_t readWindow(std::istream& words) {
  xcb_window_t window = 0;
  words >> std::dec >> window;
  return window;
}

/// window managed|own X Y WIDTH HEIGHT RRGGBB TITLE
xcb_window_t makeWindow(XPainter& painter, std::istream& words) {
  std::string kind;
  words >> kind;
  const PixelRect frame = readRect(words);
  const std::uint32_t colour = readColour(words);
  std::string title;
  std::getline(words >> std::ws, title);
  return painter.windowWith(frame, colour, {.managed = kind == "managed", .title = title});
}

std::string obey(XPainter& painter, const std::string& line) {
  std::istringstream words(line);
  std::string verb;
  words >> verb;
  if (verb == "window") return std::to_string(makeWindow(painter, words));
  if (verb == "root") {
    painter.paintRoot(readColour(words));
    return "done";
  }
  if (verb == "pointer") {
    int x = 0;
    int y = 0;
    words >> x >> y;
    painter.movePointer(x, y);
    return "done";
  }
  const xcb_window_t window = readWindow(words);
  int x = 0;
  int y = 0;
  if (verb == "fill") {
    const PixelRect part = readRect(words);
    painter.fill(window, part, readColour(words));
  } else if (verb == "move" && words >> x >> y) {
    painter.move(window, x, y);
  } else if (verb == "resize" && words >> x >> y) {
    painter.resize(window, x, y);
  } else if (verb == "raise") {
    painter.raise(window);
  } else if (verb == "map") {
    painter.map(window);
  } else if (verb == "unmap") {
    painter.unmap(window);
  } else if (verb == "destroy") {
    painter.destroy(window);
  } else {
    return "what?";
  }
  return "done";
}

}  // namespace

int main() {
  XPainter painter;
  std::string line;
  while (std::getline(std::cin, line)) std::cout << obey(painter, line) << std::endl;
}
