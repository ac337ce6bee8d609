"""lenslark-run starts programs with the camera, and says so when it cannot."""
import os
import shutil
import stat
import subprocess
import unittest

from feed import Feed, solid
from support import CameraTest, GREEN, LIBRARY, PROBE, RUN, Watcher


class RunTest(CameraTest):
    def run_plain(self, *arguments, **more):
        environment = {k: v for k, v in os.environ.items() if k not in ("LD_PRELOAD",)}
        environment.update(more)
        return subprocess.run([RUN, *arguments], env=environment, capture_output=True, text=True,
                              timeout=30, cwd=self.directory)

    def test_command_sees_the_named_feed(self):
        feed = Feed(self.feed_path)
        self.addCleanup(feed.close)
        feed.write(640, 480, solid(640, 480, GREEN))
        client = Watcher([RUN, "--feed", self.feed_path, "--", PROBE, "watch"],
                         dict(os.environ))
        self.addCleanup(client.end)
        client.await_colours(GREEN, GREEN)

    def test_relative_feed_is_made_absolute(self):
        result = self.run_plain("--feed", "x.shm", "sh", "-c", "cd / && echo $LENSLARK_SHM")
        self.assertEqual(result.stdout.strip(), os.path.join(self.directory, "x.shm"))

    def test_library_goes_before_what_is_preloaded_already(self):
        result = self.run_plain("sh", "-c", "echo $LD_PRELOAD", LD_PRELOAD="libm.so.6")
        self.assertEqual(result.stdout.strip(), os.path.realpath(LIBRARY) + ":libm.so.6")

    def test_status_and_arguments_are_the_commands(self):
        result = self.run_plain("--", "sh", "-c", "echo \"$1\"; exit 9", "sh", "--feed")
        self.assertEqual((result.returncode, result.stdout), (9, "--feed\n"))

    def test_simulator_key_names_its_feeds(self):
        result = self.run_plain("--device", "ios:ABC", "sh", "-c", "echo $LENSLARK_DEVICE_FEED")
        self.assertEqual(result.stdout.strip(), "/tmp/lenslark-sim-ABC")

    def test_emulator_key_finds_the_running_process(self):
        # A shell under the engine's name, which waits for its input to end.
        engine = subprocess.Popen(["qemu-system-x86_64", "-c", "read x", "-avd", "Pixel_of_test"],
                                  executable="/bin/sh", stdin=subprocess.PIPE)
        self.addCleanup(engine.communicate)
        found = self.run_plain("--device", "android:Pixel_of_test", "sh", "-c",
                               "echo $LENSLARK_DEVICE_FEED")
        self.assertEqual(found.stdout.strip(), f"/tmp/lenslark-pid-{engine.pid}")
        missing = self.run_plain("--device", "android:Nobody", "true")
        self.assertEqual(missing.returncode, 125)
        self.assertIn('no emulator of "Nobody" is running', missing.stderr)

    def test_bad_keys_are_refused(self):
        for key in ("ios", "ios:", "ios:../x", "web:1"):
            result = self.run_plain("--device", key, "true")
            self.assertEqual(result.returncode, 125)
            self.assertIn("bad device key", result.stderr)

    def test_static_programs_are_refused_with_advice(self):
        source = os.path.join(self.directory, "s.c")
        program = os.path.join(self.directory, "s")
        with open(source, "w", encoding="ascii") as file:
            file.write("int main(void) { return 0; }\n")
        built = subprocess.run(["gcc", "-static", "-o", program, source], capture_output=True)
        if built.returncode:
            self.skipTest("no static C library")
        script = os.path.join(self.directory, "script")
        with open(script, "w", encoding="ascii") as file:
            file.write(f"#! {program} -x\n")
        os.chmod(script, 0o700)
        for command in (program, script):
            result = self.run_plain(command)
            self.assertEqual(result.returncode, 125)
            self.assertIn(f"{program} is statically linked", result.stderr)

    def test_setuid_programs_are_refused_with_advice(self):
        program = os.path.join(self.directory, "p")
        shutil.copy("/bin/true", program)
        if os.geteuid() != 0:
            self.skipTest("only root can make another user's setuid program")
        os.chown(program, 65534, 65534)
        os.chmod(program, stat.S_ISUID | 0o755)
        result = self.run_plain(program)
        self.assertEqual(result.returncode, 125)
        self.assertIn("setuid", result.stderr)

    def refused(self, program):
        result = self.run_plain(program)
        self.assertEqual(result.returncode, 125)
        return result.stderr

    def patched(self, name, offset, value):
        """A program that is copied, but for some bytes of its header."""
        program = os.path.join(self.directory, name)
        shutil.copy(PROBE, program)
        with open(program, "r+b") as file:
            file.seek(offset)
            file.write(value)
        return program

    def test_programs_for_other_machines_are_refused_with_advice(self):
        self.assertIn("is a 32-bit program", self.refused(self.patched("a", 4, b"\1")))
        self.assertIn("another kind of processor", self.refused(self.patched("b", 18, b"\xef\xbe")))

    def test_programs_of_another_c_library_are_refused_with_advice(self):
        with open(PROBE, "rb") as file:
            place = file.read().index(b"/ld-linux")
        self.assertIn("musl", self.refused(self.patched("c", place, b"/ld-musl-")))

    def test_programs_that_start_others_as_root_are_refused_with_advice(self):
        if os.geteuid() != 0:
            self.skipTest("only root can make another user's setuid program")
        program = self.patched("sudo", 0, b"")
        os.chown(program, 65534, 65534)
        os.chmod(program, stat.S_ISUID | 0o755)
        self.assertIn("sudo ... lenslark-run COMMAND", self.refused(program))

    def test_missing_command_is_told_as_a_shell_does(self):
        result = self.run_plain("no-such-command-here")
        self.assertEqual(result.returncode, 127)
        self.assertIn("command not found", result.stderr)

    def test_misuse_shows_the_usage(self):
        for arguments in ([], ["--what"], ["--feed"], ["--feed", "", "true"],
                          ["--feed", "a", "--device", "ios:b", "true"]):
            result = self.run_plain(*arguments)
            self.assertEqual(result.returncode, 125)
            self.assertIn("Usage: lenslark-run", result.stderr)
        self.assertEqual(self.run_plain("--help").returncode, 0)

    def test_installed_layout_is_found(self):
        binary = os.path.join(self.directory, "bin")
        library = os.path.join(self.directory, "lib", "lenslark")
        os.makedirs(binary)
        os.makedirs(library)
        shutil.copy(RUN, binary)
        shutil.copy(LIBRARY, library)
        result = subprocess.run([os.path.join(binary, "lenslark-run"), "sh", "-c",
                                 "echo $LD_PRELOAD"], capture_output=True, text=True,
                                env={"PATH": os.environ["PATH"]}, timeout=30)
        self.assertEqual(result.stdout.strip(), os.path.join(
            os.path.realpath(library), "LenslarkEmuInject.so"))


if __name__ == "__main__":
    unittest.main()
