"""What the tests of packs by URL share: the client, and packs of a few megabytes."""
import os
import random
import re
import subprocess
import sys
import zipfile

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))
import complaints


def make_pack(path, seed, entries):
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


class Client(complaints.Complaints):
    """The client, a pack with so many entries, and one that is as long and full of other bytes."""

    def __init__(self, program, where, entries):
        super().__init__(where)
        self.program = os.path.abspath(program)
        self.pack, self.changed = (os.path.join(where, name) for name in ("one.pak", "two.pak"))
        self.count, _ = make_pack(self.pack, 1, entries), make_pack(self.changed, 2, entries)
        self.environment = {**os.environ, "no_proxy": "*", "NO_PROXY": "*", "TMPDIR": where}

    def start(self, url, cache="", threads=1, *options, pack=None):
        return subprocess.Popen([self.program, url, cache, pack or self.pack, str(threads), *options], stdout=subprocess.PIPE,
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

    def run(self, label, wanted, *arguments, **options):
        return self.ended(label, self.start(*arguments, **options), wanted)


def main(part, entries=60):
    """Calls `part` with a client, and with what stands behind its program on the command line."""
    program, *others = sys.argv[1:]
    complaints.main(lambda where: Client(program, where, entries), lambda client: part(client, *others))
