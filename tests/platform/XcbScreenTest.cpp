#include "platform/linux/XcbScreen.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/XWindow.h"
#include "support/Eventually.h"
#include "support/ScopedVariable.h"
#include "support/Subprocess.h"
#include "support/XvfbServer.h"

namespace lenslark {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class XcbScreenTest : public testing::Test {
 protected:
  std::optional<WindowInfo> find(const XWindow& window) {
    const auto windows = screen.content().windows;
    const auto found = std::find_if(windows.begin(), windows.end(),
                                    [&](const WindowInfo& info) { return info.id == window.id(); });
    return found == windows.end() ? std::nullopt : std::optional(*found);
  }

  std::vector<std::uint32_t> ids() {
    std::vector<std::uint32_t> result;
    for (const auto& window : screen.content().windows) result.push_back(window.id);
    return result;
  }

  XvfbServer server;
  XClient client;
  XcbScreen screen;
  std::uint32_t lost = 0;
};

// Displays

TEST_F(XcbScreenTest, aServerHasADisplay) {
  const auto displays = screen.content().displays;
  ASSERT_EQ(displays.size(), 1U);
  EXPECT_EQ(displays.front().frame, (Rect{0, 0, 1280, 800}));
  EXPECT_FALSE(displays.front().name.empty());
}

// Windows without a window manager

TEST_F(XcbScreenTest, anEmptyScreenHasNoWindows) {
  EXPECT_THAT(screen.content().windows, IsEmpty());
}

TEST_F(XcbScreenTest, aMappedWindowIsListed) {
  const XWindow window(client, {.x = 30, .y = 40, .width = 300, .height = 200});
  window.map();
  const auto info = find(window);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->frame, (Rect{30, 40, 300, 200}));
  EXPECT_TRUE(info->onScreen);
  EXPECT_EQ(info->layer, 0);
  EXPECT_EQ(info->bundleIdentifier, "");
}

TEST_F(XcbScreenTest, aFrameHoldsTheBorder) {
  const XWindow window(client, {.x = 30, .y = 40, .width = 300, .height = 200, .border = 5});
  window.map();
  EXPECT_EQ(find(window)->frame, (Rect{30, 40, 310, 210}));
}

TEST_F(XcbScreenTest, aWindowThatIsNotMappedIsNotListed) {
  const XWindow window(client, {});
  client.sync();
  EXPECT_FALSE(find(window));
}

TEST_F(XcbScreenTest, aWindowThatPlacesItselfIsNotListed) {
  const XWindow menu(client, {.placesItself = true});
  menu.map();
  EXPECT_FALSE(find(menu));
}

TEST_F(XcbScreenTest, windowsAreListedFromTheFront) {
  const XWindow back(client, {});
  const XWindow front(client, {});
  back.map();
  front.map();
  EXPECT_THAT(ids(), ElementsAre(front.id(), back.id()));
}

TEST_F(XcbScreenTest, aWindowBelongsToItsProcess) {
  const XWindow window(client, {});
  window.map();
  const auto info = find(window);
  EXPECT_EQ(info->pid, ::getpid());
  EXPECT_EQ(info->applicationName, "test-x11");
}

TEST_F(XcbScreenTest, theServersWordOnTheProcessCountsMoreThanTheWindows) {
  const XWindow window(client, {});
  window.set("_NET_WM_PID", "CARDINAL", std::vector<std::uint32_t>{1});
  window.map();
  EXPECT_EQ(find(window)->pid, ::getpid());
}

TEST_F(XcbScreenTest, aTitleIsReadAsUtf8) {
  const XWindow window(client, {});
  window.set("WM_NAME", "STRING", "plain");
  window.set("_NET_WM_NAME", "UTF8_STRING", "Gerät – 1");
  window.map();
  EXPECT_EQ(find(window)->title, "Gerät – 1");
}

TEST_F(XcbScreenTest, anOlderTitleIsReadAsLatin1) {
  const XWindow window(client, {});
  window.set("WM_NAME", "STRING", "Ger\xE4t");
  window.map();
  EXPECT_EQ(find(window)->title, "Gerät");
}

TEST_F(XcbScreenTest, aBrokenTitleIsRepaired) {
  const XWindow window(client, {});
  window.set("_NET_WM_NAME", "UTF8_STRING", "a\xFF");
  window.map();
  EXPECT_EQ(find(window)->title, "a\xEF\xBF\xBD");
}

TEST_F(XcbScreenTest, propertiesOfTheWrongShapeAreIgnored) {
  const XWindow window(client, {});
  window.set("_NET_WM_NAME", "UTF8_STRING", std::vector<std::uint32_t>{1, 2});
  window.set("_NET_WM_WINDOW_TYPE", "ATOM", "xyz");
  window.set("_NET_WM_STATE", "ATOM", "");
  window.set("_NET_WM_DESKTOP", "CARDINAL", std::vector<std::uint32_t>{});
  window.set("_GTK_FRAME_EXTENTS", "CARDINAL", std::vector<std::uint32_t>{1});
  window.set("WM_CLASS", "STRING", "one");
  window.map();
  const auto info = find(window);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->title, "");
  EXPECT_EQ(info->layer, 0);
  EXPECT_TRUE(info->onScreen);
  EXPECT_EQ(info->frame, (Rect{0, 0, 200, 150}));
}

TEST_F(XcbScreenTest, theShadowThatAWindowDrawsIsNotPartOfIt) {
  const XWindow window(client, {.x = 100, .y = 100, .width = 300, .height = 200});
  window.set("_GTK_FRAME_EXTENTS", "CARDINAL", std::vector<std::uint32_t>{10, 20, 30, 40});
  window.map();
  EXPECT_EQ(find(window)->frame, (Rect{110, 130, 270, 130}));
}

TEST_F(XcbScreenTest, aShadowLargerThanItsWindowIsNone) {
  const XWindow window(client, {.width = 300, .height = 200});
  window.set("_GTK_FRAME_EXTENTS", "CARDINAL",
             std::vector<std::uint32_t>{0xFFFFFFFF, 0xFFFFFFFF, 0, 0});
  window.map();
  EXPECT_EQ(find(window)->frame, (Rect{0, 0, 300, 200}));
}

class WindowTypeTest : public XcbScreenTest {
 protected:
  int layer(const char* type) {
    const XWindow window(client, {});
    window.set("_NET_WM_WINDOW_TYPE", "ATOM", std::vector<std::uint32_t>{client.atom(type)});
    window.map();
    return find(window)->layer;
  }
};

TEST_F(WindowTypeTest, dialogsAndUtilitiesAreNormalWindows) {
  EXPECT_EQ(layer("_NET_WM_WINDOW_TYPE_NORMAL"), 0);
  EXPECT_EQ(layer("_NET_WM_WINDOW_TYPE_DIALOG"), 0);
  EXPECT_EQ(layer("_NET_WM_WINDOW_TYPE_UTILITY"), 0);
}

TEST_F(WindowTypeTest, panelsLieAboveAndTheDesktopBehind) {
  EXPECT_GT(layer("_NET_WM_WINDOW_TYPE_DOCK"), 0);
  EXPECT_GT(layer("_NET_WM_WINDOW_TYPE_NOTIFICATION"), 0);
  EXPECT_LT(layer("_NET_WM_WINDOW_TYPE_DESKTOP"), 0);
}

TEST_F(XcbScreenTest, aHiddenWindowIsNotOnScreen) {
  const XWindow window(client, {});
  window.set("_NET_WM_STATE", "ATOM",
             std::vector<std::uint32_t>{client.atom("_NET_WM_STATE_HIDDEN")});
  window.map();
  EXPECT_FALSE(find(window)->onScreen);
}

/// Puts a list on the root as a window manager does, with the window that tells that it runs.
class ManagedListTest : public XcbScreenTest {
 protected:
  void setOnRoot(const char* property, const char* type, const std::vector<std::uint32_t>& words) {
    xcb_change_property(client.connection(), XCB_PROP_MODE_REPLACE, client.root(),
                        client.atom(property), client.atom(type), 32,
                        static_cast<std::uint32_t>(words.size()), words.data());
    client.sync();
  }
  void claimToManage(const std::vector<std::uint32_t>& windows) {
    setOnRoot("_NET_SUPPORTING_WM_CHECK", "WINDOW", {check.id()});
    check.set("_NET_SUPPORTING_WM_CHECK", "WINDOW", std::vector<std::uint32_t>{check.id()});
    setOnRoot("_NET_CLIENT_LIST_STACKING", "WINDOW", windows);
  }

  XWindow check{client, {.placesItself = true}};
  XWindow one{client, {}};
  XWindow two{client, {}};
};

TEST_F(ManagedListTest, isFollowedFromItsEnd) {
  one.map();
  two.map();
  claimToManage({two.id(), one.id()});
  EXPECT_THAT(ids(), ElementsAre(one.id(), two.id()));
}

TEST_F(ManagedListTest, mayNameWindowsThatAreGone) {
  one.map();
  claimToManage({one.id(), 0x12345678, 0, client.root()});
  const auto listed = ids();
  EXPECT_THAT(listed, testing::Contains(one.id()));
  EXPECT_THAT(listed, testing::Not(testing::Contains(0x12345678U)));
}

TEST_F(ManagedListTest, ofAWindowManagerThatHasGoneIsNotFollowed) {
  one.map();
  two.map();
  setOnRoot("_NET_SUPPORTING_WM_CHECK", "WINDOW", {0x12345678});
  setOnRoot("_NET_CLIENT_LIST_STACKING", "WINDOW", {one.id()});
  EXPECT_THAT(ids(), ElementsAre(two.id(), one.id()));
}

TEST_F(ManagedListTest, tellsWhatIsOnAnotherDesktop) {
  one.set("_NET_WM_DESKTOP", "CARDINAL", std::vector<std::uint32_t>{1});
  two.set("_NET_WM_DESKTOP", "CARDINAL", std::vector<std::uint32_t>{0xFFFFFFFF});
  one.map();
  two.map();
  claimToManage({one.id(), two.id()});
  setOnRoot("_NET_CURRENT_DESKTOP", "CARDINAL", {0});
  EXPECT_FALSE(find(one)->onScreen);
  EXPECT_TRUE(find(two)->onScreen);
  setOnRoot("_NET_CURRENT_DESKTOP", "CARDINAL", {1});
  EXPECT_TRUE(find(one)->onScreen);
}

TEST_F(XcbScreenTest, aClientIsFoundInsideAFrameThatNobodyLists) {
  const XWindow frame(client, {.x = 50, .y = 60, .width = 220, .height = 190});
  const XWindow inner(client, {.x = 2, .y = 2, .width = 216, .height = 186}, frame.id());
  const XWindow app(client, {.x = 8, .y = 20}, inner.id());
  app.set("WM_STATE", "WM_STATE", std::vector<std::uint32_t>{1, 0});
  app.map();
  inner.map();
  frame.map();
  const auto info = find(app);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->frame, (Rect{50, 60, 220, 190}));
  EXPECT_FALSE(find(frame));
}

// With a window manager

class WindowManagerTest : public XcbScreenTest {
 protected:
  WindowManagerTest() {
    EXPECT_TRUE(eventually([&] {
      const auto cookie =
          xcb_get_property(client.connection(), 0, client.root(),
                           client.atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW, 0, 1);
      auto* reply = xcb_get_property_reply(client.connection(), cookie, nullptr);
      const bool runs = xcb_get_property_value_length(reply) == 4;
      std::free(reply);
      return runs;
    }));
  }

  /// Asks again and again: a manager that is still starting may drop a request.
  void show(const XWindow& window) {
    EXPECT_TRUE(eventually([&] {
      window.map();
      return find(window).has_value();
    }));
  }

  Subprocess manager{{"openbox", "--sm-disable"}};
};

TEST_F(WindowManagerTest, aWindowsFrameIsThatOfItsDecoration) {
  const XWindow window(client, {.x = 100, .y = 100, .width = 300, .height = 200});
  show(window);
  const Rect frame = find(window)->frame;
  EXPECT_GT(frame.height, 200);
  EXPECT_GE(frame.width, 300);
}

TEST_F(WindowManagerTest, theBoundsAreTheListedFrame) {
  const XWindow window(client, {.x = 100, .y = 100, .width = 300, .height = 200});
  show(window);
  EXPECT_EQ(screen.windowBounds(window.id()), find(window)->frame);
}

TEST_F(WindowManagerTest, aMinimisedWindowIsNotOnScreen) {
  const XWindow window(client, {.x = 100, .y = 100, .width = 300, .height = 200});
  show(window);
  const Subprocess minimise({"xdotool", "windowminimize", std::to_string(window.id())});
  EXPECT_TRUE(eventually([&] {
    const auto info = find(window);
    return !info || !info->onScreen;
  }));
}

TEST_F(WindowManagerTest, aRaisedWindowComesFirst) {
  const XWindow one(client, {.width = 300, .height = 200});
  const XWindow two(client, {.width = 300, .height = 200});
  show(one);
  show(two);
  const std::uint32_t back = ids().back();
  const Subprocess raise({"xdotool", "windowraise", std::to_string(back)});
  EXPECT_TRUE(eventually([&] { return ids().front() == back; }));
}

// Bounds

TEST_F(XcbScreenTest, theBoundsFollowTheWindow) {
  const XWindow window(client, {.x = 10, .y = 20, .width = 300, .height = 200});
  window.map();
  const std::uint32_t place[] = {50, 60};
  xcb_configure_window(client.connection(), window.id(), XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                       place);
  client.sync();
  EXPECT_TRUE(eventually([&] {
    return screen.windowBounds(window.id()) == Rect{50, 60, 300, 200};
  }));
}

TEST_F(XcbScreenTest, theBoundsAreFollowedWithoutTheShadow) {
  const XWindow window(client, {.x = 10, .y = 20, .width = 300, .height = 200});
  window.set("_GTK_FRAME_EXTENTS", "CARDINAL", std::vector<std::uint32_t>{10, 10, 10, 10});
  window.map();
  EXPECT_EQ(screen.windowBounds(window.id()), (Rect{20, 30, 280, 180}));
  const std::uint32_t place[] = {50, 60, 400, 300};
  xcb_configure_window(client.connection(), window.id(),
                       XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_WIDTH |
                           XCB_CONFIG_WINDOW_HEIGHT,
                       place);
  client.sync();
  EXPECT_TRUE(eventually([&] {
    return screen.windowBounds(window.id()) == Rect{60, 70, 380, 280};
  }));
  window.set("_GTK_FRAME_EXTENTS", "CARDINAL", std::vector<std::uint32_t>{0, 0, 0, 0});
  client.sync();
  EXPECT_TRUE(eventually([&] {
    return screen.windowBounds(window.id()) == Rect{50, 60, 400, 300};
  }));
}

TEST_F(XcbScreenTest, theBoundsGoWithTheWindow) {
  {
    const XWindow window(client, {.x = 10, .y = 20, .width = 300, .height = 200});
    window.map();
    EXPECT_TRUE(screen.windowBounds(window.id()));
    lost = window.id();
  }
  EXPECT_TRUE(eventually([&] { return !screen.windowBounds(lost); }));
}

TEST_F(XcbScreenTest, theBoundsFollowTheWindowIntoItsFrame) {
  const XWindow window(client, {.x = 10, .y = 20, .width = 300, .height = 200});
  window.map();
  EXPECT_EQ(screen.windowBounds(window.id()), (Rect{10, 20, 300, 200}));
  const XWindow frame(client, {.x = 100, .y = 100, .width = 320, .height = 230});
  frame.map();
  xcb_reparent_window(client.connection(), window.id(), frame.id(), 10, 20);
  client.sync();
  EXPECT_TRUE(eventually([&] {
    return screen.windowBounds(window.id()) == Rect{100, 100, 320, 230};
  }));
  const std::uint32_t place[] = {150, 160};
  xcb_configure_window(client.connection(), frame.id(), XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y,
                       place);
  client.sync();
  EXPECT_TRUE(eventually([&] {
    return screen.windowBounds(window.id()) == Rect{150, 160, 320, 230};
  }));
  xcb_reparent_window(client.connection(), window.id(), client.root(), 0, 0);
  client.sync();
}

TEST_F(XcbScreenTest, displaysAreFollowedAsMonitorsChange) {
  const XWindow window(client, {.x = 10, .y = 20, .width = 300, .height = 200});
  window.map();
  ASSERT_TRUE(screen.windowBounds(window.id()));
  ASSERT_EQ(screen.displays().size(), 1U);
  const Subprocess left({"xrandr", "--setmonitor", "left", "640/160x800/200+0+0", "screen"});
  EXPECT_TRUE(eventually([&] { return screen.displays().front().name == "left"; }));
  const Subprocess right({"xrandr", "--setmonitor", "right", "640/160x800/200+640+0", "none"});
  EXPECT_TRUE(eventually([&] { return screen.displays().size() == 2U; }));
  EXPECT_EQ(screen.displays(), screen.content().displays);
}

TEST_F(XcbScreenTest, aWindowThatIsGoneHasNoBounds) {
  EXPECT_EQ(screen.windowBounds(0x12345678), std::nullopt);
  EXPECT_EQ(screen.windowBounds(0), std::nullopt);
}

// Trouble

TEST(NoDisplayTest, isAnError) {
  const ScopedVariable display("DISPLAY", std::nullopt);
  XcbScreen screen;
  try {
    screen.content();
    FAIL() << "there is content without a display";
  } catch (const CaptureError& error) {
    EXPECT_STREQ(error.what(),
                 "The screen cannot be captured: there is no X display ($DISPLAY is not set).");
  }
  EXPECT_EQ(screen.windowBounds(1), std::nullopt);
}

TEST(NoDisplayTest, aDisplayThatIsNotThereIsNamed) {
  const ScopedVariable display("DISPLAY", ":64999");
  XcbScreen screen;
  try {
    screen.content();
    FAIL() << "there is a display :64999 where the tests run";
  } catch (const CaptureError& error) {
    EXPECT_STREQ(error.what(),
                 "The screen cannot be captured: the X display :64999 cannot be reached.");
  }
}

TEST_F(XcbScreenTest, aServerThatEndsIsAnErrorAndComesBack) {
  screen.content();
  server.end();
  EXPECT_THROW(screen.content(), CaptureError);
  const XvfbServer next;
  EXPECT_EQ(screen.content().displays.size(), 1U);
}

TEST_F(XcbScreenTest, aServerThatHangsIsAnErrorInTime) {
  server.process().signal(SIGSTOP);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_THROW(screen.content(), CaptureError);
  EXPECT_THROW(screen.content(), CaptureError);
  EXPECT_EQ(screen.windowBounds(1), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - before, 4s);
  server.process().signal(SIGCONT);
  EXPECT_TRUE(eventually([&] {
    try {
      return screen.content().displays.size() == 1;
    } catch (const CaptureError&) {
      return false;
    }
  }));
}

}  // namespace
}  // namespace lenslark
