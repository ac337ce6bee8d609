"""What the camera's tests share: a private directory, a feed in it, and programs run beside them."""
import os
import shutil
import subprocess
import tempfile
import time
import unittest

BUILD = os.environ["LENSLARK_BUILD_DIR"]
LIBRARY = os.path.join(BUILD, "LenslarkEmuInject.so")
RUN = os.path.join(BUILD, "lenslark-run")
PROBE = os.path.join(BUILD, "tests", "injector-probe")
RED, GREEN, BLUE = (0, 0, 255), (0, 255, 0), (255, 0, 0)


def has(program):
    return shutil.which(program) is not None


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

    def watch(self, seconds=20, **more):
        """A client that prints the colours of the frames it gets."""
        client = Watcher([PROBE, "watch", str(seconds)], self.environment(**more))
        self.addCleanup(client.end)
        return client


class Watcher:
    def __init__(self, command, environment):
        self.process = subprocess.Popen(command, env=environment, text=True,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def await_colours(self, left, right, within=6.0):
        """Reads frames until one has these colours, give or take a rounding."""
        end = time.monotonic() + within
        line = ""
        while time.monotonic() < end:
            line = self.process.stdout.readline()
            if not line:
                raise AssertionError("the client ended: " + self.process.stderr.read())
            seen = [bytes.fromhex(part) for part in line.split()]
            wanted = [bytes(reversed(left)), bytes(reversed(right))]
            if all(abs(a - b) <= 2 for s, w in zip(seen, wanted) for a, b in zip(s, w)):
                return time.monotonic()
        raise AssertionError(f"no such frame, the last was {line.strip()}")

    def end(self):
        self.process.kill()
        self.process.communicate()
