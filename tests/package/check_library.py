"""Look into the built library: what it exports, what it needs, that it writes to no memory of its own, and that no
multiplication is fused with an addition behind the source's back."""

import argparse
import pathlib
import re
import subprocess
import sys

# All that libqav.so may ask of others: memory from libc, the square root from libm, and what the toolchain brings along.
IMPORTS = {"calloc", "free", "malloc", "memchr", "memcmp", "memcpy", "memmove", "memset", "sqrt", "sqrtf",
           "__cxa_finalize", "__gmon_start__", "__stack_chk_fail", "_ITM_deregisterTMCloneTable",
           "_ITM_registerTMCloneTable"}
LIBRARIES = {"libc.so.6", "libm.so.6"}
# crtstuff.o keeps a handle of 8 bytes in .data and a flag in .bss.
TOOLCHAIN_DATA = {".data": 8, ".bss": 8}
# vfmadd, vfnmsub, vfmaddsub ... of x86, fmadd, fmla, fnmsub ... of Arm.
FUSED = re.compile(r"\tv?fn?m(add|sub|la|ls)\w*\s")
# The quantiser asks for it; where the CPU has none, it computes the same bits.
FUSED_ON_PURPOSE = re.compile(r"<qav::\(anonymous namespace\)::fused::quantize\(")


def lines_of(*command):
    words = [str(word) for word in command]
    return subprocess.run(words, check=True, text=True, stdout=subprocess.PIPE).stdout.splitlines()


def dynamic_names(library, which):
    """The names of the dynamic symbol table, without their versions."""
    return {line.split()[-1].split("@")[0] for line in lines_of("nm", "-D", which, library)} - {"QAV_9"}


def listed(map_file):
    return set(re.findall(r"^\s+(\w+);$", map_file.read_text(), re.M))


def declared(headers):
    return {name for header in headers for name in re.findall(r"^QAV_API [^;(]*?(\w+)\(", header.read_text(), re.M)}


def sections(binary):
    """(name, size, flags) of every section."""
    row = re.compile(r"\s*\[ *\d+\] (\S+)\s+\S+\s+[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+) [0-9a-f]+ +([WAXMSILOGTCxoEDlp]*) ")
    found = [match for match in map(row.match, lines_of("readelf", "-SW", binary)) if match]
    assert found, f"no sections in {binary}"
    return [(match[1], int(match[2], 16), match[3]) for match in found]


def check_exports(library, map_file, headers):
    """The headers, the linker's map and the library name the same functions."""
    yield from (f"{name} is declared but not in the map" for name in declared(headers) - listed(map_file))
    yield from (f"{name} is in the map but not declared" for name in listed(map_file) - declared(headers))
    exported = dynamic_names(library, "--defined-only")
    yield from (f"{name} is exported but not in the map" for name in exported - listed(map_file))
    yield from (f"{name} is in the map but not exported" for name in listed(map_file) - exported)


def check_imports(library):
    yield from (f"{name} is asked of other libraries" for name in dynamic_names(library, "--undefined-only") - IMPORTS)
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", "\n".join(lines_of("readelf", "-dW", library))))
    yield from (f"{name} is linked" for name in needed - LIBRARIES)


def check_constant(library, objects):
    """Every section that the program may write is empty; what relocation alone writes is read-only after it."""
    for binary in objects:
        for name, size, flags in sections(binary):
            if "W" in flags and size and not name.startswith(".data.rel.ro"):
                yield f"{pathlib.Path(binary).name}: {size} bytes in {name}"
    for name, size, _ in sections(library):
        if size > TOOLCHAIN_DATA.get(name, size):
            yield f"{library.name}: {size} bytes in {name}"


def check_fused(objects):
    function = ""
    has_purpose, found_purpose = False, False
    for binary in objects:
        for line in lines_of("objdump", "-d", "--no-show-raw-insn", "-C", binary):
            if line.endswith(">:"):
                function = line
                has_purpose |= bool(FUSED_ON_PURPOSE.search(line))
            elif FUSED.search(line):
                if FUSED_ON_PURPOSE.search(function):
                    found_purpose = True
                else:
                    yield f"{pathlib.Path(binary).name}: {function} {line.strip()}"
    if has_purpose and not found_purpose:
        yield "the fused instructions that are asked for were not recognised, so others would not be either"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("check", choices=("exports", "imports", "constant", "fused"))
    parser.add_argument("--library", type=pathlib.Path, required=True)
    parser.add_argument("--map", type=pathlib.Path, required=True)
    parser.add_argument("--headers", type=pathlib.Path, nargs="+", required=True)
    parser.add_argument("--objects", nargs="+", required=True)
    args = parser.parse_args()
    faults = sorted({"exports": lambda: check_exports(args.library, args.map, args.headers),
                     "imports": lambda: check_imports(args.library),
                     "constant": lambda: check_constant(args.library, args.objects),
                     "fused": lambda: check_fused(args.objects)}[args.check]())
    for fault in faults:
        print(fault)
    sys.exit(1 if faults else 0)


main()
