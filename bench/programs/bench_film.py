"""A film that `serve` plays: how late its pictures are in the feed."""

import os
import pathlib
import statistics
import subprocess
import tempfile
import time

import framefile
from lenslark import Lenslark, eventually
from rows import Skip, limit, missing

FPS = 30
SECONDS = 22
ROUNDS = 3
BITS = 10
SIDE = 64  # of the squares that a picture's number is written in
SIZE = (1920, 1080)


def numbered(path):
    """Moving pictures. Square n at the top left is white where bit n of the number is set."""
    squares = [f"drawbox=w={BITS * SIDE}:h={SIDE}:color=black:t=fill"]
    squares += [f"drawbox=x={bit * SIDE}:w={SIDE}:h={SIDE}:color=white:t=fill:"
                f"enable='bitand(n,{1 << bit})'" for bit in range(BITS)]
    subprocess.run(
        ["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
         f"testsrc2=size={SIZE[0]}x{SIZE[1]}:rate={FPS}:duration={SECONDS},{','.join(squares)}",
         "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt", "yuv420p", str(path)],
        stdin=subprocess.DEVNULL, check=True)
    return path


def number_in(feed, header):
    slot = header.data_offset + (header.front_slot & 1) * header.slot_capacity
    row = slot + SIDE // 2 * header.front.bytes_per_row
    return sum((os.pread(feed, 1, row + (bit * SIDE + SIDE // 2) * 4)[0] > 127) << bit
               for bit in range(BITS))


def watch(feed):
    """When each picture of one pass was published, by its number."""
    published = {}
    last = None
    while True:
        header = framefile.read_header(feed)
        slot = header.front
        if slot.timestamp != last and slot.seq % 2 == 0:
            number = number_in(feed, header)
            if framefile.read_header(feed).slots[header.front_slot & 1].seq == slot.seq:
                last = slot.timestamp
                if published and number < max(published):
                    return published
                published[number] = slot.timestamp / 1e9
        time.sleep(0.004)


def lateness(published):
    """How long after its time each picture came, in rising order, counted from the picture that
    was published the soonest after its time."""
    begins = {number: when - number / FPS for number, when in published.items()}
    return sorted(begin - min(begins.values()) for begin in begins.values())


def play(program, film):
    """The 99th of 100 latenesses, and how many pictures were left out."""
    with program.serve("--video", film):
        eventually(lambda: framefile.latest(program.feed))
        with open(program.feed, "rb") as feed:
            published = watch(feed.fileno())
    late = lateness(published)
    # The first pictures may have gone by before the feed was looked at.
    return late[len(late) * 99 // 100], max(published) - min(published) + 1 - len(published)


def rows(build):
    what = f"{SECONDS} seconds of 1080p30 H.264"
    if reason := missing("ffmpeg"):
        yield Skip(what, reason)
        return
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-", dir="/dev/shm") as folder:
        film = numbered(pathlib.Path(folder) / "film.mp4")
        program = Lenslark(build / "lenslark", folder)
        late, left_out = map(statistics.median,
                             zip(*(play(program, film) for _ in range(ROUNDS))))
        yield limit(f"{what}: 99 of 100 pictures are no later than, elapsed", late, 0.005)
        yield limit(f"{what}: pictures left out", left_out, 0, "")
