"""The media library on the command line."""

import hashlib
import json
import os
import pty
import signal
import subprocess

from lenslark import RED, EndToEndTest, eventually

HINT = "The library is empty. Add files with `lenslark media add FILE…`.\n"


class MediaTest(EndToEndTest):
    def setUp(self):
        super().setUp()
        self.library = self.lenslark.support / "Media"

    def media(self, *arguments, **options):
        return self.lenslark.run("media", *arguments, **options)

    def line(self, path, size, kind="image", pinned=False):
        digest = hashlib.sha256(path.read_bytes()).hexdigest()
        return f"{digest}  {kind}  {size:<9}  {path.name}{'  pinned' if pinned else ''}\n"

    def entry(self, path, width, height, pinned=False):
        return {"id": "sha256:" + hashlib.sha256(path.read_bytes()).hexdigest(), "kind": "image",
                "name": path.name, "width": width, "height": height, "pinned": pinned}

    def stored(self):
        items = self.library / "items"
        return sorted(os.listdir(items)) if items.exists() else []


class AddTest(MediaTest):
    def test_prints_a_line_for_each_item(self):
        a, b = self.picture("a.png"), self.picture("b.png", (2000, 1), (RED,) * 4)
        self.assert_prints(self.media("add", a, b), self.line(a, "64x48") + self.line(b, "2000x1"))

    def test_the_same_file_twice_is_printed_twice_and_stored_once(self):
        a = self.picture("a.png")
        self.assert_prints(self.media("add", a, a), self.line(a, "64x48") * 2)
        self.assertEqual(len(self.stored()), 1)

    def test_the_same_content_keeps_its_first_name(self):
        a, b = self.picture("a.png"), self.picture("b.png")
        self.assert_prints(self.media("add", a, b), self.line(a, "64x48") * 2)

    def test_json_is_the_list_of_items(self):
        a, b = self.picture("a.png"), self.picture("b.png", colours=(RED,) * 4)
        self.assert_prints_json(self.media("add", b, a, "--json"),
                         [self.entry(b, 64, 48), self.entry(a, 64, 48)])

    def test_a_film_has_its_duration(self):
        clip = self.folder / "clip.mp4"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                        "testsrc=size=64x48:duration=2:rate=10", "-pix_fmt", "yuv420p", clip],
                       check=True)
        [item] = json.loads(self.media("add", clip, "--json").stdout)
        self.assertEqual((item["kind"], item["width"], item["height"], item["durationSec"]),
                         ("video", 64, 48, 2))
        self.assertIn(b'"durationSec": 2,', self.media("list", "--json").stdout)
        self.assert_prints(self.media("list"), self.line(clip, "64x48", kind="video"))

    def test_pins(self):
        a = self.picture("a.png")
        self.assert_prints(self.media("add", a, "--pin"), self.line(a, "64x48", pinned=True))
        self.assert_prints_json(self.media("list", "--json"), [self.entry(a, 64, 48, pinned=True)])

    def test_adding_again_keeps_the_pin(self):
        a = self.picture("a.png")
        self.media("add", a, "--pin")
        self.assert_prints(self.media("add", a), self.line(a, "64x48", pinned=True))

    def test_needs_a_file(self):
        for arguments in ((), ("--pin",), ("--json", "a.png")):
            self.assert_fails(self.media("add", *arguments), "usage: lenslark media add FILE…", 2)

    def test_what_was_added_before_a_failure_stays(self):
        a = self.picture("a.png")
        result = self.media("add", a, "/nowhere.png")
        self.assertEqual((result.stdout.decode(), result.stderr.decode(), result.returncode),
                         (self.line(a, "64x48"), "error: /nowhere.png is not a readable file\n", 2))
        self.assertEqual(len(self.stored()), 1)

    def test_what_cannot_be_shown_is_a_general_failure(self):
        notes = self.folder / "notes.txt"
        notes.write_text("text")
        self.assert_fails(self.media("add", notes),
                          "notes.txt is not an image or video Lenslark can show", 1)

    def test_one_byte_too_many(self):
        film = self.folder / "film.mp4"
        with open(film, "wb") as file:
            file.truncate(2**31 + 1)
        self.assert_fails(self.media("add", film), f"{film} is larger than 2 GB", 2)

    def test_a_name_of_any_bytes_is_repaired(self):
        path = os.fsencode(self.picture("a.png"))
        odd = path.replace(b"a.png", b"\xff.png")
        os.rename(path, odd)
        [item] = json.loads(self.media("add", os.fsdecode(odd), "--json").stdout)
        self.assertEqual(item["name"], "\ufffd.png")

    def test_a_name_cannot_break_its_line(self):
        path = self.picture("a.png").rename(self.folder / "a\n\x1b[2Jb.png")
        digest = hashlib.sha256(path.read_bytes()).hexdigest()
        line = f"{digest}  image  64x48      a??[2Jb.png\n"
        self.assert_prints(self.media("add", path), line)
        self.assert_prints(self.media("list"), line)
        [item] = json.loads(self.media("list", "--json").stdout)
        self.assertEqual(item["name"], path.name)
        self.assert_prints(self.media("rm", path.name), "Removed a??[2Jb.png\n")

    def test_many_at_once_lose_nothing(self):
        pictures = [self.picture(f"{number}.png", colours=((number, 0, 0),) * 4)
                    for number in range(12)]
        running = [subprocess.Popen([self.lenslark.program, "media", "add", *pictures[part::4]],
                                    stdout=subprocess.DEVNULL, env=self.lenslark.environment)
                   for part in range(4)]
        self.assertEqual([process.wait() for process in running], [0] * 4)
        listed = json.loads(self.media("list", "--json").stdout)
        self.assertEqual(sorted(item["name"] for item in listed),
                         sorted(path.name for path in pictures))


class InterruptedAddTest(MediaTest):
    def big_film(self):
        """Large enough that its import can be met under way; it is no film when looked into."""
        path = self.folder / "big.mp4"
        with open(path, "wb") as file:
            file.truncate(1_900_000_000)
        return path

    def interrupted(self, when):
        process = subprocess.Popen([self.lenslark.program, "media", "add", self.big_film()],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env=self.lenslark.environment)
        eventually(lambda: when(process) or process.poll() is not None)
        process.send_signal(signal.SIGINT)
        out, err = process.communicate(timeout=30)
        self.assertEqual((process.returncode, out, err), (-signal.SIGINT, b"", b""))
        self.assertEqual(self.stored(), [])
        self.assertFalse((self.library / "index.json").exists())

    def test_while_hashing(self):
        def hashing(process):
            fds = f"/proc/{process.pid}/fd"
            return any("big.mp4" in os.readlink(f"{fds}/{fd}") for fd in os.listdir(fds))

        self.interrupted(hashing)

    def test_while_copying(self):
        self.interrupted(lambda process: any(name.startswith(".import-") for name in self.stored()))

    def test_progress_is_shown_on_a_terminal_only(self):
        leader, follower = pty.openpty()
        process = subprocess.Popen([self.lenslark.program, "media", "add", self.big_film()],
                                   stdout=subprocess.DEVNULL, stderr=follower,
                                   env=self.lenslark.environment)
        os.close(follower)
        shown = b""
        try:
            while shown.count(b"copying") < 2:
                shown += os.read(leader, 4096)
        finally:
            process.send_signal(signal.SIGINT)
            process.wait()
        self.assertRegex(shown, rb"\r\x1b\[Kbig\.mp4: copying [0-9.]+ MB of 1\.9 GB, [0-9.]+ [MG]B/s\r")
        os.close(leader)


class ListTest(MediaTest):
    def test_an_empty_library_gives_a_hint(self):
        self.assert_prints(self.media("list"), HINT)
        self.assert_prints_json(self.media("list", "--json"), [])

    def test_columns_are_aligned(self):
        small, wide = self.picture("small.png", (2, 2)), self.picture("wide.png", (12000, 1000))
        self.media("add", small, wide, "--pin")
        self.media("unpin", "small.png")
        lines = self.media("list").stdout.decode().splitlines()
        self.assertRegex(lines[0], r"^[0-9a-f]{64}  image  2x2        small\.png$")
        self.assertRegex(lines[1], r"^[0-9a-f]{64}  image  4096x341   wide\.png  pinned$")
        self.assertEqual(lines[0].index("small.png"), lines[1].index("wide.png"))

    def test_media_alone_prints_the_help(self):
        self.assertEqual(self.media().stdout, self.lenslark.run("help").stdout)


class RemoveTest(MediaTest):
    USAGE = "usage: lenslark media rm ID|NAME"

    def setUp(self):
        super().setUp()
        self.item = self.lenslark.import_media(self.picture("card.png"))

    def test_by_name(self):
        self.assert_prints(self.media("rm", "card.png"), "Removed card.png\n")
        self.assertEqual(self.stored(), [])
        self.assert_prints(self.media("list"), HINT)

    def test_by_id_digest_and_prefix(self):
        digest = self.item.removeprefix("sha256:")
        for query in (self.item, digest, digest[:6]):
            self.assert_prints(self.media("rm", query), "Removed card.png\n")
            self.media("add", self.folder / "card.png")

    def test_a_short_prefix_matches_nothing(self):
        query = self.item.removeprefix("sha256:")[:5]
        self.assert_fails(self.media("rm", query), f'No media matches "{query}"', 1)

    def test_needs_an_argument(self):
        self.assert_fails(self.media("rm"), self.USAGE, 2)
        self.assert_fails(self.media("rm", "--force", "card.png"), self.USAGE, 2)

    def test_an_item_that_a_camera_shows_needs_force(self):
        self.lenslark.run("source", "set", "image", self.folder / "card.png")
        self.assert_fails(self.media("rm", "card.png"),
                          "card.png is in use by a camera; reset it first or pass --force", 2)
        self.assert_prints(self.media("rm", "card.png", "--force"), "Removed card.png\n")
        self.assertEqual(self.stored(), [])

    def test_an_overlay_is_in_use_too(self):
        self.lenslark.run("source", "set", "pattern", "--device", "ios:U", "--overlay",
                          self.folder / "card.png")
        self.assert_fails(self.media("rm", "card.png"),
                          "card.png is in use by a camera; reset it first or pass --force", 2)


class PinTest(MediaTest):
    def setUp(self):
        super().setUp()
        self.card = self.picture("card.png")
        self.media("add", self.card)

    def test_pins_and_unpins(self):
        self.assert_prints(self.media("pin", "card.png"), "Pinned card.png\n")
        self.assert_prints(self.media("list"), self.line(self.card, "64x48", pinned=True))
        self.assert_prints(self.media("unpin", "card.png"), "Unpinned card.png\n")
        self.assert_prints(self.media("list"), self.line(self.card, "64x48"))

    def test_need_an_argument(self):
        for verb in ("pin", "unpin"):
            self.assert_fails(self.media(verb), "usage: lenslark media pin ID|NAME", 2)

    def test_an_unknown_item_is_named(self):
        self.assert_fails(self.media("pin", "nothing"), 'No media matches "nothing"', 1)
