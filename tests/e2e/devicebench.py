"""A machine whose simulators and emulators a test makes up."""

import json
import os
import struct
import time
import uuid

import framefile
import standins
from lenslark import EndToEndTest


class DeviceTest(EndToEndTest):
    """A test that says which devices run. Nothing runs at first."""

    def setUp(self):
        super().setUp()
        self.simulators = standins.simulators_for(self)
        ps = self.simulators.farm / "ps"
        ps.unlink(missing_ok=True)
        self.ps = standins.Tool(self.folder / "ps", ps)
        self.simulators.booted([])

    def emulators(self, *emulators):
        """From now on these emulators run: (AVD, process id) each."""
        lines = "".join(f"{pid:7} /sdk/emulator/qemu-system-x86_64 -netdelay none -avd {avd}\n"
                        for avd, pid in emulators)
        self.ps.answers(f"cat <<'END'\n{lines}END")

    def run_program(self, *arguments, **options):
        return self.lenslark.run(*arguments, prefix=self.simulators.prefix, **options)

    def remember(self, *devices):
        """Devices that were seen before: (key, name) each."""
        self.edit_config(lambda config: config["knownDevices"].extend(
            {"deviceKey": key, "name": name, "lastSeen": "2025-05-01T09:30:00Z"}
            for key, name in devices))

    def edit_config(self, change):
        config = self.config()
        change(config)
        self.lenslark.support.mkdir(parents=True, exist_ok=True)
        self.lenslark.config_file.write_text(json.dumps(config))

    def config(self):
        try:
            return json.loads(self.lenslark.config_file.read_text())
        except FileNotFoundError:
            return {"schemaVersion": 1, "assignments": [], "knownDevices": [],
                    "settings": {"fill": True, "fps": 30, "autoInjectSimulators": True}}

    def assignments(self):
        return self.config()["assignments"]

    def feed(self, udid, size=(8, 4), age=0.0, camera="-back", colour=(255, 0, 0)):
        """A feed of one colour for a simulator's camera, last alive `age` seconds ago."""
        path = f"/tmp/lenslark-sim-{udid}{camera}.shm"
        width, height = size
        now = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        row = width * 4
        slot = framefile.Slot(2, now, width, height, row, framefile.STILL)
        header = framefile.Header(
            b"LLF1", 2, width, height, row, 1, 2, now, now - int(age * 1e9), os.getpid(), 4096,
            row * height, framefile.STILL, 0, 1, 1, (slot, framefile.Slot(0, 0, 0, 0, 0, 0)))
        pixels = bytes((*reversed(colour), 255)) * (width * height)
        with open(path, "xb") as file:
            file.write(header.pack().ljust(4096, b"\0") + pixels * 2)
        self.addCleanup(os.unlink, path)


def fresh_udid():
    return str(uuid.uuid4()).upper()


def png_size(data):
    if data[:8] != b"\x89PNG\r\n\x1a\n":
        raise ValueError("no PNG")
    return struct.unpack(">II", data[16:24])
