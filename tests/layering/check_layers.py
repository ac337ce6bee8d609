#!/usr/bin/env python3
"""Fails on an include that points upward in the tower of layers, on a "../" include, and on a
library's header outside the files that own the library."""

import fnmatch
import pathlib
import re
import sys

# From the bottom to the top: a file includes its own layer and those before it.
TOWER = ["base", "graphics", "codecs", "platform", "config", "devices", "media", "sources",
         "feeds", "control", "cli"]

# Headers of a library (by a pattern for what is included) and the files that own the library (by
# patterns for their paths). What no pattern knows is a new library: it needs an owner here.
OWNERS = [
    ("nlohmann/json_fwd.hpp", ["core/*", "cli/*"]),
    ("nlohmann/*", ["core/*.cpp", "cli/*.cpp", "cli/mcp/*"]),
    ("rapidjson/*", ["core/media/MediaIndexParser.cpp"]),
    ("fmt/*", ["core/*", "cli/*"]),
    ("openssl/*", ["core/base/*.cpp", "core/base/LazyCrypto.h"]),
    ("asio.hpp", ["core/base/SerialQueue.cpp", "cli/*.cpp"]),
    ("asio/*", ["core/base/SerialQueue.cpp", "cli/*.cpp"]),
    ("libyuv.h", ["core/graphics/*.cpp", "core/codecs/*", "core/platform/linux/*"]),
    ("libyuv/*", ["core/graphics/*.cpp", "core/codecs/*", "core/platform/linux/*"]),
    ("libav*", ["core/codecs/video/*"]),
    ("libsw*", ["core/codecs/video/*"]),
    ("libdeflate.h", ["core/codecs/image/*"]),
    ("vips/*", ["core/codecs/image/*"]),
    ("pango/*", ["core/codecs/image/*"]),
    ("cairo*", ["core/codecs/image/*"]),
    ("gdk-pixbuf/*", ["core/codecs/image/*"]),
    ("glib*", ["core/codecs/image/*"]),
    ("turbojpeg.h", ["core/codecs/image/*"]),
    ("webp/*", ["core/codecs/image/*"]),
    ("jpeglib.h", ["core/codecs/image/*"]),
    ("qrencode.h", ["core/sources/*.cpp", "core/codecs/image/*"]),
    ("xcb/*", ["core/platform/linux/*"]),
    ("X11/*", ["core/platform/linux/*"]),
    ("pixman*", ["core/platform/linux/*"]),
    ("sdbus-c++/*", ["core/platform/linux/*"]),
    ("systemd/*", ["core/platform/linux/*"]),
    ("pipewire/*", ["core/platform/linux/*"]),
    ("spa/*", ["core/platform/linux/*"]),
    ("sys/inotify.h", ["core/platform/linux/*"]),
    # Ours, for everyone who reads or writes a feed.
    ("lenslark/frame_file.h", ["core/*", "cli/*"]),
    # What the C library and the kernel offer.
    ("sys/*", ["core/*", "cli/*"]),
    ("linux/*", ["core/*", "cli/*"]),
    ("arpa/*", ["core/*", "cli/*"]),
    ("netinet/*", ["core/*", "cli/*"]),
    ("asm/*", ["core/*", "cli/*"]),
    ("*intrin.h", ["core/*"]),
]

# Headers without a directory that belong to the standard library or to the C library.
POSIX = {"assert.h", "ctype.h", "dirent.h", "dlfcn.h", "elf.h", "endian.h", "errno.h", "fcntl.h",
         "fnmatch.h", "ftw.h", "getopt.h", "glob.h", "grp.h", "langinfo.h", "libgen.h", "limits.h",
         "link.h", "locale.h", "malloc.h", "math.h", "poll.h", "pthread.h", "pwd.h", "sched.h",
         "setjmp.h", "signal.h", "spawn.h", "stddef.h", "stdint.h", "stdio.h", "stdlib.h",
         "string.h", "strings.h", "syslog.h", "termios.h", "threads.h", "time.h", "ucontext.h",
         "unistd.h", "utime.h", "wchar.h", "wordexp.h"}

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def layer_of(path):
    """The layer that a source file lies in."""
    return "cli" if path.parts[0] == "cli" else path.parts[1]


def complaint_about_own(path, header):
    """What is wrong with an include of a header of ours, or nothing."""
    if ".." in pathlib.PurePath(header).parts:
        return "leaves its directory: write it from the root of the layers"
    target = header.split("/")[0]
    layer = layer_of(path)
    if target in ("commands", "mcp"):  # below cli/, which is an include root too
        target = "cli"
    if target not in TOWER:
        return "names no layer: write it from the root of the layers"
    if TOWER.index(target) > TOWER.index(layer):
        return f"points upward, from {layer} to {target}"
    return None


def complaint_about_foreign(path, header):
    """What is wrong with an include of another's header, or nothing."""
    if header in POSIX or re.fullmatch(r"[a-z0-9_]+", header):
        return None
    for pattern, owners in OWNERS:
        if fnmatch.fnmatchcase(header, pattern):
            if any(fnmatch.fnmatchcase(path.as_posix(), owner) for owner in owners):
                return None
            return "belongs to a library that this file does not own"
    return "belongs to a library without an owner in this check"


def complaints(root):
    """Every offence below root, as "file:line: include: what is wrong"."""
    found = []
    for top in ("core", "cli"):
        for file in sorted((root / top).rglob("*")):
            if file.suffix not in (".h", ".cpp", ".c"):
                continue
            path = file.relative_to(root)
            for number, line in enumerate(file.read_text(encoding="utf-8").splitlines(), 1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                check = complaint_about_own if match[1] == '"' else complaint_about_foreign
                if match[2].startswith("lenslark/"):
                    check = complaint_about_foreign
                wrong = check(path, match[2])
                if wrong:
                    found.append(f"{path}:{number}: {match[2]}: {wrong}")
    return found


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    found = complaints(root)
    print("\n".join(found) if found else "every include points downward")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
