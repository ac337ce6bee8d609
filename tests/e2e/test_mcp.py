"""The server for agents, spoken to in raw lines."""

import base64
import contextlib
import hashlib
import json
import os
import pathlib
import queue
import socket
import subprocess
import threading

import devicebench
from devicebench import DeviceTest, fresh_udid
from lenslark import RED, pretty

PARSE_ERROR = {"jsonrpc": "2.0", "id": None, "error": {"code": -32700, "message": "parse error"}}
READY = b"lenslark mcp 1.1.0 ready on stdio\n"
PICKED_UP = "\nRunning camera apps pick this up within a second."


class Session:
    """A running server; what it says is read beside the test, so that neither waits for good."""

    def __init__(self, process):
        self.process = process
        self.lines = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()
        self._next = 0

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def send(self, line):
        self.process.stdin.write(line if isinstance(line, bytes) else json.dumps(line).encode())
        self.process.stdin.write(b"\n")
        self.process.stdin.flush()

    def receive(self):
        return self.lines.get(timeout=20)

    def ask(self, method, **params):
        self._next += 1
        self.send({"jsonrpc": "2.0", "id": self._next, "method": method, "params": params})
        answer = json.loads(self.receive())
        assert (answer["jsonrpc"], answer["id"]) == ("2.0", self._next), answer
        return answer

    def call(self, tool, **arguments):
        return self.ask("tools/call", name=tool, arguments=arguments)["result"]

    def text(self, tool, **arguments):
        result = self.call(tool, **arguments)
        assert "isError" not in result, result
        [item] = result["content"]
        assert item.keys() == {"type", "text"} and item["type"] == "text", item
        return item["text"]

    def failure(self, tool, **arguments):
        result = self.call(tool, **arguments)
        assert result["isError"] is True, result
        [item] = result["content"]
        assert item["type"] == "text", item
        return item["text"]


class MCPTest(DeviceTest):
    maxDiff = None

    @contextlib.contextmanager
    def server(self, environment=None):
        with open(self.folder / "mcp.err", "wb") as errors:
            process = subprocess.Popen([*self.simulators.prefix, self.lenslark.program, "mcp"],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors,
                                       env=self.lenslark.environment if environment is None
                                       else environment)
        session = Session(process)
        try:
            yield session
            process.stdin.close()
            self.assertEqual(process.wait(20), 0)
            self.assertIsNone(session.receive(), "more was said than asked for")
        finally:
            process.kill()
            process.wait()
            process.stdin.close()
            process.stdout.close()

    def errors(self):
        return (self.folder / "mcp.err").read_bytes()

    def converse(self, data):
        """All lines of an answer to a whole input."""
        result = self.lenslark.run("mcp", input=data)
        self.assertEqual((result.stderr, result.returncode), (READY, 0))
        self.assertTrue(result.stdout == b"" or result.stdout.endswith(b"\n"))
        return result.stdout.splitlines()


class ProtocolTest(MCPTest):
    def ping(self, ident, end=b"\n"):
        return b'{"jsonrpc":"2.0","id":' + ident + b',"method":"ping"}' + end

    def pong(self, ident):
        return b'{"id":' + ident + b',"jsonrpc":"2.0","result":{}}'

    def test_initialize(self):
        [line] = self.converse(b'{"jsonrpc":"2.0","id":1,"method":"initialize","params":'
                               b'{"protocolVersion":"2024-11-05","capabilities":{},'
                               b'"clientInfo":{"name":"x","version":"1"}}}\n')
        self.assertEqual(json.loads(line), {"jsonrpc": "2.0", "id": 1, "result": {
            "protocolVersion": "2025-06-18",
            "capabilities": {"tools": {}},
            "serverInfo": {"name": "lenslark", "version": "1.1.0"},
            "instructions": "Controls what iOS Simulator and Android emulator cameras see. Call "
                            "list_devices first; prefer camera-scoped set_source in tests and "
                            "reset_source afterwards."}})

    def test_an_empty_input_ends_it(self):
        self.assertEqual(self.converse(b""), [])

    def test_lines_are_compact_with_plain_slashes(self):
        [line] = self.converse(b'{"id":"a/b","method":"c/d"}\n')
        self.assertEqual(line, b'{"error":{"code":-32601,"message":"method not found: c/d"},'
                               b'"id":"a/b","jsonrpc":"2.0"}')

    def test_ids_come_back_as_they_went(self):
        for ident in (b"0", b"-1", b'"x"', b"null", b"9007199254740993", b"18446744073709551615",
                      b"-9223372036854775808", b"123456789012345678901234567890", b"1.50", b"1e3",
                      b'[1,"a"]', b'{"a":1}', b"true", '"ü"'.encode(), b"1E-5", b"-0.0", b"-0",
                      b"1e400", b"-1E+400", b"1e-9999", b"0.1000000000000000055", b"1" * 400,
                      b'[-0,{"id":"} , ]"}]', rb'"\" \\"',
                      b'[123456789012345678901,{"id":1.0,"b":[]},[1.50]]'):
            self.assertEqual(self.converse(self.ping(ident)), [self.pong(ident)])

    def test_the_white_space_in_an_id_is_not_sent_back(self):
        self.assertEqual(self.converse(b'{"id" : [ 1 ,\t{"a b" : " , "} ] ,"method":"ping"}\n'),
                         [self.pong(b'[1,{"a b":" , "}]')])

    def test_what_is_no_message_gets_one_parse_error(self):
        for line in (b"garbage", b"[]", b"[" + self.ping(b"1", b"") + b"]", b'"text"', b"5",
                     b"null", b"{", self.ping(b"01", b""), self.ping(b"1.", b""),
                     self.ping(b"1 2", b""), self.ping(b"1e", b""), self.ping(b"NaN", b""),
                     b'{"id":1,"method":"\xff"}', b"\xff\xfe", b"\0",
                     b'{"id":1,"method":"ping","a":' + b"[" * 100000 + b"]" * 100000 + b"}",
                     b'{"id":1,"method":"ping"} {"id":2,"method":"ping"}'):
            lines = self.converse(line + b"\n" + self.ping(b"7"))
            self.assertEqual([json.loads(line) for line in lines[:-1]], [PARSE_ERROR], line[:50])
            self.assertEqual(lines[-1], self.pong(b"7"))

    def test_notifications_are_not_answered(self):
        lines = self.converse(
            b'{"jsonrpc":"2.0","method":"notifications/initialized"}\n'
            b'{"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":1}}\n'
            b'{"jsonrpc":"2.0","method":"nobody/knows"}\n' + self.ping(b"1"))
        self.assertEqual(lines, [self.pong(b"1")])

    def test_blank_lines_carriage_returns_and_a_missing_last_end_do_no_harm(self):
        lines = self.converse(b"\n\r\n  \n" + self.ping(b"1", b"\r\n") + b"\n" + self.ping(b"2", b""))
        self.assertEqual(lines, [self.pong(b"1"), self.pong(b"2")])

    def test_a_line_of_ten_megabytes_is_handled(self):
        padding = b"x" * 10_000_000
        request = b'{"id":1,"method":"ping","params":{"padding":"' + padding + b'"}}\n'
        self.assertEqual(self.converse(request + self.ping(b"2")), [self.pong(b"1"), self.pong(b"2")])

    def test_a_line_beyond_all_bounds_is_a_parse_error(self):
        lines = self.converse(b"x" * 70_000_000 + b"\n" + self.ping(b"2"))
        self.assertEqual([json.loads(lines[0]), lines[1]], [PARSE_ERROR, self.pong(b"2")])

    def test_hundreds_of_requests_are_answered_in_order(self):
        idents = [str(number).encode() for number in range(500)]
        lines = self.converse(b"".join(map(self.ping, idents)))
        self.assertEqual(lines, list(map(self.pong, idents)))

    def test_hundreds_of_calls_are_answered_in_order(self):
        calls = [{"jsonrpc": "2.0", "id": number, "method": "tools/call",
                  "params": {"name": "get_source" if number % 3 else "no_such_tool"}}
                 for number in range(300)]
        lines = self.converse("".join(json.dumps(call) + "\n" for call in calls).encode())
        answers = [json.loads(line) for line in lines]
        self.assertEqual([answer["id"] for answer in answers], list(range(300)))
        self.assertEqual(["isError" in answer["result"] for answer in answers],
                         [number % 3 == 0 for number in range(300)])

    def test_a_call_that_is_cancelled_while_it_runs_does_no_harm(self):
        self.simulators.answers("cat > /dev/null; echo '{\"devices\":{}}'")
        self.emulators()
        result = self.run_program("mcp", input=(
            b'{"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"list_devices"}}\n'
            b'{"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":1}}\n'
            + self.ping(b"2")))
        self.assertEqual([json.loads(line)["id"] for line in result.stdout.splitlines()], [1, 2])

    def test_an_input_and_an_output_that_do_not_wait_are_waited_for(self):
        ours_in, its_in = socket.socketpair()
        ours_out, its_out = socket.socketpair()
        its_in.setblocking(False)
        its_out.setblocking(False)
        process = subprocess.Popen([self.lenslark.program, "mcp"], stdin=its_in, stdout=its_out,
                                   stderr=subprocess.PIPE, env=self.lenslark.environment)
        self.addCleanup(process.kill)
        its_in.close()
        its_out.close()
        # It is up: from now on it looks for input where there is none.
        self.assertEqual(process.stderr.readline(), READY)
        requests = [b'{"id":%d,"method":"tools/list"}\n' % number for number in range(300)]
        sender = threading.Thread(target=lambda: (ours_in.sendall(b"".join(requests)),
                                                  ours_in.close()))
        sender.start()
        with ours_out, ours_out.makefile("rb") as answers:
            self.assertEqual([json.loads(line)["id"] for line in answers], list(range(300)))
        sender.join()
        self.assertEqual(process.wait(20), 0)
        process.stderr.close()

    def test_without_an_output_it_says_so(self):
        result = self.lenslark.run("mcp", prefix=("sh", "-c", 'exec "$@" >&-', "sh"),
                                   input=self.ping(b"1"))
        self.assertEqual((result.stderr, result.returncode),
                         (b"error: standard output: Bad file descriptor\n", 1))

    def test_an_output_that_takes_nothing_is_an_error(self):
        result = self.lenslark.run("mcp", prefix=("sh", "-c", 'exec "$@" > /dev/full', "sh"),
                                   input=self.ping(b"1"))
        self.assertEqual(
            (result.stderr, result.returncode),
            (READY + b"error: standard output: No space left on device; make room there\n", 1))

    def test_answers_come_before_the_next_request(self):
        with self.server() as session:
            for ident in (b"1", b"2"):
                session.send(self.ping(ident, b""))
                self.assertEqual(session.receive(), self.pong(ident) + b"\n")

    def test_a_closed_output_ends_it_quietly(self):
        process = subprocess.Popen([self.lenslark.program, "mcp"], stdin=subprocess.PIPE,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env=self.lenslark.environment)
        process.stdout.close()
        process.stdin.write(self.ping(b"1") * 3)
        process.stdin.flush()
        self.assertEqual(process.wait(20), 0)
        self.assertEqual(process.stderr.read(), READY)
        process.stderr.close()
        with contextlib.suppress(BrokenPipeError):
            process.stdin.close()

    def test_without_standard_error_it_still_serves(self):
        result = self.lenslark.run("mcp", prefix=("sh", "-c", 'exec "$@" 2>&-', "sh"),
                                   input=self.ping(b"1"))
        self.assertEqual((result.stdout, result.returncode), (self.pong(b"1") + b"\n", 0))

    def test_tools_are_listed_in_order(self):
        with self.server() as session:
            tools = session.ask("tools/list")["result"]["tools"]
        self.assertEqual([tool["name"] for tool in tools],
                         ["list_devices", "set_source", "get_source", "reset_source", "add_media",
                          "snapshot_feed"])
        for tool in tools:
            self.assertEqual(tool.keys(), {"name", "description", "inputSchema"})
            self.assertEqual(tool["inputSchema"]["type"], "object")

    def test_works_in_the_surroundings_of_an_agents_host(self):
        bare = {"HOME": str(self.folder), "PATH": "/usr/bin:/bin", "LOGNAME": "x", "SHELL": "/bin/sh",
                "TERM": "dumb", "USER": "x"}
        with self.server(environment=bare) as session:
            session.text("set_source", kind="pattern")
        config = self.folder / ".local/share/Lenslark/config.json"
        self.assertEqual(json.loads(config.read_text())["assignments"][0]["source"],
                         {"kind": "pattern"})

    def test_works_without_any_variable(self):
        with self.server(environment={}) as session:
            session.text("get_source")
            session.text("list_devices")
            # Nothing is written: the home directory of the user database is that of a person.
            self.assertEqual(session.failure("set_source", kind="hologram").split(":")[0],
                             "bad_args")

    def test_says_which_variable_is_missing(self):
        # A user whom the user database does not know has no home.
        self.simulators.prefix = (
            ("setpriv", "--reuid=54321", "--regid=54321", "--clear-groups") if os.getuid() == 0
            else ("unshare", "--user", "--map-user=54321"))
        if self.run_program("version").returncode != 0:
            self.skipTest("no program can be run as somebody else here")
        with self.server(environment={"PATH": "/usr/bin:/bin"}) as session:
            self.assertRegex(session.failure("set_source", kind="pattern"),
                             r"^internal: .*/\.local/share/Lenslark.*\. HOME is not set: add it, "
                             r"or LENSLARK_CONFIG_DIR, to the server's environment$")

    def test_children_find_nothing_on_their_standard_input_and_nothing_they_say_gets_through(self):
        # A tool that reads all its input would swallow the requests behind the first.
        self.simulators.answers("cat > /dev/null; echo 'tool: warning' >&2; echo '{\"devices\":{}}'")
        self.emulators()
        call = (b'{"jsonrpc":"2.0","id":1,"method":"tools/call",'
                b'"params":{"name":"list_devices","arguments":{}}}\n')
        result = self.run_program("mcp", input=call + self.ping(b"2"))
        lines = result.stdout.splitlines()
        self.assertEqual(len(lines), 2)
        self.assertEqual(json.loads(lines[0])["result"]["content"],
                         [{"type": "text", "text": "[]"}])
        self.assertEqual(lines[1], self.pong(b"2"))


class ToolTest(MCPTest):
    def setUp(self):
        super().setUp()
        self.udid = fresh_udid()
        self.simulators.booted([(self.udid, "iPhone 15")])
        self.emulators(("Pixel_8", 4242))

    def test_an_unknown_tool(self):
        with self.server() as session:
            self.assertEqual(session.failure("make_coffee"), "bad_args: unknown tool make_coffee")

    def test_list_devices(self):
        self.remember(("ios:OLD", "Old"))
        expected = [
            {"cameras": [{"camera": "back", "inheritedFrom": "default", "kind": "desktop",
                          "scope": "global"}],
             "connected": True, "key": "android:Pixel_8", "name": "Pixel_8",
             "platform": "Android"},
            {"cameras": [{"camera": camera, "inheritedFrom": "default", "kind": "desktop",
                          "scope": "global"} for camera in ("back", "front")],
             "connected": True, "key": f"ios:{self.udid}", "name": "iPhone 15", "platform": "iOS"},
            {"connected": False, "key": "ios:OLD", "name": "Old", "platform": "iOS"}]
        with self.server() as session:
            self.assertEqual(session.text("list_devices"), pretty(expected))

    def test_set_get_and_reset(self):
        card = self.picture("card.png")
        ident = "sha256:" + hashlib.sha256(card.read_bytes()).hexdigest()
        key = f"ios:{self.udid}"
        with self.server() as session:
            self.assertEqual(session.text("set_source", kind="image", path=str(card),
                                          device="iphone 15", camera="back"),
                             f"{key} back → image card.png{PICKED_UP}")
            self.assertEqual(session.text("set_source", kind="pattern"),
                             f"global default → test pattern{PICKED_UP}")
            self.assertEqual(session.text("get_source", device="iPhone 15"), pretty([
                {"camera": "back", "deviceKey": key, "inheritedFrom": "camera", "kind": "image",
                 "mediaId": ident, "name": "card.png", "scope": "camera"}]))
            self.assertEqual(session.text("get_source", device="all", camera="front"), pretty([
                {"camera": "front", "deviceKey": device, "inheritedFrom": "global",
                 "kind": "pattern", "scope": "global"} for device in ("android:Pixel_8", key)]))
            self.assertEqual(session.text("reset_source", device=key, camera="back"),
                             "Reset. Cameras fall back to the next scope (camera › device › global "
                             "› desktop).")
            self.assertEqual(json.loads(session.text("get_source", device=key))[0]["inheritedFrom"],
                             "global")
            session.text("reset_source", all=True)
            self.assertEqual(session.text("get_source"), pretty(
                {"inheritedFrom": "default", "kind": "desktop", "scope": "global"}))
        self.assertEqual(self.assignments(), [])

    def test_set_source_takes_all_that_the_schema_names(self):
        a, b = self.picture("a.png"), self.picture("b.png", colours=(RED,) * 4)
        with self.server() as session:
            self.assertEqual(
                session.text("set_source", kind="slideshow", path=str(a), paths=[str(b)],
                             interval=0.5, loop=False, device="android:Pixel_8",
                             overlay={"path": str(b), "anchor": "bottom-left", "scale": 0.5,
                                      "opacity": 0.5, "x": 0, "y": 1}),
                "android:Pixel_8 → slideshow of 2 images every 0.5s + overlay b.png" + PICKED_UP)
            self.assertEqual(session.text("set_source", kind="display", displayIndex=2),
                             "global default → display 2" + PICKED_UP)
            self.assertEqual(session.text("set_source", kind="window", window="Maps"),
                             'global default → window "Maps"' + PICKED_UP)
        slideshow = self.assignments()[0]
        ids = ["sha256:" + hashlib.sha256(path.read_bytes()).hexdigest() for path in (a, b)]
        self.assertEqual(slideshow["source"],
                         {"kind": "slideshow", "mediaIds": ids, "intervalSec": 0.5})
        self.assertEqual(slideshow["overlay"], {"mediaId": ids[1], "anchor": "bottomLeft",
                                                "scale": 0.5, "opacity": 0.5, "x": 0, "y": 1})

    def test_each_violation_is_told_so_that_it_can_be_mended(self):
        calls = [
            ("set_source", {}, "kind is required"),
            ("set_source", {"kind": "hologram"},
             'unknown source "hologram" (desktop, image, video, slideshow, pattern, display, '
             'window)'),
            ("set_source", {"kind": 7},
             "kind is 7; it must be one of desktop, image, video, slideshow, pattern, display, "
             "window"),
            ("set_source", {"kind": "image"}, "image needs a file"),
            ("set_source", {"kind": "image", "path": 5}, "path is 5; it must be a string"),
            ("set_source", {"kind": "slideshow", "paths": "x"},
             'paths is "x"; it must be an array of strings'),
            ("set_source", {"kind": "slideshow", "paths": ["x", None]},
             "paths[1] is null; it must be a string"),
            ("set_source", {"kind": "display", "displayIndex": 1.5},
             "displayIndex is 1.5; it must be a whole number"),
            ("set_source", {"kind": "pattern", "loop": 1}, "loop is 1; it must be true or false"),
            ("set_source", {"kind": "slideshow", "interval": 0.1},
             "interval is 0.1; it must be a number from 0.5 to 60"),
            ("set_source", {"kind": "pattern", "camera": "side", "device": "all"},
             'camera is "side"; it must be one of back, front'),
            ("set_source", {"kind": "pattern", "camera": "back"}, "--camera needs --device"),
            ("set_source", {"kind": "pattern", "overlay": {}}, "overlay.path is required"),
            ("set_source", {"kind": "pattern", "overlay": {"anchor": "middle"}},
             "overlay.path is required"),
            ("set_source", {"overlay": {"path": "x", "anchor": "middle"}}, "kind is required"),
            ("set_source", {"kind": "pattern", "overlay": {"path": "x", "anchor": "middle"}},
             "unknown anchor middle"),
            ("set_source", {"kind": "pattern", "overlay": {"path": "x", "opacity": 2}},
             "overlay.opacity is 2; it must be a number from 0 to 1"),
            ("reset_source", {"all": 1}, "all is 1; it must be true or false"),
            ("add_media", {}, "paths is required"),
            ("add_media", {"paths": []}, "paths is required"),
            ("snapshot_feed", {}, "device is required"),
        ]
        with self.server() as session:
            for tool, arguments, message in calls:
                self.assertEqual(session.failure(tool, **arguments), "bad_args: " + message)
        self.assertFalse(self.lenslark.config_file.exists())

    def test_other_failures_have_their_codes(self):
        notes = self.folder / "notes.txt"
        notes.write_text("text")
        with self.server() as session:
            self.assertEqual(session.failure("get_source", device="Nokia"),
                             'device_not_found: No device matches "Nokia". Run `lenslark devices`.')
            self.assertEqual(session.failure("add_media", paths=["/nowhere.png"]),
                             "bad_args: /nowhere.png is not a readable file")
            self.assertEqual(
                session.failure("add_media", paths=[str(notes)]),
                "unsupported_media: notes.txt is not an image or video Lenslark can show")
            self.assertEqual(
                session.failure("set_source", kind="pattern", device="Pixel_8", camera="front"),
                "bad_args: Android emulators have one Lenslark camera (the back camera; the "
                "emulator takes a single webcam). Set it without --camera, or with --camera back.")
            self.lenslark.support.mkdir(exist_ok=True)
            (self.lenslark.support / "config.lock").mkdir()
            self.assertRegex(session.failure("set_source", kind="pattern"), r"^internal: .+config")
            self.assertEqual(session.ask("ping")["result"], {})

    def test_a_path_is_no_path_up_to_a_nul_byte(self):
        picture = str(self.picture("a.png"))
        with self.server() as session:
            for path in (picture + "\0", picture + "\0b.png", f"{self.folder}\0b.png", "\0"):
                shown = path.replace("\0", "\ufffd")
                refusal = f"bad_args: {shown} is not a readable file"
                with self.subTest(path):
                    self.assertEqual(session.failure("add_media", paths=[path]), refusal)
                    self.assertEqual(session.failure("set_source", kind="slideshow", path=path),
                                     refusal)
        self.assertFalse((self.lenslark.support / "Media" / "index.json").exists())

    def test_add_media(self):
        a, b = self.picture("a.png"), self.picture("b.png", colours=(RED,) * 4)
        entries = [{"height": 48, "id": "sha256:" + hashlib.sha256(path.read_bytes()).hexdigest(),
                    "kind": "image", "name": path.name, "pinned": True, "width": 64}
                   for path in (b, a, b)]
        with self.server() as session:
            self.assertEqual(
                session.text("add_media", paths=[str(b), str(a), str(b)], pin=True),
                pretty(entries))
            self.assertEqual(session.text("add_media", paths=[str(a)]), pretty(entries[1:2]))

    def test_a_snapshot_is_a_picture_and_its_caption(self):
        self.feed(self.udid, size=(1920, 1080), colour=(1, 2, 3))
        with self.server() as session:
            result = session.call("snapshot_feed", device="iPhone 15")
        image, caption = result["content"]
        self.assertNotIn("isError", result)
        self.assertEqual((image["type"], image["mimeType"]), ("image", "image/png"))
        data = base64.b64decode(image["data"], validate=True)
        self.assertEqual(devicebench.png_size(data), (1024, 576))
        self.assertEqual(caption,
                         {"type": "text", "text": "iPhone 15 back camera is fed right now"})

    def test_a_small_frame_is_not_enlarged(self):
        self.feed(self.udid, size=(32, 16), camera="-front")
        with self.server() as session:
            image, caption = session.call("snapshot_feed", device=self.udid,
                                          camera="front")["content"]
        self.assertEqual(devicebench.png_size(base64.b64decode(image["data"])), (32, 16))
        self.assertEqual(caption["text"], "iPhone 15 front camera is fed right now")

    def test_a_stale_feed_is_no_live_feed(self):
        self.feed(self.udid, age=3.5)
        with self.server() as session:
            for device in ("iPhone 15", "Pixel_8"):
                self.assertEqual(session.failure("snapshot_feed", device=device),
                                 f"app_not_running: {device} has no live feed; is Lenslark on?")

    def test_what_others_change_is_seen_at_once(self):
        with self.server() as session:
            session.text("get_source")
            self.lenslark.run("source", "set", "pattern")
            self.assertEqual(json.loads(session.text("get_source"))["kind"], "pattern")

    def test_no_codec_library_is_mapped_before_a_picture_is_touched(self):
        with self.server() as session:
            session.ask("initialize")
            session.text("get_source")
            # The process is still the one that was started: the prefix only makes way for it.
            maps = pathlib.Path(f"/proc/{session.process.pid}/maps").read_text()
        self.assertIn("libstdc++", maps)
        self.assertNotRegex(maps, "libav|libvips|libpango|lenslark-image|lenslark-video")
