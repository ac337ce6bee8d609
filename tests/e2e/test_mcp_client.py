"""The server for agents, spoken to by the protocol's own client for Node.js, and what it sends held
against the protocol's schemas. scripts/setup.sh installs the client where npm is there."""

import base64
import json
import pathlib
import shutil
import subprocess
import unittest

import devicebench
from devicebench import DeviceTest, fresh_udid

CLIENT = pathlib.Path(__file__).resolve().parent.parent / "mcp-client"

TOOLS = ["list_devices", "set_source", "get_source", "reset_source", "add_media", "snapshot_feed"]

# The server, with a copy of all that it sends.
RECORDED = 'record=$1; shift; "$@" | tee "$record"'


def what_is_missing():
    if not shutil.which("node"):
        return "Node.js is not installed"
    if not (CLIENT / "node_modules" / ".installed").exists():
        return "the client's npm packages are not installed: run scripts/setup.sh, with npm there"
    return ""


@unittest.skipIf(what_is_missing(), what_is_missing())
class ClientTest(DeviceTest):
    maxDiff = None

    def setUp(self):
        super().setUp()
        self.udid = fresh_udid()
        self.simulators.booted([(self.udid, "iPhone 15")])
        self.emulators(("Pixel_8", 4242))

    def node(self, script, value):
        result = subprocess.run(["node", CLIENT / script], input=json.dumps(value).encode(),
                                capture_output=True, timeout=200, check=False,
                                env=self.lenslark.environment)
        self.assertEqual(result.returncode, 0, result.stderr.decode())
        return json.loads(result.stdout)

    def complaints(self, *answers):
        """What is wrong with answers: (method, line) each."""
        return self.node("validate.mjs", [{"method": method, "line": line}
                                          for method, line in answers])

    def converse(self, *calls, surroundings=None):
        """A client's session in which it calls tools: (name, arguments) each. Each line that the
        server sent is as the protocol has it."""
        record = self.folder / "record"
        session = {
            "command": "/bin/sh",
            "args": ["-c", RECORDED, "sh", str(record), *self.simulators.prefix,
                     self.lenslark.program, "mcp"],
            "calls": [{"name": name, "arguments": arguments} for name, arguments in calls],
        }
        if surroundings is not None:
            session["env"] = surroundings
        answer = self.node("session.mjs", session)
        self.assertEqual(answer["errors"], [])
        methods = ["initialize", "tools/list", "ping"] + ["tools/call"] * len(calls)
        lines = record.read_text().splitlines()
        self.assertEqual(len(lines), len(methods))
        self.assertEqual(self.complaints(*zip(methods, lines)), [])
        return answer

    def results(self, *calls):
        return self.converse(*calls, surroundings=self.lenslark.environment)["results"]

    def text(self, result):
        self.assertNotIn("isError", result, result)
        [item] = result["content"]
        return item["text"]

    def test_it_introduces_itself_and_lists_its_tools(self):
        session = self.converse()
        self.assertEqual(session["server"]["info"], {"name": "lenslark", "version": "1.1.0"})
        self.assertEqual(session["server"]["capabilities"], {"tools": {}})
        self.assertIn("Call list_devices first", session["server"]["instructions"])
        self.assertEqual([tool["name"] for tool in session["tools"]], TOOLS)

    def test_every_tool_can_be_called(self):
        card = self.picture("card.png")
        self.feed(self.udid, size=(1920, 1080))
        key = f"ios:{self.udid}"
        back = {"device": "iPhone 15", "camera": "back"}
        listed, added, was_set, got, snapshot, reset, after = self.results(
            ("list_devices", {}),
            ("add_media", {"paths": [str(card)], "pin": True}),
            ("set_source", {"kind": "image", "path": str(card), **back,
                            "overlay": {"path": str(card), "anchor": "top-left", "scale": 0.5}}),
            ("get_source", back),
            ("snapshot_feed", back),
            ("reset_source", back),
            ("get_source", back))
        self.assertEqual([device["key"] for device in json.loads(self.text(listed))],
                         ["android:Pixel_8", key])
        self.assertEqual([item["name"] for item in json.loads(self.text(added))], ["card.png"])
        self.assertIn(f"{key} back → image card.png", self.text(was_set))
        self.assertEqual(json.loads(self.text(got))[0]["inheritedFrom"], "camera")
        image, caption = snapshot["content"]
        self.assertEqual(devicebench.png_size(base64.b64decode(image["data"])), (1024, 576))
        self.assertEqual(caption["text"], "iPhone 15 back camera is fed right now")
        self.assertTrue(self.text(reset).startswith("Reset."))
        self.assertEqual(json.loads(self.text(after))[0]["inheritedFrom"], "default")

    def test_a_tool_that_fails_answers_with_a_result(self):
        calls = [("make_coffee", {}), ("set_source", {}), ("get_source", {"device": "Nokia"}),
                 ("snapshot_feed", {"device": "Pixel_8"}), ("add_media", {"paths": ["/nowhere"]})]
        codes = []
        for result in self.results(*calls):
            self.assertIs(result["isError"], True)
            codes.append(result["content"][0]["text"].split(":")[0])
        self.assertEqual(codes, ["bad_args", "bad_args", "device_not_found", "app_not_running",
                                 "bad_args"])

    def test_it_works_in_the_clients_own_surroundings(self):
        # Without variables of ours the client passes on HOME, PATH and little else.
        [result] = self.converse(("set_source", {"kind": "pattern"}))["results"]
        self.assertIn("global default → test pattern", self.text(result))
        config = self.folder / ".local/share/Lenslark/config.json"
        self.assertEqual(json.loads(config.read_text())["assignments"][0]["source"],
                         {"kind": "pattern"})

    def test_whatever_is_asked_for_the_answers_are_as_the_protocol_has_them(self):
        card = str(self.picture("card.png"))
        self.feed(self.udid, size=(64, 36))
        good = {"list_devices": {}, "get_source": {}, "reset_source": {},
                "set_source": {"kind": "image", "path": card, "overlay": {"path": card}},
                "add_media": {"paths": [card]}, "snapshot_feed": {"device": self.udid}}
        junk = [None, True, 7, -1.5, "", "ü\0/\\", ["a", 1], {"a": 1}]
        names = {"set_source": ["device", "camera", "kind", "path", "paths", "loop", "interval",
                                "displayIndex", "window", "overlay"],
                 "get_source": ["device", "camera"], "reset_source": ["device", "camera", "all"],
                 "add_media": ["paths", "pin"], "snapshot_feed": ["device", "camera"]}
        parameters = [{"name": tool, "arguments": arguments} for tool in [*TOOLS, "make_coffee"]
                      for arguments in [good.get(tool, {}), *junk,
                                        *({**good.get(tool, {}), name: value}
                                          for name in names.get(tool, []) for value in junk)]]
        asked = [("tools/call", given) for given in [*parameters, *junk]]
        asked += [(method, given) for method in ("initialize", "ping", "tools/list")
                  for given in junk]
        requests = [{"jsonrpc": "2.0", "id": ident, "method": method, "params": given}
                    for ident, (method, given) in enumerate(asked)]
        lines = self.run_program(
            "mcp", input="".join(json.dumps(request) + "\n" for request in requests).encode(),
            timeout=200).stdout.decode().splitlines()
        self.assertEqual([json.loads(line)["id"] for line in lines], list(range(len(asked))))
        self.assertEqual(self.complaints(*((method, line) for (method, _), line
                                           in zip(asked, lines))), [])

    def test_error_lines_are_as_the_protocol_has_them(self):
        requests = (b'{"jsonrpc":"2.0","id":"a","method":"resources/list"}\n'
                    b'{"jsonrpc":"2.0","id":-7,"method":""}\n'
                    b'{"jsonrpc":"2.0","id":1,"method":"prompts/list","params":{}}\n')
        lines = self.run_program("mcp", input=requests).stdout.decode().splitlines()
        self.assertEqual(len(lines), 3)
        self.assertEqual(self.complaints(*(("resources/list", line) for line in lines)), [])

    def test_the_schemas_find_what_is_wrong(self):
        # A parse error has no id to answer to: its null is the one thing that is not in them.
        [line] = self.run_program("mcp", input=b"garbage\n").stdout.decode().splitlines()
        self.assertTrue(all(" /id" in complaint or " id" in complaint
                            for complaint in self.complaints(("ping", line))))
        self.assertNotEqual(self.complaints(("ping", line)), [])
        for result in ({"more": 1}, [], {"content": [{"type": "text"}]}):
            wrong = json.dumps({"jsonrpc": "2.0", "id": 1, "result": result})
            self.assertNotEqual(self.complaints(("ping", wrong)), [])
