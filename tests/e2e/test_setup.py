"""scripts/setup.sh, with stand-ins for the package tools."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


class SetupTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="lenslark-setup-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.calls = self.folder / "calls"
        (self.folder / "bin").mkdir()
        # A copy, so that nothing is installed in the tree that is being tested.
        self.tree = self.folder / "tree"
        for name in ("scripts/setup.sh", "packaging/debian-packages.txt",
                     "tests/mcp-client/package-lock.json"):
            (self.tree / name).parent.mkdir(parents=True)
            shutil.copy(SOURCE / name, self.tree / name)
        self.client = self.tree / "tests" / "mcp-client"
        self.installed_client()
        self.wanted = [line for line in
                       (SOURCE / "packaging" / "debian-packages.txt").read_text().splitlines()
                       if line and not line.startswith("#")]
        self.installed(self.wanted)
        self.stand_in("apt-get", f'echo "$@" >> {self.calls}')

    def stand_in(self, name, script):
        path = self.folder / "bin" / name
        path.write_text(f"#!/bin/bash\n{script}\n")
        path.chmod(0o755)

    def installed(self, packages):
        state = self.folder / "installed"
        state.write_text("".join(f"{package} installed\n" for package in packages))
        self.stand_in("dpkg-query", f"cat {state}; exit 1")

    def installed_client(self):
        modules = self.client / "node_modules"
        modules.mkdir()
        shutil.copy(self.client / "package-lock.json", modules / ".installed")

    def setup(self, *arguments, user=0):
        self.stand_in("id", f"echo {user}")
        environment = {"PATH": f"{self.folder / 'bin'}:{os.environ['PATH']}", "CI": "true"}
        return subprocess.run([self.tree / "scripts" / "setup.sh", *arguments], env=environment,
                              stdin=subprocess.DEVNULL, capture_output=True, check=False)

    def tool_calls(self):
        return self.calls.read_text().splitlines() if self.calls.exists() else []

    def test_does_nothing_when_nothing_is_missing(self):
        result = self.setup()
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, b"", b""))
        self.assertEqual(self.tool_calls(), [])

    def test_installs_what_is_missing_alone(self):
        self.installed([name for name in self.wanted if name not in ("cmake", "libvips-dev")])
        self.assertEqual(self.setup().returncode, 0)
        self.assertEqual(self.tool_calls(), [
            "update", "install --yes --no-install-recommends cmake libvips-dev"])

    def test_uses_sudo_when_it_asks_nothing(self):
        self.installed([name for name in self.wanted if name != "cmake"])
        self.stand_in("sudo", f'[ "$1" = -n ] && shift; echo "sudo $1" >> {self.calls}; "$@"')
        self.assertEqual(self.setup(user=1000).returncode, 0)
        self.assertIn("install --yes --no-install-recommends cmake", self.tool_calls())

    def test_says_what_to_do_without_root_and_sudo(self):
        self.installed([name for name in self.wanted if name != "cmake"])
        self.stand_in("sudo", "exit 1")
        result = self.setup(user=1000)
        self.assertEqual(result.returncode, 1)
        self.assertIn("apt-get install cmake", result.stderr.decode())
        self.assertEqual(self.tool_calls(), [])

    def test_fails_when_the_packages_cannot_be_installed(self):
        self.installed([])
        self.stand_in("apt-get", "exit 100")
        result = self.setup()
        self.assertEqual(result.returncode, 1)
        self.assertIn("could not be installed", result.stderr.decode())

    def npm(self, script):
        shutil.rmtree(self.client / "node_modules")
        self.stand_in("node", "exit 0")
        self.stand_in("npm", f'echo "npm $1 in $(basename "$PWD")" >> {self.calls}; {script}')

    def test_installs_the_test_client_once(self):
        self.npm("mkdir node_modules; echo 'added 9 packages'")
        first, second = self.setup("--tests"), self.setup("--tests")
        self.assertEqual((first.returncode, first.stdout), (0, b""))
        self.assertIn("installing the test client", first.stderr.decode())
        self.assertEqual((second.returncode, second.stderr), (0, b""))
        self.assertEqual(self.tool_calls(), ["npm ci in mcp-client"])

    def test_leaves_the_test_client_to_those_who_test(self):
        self.npm("mkdir node_modules")
        self.setup()
        self.assertEqual(self.tool_calls(), [])

    def test_installs_the_test_client_again_when_it_is_another(self):
        self.npm("mkdir -p node_modules")
        self.setup("--tests")
        (self.client / "package-lock.json").write_text("{}")
        self.setup("--tests")
        self.assertEqual(len(self.tool_calls()), 2)

    def test_goes_on_without_the_test_client(self):
        self.npm("mkdir node_modules; echo 'npm error no network' >&2; exit 1")
        result = self.setup("--tests")
        self.assertEqual(result.returncode, 0)
        self.assertIn("npm error no network", result.stderr.decode())
        self.assertIn("will be skipped", result.stderr.decode())
        self.assertFalse((self.client / "node_modules").exists())


if __name__ == "__main__":
    unittest.main()
