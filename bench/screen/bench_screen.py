"""Filming an X server: what it costs us and the server together, beside GStreamer and ffmpeg that
film the same at the same time of day, and how soon a change is in the feed.

What the server spends on what is filmed, films or not, is measured in every round and left out."""

import os
import re
import statistics
import subprocess
import time

from rows import Row, Skip, cpu_of_process, limit, missing
from xserver import XServer

ROUNDS = 3
SECONDS = 3


class Stage:
    """An X server with something to film."""

    def __init__(self, build):
        self.actor = str(build / "bench" / "screen-actor")
        self.server = XServer("1920x1080x24")
        self.environment = {**os.environ, "DISPLAY": self.server.name}
        self.players = []
        self.moving = False

    def play(self, *role):
        """Replaces what there is to film."""
        self.stop()
        self.moving = bool(role)
        if role:
            self.players.append(self.start([self.actor, *role], stdin=subprocess.PIPE))
            time.sleep(0.5)

    def start(self, command, **options):
        options = {"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL, **options}
        return subprocess.Popen(list(map(str, command)), env=self.environment, **options)

    def stop(self):
        for player in self.players:
            player.stdin.close()
            player.wait()
        self.players.clear()

    def end(self):
        self.stop()
        self.server.end()

    def ask(self, *role):
        result = subprocess.run([self.actor, *map(str, role)], env=self.environment, check=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        return [float(line) for line in result.stdout.split()]

    def cost(self, command):
        """CPU seconds a second of film, the server's included; of nothing, the server's alone."""
        begun = time.monotonic()
        film = self.start(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          text=True) if command else None
        try:
            time.sleep(1)
            before = self.spent(film)
            begin = time.monotonic()
            time.sleep(SECONDS)
            cost = (self.spent(film) - before) / (time.monotonic() - begin)
        finally:
            if film:
                film.stdin.close()
                if command[0] != self.actor:
                    film.terminate()
                lived = time.monotonic() - begun
                printed = film.stdout.read()
                film.stdout.close()
                film.wait()
        return cost * self.shortfall(printed, lived) if film else cost

    def shortfall(self, printed, lived):
        """How many times more frames should have come, as far as a film tells how many came. On a
        busy machine it costs less a second, and not for its own merit."""
        counts = re.findall(r"^(?:frame=)?\s*(\d+)$", printed, re.MULTILINE)
        if not counts or not self.moving:
            return 1
        return max(1, 30 * lived / max(int(counts[-1]), 1))

    def spent(self, film):
        return cpu_of_process(self.server.process.pid) + (cpu_of_process(film.pid) if film else 0)

    def film(self, *what):
        return [self.actor, "film", *what]

    def gstreamer(self, size, area=None):
        crop = area and [f"startx={area[0]}", f"starty={area[1]}", f"endx={area[0] + area[2] - 1}",
                         f"endy={area[1] + area[3] - 1}"]
        return ["gst-launch-1.0", "-q", "ximagesrc", f"display-name={self.server.name}",
                "show-pointer=true", *(crop or []), "!", "video/x-raw,framerate=30/1", "!",
                "videoconvert", "!", "videoscale", "!",
                f"video/x-raw,format=BGRx,width={size[0]},height={size[1]}", "!", "fakesink"]

    def ffmpeg(self, size):
        return ["ffmpeg", "-loglevel", "quiet", "-f", "x11grab", "-framerate", "30", "-video_size",
                "1920x1080", "-draw_mouse", "1", "-i", self.server.name, "-vf",
                f"scale={size[0]}:{size[1]}", "-pix_fmt", "bgr0", "-progress", "pipe:1", "-f",
                "null", "-"]

    def compare(self, *commands):
        """The medians of the commands' costs in turns, less what is spent without any."""
        costs = [[] for _ in commands]
        for _ in range(ROUNDS):
            idle = self.cost(None)
            for values, command in zip(costs, commands):
                values.append(self.cost(command) - idle)
        return [max(statistics.median(values), 0) for values in costs]


def rows(build):
    reason = missing("Xvfb", "gst-launch-1.0", "ffmpeg")
    if reason:
        yield Skip("filming a screen", reason)
        return
    stage = Stage(build)
    try:
        yield from measured(stage)
    finally:
        stage.end()


def measured(stage):
    hd = (1280, 720)
    stage.play("move", "8")
    ours, gstreamer, ffmpeg = stage.compare(stage.film("area", 0, 0, 1920, 1080, *hd),
                                            stage.gstreamer(hd), stage.ffmpeg(hd))
    what = "a second of film: 1080p with 8 moving windows, to 720p"
    yield Row(what, ours, "ximagesrc", gstreamer, 1.1)
    yield Row(what, ours, "x11grab", ffmpeg, 0.15)

    area = (400, 100, 390, 844)
    ours, gstreamer = stage.compare(stage.film("area", *area, 590, 1280),
                                    stage.gstreamer((590, 1280), area))
    yield Row("a second of film: 390x844 of it, to 590x1280", ours, "ximagesrc", gstreamer)

    ours, gstreamer = stage.compare(stage.film("display", *hd), stage.gstreamer(hd))
    yield Row("a second of film: the whole display, to 720p", ours, "ximagesrc", gstreamer)

    stage.play("blink")
    ours, gstreamer = stage.compare(stage.film("area", 0, 0, 1920, 1080, *hd), stage.gstreamer(hd))
    yield Row("a second of film: only 100x30 change", ours, "ximagesrc", gstreamer, 0.25)

    stage.play()
    ours, gstreamer = stage.compare(stage.film("area", 0, 0, 1920, 1080, *hd), stage.gstreamer(hd))
    yield Row("a second of film: nothing changes", ours, "ximagesrc", gstreamer, 0.05)

    if os.getloadavg()[0] > os.cpu_count():
        yield Skip("from a changed pixel to the feed", "the machine is busy with something else")
    else:
        delays = sorted(stage.ask("latency", 200))
        yield limit("from a changed pixel to the feed, median", statistics.median(delays), 0.005)
        yield limit("from a changed pixel to the feed, 95 % within",
                    delays[len(delays) * 95 // 100], 0.010)

    [resting] = stage.ask("follow", 400, 0)
    [moving] = stage.ask("follow", 400, 1)
    yield limit("following a window at rest, 4 times a second: share of a core", resting * 4, 0.001,
                "")
    yield limit("following a window that moves, 30 times a second: share of a core", moving * 30,
                0.001, "")
