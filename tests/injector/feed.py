"""Writes frame files as docs/frame-file.md describes them, by its own means."""
import mmap
import os
import struct
import threading
import time

MAGIC = b"LLF1"
OFFSET = 4096


def now():
    return time.clock_gettime_ns(time.CLOCK_MONOTONIC)


def solid(width, height, bgr):
    """A frame of one colour."""
    return bytes((*bgr, 255)) * (width * height)


def halves(width, height, left, right):
    """A frame of two colours, side by side."""
    row = bytes((*left, 255)) * (width // 2) + bytes((*right, 255)) * (width - width // 2)
    return row * height


class Feed:
    """One frame file. With beat=True a thread keeps its heartbeat fresh until close()."""

    def __init__(self, path, max_width=1280, max_height=960, fill=False, beat=True):
        self.path = path
        self.capacity = max_width * max_height * 4
        self.size = OFFSET + 2 * self.capacity
        descriptor = os.open(path, os.O_RDWR | os.O_CREAT, 0o600)
        os.ftruncate(descriptor, self.size)
        self.map = mmap.mmap(descriptor, self.size)
        os.close(descriptor)
        self.put(0, "4sI", MAGIC, 2)
        self.put(8, "IIII", 0, 0, 0, 1 if fill else 0)
        self.put(40, "QIIQ", 0, os.getpid(), OFFSET, self.capacity)
        self.put(64, "IIII", 0, 0, 0, 0)
        self.counters = [0, 0]
        for slot in (0, 1):
            self.put(80 + 32 * slot, "QQIIII", 0, 0, 0, 0, 0, 0)
        self.stop = threading.Event()
        self.thread = None
        if beat:
            self.beat()
            self.thread = threading.Thread(target=self.keep_alive, daemon=True)
            self.thread.start()

    def put(self, offset, layout, *values):
        struct.pack_into("<" + layout, self.map, offset, *values)

    def beat(self):
        self.put(40, "Q", now())

    def keep_alive(self):
        while not self.stop.wait(0.3):
            self.beat()

    def write(self, width, height, pixels):
        front = struct.unpack_from("<I", self.map, 68)[0] & 1
        slot = 1 - front
        at = 80 + 32 * slot
        self.counters[slot] += 1
        self.put(at, "Q", self.counters[slot])
        start = OFFSET + slot * self.capacity
        self.map[start:start + len(pixels)] = pixels
        self.put(at + 8, "QIIII", now(), width, height, width * 4, 0)
        self.counters[slot] += 1
        self.put(at, "Q", self.counters[slot])
        self.beat()
        self.put(68, "I", slot)

    def end_beat(self):
        """As when the writer is killed."""
        self.stop.set()
        if self.thread:
            self.thread.join()

    def close(self):
        self.end_beat()
        self.put(48, "I", 0)
        self.map.close()
