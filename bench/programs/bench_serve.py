"""The running program: its first frame, a change of settings, and cameras that stand still."""

import statistics
import tempfile
import time

import framefile
import rows as measuring
from lenslark import Lenslark, eventually

RUNS = 15
PAUSE = 0.0005


def solid(path, colour, size=(64, 48)):
    framefile.write_png(path, *size, bytes(colour) * (size[0] * size[1]))
    return path


def first_frame(program):
    times = []
    for _ in range(RUNS):
        program.feed.unlink(missing_ok=True)
        begin = time.perf_counter()
        with program.serve("--test-pattern", wait=False):
            eventually(lambda: framefile.latest(program.feed), pause=PAUSE)
            times.append(time.perf_counter() - begin)
    return statistics.median(times)


def changed_frame(program):
    """From a setting that another process saved to the frame in the file."""
    times = []
    ids = [program.import_media(solid(program.folder / f"{name}.png", colour))
           for name, colour in (("red", (255, 0, 0)), ("green", (0, 255, 0)))]
    program.set_global({"kind": "image", "mediaId": ids[0]})
    with program.serve():
        eventually(lambda: framefile.latest(program.feed))
        for turn in range(1, RUNS + 1):
            before = framefile.latest(program.feed).pixel(0, 0)
            begin = time.perf_counter()
            program.set_global({"kind": "image", "mediaId": ids[turn % 2]})
            eventually(lambda: framefile.latest(program.feed).pixel(0, 0) != before, pause=PAUSE)
            times.append(time.perf_counter() - begin)
    return statistics.median(times)


def end(program):
    """From Ctrl-C to the end, all feeds closed."""
    times = []
    for _ in range(RUNS):
        with program.serve("--test-pattern", ends=False) as serving:
            eventually(lambda: framefile.latest(program.feed))
            begin = time.perf_counter()
            serving.interrupt()
            serving.wait()
            times.append(time.perf_counter() - begin)
        assert program.header().writer_pid == 0
    return max(times)


def rows(build):
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-") as folder:
        program = Lenslark(build / "lenslark", folder)
        yield measuring.limit("serve --test-pattern to its first frame, elapsed",
                              first_frame(program), 0.150)
        yield measuring.limit("a saved setting to the changed frame, elapsed",
                              changed_frame(program), 0.100)
        yield measuring.limit("serve, Ctrl-C to its end, the longest, elapsed", end(program), 1.0)
