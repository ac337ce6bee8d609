"""Frame files, read from nothing but their description: offsets and widths are stated here a second
time, on purpose, so that a slip in the program's own header does not go unseen."""

import dataclasses
import os
import struct
import time
import zlib

HEADER = struct.Struct("<4sIIIIIQQQIIQIIII")
SLOT = struct.Struct("<QQIIII")
SLOTS_AT = 80
PIXELS_AT = 4096
HEADER_SIZE = SLOTS_AT + 2 * SLOT.size
LIVE, STILL, VIDEO, PATTERN = range(4)


@dataclasses.dataclass(frozen=True)
class Slot:
    seq: int
    timestamp: int
    width: int
    height: int
    bytes_per_row: int
    content_kind: int


@dataclasses.dataclass(frozen=True)
class Header:
    magic: bytes
    version: int
    width: int
    height: int
    bytes_per_row: int
    scene_mode: int
    sequence: int
    timestamp: int
    heartbeat: int
    writer_pid: int
    data_offset: int
    slot_capacity: int
    content_kind: int
    front_slot: int
    camera: int
    is_still: int
    slots: tuple

    @classmethod
    def unpack(cls, data):
        slots = tuple(Slot(*SLOT.unpack_from(data, SLOTS_AT + n * SLOT.size)) for n in range(2))
        return cls(*HEADER.unpack_from(data), slots)

    def pack(self):
        values = dataclasses.astuple(self)
        return HEADER.pack(*values[:-1]) + b"".join(SLOT.pack(*slot) for slot in values[-1])

    @property
    def front(self):
        return self.slots[self.front_slot & 1]

    @property
    def heartbeat_age(self):
        return (time.clock_gettime_ns(time.CLOCK_MONOTONIC) - self.heartbeat) / 1e9


@dataclasses.dataclass(frozen=True)
class Frame:
    width: int
    height: int
    content_kind: int
    seq: int
    pixels: bytes = dataclasses.field(repr=False)

    def pixel(self, x, y):
        """(red, green, blue, alpha), the origin at the top left."""
        blue, green, red, alpha = self.pixels[(y * self.width + x) * 4:][:4]
        return red, green, blue, alpha

    def rgb(self):
        """Rows of red, green and blue, as `write_png` takes them."""
        rows = bytearray(self.width * self.height * 3)
        rows[0::3], rows[1::3], rows[2::3] = (self.pixels[n::4] for n in (2, 1, 0))
        return bytes(rows)

    def at(self, x, y):
        """The pixel at fractions of the frame."""
        return self.pixel(int(x * self.width), int(y * self.height))


def header(path):
    """None where there is no frame file (yet)."""
    try:
        with open(path, "rb") as file:
            return read_header(file.fileno())
    except FileNotFoundError:
        return None


def latest(path):
    """The latest whole frame, None where there is none yet."""
    try:
        with open(path, "rb") as file:
            return read_latest(file.fileno())
    except FileNotFoundError:
        return None


def read_header(descriptor):
    data = os.pread(descriptor, HEADER_SIZE, 0)
    if len(data) < HEADER_SIZE or data[:4] != b"LLF1":
        return None
    return Header.unpack(data)


def read_latest(descriptor):
    for _ in range(100):
        before = read_header(descriptor)
        if before is None or before.front.width == 0:
            return None
        slot = before.front
        if slot.seq % 2 == 1:
            continue
        if slot.bytes_per_row != slot.width * 4:
            raise ValueError(f"rows are not tightly packed: {slot}")
        size = slot.bytes_per_row * slot.height
        if size > before.slot_capacity:
            raise ValueError(f"a frame larger than its slot: {slot}")
        pixels = os.pread(descriptor, size,
                          before.data_offset + (before.front_slot & 1) * before.slot_capacity)
        after = read_header(descriptor)
        if after is not None and after.slots[before.front_slot & 1].seq == slot.seq:
            return Frame(slot.width, slot.height, slot.content_kind, slot.seq, pixels)
    raise TimeoutError("the writer never left a frame alone")


def png(width, height, rgb):
    """A PNG file's bytes from tightly packed 8-bit RGB rows."""
    rows = b"".join(b"\0" + rgb[y * width * 3:(y + 1) * width * 3] for y in range(height))
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
            + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


def chunk(kind, data):
    return (struct.pack(">I", len(data)) + kind + data
            + struct.pack(">I", zlib.crc32(kind + data)))


def write_png(path, width, height, rgb):
    with open(path, "wb") as file:
        file.write(png(width, height, rgb))


def corners(width, height, top_left, top_right, bottom_left, bottom_right):
    """RGB rows of a picture with a colour in each quarter: it has no symmetry to hide behind."""
    half = width // 2
    top = bytes(top_left) * half + bytes(top_right) * (width - half)
    bottom = bytes(bottom_left) * half + bytes(bottom_right) * (width - half)
    return top * (height // 2) + bottom * (height - height // 2)
