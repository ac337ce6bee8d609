#!/usr/bin/env python3
"""Whether every test that SECURITY.md names exists.

usage: check_promises.py SOURCE_DIRECTORY
"""

import ast
import pathlib
import re
import sys


def unit_tests(root):
    """Suites, and suites with a test's name, of the C++ tests."""
    found = set()
    for path in (root / "tests").rglob("*.cpp"):
        for suite, test in re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)",
                                      path.read_text(encoding="utf-8"), re.MULTILINE):
            found |= {suite, f"{suite}.{test}"}
    return found


def script_tests(root):
    """The same of the Python tests, with the module in front. A test counts for every class of its
    module that may inherit it."""
    found = set()
    for path in (root / "tests").rglob("test_*.py"):
        tree = ast.parse(path.read_text(encoding="utf-8"), str(path))
        for item in tree.body:
            if not isinstance(item, ast.ClassDef):
                continue
            found.add(f"{path.stem}.{item.name}")
            found |= {f"{path.stem}.{item.name}.{part.name}" for part in item.body
                      if isinstance(part, ast.FunctionDef) and part.name.startswith("test")}
    return found


def missing(root):
    text = (root / "SECURITY.md").read_text(encoding="utf-8")
    # A row without a test is a promise without proof.
    bare = [line for line in text.splitlines()
            if line.startswith("| ") and "shown by" not in line and "Test" not in line]
    known = unit_tests(root) | script_tests(root)
    named = re.findall(r"`((?:test_\w+\.)?\w+Test\b(?:\.\w+)*)`", text)
    if not named:
        return ["SECURITY.md names no test"]
    return [f"there is no test {name}" for name in named if name not in known] + \
           [f"no test is named: {line}" for line in bare]


def main():
    problems = missing(pathlib.Path(sys.argv[1]))
    for problem in problems:
        print(f"SECURITY.md: {problem}", file=sys.stderr)
    sys.exit(1 if problems else 0)


if __name__ == "__main__":
    main()
