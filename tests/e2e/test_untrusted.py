"""What a picture or a film can make the program do: nothing but show it, or refuse it.

The program runs under strace: what a file names is never opened, and nothing goes to a network.
"""

import os
import pathlib
import shutil
import signal
import struct
import subprocess
import unittest
import zlib

import baits
import framefile
from lenslark import EndToEndTest, Lenslark, eventually

STRACE = ("strace", "-f", "-qq", "-s", "4096", "-e", "trace=%file,%network", "-o")


def can_trace():
    if shutil.which("strace") is None:
        return False
    return subprocess.run([*STRACE, os.devnull, "true"], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, check=False).returncode == 0


class TracedTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        if not can_trace():
            self.skipTest("strace is not installed, or may not trace here")
        if "asan" in os.environ["LENSLARK_BUILD"]:
            self.skipTest("the leak checker does not work under strace")
        self.bait = self.folder / "bait"
        self.files = []

    def make_files(self):
        baits.lay_out(self.bait)
        self.files = baits.write_all(self.folder, self.bait)

    def trace(self, *command):
        """What a command did with files and networks, and how it ended."""
        log = self.folder / "strace.log"
        result = subprocess.run([*STRACE, str(log), *map(str, command)], capture_output=True,
                                env=self.lenslark.environment, timeout=120, check=False)
        return log.read_text(errors="replace").splitlines(), result

    def trace_serving(self, *arguments):
        """What `serve` did until it had shown a frame and ended."""
        log = self.folder / "strace.log"
        self.lenslark.feed.unlink(missing_ok=True)
        process = subprocess.Popen([*STRACE, str(log), self.lenslark.program, "serve", *map(
            str, arguments)], env=self.lenslark.environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            eventually(lambda: self.lenslark.frame() or process.poll() is not None, deadline=60)
            self.assertIsNone(process.poll(), "serve ended by itself")
            os.kill(self.lenslark.header().writer_pid, signal.SIGTERM)
            self.assertEqual(process.wait(60), 0)
        finally:
            process.kill()
            process.wait()
        return log.read_text(errors="replace").splitlines()

    def taken(self, lines):
        return [line for line in lines if str(self.bait) in line or "secret" in line]

    def network(self, lines):
        """Anything but talk inside the machine's own file system."""
        return [line for line in lines if "socket(" in line and "AF_UNIX" not in line]


class ReferenceTest(TracedTest):
    def test_nothing_that_a_file_names_is_opened_by_an_import(self):
        self.make_files()
        for name in self.files:
            with self.subTest(name):
                lines, result = self.trace(self.lenslark.program, "media", "add",
                                           self.folder / name)
                self.assertIn(result.returncode, (0, 1, 2), result.stderr)
                if result.returncode != 0:
                    last = result.stderr.decode().splitlines()[-1]
                    self.assertEqual(last, f"error: {name} is not an image or video Lenslark can "
                                           "show")
                self.assertTrue(any(f'{name}"' in line for line in lines), "strace saw nothing")
                self.assertEqual(self.taken(lines), [])
                self.assertEqual(self.network(lines), [])

    def test_nothing_that_a_file_names_is_opened_when_it_is_shown(self):
        self.make_files()
        for name in self.files:
            added = self.lenslark.run("media", "add", self.folder / name)
            if added.returncode != 0:
                continue
            kind = "video" if name.endswith((".mov", ".mkv", ".mp4", ".ts", ".avi")) else "image"
            with self.subTest(name):
                lines = self.trace_serving(f"--{kind}", self.folder / name)
                self.assertTrue(any("feed.shm" in line for line in lines), "strace saw nothing")
                self.assertEqual(self.taken(lines), [])
                self.assertEqual(self.network(lines), [])

    def test_playlists_are_no_films(self):
        for name, text in baits.playlists(self.bait).items():
            (self.folder / name).write_text(text)
            with self.subTest(name):
                self.assert_fails(self.lenslark.run("media", "add", self.folder / name),
                                  f"{name} is not an image or video Lenslark can show", 1)


class BaitTest(TracedTest):
    """The files are no duds: programs that follow what they are told do open the bait."""

    def test_a_drawing_is_followed_by_a_painter_that_knows_its_place(self):
        self.bait.mkdir()
        framefile.write_png(self.bait / "secret.png", 8, 8, b"\xff" * (8 * 8 * 3))
        drawing = self.bait / "drawing.svg"
        drawing.write_text('<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"'
                           ' xmlns:xlink="http://www.w3.org/1999/xlink">'
                           '<image xlink:href="secret.png" width="9" height="9"/></svg>')
        lines, _ = self.trace("rsvg-convert", drawing)
        self.assertTrue(any("secret.png" in line for line in lines))

    def test_films_are_followed_by_a_player_that_may(self):
        self.make_files()
        for name, options in {"list.ts": (), "concat.mkv": ("-safe", "0"),
                              "alias.mov": ("-enable_drefs", "1", "-use_absolute_path", "1")
                              }.items():
            with self.subTest(name):
                whitelist = ("-protocol_whitelist", "file,crypto,data", "-allowed_extensions", "ALL")
                known = whitelist if name == "list.ts" else whitelist[:2]
                lines, _ = self.trace("ffprobe", "-v", "quiet", *known, *options,
                                      self.folder / name)
                self.assertTrue(self.taken(lines), f"ffprobe did not follow {name}")


class SealedTest(EndToEndTest):
    """A picture or a film is shown by a program that can reach no network and sees nothing but
    itself, the system's programs and libraries, and the one file: whatever the file says, there is
    nothing else to be had from it."""

    def setUp(self):
        super().setUp()
        self.bait = self.folder / "bait"
        self.room = self.folder / "room"  # all that the sealed program can write to
        self.room.mkdir()
        # Inside namespaces that are not root's own, new ones cannot always have a /proc.
        self.processes = next(filter(self.works, (("--unshare-pid", "--proc", "/proc"),
                                                  ("--ro-bind", "/proc", "/proc"))), None)
        if self.processes is None:
            self.skipTest("bubblewrap is not installed, or may not make namespaces here")

    def works(self, processes):
        self.processes = processes
        return shutil.which("bwrap") is not None and self.look("true").returncode == 0

    def seal(self, *files):
        build = pathlib.Path(self.lenslark.program).parent
        seen = [self.lenslark.program, *build.glob("lenslark-*.so"), *files]
        arguments = [word for path in seen for word in ("--ro-bind", str(path), str(path))]
        for top in ("bin", "lib", "lib32", "lib64", "libx32"):
            arguments += (("--symlink", os.readlink(f"/{top}"), f"/{top}")
                          if os.path.islink(f"/{top}")
                          else ("--ro-bind-try", f"/{top}", f"/{top}"))
        return ("bwrap", "--unshare-net", "--unshare-ipc", "--die-with-parent", *self.processes,
                "--ro-bind", "/usr", "/usr", "--dev", "/dev",
                "--ro-bind-try", "/etc/alternatives", "/etc/alternatives", *arguments,
                # What may be preloaded into the tests is not there.
                "--unsetenv", "LD_PRELOAD", "--bind", str(self.room), str(self.room), "--")

    def look(self, *command, files=()):
        return subprocess.run([*self.seal(*files), *command], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, check=False, timeout=60)

    def shown(self, path, prefix=()):
        """The picture that is shown, or why there is none."""
        folder = self.room / f"{len(prefix)} {path.name}"
        folder.mkdir()
        lenslark = Lenslark(self.lenslark.program, folder)
        kind = "video" if path.suffix == ".mp4" else "image"
        with lenslark.serve(f"--{kind}", path, wait=False, prefix=prefix, ends=False) as serving:
            frame = eventually(lambda: lenslark.frame() or not serving.running(), deadline=60)
            if frame is True:
                return serving.errors()
        return frame.width, frame.height, frame.pixels

    def assert_shown_alike(self, *paths, perhaps_refused=()):
        for path in paths:
            with self.subTest(path.name):
                shown = self.shown(path)
                self.assertEqual(self.shown(path, self.seal(path)), shown)
                if path.name not in perhaps_refused:
                    self.assertNotIsInstance(shown, str)

    def test_it_is_sealed(self):
        baits.lay_out(self.bait)
        picture = self.picture()
        self.assertEqual(self.look("ls", self.bait).stdout, b"")
        self.assertEqual(self.look("ls", self.folder, files=[picture]).stdout.split(),
                         [picture.name.encode(), b"room"])
        interfaces = self.look("cat", "/proc/net/dev").stdout.decode().splitlines()[2:]
        self.assertEqual([line.split(":")[0].strip() for line in interfaces], ["lo"])

    def test_honest_files_are_shown_as_ever(self):
        picture = self.picture()
        paths = [picture]
        for extension in ("jpg", "webp", "tif", "gif"):
            path = self.folder / f"picture.{extension}"
            if subprocess.run(["vips", "copy", picture, path], check=False,
                              stderr=subprocess.DEVNULL).returncode == 0:
                paths.append(path)
        self.assertIn("jpg", {path.suffix[1:] for path in paths})
        baits.film(self.folder / "film.mp4", "-frames:v", "1", "-c:v", "libx264")
        self.assert_shown_alike(*paths, self.folder / "film.mp4")

    def test_pictures_that_name_other_files_are_shown_as_if_those_were_there(self):
        baits.lay_out(self.bait)
        names = [name for name in baits.write_all(self.folder, self.bait)
                 if name.endswith((".svg", ".pdf", ".tif", ".avif", ".heic"))]
        self.assertGreaterEqual(len(names), 4)
        self.assert_shown_alike(*(self.folder / name for name in names),
                                perhaps_refused=["drawing.svg"])

    def test_a_phones_picture_is_shown_as_ever(self):
        path = self.folder / "phone.heic"
        if baits.plain_heif(path) is None:
            self.skipTest("heif-enc is not installed, or cannot write HEIC")
        self.assert_shown_alike(path)


class BombTest(EndToEndTest):
    """Small files that ask for much are refused before they get it."""

    MOST_MEMORY = 250 << 20
    # Address space that is only reserved is no memory: the sanitizers reserve terabytes.
    SANITIZED = any(word in os.environ.get("LENSLARK_BUILD", "") for word in ("asan", "tsan"))

    def refused(self, name, data):
        self.assertEqual(self.bounded(name, data),
                         (1, f"error: {name} is not an image or video Lenslark can show\n"))
        items = self.lenslark.support / "Media/items"
        self.assertEqual(list(items.iterdir()) if items.exists() else [], [])

    def bounded(self, name, data):
        """How an import of such a file ended and what it said. It took little memory."""
        path = self.folder / name
        path.write_bytes(data)
        with open(self.folder / "err", "wb") as errors:
            process = subprocess.Popen([self.lenslark.program, "media", "add", str(path)],
                                       stdout=subprocess.DEVNULL, stderr=errors,
                                       env=self.lenslark.environment)
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        if not self.SANITIZED:
            self.assertLess(usage.ru_maxrss * 1024, self.MOST_MEMORY)
        return process.returncode, (self.folder / "err").read_text()

    def test_a_picture_of_hundreds_of_millions_of_pixels(self):
        side = 16000  # no side of which is too long
        rows = zlib.compressobj(9)
        data = b"".join(rows.compress(b"\0" * (side + 1)) for _ in range(side)) + rows.flush()
        self.refused("bomb.png", b"\x89PNG\r\n\x1a\n"
                     + framefile.chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 0, 0, 0, 0))
                     + framefile.chunk(b"IDAT", data) + framefile.chunk(b"IEND", b""))

    def test_a_phones_picture_of_hundreds_of_millions_of_pixels(self):
        for side in (16000, 65000):
            data = baits.huge_heif(self.folder / "made.heic", side)
            if data is None:
                self.skipTest("heif-enc is not installed, or cannot write HEIC")
            self.refused("bomb.heic", data)

    def test_a_phones_picture_that_is_cut_short(self):
        data = baits.plain_heif(self.folder / "made.heic")
        if data is None:
            self.skipTest("heif-enc is not installed, or cannot write HEIC")
        for length in (len(data) - 20, len(data) // 2, 40):
            self.refused("cut.heic", data[:length])

    def test_an_animation_of_huge_pictures(self):
        self.refused("bomb.gif", b"GIF89a" + struct.pack("<HHBBB", 65535, 65535, 0xf0, 0, 0)
                     + b"\0" * 6 + (b"," + struct.pack("<HHHHB", 0, 0, 65535, 65535, 0)
                                    + b"\x02\x01\x44\x00") * 1000 + b";")

    def test_a_drawing_that_unfolds(self):
        entities = '<!ENTITY a0 "lots">' + "".join(
            f'<!ENTITY a{n} "{f"&a{n - 1};" * 10}">' for n in range(1, 12))
        self.refused("laughs.svg", f'<!DOCTYPE svg [{entities}]><svg xmlns="http://www.w3.org/2000/'
                     'svg" width="10" height="10"><text>&a11;</text></svg>'.encode())

    def test_a_packed_drawing_of_nothing_for_long(self):
        """Shown or not, it is never held as a whole."""
        packer = zlib.compressobj(9, zlib.DEFLATED, 31)
        data = packer.compress(b'<svg xmlns="http://www.w3.org/2000/svg" width="9" height="9"><!--')
        data += b"".join(packer.compress(b" " * (1 << 20)) for _ in range(300))
        self.bounded("long.svgz", data + packer.compress(b"--></svg>") + packer.flush())


if __name__ == "__main__":
    unittest.main()
