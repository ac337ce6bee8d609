"""Settings reach a running feed, whoever edits them and however."""

import fcntl
import json
import os
import select
import subprocess
import time
import unittest

from lenslark import BLUE, RED, EndToEndTest, eventually


class SettingsTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        self.red = self.lenslark.import_media(self.picture("red.png", colours=(RED,) * 4))
        self.blue = self.lenslark.import_media(self.picture("blue.png", colours=(BLUE,) * 4))

    def await_colour(self, colour, deadline=5):
        return eventually(lambda: (frame := self.lenslark.frame())
                          and frame.pixel(3, 3)[:3] == colour and frame, deadline)

    def test_the_saved_picture_is_served(self):
        self.lenslark.write_config({"kind": "image", "mediaId": self.red})
        with self.lenslark.serve():
            self.await_colour(RED)

    def test_a_file_renamed_into_place_counts(self):
        self.lenslark.write_config({"kind": "image", "mediaId": self.red})
        with self.lenslark.serve():
            self.await_colour(RED)
            self.lenslark.write_config({"kind": "image", "mediaId": self.blue})
            self.await_colour(BLUE, 1)

    def test_a_file_written_in_place_counts(self):
        self.lenslark.write_config({"kind": "image", "mediaId": self.red})
        with self.lenslark.serve():
            self.await_colour(RED)
            self.lenslark.write_config({"kind": "image", "mediaId": self.blue}, in_place=True)
            self.await_colour(BLUE, 1)

    def test_the_command_line_counts(self):
        with self.lenslark.serve():
            result = self.lenslark.run("source", "set", "image", self.folder / "red.png")
            self.assertEqual(result.returncode, 0, result.stderr)
            self.await_colour(RED, 1)

    def test_a_command_says_what_it_waits_for(self):
        lock = self.lenslark.support / "config.lock"
        with open(lock, "w") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            with subprocess.Popen([self.lenslark.program, "source", "set", "pattern"],
                                  env=self.lenslark.environment, stderr=subprocess.PIPE) as command:
                try:
                    said, _, _ = select.select([command.stderr], [], [], 30)
                    self.assertTrue(said)
                    self.assertIn(f"waiting for {lock}, which another process holds",
                                  command.stderr.readline().decode())
                    self.assertIsNone(command.poll())
                    fcntl.flock(held, fcntl.LOCK_UN)
                    self.assertEqual(command.wait(15), 0)
                finally:
                    command.kill()

    def test_the_feed_of_the_desktop_goes_away(self):
        self.lenslark.write_config({"kind": "image", "mediaId": self.red})
        with self.lenslark.serve():
            self.await_colour(RED)
            self.lenslark.write_config({"kind": "desktop"})
            eventually(lambda: not self.lenslark.feed.exists(), 1)

    def test_fit_and_fill_reach_the_header(self):
        source = {"kind": "image", "mediaId": self.red}
        self.lenslark.write_config(source, settings={"fill": False})
        with self.lenslark.serve():
            self.await_colour(RED)
            self.assertEqual(self.lenslark.header().scene_mode, 0)
            self.lenslark.write_config(source, settings={"fill": True})
            eventually(lambda: self.lenslark.header().scene_mode == 1, 1)

    def test_an_overlay_is_laid_over_the_picture(self):
        source = {"kind": "image", "mediaId": self.red}
        self.lenslark.write_config(source, settings={"fill": False}, overlay={
            "mediaId": self.blue, "anchor": "center", "scale": 0.5, "opacity": 1})
        with self.lenslark.serve():
            # The very first frame has it, however long its picture takes to decode.
            self.assert_colour(eventually(self.lenslark.frame).at(0.5, 0.5), BLUE)
            self.await_colour(RED)

    def test_an_overlay_that_is_gone_holds_up_no_picture(self):
        source = {"kind": "image", "mediaId": self.red}
        digest = self.blue.removeprefix("sha256:")
        [stored] = (self.lenslark.support / "Media" / "items").glob(digest + "*")
        stored.write_text("no picture any more")
        self.lenslark.write_config(source, overlay={
            "mediaId": self.blue, "anchor": "center", "scale": 0.5, "opacity": 1})
        with self.lenslark.serve():
            self.await_colour(RED)
            self.lenslark.set_global({"kind": "image", "mediaId": self.red})

    def test_a_slideshow_turns_its_pages(self):
        self.lenslark.write_config({"kind": "slideshow", "mediaIds": [self.red, self.blue],
                                    "intervalSec": 0.5})
        with self.lenslark.serve():
            self.await_colour(RED)
            self.await_colour(BLUE)
            self.await_colour(RED)

    def test_flags_hold_against_saved_settings(self):
        with self.lenslark.serve("--image", self.folder / "red.png"):
            self.await_colour(RED)
            self.lenslark.write_config({"kind": "image", "mediaId": self.blue},
                                       settings={"fill": False})
            eventually(lambda: self.lenslark.header().scene_mode == 0)
            self.assertEqual(self.lenslark.frame().pixel(3, 3)[:3], RED)


class ForgottenDeviceTest(EndToEndTest):
    def test_a_device_that_was_not_seen_for_three_months_goes_with_its_settings(self):
        known, assignments = [], []
        for name, days in (("OLD", 91), ("NEW", 89)):
            seen = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - days * 86400))
            known.append({"deviceKey": f"ios:{name}", "name": name, "lastSeen": seen})
            for scope in ({"kind": "device"}, {"kind": "camera", "camera": "front"}):
                assignments.append({"scope": {**scope, "deviceKey": f"ios:{name}"},
                                    "source": {"kind": "pattern"}})
        assignments.append({"scope": {"kind": "global"}, "source": {"kind": "pattern"}})
        self.lenslark.write_config({"kind": "pattern"})
        config = json.loads(self.lenslark.config_file.read_text())
        config.update(knownDevices=known, assignments=assignments)
        self.lenslark.config_file.write_text(json.dumps(config))
        with self.lenslark.serve():
            saved = eventually(lambda: (saved := json.loads(
                self.lenslark.config_file.read_text()))["knownDevices"] == known[1:] and saved)
        self.assertEqual(saved["assignments"], assignments[2:])


class BrokenConfigTest(EndToEndTest):
    def broken_copies(self):
        return list(self.lenslark.support.glob("config.json.broken-*"))

    def test_is_kept_aside_and_serve_goes_on(self):
        with self.lenslark.serve("--test-pattern"):
            eventually(self.lenslark.frame)
            self.lenslark.support.mkdir(exist_ok=True)
            self.lenslark.config_file.write_text("{ this is no JSON")
            copies = eventually(self.broken_copies, 5)
            self.assertEqual(copies[0].read_text(), "{ this is no JSON")
            self.lenslark.next_frame()

    def test_settings_that_cannot_be_read_are_told(self):
        self.lenslark.config_file.mkdir(parents=True)
        with self.lenslark.serve("--test-pattern") as serving:
            eventually(self.lenslark.frame)
            eventually(lambda: f"the settings cannot be read ({self.lenslark.config_file}: not a "
                       "regular file); mend that file or move it away" in serving.errors())

    def test_any_bytes_are_survived(self):
        self.lenslark.support.mkdir()
        contents = (b"", b"\0" * 100, os.urandom(1000), b"[" * 100000, b"\xff\xfe{}", b'{"a":1}',
                    b'{"schemaVersion":1e999,"settings":{},"assignments":[],"knownDevices":[]}',
                    json.dumps({"schemaVersion": 1, "settings": {"fill": 3, "fps": "x"},
                                "assignments": 7, "knownDevices": None}).encode())
        for content in contents:
            with self.subTest(content[:20]):
                self.lenslark.config_file.write_bytes(content)
                result = self.lenslark.run("source", "get")
                self.assertEqual(result.stdout.decode(),
                                 "global default → desktop under the window\n")
                self.assertEqual(result.returncode, 0)

    def test_numbers_that_make_no_sense_do_not_end_serve(self):
        for settings in ({"fps": 0}, {"fps": -5}, {"fps": 2147483647}):
            with self.subTest(settings):
                self.lenslark.write_config({"kind": "pattern"}, settings=settings)
                with self.lenslark.serve():
                    eventually(self.lenslark.frame)

    def test_a_link_at_its_place_is_read_through(self):
        self.lenslark.support.mkdir()
        elsewhere = self.folder / "dotfiles.json"
        self.lenslark.write_config({"kind": "pattern"})
        self.lenslark.config_file.rename(elsewhere)
        self.lenslark.config_file.symlink_to(elsewhere)
        self.assertIn("test pattern", self.lenslark.run("source", "get").stdout.decode())


class FileSizeLimitTest(EndToEndTest):
    """A shell that limits the size of files (`ulimit -f`) ends who goes beyond it, unless asked."""

    @staticmethod
    def at_most(blocks):
        return ("bash", "-c", f'ulimit -f {blocks}; exec "$0" "$@"')

    def files(self):
        return sorted(str(path) for path in self.lenslark.support.rglob("*") if path.is_file())

    def test_a_setting_that_finds_no_room_is_an_error_and_changes_nothing(self):
        self.lenslark.run("source", "set", "pattern")
        before = self.files()
        saved = self.lenslark.config_file.read_text()
        result = self.lenslark.run("source", "set", "display", "2", prefix=self.at_most(0))
        self.assertRegex(result.stderr.decode(), r"^error: .*File too large\n$")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(self.lenslark.config_file.read_text(), saved)
        self.assertEqual(self.files(), before)

    def test_an_import_that_finds_no_room_is_an_error_and_leaves_nothing(self):
        result = self.lenslark.run("media", "add", self.picture(), prefix=self.at_most(0))
        self.assertRegex(result.stderr.decode(), r"^error: .*File too large\n$")
        self.assertEqual(result.returncode, 1)
        self.assertEqual([path for path in self.files() if not path.endswith(".lock")], [])

    def test_serve_says_which_feed_finds_no_room_and_goes_on(self):
        with self.lenslark.serve("--test-pattern", prefix=self.at_most(100)) as serving:
            eventually(lambda: f"cannot open {self.lenslark.feed}" in serving.errors())
            self.assertIn("File too large", serving.errors())
            self.assertTrue(serving.running())


@unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs bubblewrap")
class UnwritableSupportDirectoryTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        self.lenslark.write_config({"kind": "pattern"})
        support = str(self.lenslark.support)
        self.read_only = ("bwrap", "--dev-bind", "/", "/", "--ro-bind", support, support, "--")

    def test_setting_a_source_says_what_is_wrong(self):
        before = self.lenslark.config_file.read_text()
        result = self.lenslark.run("source", "set", "desktop", prefix=self.read_only)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(),
                         rf"^error: {self.lenslark.support}.*: Read-only file system\n$")
        self.assertEqual(self.lenslark.config_file.read_text(), before)

    def test_importing_says_what_is_wrong(self):
        result = self.lenslark.run("media", "add", self.picture(), prefix=self.read_only)
        items = self.lenslark.support / "Media" / "items"
        self.assert_fails(result, f"cannot create {items}: Read-only file system", 1)

    def test_serve_shows_what_is_saved(self):
        with self.lenslark.serve(prefix=self.read_only, ends=False):
            eventually(self.lenslark.frame)

    def test_a_full_disk_loses_nothing(self):
        full = self.folder / "full"
        full.mkdir()
        self.lenslark.environment["LENSLARK_CONFIG_DIR"] = str(full)
        script = (f'cp {self.lenslark.config_file} {full}/ && head -c 200000 /dev/zero > {full}/fill; '
                  f'"$0" source set display 1; echo $?; cat {full}/config.json')
        prefix = ("bwrap", "--dev-bind", "/", "/", "--size", "65536", "--tmpfs", str(full), "--",
                  "bash", "-c", script)
        result = self.lenslark.run(prefix=prefix)
        self.assertIn("No space left on device", result.stderr.decode())
        status, saved = result.stdout.decode().split("\n", 1)
        self.assertEqual(status, "1")
        self.assertEqual(saved, self.lenslark.config_file.read_text())


if __name__ == "__main__":
    unittest.main()
