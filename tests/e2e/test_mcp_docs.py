"""The examples of docs/mcp.md, as they stand there, against the server beside running cameras."""

import base64
import hashlib
import json
import os
import pathlib
import re
import subprocess

from lenslark import RED, eventually, pretty
from test_mcp import MCPTest

GUIDE = pathlib.Path(__file__).resolve().parent.parent.parent / "docs" / "mcp.md"


def example(tool):
    """The arguments of the call that the guide shows, and the answer that it promises."""
    [section] = re.findall(rf"^### {tool}\n(.*?)(?=^##)", GUIDE.read_text(), re.M | re.S)
    blocks = re.findall(r"^```json\n(.*?)\n```$|^((?:    [^\n]+\n)+)", section, re.M | re.S)
    call, answer = [fenced or re.sub(r"^    ", "", indented, flags=re.M).rstrip("\n")
                    for fenced, indented in blocks]
    return call, answer


class GuideTest(MCPTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.card = self.picture("card.png", size=(640, 480), colours=(RED,) * 4)
        # As if this process were an emulator: no other has its number.
        self.emulators(("Pixel_8", os.getpid()))
        feed = pathlib.Path(f"/tmp/lenslark-pid-{os.getpid()}.shm")
        self.addCleanup(feed.unlink, missing_ok=True)

    def shown(self, text):
        """What the guide would show in place of this machine's own paths and digests."""
        digest = hashlib.sha256(self.card.read_bytes()).hexdigest()
        return text.replace(digest, "3f2a…").replace(str(self.card), "/home/me/card.png")

    def call(self, session, tool):
        call, _answer = example(tool)
        arguments = json.loads(call.replace("/home/me/card.png", str(self.card)))
        return session.call(tool, **arguments)

    def assert_as_in_the_guide(self, session, tool):
        result = self.call(session, tool)
        self.assertNotIn("isError", result)
        self.assertEqual(self.shown(result["content"][0]["text"]), example(tool)[1])

    def is_red(self, picture):
        """Whether a PNG is, in its middle; scaling may darken it a little."""
        path = self.folder / "snapshot.png"
        path.write_bytes(base64.b64decode(picture["data"]))
        result = subprocess.run(["vips", "getpoint", path, "400", "300"], capture_output=True,
                                check=True)
        colour = [float(value) for value in result.stdout.split()[:3]]
        return all(abs(a - b) <= 4 for a, b in zip(colour, RED))

    def test_every_example_is_answered_as_it_says(self):
        with self.server() as session:
            for tool in ("list_devices", "set_source", "get_source", "add_media", "reset_source"):
                with self.subTest(tool):
                    self.assert_as_in_the_guide(session, tool)

    def test_a_test_shows_a_picture_looks_at_it_and_leaves_nothing_behind(self):
        with self.lenslark.serve(prefix=self.simulators.prefix), self.server() as session:
            session.text("set_source", kind="pattern")
            self.assertNotIn("isError", self.call(session, "set_source"))

            def red_snapshot():
                result = self.call(session, "snapshot_feed")
                red = "isError" not in result and self.is_red(result["content"][0])
                return result["content"] if red else None

            picture, caption = eventually(red_snapshot, deadline=60, pause=0.1)
            picture["data"] = picture["data"][:11] + "…"
            self.assertEqual(pretty([picture, caption]), example("snapshot_feed")[1])
            self.assertNotIn("isError", self.call(session, "reset_source"))
            # What it showed before.
            eventually(lambda: red_snapshot() is None, deadline=60, pause=0.1)
        self.assertEqual([entry["scope"] for entry in self.assignments()], [{"kind": "global"}])
