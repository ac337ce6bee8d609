"""Runs the real program in surroundings of its own."""

import contextlib
import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

import framefile

RED, GREEN, BLUE, WHITE = (255, 0, 0), (0, 255, 0), (0, 0, 255), (255, 255, 255)


def binary():
    return pathlib.Path(os.environ["LENSLARK_BINARY"])


def pretty(value):
    return json.dumps(value, indent=2, sort_keys=True, ensure_ascii=False)


def eventually(predicate, deadline=15, pause=0.005):
    """The predicate's first true value; fails when there is none before the deadline."""
    end = time.monotonic() + deadline
    while True:
        value = predicate()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {deadline} s; last seen: {value!r}")
        time.sleep(pause)


class Serving:
    """A running `lenslark serve`."""

    def __init__(self, process, out, err):
        self.process = process
        self._out = out
        self._err = err

    @property
    def pid(self):
        return self.process.pid

    def output(self):
        return self._out.read_text(errors="replace")

    def errors(self):
        return self._err.read_text(errors="replace")

    def running(self):
        return self.process.poll() is None

    def interrupt(self, number=signal.SIGINT):
        self.process.send_signal(number)

    def wait(self, timeout=15):
        return self.process.wait(timeout)


class Lenslark:
    """The program with a support directory and a global feed of its own below `folder`."""

    def __init__(self, program, folder):
        self.program = str(program)
        self.folder = pathlib.Path(folder)
        self.support = self.folder / "support"
        self.feed = self.folder / "feed.shm"
        self.config_file = self.support / "config.json"
        self.environment = {
            **{name: value for name, value in os.environ.items()
               if not name.startswith(("LENSLARK_", "ANDROID_"))
               and name not in ("DISPLAY", "WAYLAND_DISPLAY")},
            "HOME": str(self.folder),
            "LENSLARK_CONFIG_DIR": str(self.support),
            "LENSLARK_SHM": str(self.feed),
            "TZ": "UTC",
        }

    def move_away(self, folder):
        """From now on runs a copy of the program without what was built beside it."""
        folder.mkdir(parents=True)
        self.program = shutil.copy(self.program, folder)

    def run(self, *arguments, prefix=(), **options):
        options = {"capture_output": True, "timeout": 60, "env": self.environment, **options}
        return subprocess.run([*prefix, self.program, *map(str, arguments)], check=False, **options)

    @contextlib.contextmanager
    def serve(self, *arguments, wait=True, prefix=(), ends=True):
        """Runs `serve` for as long as the block; then it must end in order, unless the block has
        ended it itself (`ends=False`)."""
        out = self.folder / "serve.out"
        err = self.folder / "serve.err"
        with open(out, "wb") as stdout, open(err, "wb") as stderr:
            process = subprocess.Popen([*prefix, self.program, "serve", *map(str, arguments)],
                                       stdin=subprocess.DEVNULL, stdout=stdout, stderr=stderr,
                                       env=self.environment)
        serving = Serving(process, out, err)
        try:
            if wait:
                eventually(lambda: "serving cameras" in serving.output() or not serving.running())
                assert serving.running(), f"serve ended at once: {serving.errors()}"
            yield serving
            if ends and serving.running():
                serving.interrupt(signal.SIGTERM)
                status = serving.wait()
                assert status == 0, f"serve ended with {status}: {serving.errors()}"
        finally:
            if serving.running():
                process.kill()
            process.wait()

    def import_media(self, path):
        """The media id of a file that is now in the library."""
        result = self.run("media", "add", path, "--json")
        assert result.returncode == 0, result.stderr
        return json.loads(result.stdout)[0]["id"]

    def write_config(self, source, in_place=False, settings=None, overlay=None):
        """Edits config.json as a person would: the global source, and settings."""
        self.support.mkdir(parents=True, exist_ok=True)
        assignment = {"scope": {"kind": "global"}, "source": source}
        if overlay:
            assignment["overlay"] = overlay
        text = json.dumps({
            "schemaVersion": 1,
            "settings": {"fill": True, "fps": 30, "autoInjectSimulators": True, **(settings or {})},
            "assignments": [assignment] if source else [],
            "knownDevices": [],
        })
        if in_place:
            self.config_file.write_text(text)
        else:
            draft = self.support / ".config.json.draft"
            draft.write_text(text)
            draft.rename(self.config_file)

    set_global = write_config

    def header(self):
        return framefile.header(self.feed)

    def frame(self):
        return framefile.latest(self.feed)

    def next_frame(self):
        """A frame that is newer than the present one."""
        before = self.frame()
        return eventually(lambda: (frame := self.frame()) and frame != before and frame)


class EndToEndTest(unittest.TestCase):
    """A test with a program and a directory of its own."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lenslark-e2e-")
        self.addCleanup(folder.cleanup)
        self.lenslark = Lenslark(binary(), folder.name)
        self.folder = self.lenslark.folder

    def picture(self, name="picture.png", size=(64, 48), colours=(RED, GREEN, BLUE, WHITE)):
        path = self.folder / name
        framefile.write_png(path, *size, framefile.corners(*size, *colours))
        return path

    def assert_colour(self, actual, expected, tolerance=2):
        self.assertEqual(len(actual), 4)
        off = max(abs(a - b) for a, b in zip(actual, (*expected, 255)))
        self.assertLessEqual(off, tolerance, f"{actual} is not {expected}")

    def assert_prints(self, result, text, errors=b""):
        self.assertEqual((result.stdout.decode(), result.stderr, result.returncode),
                         (text, errors, 0))

    def assert_prints_json(self, result, value):
        """Compared as a value and as text: indented by two, keys sorted."""
        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        self.assertEqual(json.loads(result.stdout), value)
        self.assertEqual(result.stdout.decode(), pretty(value) + "\n")

    def assert_fails(self, result, message, status):
        self.assertEqual(result.stderr.decode(), f"error: {message}\n")
        self.assertEqual(result.returncode, status)
        self.assertEqual(result.stdout, b"")
