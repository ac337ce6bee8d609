"""The library: the import of something large, and the list of many."""

import hashlib
import json
import os
import struct
import subprocess
import tempfile

from lenslark import Lenslark
from rows import Row, Skip, cpu_of, limit, medians, missing, wall_of

ITEMS = 10_000
SIZE = 1 << 30


def large_film(path):
    """A film of 1 GiB: a short one, and a box that players pass over."""
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-f", "lavfi", "-i",
                    "testsrc=size=640x480:duration=1:rate=10", "-pix_fmt", "yuv420p", path],
                   check=True)
    rest = SIZE - path.stat().st_size
    piece = os.urandom(1 << 20)
    with open(path, "ab") as film:
        film.write(struct.pack(">I4sQ", 1, b"free", rest))
        rest -= 16
        while rest > 0:
            rest -= film.write(piece[:rest])
    return path


def imports(program):
    film = large_film(program.folder / "film.mp4")

    def add():
        return cpu_of([program.program, "media", "add", film], env=program.environment)

    def add_anew():
        program.run("media", "rm", film.name, "--force")
        return add()

    def digest():
        return cpu_of(["openssl", "dgst", "-sha256", film])

    all_of_it, known, peer = medians(3, add_anew, add, digest)
    name = "openssl dgst -sha256"
    yield Row("import of 1 GiB, the hash (what is known already)", known, name, peer, 1.1)
    yield Row("import of 1 GiB, all of it", all_of_it, name, peer, 1.6)
    program.run("media", "rm", film.name, "--force")
    film.unlink()


def write_library(program):
    items = []
    for number in range(ITEMS):
        digest = hashlib.sha256(str(number).encode()).hexdigest()
        items.append({
            "id": f"sha256:{digest}", "kind": "image", "name": f"picture {number}.png",
            "file": f"{digest}.png", "width": 1920, "height": 1080, "pinned": False,
            "addedAt": "2025-05-01T09:30:00Z", "lastUsedAt": "2025-05-01T09:30:00Z"})
    (program.support / "Media").mkdir(parents=True, exist_ok=True)
    (program.support / "Media" / "index.json").write_text(
        json.dumps(items, indent=2, sort_keys=True))


def rows(build):
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-") as folder:
        program = Lenslark(build / "lenslark", folder)
        if reason := missing("openssl", "ffmpeg"):
            yield Skip("import of 1 GiB", reason)
        else:
            yield from imports(program)
        write_library(program)
        command = [program.program, "media", "list"]
        listed = program.run("media", "list").stdout.count(b"\n")
        assert listed == ITEMS, f"{listed} items are listed"
        elapsed, cpu = medians(15, lambda: wall_of(command, env=program.environment),
                               lambda: cpu_of(command, env=program.environment))
        yield limit("media list of 10,000 items, elapsed", elapsed, 0.060)
        yield limit("media list of 10,000 items, CPU", cpu, 0.060)
