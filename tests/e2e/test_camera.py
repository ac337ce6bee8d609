"""The whole way on Linux, installed: an emulator that `android launch` starts, the router that feeds
its camera, and what it sees there. The emulator is a stand-in that uses the camera as one does."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import unittest

import standins
from lenslark import BLUE, EndToEndTest, GREEN, Lenslark, RED, eventually

BUILD = pathlib.Path(os.environ["LENSLARK_BUILD"])
NAME = f"Seeing_{os.getpid()}"  # There may be other emulators on this machine.
DEVICE = "android:" + NAME

# Its webcams are those that it finds. It takes a few frames of every size, then notes what it sees.
EMULATOR = """#!/bin/sh
if [ "$1" = -webcam-list ]; then
  for camera in /sys/class/video4linux/video*; do
    name=$(cat $camera/name) &&
      echo " Camera '$name' can be specified by label as 'webcam${{camera##*video}}'"
  done
  exit
fi
echo "$@" > {folder}/words
{engine} emulator 2> {folder}/complaints
echo $? > {folder}/status
exec {engine} watch "$@" > {folder}/frames
"""


@unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs a /tmp of its own")
class CameraTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        installed = subprocess.run(["cmake", "--install", BUILD, "--prefix", self.folder / "usr"],
                                   capture_output=True, check=False)
        self.assertEqual(installed.returncode, 0, installed.stderr)
        self.programs = self.folder / "usr" / "bin"
        self.lenslark = Lenslark(self.programs / "lenslark", self.folder)
        engine = self.folder / "qemu-system-x86_64"
        shutil.copy(BUILD / "tests" / "injector-probe", engine)
        emulator = self.folder / "sdk" / "emulator" / "emulator"
        emulator.parent.mkdir(parents=True)
        emulator.write_text(EMULATOR.format(folder=self.folder, engine=engine))
        emulator.chmod(0o755)
        self.lenslark.environment["ANDROID_HOME"] = str(self.folder / "sdk")
        # What was built with the address sanitizer wants to be loaded first.
        self.lenslark.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0:detect_leaks=0"

    def succeed(self, *arguments):
        result = self.lenslark.run(*arguments)
        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        return result.stdout.decode()

    def solid(self, colour):
        return self.picture("-".join(map(str, colour)) + ".png", colours=(colour,) * 4)

    def launch(self):
        line = self.succeed("android", "launch", NAME)
        pid = int(re.search(r"\(pid (\d+)\)", line)[1])
        self.addCleanup(standins.end, pid)
        return pid

    def await_colour(self, frames, colour):
        """Until what the frames show last on both sides is of that colour, give or take a
        rounding."""
        def is_shown():
            lines = frames.read_text().splitlines() if frames.exists() else []
            halves = lines[-2].split()[1:] if len(lines) > 1 else []
            return halves and all(abs(a - b) <= 2 for half in halves
                                  for a, b in zip(bytes.fromhex(half), colour))
        eventually(is_shown, deadline=60, pause=0.05)

    def test_a_launched_emulator_sees_what_is_set_for_it(self):
        self.succeed("source", "set", "image", self.solid(BLUE))
        self.succeed("source", "set", "image", self.solid(RED), "--device", DEVICE)
        with self.lenslark.serve():
            pid = self.launch()
            self.await_colour(self.folder / "frames", RED)
            self.assertEqual((self.folder / "complaints").read_text(), "")
            self.assertEqual((self.folder / "status").read_text(), "0\n")
            self.assertEqual((self.folder / "words").read_text(),
                             f"-avd {NAME} -camera-back webcam0 -camera-front emulated\n")
            libraries = [line for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines()
                         if line.endswith("LenslarkEmuInject.so")]
            # Whoever runs the tests may have preloaded another one.
            self.assertIn(str(self.folder / "usr"), "".join(libraries))
            self.succeed("source", "set", "image", self.solid(GREEN), "--device", DEVICE)
            self.await_colour(self.folder / "frames", GREEN)
            self.await_colour(self.watch("--device", DEVICE), GREEN)
            self.check_health()

    def watch(self, *options):
        """What a program sees that lenslark-run starts."""
        frames = self.folder / "-".join(["frames", *options])
        with open(frames, "wb") as out:
            client = subprocess.Popen(
                [self.programs / "lenslark-run", *options, "--",
                 BUILD / "tests" / "injector-probe", "watch"],
                stdout=out, env=self.lenslark.environment)
        self.addCleanup(client.wait)
        self.addCleanup(client.kill)
        return frames

    def check_health(self):
        checks = json.loads(self.lenslark.run("doctor", "--json").stdout)
        levels = {check["title"]: check["level"] for check in checks}
        self.assertEqual(levels["Android injector present"], "ok")
        self.assertEqual([level for title, level in levels.items() if DEVICE in title],
                         ["ok"])

    def test_any_program_sees_what_is_served_for_all(self):
        with self.lenslark.serve("--image", self.solid(RED)):
            self.await_colour(self.watch(), RED)


if __name__ == "__main__":
    unittest.main()
