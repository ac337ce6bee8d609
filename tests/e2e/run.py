#!/usr/bin/env python3
"""Runs test modules of this directory against one build of the program.

usage: run.py BUILD_DIRECTORY MODULE...

Ends with 77 when every test was skipped, and says why.

Where bubblewrap works the tests see a /tmp and processes of their own, so that they neither meet
nor touch the feeds of a program that somebody is using, nor emulators that run beside them.
"""

import os
import pathlib
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
SKIPPED = 77


def works(prefix):
    try:
        return subprocess.run([*prefix, "true"], stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0
    except FileNotFoundError:
        return False


def private_prefix(build):
    """The command prefix that gives a process an empty /tmp and, where that can be, a view of none
    but its own processes; nothing where not even the first can be."""
    keep = []
    for folder in {build, HERE.parent.parent, pathlib.Path(sys.prefix)}:
        if folder.is_relative_to("/tmp"):
            keep += ["--bind", str(folder), str(folder)]
    tmp = ["bwrap", "--dev-bind", "/", "/", "--tmpfs", "/tmp", *keep, "--die-with-parent"]
    processes = ["--unshare-pid", "--proc", "/proc"]
    return next((prefix for prefix in ([*tmp, *processes, "--"], [*tmp, "--"]) if works(prefix)),
                [])


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    build = pathlib.Path(sys.argv[1]).resolve()
    if "LENSLARK_PRIVATE_TMP" not in os.environ:
        prefix = private_prefix(build)
        os.environ["LENSLARK_PRIVATE_TMP"] = "1" if prefix else ""
        if not prefix:
            print("bubblewrap does not work here: tests that need a /tmp of their own are skipped")
        os.environ.pop("TMPDIR", None)
        command = [*prefix, sys.executable, "-B", str(HERE / "run.py"), *sys.argv[1:]]
        os.execvp(command[0], command)
    os.environ["LENSLARK_BUILD"] = str(build)
    os.environ["LENSLARK_BINARY"] = str(build / "lenslark")
    sys.path.insert(0, str(HERE))
    suite = unittest.defaultTestLoader.loadTestsFromNames(sys.argv[2:])
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    if not result.wasSuccessful():
        sys.exit(1)
    # A class that is skipped as a whole counts no test.
    sys.exit(SKIPPED if result.skipped and len(result.skipped) >= result.testsRun else 0)


if __name__ == "__main__":
    main()
