#!/usr/bin/env python3
"""Which room includes which: arrows point downwards only, and never in a circle.

    check_includes.py ROOT

Walks the rooms below ROOT, finds for each include line the file of this tree that it names, and prints
every include that the table below does not allow. Classes/ is checked for the operating system's own
headers and conditions too: it sees the system through the platform's headers alone. Exits with 1 when
something is wrong.
"""

import os
import pathlib
import re
import sys

# A room may include itself and what stands here, and nothing else of this tree.
ALLOWED = {
    "common": set(),
    "audio_utils": {"common"},
    "platform": {"common"},
    "hook": {"common"},
    "Resolver": {"common", "hook", "platform"},
    "Classes": {"common", "audio_utils", "platform", "hook", "Resolver"},
    "capi": {"common", "audio_utils", "platform", "Classes"},
    "bridges": {"common", "platform", "hook", "capi"},
    "tools": {"common", "capi"},
    "examples": set(),
}

# The bridges are hosts of the platform: they see these rooms by what is meant for callers.
BRIDGES_SEE = re.compile(r"^(common/|bridges/|platform/include/|hook/[^/]+$|capi/[^/]+$)")
# Arithmetic and state machines of bridges/core, which know nothing of what they serve.
PURE = re.compile(r"^bridges/core/(NativeFormat|SampleConversion|FrameFifo|Pacer)\.")

# These see what is installed for programs, by the names that it is installed under, from any room.
PROGRAMS = {"tools", "examples"}

SOURCES = {".h", ".hpp", ".c", ".cpp", ".cc", ".S", ".in"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
SYSTEM_HEADER = re.compile(
    r"^(sys|linux|asm|arpa|netinet|bits|net)/"
    r"|^(unistd|elf|link|dlfcn|fcntl|pthread|semaphore|signal|ucontext|execinfo|poll|sched|spawn"
    r"|syscall|dirent|pwd|termios|features)\.h$"
)
CONDITION = re.compile(r"^\s*#\s*(if|ifdef|ifndef|elif|elifdef)\b(.*)")
PLATFORM_MACRO = re.compile(
    r"\b(__linux__|__linux|linux|__unix__|__gnu_linux__|__ANDROID__|__APPLE__|TARGET_OS_\w+|_WIN32"
    r"|__GLIBC__|__x86_64__|__aarch64__|__arm__|__i386__)\b"
)


def sources(root):
    """Every source file of the rooms, as paths relative to the root."""
    for room in ALLOWED:
        for path in sorted((root / room).rglob("*")):
            if path.is_file() and path.suffix in SOURCES:
                yield path.relative_to(root)


def public_headers(root):
    """Paths of the headers that are installed, by the names that installed programs use."""
    found = {}
    platform = root / "platform" / "include"
    for path in platform.rglob("*.h"):
        found[path.relative_to(platform).as_posix()] = path.relative_to(root)
    for room in ("Resolver", "Classes", "capi"):
        for path in (root / room).rglob("*.h"):
            found.setdefault("TQAudioRecord/" + path.name, path.relative_to(root))
    return found


class Tree:
    """Finds the file that an include line means."""

    def __init__(self, root):
        self.files = list(sources(root))
        self.known = set(self.files)
        self.public = public_headers(root)
        self.by_name = {}
        for path in self.files:
            self.by_name.setdefault(path.name, []).append(path)

    def target(self, source, is_quoted, name):
        """The file, None for one of another project, and whether it was named as a public header."""
        if is_quoted:
            beside = pathlib.Path(os.path.normpath(source.parent / name))
            if beside in self.known:
                return beside, False
        if name in self.public:
            return self.public[name], True
        tail = "/" + name
        found = [p for p in self.by_name.get(pathlib.PurePosixPath(name).name, [])
                 if ("/" + p.as_posix()).endswith(tail)]
        # Rooms have their own include folders first.
        found.sort(key=lambda p: (p.parts[0] != source.parts[0], p.as_posix()))
        return (found[0] if found else None), False


def cycle(edges):
    """Rooms that include each other in a circle, [] when there is none."""
    done = set()

    def visit(room, path):
        if room in path:
            return path[path.index(room):] + [room]
        if room not in done:
            for other in sorted(edges.get(room, ())):
                found = visit(other, path + [room])
                if found:
                    return found
            done.add(room)
        return []

    for room in sorted(edges):
        found = visit(room, [])
        if found:
            return found
    return []


def check(root):
    """All complaints about the tree below the root."""
    tree = Tree(root)
    complaints = []
    edges = {}
    for source in tree.files:
        room = source.parts[0]
        for number, line in enumerate((root / source).read_text(errors="replace").splitlines(), 1):
            place = f"{source.as_posix()}:{number}"
            if room == "Classes":
                condition = CONDITION.match(line)
                if condition and PLATFORM_MACRO.search(condition.group(2)):
                    complaints.append(f"{place}: Classes/ has no condition on a platform: {line.strip()}")
            include = INCLUDE.match(line)
            if not include:
                continue
            name = include.group(2)
            if room == "Classes" and SYSTEM_HEADER.search(name):
                complaints.append(f"{place}: Classes/ has no header of the operating system: {name}")
            target, is_public = tree.target(source, include.group(1) == '"', name)
            if target is None:
                continue
            if PURE.match(source.as_posix()) and not (
                    target.parts[0] == "common" or PURE.match(target.as_posix())):
                complaints.append(f"{place}: a pure part includes common/ only: {name}")
            elif room == "bridges" and not BRIDGES_SEE.match(target.as_posix()):
                complaints.append(f"{place}: bridges/ must not include {target.as_posix()}")
            if target.parts[0] == room:
                continue
            other = target.parts[0]
            edges.setdefault(room, set()).add(other)
            if room != "bridges" and other not in ALLOWED[room] and not (is_public and room in PROGRAMS):
                complaints.append(f"{place}: {room}/ must not include {other}/: {name}")
    circle = cycle(edges)
    if circle:
        complaints.append("rooms include each other in a circle: " + " -> ".join(circle))
    return complaints


def main():
    if len(sys.argv) != 2:
        sys.exit("usage: check_includes.py ROOT")
    complaints = check(pathlib.Path(sys.argv[1]))
    for complaint in complaints:
        print(complaint)
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
