#!/usr/bin/env python3
"""Instructions per block of the render path, against recorded ones.

    check_counts.py PROGRAM LIMITS.json COMPILER [--record]

Exit 77 (skipped) where the counts cannot be compared: no valgrind, another compiler, C library or
instruction set than those recorded. --record writes what is counted now.
"""

import json
import platform
import re
import shutil
import subprocess
import sys
from pathlib import Path

CASES = ("idle", "capture", "gain")
FEW, MANY = 200, 5200
HEAD_ROOM = 1.05
TRIES = 3  # a process that starts its threads in another order counts a little more


def instructions(program, case, blocks):
    run = subprocess.run(
        [
            "valgrind",
            "--tool=callgrind",
            "--callgrind-out-file=/dev/null",
            # Only what runs inside the interception's callback counts: other threads do not.
            "--toggle-collect=RZReplayAudioUnitCapture_InputProcessCallback*",
            program,
            case,
            str(blocks),
        ],
        capture_output=True,
        text=True,
        check=False,
    )
    found = re.search(r"Collected : (\d+)", run.stderr)
    if run.returncode != 0 or not found:
        sys.exit(f"{case}: the program failed\n{run.stderr}")
    return int(found.group(1))


def per_block(program, case):
    """What more blocks cost more: the first ones, which allocate, drop out."""
    few = min(instructions(program, case, FEW) for _ in range(TRIES))
    many = min(instructions(program, case, MANY) for _ in range(TRIES))
    return (many - few) / (MANY - FEW)


def has_avx2():
    return " avx2 " in Path("/proc/cpuinfo").read_text().replace("\n", " ")


def main(program, limits_path, compiler, *options):
    if shutil.which("valgrind") is None:
        print("skipped: valgrind is not installed")
        return 77
    here = {"compiler": compiler, "libc": platform.libc_ver()[1], "machine": platform.machine(),
            "avx2": has_avx2()}
    if "--record" in options:
        counts = {case: round(per_block(program, case)) for case in CASES}
        Path(limits_path).write_text(json.dumps({**here, "counts": counts}, indent=2) + "\n")
        print(counts)
        return 0
    recorded = json.loads(Path(limits_path).read_text())
    other = [key for key, value in here.items() if recorded[key] != value]
    if other:
        print("skipped: recorded with another " + ", ".join(f"{key} ({recorded[key]}, here {here[key]})"
                                                            for key in other))
        return 77
    failed = False
    for case in CASES:
        count = per_block(program, case)
        limit = recorded["counts"][case] * HEAD_ROOM
        failed = failed or count > limit
        print(f"{case}: {count:.0f} instructions a block, recorded {recorded['counts'][case]}"
              + (" - TOO MANY" if count > limit else ""))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
