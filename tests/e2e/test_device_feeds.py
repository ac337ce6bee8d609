"""`lenslark serve` beside simulators and emulators that come and go."""

import os
import pathlib
import signal
import time
import unittest

import framefile
import standins
from devicebench import DeviceTest, fresh_udid
from lenslark import BLUE, GREEN, RED, eventually


def simulator_feed(udid, camera=None):
    return pathlib.Path(f"/tmp/lenslark-sim-{udid}{'-' + camera if camera else ''}.shm")


def emulator_feed(pid):
    return pathlib.Path(f"/tmp/lenslark-pid-{pid}.shm")


class FeedsTest(DeviceTest):
    def serve(self, *arguments, **options):
        return self.lenslark.serve(*arguments, prefix=self.simulators.prefix, **options)

    def fresh_simulators(self, *names):
        """Booted simulators of these names; their feeds are gone after the test, whatever happens."""
        devices = [(fresh_udid(), name) for name in names]
        for udid, _name in devices:
            for camera in (None, "back", "front"):
                self.addCleanup(simulator_feed(udid, camera).unlink, missing_ok=True)
        self.simulators.booted(devices)
        return [udid for udid, _name in devices]

    def colour(self, path):
        """The colour in the middle of a feed's latest frame."""
        frame = framefile.latest(path)
        return frame and frame.at(0.5, 0.5)[:3]

    def plain_picture(self, name, colour):
        return self.picture(name, colours=(colour,) * 4)

    def source(self, *arguments):
        result = self.lenslark.run("source", *arguments, prefix=self.simulators.prefix)
        self.assertEqual((result.stderr, result.returncode), (b"", 0))


class SimulatorFeedsTest(FeedsTest):
    def test_each_simulator_has_a_feed_of_its_own(self):
        one, two = self.fresh_simulators("iPhone", "iPad")
        with self.serve("--test-pattern") as serving:
            for udid in (one, two):
                header = eventually(lambda: framefile.header(simulator_feed(udid)))
                self.assertEqual(header.writer_pid, serving.pid)
                self.assertEqual(header.camera, 0)
                self.assertEqual(os.stat(simulator_feed(udid)).st_size, 4096 + 2 * 16_777_216)
                eventually(lambda: framefile.latest(simulator_feed(udid)))
                self.assertFalse(simulator_feed(udid, "back").exists())
        for udid in (one, two):
            self.assertEqual(framefile.header(simulator_feed(udid)).writer_pid, 0)

    def test_two_simulators_of_one_name_are_both_fed_and_told_apart_by_key(self):
        udids = self.fresh_simulators("Twin", "Twin")
        with self.serve("--test-pattern") as serving:
            for udid in udids:
                eventually(lambda: framefile.latest(simulator_feed(udid)))
            line = "iOS Twin (no window) — back: test pattern, front: test pattern\n"
            eventually(lambda: line * 2 in serving.output())

    def test_a_simulator_that_boots_is_fed_and_one_that_shuts_down_is_not(self):
        [first] = self.fresh_simulators("First")
        with self.serve("--test-pattern") as serving:
            eventually(lambda: framefile.latest(simulator_feed(first)))
            [second] = self.fresh_simulators("Second")
            # A simulator is looked for every six seconds at the latest: at a beat of two after five.
            eventually(lambda: framefile.latest(simulator_feed(second)), deadline=12)
            eventually(lambda: not simulator_feed(first).exists(), deadline=1)
            eventually(lambda: "iOS Second (no window)" in serving.output())

    def test_cameras_that_differ_get_a_feed_each_and_join_again(self):
        [udid] = self.fresh_simulators("iPhone")
        device = f"ios:{udid}"
        self.source("set", "image", self.plain_picture("red.png", RED), "--device", device)
        both, back, front = (simulator_feed(udid, camera) for camera in (None, "back", "front"))
        with self.serve():
            eventually(lambda: self.colour(both) == RED)
            self.source("set", "image", self.plain_picture("blue.png", BLUE), "--device", device,
                        "--camera", "front")
            eventually(lambda: self.colour(front) == BLUE and self.colour(back) == RED)
            eventually(lambda: not both.exists())
            self.assertEqual((framefile.header(back).camera, framefile.header(front).camera), (1, 2))
            self.source("reset", "--device", device, "--camera", "front")
            eventually(lambda: self.colour(both) == RED)
            eventually(lambda: not back.exists() and not front.exists())

    def test_what_an_earlier_run_left_hides_no_feed(self):
        """A reader looks for its camera's file first and for the device's own second."""
        [udid] = self.fresh_simulators("iPhone")
        device = f"ios:{udid}"
        both, back, front = (simulator_feed(udid, camera) for camera in (None, "back", "front"))
        self.source("set", "image", self.plain_picture("red.png", RED), "--device", device)
        for number in (signal.SIGTERM, signal.SIGKILL):
            self.source("set", "pattern", "--device", device, "--camera", "front")
            with self.serve(ends=False) as serving:
                eventually(lambda: framefile.latest(front) and framefile.latest(back))
                serving.interrupt(number)
                serving.wait()
            self.assertTrue(front.exists() and back.exists())
            self.source("reset", "--device", device, "--camera", "front")
            with self.serve():
                eventually(lambda: self.colour(both) == RED)
                # A killed program looks alive for a moment.
                eventually(lambda: not front.exists() and not back.exists(), deadline=30)

    def test_a_split_and_a_join_leave_no_reader_without_a_frame(self):
        """A reader looks for its camera's file first and for the device's own second."""
        [udid] = self.fresh_simulators("iPhone")
        device = f"ios:{udid}"
        self.source("set", "image", self.plain_picture("red.png", RED), "--device", device)
        blue = self.plain_picture("blue.png", BLUE)

        def seen():
            # Twice: between the two looks the files may have changed places.
            for path in (simulator_feed(udid, "back"), simulator_feed(udid)) * 2:
                if framefile.latest(path):
                    return True
            return False

        with self.serve():
            eventually(seen)
            for arguments in (("set", "image", blue, "--device", device, "--camera", "front"),
                              ("reset", "--device", device, "--camera", "front")):
                self.source(*arguments)
                end = time.monotonic() + 1
                while time.monotonic() < end:
                    self.assertTrue(seen(), "no file held a frame")

    def test_fifty_simulators_are_fed_at_once(self):
        udids = self.fresh_simulators(*(f"Phone {number:02}" for number in range(50)))
        green = self.plain_picture("green.png", GREEN)
        with self.serve("--image", str(green)) as serving:
            for udid in udids:
                eventually(lambda: self.colour(simulator_feed(udid)) == GREEN, deadline=30)
            lines = [line for line in eventually(
                lambda: "Phone 49" in serving.output() and serving.output()).splitlines()
                     if line.startswith("iOS Phone")]
            self.assertEqual(lines[-50:], sorted(lines[-50:]))
            self.simulators.booted([])
            eventually(lambda: not any(simulator_feed(udid).exists() for udid in udids), deadline=12)

    def test_more_simulators_than_the_shell_allows_descriptors_are_fed(self):
        udids = self.fresh_simulators(*(f"Phone {number:02}" for number in range(40)))
        green = self.plain_picture("green.png", GREEN)
        few = ("/bin/sh", "-c", 'ulimit -S -n 40 && exec "$@"', "sh", *self.simulators.prefix)
        with self.lenslark.serve("--image", str(green), prefix=few):
            for udid in udids:
                eventually(lambda: self.colour(simulator_feed(udid)) == GREEN, deadline=30)


# Any other `serve` on the machine would feed the emulators, too.
@unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs a /tmp of its own")
class EmulatorFeedsTest(FeedsTest):
    def setUp(self):
        super().setUp()
        # The real one: it has real processes to find.
        (self.simulators.farm / "ps").unlink()
        (self.simulators.farm / "ps").symlink_to(self.simulators.real / "ps")

    def emulator(self, avd):
        emulator = standins.RunningEmulator(self.folder, avd)
        self.addCleanup(emulator.end)
        self.addCleanup(emulator_feed(emulator.pid).unlink, missing_ok=True)
        return emulator

    def test_an_emulator_has_one_feed_as_long_as_it_runs(self):
        avd = "Pixel_" + fresh_udid()
        emulator = self.emulator(avd)
        path = emulator_feed(emulator.pid)
        with self.serve("--test-pattern") as serving:
            eventually(lambda: framefile.latest(path))
            self.assertEqual(framefile.header(path).camera, 0)
            eventually(lambda: f"Android {avd} (no window) — back: test pattern\n"
                       in serving.output())
            emulator.end()
            # Emulators are looked for every four seconds: at a beat of two after three.
            eventually(lambda: not path.exists(), deadline=8)

    def test_an_emulator_that_starts_is_fed(self):
        with self.serve("--test-pattern"):
            emulator = self.emulator("Pixel_" + fresh_udid())
            eventually(lambda: framefile.latest(emulator_feed(emulator.pid)), deadline=8)

    def test_a_narrow_terminal_hides_no_emulator(self):
        self.lenslark.environment["COLUMNS"] = "20"
        emulator = self.emulator("Pixel_" + fresh_udid())
        with self.serve("--test-pattern"):
            eventually(lambda: framefile.latest(emulator_feed(emulator.pid)))

    def test_it_is_fed_without_xcode(self):
        self.simulators.remove()
        emulator = self.emulator("Pixel_" + fresh_udid())
        with self.serve("--test-pattern"):
            eventually(lambda: framefile.latest(emulator_feed(emulator.pid)))


class ToolTroubleTest(FeedsTest):
    """Whatever the simulators' tool does, the cameras that need none of it are fed."""

    def assert_serves_without_simulators(self):
        with self.serve("--test-pattern") as serving:
            eventually(self.lenslark.frame)
            self.lenslark.next_frame()
            self.assertTrue(serving.running())

    def test_garbage(self):
        self.simulators.answers("head -c 100000 /dev/urandom")
        self.assert_serves_without_simulators()

    def test_json_that_is_none_of_its_own(self):
        self.simulators.answers("""echo '{"devices":{"a":[{"udid":[],"name":{}}],"b":7}}'""")
        self.assert_serves_without_simulators()

    def test_json_without_an_end(self):
        self.simulators.answers("head -c 3000000 /dev/zero | tr '\\0' '['")
        self.assert_serves_without_simulators()

    def test_death_by_a_signal(self):
        self.simulators.answers("kill -SEGV $$")
        self.assert_serves_without_simulators()

    def test_absence(self):
        self.simulators.remove()
        self.assert_serves_without_simulators()

    def test_a_flood_on_standard_error_comes_before_the_simulators(self):
        [udid] = self.fresh_simulators("iPhone")
        answer = (self.simulators.state / "answer").read_text()
        self.simulators.answers("head -c 5000000 /dev/zero >&2\n" + answer)
        with self.serve("--test-pattern"):
            eventually(lambda: framefile.latest(simulator_feed(udid)))

    def test_a_tool_that_fails_later_takes_no_simulator_away_by_garbage(self):
        [udid] = self.fresh_simulators("iPhone")
        with self.serve("--test-pattern"):
            eventually(lambda: framefile.latest(simulator_feed(udid)))
            self.simulators.answers("echo garbage")
            calls = len(self.simulators.calls())
            eventually(lambda: len(self.simulators.calls()) > calls + 1)
            self.assertTrue(framefile.latest(simulator_feed(udid)))

    def test_without_a_process_list_no_emulator_is_fed(self):
        def fails():
            self.ps.answers("exit 1")

        for end in (fails, self.ps.path.unlink):
            path = emulator_feed(4242)
            self.emulators(("Pixel", 4242))
            with self.subTest(end.__name__), self.serve("--test-pattern"):
                eventually(lambda: framefile.latest(path))
                end()
                eventually(lambda: not path.exists(), deadline=30)

    def test_a_stop_in_the_middle_of_a_scan_is_an_orderly_end(self):
        for delay in range(10):
            self.simulators.answers(f"kill -TERM $PPID; sleep 0.0{delay}; echo garbage")
            with self.serve("--test-pattern", wait=False) as serving:
                self.assertEqual((serving.wait(), serving.errors()), (0, ""))

    def test_a_hang_holds_up_neither_frames_nor_heartbeats_nor_the_end(self):
        self.simulators.answers('echo $$ >> "$state/pids"; exec sleep 1000')
        pids = self.simulators.state / "pids"
        self.addCleanup(lambda: [standins.end(int(pid)) for pid in pids.read_text().split()])
        with self.serve("--test-pattern") as serving:
            eventually(self.lenslark.frame)
            eventually(lambda: self.lenslark.header().heartbeat)
            end = time.monotonic() + 3
            while time.monotonic() < end:
                self.assertLess(self.lenslark.header().heartbeat_age, 2)
                time.sleep(0.05)
            self.lenslark.next_frame()
            serving.interrupt()
            self.assertEqual(serving.wait(), 0)


if __name__ == "__main__":
    unittest.main()
