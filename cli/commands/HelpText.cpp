#include "commands/HelpText.h"

#include "commands/Output.h"
#include "config/Lenslark.h"

namespace lenslark::HelpText {
namespace {

constexpr std::string_view body = R"help( — give iOS Simulators and Android emulators a camera

WHAT CAMERAS SEE
  lenslark source set <desktop | image FILE | video FILE | slideshow DIR|FILES… | pattern | display N | window TEXT>
        [--device NAME|UDID|AVD|booted|all] [--camera back|front]
        [--overlay FILE [--anchor bottom-right] [--scale 0.25] [--opacity 1] [--x 0.5 --y 0.5]]
        [--once] [--interval SEC]
      Without --device it sets the global default. The most specific setting
      wins: camera › device › global. Default: the desktop under each window.
  lenslark source get   [--device …] [--camera …] [--json]
  lenslark source reset [--device …] [--camera …] | --all
  lenslark devices [--json]
  lenslark media add FILE… [--pin] [--json] | media list [--json] | media rm ID|NAME | media pin|unpin ID|NAME
  lenslark snapshot --device … [--camera back|front] -o out.png

RUNNING
  lenslark serve [--display N | --window TEXT | --test-pattern | --image FILE | --video FILE] [--fps N] [--mode fit|fill]
      Run the cameras without the menu-bar app. Flags override the saved
      settings for this run only.
  lenslark app enable|disable|toggle|status   Control the Lenslark menu-bar app
  lenslark mcp                                MCP server on stdio (for AI agents)
  lenslark doctor [--json] [--fix]            Check permissions, injectors, feeds
  lenslark status | sources

DEVICES
  lenslark ios launch <bundle-id> [--udid UDID]   (Re)launch an app with the camera
  lenslark ios enable  [--udid UDID]               Camera for every app launched afterwards
  lenslark ios disable [--udid UDID]
  lenslark android launch <avd> [--back|--front] [-- extra emulator args]
  lenslark android webcams | avds
)help";

}  // namespace

std::string text() {
  std::string result = "lenslark ";
  result += Lenslark::version;
  result += body;
  return result;
}

void print() { Output::print(text()); }

}  // namespace lenslark::HelpText
