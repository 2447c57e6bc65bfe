#!/usr/bin/env python3
"""Count the instructions of encoding and decoding one frame and compare them with the stored counts.

usage: check.py WORKLOAD STORED.json

Instructions do not depend on how busy the machine is. A count more than MARGIN above the stored one fails; so does one more
than MARGIN below it: then the stored count no longer guards anything and is to be lowered.
"""

import json
import re
import subprocess
import sys

MARGIN = 0.20
FEW, MANY = 20, 120


def instructions(workload, frames, decode):
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", workload, str(frames), str(decode)]
    run = subprocess.run(command, stderr=subprocess.PIPE, text=True, check=True)
    return int(re.search(r"Collected : (\d+)", run.stderr).group(1))


def per_frame(workload, decode):
    """What the frames after the first FEW add, so that starting up does not count."""
    return (instructions(workload, MANY, decode) - instructions(workload, FEW, decode)) / (MANY - FEW)


def main():
    workload, stored_path = sys.argv[1:]
    with open(stored_path, encoding="utf-8") as file:
        stored = json.load(file)
    encode = per_frame(workload, 0)
    counts = {"encode": encode, "decode": per_frame(workload, 1) - encode}
    failed = False
    for name, count in counts.items():
        ratio = count / stored[name]
        verdict = "ok" if abs(ratio - 1) <= MARGIN else "FAILED"
        failed = failed or verdict == "FAILED"
        print(f"{name}: {count:.0f} instructions a frame, {ratio:.2f} times the stored {stored[name]}: {verdict}")
    sys.exit(failed)


if __name__ == "__main__":
    main()
