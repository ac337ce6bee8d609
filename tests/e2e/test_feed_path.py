"""What may lie at a feed's path before the program writes there."""

import os
import pathlib
import stat
import unittest

import framefile
from lenslark import EndToEndTest, Lenslark, eventually


def older_file(path, **changes):
    """A frame file as an earlier writer left it."""
    slots = changes.pop("slots", (framefile.Slot(7, 1, 2, 2, 8, 0), framefile.Slot(10, 1, 2, 2, 8, 0)))
    values = {"magic": b"LLF1", "version": 2, "width": 2, "height": 2, "bytes_per_row": 8,
              "scene_mode": 0, "sequence": 5, "timestamp": 1, "heartbeat": 1, "writer_pid": 0,
              "data_offset": 4096, "slot_capacity": 16, "content_kind": 1, "front_slot": 1,
              "camera": 2, "is_still": 1, "slots": slots, **changes}
    path.write_bytes(framefile.Header(**values).pack().ljust(4096 + 32, b"\0"))


def inside_of(sandbox, path):
    """A path as the program in a sandbox sees it."""
    children = pathlib.Path(f"/proc/{sandbox}/task/{sandbox}/children").read_text().split()
    return pathlib.Path(f"/proc/{children[0]}/root{path}")


class FeedPathTest(EndToEndTest):
    def frame_over_what_is_there(self):
        with self.lenslark.serve("--test-pattern", "--fps", "30") as serving:
            eventually(self.lenslark.frame)
            self.assertEqual(self.lenslark.header().writer_pid, serving.pid)
            status = os.lstat(self.lenslark.feed)
            self.assertTrue(stat.S_ISREG(status.st_mode))
            self.assertEqual(stat.S_IMODE(status.st_mode), 0o600)
            self.assertEqual(status.st_uid, os.getuid())
            return self.lenslark.header()

    def test_an_older_file_is_taken_over_with_larger_counters(self):
        older_file(self.lenslark.feed)
        inode = os.stat(self.lenslark.feed).st_ino
        header = self.frame_over_what_is_there()
        self.assertEqual(os.stat(self.lenslark.feed).st_ino, inode)
        self.assertGreaterEqual(header.slots[0].seq, 8)
        self.assertGreaterEqual(header.slots[1].seq, 12)
        self.assertGreaterEqual(header.sequence, 6)
        self.assertEqual(header.camera, 0)

    def test_a_mode_that_others_can_read_is_repaired(self):
        older_file(self.lenslark.feed)
        self.lenslark.feed.chmod(0o666)
        self.frame_over_what_is_there()

    def test_a_file_that_is_no_frame_file_is_taken_over(self):
        self.lenslark.feed.write_bytes(b"something else entirely" * 1000)
        self.frame_over_what_is_there()

    def test_an_empty_file_is_taken_over(self):
        self.lenslark.feed.touch()
        self.frame_over_what_is_there()

    def test_counters_near_their_end_wrap(self):
        older_file(self.lenslark.feed, sequence=2**64 - 1,
                   slots=(framefile.Slot(2**64 - 1, 1, 2, 2, 8, 0),) * 2)
        self.frame_over_what_is_there()

    def test_a_link_is_replaced_and_its_target_left_alone(self):
        target = self.folder / "precious"
        target.write_text("mine")
        self.lenslark.feed.symlink_to(target)
        self.frame_over_what_is_there()
        self.assertEqual(target.read_text(), "mine")

    def test_a_link_to_nothing_is_replaced(self):
        target = self.folder / "nothing"
        self.lenslark.feed.symlink_to(target)
        self.frame_over_what_is_there()
        self.assertFalse(target.exists())

    def test_a_second_name_of_another_file_is_replaced(self):
        target = self.folder / "precious"
        target.write_text("mine")
        os.link(target, self.lenslark.feed)
        self.frame_over_what_is_there()
        self.assertEqual(target.read_text(), "mine")

    def test_a_fifo_is_replaced(self):
        os.mkfifo(self.lenslark.feed)
        self.frame_over_what_is_there()

    @unittest.skipUnless(os.getuid() == 0, "only root can give files away")
    def test_another_users_file_is_replaced(self):
        older_file(self.lenslark.feed)
        os.chown(self.lenslark.feed, 12345, 12345)
        self.frame_over_what_is_there()

    def test_a_directory_is_reported_and_serve_goes_on(self):
        self.lenslark.feed.mkdir()
        with self.lenslark.serve("--test-pattern") as serving:
            eventually(lambda: str(self.lenslark.feed) in serving.errors())
            self.assertIn(f"cannot open {self.lenslark.feed}: ", serving.errors())
            self.lenslark.feed.rmdir()
            self.lenslark.write_config({"kind": "pattern"})
            eventually(self.lenslark.frame)

    def test_a_missing_directory_is_reported_and_serve_goes_on(self):
        self.lenslark.environment["LENSLARK_SHM"] = str(self.folder / "nowhere" / "feed.shm")
        with self.lenslark.serve("--test-pattern") as serving:
            eventually(lambda: "nowhere/feed.shm" in serving.errors())

    def test_an_empty_path_is_reported_and_serve_goes_on(self):
        self.lenslark.environment["LENSLARK_SHM"] = ""
        with self.lenslark.serve("--test-pattern") as serving:
            eventually(lambda: "cannot open " in serving.errors())

    @unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs bubblewrap")
    def test_a_full_disk_is_reported_and_serve_goes_on(self):
        small = self.folder / "small"
        small.mkdir()
        self.lenslark.environment["LENSLARK_SHM"] = str(small / "feed.shm")
        prefix = ("bwrap", "--dev-bind", "/", "/", "--size", "1000000", "--tmpfs", str(small),
                  "--die-with-parent", "--")
        with self.lenslark.serve("--test-pattern", prefix=prefix, ends=False) as serving:
            eventually(lambda: "No space left on device" in serving.errors())
            self.assertTrue(serving.running())


    @unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs bubblewrap")
    def test_a_picture_that_the_disk_has_no_room_for_is_reported_once_and_a_smaller_one_fed(self):
        small = self.folder / "small"
        small.mkdir()
        feed = small / "feed.shm"
        self.lenslark.environment["LENSLARK_SHM"] = str(feed)
        prefix = ("bwrap", "--dev-bind", "/", "/", "--size", "10000000", "--tmpfs", str(small),
                  "--die-with-parent", "--")
        large = self.lenslark.import_media(self.picture("large.png", size=(2048, 2048)))
        usual = self.lenslark.import_media(self.picture("usual.png"))
        self.lenslark.set_global({"kind": "image", "mediaId": large})
        with self.lenslark.serve(prefix=prefix, ends=False) as serving:
            told = f"cannot open {feed}: No space left on device; make room there"
            eventually(lambda: told in serving.errors())
            inside = inside_of(serving.pid, feed)
            eventually(lambda: not inside.exists())
            self.lenslark.set_global({"kind": "image", "mediaId": usual})
            eventually(lambda: framefile.latest(inside), deadline=30)
            self.assertEqual(serving.errors().count(told), 1)


@unittest.skipUnless(os.environ.get("LENSLARK_PRIVATE_TMP"), "needs bubblewrap")
class DefaultPathTest(EndToEndTest):
    def test_is_in_tmp(self):
        del self.lenslark.environment["LENSLARK_SHM"]
        with self.lenslark.serve("--test-pattern"):
            eventually(lambda: framefile.latest("/tmp/lenslark.shm"))
        os.unlink("/tmp/lenslark.shm")


class TwoWritersTest(EndToEndTest):
    """Whoever came last feeds the camera, and gives it back."""

    def setUp(self):
        super().setUp()
        self.lenslark.set_global({"kind": "image",
                                  "mediaId": self.lenslark.import_media(self.picture())})
        other = self.folder / "other"
        other.mkdir()
        self.other = Lenslark(self.lenslark.program, other)
        self.other.environment["LENSLARK_SHM"] = str(self.lenslark.feed)

    def await_writer(self, serving):
        eventually(lambda: self.lenslark.header().writer_pid == serving.pid)

    def test_the_first_leaves_the_file_to_the_second_and_takes_it_back(self):
        with self.lenslark.serve() as first:
            eventually(self.lenslark.frame)
            with self.other.serve("--test-pattern") as second:
                self.await_writer(second)
                eventually(lambda: "written by another process" in first.errors())
                self.lenslark.set_global({"kind": "pattern"}, settings={"fill": False})
                pattern = eventually(lambda: (frame := self.lenslark.frame())
                                     and frame.content_kind == framefile.PATTERN and frame)
                self.assertEqual(pattern.width, 1280)
                self.assertEqual(self.lenslark.header().scene_mode, 1)
            self.await_writer(first)
            eventually(lambda: self.lenslark.header().scene_mode == 0)
            self.lenslark.next_frame()

    def test_the_first_takes_the_file_back_from_one_that_was_killed(self):
        with self.lenslark.serve() as first:
            eventually(self.lenslark.frame)
            with self.other.serve("--test-pattern", ends=False) as second:
                self.await_writer(second)
                eventually(lambda: self.lenslark.header().heartbeat != 0)
                second.process.kill()
            self.await_writer(first)
            self.assertEqual(eventually(self.lenslark.frame).width, 64)

    def test_the_end_of_the_first_does_not_close_the_file_of_the_second(self):
        with self.lenslark.serve() as first:
            eventually(self.lenslark.frame)
            with self.other.serve("--test-pattern") as second:
                self.await_writer(second)
                first.interrupt()
                first.wait()
                self.assertEqual(self.lenslark.header().writer_pid, second.pid)
                self.lenslark.next_frame()


if __name__ == "__main__":
    unittest.main()
