"""Programs that touch no camera behave the same with the library as without."""
import os
import shutil
import subprocess
import sys
import unittest

from support import BUILD, CameraTest, LIBRARY, PROBE, has

EVERYDAY = [
    ["ls", "-la", "/usr/include/linux"],
    ["find", "/usr/include/linux", "-name", "v*.h"],
    ["sh", "-c", "for i in 1 2 3; do echo $i | cat | wc -c; done"],
    ["bash", "-c", "exec 7</etc/passwd; read -u 7 line; echo $line; exec 7<&-; echo /etc/pass*"],
    ["sort", "/etc/passwd"],
    ["grep", "-rl", "V4L2", "/usr/include/linux"],
    ["tar", "-cf", "-", "-C", "/usr/include/linux", "videodev2.h"],
    ["sha256sum", "/usr/include/linux/videodev2.h"],
    ["cat", "/missing/video9"],
    ["stat", "-c", "%s %F", "/dev/null", "/etc/passwd"],
    ["awk", "-F:", "{print $1}", "/etc/passwd"],
    ["git", "--version"],
    ["df", "/"],
    ["env", "python3", "-c", "import os, json; print(sorted(os.listdir('/usr/include/linux')))"],
    ["env", "python3", "-c",
     "import subprocess; print(subprocess.run(['echo', 'x'], capture_output=True, close_fds=True))"],
    ["env", "python3", "-c", "import multiprocessing as m; print(m.Pool(2).map(abs, [-1, 2]))"],
    ["perl", "-e", "opendir(my $d, '/usr/include/linux'); print scalar(readdir($d) ? 1 : 0)"],
]


class InertTest(CameraTest):
    def compare(self, command):
        plain = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
        outcomes = [subprocess.run(command, env=environment, stdin=subprocess.DEVNULL,
                                   capture_output=True, timeout=60)
                    for environment in (plain, self.environment())]
        self.assertEqual(*[(o.returncode, o.stdout, o.stderr) for o in outcomes], command)

    def test_everyday_programs_say_the_same(self):
        for command in EVERYDAY:
            if has(command[0]):
                with self.subTest(command=command):
                    self.compare(command)

    def test_own_unit_tests_pass_with_it(self):
        ran = 0
        for name in ("test-base", "test-config"):
            program = os.path.join(BUILD, "tests", name)
            if os.path.exists(program):
                self.check(program, timeout=120)
                ran += 1
        if not ran:
            self.skipTest("no unit tests are built")

    def test_it_needs_nothing_but_the_c_library(self):
        needed = subprocess.run(["readelf", "-d", LIBRARY], capture_output=True, text=True,
                                check=True).stdout
        libraries = [line.split("[")[1].rstrip("]") for line in needed.splitlines()
                     if "(NEEDED)" in line]
        self.assertTrue(all(name.startswith(("libc.", "ld-linux")) for name in libraries),
                        libraries)

    def test_only_the_interposed_calls_are_visible(self):
        symbols = subprocess.run(["nm", "-D", "--defined-only", LIBRARY], capture_output=True,
                                 text=True, check=True).stdout.split()[2::3]
        self.assertIn("open", symbols)
        foreign = [name for name in symbols if name.startswith(("real", "feed", "handle", "paint"))]
        self.assertEqual([n for n in foreign if n != "realpath"], [])

    def test_it_chains_with_other_preloaded_libraries(self):
        libraries = [p for p in ("/usr/lib/x86_64-linux-gnu/libv4l/v4l2convert.so",
                                 "/usr/lib/x86_64-linux-gnu/libv4l/v4l1compat.so")
                     if os.path.exists(p)]
        # Ours goes first, as lenslark-run has it: these go to the kernel by raw system calls.
        for other in libraries:
            with self.subTest(other=other):
                self.check(PROBE, "emulator", LD_PRELOAD=LIBRARY + ":" + other)

    def test_it_runs_under_the_address_sanitizer(self):
        compiler = shutil.which("gcc")
        if not compiler:
            self.skipTest("gcc is not installed")
        here = os.path.dirname(os.path.abspath(__file__))
        for client, commands in (("probe", ("emulator", "copies", "threads")),
                                 ("calls", ("opening", "status", "links", "listing", "files"))):
            program = os.path.join(self.directory, client)
            subprocess.run([compiler, "-D_GNU_SOURCE", "-g", "-fsanitize=address,undefined",
                            "-o", program, f"{here}/{client}.c", "-pthread"], check=True)
            for command in commands:
                with self.subTest(command=command):
                    self.check(program, command,
                               ASAN_OPTIONS="verify_asan_link_order=0:detect_leaks=0")


if __name__ == "__main__":
    unittest.main()
