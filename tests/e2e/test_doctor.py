"""The health check and the channel to the menu-bar application, on the real program."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import time
import unittest

import framefile
import standins
from lenslark import EndToEndTest, Lenslark, binary, eventually

GONE = 0x3FFFFFFF  # above any process id that Linux gives


def frame_file(writer_pid, heartbeat=0):
    """An empty frame file of the second version."""
    slots = (framefile.Slot(0, 0, 0, 0, 0, 0),) * 2
    header = framefile.Header(b"LLF1", 2, 0, 0, 0, 1, 0, 0, heartbeat, writer_pid, 4096, 0, 0, 0, 0,
                              0, slots).pack()
    return header.ljust(4096, b"\0")


class DoctorTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        environment = self.lenslark.environment
        for variable, name in (("LENSLARK_INJECT_DYLIB", "LenslarkInject.dylib"),
                               ("LENSLARK_EMU_INJECT_DYLIB", "LenslarkEmuInject.dylib")):
            library = self.folder / name
            library.write_bytes(b"")
            environment[variable] = str(library)
        environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={self.folder}/no-bus"
        environment["DISPLAY"] = ":0"

    def doctor(self, *arguments, **options):
        return self.lenslark.run("doctor", *arguments, **options)

    def checks(self, *arguments, **options):
        return json.loads(self.doctor("--json", *arguments, **options).stdout)

    def titles(self, *arguments, **options):
        return [check["title"] for check in self.checks(*arguments, **options)]

    def bus(self):
        """A session bus for the program."""
        address = f"unix:path={self.folder}/bus"
        daemon = subprocess.Popen(["dbus-daemon", "--session", "--nofork", f"--address={address}"],
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(daemon.wait)
        self.addCleanup(daemon.kill)
        self.lenslark.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        send = ["dbus-send", f"--bus={address}", "--dest=org.freedesktop.DBus", "/",
                "org.freedesktop.DBus.Peer.Ping"]
        eventually(lambda: subprocess.run(send, check=False, stdout=subprocess.DEVNULL,
                                          stderr=subprocess.DEVNULL).returncode == 0)

    def application(self, answer, table="@a{ss} {}"):
        """Something on the bus that answers every command, without giving its id back."""
        script = f"""
            dbus-monitor --session "interface=dev.lenslark,member=command" |
            while read -r line; do
              case "$line" in
                *NameLost*) : > {self.folder}/listening ;;
                *member=command*)
                  gdbus emit --session --object-path /dev/lenslark \
                    --signal dev.lenslark.status "'{answer}'" "{table}" ;;
              esac
            done"""
        listener = subprocess.Popen(["/bin/sh", "-c", script], env=self.lenslark.environment,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # It ends with the bus.
        self.addCleanup(listener.wait)
        self.addCleanup(listener.kill)
        eventually((self.folder / "listening").exists)


class FindingsTest(DoctorTest):
    def test_says_what_is_well_and_what_is_not(self):
        result = self.doctor()
        lines = result.stdout.decode().splitlines()
        self.assertEqual(lines[:7], [
            "! Lenslark.app is not running",
            "    Cameras show the placeholder unless `lenslark serve` is running.",
            "    fix: open -a Lenslark (or run `lenslark serve`)",
            "✓ iOS injector present",
            "✓ Android injector present",
            "✓ Config: defaults (no config.json yet)",
            "    schema 1, 0 assignment(s), 0 media item(s)",
        ])
        # Emulators that somebody else runs on this machine are looked at as well.
        errors = [line for line in lines if line.startswith("✗")]
        self.assertEqual(result.returncode, 1 if errors else 0)
        self.assertEqual(result.stderr == b"", not errors)

    def test_counts_settings_and_media(self):
        picture = self.picture()
        self.lenslark.run("source", "set", "image", picture)
        self.lenslark.run("source", "set", "pattern", "--device", "ios:U")
        check = next(check for check in self.checks()
                     if check["title"] == f"Config: {self.lenslark.config_file}")
        self.assertEqual(check, {
            "level": "ok", "title": f"Config: {self.lenslark.config_file}",
            "details": ["schema 1, 2 assignment(s), 1 media item(s)"]})

    def test_an_error_makes_the_exit_status_one(self):
        del self.lenslark.environment["LENSLARK_INJECT_DYLIB"]
        result = self.doctor("--json")
        self.assertIn({"level": "error", "title": "iOS injector missing",
                       "fix": "scripts/build-injector.sh, or reinstall Lenslark"},
                      json.loads(result.stdout))
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, rb"^error: \d+ of \d+ checks failed\n$")


@unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs a /tmp of its own")
class FeedsTest(DoctorTest):
    def feed(self, name, content, mode=0o600):
        path = pathlib.Path("/tmp") / name
        path.write_bytes(content)
        path.chmod(mode)
        self.addCleanup(path.unlink, missing_ok=True)
        return path

    def test_reports_a_stale_feed_and_removes_it_when_asked(self):
        path = self.feed("lenslark-sim-STALE.shm", frame_file(GONE))
        stale = {"level": "warning", "title": f"Stale feed {path} (writer pid {GONE} is gone)",
                 "fix": "lenslark doctor --fix"}
        self.assertIn(stale, self.checks())
        self.assertTrue(path.exists())
        self.assertIn({"level": "info", "title": f"Removed stale feed {path}"},
                      self.checks("--fix"))
        self.assertFalse(path.exists())
        self.assertNotIn(stale, self.checks())

    def test_leaves_the_feed_of_a_writer_that_lives(self):
        path = self.feed("lenslark-sim-ALIVE.shm", frame_file(os.getpid()))
        self.assertFalse([title for title in self.titles("--fix") if str(path) in title])
        self.assertTrue(path.exists())

    def test_tells_a_feed_that_others_can_read(self):
        path = self.feed("lenslark-sim-OPEN.shm", frame_file(os.getpid()), 0o644)
        self.assertIn({"level": "warning", "title": f"{path} is readable by other users",
                       "details": ["mode 644 (written by Lenslark 1.0)"],
                       "fix": "restart Lenslark; 1.1 recreates feeds as 0600"}, self.checks())

    def test_a_pipe_named_as_a_feed_holds_nothing_up(self):
        path = pathlib.Path("/tmp/lenslark-pipe.shm")
        os.mkfifo(path)
        self.addCleanup(path.unlink)
        self.assertIn(f"{path} is a pipe, no feed", self.titles("--fix"))
        self.assertTrue(path.exists())

    def test_a_name_that_is_no_text_is_repaired(self):
        path = b"/tmp/lenslark-\xff\n.shm"
        with open(path, "wb") as file:
            file.write(frame_file(GONE))
        self.addCleanup(os.unlink, path)
        self.assertIn(f"Stale feed /tmp/lenslark-�?.shm (writer pid {GONE} is gone)",
                      self.doctor().stdout.decode())

    def test_a_served_feed_is_live(self):
        self.lenslark.write_config({"kind": "pattern"})
        emulator = standins.RunningEmulator(self.folder, "Pixel_8",
                                            {"INJECTED": "LenslarkEmuInject"})
        self.addCleanup(emulator.end)
        with self.lenslark.serve():
            feed = pathlib.Path(f"/tmp/lenslark-pid-{emulator.pid}.shm")
            eventually(lambda: framefile.latest(feed))
            check = next(check for check in self.checks() if "android:Pixel_8" in check["title"])
        self.assertEqual(check["level"], "ok")
        self.assertEqual(check["details"][0], "back: test pattern (global)")
        self.assertRegex(check["details"][1], rf"^  feed {feed} heartbeat \d\.\d s$")


class DevicesTest(DoctorTest):
    def test_every_one_of_twenty_simulators_is_checked(self):
        simulators = standins.simulators_for(self)
        simulators.booted([(f"UDID-{n}", f"Phone {n:02}") for n in range(20)])
        checks = self.checks(prefix=simulators.prefix)
        devices = [check for check in checks if "[ios:UDID-" in check["title"]]
        self.assertEqual(len(devices), 20)
        self.assertEqual(devices[0]["level"], "warning")
        self.assertEqual(devices[0]["details"][0], "camera injector not enabled on this simulator")

    def test_more_simulators_than_the_shell_allows_descriptors_are_checked(self):
        simulators = standins.simulators_for(self)
        simulators.booted([(f"UDID-{n}", f"Phone {n:02}") for n in range(80)])
        listing = (simulators.state / "answer").read_text()
        simulators.answers(f"""
if [ "$2" = list ]; then
{listing}
else sleep 0.2; echo /x/LenslarkInject.dylib; fi""")
        few = ("/bin/sh", "-c", 'ulimit -n 128 && exec "$@"', "sh", *simulators.prefix)
        devices = [check for check in self.checks(prefix=few) if "[ios:UDID-" in check["title"]]
        self.assertEqual([device["details"][0] for device in devices],
                         ["DYLD_INSERT_LIBRARIES set: apps launched now get the camera"] * 80)

    def test_an_emulator_without_injector_is_an_error(self):
        # The camera may have been preloaded into the tests themselves.
        emulator = standins.RunningEmulator(self.folder, "Plain", {"LD_PRELOAD": ""})
        self.addCleanup(emulator.end)
        result = self.doctor("--json")
        check = next(check for check in json.loads(result.stdout)
                     if "android:Plain" in check["title"])
        self.assertEqual(check["level"], "error")
        self.assertEqual(check["fix"], "quit it, then `lenslark android launch Plain`")
        self.assertEqual(result.returncode, 1)


class HintsTest(DoctorTest):
    def start(self, words):
        process = subprocess.Popen(words, stdin=subprocess.DEVNULL)
        self.addCleanup(process.wait)
        self.addCleanup(process.send_signal, signal.SIGKILL)
        status = pathlib.Path(f"/proc/{process.pid}/stat")
        eventually(lambda: status.read_text().rsplit(")", 1)[1].split()[0] == "T")
        return process

    def test_an_emulator_without_a_name_is_pointed_out(self):
        engine = self.folder / "emulator" / "qemu" / "linux" / "qemu-system-x86_64"
        engine.parent.mkdir(parents=True)
        shutil.copy("/bin/sh", engine)
        process = self.start([engine, "-c", "kill -STOP $$", "engine", "-netdelay", "none"])
        self.assertIn(f"An emulator runs without -avd (pid {process.pid})", self.titles())

    def test_an_emulator_with_a_tmp_of_its_own_is_pointed_out(self):
        shutil.copy("/bin/sh", self.folder / "qemu-system-x86_64")
        prefix = ["unshare", "--user", "--map-root-user", "--mount"]
        if subprocess.run([*prefix, "true"], check=False, capture_output=True).returncode != 0:
            self.skipTest("no private mounts here")
        self.start([*prefix, "/bin/sh", "-c", f"""
            mount --bind {self.folder} /tmp &&
            exec /tmp/qemu-system-x86_64 -c 'kill -STOP $$' engine -netdelay none -avd Boxed"""])
        self.assertIn("Boxed [android:Boxed] has a /tmp of its own", self.titles())

    def test_modules_that_are_missing_are_pointed_out(self):
        alone = self.folder / "alone" / "lenslark"
        alone.parent.mkdir()
        shutil.copy(binary(), alone)
        program = Lenslark(alone, self.folder)
        program.environment = self.lenslark.environment
        hints = [check["details"][0] for check in json.loads(program.run("doctor", "--json").stdout)
                 if check["title"] == "A part of Lenslark cannot be loaded"]
        self.assertEqual([hint.split()[0] for hint in hints],
                         ["lenslark-image.so", "lenslark-video.so", "lenslark-bus.so"])

    def test_a_missing_process_list_is_pointed_out(self):
        simulators = standins.simulators_for(self)
        (simulators.farm / "ps").unlink()
        self.assertIn({"level": "info", "title": "/bin/ps is missing",
                       "details": ["Emulators cannot be found without it."],
                       "fix": "install the package procps"}, self.checks(prefix=simulators.prefix))

    def test_a_missing_display_is_pointed_out(self):
        del self.lenslark.environment["DISPLAY"]
        self.assertIn("No display: DISPLAY is not set", self.titles())


class ChannelTest(DoctorTest):
    def app(self, *words):
        return self.lenslark.run("app", *words)

    def test_the_applications_answer_is_printed(self):
        self.bus()
        self.application("cameras are on")
        result = self.app("toggle")
        self.assertEqual((result.stdout, result.stderr, result.returncode),
                         (b"cameras are on\n", b"", 0))

    def test_an_answer_keeps_its_layout_but_no_escapes(self):
        self.bus()
        self.application(r"on\n\tfront: \u001b[2J")
        self.assert_prints(self.app("status"), "on\n\tfront: ?[2J\n")

    def test_an_answer_whose_table_cannot_be_read_is_printed(self):
        self.bus()
        # gdbus sends the number of a descriptor without the descriptor.
        self.application("cameras are on", "{'with': <handle 3>}")
        self.assert_prints(self.app("status"), "cameras are on\n")

    def test_without_an_application_the_wait_ends(self):
        self.bus()
        start = time.monotonic()
        self.assert_fails(self.app("status"), "Lenslark app is not running", 3)
        self.assertGreaterEqual(time.monotonic() - start, 3)

    def test_without_a_bus_no_one_waits(self):
        for address in (f"unix:path={self.folder}/no-bus", "nonsense", ""):
            self.lenslark.environment["DBUS_SESSION_BUS_ADDRESS"] = address
            self.assert_fails(self.app("enable"), "Lenslark app is not running", 3)

    def test_no_other_words_are_sent(self):
        help_text = self.lenslark.run("help").stdout
        for words in (["restart"], [], ["STATUS"], [""]):
            result = self.app(*words)
            self.assertEqual((result.stdout, result.stderr, result.returncode),
                             (help_text, b"", 0))

    def test_the_doctor_asks_the_application_about_the_screen(self):
        self.bus()
        self.application("on screen=denied")
        self.assertEqual(self.titles()[1], "Lenslark.app has no Screen Recording permission")

    def test_the_doctor_waits_for_the_application_a_second_and_a_half_at_most(self):
        self.bus()
        start = time.monotonic()
        self.assertEqual(self.titles()[1], "iOS injector present")
        self.assertGreaterEqual(time.monotonic() - start, 1.5)


if __name__ == "__main__":
    unittest.main()
