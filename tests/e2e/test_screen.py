"""Filming a real X server: displays, windows, and the desktop under an emulator's window."""

import json
import os
import pathlib
import re
import time
import unittest

import framefile
from lenslark import BLUE, GREEN, RED, WHITE, EndToEndTest, eventually
from xserver import Painter, XServer

# The scaler's filter darkens a little.
TOLERANCE = 4
# Something of red: the excluded windows are the only ones that hold any.
REDDISH = re.compile(rb"[\x20-\xff]")


def emulator_feed(pid):
    return pathlib.Path(f"/tmp/lenslark-pid-{pid}.shm")


class ScreenTest(EndToEndTest):
    screen = "1280x800x24"

    def setUp(self):
        super().setUp()
        self.server = self.start_server()
        self.painter = self.start_painter()
        self.painter.do("pointer", 1279, 799)

    def start_server(self, **options):
        server = XServer(**{"screen": self.screen, **options})
        self.addCleanup(server.end)
        self.lenslark.environment["DISPLAY"] = server.name
        return server

    def start_painter(self):
        painter = Painter(self.server)
        self.addCleanup(painter.end)
        return painter

    def start_window_manager(self):
        manager = self.server.start("openbox", "--sm-disable", "--config-file", "/dev/null")
        self.addCleanup(lambda: (manager.terminate(), manager.wait()))
        eventually(self.server.manages_windows)
        return manager

    def has(self, x, y, colour, path=None):
        """Whether the feed has the colour at fractions of its latest frame."""
        frame = framefile.latest(path or self.lenslark.feed)
        return frame and max(abs(a - b) for a, b in zip(frame.at(x, y), colour)) <= TOLERANCE

    def shows(self, x, y, colour, path=None):
        """Waits until the feed has the colour at fractions of its frame."""
        eventually(lambda: self.has(x, y, colour, path))


class DisplayTest(ScreenTest):
    def test_a_display_fills_the_frame_as_far_as_its_shape_allows(self):
        self.painter.do("root", "0000ff")
        self.painter.window((640, 0, 640, 400), GREEN)
        with self.lenslark.serve("--display", 0):
            self.shows(0.75, 0.25, GREEN)
            frame = self.lenslark.frame()
        self.assertEqual((frame.width, frame.height), (1280, 720))
        self.assertEqual(frame.content_kind, framefile.LIVE)
        # 1280 x 800 are fitted into 1152 x 720, with black at the sides.
        self.assert_colour(frame.pixel(63, 360), (0, 0, 0))
        self.assert_colour(frame.pixel(64, 360), BLUE, TOLERANCE)
        self.assert_colour(frame.pixel(1215, 100), GREEN, TOLERANCE)
        self.assert_colour(frame.pixel(1216, 100), (0, 0, 0))
        self.assertEqual(set(frame.pixels[3::4]), {255})

    def test_a_screen_that_rests_is_written_once(self):
        with self.lenslark.serve("--display", 0):
            first = eventually(self.lenslark.frame)
            time.sleep(1.5)  # longer than any period of the program's
            self.assertEqual(self.lenslark.frame().seq, first.seq)
            self.painter.window((0, 0, 640, 400), GREEN)
            self.shows(0.25, 0.25, GREEN)

    def test_a_display_that_is_not_there_is_an_error(self):
        with self.lenslark.serve("--display", 3) as serving:
            eventually(lambda: "No display at index 3. Run `lenslark sources` to list them."
                       in serving.errors())

    def test_the_pointer_is_in_the_picture(self):
        self.painter.do("root", "0000ff")
        with self.lenslark.serve("--display", 0):
            self.shows(0.5, 0.5, BLUE)
            self.painter.do("pointer", 640, 400)
            eventually(lambda: not self.has(0.5, 0.5, BLUE))
            self.painter.do("pointer", 100, 700)
            self.shows(0.5, 0.5, BLUE)

    def test_a_display_that_goes_away_is_filmed_again_when_it_is_back(self):
        self.painter.do("root", "0000ff")
        with self.lenslark.serve("--display", 0) as serving:
            self.shows(0.5, 0.5, BLUE)
            self.server.end()
            eventually(lambda: "capture of display 0 stopped" in serving.errors())
            self.assertTrue(serving.running())
            self.server = self.start_server(number=self.server.number)
            painter = self.start_painter()
            painter.do("root", "00ff00")
            self.shows(0.4, 0.4, GREEN)
            self.assertTrue(serving.running())


class MonitorsTest(ScreenTest):
    """One screen of which two monitors show the halves."""

    def setUp(self):
        super().setUp()
        self.server.run("xrandr", "--setmonitor", "left", "640/160x800/200+0+0", "screen")
        self.server.run("xrandr", "--setmonitor", "right", "640/160x800/200+640+0", "none")
        self.painter.window((0, 0, 640, 800), GREEN)
        self.painter.window((640, 0, 640, 800), BLUE)

    def listed(self):
        result = self.lenslark.run("sources", "--json")
        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        return json.loads(result.stdout)["displays"]

    def test_are_listed_in_the_order_of_their_indices(self):
        displays = self.listed()
        self.assertEqual([(d["index"], d["name"], d["x"]) for d in displays],
                         [(0, "left", 0), (1, "right", 640)])
        self.assertEqual(self.listed(), displays)

    def test_an_index_films_its_monitor(self):
        for index, colour in ((0, GREEN), (1, BLUE)):
            with self.lenslark.serve("--display", index):
                self.shows(0.5, 0.5, colour)

    def test_a_monitor_that_moves_is_followed(self):
        with self.lenslark.serve("--display", 1):
            self.shows(0.5, 0.5, BLUE)
            self.server.run("xrandr", "--delmonitor", "right", "--setmonitor", "right",
                            "600/160x800/200+0+0", "none")
            self.shows(0.5, 0.5, GREEN)


class WindowTest(ScreenTest):
    def test_a_window_is_found_by_its_title_in_any_letter_case(self):
        self.start_window_manager()
        self.painter.window((100, 100, 640, 360), GREEN, "Paper on the Desk", managed=True)
        with self.lenslark.serve("--window", "paper ON the"):
            self.shows(0.5, 0.5, GREEN)
            frame = self.lenslark.frame()
        self.assertEqual((frame.width, frame.height), (1280, 720))

    def test_a_window_is_found_by_its_application(self):
        self.start_window_manager()
        self.painter.window((100, 100, 640, 360), GREEN, "Paper", managed=True)
        with self.lenslark.serve("--window", "Window-Paint"):
            self.shows(0.5, 0.5, GREEN)

    def test_a_covered_window_shows_its_own_pixels(self):
        self.start_window_manager()
        paper = self.painter.window((100, 100, 640, 360), GREEN, "Paper", managed=True)
        self.painter.window((0, 0, 1280, 800), WHITE)
        with self.lenslark.serve("--window", "Paper"):
            self.shows(0.5, 0.5, GREEN)
            self.painter.fill(paper, (0, 0, 640, 360), BLUE)
            self.shows(0.5, 0.5, BLUE)

    def test_a_window_half_off_the_screen_is_whole(self):
        paper = self.painter.window((100, 100, 640, 360), GREEN, managed=True, title="Paper")
        with self.lenslark.serve("--window", "Paper"):
            self.shows(0.1, 0.5, GREEN)
            self.painter.do("move", paper, -600, 100)
            self.painter.fill(paper, (0, 0, 640, 360), BLUE)
            self.shows(0.1, 0.5, BLUE)
            self.shows(0.9, 0.5, BLUE)
            self.painter.do("move", paper, 2000, 2000)
            self.painter.fill(paper, (0, 0, 640, 360), GREEN)
            self.shows(0.1, 0.5, GREEN)
            self.shows(0.9, 0.5, GREEN)

    def test_a_window_on_another_workspace_is_filmed_again_when_it_is_back(self):
        self.start_window_manager()
        self.server.run("xdotool", "set_num_desktops", "2")
        paper = self.painter.window((100, 100, 640, 360), GREEN, "Paper", managed=True)
        with self.lenslark.serve("--window", "Paper"):
            self.shows(0.5, 0.5, GREEN)
            self.server.run("xdotool", "set_desktop", "1")
            time.sleep(0.3)
            self.shows(0.5, 0.5, GREEN)
            self.server.run("xdotool", "set_desktop", "0")

            def painted():
                self.painter.fill(paper, (0, 0, 640, 360), BLUE)
                return self.has(0.5, 0.5, BLUE)
            eventually(painted)

    def test_a_window_that_is_minimised_keeps_its_last_picture(self):
        self.start_window_manager()
        paper = self.painter.window((100, 100, 640, 360), GREEN, "Paper", managed=True)
        with self.lenslark.serve("--window", "Paper"):
            self.shows(0.5, 0.5, GREEN)
            self.server.run("xdotool", "windowminimize", "--sync", paper)
            self.painter.do("pointer", 300, 300)
            self.painter.do("pointer", 400, 300)
            time.sleep(0.3)
            self.assertTrue(self.has(0.5, 0.5, GREEN))
            self.server.run("xdotool", "windowmap", "--sync", paper)
            self.shows(0.5, 0.5, GREEN)

    def test_a_window_that_comes_later_is_found(self):
        with self.lenslark.serve("--window", "Paper") as serving:
            eventually(lambda: 'No on-screen window matches "Paper".' in serving.errors())
            self.painter.window((100, 100, 640, 360), GREEN, "Paper", managed=True)
            self.shows(0.5, 0.5, GREEN)

    def test_a_window_survives_its_window_manager(self):
        manager = self.start_window_manager()
        paper = self.painter.window((100, 100, 640, 360), GREEN, "Paper", managed=True)
        with self.lenslark.serve("--window", "Paper"):
            self.shows(0.5, 0.5, GREEN)
            manager.terminate()
            manager.wait()
            self.painter.window((0, 0, 1280, 800), WHITE)

            def painted():
                self.painter.fill(paper, (0, 0, 640, 360), BLUE)
                return self.has(0.5, 0.5, BLUE)
            eventually(painted)


class SourcesTest(ScreenTest):
    def test_are_listed_from_the_front_and_aligned(self):
        self.painter.window((30, 40, 300, 200), GREEN, "Back", managed=True)
        self.painter.window((50, 60, 1000, 700), BLUE, "Front", managed=True)
        self.painter.window((0, 0, 64, 64), BLUE, "Small", managed=True)
        result = self.lenslark.run("sources")
        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        lines = result.stdout.decode().splitlines()
        self.assertEqual(lines[0], "Displays (index, name, size, position):")
        self.assertEqual(lines[1], "  0  screen  1280x800  at 0,0")
        self.assertEqual(lines[2], "Windows (id, application, size, title):")
        self.assertRegex(lines[3], r"^  \d+  window-painter  1000x700  Front$")
        self.assertRegex(lines[4], r"^  \d+  window-painter  300x200   Back$")
        self.assertEqual(len(lines), 5)

    def test_are_told_to_programs(self):
        back = self.painter.window((30, 40, 300, 200), GREEN, "Back", managed=True)
        result = self.lenslark.run("sources", "--json")
        self.assertEqual(json.loads(result.stdout), {
            "displays": [{"index": 0, "name": "screen", "x": 0, "y": 0, "width": 1280,
                          "height": 800}],
            "windows": [{"id": int(back), "application": "window-painter", "title": "Back", "x": 30,
                         "y": 40, "width": 300, "height": 200}]})


class NoServerTest(EndToEndTest):
    def test_without_a_display_the_desktop_is_not_permitted(self):
        with self.lenslark.serve("--display", 0) as serving:
            eventually(lambda: "there is no X display ($DISPLAY is not set)" in serving.errors())
            self.assertIn("no Screen Recording permission", serving.output())

    def test_wayland_without_an_x_server_is_said_to_be_so(self):
        self.lenslark.environment["WAYLAND_DISPLAY"] = "wayland-0"
        result = self.lenslark.run("sources")
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"Wayland", result.stderr)
        self.assertIn("grant Screen Recording permission to your terminal.", result.stderr.decode())

    def test_pixels_that_cannot_be_filmed_are_refused_in_words(self):
        for depth in (8, 16):
            server = XServer(screen=f"640x480x{depth}")
            try:
                self.lenslark.environment["DISPLAY"] = server.name
                with self.lenslark.serve("--display", 0) as serving:
                    eventually(lambda: f"the X display has pixels of {depth} bits"
                               in serving.errors())
                    self.assertIn("give the X server a colour depth of 24", serving.errors())
            finally:
                server.end()


# Any other `serve` on the machine would feed the emulator, too.
@unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs a /tmp of its own")
class EmulatorTest(ScreenTest):
    """The camera of an emulator, whose own windows are red."""

    def setUp(self):
        super().setUp()
        self.painter.window((0, 0, 640, 800), GREEN)
        self.painter.window((640, 0, 640, 800), BLUE)

    def start_emulator(self, frame=(100, 200, 240, 400)):
        emulator = Painter.emulator(self.server, self.folder, "Screened")
        self.addCleanup(emulator.end)
        feed = emulator_feed(emulator.pid)
        self.addCleanup(feed.unlink, missing_ok=True)
        window = emulator.window(frame, RED, "Android Emulator - Screened:5554", managed=True)
        return emulator, window, feed

    def assert_nothing_red(self, feed):
        """Of the latest frame; returns its number."""
        frame = eventually(lambda: framefile.latest(feed))
        found = REDDISH.search(frame.pixels[2::4])
        if found:
            place = found.start()
            picture = self.folder / "red.png"
            framefile.write_png(picture, frame.width, frame.height, frame.rgb())
            at = (place % frame.width, place // frame.width)
            self.fail(f"{frame.pixel(*at)} at {at} of {frame.width}x{frame.height}")
        return frame.seq

    def test_what_lies_under_the_window_is_filmed_in_landscape(self):
        _emulator, _window, feed = self.start_emulator()
        with self.lenslark.serve():
            self.shows(0.5, 0.5, GREEN, feed)
            frame = framefile.latest(feed)
        # 16/9 of the window's width wide, 4/3 of it high; fill makes it the camera's 4:3 as it is.
        self.assertAlmostEqual(frame.width / frame.height, 4 / 3, delta=0.01)
        self.assertEqual(frame.content_kind, framefile.LIVE)

    def test_what_lies_over_the_window_is_filmed_too(self):
        _emulator, _window, feed = self.start_emulator()
        self.painter.window((200, 350, 60, 60), WHITE)
        with self.lenslark.serve():
            self.shows(0.5, 0.45, WHITE, feed)

    def test_nothing_of_the_emulator_is_ever_filmed_while_its_windows_are_thrown_about(self):
        manager = self.start_window_manager()
        emulator, window, feed = self.start_emulator()
        others = [self.painter.window((60 * n, 500, 150, 120), GREEN) for n in range(4)]
        with self.lenslark.serve():
            self.shows(0.5, 0.5, GREEN, feed)
            numbers = set()
            end = time.monotonic() + 6
            step = 0
            tool = None
            while time.monotonic() < end:
                step += 1
                emulator.do("move", window, 60 + step * 17 % 900, 40 + step * 7 % 300)
                if step % 5 == 0:
                    emulator.do("raise", window)
                    self.painter.do("raise", others[step // 5 % 4])
                if step % 7 == 0:
                    self.painter.do("resize", others[step % 4], 100 + step % 150, 120)
                if step % 11 == 0:
                    emulator.do("resize", window, 220 + step % 80, 400)
                if step % 13 == 0:
                    if tool:
                        emulator.do("destroy", tool)
                    tool = emulator.window((100 + step % 500, 100, 120, 200), RED)
                if step % 23 == 0:
                    emulator.do("unmap", window)
                    emulator.do("map", window)
                numbers.add(self.assert_nothing_red(feed))
            self.assertGreater(len(numbers), 20)
            manager.terminate()
            manager.wait()
            emulator.do("move", window, 300, 100)
            for _ in range(30):
                self.assert_nothing_red(feed)
                time.sleep(0.01)

    def test_a_dragged_window_is_followed(self):
        emulator, window, feed = self.start_emulator()
        with self.lenslark.serve():
            self.shows(0.5, 0.5, GREEN, feed)
            emulator.do("move", window, 840, 200)
            self.shows(0.5, 0.5, BLUE, feed)
            emulator.do("move", window, 100, 200)
            self.shows(0.5, 0.5, GREEN, feed)

    def test_a_window_off_every_display_is_filmed_as_soon_as_it_is_on_one(self):
        emulator, window, feed = self.start_emulator(frame=(3000, 200, 240, 400))
        with self.lenslark.serve() as serving:
            eventually(feed.exists)
            self.assertIsNone(framefile.latest(feed))
            emulator.do("move", window, 100, 200)
            self.shows(0.5, 0.5, GREEN, feed)
            emulator.do("move", window, 3000, 200)
            emulator.do("move", window, 840, 200)
            self.shows(0.5, 0.5, BLUE, feed)
            self.assertEqual(serving.errors(), "")

    def test_a_compositor_may_come_and_go(self):
        emulator, window, feed = self.start_emulator()
        with self.lenslark.serve():
            self.shows(0.5, 0.5, GREEN, feed)
            for _ in range(2):
                picom = self.server.start("picom", "--config", "/dev/null", "--backend", "xrender")
                try:
                    for step in range(40):
                        emulator.do("move", window, 100 + step, 200)
                        self.assert_nothing_red(feed)
                        time.sleep(0.02)
                    self.assertIsNone(picom.poll(), "the compositor could not take over")
                finally:
                    picom.terminate()
                    picom.wait()
                for step in range(20):
                    emulator.do("move", window, 100 + step, 200)
                    self.assert_nothing_red(feed)
                    time.sleep(0.02)
            emulator.do("move", window, 840, 200)
            self.shows(0.5, 0.5, BLUE, feed)
            self.assert_nothing_red(feed)


if __name__ == "__main__":
    unittest.main()
