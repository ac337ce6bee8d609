"""Rows of the benchmarks' table, and what the drivers in Python measure them with.

A driver is a module bench/*/bench_NAME.py with a function `rows(build)`, which yields a Row or a
Skip for each thing it measures; `build` is the build directory. scripts/bench.py finds it.
"""

import dataclasses
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "e2e"))


@dataclasses.dataclass
class Row:
    """What ours costs beside its peer, or beside a limit, and the ratio it must keep within."""

    what: str
    ours: float
    peer: str
    beside: float  # what the peer costs, or the limit
    target: float = 1.0  # 0: nothing is promised
    unit: str = "s"

    @property
    def ratio(self):
        return self.ours / self.beside if self.beside else None

    @property
    def passes(self):
        return not self.target or self.ours <= self.beside * self.target


@dataclasses.dataclass
class Skip:
    """A row that cannot be measured here, and why."""

    what: str
    reason: str


def limit(what, ours, limit, unit="s"):
    """A row whose peer is a fixed limit."""
    return Row(what, ours, "limit", limit, 1.0, unit)


def missing(*programs):
    """Why a row is skipped that needs these programs; nothing when all are there."""
    absent = [program for program in programs if shutil.which(program) is None]
    return f"{' and '.join(absent)} not installed" if absent else None


def cpu_of(command, **options):
    """CPU seconds of a command and the children it waits for, which must succeed."""
    options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, **options}
    process = subprocess.Popen([str(word) for word in command], **options)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} ended with {process.returncode}")
    return usage.ru_utime + usage.ru_stime


def wall_of(command, **options):
    """Seconds from the start of a command to its end."""
    options = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, **options}
    begin = time.perf_counter()
    subprocess.run([str(word) for word in command], check=True, **options)
    return time.perf_counter() - begin


def medians(rounds, *bodies):
    """The medians of what the bodies return, run in turn after one round to warm up."""
    results = [[] for _ in bodies]
    for body in bodies:
        body()
    for _ in range(rounds):
        for values, body in zip(results, bodies):
            values.append(body())
    return [statistics.median(values) for values in results]


def cpu_of_process(pid):
    """CPU seconds of a running process so far, those of its threads that have ended included."""
    return time.clock_gettime(~pid << 3 | 2)  # what clock_getcpuclockid makes of a process id
