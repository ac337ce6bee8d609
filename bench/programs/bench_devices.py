"""Beside simulators that a stand-in for simctl makes up: how soon a feed goes, what a hundred
cameras that stand still cost, what a command adds to the tool it calls, and the health check."""

import contextlib
import pathlib
import statistics
import tempfile
import time

import framefile
from bench_serve import solid
from devicebench import fresh_udid
from lenslark import Lenslark, eventually
from rows import Skip, cpu_of, cpu_of_process, limit, medians, wall_of
from standins import Simulators, Tool

STILL_FEEDS = 100
WATCHED = 20  # seconds
VANISHINGS = 3
ROUNDS = 25


def feed(udid):
    return pathlib.Path(f"/tmp/lenslark-sim-{udid}.shm")


@contextlib.contextmanager
def serving(program, simulators, udids, *arguments):
    """`serve`, with a frame in the feed of each of these simulators."""
    simulators.booted([(udid, f"iPhone {number}") for number, udid in enumerate(udids)])
    try:
        with program.serve(*arguments, prefix=simulators.prefix) as process:
            for udid in udids:
                eventually(lambda udid=udid: framefile.latest(feed(udid)), deadline=60)
            yield process
    finally:
        for udid in udids:
            feed(udid).unlink(missing_ok=True)


def vanished(program, simulators):
    """Seconds from the call of simctl that no longer names a device to the end of its feed."""
    times = []
    for _ in range(VANISHINGS):
        udid = fresh_udid()
        with serving(program, simulators, [udid], "--test-pattern"):
            simulators.booted([])
            known = len(simulators.calls())
            eventually(lambda: len(simulators.calls()) > known, pause=0.0005)
            begin = time.perf_counter()
            eventually(lambda: not feed(udid).exists(), pause=0.0005)
            times.append(time.perf_counter() - begin)
    return statistics.median(times)


def still_feeds(program, simulators):
    """The share of a core that a hundred still cameras take, in percent."""
    picture = solid(program.folder / "still.png", (10, 200, 30), (640, 480))
    with serving(program, simulators, [fresh_udid() for _ in range(STILL_FEEDS)], "--image",
                 picture) as process:
        before = cpu_of_process(process.pid)
        begin = time.perf_counter()
        time.sleep(WATCHED)
        busy = cpu_of_process(process.pid) - before
        return 100 * busy / (time.perf_counter() - begin)


def enable(program, simulators):
    """What `ios enable` takes beyond the call of simctl that it makes."""
    simulators.answers("exit 0")
    injector = program.environment["LENSLARK_INJECT_DYLIB"]
    call = ["/usr/bin/xcrun", "simctl", "spawn", "booted", "launchctl", "setenv",
            "DYLD_INSERT_LIBRARIES", injector]
    for name, measure in (("elapsed", wall_of), ("CPU", cpu_of)):
        ours, peer = medians(
            ROUNDS,
            lambda m=measure: m([*simulators.prefix, program.program, "ios", "enable"],
                                env=program.environment),
            lambda m=measure: m([*simulators.prefix, *call], env=program.environment))
        yield limit(f"ios enable beyond its call of simctl, {name}", ours - peer, 0.005)


def doctor(program, simulators):
    """The health check beside twenty simulators that are fed."""
    environment = {**program.environment, "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nowhere"}
    udids = [fresh_udid() for _ in range(20)]
    with serving(program, simulators, udids, "--test-pattern"):
        command = [*simulators.prefix, program.program, "doctor"]
        for name, measure in (("elapsed", wall_of), ("CPU", cpu_of)):
            [ours] = medians(10, lambda m=measure: m(command, env=environment))
            yield limit(f"doctor with 20 devices, {name}", ours, 0.300)


def rows(build):
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-") as folder:
        program = Lenslark(build / "lenslark", folder)
        simulators = Simulators(pathlib.Path(folder) / "simulators")
        if not simulators.works():
            yield Skip("cameras of simulators", "no private mounts here")
            return
        ps = simulators.farm / "ps"
        ps.unlink(missing_ok=True)
        Tool(program.folder / "ps", ps)
        for variable, name in (("LENSLARK_INJECT_DYLIB", "LenslarkInject.dylib"),
                               ("LENSLARK_EMU_INJECT_DYLIB", "LenslarkEmuInject.dylib")):
            (program.folder / name).touch()
            program.environment[variable] = str(program.folder / name)
        yield limit("a device vanished: from the scan to the end of its feed, elapsed",
                    vanished(program, simulators), 0.100)
        yield limit(f"{STILL_FEEDS} feeds of a still picture", still_feeds(program, simulators),
                    0.5, "% of a core")
        yield from doctor(program, simulators)
        yield from enable(program, simulators)
