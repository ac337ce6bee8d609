"""Films that cameras play. Each picture of most of them carries its number in eight columns, one for
each bit, so that order, pace and drops are read back from the feed."""

import pathlib
import subprocess
import time
import unittest

import framefile
from lenslark import BLUE, GREEN, RED, WHITE, EndToEndTest, eventually
from test_device_feeds import FeedsTest, simulator_feed

H264 = ("-c:v", "libx264", "-preset", "ultrafast", "-crf", "18")
BITS = 8


def numbered(fps, seconds):
    """Pictures of 256x64: column n is white where bit n of the number is set."""
    return ("-f", "lavfi", "-i",
            f"color=size=256x64:rate={fps}:duration={seconds},format=yuv420p,"
            f"geq=lum='if(bitand(N,pow(2,floor(X/32))),235,16)':cb=128:cr=128")


def quarters():
    """Red, green, blue and white, from the top left to the bottom right, 320x192."""
    return ("-f", "lavfi", "-i",
            "color=size=320x192:rate=10:duration=0.5:color=red,format=gbrp,"
            "drawbox=x=160:y=0:w=160:h=96:color=lime:t=fill,"
            "drawbox=x=0:y=96:w=160:h=96:color=blue:t=fill,"
            "drawbox=x=160:y=96:w=160:h=96:color=white:t=fill,"
            "scale=out_color_matrix=bt709:out_range=tv,format=yuv420p",
            "-colorspace", "bt709", "-color_range", "tv")


def number_in(frame):
    return sum((frame.at((2 * bit + 1) / (2 * BITS), 0.5)[1] > 127) << bit for bit in range(BITS))


def film(path, *arguments):
    subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", *map(str, arguments), path],
                   stdin=subprocess.DEVNULL, check=True)
    return path


class Seen:
    """The frames of a feed that a reader caught: (number, time of writing in seconds)."""

    def __init__(self, feed):
        self._feed = feed
        self._last = None
        self.frames = []

    def look(self):
        """Reads the feed once; true when there was a new frame."""
        before = framefile.header(self._feed)
        if before is None or before.front.width == 0 or before.front.timestamp == self._last:
            return False
        frame = framefile.latest(self._feed)
        if framefile.header(self._feed).front != before.front:  # replaced meanwhile
            return False
        self._last = before.front.timestamp
        self.frames.append((number_in(frame), self._last / 1e9))
        return True

    def until(self, predicate, deadline=30):
        eventually(lambda: (self.look(), predicate(self))[1], deadline=deadline, pause=0.002)
        return self

    @property
    def numbers(self):
        return [number for number, _time in self.frames]

    @property
    def passes(self):
        """The numbers, cut where the film began again."""
        passes = [[]]
        for number in self.numbers:
            if passes[-1] and number < passes[-1][-1]:
                passes.append([])
            passes[-1].append(number)
        return passes

    @property
    def seconds(self):
        return self.frames[-1][1] - self.frames[0][1]


class FilmTest(EndToEndTest):
    def film(self, *arguments, name="film.mp4"):
        return film(self.folder / name, *arguments)

    def source(self, *arguments):
        result = self.lenslark.run("source", "set", *arguments)
        self.assertEqual((result.stderr, result.returncode), (b"", 0))

    def seen(self):
        return Seen(self.lenslark.feed)

    def assert_rises(self, numbers):
        self.assertEqual(numbers, sorted(set(numbers)))

    def first_frame(self, path):
        with self.lenslark.serve("--video", path):
            return eventually(self.lenslark.frame)

    def assert_quarters(self, frame, *colours):
        for place, colour in zip(((0.25, 0.25), (0.75, 0.25), (0.25, 0.75), (0.75, 0.75)), colours):
            self.assert_colour(frame.at(*place), colour, tolerance=12)


class PlayingTest(FilmTest):
    def test_pictures_come_in_order_and_the_film_begins_again(self):
        with self.lenslark.serve("--video", self.film(*numbered(20, 1), *H264)):
            seen = self.seen().until(lambda seen: len(seen.passes) == 4)
        for numbers in seen.passes:
            self.assert_rises(numbers)
        self.assertLess(max(seen.numbers), 20)
        self.assertLess(min(numbers[0] for numbers in seen.passes[1:]), 10,
                        "passes begin at the first pictures")

    def test_plays_as_fast_as_the_film_says(self):
        with self.lenslark.serve("--video", self.film(*numbered(25, 4), *H264)):
            seen = self.seen().until(lambda seen: seen.frames and seen.numbers[-1] >= 95)
        due = (seen.numbers[-1] - seen.numbers[0]) / 25
        self.assertGreater(seen.seconds, due - 0.5)
        self.assertLess(seen.seconds, due + 3)

    def test_a_fast_film_under_a_low_cap_drops_pictures_and_keeps_its_speed(self):
        path = self.film(*numbered(60, 3), *H264)
        with self.lenslark.serve("--video", path, "--fps", "10"):
            seen = self.seen().until(lambda seen: seen.frames and seen.numbers[-1] >= 170)
        first = seen.passes[0]
        self.assert_rises(first)
        self.assertLessEqual(len(first), 32, "ten in each second")
        self.assertGreater(seen.seconds, (seen.numbers[-1] - seen.numbers[0]) / 60 - 0.5)

    def test_a_variable_frame_rate_is_kept(self):
        # Due at 0, 0.1, 0.3, 0.6, 1.0, 1.5 and 2.1 seconds.
        path = self.film(*numbered(10, 0.7), "-vf", "setpts=N*(N+1)/2*0.1/TB", "-vsync",
                         "passthrough", *H264, name="film.mkv")
        self.source("video", path, "--once")
        with self.lenslark.serve():
            seen = self.seen().until(lambda seen: seen.frames and seen.numbers[-1] == 6)
        self.assert_rises(seen.numbers)
        due = 2.1 - seen.numbers[0] * (seen.numbers[0] + 1) / 20
        self.assertGreater(seen.seconds, due - 0.5)

    def test_the_last_picture_stays_without_loop(self):
        self.source("video", self.film(*numbered(20, 1), *H264), "--once")
        with self.lenslark.serve():
            seen = self.seen().until(lambda seen: seen.frames and seen.numbers[-1] == 19)
            self.assert_rises(seen.numbers)
            last = self.lenslark.header()
            # Longer than the film: a second pass would show.
            later = eventually(lambda: (header := self.lenslark.header()).heartbeat
                               > last.heartbeat + 1_500_000_000 and header)
            self.assertEqual(later.front, last.front)
            self.assertEqual(number_in(self.lenslark.frame()), 19)

    def test_a_film_that_is_set_while_serving_begins_at_its_start(self):
        path = self.film(*numbered(5, 10), *H264)
        self.source("image", self.picture())
        with self.lenslark.serve():
            still = eventually(self.lenslark.frame)
            self.assertEqual(still.content_kind, framefile.STILL)
            self.source("video", path)
            frame = eventually(lambda: (frame := self.lenslark.frame())
                               and frame.content_kind == framefile.VIDEO and frame)
        self.assertLess(number_in(frame), 20)

    def test_another_film_takes_its_place_in_mid_play(self):
        first = self.film(*numbered(10, 20), *H264)
        second = self.film(*numbered(20, 1), *H264, "-vf", "scale=128:32", name="second.mp4")
        self.source("video", first)
        with self.lenslark.serve():
            self.seen().until(lambda seen: len(seen.frames) > 3)
            self.source("video", second)
            eventually(lambda: self.lenslark.frame().width == 128)
            seen = self.seen().until(lambda seen: len(seen.passes) == 3)
        for numbers in seen.passes:
            self.assert_rises(numbers)

    def test_pictures_that_are_stored_out_of_order_are_shown_in_order(self):
        path = self.film(*numbered(20, 1), "-c:v", "libx264", "-bf", "3", "-b_strategy", "0",
                         name="film.mov")
        with self.lenslark.serve("--video", path):
            seen = self.seen().until(lambda seen: len(seen.passes) == 3)
        for numbers in seen.passes:
            self.assert_rises(numbers)


class ShapeTest(FilmTest):
    def test_a_phones_portrait_recording_is_upright(self):
        stored = self.film(*quarters(), "-c:v", "libx264", "-qp", "4", name="stored.mp4")
        turned = self.film("-i", stored, "-c", "copy", "-metadata:s:v", "rotate=90")
        frame = self.first_frame(turned)
        self.assertEqual((frame.width, frame.height), (192, 320))
        clockwise = (BLUE, RED, WHITE, GREEN)
        anticlockwise = (GREEN, WHITE, RED, BLUE)
        # Which way, ffmpeg itself says, which turns what it reads.
        upright = self.film("-i", turned, "-pix_fmt", "yuv420p", "-c:v", "libx264", "-qp", "4",
                            "-frames:v", "1", name="upright.mkv")
        top_left = self.first_frame(upright).at(0.25, 0.25)
        expected = clockwise if top_left[2] > 127 and top_left[1] < 127 else anticlockwise
        self.assert_quarters(frame, *expected)

    def test_oblong_pixels_are_shown_in_their_display_shape(self):
        frame = self.first_frame(self.film(*numbered(10, 0.5), "-vf", "setsar=2", *H264))
        self.assertEqual((frame.width, frame.height), (512, 64))

    def test_a_film_larger_than_the_feed_is_scaled(self):
        path = self.film("-f", "lavfi", "-i", "color=size=2560x1440:rate=5:duration=0.4:color=red",
                         "-pix_fmt", "yuv420p", *H264)
        frame = self.first_frame(path)
        self.assertEqual((frame.width, frame.height), (2048, 1152))

    def test_the_colours_are_the_films(self):
        frame = self.first_frame(self.film(*quarters(), "-c:v", "libx264", "-qp", "1"))
        self.assertEqual((frame.width, frame.height), (320, 192))
        self.assert_quarters(frame, RED, GREEN, BLUE, WHITE)
        self.assertEqual(set(frame.pixels[3::4]), {255})


class RefusedFilmTest(FilmTest):
    def assert_refused(self, path):
        message = f"{path.name} is not an image or video Lenslark can show"
        self.assert_fails(self.lenslark.run("serve", "--video", path), message, 1)
        self.assert_fails(self.lenslark.run("source", "set", "video", path), message, 1)
        items = self.lenslark.support / "Media" / "items"
        self.assertEqual(list(items.iterdir()) if items.exists() else [], [])
        self.assertFalse(self.lenslark.feed.exists())

    def test_a_film_without_pictures(self):
        self.assert_refused(self.film("-f", "lavfi", "-i", "sine=duration=1", "-c:a", "aac"))

    def test_a_film_that_lost_its_end(self):
        path = self.film(*numbered(20, 2), *H264)
        path.write_bytes(path.read_bytes()[:path.stat().st_size // 2])
        self.assert_refused(path)

    def test_a_film_that_is_empty(self):
        path = self.folder / "film.mov"
        path.write_bytes(b"")
        self.assert_refused(path)

    def test_a_playlist_is_not_followed(self):
        self.film(*numbered(10, 0.5), *H264, name="real.mp4")
        for name, text in (("list.mp4", "ffconcat version 1.0\nfile real.mp4\n"),
                           ("list.mkv", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nreal.mp4\n"),
                           ("list.mov", '<?xml version="1.0"?><MPD><Period/></MPD>')):
            with self.subTest(name):
                path = self.folder / name
                path.write_text(text)
                self.assert_refused(path)


class BrokenFilmTest(FilmTest):
    def stored(self, media):
        return next((self.lenslark.support / "Media" / "items").glob(f"{media[7:]}*"))

    def test_a_film_that_shrinks_while_it_plays_leaves_its_last_picture(self):
        # Too large for what is read ahead to hold it.
        path = self.film("-f", "lavfi", "-i",
                         "testsrc2=size=640x480:rate=10:duration=4,noise=alls=40:allf=t", "-pix_fmt",
                         "yuv420p", *H264)
        media = self.lenslark.import_media(path)
        self.lenslark.write_config({"kind": "video", "mediaId": media, "loop": True})
        with self.lenslark.serve() as serving:
            eventually(self.lenslark.frame)
            with open(self.stored(media), "r+b") as file:
                file.truncate(100)
            eventually(lambda: "film stopped: " in serving.errors(), deadline=30)
            self.assertEqual(self.lenslark.frame().content_kind, framefile.VIDEO)
            self.lenslark.write_config(
                {"kind": "image", "mediaId": self.lenslark.import_media(self.picture())})
            eventually(lambda: self.lenslark.frame().content_kind == framefile.STILL)

    def test_a_film_with_damage_inside_plays_on(self):
        path = self.film(*numbered(20, 2), *H264, "-g", "10", name="film.mkv")
        data = bytearray(path.read_bytes())
        for at in range(len(data) // 2, len(data) * 2 // 3, 53):
            data[at] ^= 0x5A
        path.write_bytes(data)
        with self.lenslark.serve("--video", path):
            self.seen().until(lambda seen: len(seen.passes) >= 3)


class CamerasTest(FeedsTest):
    def film(self, *arguments, name="film.mp4"):
        return film(self.folder / name, *arguments)

    def stored(self, source):
        media = source["mediaId"]
        return next(pathlib.Path(self.lenslark.support / "Media" / "items").glob(f"{media[7:]}*"))

    def test_a_broken_film_is_told_of_and_the_other_cameras_go_on(self):
        [udid] = self.fresh_simulators("iPhone")
        good = self.film(*numbered(20, 1), *H264)
        bad = self.film(*numbered(20, 1.5), *H264, name="bad.mp4")
        device = ("--device", f"ios:{udid}", "--camera")
        self.source("set", "video", good, *device, "front")
        self.source("set", "video", bad, *device, "back")
        [source] = [a["source"] for a in self.assignments() if a["scope"]["camera"] == "back"]
        self.stored(source).write_bytes(b"no film any more" * 100)
        with self.serve() as serving:
            eventually(lambda: " failed: " in serving.errors())
            seen = Seen(simulator_feed(udid, "front"))
            seen.until(lambda seen: len(seen.passes) >= 3)
            back = framefile.latest(simulator_feed(udid, "back"))
            self.assertIsNone(back, "a camera without a picture has no frame yet")

    def test_cameras_with_one_film_show_the_same_picture(self):
        udids = self.fresh_simulators("One", "Two", "Three")
        path = self.film(*numbered(5, 4), *H264)
        with self.serve("--video", path):
            feeds = [simulator_feed(udid) for udid in udids]
            for feed in feeds:
                eventually(lambda: framefile.latest(feed))

            def numbers():
                return {number_in(framefile.latest(feed)) for feed in feeds}
            # Pictures last 200 ms: a reader that is quick finds the same one everywhere.
            for _ in range(3):
                eventually(lambda: len(numbers()) == 1)
                time.sleep(0.3)


if __name__ == "__main__":
    unittest.main()
