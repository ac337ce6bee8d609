"""Commands and servers that are killed at random moments, while others read what they write.

LENSLARK_KILLS says how often; without it a part that takes seconds.
"""

import contextlib
import hashlib
import json
import mmap
import os
import random
import signal
import struct
import subprocess
import threading
import time
import unittest

import framefile
from lenslark import EndToEndTest, eventually

KILLS = int(os.environ.get("LENSLARK_KILLS", 0))


class CrashTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        self.random = random.Random(self.id())
        self.killed = self.finished = 0

    def tearDown(self):
        super().tearDown()
        if KILLS:
            print(f"\n{self.id().rpartition('.')[2]}: {self.killed} killed, "
                  f"{self.finished} had ended before", flush=True)

    def start(self, *arguments):
        return subprocess.Popen([self.lenslark.program, *map(str, arguments)],
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL, env=self.lenslark.environment)

    def kill_within(self, seconds, *arguments):
        """Whether the command had ended before it was killed."""
        process = self.start(*arguments)
        with contextlib.suppress(subprocess.TimeoutExpired):
            process.wait(self.random.uniform(0, seconds))
        process.kill()
        ended = process.wait() != -signal.SIGKILL
        self.finished += ended
        self.killed += not ended
        if ended:
            self.assertEqual(process.returncode, 0, arguments)
        return ended

    def usual_time(self, *arguments):
        """How long a command takes here and now."""
        times = []
        for _ in range(3):
            begin = time.monotonic()
            self.assertEqual(self.lenslark.run(*arguments).returncode, 0)
            times.append(time.monotonic() - begin)
        return min(times)

    @contextlib.contextmanager
    def reading(self, look):
        """Somebody who looks again and again, for as long as the block."""
        failures, looks, done = [], [0], threading.Event()

        def run():
            while not done.is_set():
                try:
                    look()
                    looks[0] += 1
                except Exception as error:  # pylint: disable=broad-except
                    failures.append(repr(error))
                    return
        reader = threading.Thread(target=run)
        reader.start()
        try:
            yield
            eventually(lambda: looks[0] > 0 or failures)
        finally:
            done.set()
            reader.join()
        self.assertEqual(failures, [])

    def temporary_files(self):
        return [path for path in self.lenslark.support.rglob("*")
                if ".tmp-" in path.name or path.name.startswith(".import-")]


class SettingCrashTest(CrashTest):
    def index(self):
        return json.loads(self.lenslark.config_file.read_text())["assignments"][0]["source"][
            "displayIndex"]

    def test_the_settings_are_whole_whenever_a_change_is_killed(self):
        usual = self.usual_time("source", "set", "display", "1000000")
        with self.reading(self.index):
            held = self.index()
            for number in range(KILLS or 60):
                ended = self.kill_within(1.3 * usual, "source", "set", "display", number)
                allowed = (number,) if ended else (held, number)
                held = self.index()
                self.assertIn(held, allowed)
        self.assertEqual(self.lenslark.run("source", "set", "pattern").returncode, 0)
        self.assertEqual(self.temporary_files(), [])
        self.assertEqual(list(self.lenslark.support.glob("*.broken-*")), [])


class ImportCrashTest(CrashTest):
    def items(self):
        index = self.lenslark.support / "Media/index.json"
        return json.loads(index.read_text()) if index.exists() else []

    def assert_whole(self):
        media = self.lenslark.support / "Media"
        for item in self.items():
            data = (media / "items" / item["file"]).read_bytes()
            self.assertEqual(item["id"], "sha256:" + hashlib.sha256(data).hexdigest())
            self.assertTrue((media / "thumbs" / (item["id"][7:] + ".jpg")).exists())

    def test_the_library_is_whole_whenever_an_import_is_killed(self):
        first = self.picture("first.png", size=(16, 12))
        begin = time.monotonic()
        self.lenslark.import_media(first)
        usual = time.monotonic() - begin
        kept = {"first.png"}
        with self.reading(self.items):
            for number in range(KILLS or 25):
                name = f"{number}.png"
                colour = (number % 256, number // 256, 77)
                picture = self.picture(name, size=(16, 12), colours=(colour,) * 4)
                if self.kill_within(1.6 * usual, "media", "add", picture):
                    kept.add(name)
                self.assertLessEqual(kept, {item["name"] for item in self.items()})
        self.assert_whole()
        self.assert_tidied_up()

    def assert_tidied_up(self):
        """What the dead left goes when others come: once it is old, and once somebody serves."""
        media = self.lenslark.support / "Media"
        for path in self.temporary_files():
            os.utime(path, (0, 0))
        self.lenslark.import_media(self.picture("last.png", size=(20, 12)))
        self.assertEqual(self.temporary_files(), [])
        with self.lenslark.serve("--test-pattern"):
            listed = {item["file"] for item in self.items()}
            eventually(lambda: set(os.listdir(media / "items")) == listed)
        self.assert_whole()


class ServeCrashTest(CrashTest):
    """Two plain pictures take turns quickly: a frame of two colours is a torn one."""

    def setUp(self):
        super().setUp()
        cards = [self.lenslark.import_media(
            self.picture(name, size=(320, 240), colours=(colour,) * 4))
            for name, colour in (("red.png", (200, 0, 0)), ("blue.png", (0, 0, 200)))]
        self.lenslark.write_config({"kind": "slideshow", "mediaIds": cards, "intervalSec": 0.02})

    def look(self):
        frame = self.lenslark.frame()
        if frame:
            self.assertEqual(frame.pixels, frame.pixels[:4] * (frame.width * frame.height))
        return frame

    def settings(self):
        """All but the devices that run on this machine, which are noted there too."""
        config = json.loads(self.lenslark.config_file.read_text())
        return config["settings"], config["assignments"]

    def counters(self, mapping):
        return [struct.unpack_from("<Q", mapping, 80 + 32 * slot)[0] for slot in range(2)]

    def test_readers_go_on_whenever_the_server_is_killed(self):
        with self.lenslark.serve() as serving:
            eventually(self.look)
            serving.process.kill()
            serving.wait()
        with open(self.lenslark.feed, "rb") as file:
            inode = os.fstat(file.fileno()).st_ino
            mapping = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        before_all = self.settings()
        with self.reading(self.look):
            for _ in range(KILLS or 25):
                before = self.counters(mapping)
                self.assertFalse(self.kill_within(0.3, "serve"))
                after = self.counters(mapping)
                self.assertTrue(all(new >= old for old, new in zip(before, after)))
                self.look()
        # Who had the file mapped from the beginning sees the frames of the last server.
        with self.lenslark.serve():
            before = sum(self.counters(mapping))
            eventually(lambda: sum(self.counters(mapping)) > before + 8 and self.look())
            self.assertEqual(os.stat(self.lenslark.feed).st_ino, inode)
        self.assertEqual(framefile.header(self.lenslark.feed).writer_pid, 0)
        self.assertEqual(self.settings(), before_all)
        self.assertEqual(self.temporary_files(), [])
        mapping.close()


if __name__ == "__main__":
    unittest.main()
