"""What the tests of packs by URL share: the client, and a pack of a few megabytes."""
import os
import random
import re
import subprocess
import sys
import zipfile


def make_pack(path, seed, entries=60):
    """Entries stored and deflated, from nothing to a megabyte; a second seed gives other bytes in as many places."""
    chance = random.Random(seed)
    with zipfile.ZipFile(path, "w") as pack:
        for number in range(entries):
            size = (0, 1, 70000, 200000, chance.randrange(4000), chance.randrange(60000))[number % 6]
            data = bytes(chance.choices(b"abcdefghijklmnop", k=size))
            method = zipfile.ZIP_STORED if number % 4 == 0 else zipfile.ZIP_DEFLATED
            # The name's length varies with the seed, so that nothing lies where it lay before.
            pack.writestr(f"d{number % 7}/{'x' * seed}{number}.bin", data, method)
        pack.writestr("big.bin", chance.randbytes(1 << 20), zipfile.ZIP_STORED)
    return entries + 1


class Client:
    def __init__(self, program, where):
        self.program, self.where, self.failures, self.runs = program, where, [], 0
        self.environment = {**os.environ, "no_proxy": "*", "NO_PROXY": "*", "TMPDIR": where}

    def check(self, holds, what):
        if not holds:
            self.failures.append(what)

    def start(self, url, cache, pack, threads, *options):
        return subprocess.Popen([self.program, url, cache, pack, str(threads), *options], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, env=self.environment, cwd=self.where, restore_signals=False)

    def ended(self, label, process, wanted):
        """`wanted` is an expression that all of the output matches."""
        try:
            said = process.communicate(timeout=60)[0].decode("utf-8", "replace").strip()
        except subprocess.TimeoutExpired:
            process.kill()
            said = "(no end after 60 seconds)"
        self.runs += 1
        self.check(re.fullmatch(wanted, said, re.S), f"{label}: {said[:300]!r}, wanted {wanted!r}")
        return said

    def run(self, label, wanted, *arguments):
        return self.ended(label, self.start(*arguments), wanted)

    def finish(self):
        for failure in self.failures:
            print(failure)
        print(f"{self.runs} runs, {len(self.failures)} complaint(s)")
        sys.exit(1 if self.failures else 0)
