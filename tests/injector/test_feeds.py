"""A streaming client while its feed comes, goes, changes and misbehaves."""
import os
import struct
import subprocess
import sys
import threading
import time
import unittest

from feed import Feed, OFFSET, halves, now, solid
from support import BLUE, bubblewrap_works, CameraTest, GREEN, LIBRARY, PROBE, RED, Watcher

GROUND = (0x2a, 0x24, 0x20)  # The placeholder's background at the edges...
PLACEHOLDER = (GROUND, GROUND)
BLACK = (0, 0, 0)


class FeedsTest(CameraTest):
    def feed(self, path=None, **more):
        feed = Feed(path or self.feed_path, **more)
        self.addCleanup(lambda: feed.stop.set())
        return feed

    def test_placeholder_until_a_feed_appears_and_again_when_it_went(self):
        client = self.watch()
        client.await_colours(*PLACEHOLDER)
        feed = self.feed()
        feed.write(640, 480, halves(640, 480, RED, BLUE))
        client.await_colours(RED, BLUE)
        os.unlink(self.feed_path)
        client.await_colours(*PLACEHOLDER)

    def test_nothing_of_a_feed_that_went_is_held(self):
        feed = self.feed()
        feed.write(640, 480, solid(640, 480, RED))
        client = self.watch()
        client.await_colours(RED, RED)
        os.unlink(self.feed_path)
        client.await_colours(*PLACEHOLDER)
        with open(f"/proc/{client.process.pid}/maps", encoding="ascii") as maps:
            self.assertNotIn(self.feed_path, maps.read())
        self.assertEqual([link for link in client.links() if self.feed_path in link], [])

    def test_feed_cut_short_while_it_is_read_does_not_harm_the_client(self):
        feed = self.feed()
        feed.write(1280, 960, solid(1280, 960, RED))
        client = self.watch()
        client.await_colours(RED, RED)
        picture = solid(1280, 960, GREEN)
        # Long enough that many of the client's reads are met in the middle.
        for frame in range(60):
            for round in range(50):
                os.truncate(self.feed_path, OFFSET + 4096 * ((frame + round * 37) % 1200))
                os.truncate(self.feed_path, feed.size)
            client.frame()
        feed.write(1280, 960, picture)
        client.await_colours(GREEN, GREEN)

    def test_silent_writer_is_waited_for_three_seconds(self):
        feed = self.feed(beat=False)
        feed.write(640, 480, solid(640, 480, GREEN))
        client = self.watch()
        client.await_colours(GREEN, GREEN)
        feed.write(640, 480, solid(640, 480, RED))
        silence = time.monotonic()
        client.await_colours(RED, RED)
        seen = RED
        while seen == RED:
            made, seen, _ = client.frame()
            if seen == RED:
                last = made
        self.assertEqual(seen, GROUND)
        self.assertLessEqual(last - silence, 3.0)
        self.assertGreater(made - silence, 2.9)

    def test_killed_writer_that_restarts_is_followed(self):
        code = ("import sys, time; from feed import *; f = Feed(sys.argv[1]);"
                "f.write(640, 480, solid(640, 480, (0, 255, 0))); print(1, flush=True);"
                "time.sleep(60)")
        writer = subprocess.Popen([sys.executable, "-c", code, self.feed_path],
                                  stdout=subprocess.PIPE)
        self.addCleanup(writer.wait)
        self.addCleanup(writer.kill)
        writer.stdout.readline()
        client = self.watch()
        client.await_colours(GREEN, GREEN)
        writer.kill()
        client.await_colours(*PLACEHOLDER)
        feed = self.feed()
        feed.write(640, 480, solid(640, 480, BLUE))
        client.await_colours(BLUE, BLUE)
        writer.stdout.close()

    def test_restart_shows_no_other_picture_meanwhile(self):
        feed = self.feed()
        feed.write(640, 480, solid(640, 480, GREEN))
        client = self.watch()
        client.await_colours(GREEN, GREEN)
        feed = self.feed()
        client.await_colours(GREEN, GREEN)
        feed.write(640, 480, solid(640, 480, BLUE))
        colours = [client.frame()[1]]
        while colours[-1] != BLUE and len(colours) < 300:
            colours.append(client.frame()[1])
        self.assertLessEqual(set(colours), {GREEN, BLUE})
        self.assertEqual(colours[-1], BLUE)

    def test_replaced_and_resized_feeds_are_followed(self):
        feed = self.feed()
        feed.write(640, 480, solid(640, 480, RED))
        client = self.watch()
        client.await_colours(RED, RED)
        feed.write(1280, 960, solid(1280, 960, GREEN))
        client.await_colours(GREEN, GREEN)
        os.unlink(self.feed_path)
        larger = self.feed(max_width=1920, max_height=1080)
        larger.write(1920, 1080, halves(1920, 1080, BLUE, RED))
        client.await_colours(BLUE, RED)

    def test_truncated_feed_does_not_harm_the_client(self):
        feed = self.feed()
        feed.write(1280, 960, solid(1280, 960, RED))
        client = self.watch()
        client.await_colours(RED, RED)
        feed.end_beat()  # A write to what is cut off would end this program.
        for size in (OFFSET + 100000, OFFSET, 100, 0):
            os.truncate(self.feed_path, size)
            client.await_colours(RED, RED)  # The picture from before.
        client.await_colours(*PLACEHOLDER)

    def test_picture_is_filled_or_fitted_as_the_feed_says(self):
        tall = b"".join(bytes((*colour, 255)) * 480 * 320 for colour in (RED, RED, RED))
        feed = self.feed(fill=False)
        feed.write(480, 960, tall)
        client = self.watch()
        client.await_colours(BLACK, BLACK)
        feed.put(20, "I", 1)
        client.await_colours(RED, RED)

    def test_front_and_back_take_the_feeds_of_the_device(self):
        stem = os.path.join(self.directory, "device")
        for suffix, colour in (("-back", RED), ("-front", BLUE)):
            self.feed(stem + suffix + ".shm").write(640, 480, solid(640, 480, colour))
        self.feed().write(640, 480, solid(640, 480, GREEN))
        self.watch(LENSLARK_DEVICE_FEED=stem).await_colours(RED, RED)
        front = self.watch(LENSLARK_DEVICE_FEED=stem, PROBE_DEVICE="/dev/video1")
        front.await_colours(BLUE, BLUE)
        os.unlink(stem + "-front.shm")
        front.await_colours(GREEN, GREEN)

    def test_feed_of_the_process_itself_comes_first(self):
        if not bubblewrap_works():
            self.skipTest("bubblewrap does not work here")
        own = os.path.join(self.directory, "tmp")
        os.mkdir(own)
        self.feed().write(640, 480, solid(640, 480, GREEN))
        client = Watcher(["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
                          "--unshare-pid", "--as-pid-1", "--die-with-parent", "--bind", own, "/tmp",
                          "--ro-bind", self.feed_path, "/tmp/lenslark.shm",
                          "env", "LD_PRELOAD=" + LIBRARY, PROBE, "watch"],
                         {k: v for k, v in os.environ.items() if not k.startswith("LENSLARK_")})
        self.addCleanup(client.end)
        client.await_colours(GREEN, GREEN)
        wide = self.feed(os.path.join(own, "lenslark-pid-1.shm"))
        wide.write(640, 480, solid(640, 480, RED))
        client.await_colours(RED, RED)
        narrow = self.feed(os.path.join(own, "lenslark-pid-1-back.shm"))
        narrow.write(640, 480, solid(640, 480, BLUE))
        client.await_colours(BLUE, BLUE)

    def test_anything_but_an_own_regular_file_is_refused(self):
        target = os.path.join(self.directory, "target")
        self.feed(target).write(640, 480, solid(640, 480, RED))
        os.symlink(target, self.feed_path)
        client = self.watch()
        client.await_colours(*PLACEHOLDER)
        os.unlink(self.feed_path)
        os.link(target, self.feed_path)
        client.await_colours(*PLACEHOLDER)
        os.unlink(self.feed_path)
        os.mkfifo(self.feed_path)
        client.await_colours(*PLACEHOLDER)
        os.unlink(self.feed_path)
        os.mkdir(self.feed_path)
        client.await_colours(*PLACEHOLDER)
        os.rmdir(self.feed_path)
        os.rename(target, self.feed_path)
        client.await_colours(RED, RED)
        if os.geteuid() == 0:
            os.chown(self.feed_path, 65534, 65534)
            client.await_colours(*PLACEHOLDER)

    def test_hostile_headers_are_refused(self):
        top32, top64 = 2**32 - 1, 2**64 - 1
        plants = [(0, "4s", b"LLF2"), (56, "Q", top64), (56, "Q", 2**63), (112 + 16, "I", top32),
                  (112 + 20, "I", top32), (112 + 24, "I", top32), (112 + 24, "I", 4),
                  (112 + 16, "II", 0, 0), (112 + 16, "III", 2**30, 4, 0), (40, "Q", top64),
                  (112, "Q", top64)]
        feeds, clients = [], []
        for number in range(len(plants)):
            path = f"{self.feed_path}.{number}"
            feeds.append(self.feed(path))
            feeds[-1].write(640, 480, solid(640, 480, RED))
            clients.append(self.watch(LENSLARK_SHM=path))
        for client in clients:
            client.await_colours(RED, RED)
        for feed, (offset, layout, *values) in zip(feeds, plants):
            if offset == 40:
                feed.end_beat()
            feed.put(offset, layout, *values)
        # One that begins with it sees no picture at all, one that streams none but what it had.
        for feed, plant in zip(feeds, plants):
            with self.subTest(plant=plant, client="new"):
                client = self.watch(LENSLARK_SHM=feed.path)
                self.assertEqual(client.frame()[1:], PLACEHOLDER)
                client.end()
        for client, plant in zip(clients, plants):
            with self.subTest(plant=plant, client="streaming"):
                client.await_colours(*PLACEHOLDER)

    def test_version_one_file_is_read(self):
        feed = self.feed()
        picture = solid(640, 480, BLUE)
        feed.map[OFFSET:OFFSET + len(picture)] = picture
        feed.put(4, "IIII", 1, 640, 480, 640 * 4)
        feed.put(24, "QQQ", 2, now(), now())
        self.watch().await_colours(BLUE, BLUE)

    def test_no_frame_is_ever_torn(self):
        feed = self.feed()
        pictures = [solid(1280, 960, RED), solid(1280, 960, BLUE)]
        feed.write(1280, 960, pictures[0])
        client = self.watch()
        client.await_colours(RED, RED)
        done = threading.Event()

        # Bursts tear whatever is copied during them. The pauses, each longer than the burst before
        # it, let even the slowest reader get a whole picture, of either colour in turn.
        def write():
            turn = 0
            while not done.is_set():
                begin = time.monotonic()
                for _ in range(5):
                    turn += 1
                    feed.write(1280, 960, pictures[turn % 2])
                done.wait(0.05 + time.monotonic() - begin)

        writer = threading.Thread(target=write)
        writer.start()
        try:
            seen = set()
            for count in range(1800):
                _, left, right = client.frame()
                self.assertEqual(left, right)
                seen.add(left)
                if count >= 120 and seen == {RED, BLUE}:
                    break
        finally:
            done.set()
            writer.join()
        self.assertEqual(seen, {RED, BLUE})


if __name__ == "__main__":
    unittest.main()
