"""What short commands take from start to end, beside a program that does nothing."""

import pathlib
import re
import statistics
import subprocess
import tempfile

import framefile
from lenslark import Lenslark
from rows import Row, cpu_of, limit, wall_of

ROUNDS = 40
CODECS = re.compile(r"lib(av|sw|vips|pango|cairo|poppler|gdk_pixbuf|heif|jxl)|lenslark-(image|video)")


def beside_trivial(program, trivial, arguments, what, target, prepare=None):
    """Rows for one command: wall-clock time and CPU time, the two programs in turn."""
    command = [program.program, *arguments]
    values = {(measure, own): [] for measure in (wall_of, cpu_of) for own in (True, False)}
    for _ in range(ROUNDS):
        for measure in (wall_of, cpu_of):
            if prepare:
                prepare()
            values[measure, True].append(measure(command, env=program.environment))
            values[measure, False].append(measure([trivial], env=program.environment))
    median = {key: statistics.median(found) for key, found in values.items()}
    peer = "a trivial C++ program"
    yield Row(f"{what}, start to end", median[wall_of, True], peer, median[wall_of, False], target)
    yield Row(f"{what}, CPU", median[cpu_of, True], peer, median[cpu_of, False], target)


def mapped_codecs(program, arguments):
    """How many codec libraries a command loads, as the dynamic linker tells."""
    result = subprocess.run([program.program, *arguments], stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, check=True, text=True,
                            env={**program.environment, "LD_DEBUG": "files"})
    loaded = re.findall(r"calling init: (\S+)", result.stderr)
    assert any("libstdc++" in path for path in loaded), "the dynamic linker does not tell"
    return len([path for path in loaded if CODECS.search(pathlib.Path(path).name)])


def rows(build):
    trivial = build / "bench" / "bench-trivial-program"
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-") as folder:
        program = Lenslark(build / "lenslark", folder)
        pictures = []
        for name, colour in (("red", (255, 0, 0)), ("green", (0, 255, 0))):
            path = program.folder / f"{name}.png"
            framefile.write_png(path, 64, 48, bytes(colour) * 64 * 48)
            program.import_media(path)
            pictures.append(path)

        yield from beside_trivial(program, trivial, ["version"], "lenslark version", 2)
        yield limit("codec libraries mapped by version", mapped_codecs(program, ["version"]), 0, "")

        get = ["source", "get"]
        timed = list(beside_trivial(program, trivial, get, "source get", 4))
        yield from timed
        yield limit("source get, start to end", timed[0].ours, 0.003)
        yield limit("codec libraries mapped by source get", mapped_codecs(program, get), 0, "")

        turn = 0

        def set_image():
            nonlocal turn
            turn += 1
            return ["source", "set", "image", str(pictures[turn % 2])]

        walls = [wall_of([program.program, *set_image()], env=program.environment)
                 for _ in range(ROUNDS)]
        yield limit("source set of a known image, start to end", statistics.median(walls), 0.015)
        yield limit("codec libraries mapped by source set of a known image",
                    mapped_codecs(program, set_image()), 0, "")
