"""What the camera's tests share: a private directory, a feed in it, and programs run beside them."""
import os
import shutil
import subprocess
import tempfile
import time
import unittest

BUILD = os.environ["LENSLARK_BUILD_DIR"]
SOURCE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LIBRARY = os.path.join(BUILD, "LenslarkEmuInject.so")
RUN = os.path.join(BUILD, "lenslark-run")
PROBE = os.path.join(BUILD, "tests", "injector-probe")
CALLS = os.path.join(BUILD, "tests", "injector-calls")
CROWD = os.path.join(BUILD, "tests", "injector-crowd")
DETAILS = os.path.join(BUILD, "tests", "injector-details")
RED, GREEN, BLUE = (0, 0, 255), (0, 255, 0), (255, 0, 0)


def has(program):
    return shutil.which(program) is not None


def bubblewrap_works():
    """Containers may have the program and forbid what it does."""
    return has("bwrap") and subprocess.run(
        ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "--unshare-pid", "true"],
        stderr=subprocess.DEVNULL, check=False).returncode == 0


class CameraTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.mkdtemp(prefix="lenslark-injector-test.")
        self.addCleanup(shutil.rmtree, self.directory)
        self.feed_path = os.path.join(self.directory, "feed.shm")

    def environment(self, **more):
        environment = dict(os.environ, LENSLARK_SHM=self.feed_path, LD_PRELOAD=LIBRARY)
        environment.pop("LENSLARK_DEVICE_FEED", None)
        environment.update(more)
        return environment

    def run_with_camera(self, *command, timeout=60, text=True, **more):
        return subprocess.run(command, env=self.environment(**more), timeout=timeout, text=text,
                              stdin=subprocess.DEVNULL, capture_output=True)

    def check(self, *command, **more):
        result = self.run_with_camera(*command, **more)
        self.assertEqual(result.returncode, 0, str(result.stdout)[-2000:] +
                         str(result.stderr)[-2000:])
        return result

    def watch(self, **more):
        """A client that prints the colours of the frames it gets, until the test ends."""
        client = Watcher([PROBE, "watch"], self.environment(**more))
        self.addCleanup(client.end)
        return client


class Watcher:
    def __init__(self, command, environment):
        self.process = subprocess.Popen(command, env=environment, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def frame(self):
        """The next frame: when it was made, and the colours of its left and right half."""
        line = self.process.stdout.readline()
        if not line:
            raise AssertionError("the client ended: " + self.process.stderr.read())
        time_made, *colours = line.split()
        return float(time_made), *(tuple(reversed(bytes.fromhex(c))) for c in colours)

    def await_colours(self, left, right, within=30.0):
        """Passes over frames until one that is made from now on has these colours, give or take a
        rounding. Returns when it was made."""
        begin = time.monotonic()
        made, seen = begin, None
        while made < begin + within:
            made, *seen = self.frame()
            if made >= begin and all(abs(a - b) <= 2 for s, w in zip(seen, (left, right))
                                     for a, b in zip(s, w)):
                return made
        raise AssertionError(f"no such frame, the last was {seen}")

    def links(self):
        """What the client's descriptors refer to."""
        folder = f"/proc/{self.process.pid}/fd"
        return [os.readlink(os.path.join(folder, name)) for name in os.listdir(folder)]

    def end(self):
        self.process.kill()
        self.process.communicate()
