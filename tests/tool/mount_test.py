#!/usr/bin/env python3
"""Mounts what enginefs sees, where the system lets it, and reads it as any program would.

usage: mount_test.py PROGRAM [EMULATOR]
"""
import concurrent.futures
import contextlib
import errno
import os
import random
import signal
import subprocess
import time

import kit
from kit import PLAIN

ABSENT = ("built without FUSE", "/dev/fuse", "ermitted", "fusermount3")
BIG = random.Random(3).randbytes(3_000_000).hex().encode()


def unmount(place):
    if os.path.ismount(place):
        subprocess.run(["fusermount3", "-uz", place], check=False)


@contextlib.contextmanager
def mounted(tool, line):
    """A mount in the foreground; the process. Ends with it, whatever happens."""
    with tool.start(line) as process:
        try:
            said = process.stdout.readline()
            tool.check(said.startswith(b"view: "), f"{line}: it says {said!r}; {'' if said else process.stderr.read()!r}")
            yield process
        finally:
            unmount(tool.path("view"))
            process.kill()


def skip_where_absent(tool):
    os.makedirs(tool.path("view"))
    tried = subprocess.run(tool.words("mount view --detach"), cwd=tool.where, capture_output=True, check=False, timeout=60)
    said = tried.stderr.decode("utf-8", "replace")
    unmount(tool.path("view"))
    if tried.returncode != 0 and any(reason in said for reason in ABSENT):
        kit.complaints.skip(said.strip())
    tool.check(tried.returncode == 0 and not said, f"mount --detach: {tried.returncode}, {said!r}")


def make_sources(tool):
    tool.tree({"root/Textures/Sky/One.TXT": b"one\n", "root/Textures/both.txt": b"of the root\n", "root/clash": b"a file\n",
               "root/Pair/Two.TXT": b"first\n", "root/Pair/two.txt": b"second\n", "first/textures/Both.txt": b"of the pack\n",
               "first/clash/inner.txt": b"inner\n", "first/plain.txt": PLAIN, "first/deep/plain.txt": b"another by its end\n",
               "first/nothing": b"", "first/big.hex": BIG, "second/stored.bin": BIG[:700_001],
               "second/plain.txt": b"shadowed\n", "extra/deep/z.txt": b"of the directory\n", "extra/nothing/x.txt": b"hidden\n",
               # Read one after another, the next of these is decoded before it is asked for.
               **{f"first/row/{number}.txt": b"%d " % number * 20_000 for number in range(9)}})
    os.makedirs(tool.path("root/Empty/Deep"))
    os.symlink("..", tool.path("root/Pair/loop"))
    os.utime(tool.path("first/plain.txt"), (1_580_000_000, 1_580_000_000))
    os.utime(tool.path("root/Readme.txt"), ns=(0, 1_234_567_890_123_456_700))
    tool.run("pack first.pak first", 0, "~15 files")
    tool.run("pack second.pak second --level 0", 0, "~2 files")


def tree_of(top):
    found = {}
    for where, directories, files in os.walk(top):
        for name in directories + files:
            path = os.path.join(where, name)
            found[os.path.relpath(path, top)] = None if name in directories else (os.stat(path).st_size, os.stat(path).st_mtime_ns)
    return found


def shows_what_the_game_reads(tool):
    tool.run("unpack first.pak merged")
    with mounted(tool, "--add first.pak --add second.pak --add extra mount view") as process:
        view = tree_of(tool.path("view"))
        for name, facts in sorted(tree_of(tool.path("merged")).items()):
            tool.check(view.pop(name, 0) == facts, f"{name} is not as unpack makes it")
            if facts is not None:
                tool.is_file("view/" + name, tool.read("merged/" + name))
        tool.check(view.pop("Readme.txt")[1] == 1_234_567_890_123_456_700, "the time of a file of the disk")
        tool.check(sorted(view) == ["Empty", "Empty/Deep", "Pair", "Pair/Two.TXT", "deep/z.txt", "stored.bin", "textures/Sky", "textures/Sky/One.TXT"],
                   f"the rest of the view is {sorted(view)}")
        for name, data in (("TEXTURES/SKY/one.txt", b"one\n"), ("pair/two.txt", b"first\n"), ("both.txt", None), ("clash/none", None),
                           ("plain.txt/x", None)):
            tool.is_file("view/" + name, data)
        tool.check(len({os.stat(tool.path("view", name)).st_ino for name in ("plain.txt", "PLAIN.txt", "Plain.TXT")}) == 1,
                   "spellings are different files")
        tool.run("cat pair/two.txt", 0, "first\n")
        reads_anywhere(tool)
        plain = tool.path("view/plain.txt")
        for change in (lambda: open(plain + ".new", "wb"), lambda: open(plain, "ab"), lambda: os.remove(plain)):
            fails_with(tool, errno.EROFS, change)
        process.send_signal(signal.SIGTERM)
        tool.check(process.wait(60) == 0 and not os.path.ismount(tool.path("view")), "SIGTERM does not end it")
        said = process.stderr.read().decode()
        tool.check(said == "enginefs: clash: a directory of an earlier source hides this file\n"
                           "enginefs: nothing/: a file of an earlier source hides this directory\n", f"it says {said!r}")


def fails_with(tool, wanted, act):
    try:
        tool.check(False, f"{act()} instead of {errno.errorcode[wanted]}")
    except OSError as error:
        tool.check(error.errno == wanted, f"{error} instead of {errno.errorcode[wanted]}")


def reads_anywhere(tool):
    def is_right(place):
        name, size, at = place
        with open(tool.path("view", name), "rb") as data:
            data.seek(at)
            return data.read(5000) == BIG[:size][at:at + 5000]

    places = [(name, size, random.randrange(size)) for _ in range(200) for name, size in (("Big.hex", len(BIG)), ("stored.bin", 700_001))]
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        wrong = [place for place, good in zip(places, pool.map(is_right, places)) if not good]
    tool.check(not wrong, f"reads here and there bring something else: {wrong}")


def tells_what_is_wrong(tool):
    whole = tool.read("first.pak")
    tool.write("damaged.pak", whole.replace(whole[2000:2050], bytes(50), 1))
    with mounted(tool, "--add damaged.pak mount view --memory 1"):
        fails_with(tool, errno.EIO, lambda: len(tool.read("view/big.hex")))
        tool.is_file("view/readme.txt", b"hello\n")
    with mounted(tool, "mount view") as process:
        process.kill()
        process.wait(60)
        tool.run("mount view", 1, err="view: the process of a view there was killed")
        subprocess.run(["fusermount3", "-uz", tool.path("view")], check=False)
    tool.fails(("mount root", "root: it is not empty"), ("mount none", "none: there is no such directory"),
               ("--add none.pak mount view --detach", "none.pak: "))
    tool.run("mount view --memory 0", 2, "", "--memory")


def comes_to(tool, what, look):
    """Whether `look` answers true within a while: changes are taken up some time after they are made."""
    end = time.monotonic() + 20
    while not (good := look()) and time.monotonic() < end:
        time.sleep(0.02)
    tool.check(good, f"{what} does not show")


def follows_the_disk(tool):
    view = tool.path("view")
    tool.tree({"live/Kept.txt": b"before\n", "live/sub/Gone.txt": b"gone\n", "packed/z.bin": b"first\n" * 9})
    tool.run("pack live.pak packed", 0, "~1 file")
    with mounted(tool, "enginefs --root live --add live.pak mount view --follow"):
        kept = os.stat(view + "/kept.txt").st_ino
        for name, data in (("Kept.txt", b"before\n"), ("z.bin", b"first\n" * 9), ("New.txt", None)):
            tool.is_file("view/" + name, data)
        os.remove(tool.path("live/sub/Gone.txt"))
        tool.tree({"live/Kept.txt": b"after it was written\n", "live/More/Deep/x.txt": b"x\n"})
        comes_to(tool, "a change of content", lambda: tool.read("view/Kept.txt") == b"after it was written\n")
        comes_to(tool, "a new directory", lambda: os.path.exists(view + "/more/Deep/x.txt"))
        comes_to(tool, "a removal", lambda: not os.path.exists(view + "/sub/Gone.txt"))
        comes_to(tool, "a listing", lambda: sorted(os.listdir(view)) == ["Kept.txt", "More", "sub", "z.bin"] and not os.listdir(view + "/sub"))
        tool.check(os.stat(view + "/kept.txt").st_ino == kept, "a file that stays gets another inode")
        tool.write("packed/z.bin", b"other\n" * 9)
        tool.run("pack live.pak packed", 0, "~1 file")
        comes_to(tool, "a pack that was replaced", lambda: tool.read("view/z.bin") == b"other\n" * 9)


if __name__ == "__main__":
    kit.main([skip_where_absent, make_sources, shows_what_the_game_reads, follows_the_disk, tells_what_is_wrong])
