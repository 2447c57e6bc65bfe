"""Look into the built tool and library: what stops an attacker must be in them.

    check_hardening.py TOOL LIBRARY
"""

import subprocess
import sys


def told(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout


# What starts a program, or loads code by a name.
STARTERS = {"system", "popen", "execl", "execle", "execlp", "execv", "execve", "execvp", "execvpe", "fexecve", "fork", "vfork",
            "posix_spawn", "posix_spawnp", "dlopen", "wordexp"}


def check(file, guards):
    failures = []
    segments, dynamic, names = told("readelf", "-lW", file), told("readelf", "-dW", file), told("nm", "-D", file)
    if "GNU_RELRO" not in segments:
        failures.append("no tables of addresses that become read-only")
    if "BIND_NOW" not in dynamic and "NOW" not in dynamic:
        failures.append("addresses are bound late")
    if any("GNU_STACK" in line and "E" in line.split()[6] for line in segments.splitlines()):
        failures.append("a stack that can be run")
    if "DYN" not in told("readelf", "-hW", file):
        failures.append("at a fixed address")
    if "TEXTREL" in dynamic:
        failures.append("code that is written to")
    failures += [f"{guard} is not asked" for guard in guards if guard not in names]
    wanted = {line.split()[-1].split("@")[0] for line in names.splitlines() if " U " in line}
    if not wanted:
        failures.append("asks for no function at all, which cannot be")
    failures += [f"asks for {name}" for name in sorted(STARTERS & wanted)]
    return [f"{file}: {failure}" for failure in failures]


tool, library = sys.argv[1:]
wrong = check(tool, ["__stack_chk_fail", "__glibcxx_assert_fail", "_chk@"]) + check(library, [])
sys.exit("\n".join(wrong) if wrong else None)
