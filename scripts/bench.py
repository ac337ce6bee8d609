#!/usr/bin/env python3
"""Runs the benchmarks of a build and prints one table.

usage: bench.py [--markdown] [--only WORD]... BUILD_DIRECTORY

Each row has what is measured, ours, the peer or limit beside it in the same run, their ratio, the
largest ratio that passes, and "pass" or "short". Times are CPU time and medians unless the row says
otherwise. A row that cannot be measured here is skipped with a reason. --only runs the drivers whose
name contains a word; --markdown prints the table as docs/performance.md holds it.

A driver is a Google Benchmark program of the build that reports rows through bench/support/Row.h, or
a module bench/*/bench_NAME.py as bench/support/rows.py describes. Where bubblewrap works they see a
/tmp of their own, so that they neither meet nor touch anybody's feeds.
"""

import argparse
import contextlib
import importlib
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / "tests" / "e2e"), str(ROOT / "bench" / "support")]
sys.dont_write_bytecode = True
from rows import Row, Skip  # noqa: E402
from run import private_prefix  # noqa: E402

HEAD = ("what", "ours", "beside", "", "ratio", "target", "")


def program_rows(build, program):
    """The rows of a Google Benchmark program."""
    result = subprocess.run([program, "--benchmark_format=json"], stdout=subprocess.PIPE,
                            env={**os.environ, "LENSLARK_MODULE_DIR": str(build)}, check=True)
    for entry in json.loads(result.stdout)["benchmarks"]:
        if entry.get("error_occurred"):
            kind, what, reason = entry["error_message"].split("|", 2)
            if kind != "skip":
                raise RuntimeError(entry["error_message"])
            yield Skip(what, reason)
            continue
        what, peer, unit = entry["label"].split("|")
        yield Row(what, entry["ours"], peer, entry["peer"], entry["target"], unit)


def module_rows(build, path):
    """The rows of a driver in Python."""
    if str(path.parent) not in sys.path:
        sys.path.append(str(path.parent))
    yield from importlib.import_module(path.stem).rows(build)


def drivers(build):
    """Name and rows of each driver."""
    for program in sorted((build / "bench").glob("bench-*")):
        if program.name != "bench-trivial-program" and os.access(program, os.X_OK):
            yield program.name, lambda program=program: program_rows(build, program)
    for path in sorted((ROOT / "bench").glob("*/bench_*.py")):
        yield path.stem, lambda path=path: module_rows(build, path)


def quantity(value, unit):
    if unit != "s":
        return f"{value:.3g} {unit}".rstrip()
    for name, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if abs(value) >= scale:
            return f"{value / scale:.3g} {name}"
    return f"{value * 1e9:.3g} ns" if value else "0"


def cells(row):
    if isinstance(row, Skip):
        return (row.what, "", "", "", "", "", f"skipped: {row.reason}")
    ratio = "" if row.ratio is None else f"{row.ratio:.2f}"
    target, verdict = (f"{row.target:g}", "pass" if row.passes else "short") if row.target else ("", "")
    return (row.what, quantity(row.ours, row.unit), row.peer, quantity(row.beside, row.unit), ratio,
            target, verdict)


def text_table(rows):
    table = [HEAD, *map(cells, rows)]
    widths = [max(len(line[i]) for line in table) for i in range(len(HEAD) - 1)] + [0]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in table)


def markdown_table(rows):
    table = [HEAD, ("---",) * len(HEAD), *map(cells, rows)]
    return "\n".join(f"| {' | '.join(line)} |" for line in table)


def measure(build, words):
    """All rows, and what failed to measure."""
    rows, failures = [], []
    for name, measured in drivers(build):
        if words and not any(word in name for word in words):
            continue
        print(f"running {name}", file=sys.stderr)
        try:
            rows.extend(measured())
        except Exception as error:  # noqa: BLE001: one driver that fails must not cost the others
            failures.append(f"{name} failed: {error!r}")
    return rows, failures


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--markdown", action="store_true")
    parser.add_argument("--only", action="append", default=[])
    parser.add_argument("build", type=pathlib.Path)
    options = parser.parse_args()
    build = options.build.resolve()
    if "LENSLARK_PRIVATE_TMP" not in os.environ:
        with contextlib.suppress(PermissionError):
            os.nice(-15)  # so that other work on the machine disturbs the elapsed times less
        prefix = private_prefix(build)
        os.environ["LENSLARK_PRIVATE_TMP"] = "1" if prefix else ""
        os.environ.pop("TMPDIR", None)
        command = [*prefix, sys.executable, *sys.argv]
        os.execvp(command[0], command)

    busy = os.getloadavg()[0]
    rows, failures = measure(build, options.only)
    print(f"\n{os.cpu_count()} processors, load {busy:.1f} before and {os.getloadavg()[0]:.1f} after\n")
    print((markdown_table if options.markdown else text_table)(rows))
    promised = [row for row in rows if isinstance(row, Row) and row.target]
    skipped = sum(isinstance(row, Skip) for row in rows)
    short = sum(not row.passes for row in promised)
    print(f"\n{len(promised)} targets: {len(promised) - short} pass, {short} short; "
          f"{skipped} rows skipped")
    print("\n".join(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
