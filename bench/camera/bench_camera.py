"""An application that takes frames from the camera: what it costs and how late they are."""

import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import threading
import time

import rows as measuring

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "injector"))
from feed import Feed, now, solid  # noqa: E402

FRAMES = 450
LEVELS = 10
# That of the camera, whose moments move towards those at which frames are published.
PERIOD = 1 / 30


class Writer(threading.Thread):
    """Publishes frames whose brightness tells one from the next."""

    def __init__(self, feed):
        super().__init__(daemon=True)
        self.feed = feed
        self.pictures = [solid(1280, 960, (20 * level + 20,) * 3) for level in range(LEVELS)]
        self.published = []
        self.done = threading.Event()

    def run(self):
        due = time.monotonic()
        while not self.done.is_set():
            number = len(self.published)
            self.feed.write(1280, 960, self.pictures[number % LEVELS])
            self.published.append(now())
            due += PERIOD
            self.done.wait(max(0.0, due - time.monotonic()))


def level_of(luma):
    """Which of the pictures has this luma, in limited range."""
    return round(((luma - 16) * 255 / 219 - 20) / 20)


def latencies(taken, published):
    """Seconds from a frame's publication to the first picture that shows it."""
    late, before = [], None
    for time_taken, luma in taken:
        level = level_of(luma)
        if level == before:
            continue
        times = [at for at in published[level::LEVELS] if at <= time_taken]
        if before is not None and times:
            late.append((time_taken - times[-1]) / 1e9)
        before = level
    return sorted(late)


def lines_of(*command):
    """What a program prints, in numbers."""
    result = subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True)
    return [tuple(map(float, line.split())) for line in result.stdout.splitlines()]


def rows(build):
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-", dir="/dev/shm") as folder:
        feed = Feed(os.path.join(folder, "feed.shm"))
        writer = Writer(feed)
        writer.start()
        peer = [build / "bench" / "copying-client", str(FRAMES // 2), feed.path]
        try:
            copies = lines_of(*peer)
            *frames, (cpu, elapsed) = lines_of(
                build / "lenslark-run", "--feed", feed.path, "--",
                build / "bench" / "camera-client", str(FRAMES))
            copies += lines_of(*peer)
        finally:
            writer.done.set()
            writer.join()
            feed.close()
    late = latencies([(taken, luma) for taken, luma, _ in frames], writer.published)
    yield measuring.limit("a stream from the camera, 1280x960 YU12 at 30 a second",
                          100 * cpu / elapsed, 3.0, "% of a core")
    yield measuring.Row("a frame of that stream",
                        statistics.median(spent for _, _, spent in frames) / 1e9,
                        "a safe copy of the frame and libyuv at the same pace",
                        statistics.median(spent for spent, in copies) / 1e9, 1.3)
    yield measuring.limit("a frame published to the frame taken, elapsed",
                          late[len(late) // 2], 1 / 30)
    yield measuring.limit("the same, 95 of 100 frames are sooner", late[len(late) * 95 // 100],
                          1 / 30)
