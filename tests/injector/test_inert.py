"""Programs that touch no camera behave the same with the library as without."""
import ctypes
import ctypes.util
import os
import re
import shutil
import subprocess
import unittest

from feed import Feed, halves
from support import BLUE, BUILD, CameraTest, DETAILS, LIBRARY, PROBE, RED, SOURCE, has

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
    ["df", "--output=target", "/"],
    ["bash", "-c", "for i in {1..100}; do (:) & /bin/true; done; wait; echo $?"],
    ["stdbuf", "-o0", "head", "-3", "/etc/passwd"],
    ["fakeroot", "sh", "-c", "touch x; chown 7:8 x; stat -c %u:%g x; id -u; rm x"],
    ["env", "python3", "-c", "import os, json; print(sorted(os.listdir('/usr/include/linux')))"],
    ["env", "python3", "-c",
     "import subprocess; print(subprocess.run(['echo', 'x'], capture_output=True, close_fds=True))"],
    ["env", "python3", "-c", "import multiprocessing as m; print(m.Pool(2).map(abs, [-1, 2]))"],
    ["gcc", "-xc", "-include", "stdio.h", "-S", "-o", "-", "/dev/null"],
    ["make", "-j4", "-f", "/dev/null", "--eval", "all: a b\na b:; @echo made", "all"],
    ["sh", "-c", "git init -q r && git -C r hash-object -w /etc/passwd && ls -A r; rm -r r"],
    ["sh", "-c", "cp -a /usr/include/linux c && du --apparent-size -s c && rm -r c && ls -A"],
    ["sh", "-c", "xz -c /etc/passwd | xz -dc | gzip | zcat | cmp - /etc/passwd && echo same"],
    ["openssl", "dgst", "-sha256", "/usr/include/linux/videodev2.h"],
    ["ffprobe", "-v", "error", "-show_format", "/missing.mp4"],
    ["timeout", "0.1", "sleep", "9"],
    ["bash", "-c", "while read x; do echo $x; done < <(seq 20); mapfile -t l </etc/passwd; wait"],
    ["stat", "-c", "%F", "/dev/video", "/dev/video9", "/sys/class/nothing"],
    ["find", "/sys/class", "-maxdepth", "1", "-name", "[a-u]*"],
    ["perl", "-e", "opendir(my $d, '/usr/include/linux'); print scalar(readdir($d) ? 1 : 0)"],
]


class InertTest(CameraTest):
    def compare(self, command):
        plain = {k: v for k, v in os.environ.items() if k != "LD_PRELOAD"}
        outcomes = [subprocess.run(command, env=environment, stdin=subprocess.DEVNULL,
                                   capture_output=True, timeout=60, cwd=self.directory)
                    for environment in (plain, self.environment())]
        self.assertEqual(*[(o.returncode, o.stdout, o.stderr) for o in outcomes], command)

    def test_everyday_programs_say_the_same(self):
        for command in EVERYDAY:
            if has(command[0]):
                with self.subTest(command=command):
                    self.compare(command)

    def test_strange_arguments_are_answered_the_same(self):
        self.compare([os.path.join(BUILD, "tests", "injector-strange")])

    def test_libraries_are_found_by_the_search_path_of_whoever_loads_them(self):
        self.check(DETAILS, "searchPath")

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
        with open(os.path.join(SOURCE, "injector", "exports.map"), encoding="ascii") as file:
            declared = re.findall(r"(\w+);", file.read())
        self.assertEqual(sorted(symbols), sorted(declared))
        originals = [ctypes.CDLL(None)]
        video = ctypes.util.find_library("v4l2")
        if video:
            originals.append(ctypes.CDLL(video))
        invented = [name for name in symbols if (video or not name.startswith("v4l2_")) and
                    not any(hasattr(library, name) for library in originals)]
        self.assertEqual(invented, [])

    def test_a_frame_costs_no_allocation_and_no_system_call_but_reads(self):
        feed = Feed(self.feed_path)
        self.addCleanup(feed.close)
        feed.write(1280, 720, halves(1280, 720, RED, BLUE))
        quiet = os.path.join(BUILD, "tests", "injector-quiet")
        log = os.path.join(self.directory, "log")
        trace = ["strace", "-f", "-o", log, "-E", "LD_PRELOAD=" + LIBRARY]
        traced = has("strace") and subprocess.run([*trace, "true"], capture_output=True,
                                                  check=False).returncode == 0
        for fourcc in ("YU12", "NV12", "YUYV", "RGB3", "BGR4"):
            with self.subTest(fourcc=fourcc):
                self.check(quiet, fourcc)
                if not traced:
                    continue
                self.check(*trace, quiet, fourcc, LD_PRELOAD="")
                with open(log, encoding="ascii", errors="replace") as file:
                    text = file.read()
                calls = re.findall(r"^\d+ +(\w+)\(", text.split("getppid()")[1], re.MULTILINE)
                self.assertGreaterEqual(calls.count("pread64"), 20)
                # To find the feed and read it, to wait, to check the application's pointers, and to
                # see whether it handles a signal itself.
                self.assertLessEqual(set(calls), {
                    "fcntl", "openat", "newfstatat", "pread64", "geteuid", "kill", "close", "read",
                    "timerfd_settime", "getpid", "process_vm_readv", "process_vm_writev",
                    "rt_sigaction", "rt_sigprocmask"})
        if not traced:
            self.skipTest("strace does not work here: only allocations were counted")

    def test_it_chains_with_other_preloaded_libraries(self):
        libraries = [p for p in ("/usr/lib/x86_64-linux-gnu/libv4l/v4l2convert.so",
                                 "/usr/lib/x86_64-linux-gnu/libv4l/v4l1compat.so")
                     if os.path.exists(p)]
        # Ours goes first, as lenslark-run has it: these go to the kernel by raw system calls.
        for other in libraries:
            with self.subTest(other=other):
                self.check(PROBE, "emulator", LD_PRELOAD=LIBRARY + ":" + other)
        for wrapper in (["stdbuf", "-oL"], ["fakeroot"]):
            if has(wrapper[0]):
                with self.subTest(wrapper=wrapper):
                    self.check(*wrapper, PROBE, "emulator")

    def test_each_call_goes_on_to_the_next_of_its_name(self):
        """A library behind ours that interposes one call is met by that call, both ways round."""
        compiler = shutil.which("gcc")
        if not compiler:
            self.skipTest("gcc is not installed")
        calls = {
            "open": ("int", "const char* a, int b", "a, b", '"/etc/passwd", 0'),
            "open64": ("int", "const char* a, int b", "a, b", '"/etc/passwd", 0'),
            "openat": ("int", "int a, const char* b, int c", "a, b, c", '-100, "/etc/passwd", 0'),
            "creat": ("int", "const char* a, int b", "a, b", '"/dev/null", 0600'),
            "stat": ("int", "const char* a, void* b", "a, b", '"/", room'),
            "lstat64": ("int", "const char* a, void* b", "a, b", '"/", room'),
            "fstat": ("int", "int a, void* b", "a, b", "0, room"),
            "access": ("int", "const char* a, int b", "a, b", '"/", 0'),
            "readlink": ("long", "const char* a, void* b, long c", "a, b, c", '"/x", room, 9L'),
            "realpath": ("void*", "const char* a, void* b", "a, b", '"/", room'),
            "fopen64": ("void*", "const char* a, const char* b", "a, b", '"/etc/passwd", "r"'),
            "opendir": ("void*", "const char* a", "a", '"/dev"'),
            "fcntl64": ("int", "int a, int b", "a, b", "0, 1"),
            "dup": ("int", "int a", "a", "0"),
            "read": ("long", "int a, void* b, long c", "a, b, c", "0, room, 0L"),
            "ioctl": ("int", "int a, long b, void* c", "a, b, c", "0, 0x5413L, room"),
            "close": ("int", "int a", "a", "50"),
            "mmap": ("void*", "void* a, long b, int c, int d, int e, long f", "a, b, c, d, e, f",
                     "0, 4096L, 1, 0x22, -1, 0L"),
            "mmap64": ("void*", "void* a, long b, int c, int d, int e, long f",
                       "a, b, c, d, e, f", "0, 4096L, 1, 0x22, -1, 0L"),
            "munmap": ("int", "void* a, long b", "a, b", "0x10000L, 4096L"),
            "dlopen": ("void*", "const char* a, int b", "a, b", '"libm.so.6", 1'),
        }
        other = ["extern void* dlsym(void*, const char*);",
                 "extern long write(int, const void*, long);"]
        client = ["static char room[5000];"]
        for name, (result, parameters, arguments, _) in calls.items():
            other.append(f'{result} {name}({parameters}) {{ write(1, "{name}\\n", {len(name) + 1});'
                         f' {result} (*next)({parameters}) = dlsym((void*)-1, "{name}");'
                         f" return next({arguments}); }}")
            client.append(f"extern {result} {name}({parameters});")
        client.append("int main(void) {" + "".join(
            f"{name}({values});" for name, (_, _, _, values) in calls.items()) + "}")
        for name, lines, options in (("other.so", other, ["-shared", "-fPIC"]),
                                     ("client", client, [])):
            source = os.path.join(self.directory, name + ".c")
            with open(source, "w", encoding="ascii") as file:
                file.write("\n".join(lines) + "\n")
            subprocess.run([compiler, "-w", "-fno-builtin", *options, "-o",
                            os.path.join(self.directory, name), source], check=True)
        other = os.path.join(self.directory, "other.so")
        for order in (LIBRARY + ":" + other, other + ":" + LIBRARY):
            with self.subTest(order=order):
                said = self.check(os.path.join(self.directory, "client"), LD_PRELOAD=order).stdout
                self.assertLessEqual(set(calls), set(said.split()))

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
