"""X servers of a test's own, and applications on them."""

import os
import pathlib
import shutil
import subprocess


class XServer:
    """An X server without a monitor, on a free number or on `number`."""

    def __init__(self, screen="1280x800x24", number=None):
        read, write = os.pipe()
        try:
            self.process = subprocess.Popen(
                ["Xvfb", *([f":{number}"] if number is not None else []), "-displayfd", str(write),
                 "-screen", "0", screen, "-nolisten", "tcp", "-noreset"],
                pass_fds=[write], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL)
        finally:
            os.close(write)
        with open(read) as numbers:
            self.number = numbers.readline().strip()
        if not self.number:
            self.end()
            raise RuntimeError("Xvfb did not start")
        self.name = f":{self.number}"

    def run(self, *command):
        return subprocess.run(command, env={**os.environ, "DISPLAY": self.name}, check=True,
                              capture_output=True, text=True).stdout

    def start(self, *command):
        """A program that runs until it is ended."""
        return subprocess.Popen(command, env={**os.environ, "DISPLAY": self.name},
                                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    def manages_windows(self):
        """Whether a window manager runs."""
        shown = self.run("xprop", "-root", "_NET_SUPPORTING_WM_CHECK")
        return "window id" in shown

    def end(self):
        self.process.terminate()
        self.process.wait()


class Painter:
    """A running application with windows in plain colours: tests/e2e/WindowPainter.cpp."""

    def __init__(self, server, program=None, arguments=()):
        program = program or pathlib.Path(os.environ["LENSLARK_BUILD"]) / "tests/window-painter"
        self.process = subprocess.Popen(
            [str(program), *arguments], env={**os.environ, "DISPLAY": server.name}, text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.pid = self.process.pid

    @classmethod
    def emulator(cls, server, folder, avd):
        """One that ps shows as the engine of an emulator."""
        engine = pathlib.Path(folder) / "qemu-system-x86_64"
        if not engine.exists():
            shutil.copy(pathlib.Path(os.environ["LENSLARK_BUILD"]) / "tests/window-painter", engine)
        return cls(server, engine, ("-netdelay", "none", "-avd", avd))

    def do(self, *words):
        """Returns when the server has done it."""
        print(*words, file=self.process.stdin, flush=True)
        answer = self.process.stdout.readline().strip()
        if answer in ("", "what?"):
            raise RuntimeError(f"the painter did not {words}: {answer!r}")
        return answer

    def window(self, frame, colour, title="", managed=False):
        """A window's id. The frame is (x, y, width, height), the colour (red, green, blue)."""
        return self.do("window", "managed" if managed else "own", *frame, hex_colour(colour), title)

    def fill(self, window, frame, colour):
        self.do("fill", window, *frame, hex_colour(colour))

    def end(self):
        self.process.kill()
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()


def hex_colour(colour):
    return "{:02x}{:02x}{:02x}".format(*colour)
