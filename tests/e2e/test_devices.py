"""Simulators and emulators, played by stand-ins for their tools."""

import os
import pathlib
import re
import select
import signal
import subprocess
import unittest

import standins
from lenslark import EndToEndTest, eventually

MISSING_INJECTOR = ("LenslarkInject.dylib not found. Run scripts/build-injector.sh or install "
                    "Lenslark.app.")


class SimulatorTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        self.simulators = standins.simulators_for(self)
        self.injector = self.folder / "LenslarkInject.dylib"
        self.injector.touch()
        self.lenslark.environment["LENSLARK_INJECT_DYLIB"] = str(self.injector)

    def ios(self, *arguments, **options):
        return self.lenslark.run("ios", *arguments, prefix=self.simulators.prefix, **options)


class EnableTest(SimulatorTest):
    ENABLED = "Camera enabled. Relaunch your app (apps already running are unaffected).\n"
    DISABLED = "Camera disabled for newly launched apps.\n"

    def test_sets_the_variable_in_the_booted_simulator(self):
        self.assert_prints(self.ios("enable"), self.ENABLED)
        self.assertEqual(self.simulators.calls(), [
            ["simctl", "spawn", "booted", "launchctl", "setenv", "DYLD_INSERT_LIBRARIES",
             str(self.injector)]])

    def test_sets_the_variable_in_the_simulator_named(self):
        self.assert_prints(self.ios("enable", "--udid", "A B"), self.ENABLED)
        self.assertEqual(self.simulators.calls()[0][2], "A B")

    def test_unsets_the_variable(self):
        self.assert_prints(self.ios("disable", "--udid", "ABC"), self.DISABLED)
        self.assertEqual(self.simulators.calls(), [
            ["simctl", "spawn", "ABC", "launchctl", "unsetenv", "DYLD_INSERT_LIBRARIES"]])

    def test_disabling_needs_no_injector(self):
        self.injector.unlink()
        self.assert_prints(self.ios("disable"), self.DISABLED)

    def test_enabling_without_the_injector_touches_nothing(self):
        self.injector.unlink()
        self.assert_fails(self.ios("enable"), MISSING_INJECTOR, 1)
        self.assertEqual(self.simulators.calls(), [])

    def test_fails_in_the_tools_own_words(self):
        self.simulators.answers("echo; echo ' No devices are booted. ' >&2; exit 149")
        for action in ("enable", "disable"):
            self.assert_fails(self.ios(action), "No devices are booted.", 1)

    def test_a_tool_that_dies_without_a_word_is_an_error_with_words(self):
        self.simulators.answers("kill -KILL $$")
        self.assert_fails(self.ios("enable"), "xcrun simctl was killed by signal 9.", 1)

    def test_a_tool_that_fails_without_a_word_is_an_error_with_words(self):
        self.simulators.answers("exit 3")
        self.assert_fails(self.ios("enable"), "xcrun simctl failed with status 3.", 1)

    def test_a_tool_that_floods_standard_error_is_waited_for(self):
        self.simulators.answers("head -c 5000000 /dev/zero >&2")
        self.assert_prints(self.ios("enable"), self.ENABLED)

    def test_a_missing_tool_is_named(self):
        self.simulators.remove()
        self.assert_fails(self.ios("enable"), "/usr/bin/xcrun: No such file or directory", 1)

    def test_a_tool_that_hangs_ends_with_the_program(self):
        """Ctrl-C at a terminal reaches the tool too."""
        self.simulators.answers('echo $$ > "$state/pid"; exec sleep 1000')
        process = subprocess.Popen([*self.simulators.prefix, self.lenslark.program, "ios", "enable"],
                                   env=self.lenslark.environment, start_new_session=True)
        pid_file = self.simulators.state / "pid"
        tool = int(eventually(lambda: pid_file.exists() and pid_file.read_text().strip()))
        os.killpg(process.pid, 2)
        self.assertEqual(process.wait(10), -2)
        eventually(lambda: not pathlib.Path(f"/proc/{tool}").exists())

    def test_a_tool_that_hangs_is_named(self):
        self.simulators.answers("exec sleep 1000")
        with subprocess.Popen([*self.simulators.prefix, self.lenslark.program, "ios", "enable"],
                              env=self.lenslark.environment, stderr=subprocess.PIPE,
                              start_new_session=True) as command:
            try:
                said, _, _ = select.select([command.stderr], [], [], 60)
                self.assertTrue(said)
                line = command.stderr.readline().decode()
                named = re.fullmatch(r"lenslark: still waiting for /usr/bin/xcrun \(process (\d+)\), "
                                     r"which says nothing and does not end\n", line)
                self.assertTrue(named, line)
                standins.end(int(named[1]))
                self.assertEqual(command.wait(15), 1)
            finally:
                if command.poll() is None:
                    os.killpg(command.pid, signal.SIGKILL)


class LaunchTest(SimulatorTest):
    def test_relaunches_the_app_with_the_injector(self):
        self.simulators.answers('echo "$SIMCTL_CHILD_DYLD_INSERT_LIBRARIES" > "$state/variable"\n'
                                "printf '\\n com.example.app: 4711 \\n\\n'")
        self.assert_prints(self.ios("launch", "com.example.app", "--udid", "ABC"),
                           "com.example.app: 4711\n")
        self.assertEqual(self.simulators.calls(), [
            ["simctl", "launch", "--terminate-running-process", "ABC", "com.example.app"]])
        self.assertEqual((self.simulators.state / "variable").read_text(), f"{self.injector}\n")

    def test_says_so_itself_when_the_tool_says_nothing(self):
        self.assert_prints(self.ios("launch", "com.example.app"), "launched com.example.app\n")

    def test_a_flag_without_a_value_means_the_booted_simulator(self):
        self.ios("launch", "com.example.app", "--udid")
        self.assertEqual(self.simulators.calls()[0][3], "booted")

    def test_the_third_word_is_the_app_whatever_it_is(self):
        self.ios("launch", "--udid", "ABC")
        self.assertEqual(self.simulators.calls()[0][3:], ["ABC", "--udid"])

    def test_an_app_that_is_not_installed_is_told_in_the_tools_words(self):
        self.simulators.answers("printf 'An error was encountered\\n(domain=FBSOpen, code=4):\\n' >&2\n"
                                "exit 4")
        self.assert_fails(self.ios("launch", "com.example.none"),
                          "An error was encountered\n(domain=FBSOpen, code=4):", 1)

    def test_without_an_app_the_usage_is_printed(self):
        self.assert_fails(self.ios("launch"), "usage: lenslark ios launch <bundle-id> [--udid UDID]",
                          2)

    def test_output_that_is_no_text_is_repaired(self):
        self.simulators.answers("printf 'a\\377b\\n'")
        self.assert_prints(self.ios("launch", "com.example.app"), "a\N{REPLACEMENT CHARACTER}b\n")

    def test_the_tool_gets_no_descriptor_of_the_program(self):
        self.simulators.answers("ls -l /proc/$$/fd > \"$state/open\"")
        with open("/dev/null") as inheritable:
            os.set_inheritable(inheritable.fileno(), True)
            self.ios("launch", "com.example.app", close_fds=False)
        numbers = re.findall(r" (\d+) ->", (self.simulators.state / "open").read_text())
        # The shell keeps its script open at 10 or above.
        self.assertEqual([int(number) for number in numbers if int(number) < 10], [0, 1, 2])


class EmulatorTest(EndToEndTest):
    WEBCAMS = ("printf \"List of web cameras connected to the computer:\\n"
               " Camera 'Lenslark Camera' can be specified by label as 'webcam3' on Linux\\n"
               " Camera 'Lenslark Camera (Front)' can be specified by label as 'webcam4'\\n\"\n")

    def setUp(self):
        super().setUp()
        self.emulator = standins.Tool(self.folder / "emulator", self.folder / "sdk/emulator/emulator")
        self.injector = self.folder / "LenslarkEmuInject.dylib"
        self.injector.touch()
        self.lenslark.environment["ANDROID_HOME"] = str(self.folder / "sdk")
        self.lenslark.environment["LENSLARK_EMU_INJECT_DYLIB"] = str(self.injector)

    def android(self, *arguments, **options):
        return self.lenslark.run("android", *arguments, **options)


class AvdsTest(EmulatorTest):
    def test_lists_the_virtual_devices(self):
        self.emulator.answers("printf 'INFO    | Storing crashdata\\n\\n Pixel_8 \\nTablet\\n'")
        self.assert_prints(self.android("avds"), "Pixel_8\nTablet\n")
        self.assertEqual(self.emulator.calls(), [["-list-avds"]])

    def test_prints_nothing_without_any(self):
        self.assert_prints(self.android("avds"), "")

    def test_a_missing_tool_is_told_with_what_to_do(self):
        self.emulator.path.unlink()
        self.assert_fails(
            self.android("avds"),
            f"Android emulator not found at {self.emulator.path}. Set ANDROID_HOME.", 1)

    def test_a_tool_that_is_no_program_is_named(self):
        self.emulator.path.write_bytes(b"\0garbage")
        self.assert_fails(self.android("avds"), f"{self.emulator.path}: Exec format error", 1)


class WebcamsTest(EmulatorTest):
    def test_lists_the_webcams_of_an_emulator_with_the_injector(self):
        self.emulator.answers(self.WEBCAMS + 'echo "$DYLD_INSERT_LIBRARIES" > "$state/variable"')
        self.assert_prints(self.android("webcams"),
                           "webcam3\tLenslark Camera\nwebcam4\tLenslark Camera (Front)\n")
        self.assertEqual(self.emulator.calls(), [["-webcam-list"]])
        self.assertEqual((self.emulator.state / "variable").read_text(), f"{self.injector}\n")

    def test_reads_standard_error_too(self):
        self.emulator.answers("{ " + self.WEBCAMS + "} >&2")
        self.assertEqual(len(self.android("webcams").stdout.splitlines()), 2)

    def test_garbage_lists_nothing(self):
        self.emulator.answers("head -c 300000 /dev/urandom; head -c 300000 /dev/urandom >&2")
        self.assert_prints(self.android("webcams"), "")


class StartedEmulatorTest(EmulatorTest):
    """`android launch`; the emulator becomes a process that ps shows as one."""

    def setUp(self):
        super().setUp()
        engine = self.folder / "qemu-system-x86_64"
        engine.write_bytes(pathlib.Path("/bin/sh").read_bytes())
        engine.chmod(0o755)
        self.emulator.answers(
            'if [ "$1" = -webcam-list ]; then\n' + self.WEBCAMS +
            f'else exec {engine} -c "kill -STOP \\$\\$" engine "$@"; fi')

    def launch(self, *arguments):
        """The new emulator's process id."""
        result = self.android("launch", *arguments)
        self.assertEqual((result.stderr, result.returncode), (b"", 0))
        line = re.fullmatch(r"emulator started \(pid (\d+)\) with Lenslark Camera\n",
                            result.stdout.decode())
        self.assertTrue(line, result.stdout)
        pid = int(line[1])
        self.addCleanup(standins.end, pid)
        return pid

    def status(self, pid):
        return pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()

    def test_prints_the_emulators_own_process(self):
        pid = self.launch("Pixel_8")
        name = pathlib.Path(f"/proc/{pid}/exe")
        self.assertEqual(eventually(lambda: name.resolve().name == "qemu-system-x86_64"), True)

    def test_gives_it_the_webcam_as_its_back_camera(self):
        self.launch("Pixel_8")
        self.assertEqual(eventually(lambda: self.emulator.calls()[1:]), [
            ["-avd", "Pixel_8", "-camera-back", "webcam3", "-camera-front", "emulated"]])

    def test_back_wins_over_front(self):
        self.launch("Pixel_8", "--front", "--back")
        self.assertEqual(eventually(lambda: self.emulator.calls()[1:])[0][2:4],
                         ["-camera-back", "webcam3"])

    def test_passes_what_is_behind_the_dashes_and_looks_for_the_camera_there_too(self):
        self.launch("Pixel_8", "--", "-no-audio", "--front")
        self.assertEqual(eventually(lambda: self.emulator.calls()[1:]), [
            ["-avd", "Pixel_8", "-camera-front", "webcam3", "-camera-back", "emulated",
             "-no-audio", "--front"]])

    def test_it_goes_on_alone(self):
        """Its streams are not ours, or reading what the command printed would not have ended."""
        pid = self.launch("Pixel_8")
        state, _parent, _group, session, terminal = self.status(pid)[:5]
        self.assertNotEqual(state, "Z")
        self.assertNotEqual(int(session), os.getsid(0))
        self.assertEqual(terminal, "0")
        # The stand-in redirects a stream for a moment, while it notes how it was called.
        eventually(lambda: all(os.readlink(f"/proc/{pid}/fd/{stream}") == "/dev/null"
                               for stream in range(3)))

    def test_it_has_the_injector_and_the_environment(self):
        self.lenslark.environment["LENSLARK_TEST_MARK"] = "kept"
        self.lenslark.environment.pop("LD_PRELOAD", None)  # Of whoever runs the tests.
        pid = self.launch("Pixel_8")
        variables = pathlib.Path(f"/proc/{pid}/environ").read_bytes().split(b"\0")
        self.assertIn(f"DYLD_INSERT_LIBRARIES={self.injector}".encode(), variables)
        self.assertIn(b"LENSLARK_TEST_MARK=kept", variables)
        self.assertFalse([one for one in variables if one.startswith(b"LD_PRELOAD=")])

    def test_a_shared_object_is_preloaded_before_what_is_there(self):
        library = self.folder / "LenslarkEmuInject.so"
        source = self.folder / "empty.c"
        source.write_text("int lenslarkTestLibrary;\n")
        subprocess.run(["cc", "-shared", "-fPIC", "-o", library, source], check=True)
        self.lenslark.environment["LENSLARK_EMU_INJECT_DYLIB"] = str(library)
        self.lenslark.environment["LD_PRELOAD"] = "libc.so.6"
        # A program that was built with the address sanitizer wants to be loaded first.
        self.lenslark.environment["ASAN_OPTIONS"] = \
            "verify_asan_link_order=0:intercept_tls_get_addr=0"
        pid = self.launch("Pixel_8")
        variables = pathlib.Path(f"/proc/{pid}/environ").read_bytes().split(b"\0")
        self.assertIn(f"LD_PRELOAD={library}:libc.so.6".encode(), variables)
        # It is there before its libraries are.
        eventually(lambda: str(library) in pathlib.Path(f"/proc/{pid}/maps").read_text())

    def test_without_our_webcam_nothing_is_started(self):
        self.emulator.answers("echo \"Camera 'FaceTime' can be specified by label as 'webcam0'\"")
        self.assert_fails(
            self.android("launch", "Pixel_8"),
            'The emulator did not list "Lenslark Camera"; is LenslarkEmuInject.dylib built?', 1)
        self.assertEqual(self.emulator.calls(), [["-webcam-list"]])

    def test_without_the_injector_nothing_is_started(self):
        self.injector.unlink()
        self.lenslark.move_away(self.folder / "away" / "bin")
        self.assert_fails(self.android("launch", "Pixel_8"),
                          "LenslarkEmuInject.dylib not found. Run scripts/build-injector.sh or "
                          "install Lenslark.app.", 1)
        self.assertEqual(self.emulator.calls(), [])

    def test_without_a_device_the_usage_is_printed(self):
        self.assert_fails(self.android("launch"), "usage: lenslark android launch <avd>", 2)


if __name__ == "__main__":
    unittest.main()
