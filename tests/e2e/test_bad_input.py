"""Pictures that are none: each gets a clear refusal and leaves nothing behind."""

import os
import struct
import time
import unittest
import zlib

import framefile
from lenslark import RED, EndToEndTest, eventually


def bomb(side):
    """A small PNG that says it is `side` pixels high and wide, and holds as much in black."""
    packer = zlib.compressobj(9)
    row = bytes(1 + side * 3)
    data = b"".join(packer.compress(row) for _ in range(min(side, 2000))) + packer.flush()
    return (b"\x89PNG\r\n\x1a\n"
            + framefile.chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 2, 0, 0, 0))
            + framefile.chunk(b"IDAT", data) + framefile.chunk(b"IEND", b""))


class RefusedPictureTest(EndToEndTest):
    def assert_refused(self, path, message, status=1):
        result = self.lenslark.run("serve", "--image", path)
        self.assert_fails(result, message, status)
        items = self.lenslark.support / "Media" / "items"
        self.assertEqual(list(items.iterdir()) if items.exists() else [], [])
        index = self.lenslark.support / "Media" / "index.json"
        if index.exists():
            self.assertEqual(index.read_text().strip(), "[]")

    def file(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def unsupported(self, name):
        return f"{name} is not an image or video Lenslark can show"

    def test_a_missing_file(self):
        path = self.folder / "missing.png"
        self.assert_refused(path, f"{path} is not a readable file", 2)

    def test_an_empty_name(self):
        self.assert_refused("", " is not a readable file", 2)

    def test_a_directory(self):
        path = self.folder / "folder.png"
        path.mkdir()
        self.assert_refused(path, f"{path} is not a readable file", 2)

    def test_a_fifo_does_not_block(self):
        path = self.folder / "fifo.png"
        os.mkfifo(path)
        self.assert_refused(path, f"{path} is not a readable file", 2)

    def test_a_device(self):
        self.assert_refused("/dev/zero", "/dev/zero is not a readable file", 2)

    def test_a_type_that_is_no_picture(self):
        self.assert_refused(self.file("notes.txt", b"hello"), self.unsupported("notes.txt"))

    def test_an_empty_file(self):
        self.assert_refused(self.file("empty.png", b""), self.unsupported("empty.png"))

    def test_a_mislabelled_file(self):
        self.assert_refused(self.file("text.jpg", b"no picture at all\n" * 100),
                            self.unsupported("text.jpg"))

    def test_random_bytes(self):
        self.assert_refused(self.file("random.png", os.urandom(5000)),
                            self.unsupported("random.png"))

    def test_a_header_alone(self):
        whole = framefile.png(64, 48, bytes(64 * 48 * 3))
        self.assert_refused(self.file("cut.png", whole[:40]), self.unsupported("cut.png"))

    def test_a_decompression_bomb_is_refused_from_its_header(self):
        path = self.file("bomb.png", bomb(30000))
        begin = time.monotonic()
        self.assert_refused(path, self.unsupported("bomb.png"))
        self.assertLess(time.monotonic() - begin, 5)

    def test_a_film_is_no_image(self):
        path = self.file("film.mov", b"no film at all" * 100)
        self.assert_refused(path, self.unsupported("film.mov"))


class ServedPictureTest(EndToEndTest):
    def test_a_stored_picture_that_is_gone_does_not_end_serve(self):
        media = self.lenslark.import_media(self.picture())
        red = self.lenslark.import_media(self.picture("red.png", colours=(RED,) * 4))
        next((self.lenslark.support / "Media" / "items").glob(f"{media[7:]}*")).unlink()
        self.lenslark.write_config({"kind": "image", "mediaId": media})
        with self.lenslark.serve() as serving:
            eventually(lambda: "failed: " in serving.errors())
            self.lenslark.write_config({"kind": "image", "mediaId": red})
            self.assert_colour(eventually(self.lenslark.frame).pixel(0, 0), RED)

    def test_a_stored_picture_that_was_spoilt_does_not_end_serve(self):
        media = self.lenslark.import_media(self.picture())
        next((self.lenslark.support / "Media" / "items").glob(f"{media[7:]}*")).write_bytes(b"x")
        self.lenslark.write_config({"kind": "image", "mediaId": media})
        with self.lenslark.serve() as serving:
            eventually(lambda: "is not an image or video Lenslark can show" in serving.errors())
            self.assertTrue(serving.running())

    def test_a_slideshow_skips_what_it_cannot_show(self):
        media = self.lenslark.import_media(self.picture())
        red = self.lenslark.import_media(self.picture("red.png", colours=(RED,) * 4))
        next((self.lenslark.support / "Media" / "items").glob(f"{media[7:]}*")).write_bytes(b"x")
        self.lenslark.write_config({"kind": "slideshow", "mediaIds": [media, red],
                                    "intervalSec": 0.5})
        with self.lenslark.serve():
            self.assert_colour(eventually(self.lenslark.frame).pixel(0, 0), RED)

    def test_an_unknown_media_id_does_not_end_serve(self):
        self.lenslark.write_config({"kind": "image", "mediaId": "sha256:../../../etc/passwd"})
        with self.lenslark.serve() as serving:
            self.lenslark.write_config({"kind": "pattern"})
            eventually(self.lenslark.frame)
            self.assertTrue(serving.running())


if __name__ == "__main__":
    unittest.main()
