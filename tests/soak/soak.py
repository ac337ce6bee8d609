#!/usr/bin/env python3
"""Runs `lenslark serve` for long under everything that changes, and notes what it takes.

usage: soak.py BUILD_DIRECTORY OUTPUT_DIRECTORY [--seconds 3600] [--nice -5]

The program and its modules are copied first, so that the build may go on meanwhile. It gets a
support directory, a global feed, an X display, a /tmp, and simulators and emulators of its own.
For as long as it runs

  - devices come and go every few seconds (stand-ins for their tools),
  - the configuration changes every second, by hand or with the command line,
  - two films of a few seconds loop, overlays and slideshows among them,
  - the display changes all the time, hangs for five seconds now and then, and is ended and
    started again every three minutes.

Every second becomes a line of OUTPUT_DIRECTORY/soak.csv; report.py makes the plot of it.
"""

import argparse
import csv
import fcntl
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "e2e"))

import framefile  # noqa: E402
import run  # noqa: E402
import standins  # noqa: E402
from lenslark import Lenslark, eventually  # noqa: E402
from samples import FIELDS, HeartbeatWatch, Process, feeds  # noqa: E402

DISPLAY = ":87"
DISPLAY_PERIOD, DISPLAY_PAUSE = 180, 10
HANG_PERIOD, HANG = 300, 5
EMULATORS = ("Pixel_8", "Pixel_Fold")


class Screen:
    """An X server that is ended and started again under one name, with a window in it."""

    def __init__(self, environment):
        self.environment = {**environment, "DISPLAY": DISPLAY}
        self.server = self.window = None

    def run(self, *command):
        return subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def start(self):
        self.server = self.run("Xvfb", DISPLAY, "-screen", "0", "1280x800x24", "-nolisten", "tcp",
                               "-noreset")
        eventually(lambda: os.path.exists(f"/tmp/.X11-unix/X{DISPLAY[1:]}"), deadline=60)
        self.window = self.run("xev", "-name", "soak", "-geometry", "400x300+50+50")

    def end(self):
        self.server.kill()
        for process in (self.server, self.window):
            process.wait()
        self.server = None
        for left in (f"/tmp/.X11-unix/X{DISPLAY[1:]}", f"/tmp/.X{DISPLAY[1:]}-lock"):
            pathlib.Path(left).unlink(missing_ok=True)

    def up(self):
        return self.server is not None

    def repaint(self, second):
        """Ends by itself; the server may not answer."""
        return self.run("timeout", "10", "xsetroot", "-solid", f"#{second * 4127 % 0xffffff:06x}")


class Devices:
    """Simulators and emulators that come and go."""

    def __init__(self, folder):
        self.simulators = standins.Simulators(folder / "simulators")
        if not self.simulators.works():
            sys.exit("soak: no private mounts here, so that no devices can be made up")
        ps = self.simulators.farm / "ps"
        ps.unlink(missing_ok=True)
        self.ps = standins.Tool(folder / "ps", ps)
        self.pool = [(f"5D2F6A8E-1C3B-4E7F-9A10-2B3C4D5E6F{n:02X}", f"Phone {n}") for n in range(5)]
        self.engines = {name: standins.RunningEmulator(folder, name) for name in EMULATORS}
        self.count = 0

    def keys(self):
        return [f"ios:{udid}" for udid, _ in self.pool] + [f"android:{name}" for name in EMULATORS]

    def change(self, choice):
        booted = choice.sample(self.pool, choice.randint(0, len(self.pool)))
        running = choice.sample(EMULATORS, choice.randint(0, len(EMULATORS)))
        self.simulators.booted(booted)
        lines = "".join(f"{self.engines[name].pid:7} /sdk/emulator/qemu-system-x86_64 -avd {name}\n"
                        for name in running)
        self.ps.answers(f"cat <<'END'\n{lines}END")
        for tool in (self.simulators, self.ps):  # what they note is not needed here
            (tool.state / "calls").unlink(missing_ok=True)
        self.count = len(booted) + len(running)

    def end(self):
        for engine in self.engines.values():
            engine.end()


class Settings:
    """Another configuration each second."""

    def __init__(self, lenslark, devices, choice):
        self.lenslark, self.devices, self.choice = lenslark, devices, choice
        self.media = {}

    def prepare(self, folder):
        for name, words in {
                "short.mp4": "testsrc2=size=640x360:rate=30:duration=2 -c:v libx264 -preset ultrafast",
                "other.webm": "smptebars=size=320x240:rate=25:duration=3 -c:v libvpx -b:v 300k"}.items():
            path = folder / name
            subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i", *words.split(),
                            "-pix_fmt", "yuv420p", str(path)], check=True)
            self.media[name] = self.lenslark.import_media(path)
        for n, colour in enumerate(((200, 30, 30), (30, 200, 30), (30, 30, 200), (250, 250, 250))):
            path = folder / f"card{n}.png"
            framefile.write_png(path, 640, 480, framefile.corners(640, 480, *(colour,) * 4))
            self.media[path.name] = self.lenslark.import_media(path)

    def source(self):
        cards = [self.media[f"card{n}.png"] for n in range(4)]
        return self.choice.choice((
            {"kind": "pattern"},
            {"kind": "desktop"},
            {"kind": "display", "displayIndex": 0},
            {"kind": "window", "windowMatch": "soak"},
            {"kind": "image", "mediaId": self.choice.choice(cards)},
            {"kind": "slideshow", "mediaIds": cards, "intervalSec": 1},
            {"kind": "video", "mediaId": self.media["short.mp4"], "loop": True},
            {"kind": "video", "mediaId": self.media["other.webm"], "loop": True}))

    def assignment(self, scope):
        assignment = {"scope": scope, "source": self.source()}
        if self.choice.random() < 0.3:
            assignment["overlay"] = {"mediaId": self.media["card3.png"], "anchor": "topRight",
                                     "scale": 0.25, "opacity": round(self.choice.random(), 2)}
        return assignment

    def change(self):
        if self.choice.random() < 0.2:
            words = self.choice.choice((("pattern",), ("desktop",), ("display", "0")))
            return self.lenslark.run("source", "set", *words)
        # As somebody would do who minds the lock. The first device is left at its looping film.
        with open(self.lenslark.support / "config.lock", "a+b") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            config = json.loads(self.lenslark.config_file.read_text())
            config["settings"]["fill"] = self.choice.random() < 0.5
            config["settings"]["fps"] = self.choice.choice((15, 24, 30))
            key = self.choice.choice(self.devices.keys()[1:])
            scope = {"kind": "camera", "deviceKey": key,
                     "camera": self.choice.choice(("back", "front"))}
            kept = [entry for entry in config["assignments"] if entry["scope"] != scope]
            config["assignments"] = kept + ([self.assignment(scope)] if self.choice.random() < 0.7
                                            else [])
            draft = self.lenslark.support / "by-hand.draft"
            draft.write_text(json.dumps(config))
            draft.rename(self.lenslark.config_file)

    def begin(self):
        self.lenslark.run("source", "set", "pattern")
        config = json.loads(self.lenslark.config_file.read_text())
        config["assignments"].append({
            "scope": {"kind": "device", "deviceKey": self.devices.keys()[0]},
            "source": {"kind": "video", "mediaId": self.media["short.mp4"], "loop": True}})
        self.lenslark.config_file.write_text(json.dumps(config))


class Soak:
    def __init__(self, program, folder, options):
        self.options = options
        self.choice = random.Random(options.seed)
        self.lenslark = Lenslark(program, folder)
        self.lenslark.environment["DISPLAY"] = DISPLAY
        self.lenslark.environment.pop("XAUTHORITY", None)
        self.screen = Screen(self.lenslark.environment)
        self.devices = Devices(folder)
        self.settings = Settings(self.lenslark, self.devices, self.choice)

    def watched(self):
        return feeds() | ({str(self.lenslark.feed)} if self.lenslark.feed.exists() else set())

    def step(self, second):
        if second % 7 == 0:
            self.devices.change(self.choice)
        self.settings.change()
        in_period = second % DISPLAY_PERIOD
        if in_period == DISPLAY_PERIOD - DISPLAY_PAUSE:
            self.screen.end()
        elif in_period == 0 and second > 0:
            self.screen.start()
        if self.screen.up() and second % HANG_PERIOD in (100, 100 + HANG):
            hang = second % HANG_PERIOD == 100
            self.screen.server.send_signal(signal.SIGSTOP if hang else signal.SIGCONT)
        return self.screen.repaint(second) if self.screen.up() else None

    def sample(self, process, beats, second):
        return {"second": second, "load": os.getloadavg()[0], "devices": self.devices.count,
                "display": int(self.screen.up()),
                "temporary": len(feeds()),
                "leftovers": sum(".tmp-" in name for _, _, names in os.walk(self.lenslark.support)
                                 for name in names),
                **process.sample(), **beats.sample()}

    def serve(self, report):
        prefix = ("nice", "-n", str(self.options.nice), *self.devices.simulators.prefix)
        with self.lenslark.serve(prefix=prefix) as serving:
            process, beats = Process(serving.pid), HeartbeatWatch(self.watched)
            begin, painters = time.monotonic(), []
            for second in range(self.options.seconds):
                painters = [p for p in painters if p.poll() is None] + [self.step(second)]
                painters = [p for p in painters if p]
                beats.watch_until(begin + second + 1)
                assert serving.running(), f"serve ended in second {second}: {serving.errors()}"
                report.writerow(self.sample(process, beats, second))
            ending = time.monotonic()
        for painter in painters:
            painter.wait()
        return time.monotonic() - ending, serving.errors()

    def run(self, output):
        self.settings.prepare(self.lenslark.folder)
        self.settings.begin()
        self.devices.change(self.choice)
        self.screen.start()
        try:
            with open(output / "soak.csv", "w", newline="", buffering=1, encoding="ascii") as file:
                report = csv.DictWriter(file, FIELDS)
                report.writeheader()
                ending, errors = self.serve(report)
        finally:
            if self.screen.up():
                self.screen.server.send_signal(signal.SIGCONT)
                self.screen.end()
            self.devices.end()
        (output / "serve.err").write_text(errors)
        left = sorted(feeds())
        print(f"soak: ended in order within {ending:.2f} s; feeds left: {left or 'none'}")


def copy_of(build, folder):
    """The program and its modules, so that the next build does not change them."""
    folder.mkdir()
    for file in (build / "lenslark", *build.glob("lenslark-*.so")):
        shutil.copy(file, folder)
    return folder / "lenslark"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("output", type=pathlib.Path)
    parser.add_argument("--seconds", type=int, default=3600)
    parser.add_argument("--nice", type=int, default=0, help="of serve alone")
    parser.add_argument("--seed", type=int, default=1)
    options = parser.parse_args()
    build, output = options.build.resolve(), options.output.resolve()
    output.mkdir(parents=True, exist_ok=True)
    if "LENSLARK_PRIVATE_TMP" not in os.environ:
        prefix = run.private_prefix(build)
        if not prefix:
            sys.exit("soak: bubblewrap does not work here, so that there is no /tmp to count in")
        if output.is_relative_to("/tmp"):
            sys.exit("soak: the output must not be below /tmp, which is another one meanwhile")
        os.environ["LENSLARK_PRIVATE_TMP"] = "1"
        os.execvp(prefix[0], [*prefix, sys.executable, "-B", *sys.argv])
    folder = pathlib.Path("/tmp/soak")
    folder.mkdir()
    Soak(copy_of(build, folder / "program"), folder, options).run(output)


if __name__ == "__main__":
    main()
