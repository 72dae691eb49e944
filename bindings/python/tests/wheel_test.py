#!/usr/bin/env python3
"""The wheel: the same bytes each time, and it works from an empty directory with nothing else.

usage: wheel_test.py STANDALONE-LIBRARY SHARED-LIBRARY
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import zipfile

MAKE_WHEEL = pathlib.Path(__file__).resolve().parents[1] / "make_wheel"
USE = """
import sys, enginefs
with enginefs.PackWriter(sys.argv[1]) as pack:
    for method in enginefs.Method:
        pack.add(method.name, b"0123456789" * 100_000, method)
with enginefs.Mount(packs=[sys.argv[1]]):
    assert [enginefs.Path(m.name).read_bytes() for m in enginefs.Method] == [b"0123456789" * 100_000] * 3
    with enginefs.open("deflate", "rb") as file:
        file.seek(777_777)
        assert file.read(3) == b"789"
print(enginefs.__file__)
print(*{line.split()[-1] for line in open("/proc/self/maps") if "engine_filesystem" in line})
"""


def run(*command: object, **options: object) -> subprocess.CompletedProcess:
    return subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False, **options)


def make(library: str, output: pathlib.Path) -> pathlib.Path:
    made = run(sys.executable, "-B", MAKE_WHEEL, library, output, env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000"})
    assert made.returncode == 0, made.stderr
    return pathlib.Path(made.stdout.strip())


def install(wheel: pathlib.Path, target: pathlib.Path) -> None:
    if run(sys.executable, "-m", "pip", "--version").returncode == 0:
        done = run(sys.executable, "-m", "pip", "install", "-q", "--no-index", "--no-compile", "--target", target, wheel)
        assert done.returncode == 0, done.stderr
    else:
        zipfile.ZipFile(wheel).extractall(target)


def main(standalone: str, shared: str) -> None:
    with tempfile.TemporaryDirectory() as directory:
        top = pathlib.Path(directory)
        wheel, again = make(standalone, top / "one"), make(standalone, top / "two")
        assert wheel.read_bytes() == again.read_bytes(), "two wheels differ"
        refused = run(sys.executable, "-B", MAKE_WHEEL, shared, top / "three")
        assert refused.returncode == 1 and "libz.so.1" in refused.stderr, refused
        install(wheel, top / "target")
        used = run(sys.executable, "-B", "-s", "-c", USE, top / "made.pak", cwd=top, env={"PYTHONPATH": top / "target"})
        assert used.returncode == 0, used.stderr
        package = top / "target/enginefs"
        assert used.stdout.split() == [str(package / "__init__.py"), str(package / "libengine_filesystem.so")], used.stdout
        print(f"wheel_test: good, {wheel.name}, {wheel.stat().st_size} bytes")


if __name__ == "__main__":
    main(*sys.argv[1:])
