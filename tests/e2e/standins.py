"""Stand-ins for the tools that drive simulators and emulators, and processes that ps shows as
emulators."""

import os
import pathlib
import shutil
import signal
import subprocess
import unittest

# Every call is one line in `calls`: the words, each ended by a unit separator. What a call answers
# is a shell script of the test's own.
TOOL = """#!/bin/sh
state={state}
printf '%s\\037' "$@" > "$state/call.$$"
echo >> "$state/call.$$"
cat "$state/call.$$" >> "$state/calls"
rm "$state/call.$$"
. "$state/answer"
"""

# Gives a program a /usr/bin of its own, without a process of its own between it and its starter.
OWN_PROGRAMS = """
mount --bind /usr/bin {real} && mount --bind {farm} /usr/bin && exec "$@"
"""


class Tool:
    """A program that notes how it was called and answers as it is told."""

    def __init__(self, folder, path):
        self.state = pathlib.Path(folder)
        self.state.mkdir(parents=True)
        self.path = pathlib.Path(path)
        self.path.parent.mkdir(parents=True, exist_ok=True)
        self.path.write_text(TOOL.format(state=self.state))
        self.path.chmod(0o755)
        self.answers("exit 0")

    def answers(self, script):
        draft = self.state / "answer.draft"
        draft.write_text(script + "\n")
        draft.rename(self.state / "answer")

    def calls(self):
        """The words of each call so far."""
        calls = self.state / "calls"
        lines = calls.read_text().splitlines() if calls.exists() else []
        return [line.split("\x1f")[:-1] for line in lines]


class Simulators(Tool):
    """/usr/bin/xcrun, for programs that are run with `prefix`."""

    def __init__(self, folder):
        folder = pathlib.Path(folder)
        self.farm = folder / "farm"
        self.real = folder / "real"
        self.farm.mkdir(parents=True)
        self.real.mkdir()
        for name in os.listdir("/usr/bin"):
            if name != "xcrun":
                (self.farm / name).symlink_to(self.real / name)
        self.prefix = ("unshare", "--user", "--map-root-user", "--mount", "/bin/sh", "-c",
                       OWN_PROGRAMS.format(real=self.real, farm=self.farm), "sh")
        super().__init__(folder / "xcrun", self.farm / "xcrun")

    def works(self):
        return subprocess.run([*self.prefix, "true"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0

    def booted(self, devices):
        """From now on these simulators run: (UDID, name) each."""
        entries = ",".join(f'{{"udid":"{udid}","name":"{name}","state":"Booted"}}'
                           for udid, name in devices)
        self.answers("cat <<'END'\n"
                     f'{{"devices":{{"com.apple.CoreSimulator.SimRuntime.iOS-17-2":[{entries}]}}}}\n'
                     "END")

    def remove(self):
        """As on a machine without Xcode."""
        self.path.unlink()


class RunningEmulator:
    """A process that ps shows as the engine of an emulator."""

    def __init__(self, folder, avd, environment=None):
        engine = pathlib.Path(folder) / "qemu-system-x86_64"
        if not engine.exists():
            shutil.copy("/bin/sh", engine)
        # It stops itself: it is there and does nothing.
        self.process = subprocess.Popen(
            [str(engine), "-c", "kill -STOP $$", "engine", "-netdelay", "none", "-avd", avd],
            env={**os.environ, **(environment or {})})
        self.pid = self.process.pid

    def end(self):
        self.process.kill()
        self.process.wait()


def end(pid):
    """Ends a process that is no child of ours."""
    try:
        os.kill(pid, signal.SIGKILL)
    except ProcessLookupError:
        pass


def simulators_for(test):
    """Simulators for a test, which is skipped where no program can be given tools of its own."""
    simulators = Simulators(test.folder / "simulators")
    if not simulators.works():
        raise unittest.SkipTest("no private mounts here")
    return simulators
