"""`lenslark serve`: its flags, what it prints, and how it ends."""

import contextlib
import os
import signal
import stat
import subprocess
import time
import unittest

import framefile
from lenslark import BLUE, GREEN, RED, WHITE, EndToEndTest, eventually

NO_DEVICES = "  (no booted simulators or running emulators)\n"
# There is no screen in these tests.
NOTE = ("note: no Screen Recording permission; image, video and pattern cameras work, the live "
        "desktop doesn't.\n"
        "      Allow your terminal in System Settings → Privacy & Security → Screen & System Audio "
        "Recording.\n")
SERVING = ("Lenslark is serving cameras. Change them with `lenslark source set …`. "
           "Ctrl-C to stop.\n")


class TestPatternTest(EndToEndTest):
    def test_frames_follow_one_another(self):
        with self.lenslark.serve("--test-pattern"):
            first = eventually(self.lenslark.frame)
            second = self.lenslark.next_frame()
        self.assertEqual((first.width, first.height), (1280, 720))
        self.assertEqual(first.content_kind, framefile.PATTERN)
        self.assertNotEqual(first.pixels, second.pixels)

    def test_bars_move_four_pixels_to_the_right_each_frame(self):
        # The bars fill the top of the picture: grey, then yellow.
        def edge(frame):
            row = [frame.pixel(x, 5)[:3] for x in range(frame.width)]
            return next(x for x in range(frame.width)
                        if row[x - 1][2] > 150 and row[x][2] < 50 and row[x][0] > 150)
        with self.lenslark.serve("--test-pattern"):
            first = eventually(self.lenslark.frame)
            second = self.lenslark.next_frame()
        moved = (edge(second) - edge(first)) % 1280
        self.assertEqual(moved % 4, 0)
        self.assertGreater(moved, 0)

    def test_a_scanner_reads_its_code(self):
        with self.lenslark.serve("--test-pattern"):
            frame = eventually(self.lenslark.frame)
        picture = self.folder / "frame.png"
        framefile.write_png(picture, frame.width, frame.height, frame.rgb())
        read = subprocess.run(["zbarimg", "--quiet", "--raw", picture], capture_output=True,
                              check=False)
        self.assertEqual(read.stdout, b"lenslark://test-pattern\n")

    def test_every_pixel_is_opaque(self):
        with self.lenslark.serve("--test-pattern"):
            frame = eventually(self.lenslark.frame)
        self.assertEqual(set(frame.pixels[3::4]), {255})

    def test_comes_as_often_as_fps_says(self):
        with self.lenslark.serve("--test-pattern", "--fps", "5"):
            first = eventually(self.lenslark.header)
            eventually(lambda: self.lenslark.header().front.timestamp)
            begin = self.lenslark.header().front.timestamp
            times = {begin}
            eventually(lambda: times.add(self.lenslark.header().front.timestamp) or len(times) > 5)
        self.assertAlmostEqual((max(times) - begin) / 1e9, 1.0, delta=0.25)
        self.assertEqual(first.version, 2)

    def test_is_fed_although_the_desktop_is_saved(self):
        self.lenslark.write_config({"kind": "desktop"})
        with self.lenslark.serve("--test-pattern"):
            eventually(self.lenslark.frame)


class FrameFileTest(EndToEndTest):
    def test_the_header_is_whole(self):
        with self.lenslark.serve("--test-pattern") as serving:
            eventually(self.lenslark.frame)
            header = self.lenslark.header()
            self.assertEqual(header.writer_pid, serving.pid)
        self.assertEqual((header.magic, header.version), (b"LLF1", 2))
        self.assertEqual(header.data_offset, 4096)
        self.assertEqual(header.slot_capacity, 2048 * 2048 * 4)
        self.assertEqual((header.camera, header.is_still), (0, 0))
        self.assertEqual(header.content_kind, framefile.PATTERN)

    def test_the_file_has_room_for_two_frames_and_is_private(self):
        with self.lenslark.serve("--test-pattern"):
            eventually(self.lenslark.frame)
            status = os.stat(self.lenslark.feed)
        self.assertEqual(status.st_size, 4096 + 2 * 16777216)
        self.assertEqual(stat.S_IMODE(status.st_mode), 0o600)

    def test_slots_take_turns(self):
        with self.lenslark.serve("--test-pattern"):
            fronts = []

            def seen():
                header = self.lenslark.header()
                if header and header.front.width:
                    mark = (header.front.seq, header.front_slot)
                    if mark not in fronts:
                        fronts.append(mark)
                return len(fronts) >= 4
            eventually(seen)
            header = self.lenslark.header()
        self.assertGreater(header.slots[0].seq, 2)
        self.assertGreater(header.slots[1].seq, 2)

    def test_scene_mode_follows_the_mode_flag(self):
        for words, expected in (((), 1), (("--mode", "fit"), 0), (("--mode", "fil"), 1)):
            with self.subTest(words), self.lenslark.serve("--test-pattern", *words):
                eventually(self.lenslark.frame)
                self.assertEqual(self.lenslark.header().scene_mode, expected)

    def test_the_heart_beats_while_a_still_picture_is_shown(self):
        with self.lenslark.serve("--image", self.picture()):
            eventually(self.lenslark.frame)
            before = self.lenslark.header()
            after = eventually(lambda: (header := self.lenslark.header()).heartbeat
                               > before.heartbeat + 10**9 and header)
        self.assertEqual(after.front.seq, before.front.seq)
        self.assertLess(after.heartbeat_age, 1.5)


class ImageTest(EndToEndTest):
    def test_a_picture_arrives_as_it_is(self):
        with self.lenslark.serve("--image", self.picture(size=(64, 48))):
            frame = eventually(self.lenslark.frame)
        self.assertEqual((frame.width, frame.height), (64, 48))
        self.assertEqual(frame.content_kind, framefile.STILL)
        for position, colour in (((0.1, 0.1), RED), ((0.9, 0.1), GREEN), ((0.1, 0.9), BLUE),
                                 ((0.9, 0.9), WHITE)):
            self.assert_colour(frame.at(*position), colour)

    def test_a_still_picture_lies_in_both_slots(self):
        with self.lenslark.serve("--image", self.picture()):
            eventually(self.lenslark.frame)
            header = eventually(lambda: (h := self.lenslark.header()).is_still and h.width and h)
        self.assertEqual((header.width, header.height, header.bytes_per_row), (64, 48, 256))
        self.assertEqual(header.sequence % 2, 0)

    def test_a_large_picture_is_scaled_to_the_feed(self):
        with self.lenslark.serve("--image", self.picture(size=(4096, 1024))):
            frame = eventually(self.lenslark.frame)
        self.assertEqual((frame.width, frame.height), (2048, 512))
        self.assert_colour(frame.at(0.9, 0.1), GREEN)

    def test_the_file_may_go_once_it_is_imported(self):
        picture = self.picture()
        with self.lenslark.serve("--image", picture):
            picture.unlink()
            eventually(self.lenslark.frame)

    def test_the_image_wins_over_a_film(self):
        with self.lenslark.serve("--image", self.picture(), "--video", "/nowhere/film.mov"):
            frame = eventually(self.lenslark.frame)
        self.assertEqual(frame.content_kind, framefile.STILL)

    def test_nothing_is_saved(self):
        with self.lenslark.serve("--image", self.picture(), "--fps", "7", "--mode", "fit"):
            eventually(self.lenslark.frame)
        saved = (self.lenslark.config_file.read_text() if self.lenslark.config_file.exists() else "")
        self.assertNotIn("sha256:", saved)


class VideoTest(EndToEndTest):
    def film(self):
        path = self.folder / "film.mp4"
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i",
                        "testsrc2=size=128x96:rate=25:duration=0.6", "-pix_fmt", "yuv420p", path],
                       stdin=subprocess.DEVNULL, check=True)
        return path

    def test_a_film_plays_again_and_again(self):
        with self.lenslark.serve("--video", self.film()):
            first = eventually(self.lenslark.frame)
            begin = self.lenslark.header().front.timestamp
            eventually(lambda: self.lenslark.header().front.timestamp > begin + 1_500_000_000)
        self.assertEqual((first.width, first.height), (128, 96))
        self.assertEqual(first.content_kind, framefile.VIDEO)

    def test_a_film_is_no_image(self):
        film = self.film()
        self.assert_fails(self.lenslark.run("serve", "--image", film),
                          f"{film} is a video, not an image", 2)

    def test_an_image_is_no_film(self):
        picture = self.picture()
        self.assert_fails(self.lenslark.run("serve", "--video", picture),
                          f"{picture} is an image, not a video", 2)


class NothingSavedTest(EndToEndTest):
    def test_the_desktop_has_no_global_feed(self):
        with self.lenslark.serve() as serving:
            self.assertEqual(serving.output(), NO_DEVICES + NOTE + SERVING)
            self.assertFalse(self.lenslark.feed.exists())


class OutputTest(EndToEndTest):
    def test_prints_the_devices_once_and_how_to_go_on(self):
        with self.lenslark.serve("--test-pattern") as serving:
            eventually(self.lenslark.frame)
            self.lenslark.write_config({"kind": "pattern"})
            self.lenslark.write_config({"kind": "desktop"})
            eventually(lambda: self.lenslark.header().heartbeat_age < 0.4)
        self.assertEqual(serving.output(), NO_DEVICES + NOTE + SERVING)
        self.assertEqual(serving.errors(), "")

    def test_goes_on_when_nobody_reads(self):
        read, write = os.pipe()
        os.close(read)
        self.addCleanup(os.close, write)
        self.assert_goes_on(self.lenslark.program, "serve", "--test-pattern", stdout=write,
                            stderr=subprocess.DEVNULL)

    def test_goes_on_without_any_descriptor(self):
        descriptors = self.assert_goes_on(
            "/bin/sh", "-c", 'exec "$0" serve --test-pattern <&- >&- 2>&-', self.lenslark.program)
        self.assertEqual(descriptors, ["/dev/null"] * 3)

    def assert_goes_on(self, *command, **options):
        """Returns where the standard descriptors lead."""
        process = subprocess.Popen(command, env=self.lenslark.environment, **options)
        try:
            eventually(self.lenslark.frame)
            self.lenslark.next_frame()
            descriptors = [os.readlink(f"/proc/{process.pid}/fd/{number}") for number in range(3)]
            process.send_signal(signal.SIGTERM)
            self.assertEqual(process.wait(15), 0)
            return descriptors
        finally:
            process.kill()
            process.wait()


class UsageTest(EndToEndTest):
    def test_a_number_must_be_one(self):
        for words, message in ((("--display", "two"), "--display expects a number"),
                               (("--display", ""), "--display expects a number"),
                               (("--fps", "0", "--display", "two"),
                                "--display expects a number"),
                               (("--fps", "0"), "--fps expects a positive number"),
                               (("--fps", "-1"), "--fps expects a positive number"),
                               (("--fps", "x"), "--fps expects a positive number"),
                               (("--fps", "-99999999999"), "--fps expects a positive number")):
            with self.subTest(words):
                self.assert_fails(self.lenslark.run("serve", *words), message, 2)

    def test_a_wrong_number_imports_nothing(self):
        self.lenslark.run("serve", "--image", self.picture(), "--fps", "x")
        self.assertEqual(list(self.lenslark.support.rglob("*.png")), [])


class EndTest(EndToEndTest):
    def assert_ends(self, number):
        with self.lenslark.serve("--test-pattern", ends=False) as serving:
            eventually(self.lenslark.frame)
            serving.interrupt(number)
            self.assertEqual(serving.wait(), 0)
        self.assertEqual(self.lenslark.header().writer_pid, 0)

    def test_ctrl_c_closes_the_feed(self):
        self.assert_ends(signal.SIGINT)

    def test_sigterm_closes_the_feed(self):
        self.assert_ends(signal.SIGTERM)

    def test_a_lost_terminal_closes_the_feed(self):
        self.assert_ends(signal.SIGHUP)

    def test_a_still_picture_is_closed_too(self):
        with self.lenslark.serve("--image", self.picture(), ends=False) as serving:
            eventually(self.lenslark.frame)
            serving.interrupt()
            self.assertEqual(serving.wait(), 0)
        self.assertEqual(self.lenslark.header().writer_pid, 0)

    def test_ctrl_c_counts_from_the_start(self):
        with self.lenslark.serve("--test-pattern", wait=False, ends=False) as serving:
            eventually(self.lenslark.header)
            serving.interrupt()
            self.assertEqual(serving.wait(), 0)
        self.assertEqual(self.lenslark.header().writer_pid, 0)

    def test_a_second_ctrl_c_ends_at_once(self):
        with self.lenslark.serve("--test-pattern", ends=False) as serving:
            eventually(self.lenslark.frame)
            serving.interrupt()
            serving.interrupt(signal.SIGTERM)
            serving.wait()

    def test_ctrl_c_ends_it_while_its_terminal_takes_no_more_text(self):
        reader, full = os.pipe()
        self.addCleanup(os.close, reader)
        os.set_blocking(full, False)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(full, b"x" * 4096)
        os.set_blocking(full, True)
        process = subprocess.Popen([self.lenslark.program, "serve", "--test-pattern"],
                                   stdout=full, env=self.lenslark.environment)
        self.addCleanup(process.kill)
        os.close(full)
        eventually(self.lenslark.frame)
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(15), 0)
        self.assertEqual(self.lenslark.header().writer_pid, 0)

    def test_nohup_keeps_it_alive(self):
        with self.lenslark.serve("--test-pattern", prefix=("nohup",)) as serving:
            eventually(self.lenslark.frame)
            serving.interrupt(signal.SIGHUP)
            self.lenslark.next_frame()
            self.assertTrue(serving.running())


if __name__ == "__main__":
    unittest.main()
