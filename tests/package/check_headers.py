"""Every header compiles alone; the public ones do so as every language they are meant for, without a warning."""

import argparse
import concurrent.futures
import os
import pathlib
import subprocess
import sys

PUBLIC = {"qav.h": (("c", "c99"), ("c", "c11"), ("c++", "c++11"), ("c++", "c++20")),
          "qav_inspect.h": (("c", "c99"), ("c", "c11"), ("c++", "c++11"), ("c++", "c++20")),
          "qav.hpp": (("c++", "c++11"), ("c++", "c++20"))}


def compile_alone(compiler, language, standard, header, include_dirs):
    """The compiler's complaints about a file that holds nothing but an include of the header, twice."""
    line = f'#include "{header}"\n'
    result = subprocess.run([compiler, "-x", language, f"-std={standard}", *(f"-I{path}" for path in include_dirs),
                             "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-fsyntax-only", "-"],
                            input=line * 2, capture_output=True, text=True)
    return "" if result.returncode == 0 else f"{header} as {standard}:\n{result.stderr}"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--cc", required=True)
    parser.add_argument("--cxx", required=True)
    parser.add_argument("folders", nargs="+", type=pathlib.Path)
    args = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parents[2]

    jobs = [(args.cc if language == "c" else args.cxx, language, standard, name, [root / "include"])
            for name, standards in PUBLIC.items() for language, standard in standards]
    jobs += [(args.cxx, "c++", "c++20", path.relative_to(root), [root, root / "include"])
             for folder in args.folders for path in sorted((root / folder).rglob("*.h"))]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        complaints = list(filter(None, pool.map(lambda job: compile_alone(*job), jobs)))
    print("\n".join(complaints), f"{len(jobs)} compiled, {len(complaints)} refused", sep="\n")
    sys.exit(1 if complaints else 0)


main()
