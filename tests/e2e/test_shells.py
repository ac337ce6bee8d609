"""Completion in three shells, and the manual page."""

import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import time
import unittest

from devicebench import DeviceTest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
COMPLETIONS = ROOT / "packaging" / "completions"
MANUAL = ROOT / "docs" / "lenslark.1"

# What stands behind the command line so far, and what must be offered for it.
CASES = [
    ("lenslark so", {"source", "sources"}),
    ("lenslark source ", {"set", "get", "reset"}),
    ("lenslark source set v", {"video"}),
    ("lenslark source set pattern --anchor bottom-", {"bottom-left", "bottom-right"}),
    ("lenslark source set pattern --camera ", {"back", "front"}),
    ("lenslark source set pattern --o", {"--overlay", "--opacity", "--once"}),
    ("lenslark source reset --a", {"--all"}),
    ("lenslark source get --device Pix", {"Pixel_8"}),
    ("lenslark snapshot --device b", {"booted"}),
    ("lenslark media ", {"add", "list", "rm", "pin", "unpin"}),
    ("lenslark media rm ", {"card.png"}),
    ("lenslark media add --p", {"--pin"}),
    ("lenslark serve --m", {"--mode"}),
    ("lenslark serve --mode ", {"fit", "fill"}),
    ("lenslark app ", {"enable", "disable", "toggle", "status"}),
    ("lenslark android ", {"launch", "webcams", "avds"}),
    ("lenslark doctor --", {"--json", "--fix"}),
]


class CompletionTest(DeviceTest):
    def setUp(self):
        super().setUp()
        # One word each: how a shell quotes names is its own affair.
        self.simulators.booted([("U1", "iPhone")])
        self.emulators(("Pixel_8", 4242))
        self.lenslark.import_media(self.picture("card.png"))
        programs = self.folder / "programs"
        programs.mkdir()
        (programs / "lenslark").symlink_to(self.lenslark.program)
        self.environment = {**self.lenslark.environment, "PATH": f"{programs}:/usr/bin:/bin",
                            "TERM": "dumb", "LENSLARK_MODULE_DIR": os.environ["LENSLARK_BUILD"]}

    def shell(self, *command):
        result = subprocess.run([*self.simulators.prefix, *command], env=self.environment,
                                cwd=self.folder, capture_output=True, timeout=60, check=False)
        self.assertEqual(result.stderr, b"")
        return result.stdout.decode()

    def need(self, *programs):
        for program in programs:
            if not shutil.which(program):
                self.skipTest(f"{program} is not installed")


class BashTest(CompletionTest):
    SCRIPT = """
. /usr/share/bash-completion/bash_completion
. "$1"
COMP_LINE=$2 COMP_POINT=${#2}
read -ra COMP_WORDS <<< "$2"
[[ $2 == *' ' ]] && COMP_WORDS+=('')
COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
_lenslark 2>/dev/null
printf '%s\\n' "${COMPREPLY[@]}"
"""

    def offered(self, line):
        return self.shell("bash", "-c", self.SCRIPT, "bash", COMPLETIONS / "lenslark.bash",
                          line).splitlines()

    def setUp(self):
        super().setUp()
        if not pathlib.Path("/usr/share/bash-completion/bash_completion").exists():
            self.skipTest("bash-completion is not installed")

    def test_completes(self):
        for line, expected in CASES:
            self.assertEqual(set(self.offered(line)), expected, line)

    def test_offers_names_and_keys_of_devices(self):
        self.assertEqual(set(self.offered("lenslark source get --device ")),
                         {"all", "booted", "iPhone", "ios:U1", "Pixel_8", "android:Pixel_8"})

    def test_offers_files(self):
        self.assertIn("card.png", self.offered("lenslark source set image ca"))

    def test_names_are_quoted_and_never_run(self):
        self.simulators.booted([("U1", "My $(touch ran) phone")])
        self.assertEqual(self.offered("lenslark source get --device My"),
                         [r"My\ \$\(touch\ ran\)\ phone"])
        self.assertFalse((self.folder / "ran").exists())


class FishTest(CompletionTest):
    def offered(self, line):
        output = self.shell("fish", "--no-config", "-c",
                            f"source {COMPLETIONS}/lenslark.fish; complete -C '{line}'")
        return [entry.split("\t")[0] for entry in output.splitlines()]

    def test_completes(self):
        self.need("fish")
        for line, expected in CASES:
            self.assertEqual(set(self.offered(line)), expected, line)

    def test_offers_files(self):
        self.need("fish")
        self.assertIn("card.png", self.offered("lenslark source set image ca"))


class ZshTest(CompletionTest):
    """Through a terminal: zsh completes nowhere else."""

    def screen(self, line):
        """What zsh shows once the line was typed and completed twice (the second lists)."""
        functions = self.folder / "functions"
        functions.mkdir(exist_ok=True)
        shutil.copy(COMPLETIONS / "_lenslark", functions)
        (self.folder / ".zshrc").write_text(
            f"fpath=({functions} $fpath)\nautoload -U compinit && compinit -u -D\n"
            "PS1='ready> '\nunsetopt zle_bracketed_paste 2>/dev/null\n"
            "zstyle ':completion:*' list-prompt ''\n")
        pid, terminal = pty.fork()
        if pid == 0:
            os.chdir(self.folder)
            environment = {**self.environment, "ZDOTDIR": str(self.folder), "TERM": "vt100",
                           "COLUMNS": "200", "LINES": "60"}
            os.execvpe(self.simulators.prefix[0], [*self.simulators.prefix, "zsh", "-i"],
                       environment)
        try:
            shown = self.read_until(terminal, "ready> ")
            os.write(terminal, line.encode() + b"\t\t\t")
            shown = self.read_until_quiet(terminal)
        finally:
            os.kill(pid, 9)
            os.waitpid(pid, 0)
            os.close(terminal)
        return re.sub(r"\x1b[\[(][0-9;?]*[A-Za-z]", "", shown)

    def read_until(self, terminal, text, deadline=20):
        shown, end = "", time.monotonic() + deadline
        while text not in shown:
            if not select.select([terminal], [], [], max(0, end - time.monotonic()))[0]:
                self.fail(f"zsh shows {shown!r}")
            shown += os.read(terminal, 4096).decode(errors="replace")
        return shown

    def read_until_quiet(self, terminal, quiet=1.0):
        shown = ""
        while select.select([terminal], [], [], quiet)[0]:
            shown += os.read(terminal, 4096).decode(errors="replace")
        return shown

    def test_completes(self):
        self.need("zsh")
        for line, expected in (CASES[0], CASES[1], CASES[2], CASES[3], CASES[7], CASES[10],
                               CASES[14]):
            shown = self.screen(line)
            for word in expected:
                self.assertIn(word, shown, line)


class ManualTest(unittest.TestCase):
    def setUp(self):
        if not shutil.which("mandoc"):
            self.skipTest("mandoc is not installed")

    def test_is_without_fault(self):
        result = subprocess.run(["mandoc", "-T", "lint", MANUAL], capture_output=True, check=False)
        self.assertEqual((result.stdout, result.returncode), (b"", 0))

    def test_names_every_verb_of_the_help(self):
        page = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=300", MANUAL],
                              capture_output=True, check=True).stdout.decode()
        page = re.sub(".\b", "", page)
        text = subprocess.run([os.environ["LENSLARK_BINARY"], "help"], capture_output=True,
                              check=True).stdout.decode()
        verbs = set(re.findall(r"^  lenslark (\w+)", text, re.MULTILINE)) | {"sources"}
        self.assertGreater(len(verbs), 10)
        for verb in verbs:
            self.assertRegex(page, rf"\b{verb}\b")
        for flag in set(re.findall(r"--[a-z][a-z-]*", text)):
            self.assertIn(flag, page)


if __name__ == "__main__":
    unittest.main()
