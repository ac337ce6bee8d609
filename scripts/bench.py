#!/usr/bin/env python3
"""Runs every benchmark program of a build and prints one table.

usage: bench.py BUILD_DIRECTORY

Rows of the Google Benchmark programs show the CPU time of one iteration. A benchmark that sets the
counter "ratio" is measured beside its peer in the same run; "limit" is the ratio it must keep
within. The rows at the end time the program itself, from outside.
"""

import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tests" / "e2e"))
import framefile  # noqa: E402
from lenslark import Lenslark, eventually  # noqa: E402


def duration(seconds):
    for unit, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if seconds >= scale:
            return f"{seconds / scale:.3g} {unit}"
    return f"{seconds * 1e9:.3g} ns"


class Table:
    def __init__(self):
        self.rows = []
        self.missed = 0

    def add(self, name, value, peer="", ratio=None, limit=None):
        verdict = ""
        if ratio is not None and limit is not None:
            verdict = "ok" if ratio <= limit else "MISSED"
            self.missed += verdict == "MISSED"
        self.rows.append((name, value, peer, f"{ratio:.2f}" if ratio is not None else "",
                          f"{limit:g}" if limit is not None else "", verdict))

    def print(self):
        head = ("what", "measured", "beside", "ratio", "limit", "")
        widths = [max(len(row[i]) for row in [head, *self.rows]) for i in range(len(head))]
        for row in [head, *self.rows]:
            print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def run_programs(build, table):
    units = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}
    environment = {**os.environ, "LENSLARK_MODULE_DIR": str(build)}
    for program in sorted((build / "bench").glob("bench-*")):
        if program.name == "bench-trivial-program" or not os.access(program, os.X_OK):
            continue
        print(f"running {program.name}", file=sys.stderr)
        result = subprocess.run([program, "--benchmark_format=json"], stdout=subprocess.PIPE,
                                env=environment, check=True)
        for entry in json.loads(result.stdout)["benchmarks"]:
            if entry.get("error_occurred"):
                table.add(entry["name"], "failed: " + entry["error_message"])
                table.missed += 1
                continue
            cost = entry["cpu_time"] * units[entry["time_unit"]]
            table.add(entry["name"], duration(cost), entry.get("label", ""), entry.get("ratio"),
                      entry.get("limit"))


def start_time(command, runs=60):
    """CPU time of one run of a short program, the median of many."""
    costs = []
    for _ in range(runs):
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
        _, _, usage = os.wait4(process.pid, 0)
        process.returncode = 0
        costs.append(usage.ru_utime + usage.ru_stime)
    return statistics.median(costs)


def wall_time(command, runs=60):
    costs = []
    for _ in range(runs):
        begin = time.perf_counter()
        subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
        costs.append(time.perf_counter() - begin)
    return statistics.median(costs)


def measure_start(build, table):
    ours = [str(build / "lenslark"), "version"]
    trivial = [str(build / "bench" / "bench-trivial-program")]
    wall_time(trivial, 5), wall_time(ours, 5)
    mine, theirs = wall_time(ours), wall_time(trivial)
    table.add("lenslark version, start to end", duration(mine),
              f"a program that prints a line: {duration(theirs)}", mine / theirs, 2.0)
    mine, theirs = start_time(ours), start_time(trivial)
    table.add("lenslark version, CPU", duration(mine),
              f"a program that prints a line: {duration(theirs)}", mine / max(theirs, 1e-6))


def measure_serve(build, table, runs=15):
    first, changed = [], []
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-") as folder:
        program = Lenslark(build / "lenslark", pathlib.Path(folder))
        pictures = [program.folder / f"{name}.png" for name in ("red", "green")]
        for picture, colour in zip(pictures, ((255, 0, 0), (0, 255, 0))):
            framefile.write_png(picture, 64, 48, bytes(colour) * 64 * 48)

        for _ in range(runs):
            program.feed.unlink(missing_ok=True)
            begin = time.perf_counter()
            with program.serve("--test-pattern", wait=False):
                eventually(lambda: framefile.latest(program.feed), pause=0.0005)
                first.append(time.perf_counter() - begin)
        table.add("serve --test-pattern to its first frame", duration(statistics.median(first)),
                  "limit 150 ms", statistics.median(first) / 0.150, 1.0)

        ids = [program.import_media(picture) for picture in pictures]
        program.set_global({"kind": "image", "mediaId": ids[0]})
        with program.serve():
            eventually(lambda: framefile.latest(program.feed))
            for turn in range(1, runs + 1):
                before = framefile.latest(program.feed).pixel(0, 0)
                begin = time.perf_counter()
                program.set_global({"kind": "image", "mediaId": ids[turn % 2]})
                eventually(lambda: framefile.latest(program.feed).pixel(0, 0) != before,
                           pause=0.0005)
                changed.append(time.perf_counter() - begin)
        table.add("changed setting to changed frame", duration(statistics.median(changed)),
                  "limit 100 ms", statistics.median(changed) / 0.100, 1.0)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    build = pathlib.Path(sys.argv[1]).resolve()
    table = Table()
    run_programs(build, table)
    measure_start(build, table)
    measure_serve(build, table)
    print()
    table.print()
    return 1 if table.missed else 0


if __name__ == "__main__":
    sys.exit(main())
