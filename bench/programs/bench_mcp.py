"""The server for agents: its start, many calls in a row, and pictures of a feed."""

import contextlib
import json
import os
import pathlib
import random
import re
import statistics
import subprocess
import tempfile
import time

import framefile
from devicebench import fresh_udid
from lenslark import Lenslark
from rows import Skip, cpu_of_process, limit
from standins import Simulators

STARTS = 25
CALLS = 1000
SNAPSHOTS = 15
SIZE = (1920, 1080)


def request(number, method, **params):
    line = json.dumps({"jsonrpc": "2.0", "id": number, "method": method, "params": params})
    return line.encode() + b"\n"


def call(number, tool, **arguments):
    return request(number, "tools/call", name=tool, arguments=arguments)


INITIALIZE = request(0, "initialize", protocolVersion="2025-06-18", capabilities={},
                     clientInfo={"name": "bench", "version": "1"})


@contextlib.contextmanager
def server(program, prefix=()):
    # Pictures are read in large pieces, as any client does that expects them.
    process = subprocess.Popen([*prefix, program.program, "mcp"], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                               env=program.environment, bufsize=1 << 20)
    try:
        yield process
    finally:
        process.stdin.close()
        process.wait(20)
        process.stdout.close()


def exchange(process, line):
    process.stdin.write(line)
    process.stdin.flush()
    return process.stdout.readline()


def result_of(answer):
    answer = json.loads(answer)
    assert "result" in answer and not answer["result"].get("isError"), answer
    return answer["result"]


def ask(process, line):
    return result_of(exchange(process, line))


def start(program):
    """Elapsed until initialize is answered, CPU until then, and the codec libraries mapped."""
    elapsed, cpu = [], []
    for _ in range(STARTS):
        begin = time.perf_counter()
        with server(program) as process:
            ask(process, INITIALIZE)
            elapsed.append(time.perf_counter() - begin)
            cpu.append(cpu_of_process(process.pid))
            maps = pathlib.Path(f"/proc/{process.pid}/maps").read_text()
    codecs = set(re.findall(r"/(?:lib(?:av|sw|vips|pango|cairo)|lenslark-)[^/\n]*", maps))
    return statistics.median(elapsed), statistics.median(cpu), len(codecs)


def pipelined(program, prefix):
    """Seconds and CPU of a call, all calls being sent at once."""
    with server(program, prefix) as process:
        ask(process, INITIALIZE)
        ask(process, call(1, "get_source"))
        busy = cpu_of_process(process.pid)
        lines = b"".join(call(number, "get_source") for number in range(CALLS))
        begin = time.perf_counter()
        if os.fork() == 0:  # both pipes would fill up otherwise
            process.stdin.write(lines)
            process.stdin.flush()
            os._exit(0)
        answers = [process.stdout.readline() for _ in range(CALLS)]
        elapsed = time.perf_counter() - begin
        busy = cpu_of_process(process.pid) - busy
        os.wait()
    for number, answer in enumerate(map(json.loads, answers)):
        assert answer["id"] == number and not answer["result"].get("isError"), answer
    return elapsed / CALLS, busy / CALLS


class StillFeed:
    """A simulator's feed of one picture, BGRA."""

    def __init__(self, udid, picture):
        self.path = pathlib.Path(f"/tmp/lenslark-sim-{udid}-back.shm")
        self.path.write_bytes(self._header() + picture * 2)

    def beat(self):
        with open(self.path, "r+b") as file:
            file.write(self._header())

    def _header(self):
        width, height = SIZE
        row = width * 4
        now = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        slot = framefile.Slot(2, now, width, height, row, framefile.STILL)
        return framefile.Header(
            b"LLF1", 2, width, height, row, 1, 2, now, now, os.getpid(), 4096, row * height,
            framefile.STILL, 0, 1, 1,
            (slot, framefile.Slot(0, 0, 0, 0, 0, 0))).pack().ljust(4096, b"\0")


def noise():
    data = bytearray(random.Random(1).randbytes(SIZE[0] * SIZE[1] * 4))
    data[3::4] = b"\xff" * (SIZE[0] * SIZE[1])
    return bytes(data)


def photograph():
    """Soft colours with a little grain, as a camera sees."""
    grain = random.Random(1).randbytes(SIZE[0] * 4 + SIZE[1])
    pixels = bytearray()
    for y in range(SIZE[1]):
        line = bytearray(SIZE[0] * 4)
        for channel, (across, down) in enumerate(((6, 5), (9, 6), (7, 8))):
            line[channel::4] = bytes(
                (x // across + y // down + (grain[x + (y * 7 + channel) % SIZE[1]] & 7)) & 255
                for x in range(SIZE[0]))
        line[3::4] = b"\xff" * SIZE[0]
        pixels += line
    return bytes(pixels)


def snapshot(program, prefix, udid, feed):
    elapsed, cpu = [], []
    with server(program, prefix) as process:
        ask(process, INITIALIZE)
        for number in range(SNAPSHOTS + 1):
            feed.beat()
            begin, busy = time.perf_counter(), cpu_of_process(process.pid)
            answer = exchange(process, call(number, "snapshot_feed", device=udid))
            elapsed.append(time.perf_counter() - begin)
            cpu.append(cpu_of_process(process.pid) - busy)
            assert result_of(answer)["content"][0]["mimeType"] == "image/png"
    # The first maps the codecs.
    return statistics.median(elapsed[1:]), statistics.median(cpu[1:])


def rows(build):
    with tempfile.TemporaryDirectory(prefix="lenslark-bench-") as folder:
        program = Lenslark(build / "lenslark", folder)
        elapsed, cpu, codecs = start(program)
        yield limit("mcp, start to initialize answered, elapsed", elapsed, 0.010)
        yield limit("mcp, start to initialize answered, CPU", cpu, 0.010)
        yield limit("codec libraries mapped by mcp", codecs, 0, "")

        simulators = Simulators(pathlib.Path(folder) / "simulators")
        if not simulators.works():
            yield Skip("get_source and snapshot_feed", "no private mounts here")
            return
        udid = fresh_udid()
        simulators.booted([(udid, "iPhone")])
        elapsed, cpu = pipelined(program, simulators.prefix)
        yield limit("get_source, 1,000 pipelined, elapsed each", elapsed, 0.001)
        yield limit("get_source, 1,000 pipelined, CPU each", cpu, 0.001)
        for name, picture in (("a photograph", photograph), ("noise", noise)):
            feed = StillFeed(udid, picture())
            elapsed, cpu = snapshot(program, simulators.prefix, udid, feed)
            feed.path.unlink()
            yield limit(f"snapshot_feed of a 1080p feed, {name}, elapsed", elapsed, 0.040)
            yield limit(f"snapshot_feed of a 1080p feed, {name}, CPU", cpu, 0.040)
