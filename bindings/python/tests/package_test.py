#!/usr/bin/env python3
"""The package over the library of this build: what io, pathlib and the like would do is what enginefs does.

usage: package_test.py OTHER-LIBRARY [unittest's arguments]   with ENGINEFS_LIBRARY and PYTHONPATH set
"""
import builtins
import concurrent.futures
import contextlib
import copy
import ctypes
import errno
import faulthandler
import gc
import io
import json
import os
import pathlib
import pickle
import random
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import zipfile
import zlib

try:
    import fsspec
    import numpy
    from PIL import Image
except ImportError as missing:
    print(f"not available: {missing}")
    sys.exit(0)

import enginefs
from enginefs.fsspec import EngineFileSystem

random.seed(7)
NOISE = random.randbytes(300_000)
TEXT = b"".join(b"line %d of a text\r\n" % i for i in range(20_000))
EVENS = numpy.arange(10, dtype=numpy.int16)[::2]  # not in one piece
OTHER_LIBRARY = sys.argv.pop(1)


def packed() -> dict:
    photo, array, inner = io.BytesIO(), io.BytesIO(), io.BytesIO()
    Image.new("RGB", (40, 30), (200, 100, 50)).save(photo, "png")
    numpy.save(array, numpy.arange(1000))
    with zipfile.ZipFile(inner, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("inner/text.txt", TEXT)
    return {"stored.bin": NOISE, "photo.png": photo.getvalue(), "array.npy": array.getvalue(), "inner.zip": inner.getvalue()}


class Mounted(unittest.TestCase):
    """A root with a pack over it, mounted for each test."""

    def setUp(self) -> None:
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.top = pathlib.Path(directory.name)
        self.root = self.top / "root"
        on_disk = {"one.txt": TEXT, "levels/a.json": b'{"n": [1, 2]}', "levels/deep/b.json": b"{}", "levels/c.bin": NOISE}
        for name, data in on_disk.items():
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            (self.root / name).write_bytes(data)
        self.pack = self.top / "base.pak"
        with enginefs.PackWriter(self.pack) as pack:
            for name, data in packed().items():
                pack.add("packed/" + name, data, enginefs.Method.STORE, 0)
            pack.add("packed/text.txt", memoryview(bytearray(TEXT)), mtime=1_000_000_000)
        self.mount = enginefs.Mount(self.root, packs=[self.pack])
        self.addCleanup(self.mount.close)


def tried(act) -> object:
    """What a call answers, or the kind of its failure."""
    try:
        return act()
    except (OSError, ValueError) as error:
        return type(error)


def use(opening, name: str, mode: str, steps) -> list:
    """What each step on a file that was opened answers, and the file closed."""
    file = tried(lambda: opening(name, mode))
    if isinstance(file, type):
        return [file]
    with file:
        return [tried(lambda: step(file)) for step in steps] + [file.mode, file.readable(), file.writable()]


class Opening(Mounted):
    def test_modes_do_what_those_of_io_do(self) -> None:
        steps = [lambda f: f.read(7), lambda f: f.write(b"12345" if "b" in f.mode else "12345"), lambda f: f.seek(3),
                 lambda f: f.readline(), lambda f: f.truncate(9), lambda f: f.seek(0, 2), lambda f: f.seek(-1),
                 lambda f: f.seek(500), lambda f: f.read(), lambda f: f.tell()]
        own = self.top / "own"
        own.mkdir()
        for mode in "r rb r+ r+b w wb w+ w+b a ab a+ a+b x xb x+b rw b rbt rr".split():
            for name, before in (("old.dat", b"first\nsecond\nthird\n"), ("new.dat", None)):
                for folder in (own, self.root):
                    (folder / name).unlink(missing_ok=True)
                    if before:
                        (folder / name).write_bytes(before)
                self.mount.refresh()
                with self.subTest(mode=mode, name=name):
                    theirs = use(lambda n, m: builtins.open(own / n, m), name, mode, steps)
                    self.assertEqual(use(enginefs.open, name, mode, steps), theirs)
                    self.assertEqual(tried((self.root / name).read_bytes), tried((own / name).read_bytes))

    def test_text_is_decoded_as_asked_and_binary_buffering_is_heeded(self) -> None:
        with enginefs.open("t.txt", "w", encoding="utf-16", newline="\r\n") as file:
            file.write("ä\nö\n")
        self.assertEqual((self.root / "t.txt").read_bytes(), "ä\r\nö\r\n".encode("utf-16"))
        with enginefs.open("T.TXT", encoding="utf-16") as file:
            self.assertEqual(list(file), ["ä\n", "ö\n"])
        for buffering, kind in ((0, io.RawIOBase), (-1, io.BufferedReader), (10, io.BufferedReader)):
            with enginefs.open("one.txt", "rb", buffering) as file:
                self.assertIsInstance(file, kind)
                self.assertEqual(file.read(), TEXT)
        self.assertRaises(ValueError, enginefs.open, "one.txt", "r", 0)
        self.assertRaises(ValueError, enginefs.open, "one.txt", "rb", encoding="utf-8")

    def test_seeks_in_entries_are_exact(self) -> None:
        target = numpy.zeros(5000, dtype=numpy.uint8)
        for name in ("packed/text.txt", "one.txt"):
            with self.subTest(name=name), enginefs.open(name, "rb", 0) as file:
                for _ in range(300):
                    at = random.randrange(len(TEXT) + 100)
                    self.assertEqual(file.seek(at), at)
                    got = file.readinto(target)
                    self.assertEqual(target[:got].tobytes(), TEXT[at:at + 5000])

    def test_readers_of_others_take_the_files(self) -> None:
        with enginefs.open("levels/a.json") as file:
            self.assertEqual(json.load(file), {"n": [1, 2]})
        with enginefs.open("packed/inner.zip", "rb") as file, zipfile.ZipFile(file) as archive:
            self.assertEqual(archive.read("inner/text.txt"), TEXT)
        with enginefs.open("packed/photo.png", "rb") as file:
            self.assertEqual(Image.open(file).getpixel((3, 3)), (200, 100, 50))
        with enginefs.open("packed/array.npy", "rb", 0) as file:
            self.assertEqual(int(numpy.load(file).sum()), 499_500)
        files = EngineFileSystem()
        self.assertEqual((files.cat("enginefs://packed/text.txt"), files.tail("packed/text.txt", 9)), (TEXT, TEXT[-9:]))
        fsspec.register_implementation("enginefs", EngineFileSystem, clobber=True)
        with fsspec.open("simplecache::enginefs://packed/stored.bin") as file:
            self.assertEqual((file.seek(10), file.read(20)), (10, NOISE[10:30]))
        self.assertEqual(sorted(files.find("")), sorted(str(p) for p in enginefs.Path().glob("**/*") if p.is_file()))
        files.mv("levels", "moved", recursive=True)
        self.assertEqual(files.find("moved"), ["moved/a.json", "moved/c.bin", "moved/deep/b.json"])

    def test_failures_are_those_of_python_with_the_reason(self) -> None:
        os.chmod(self.root / "levels/c.bin", 0o444)
        damaged = bytearray(self.pack.read_bytes())
        damaged[damaged.index(NOISE) + 1000] ^= 1
        (self.top / "damaged.pak").write_bytes(damaged)
        self.mount.add(self.top / "damaged.pak", prefix="bad")
        held = enginefs.open("one.txt", "rb")
        self.addCleanup(held.close)
        path = enginefs.Path
        for act, kind, number in (
            (lambda: enginefs.open("none/such"), FileNotFoundError, errno.ENOENT),
            (lambda: path("such").read_bytes(), FileNotFoundError, errno.ENOENT),
            (lambda: path("bad/packed/stored.bin").read_bytes(), OSError, errno.EBADMSG),
            (lambda: path("levels").read_bytes(), IsADirectoryError, errno.EISDIR),
            (lambda: enginefs.open("levels", "w"), IsADirectoryError, errno.EISDIR),
            (lambda: list(path("one.txt").iterdir()), NotADirectoryError, errno.ENOTDIR),
            (lambda: list(path("none").iterdir()), FileNotFoundError, errno.ENOENT),
            (lambda: enginefs.open("levels/c.bin", "r+"), PermissionError, errno.EACCES),
            (lambda: enginefs.open("one.txt", "w"), OSError, errno.EBUSY),
            (lambda: held.raw.seek(-1), OSError, errno.EINVAL),
            (lambda: enginefs.open("packed/text.txt", "x"), FileExistsError, errno.EEXIST),
            (lambda: path("levels/a.json").rename("levels/c.bin"), FileExistsError, errno.EEXIST),
            (lambda: enginefs.open("a<b", "w"), OSError, errno.EINVAL),
            (lambda: path("levels").rmdir(), OSError, errno.ENOTEMPTY),
            (lambda: path("LEVELS/a.json").mkdir(), FileExistsError, errno.EEXIST),
            (lambda: enginefs.list_pack(self.root / "levels/deep/b.json"), OSError, errno.EBADMSG),
            (lambda: path("levels").unlink(), IsADirectoryError, errno.EISDIR),
            (lambda: self.mount.add(self.pack), FileExistsError, errno.EEXIST),
            (lambda: self.mount.add(self.top / "missing"), FileNotFoundError, errno.ENOENT),
            (lambda: self.mount.add(self.root / "one.txt"), NotADirectoryError, errno.ENOTDIR),
        ):
            with self.assertRaises(kind) as caught:
                act()
            self.assertEqual(caught.exception.errno, number, caught.exception)
            self.assertGreater(len(caught.exception.strerror), 10)
        for act, kind in ((lambda: enginefs.open("a\0b"), ValueError), (lambda: builtins.open(path("one.txt")), TypeError),
                          (lambda: enginefs.open(b"one.txt"), TypeError), (lambda: held.raw.seek(1 << 70), OverflowError),
                          (lambda: held.raw.seek(1.5), TypeError), (lambda: held.raw.readinto(b"12"), TypeError),
                          (lambda: copy.copy(held.raw), TypeError), (lambda: pickle.dumps(self.mount), TypeError)):
            self.assertRaises(kind, act)


class Names(Mounted):
    def test_globs_and_listings_are_those_of_pathlib(self) -> None:
        own, top = self.root, enginefs.Path()
        for pattern in ("*", "*.txt", "levels/*", "**/*.json", "LEVELS/*.JSON", "**/deep/*", "l?vels/[ab].*", "**/x"):
            theirs = {str(p.relative_to(own)) for p in own.glob(pattern.lower())}
            self.assertEqual({str(p) for p in top.glob(pattern) if "packed" not in p.parts}, theirs, pattern)
        self.assertEqual([p.name for p in (top / "levels").iterdir()], ["deep", "a.json", "c.bin"])
        self.assertEqual([(p.exists(), p.is_dir(), p.is_file()) for p in (top, top / "levels", top / "ONE.txt", top / "no")],
                         [(True, True, False), (True, True, False), (True, False, True), (False, False, False)])
        self.assertAlmostEqual((top / "one.txt").stat().st_mtime, (own / "one.txt").stat().st_mtime, places=3)

    def test_whole_files_are_replaced_and_names_changed(self) -> None:
        path = enginefs.Path("saves") / "slot.txt"
        path.write_text("ä\r\n")
        self.assertEqual((path.read_text(), path.read_bytes()), ("ä\n", "ä\r\n".encode()))
        moved = path.rename("saves/other.txt")
        self.assertEqual((path.exists(), moved.stat().st_size), (False, 4))
        moved.unlink()
        moved.parent.rmdir()
        self.assertFalse((self.root / "saves").exists())


class Packs(Mounted):
    def test_a_pack_is_whole_or_not_there(self) -> None:
        with zipfile.ZipFile(self.pack) as archive:
            self.assertIsNone(archive.testzip())
        target = self.top / "made.pak"
        target.write_bytes(b"old")
        with self.assertRaises(ZeroDivisionError), enginefs.PackWriter(target) as pack:
            pack.add("a", b"1")
            1 / 0
        self.assertEqual(target.read_bytes(), b"old")
        with enginefs.PackWriter(target) as pack:
            self.assertRaises(OSError, pack.add, "a", b"1", level=99)
            pack.add("a", EVENS)
            self.assertRaises(FileExistsError, pack.add, "A", b"1")
            pack.add("b/c", b"", mtime=1_000_000_000)
        self.assertRaises(ValueError, pack.add, "d", b"")
        self.assertEqual([entry[:2] + entry[3:] for entry in enginefs.list_pack(target)],
                         [("a", 10, 0, zlib.crc32(EVENS.tobytes()), 315_532_800.0), ("b/c", 0, 0, 0, 1_000_000_000.0)])
        self.mount.add(target)
        self.assertEqual(enginefs.Path("a").read_bytes(), EVENS.tobytes())


class Documents(unittest.TestCase):
    def test_what_the_documents_show_runs(self) -> None:
        tree = pathlib.Path(enginefs.__file__).parents[3]
        self.addCleanup(os.chdir, os.getcwd())
        for document in ("README.md", "bindings/python/README.md", "docs/embedding.md"):
            for block in re.findall(r"```python\n(.*?)```", (tree / document).read_text(), re.S):
                with self.subTest(document=document), tempfile.TemporaryDirectory() as directory:
                    for name in ("game/levels", "mods"):
                        os.makedirs(f"{directory}/{name}")
                    pathlib.Path(directory, "game/levels/three.json").write_text("{}")
                    with enginefs.PackWriter(f"{directory}/game/base.pak") as pack:
                        pack.add("levels/four.json", b"{}")
                    os.chdir(directory)
                    with contextlib.redirect_stdout(io.StringIO()) as out:
                        exec(block, {})  # noqa: S102
                    self.assertIn("levels/", out.getvalue())


class Process(Mounted):
    def test_there_is_one_mount(self) -> None:
        with self.assertRaisesRegex(RuntimeError, f"{self.root}.*close that Mount first"):
            enginefs.Mount(self.top)
        self.mount.close()
        with self.assertRaisesRegex(OSError, rf"Errno {errno.ENODEV}\b"):
            enginefs.Path("one.txt").read_bytes()
        lines: list = []
        self.assertRaises(FileNotFoundError, enginefs.Mount, self.top / "missing", log=lambda *line: lines.append(line), level=5)
        told = len(lines)
        gc.collect()
        ctypes.CDLL(os.environ["ENGINEFS_LIBRARY"]).enginefs_log(1, b"Host", b"nobody listens\n")
        self.assertEqual(len(lines), told)
        self.assertRaises(FileNotFoundError, enginefs.Mount, None, [self.top / "missing.pak"])
        with enginefs.Mount(packs=[self.pack]) as mount:
            self.assertEqual(len(mount.sources()), 2)
            held = enginefs.open("packed/text.txt", "rb")
        self.assertEqual(held.read(), TEXT)
        held.close()

    def test_a_fork_ends_without_the_mount_of_its_parent(self) -> None:
        use = ("import os, enginefs\nmount, path = enginefs.Mount(), enginefs.Path('a')\npath.write_bytes(b'1')\n"
               "if os.fork() == 0: raise SystemExit\nassert os.wait()[1] == 0 and path.read_bytes() == b'1'")
        done = subprocess.run([sys.executable, "-B", "-c", use], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_log_callbacks_and_locks_do_not_wait_for_each_other(self) -> None:
        lines, unraisable, inside, stop = [], [], threading.Event(), threading.Event()

        def told(level: int, category: str, text: str) -> None:
            lines.append(text)
            inside.set()
            time.sleep(0.001)  # the interpreter is another thread's meanwhile
            raise RuntimeError("from the callback")

        def mount_and_remove() -> None:
            while not stop.is_set():
                self.mount.add(self.top / "other.pak")
                self.mount.remove(self.top / "other.pak")

        def ask() -> None:
            while not stop.is_set():
                self.assertTrue(enginefs.Path("packed/text.txt").exists())

        shutil.copy(self.pack, self.top / "other.pak")
        self.addCleanup(setattr, sys, "unraisablehook", sys.unraisablehook)
        sys.unraisablehook = lambda told: unraisable.append(str(told.exc_value))
        faulthandler.dump_traceback_later(60, exit=True)
        self.addCleanup(faulthandler.cancel_dump_traceback_later)
        with concurrent.futures.ThreadPoolExecutor(3) as pool:
            working = [pool.submit(work) for work in (mount_and_remove, ask, ask)]
            for _ in range(20):
                self.mount.set_log(told, 5)
                self.assertTrue(inside.wait(50))
                self.mount.set_log(None)  # waits for the callback that runs, which waits for the interpreter
                inside.clear()
            stop.set()
            self.assertEqual([work.result() for work in working], [None] * 3)
        self.assertEqual(unraisable, ["from the callback"] * len(lines))

    def test_a_library_that_does_not_fit_is_told_at_import(self) -> None:
        for library, text in (("/nonexistent.so", "cannot load its library"),
                              ("libm.so.6", "needs a library .* of no known version, and it lacks"),
                              (OTHER_LIBRARY, r"needs a library engine_filesystem 1.x.* is 2\.5\.7, and it lacks")):
            environment = {**os.environ, "ENGINEFS_LIBRARY": library}
            done = subprocess.run([sys.executable, "-B", "-c", "import enginefs"], env=environment, capture_output=True,
                                  text=True, check=False)
            self.assertRegex(done.stderr.splitlines()[-1], f"^ImportError: enginefs [0-9.]+ .*{text}")


if __name__ == "__main__":
    unittest.main()
