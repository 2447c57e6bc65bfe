"""Install a built tree into an empty folder and build a C program against it, by pkg-config and by find_package()."""

import argparse
import os
import pathlib
import subprocess
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
FILES = {
    "include": {"qav.h", "qav.hpp", "qav_inspect.h"},
    "lib": {"pkgconfig/qav.pc", "cmake/qav/qavConfig.cmake", "cmake/qav/qavConfigVersion.cmake",
            "cmake/qav/qavTargets.cmake", "cmake/qav/qavTargets-release.cmake"},
}
COMPLETIONS = {"bash-completion/completions/qav", "zsh/site-functions/_qav", "fish/vendor_completions.d/qav.fish"}


def run(*command, **options):
    return subprocess.run([str(word) for word in command], check=True, text=True, **options)


def capture(*command, **options):
    return run(*command, stdout=subprocess.PIPE, **options).stdout


def files_below(folder):
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir()}


def check_files(prefix, libdir, shared, version):
    major = version.split(".")[0]
    libraries = {"libqav.so", f"libqav.so.{major}", f"libqav.so.{version}"} if shared else {"libqav.a"}
    assert files_below(prefix / "include") == FILES["include"], files_below(prefix / "include")
    assert files_below(prefix / libdir) == FILES["lib"] | libraries, files_below(prefix / libdir)
    # With the tool comes what its users' shells and readers look for.
    if (prefix / "bin/qav").exists():
        share = files_below(prefix / "share")
        assert share >= COMPLETIONS, share
        pages = {name for name in share if name.startswith("man/man1/")}
        assert share == COMPLETIONS | pages, share
        assert not pages or {"man/man1/qav.1", "man/man1/qav-encode.1"} <= pages, pages


def main():
    parser = argparse.ArgumentParser()
    for name in ("cmake", "cc", "build", "libdir", "version", "shared"):
        parser.add_argument("--" + name, required=True)
    args = parser.parse_args()
    shared = args.shared == "ON"

    with tempfile.TemporaryDirectory(prefix="qav install ") as folder:
        staged = pathlib.Path(folder, "staged")
        run(args.cmake, "--install", args.build, "--prefix", staged, stdout=subprocess.DEVNULL)
        check_files(staged, args.libdir, shared, args.version)
        # An installed tree may be moved.
        prefix = staged.rename(pathlib.Path(folder, "prefix"))
        environment = dict(os.environ, LD_LIBRARY_PATH=str(prefix / args.libdir),
                           PKG_CONFIG_PATH=str(prefix / args.libdir / "pkgconfig"))

        assert capture("pkg-config", "--modversion", "qav", env=environment).strip() == args.version
        # One word a flag: the folder's name holds a blank, which pkg-config escapes and the shell undoes.
        static = "" if shared else "--static"
        program = pathlib.Path(folder, "by-pkg-config")
        run("sh", "-ec", f'flags=$(pkg-config --cflags --libs {static} qav); eval "$0" -o "$1" "$2" "$flags"',
            args.cc, f"'{program}'", f"'{HERE}/consumer/main.c'", env=environment)
        run(program, env=environment)

        build = pathlib.Path(folder, "build")
        run(args.cmake, "-S", HERE / "consumer", "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={prefix}",
            f"-DCMAKE_C_COMPILER={args.cc}", stdout=subprocess.DEVNULL)
        run(args.cmake, "--build", build, stdout=subprocess.DEVNULL)
        environment.pop("LD_LIBRARY_PATH")
        run(build / "consumer", env=environment)

        linked = "libqav.so" in capture("ldd", build / "consumer")
        assert linked == shared, f"the consumer links {'the shared' if linked else 'no shared'} library"


main()
