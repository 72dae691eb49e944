#!/usr/bin/env python3
"""The mounted view beside a minimal passthrough of the same files in a plain directory, and beside fuse-zip, in one run;
and the first drawing of a page of 60,000 entries.

usage: view_bench.py ENGINEFS [FILES] [ROUNDS]

Every round mounts each of them anew; the figures are medians. Needs libfuse3-dev, fuse-zip and a C compiler, and Chromium
for the page.
"""
import os
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
import zipfile


def text(rng, size):
    """Text-like bytes: words of a small vocabulary."""
    words = ["".join(rng.choices("abcdefghijklmnopqrstuvwxyz", k=rng.randrange(2, 11))) for _ in range(3000)]
    return " ".join(rng.choices(words, k=size // 6)).encode()[:size]


def make_tree(top, count):
    """Files of 256 bytes to 128 KiB in a hundred directories, a quarter of them random bytes, and one of 64 MiB."""
    rng = random.Random(2)
    like_text, like_sound = text(rng, 8 << 20), rng.randbytes(8 << 20)
    for n in range(count):
        where = os.path.join(top, f"dir{n % 100:02}")
        os.makedirs(where, exist_ok=True)
        size, at = int(2 ** rng.uniform(8, 17)), rng.randrange(7 << 20)
        with open(os.path.join(where, f"file{n:05}.dat"), "wb") as out:
            out.write((like_text if n % 4 else like_sound)[at:at + size])
    with open(os.path.join(top, "big.dat"), "wb") as out:
        out.write(b"".join(text(rng, 8 << 20) for _ in range(8)))


class Mount:
    """One of the compared programs, mounted."""

    def __init__(self, command, place):
        self.place = place
        before = os.stat(place).st_dev
        self.process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
        while os.stat(place).st_dev == before:
            if self.process.poll() is not None:
                sys.exit(f"{command}: it ended")
            time.sleep(0.001)

    def usage(self):
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as stat:
            fields = stat.read().rsplit(")", 1)[1].split()
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            peak = next(int(line.split()[1]) for line in status if line.startswith("VmHWM"))
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK"), peak / 1024

    def __enter__(self):
        return self

    def __exit__(self, *_):
        subprocess.run(["fusermount3", "-u", self.place], check=False)
        self.process.wait()


def timed(*commands, **options):
    start = time.perf_counter()
    running = [subprocess.Popen(command, stdout=subprocess.DEVNULL, **options) for command in commands]
    if any([process.wait() not in (0, 1) for process in running]):
        sys.exit(f"{commands} failed")
    return time.perf_counter() - start


class Bench:
    def __init__(self, enginefs, where, count):
        self.where, self.rows = where, {}
        self.plain, self.place = os.path.join(where, "plain"), os.path.join(where, "view")
        self.peer, pack = os.path.join(where, "view_peer"), os.path.join(where, "all.pak")
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", "fuse3"], capture_output=True, text=True, check=True).stdout.split()
        source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "view_peer.c")
        subprocess.run(["cc", "-O2", "-o", self.peer, source, *flags], check=True)
        make_tree(self.plain, count)
        os.makedirs(self.place)
        os.makedirs(os.path.join(where, "root"))
        subprocess.run([enginefs, "pack", pack, self.plain], check=True, stdout=subprocess.DEVNULL)
        self.names, self.zeros = os.path.join(where, "names"), os.path.join(where, "zeros")
        names = sorted(os.path.relpath(os.path.join(at, name), self.plain) for at, _, found in os.walk(self.plain) for name in found)
        with open(self.names, "w", encoding="ascii") as small, open(self.zeros, "w", encoding="ascii") as everything:
            small.writelines(name + "\n" for name in names if name != "big.dat")
            everything.writelines(name + "\0" for name in names)
        self.kinds = {"ours": [enginefs, "--root", os.path.join(where, "root"), "--add", pack, "mount", self.place],
                      "passthrough": [self.peer, "show", self.plain, self.place],
                      "fuse-zip": ["fuse-zip", "-r", "-f", pack, self.place]}
        self.detached = {"ours": [*self.kinds["ours"], "--detach"], "fuse-zip": ["fuse-zip", "-r", pack, self.place]}

    def note(self, row, kind, figure):
        self.rows.setdefault(row, {}).setdefault(kind, []).append(figure)

    def cat(self, place):
        with open(self.zeros, "rb") as names:
            return timed(["xargs", "-0", "cat"], cwd=place, stdin=names)

    def measure_directory(self, kind, place):
        for when in ("first", "second"):
            self.note(f"find, {when}", kind, timed(["find", place]))

    def round(self, kind):
        if kind in self.detached:
            self.note("mount", kind, timed(self.detached[kind]))
            subprocess.run(["fusermount3", "-u", self.place], check=True)
        with Mount(self.kinds[kind], self.place):
            self.measure_directory(kind, self.place)
        with Mount(self.kinds[kind], self.place):
            self.note("stat and 4 KiB, two processes", kind,
                      timed(*([self.peer, "touch", self.names, self.place, seed] for seed in "12")))
        with Mount(self.kinds[kind], self.place) as mount:
            for when in ("first", "second"):
                self.note(f"cat, {when}", kind, self.cat(self.place))
            self.note("processor s of cat", kind, mount.usage()[0])
            self.note("peak MiB of cat", kind, mount.usage()[1])
        with Mount(self.kinds[kind], self.place):
            self.note("grep -r", kind, timed(["grep", "-r", "no such text", self.place]))
        for count in ("200", "2000"):
            with Mount(self.kinds[kind], self.place) as mount:
                self.note(f"{count} random reads", kind, timed([self.peer, "random", f"{self.place}/big.dat", count, "1"]))
                self.note(f"processor s of {count} random reads", kind, mount.usage()[0])
                self.note(f"peak MiB of {count} random reads", kind, mount.usage()[1])

    def show(self):
        print(f"{'':34}{'ours':>9}{'pass':>9}{'fuse-zip':>9}{'plain':>9}   ours / pass, fuse-zip, plain")
        for row, by_kind in self.rows.items():
            middle = {kind: statistics.median(figures) for kind, figures in by_kind.items()}
            figures = "".join(f"{middle[kind]:9.3f}" if kind in middle else f"{'-':>9}"
                              for kind in ("ours", "passthrough", "fuse-zip", "plain"))
            ratios = "".join(f"{middle['ours'] / middle[kind]:9.2f}" if middle.get(kind) else f"{'-':>9}"
                             for kind in ("passthrough", "fuse-zip", "plain"))
            print(f"{row:34}{figures}{ratios}")


def page_ms(enginefs, where, rounds):
    """How long the page itself says that its first drawing took, once the browser has come to rest."""
    pack, page = os.path.join(where, "many.pak"), os.path.join(where, "many.html")
    rng = random.Random(1)
    with zipfile.ZipFile(pack, "w") as out:
        for n in range(60_000):
            out.writestr(f"textures/level{n % 300}/material_{n}_normal.{('dds', 'ogg', 'obj', 'txt', 'bin')[n % 5]}", b"x" * int(2 ** rng.uniform(3, 13)))
    subprocess.run([enginefs, "--no-fallback", "report", page, "--pack", pack], check=True, stdout=subprocess.DEVNULL)
    with open(page, encoding="utf-8") as file:
        html = re.sub(r'<meta http-equiv="Content-Security-Policy"[^>]*>', "", file.read())  # which lets in no other script
    rest = "for (const end = performance.now() + 1000; performance.now() < end;) ;\nreadAddress();\n</script>"
    with open(page, "w", encoding="utf-8") as file:
        file.write(html.replace("readAddress();\n</script>", rest))
    browser = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking",
               "--window-size=1280,800", f"--user-data-dir={where}/profile", "--dump-dom", f"file://{page}"]
    said = [subprocess.run(browser, capture_output=True, text=True, check=True).stdout for _ in range(2 * rounds)]
    return statistics.median(float(re.search(r'"ms":([\d.]+)', text)[1]) for text in said)


def main():
    enginefs = os.path.abspath(sys.argv[1])
    count, rounds = (int(word) for word in (sys.argv[2:] + ["10000", "3"][len(sys.argv) - 2:]))
    where = tempfile.mkdtemp(prefix="view-bench-")
    try:
        bench = Bench(enginefs, where, count)
        for _ in range(rounds):
            for kind in bench.kinds:
                bench.round(kind)
            bench.measure_directory("plain", bench.plain)
        bench.show()
        if shutil.which("chromium"):
            print(f"the first drawing of a page of 60,000 entries: {page_ms(enginefs, where, rounds):.0f} ms")
    finally:
        shutil.rmtree(where, ignore_errors=True)


if __name__ == "__main__":
    main()
