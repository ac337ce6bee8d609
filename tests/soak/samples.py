"""What can be seen of a running `serve` from outside, second by second."""

import os
import pathlib
import struct
import time

import framefile

FIELDS = ("second", "load", "cpu", "descriptors", "threads", "resident", "own", "shared", "children",
          "devices", "display", "feeds", "temporary", "leftovers", "frames", "late", "blind",
          "standing")

HEARTBEAT = struct.Struct("<Q")
HEARTBEAT_AT, WRITER_AT, CONTENT_AT, SLOTS_AT, SLOT_SIZE = 40, 48, 64, 80, 32
MOVING = (framefile.VIDEO, framefile.PATTERN)
BEAT = 0.5  # a feed's heartbeat comes at least this often
LOOK = 0.02
TICKS = os.sysconf("SC_CLK_TCK")


def feeds():
    """The feed files of devices, and whatever else of that name lies in /tmp."""
    return {str(path) for path in pathlib.Path("/tmp").glob("lenslark-*")}


class Process:
    """A process's descriptors, threads, memory (kB) and processor time (percent of one core)."""

    def __init__(self, pid):
        self.folder = pathlib.Path(f"/proc/{pid}")
        self.pid = pid
        self.ticks, self.at = self.used(), time.monotonic()

    def used(self):
        fields = (self.folder / "stat").read_text().rpartition(")")[2].split()
        return int(fields[11]) + int(fields[12])

    def sample(self):
        status = dict(line.split(":", 1)
                      for line in (self.folder / "status").read_text().splitlines())
        kilobytes = {name: int(status[name].split()[0])
                     for name in ("VmRSS", "RssAnon", "RssShmem", "RssFile")}
        before, ticks, then, now = self.ticks, self.used(), self.at, time.monotonic()
        self.ticks, self.at = ticks, now
        children = (self.folder / "task" / str(self.pid) / "children").read_text().split()
        return {"cpu": round(100 * (ticks - before) / TICKS / (now - then), 1),
                "descriptors": len(os.listdir(self.folder / "fd")),
                "threads": int(status["Threads"]),
                "resident": kilobytes["VmRSS"], "own": kilobytes["RssAnon"],
                "shared": kilobytes["RssShmem"] + kilobytes["RssFile"],
                "children": len(children)}


class HeartbeatWatch:
    """Looks at every feed's heartbeat many times a second.

    The time is taken before the look: where the watcher itself is held up in between, an age comes
    out smaller, never larger. `blind` tells the longest time between two looks, `standing` the
    longest for which a feed that says it shows a film or a pattern has had no new frame.
    """

    def __init__(self, watched):
        self.watched = watched
        self.born = {}
        self.frames = {}
        self.moved = {}
        self.last_look = time.monotonic()
        self.clear()

    def clear(self):
        self.age = self.blind = self.stood = 0.0
        self.published = 0

    def watch_until(self, end):
        while (now := time.monotonic()) < end:
            self.look(now)
            time.sleep(min(LOOK, max(0, end - time.monotonic())))

    def look(self, now):
        self.blind = max(self.blind, now - self.last_look)
        self.last_look = now
        paths = self.watched()
        self.born = {path: born for path, born in self.born.items() if path in paths}
        for path in paths:
            self.look_at(path, time.clock_gettime(time.CLOCK_MONOTONIC))

    def look_at(self, path, now):
        try:
            with open(path, "rb", buffering=0) as file:
                inode = os.fstat(file.fileno()).st_ino
                header = file.read(SLOTS_AT + 2 * SLOT_SIZE)
        except FileNotFoundError:
            return
        if len(header) < SLOTS_AT + 2 * SLOT_SIZE:
            return
        alive = int.from_bytes(header[WRITER_AT:WRITER_AT + 4], "little") != 0
        beat = HEARTBEAT.unpack_from(header, HEARTBEAT_AT)[0] / 1e9
        if not alive:
            return
        _, born = self.born.setdefault(path, (inode, now))
        # A new feed has not beaten yet: it has the time of one beat from when it was first seen.
        self.age = max(self.age, now - (beat or born))
        counters = sum(HEARTBEAT.unpack_from(header, SLOTS_AT + n * SLOT_SIZE)[0] // 2
                       for n in range(2))
        before = self.frames.get((path, inode))
        if before is not None and counters > before:
            self.published += counters - before
        kind = int.from_bytes(header[CONTENT_AT:CONTENT_AT + 4], "little")
        if counters != before or kind not in MOVING:
            self.moved[path] = now
        self.stood = max(self.stood, now - self.moved[path])
        self.frames[path, inode] = counters

    def sample(self):
        result = {"feeds": len(self.born), "frames": self.published,
                  "late": round(max(0.0, self.age - BEAT) * 1000), "blind": round(self.blind * 1000),
                  "standing": round(self.stood * 1000)}
        self.clear()
        return result
