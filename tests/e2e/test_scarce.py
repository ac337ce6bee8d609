"""`lenslark serve` where the shell lets it have little: descriptors, threads, address space."""

import errno
import os
import random
import unittest

import standins
from lenslark import BLUE, GREEN, EndToEndTest, eventually
from test_device_feeds import FeedsTest, simulator_feed

MANY = 64
SANITIZED = any(word in os.environ.get("LENSLARK_BUILD", "") for word in ("asan", "tsan"))


class FewDescriptorsTest(FeedsTest):
    def setUp(self):
        super().setUp()
        self.udids = self.fresh_simulators(*(f"Phone {number:02}" for number in range(MANY)))
        self.few = ("/bin/sh", "-c", f'ulimit -n {MANY} && exec "$@"', "sh",
                    *self.simulators.prefix)

    def fed(self, colour):
        return [udid for udid in self.udids if self.colour(simulator_feed(udid)) == colour]

    def test_feeds_leave_descriptors_for_everything_else(self):
        green, blue = (self.plain_picture(f"{name}.png", colour)
                       for name, colour in (("green", GREEN), ("blue", BLUE)))
        self.source("set", "image", str(green))
        with self.lenslark.serve(prefix=self.few) as serving:
            eventually(lambda: len(self.fed(GREEN)) > MANY // 4, deadline=30)
            told = f": Too many open files; the limit is {MANY}, raise it (`ulimit -n`)\n"
            eventually(lambda: "cannot open /tmp/lenslark-sim-" in serving.errors()
                       and told in serving.errors())
            # Settings go on, also those for which a picture must be found and decoded.
            before = len(self.fed(GREEN))
            self.source("set", "image", str(blue))
            eventually(lambda: len(self.fed(BLUE)) >= before, deadline=30)
            # So do the looks for devices; who stays is fed in the place of who went.
            gone, stay = self.udids[:MANY - 10], self.udids[MANY - 10:]
            self.simulators.booted([(udid, "Left " + udid[:4]) for udid in stay])
            eventually(lambda: not any(simulator_feed(udid).exists() for udid in gone),
                       deadline=30)
            eventually(lambda: all(self.colour(simulator_feed(udid)) == BLUE for udid in stay),
                       deadline=30)
            self.assertNotIn("the media library has no", serving.errors())


class DeviceListTest(EndToEndTest):
    def test_what_cannot_be_listed_is_told(self):
        name = f"Avd_{os.getpid()}"
        self.addCleanup(standins.RunningEmulator(self.folder, name).end)
        listed = 0
        limits = range(24, 6, -1)
        for descriptors in limits:
            few = ("/bin/sh", "-c", f'ulimit -n {descriptors} && exec "$@"', "sh")
            result = self.lenslark.run("devices", prefix=few)
            if f"[android:{name}]".encode() in result.stdout:
                listed += 1
            else:
                self.assertIn(b"Too many open files", result.stderr, descriptors)
        self.assertGreater(listed, 0)
        self.assertLess(listed, len(limits))


@unittest.skipIf(SANITIZED, "the sanitizers reserve terabytes of address space")
class LittleAddressSpaceTest(EndToEndTest):
    def prefix(self, kilobytes):
        return ("/bin/sh", "-c", f'ulimit -v {kilobytes} && exec "$@"', "sh")

    def test_a_gigabyte_is_plenty(self):
        with self.lenslark.serve("--test-pattern", prefix=self.prefix(1_000_000)) as serving:
            eventually(self.lenslark.frame)
            self.assertEqual(serving.errors(), "")


@unittest.skipUnless(os.geteuid() == 0, "only root can run a program as somebody without processes")
class FewThreadsTest(EndToEndTest):
    def prefix(self, threads):
        # What is counted are the processes and threads of a user.
        user = random.randrange(100_000, 1_000_000_000)
        self.folder.chmod(0o777)
        return ("setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups",
                "--inh-caps=-all", "--bounding-set=-all", "prlimit", f"--nproc={threads}")

    def setUp(self):
        super().setUp()
        try:
            works = self.lenslark.run("version", prefix=self.prefix(20)).returncode == 0
        except OSError:
            works = False
        if not works:
            self.skipTest("no program can be run as somebody else here")

    def test_serve_makes_do_with_a_few(self):
        for threads in (20, 8):
            with self.subTest(threads), \
                    self.lenslark.serve("--test-pattern", prefix=self.prefix(threads)) as serving:
                eventually(self.lenslark.frame)
                self.assertTrue(serving.running())
            self.lenslark.feed.unlink()

    def test_none_is_told_in_a_line(self):
        result = self.lenslark.run("serve", prefix=self.prefix(1))
        text = result.stderr.decode()
        self.assertEqual((text.count("\n"), result.returncode), (1, 1), text)
        self.assertIn("error: no thread can be started; ", text)
        self.assertIn("(`ulimit -u`)", text)
        self.assertIn(os.strerror(errno.EAGAIN), text)


if __name__ == "__main__":
    unittest.main()
