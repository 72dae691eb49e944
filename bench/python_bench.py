#!/usr/bin/env python3
"""The Python package beside zipfile, and beside the same calls made in C, over the same packs in the same run.

usage: python_bench.py LIBRARY [ROUNDS]      LIBRARY is libengine_filesystem.so

Prints for each reading the medians, and the ratios as medians of pairs that were measured one after the other.
"""
import ctypes
import os
import pathlib
import random
import statistics
import subprocess
import sys
import tempfile
import time
import zipfile

TREE = pathlib.Path(__file__).resolve().parents[1]
LIBRARY = os.path.abspath(sys.argv[1])
os.environ["ENGINEFS_LIBRARY"] = LIBRARY
sys.path.insert(0, str(TREE / "bindings/python"))
import enginefs  # noqa: E402

SMALL, BIG = 4 << 10, 4 << 20
# label, entries, size, method, goal beside zipfile, goal beside C
READINGS = [
    ("20,000 entries of 4 KiB, deflated", 20_000, SMALL, enginefs.Method.DEFLATE, 1.5, None),
    ("20,000 entries of 4 KiB, stored", 20_000, SMALL, enginefs.Method.STORE, 1.5, None),
    ("8 entries of 4 MiB, deflated", 8, BIG, enginefs.Method.DEFLATE, 2.5, 1.25),
    ("8 entries of 4 MiB, stored", 8, BIG, enginefs.Method.STORE, 2.0, 1.25),
]


def text_like(size: int, seed: int) -> bytes:
    """Words of a small vocabulary."""
    chance = random.Random(seed)
    words = ["".join(chance.choices("abcdefghijklmnopqrstuvwxyz", k=chance.randint(3, 9))) for _ in range(2000)]
    picked = (words[min(chance.randrange(2000), chance.randrange(2000))] for _ in range(size // 3))
    return " ".join(picked).encode()[:size]


def make_pack(path: pathlib.Path, count: int, size: int, method: enginefs.Method) -> list[str]:
    blobs = [text_like(size, seed) for seed in range(min(count, 50))]
    names = [f"data/room{i % 50:02}/part_{i:05}.bin" for i in range(count)]
    with enginefs.PackWriter(path) as pack:
        for i, name in enumerate(names):
            pack.add(name, blobs[i % len(blobs)], method, 6 if method else 0)
    return names


def c_reader(folder: pathlib.Path):
    """The same calls in C: reads every name of a list once, and answers the bytes."""
    built = folder / "python_bench.so"
    subprocess.run(["cc", "-O2", "-shared", "-fPIC", f"-I{TREE / 'include'}", "-o", built, TREE / "bench/python_bench.c", LIBRARY,
                    f"-Wl,-rpath,{os.path.dirname(LIBRARY)}"], check=True)
    read_all = ctypes.CDLL(str(built)).read_all
    read_all.restype = ctypes.c_int64
    return read_all


def seconds(work) -> float:
    start = time.perf_counter()
    work()
    return time.perf_counter() - start


def measure(folder: pathlib.Path, reading: tuple, rounds: int, read_all) -> bool:
    label, count, size, method, goal, c_goal = reading
    pack = folder / "bench.pak"
    names = make_pack(pack, count, size, method)
    paths = [enginefs.Path(name) for name in names]
    encoded = (ctypes.c_char_p * count)(*(name.encode() for name in names))
    with enginefs.Mount(packs=[pack]), zipfile.ZipFile(pack) as archive:
        ways = (
            lambda: sum(len(path.read_bytes()) for path in paths),
            lambda: sum(len(archive.read(name)) for name in names),
            lambda: read_all(encoded, count),
        )
        assert [way() for way in ways] == [count * size] * 3
        times = []
        for _ in range(rounds):  # in another order each time, since one leaves the heap to the next
            order = random.sample(range(3), 3)
            taken = {way: seconds(ways[way]) for way in order}
            times.append([taken[way] for way in range(3)])
    ours, theirs, in_c = (statistics.median(column) * 1000 for column in zip(*times))
    faster = statistics.median(t[1] / t[0] for t in times)
    slower = statistics.median(t[0] / t[2] for t in times)
    met = faster >= goal and (c_goal is None or slower <= c_goal)
    print(f"{label:34}  enginefs {ours:7.1f} ms  zipfile {theirs:7.1f} ms ({faster:4.2f} x, goal {goal})  C {in_c:7.1f} ms "
          f"({slower:4.2f} x{f', goal {c_goal}' if c_goal else ''}){'' if met else '  MISSED'}", flush=True)
    return met


def main(rounds: int) -> None:
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        read_all = c_reader(folder)
        results = [measure(folder, reading, rounds, read_all) for reading in READINGS]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main(int(sys.argv[2]) if len(sys.argv) > 2 else 9)
