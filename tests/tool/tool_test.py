#!/usr/bin/env python3
"""Runs every command of enginefs on a small tree, with good and bad input, and holds standard output, standard error
and exit status against what they should be.

usage: tool_test.py PROGRAM [EMULATOR]
"""
import gzip
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import warnings
import zipfile
import zlib

PLAIN = b"one line of plain text\n" * 4000


def chunk(identifier, version, data):
    return identifier + struct.pack("<II", version, len(data)) + data


TREE = chunk(b"TREE", 1, chunk(b"data", 3, b"12345") + chunk(b"NODE", 2, chunk(b"leaf", 1, b"")))
TEXT_IN_CHUNK = chunk(b"NOTE", 1, b"plain text, not chunks")


class Tool:
    def __init__(self, command, where):
        self.command, self.where, self.failures, self.runs = command, where, [], 0

    def path(self, *names):
        return os.path.join(self.where, *names)

    def write(self, name, data):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as out:
            out.write(data)

    def read(self, name):
        with open(self.path(name), "rb") as data:
            return data.read()

    def check(self, holds, what):
        if not holds:
            self.failures.append(what)

    def run(self, line, status, out="", err=""):
        """`line` is split at blanks ("_" stands for one within a word, '""' for an empty word). `out` is the whole
        standard output, or a compiled expression that it holds; `err` a text in standard error, which is empty when it
        is ""."""
        words = [word.replace("_", " ").replace('""', "") for word in line.split()]
        result = subprocess.run(self.command + words, cwd=self.where, capture_output=True, check=False, timeout=120)
        said = result.stderr.replace(b"\r\n", b"\n").decode("utf-8", "replace")
        self.runs += 1
        self.check(result.returncode == status, f"{line}: status {result.returncode}, not {status}; {said!r}")
        self.check("\r" not in said, f"{line}: a stray return on standard error: {said!r}")
        self.check(err in said if err else not said, f"{line}: standard error is {said!r}, wanted {err!r}")
        if status == 1:
            self.check(said.startswith("enginefs: "), f"{line}: no word about the failure")
        if isinstance(out, re.Pattern):
            good = out.search(result.stdout.decode("utf-8", "replace"))
        else:
            good = result.stdout == (out if isinstance(out, bytes) else out.encode())
        self.check(good, f"{line}: standard output is {result.stdout[:400]!r}, wanted {out!r}")


def holds(text):
    return re.compile(text)


def listing(tool):
    tool.write("root/textures/a.dds", b"pixels")
    tool.write("root/textures/b.dds", b"pixels")
    tool.write("root/Readme.txt", b"hello\n")
    tool.write("over/readme.txt", b"patched\n")
    tool.run("sources", 0, holds(r"root +writable"))
    tool.run("ls", 0, "textures/\nreadme.txt\n")
    tool.run("ls textures --mask a.*", 0, "textures/a.dds\n")
    tool.run("ls -r --long", 0, holds(r"  6  \d{4}-\d\d-\d\d .*textures/b.dds\n"))
    tool.run("ls --json", 0, holds(r'"name": "textures",\s+"kind": "directory"'))
    tool.run("ls nowhere", 1, err="enginefs: nowhere: no source has such a directory")
    tool.run("ls --mask *.wav", 1, err="*.wav: no file matches")
    tool.run("find B.D", 0, "textures/b.dds\n")
    tool.run("find zebra", 1, err="no name contains it")
    tool.run("stat README.TXT", 0, holds(r"size +6\n"))
    tool.run("stat zebra", 1, err="no source holds it")
    tool.run("--add over which --all readme.txt", 0, holds(r"root/?\n.*over/? \(shadowed\)\n"))
    tool.run("which zebra", 1, err="no source holds it")
    for command in ("stat", "which"):
        tool.run(f"{command} textures/", 1, err="enginefs: textures/: it is a directory")


def content(tool):
    tool.run("cat readme.txt", 0, "hello\n")
    tool.run("cat zebra.txt", 1, err="enginefs: zebra.txt: ")
    tool.run("cp readme.txt Notes/copy.txt", 0)
    tool.check(tool.read("root/Notes/copy.txt") == b"hello\n", "cp: the copy differs")
    tool.run("cp readme.txt notes/a|b.txt", 1, err="notes/a|b.txt")
    tool.run("cp zebra.txt copy.txt", 1, err="enginefs: zebra.txt: ")
    tool.run("cat notes/\acopy.txt", 1, err="enginefs: notes/\\x07copy.txt: ")
    tool.run('cat ""', 1, err='enginefs: "": ')
    # The end of a name finds a file, too; what changes files must not take one for another.
    tool.run("cat copy.txt", 0, "hello\n")
    for line in ("rm copy.txt", "mv copy.txt other.txt", "cp textures/a.dds copy.txt", "gzip readme.txt copy.txt",
                 "gunzip readme.txt copy.txt", "backup copy.txt", "touch copy.txt"):
        tool.run(line, 1, err="enginefs: copy.txt: it finds notes/copy.txt; give that name to change it")
    tool.run("cp textures/a.dds notes/COPY.txt", 0)
    tool.check(tool.read("root/Notes/copy.txt") == b"pixels", "cp: the file was not replaced")
    tool.run("rm notes/copy.txt", 0)


def packs(tool):
    tool.write("work/in/sub/text.txt", PLAIN)
    tool.write("work/in/empty", b"")
    tool.run("pack work/made.pak work/in", 0)
    tool.run("list work/made.pak", 0, holds(r"^(empty\nsub/text.txt|sub/text.txt\nempty)\n$"))
    tool.run("list --long work/made.pak", 0, holds(r"%d +\d+  deflated  %08x" % (len(PLAIN), zlib.crc32(PLAIN))))
    tool.run("verify work/made.pak", 0, "work/made.pak: 2 entries, all good\n")
    tool.run("unpack work/made.pak work/out", 0)
    tool.check(tool.read("work/out/sub/text.txt") == PLAIN, "unpack: the file differs")
    tool.run("--add work/made.pak which sub/text.txt", 0, holds(r"made.pak\n$"))
    damaged = bytearray(tool.read("work/made.pak"))
    damaged[damaged.index(b"sub/text.txt") + 30] ^= 0xFF
    tool.write("work/bad.pak", bytes(damaged))
    tool.run("verify work/bad.pak", 1, err="sub/text.txt")
    tool.write("work/cut.pak", bytes(damaged[:100]))
    tool.run("list work/cut.pak", 1, err="enginefs: work/cut.pak: ")
    with zipfile.ZipFile(tool.path("work/twice.pak"), "w") as twice, warnings.catch_warnings():
        warnings.simplefilter("ignore")
        for text in ("first", "second"):
            twice.writestr("same.txt", text)
        twice.writestr("../out.txt", "")
    tool.run("unpack work/twice.pak work/twice", 1, err="same.txt: an entry before it has the same name")
    tool.check(tool.read("work/twice/same.txt") == b"first", "unpack: not the entry that a mount shows")
    locked = bytearray(tool.read("work/twice.pak"))
    locked[locked.rindex(b"PK\1\2") + 8] |= 1
    tool.write("work/locked.pak", bytes(locked))
    tool.run("verify work/locked.pak", 1, err="../out.txt: it is encrypted")
    tool.run("pack work/made.pak nowhere", 1, err="nowhere")
    tool.run("pack nowhere/made.pak work/in", 1, err="its directory does not exist")
    tool.run("pack", 2, err="OUT")


def gzip_members(tool):
    tool.write("root/plain.txt", PLAIN)
    tool.run("gzip plain.txt plain.gz", 0)
    tool.check(gzip.decompress(tool.read("root/plain.gz")) == PLAIN, "gzip: another reader reads something else")
    whole = gzip.compress(PLAIN, mtime=0)
    good = {"plain.gz": PLAIN, "two.gz": PLAIN + b"more", "padded.gz": PLAIN, "nothing.gz": b"", "many.gz": b"ab" * 500}
    tool.write("root/two.gz", whole + gzip.compress(b"more"))
    tool.write("root/padded.gz", whole + bytes(5000))
    tool.write("root/nothing.gz", gzip.compress(b""))
    tool.write("root/many.gz", gzip.compress(b"ab") * 500)
    for name, plain in good.items():
        tool.run(f"gunzip {name} back.txt", 0)
        tool.check(tool.read("root/back.txt") == plain, f"gunzip {name}: the file differs")
    bad = {"cut": whole[:-9], "trailer": whole[:-8] + b"\0" * 8, "length": whole[:-1] + b"\1", "text": b"no member",
           "behind": whole + b"rubbish", "second": whole + whole[:50], "empty": b""}
    for name, data in bad.items():
        tool.write(f"root/{name}.gz", data)
        tool.run(f"gunzip {name}.gz new.txt", 1, err=f"enginefs: {name}.gz: the member at offset ")
        tool.check(not os.path.exists(tool.path("root/new.txt")), f"gunzip {name}.gz: half a file is left")
        tool.run(f"gunzip {name}.gz back.txt", 1, err="back.txt is as it was")
        tool.check(tool.read("root/back.txt") == b"ab" * 500, f"gunzip {name}.gz: the file before it is gone")
    tool.run("gzip zebra.txt z.gz", 1, err="enginefs: zebra.txt: ")
    tool.run("gunzip zebra.gz z.txt", 1, err="enginefs: zebra.gz: ")
    tool.run("gzip plain.txt plain.txt", 1, err="enginefs: plain.txt: ")
    tool.check(tool.read("root/plain.txt") == PLAIN, "gzip onto itself: the file is gone")


def chunk_trees(tool):
    tool.write("root/tree.chk", TREE + TEXT_IN_CHUNK)
    tool.run("chunks tree.chk", 0,
             "TREE  version 1  offset 0  size 41\n"
             "  data  version 3  offset 12  size 5\n"
             "  NODE  version 2  offset 29  size 12\n"
             "    leaf  version 1  offset 41  size 0\n"
             "NOTE  version 1  offset 53  size 22\n")
    tool.write("root/deep.chk", b"".join(chunk(b"DEEP", 1, b"")[:8] + struct.pack("<I", 12 * left)
                                         for left in range(19999, -1, -1)))
    tool.run("chunks deep.chk", 0, holds(r"\[19999\] DEEP  version 1  offset 239988  size 0\n$"))
    inner = bytearray(TREE)
    inner[20] = 200  # the size of the chunk "data"
    for name, data, offset in (("cut", TREE[:-1], 0), ("tail", TREE + b"abc", 53), ("inner", bytes(inner), 12),
                               ("noise", TREE + bytes(range(128, 150)), 53)):
        tool.write(f"root/{name}.chk", data)
        tool.run(f"chunks {name}.chk", 1, holds("" if offset == 0 else "^TREE  version 1  offset 0  size 41\n"),
                 err=f"enginefs: {name}.chk: it makes no sense from offset {offset} on: ")
    tool.run("chunks zebra.chk", 1, err="enginefs: zebra.chk: ")


def managing(tool):
    tool.write("root/m/one.txt", b"one")
    tool.run("mkdir made/deep", 0)
    tool.check(os.path.isdir(tool.path("root/made/deep")), "mkdir: nothing was made")
    tool.run("mkdir readme.txt", 1, err="enginefs: readme.txt: ")
    tool.run("mkdir ../outside", 1, err="climbs")
    tool.run("mv m/one.txt m/two.txt", 0)
    tool.run("mv m/one.txt m/three.txt", 1, err="enginefs: m/one.txt: no source holds it")
    tool.run("mv m/two.txt readme.txt", 1, err="holds a file of the new name already")
    tool.run("mv m m2", 1, err="it is a directory")
    tool.run("crc m/two.txt zebra", 1, "%08x %12d  m/two.txt\n" % (zlib.crc32(b"one"), 3), err="enginefs: zebra: ")
    for time, shown in (("2001-02-03_04:05:06", "2001-02-03 04:05:06"), ("@86400", "1970-01-02 00:00:00"),
                        ("2024-02-29", "2024-02-29 00:00:00")):
        tool.run(f"touch m/two.txt --time {time}", 0)
        tool.run("stat m/two.txt", 0, holds(f"written +{shown}\n"))
    for time in ("2023-02-29", "yesterday", "2001-02-03_24:00:00", "@", "@99999999999999"):
        tool.run(f"touch m/two.txt --time {time}", 2, err="this is no time")
    tool.run("touch m/fresh", 0)
    tool.check(tool.read("root/m/fresh") == b"", "touch: nothing was made")
    for generation in range(1, 6):
        tool.write("root/m/saved.cfg", b"%d" % generation)
        tool.run("backup m/saved.cfg", 0)
    kept = {name: tool.read("root/m/saved.cfg." + name) for name in ("bak", "ba1", "ba2", "ba3")}
    tool.check(kept == {"bak": b"5", "ba1": b"4", "ba2": b"3", "ba3": b"2"}, f"backup: {kept}")
    tool.run("backup m/saved.cfg", 1, err="no source holds it")
    tool.run("rm m/two.txt zebra", 1, err="enginefs: zebra: no source holds it")
    tool.check(not os.path.exists(tool.path("root/m/two.txt")), "rm: the file is still there")
    tool.run("rm m", 1, err="-r removes")
    tool.run("rm -r m", 0)
    tool.check(not os.path.exists(tool.path("root/m")), "rm -r: the directory is still there")
    tool.run("rm -r m", 1, err="enginefs: m: ")
    tool.run("rm -r ..", 1, err="enginefs: ..: ")
    tool.run("--add work/made.pak rm sub/text.txt", 1, err="cannot be written")


def duplicates(tool):
    tool.write("dup/a/one.bin", b"the same")
    tool.write("dup/b/two.bin", b"the same")
    tool.write("dup/b/other.bin", b"not same")
    tool.write("dup2/a/one.bin", b"hidden")
    same = "equal content, 8 bytes, crc %08x:\n    a/one.bin\n    b/two.bin\n" % zlib.crc32(b"the same")
    for options, wanted in (("", holds(r"(?s)^held by 2 sources: a/one.bin\n.*" + re.escape(same) + "$")),
                            ("--content", same), ("--names", holds(r"dup2/? \(shadowed\)\n$"))):
        tool.run(f"--root dup --add dup2 --no-fallback duplicates {options}", 0, wanted)
    tool.run("duplicates --names --content", 2, err="--help")


def containers(tool):
    tool.run("container put c.mc First 0x10 plain.txt --deflate", 0)
    tool.run("container put c.mc Second 17 readme.txt", 0)
    tool.run("container ls c.mc", 0, holds(r"First  1 blobs\nSecond  1 blobs\n2 containers, 2 blobs, "))
    tool.run("container ls c.mc First", 0, holds(r"0x00000010 +%d +\d+  deflated\n" % len(PLAIN)))
    tool.run("container get c.mc First 16", 0, PLAIN)
    tool.run("container get c.mc Second 0x11 got.txt", 0)
    tool.check(tool.read("root/got.txt") == b"hello\n", "container get: the blob differs")
    tool.run("container get c.mc Second 18", 1, err="there is no blob 0x00000012 in container \"Second\"")
    tool.run("container get c.mc Second twelve", 2, err="this is no hash")
    tool.run("container rm c.mc Second 17", 0)
    tool.run("container rm c.mc Third", 1, err="enginefs: c.mc: ")
    tool.run("container compact c.mc", 0, holds(r"^c.mc: \d+ bytes regained\n$"))
    tool.run("container verify c.mc", 0, "c.mc: 1 blobs, all good\n")
    damaged = bytearray(tool.read("root/c.mc"))
    damaged[len(damaged) // 2] ^= 0x55
    tool.write("root/bad.mc", bytes(damaged))
    tool.run("container verify bad.mc", 1, err="enginefs: bad.mc: ")
    tool.run("container put readme.txt First 1 plain.txt", 1, err="enginefs: readme.txt: ")
    tool.check(tool.read("root/Readme.txt") == b"hello\n", "container put: another file was written over")
    tool.run("container ls zebra.mc", 1, err="enginefs: zebra.mc: ")
    tool.run("container", 2, err="subcommand")
    damaged_containers(tool)


def damaged_containers(tool):
    for number in range(1, 4):
        tool.run(f"container put d.mc Blobs {number} readme.txt", 0)
    whole = tool.read("root/d.mc")
    rotten = bytearray(whole)
    rotten[whole.index(b"hello")] ^= 1
    part = bytearray(whole)
    part[-1] ^= 1
    for name, data, reason in (("cut", whole[:-1], "has lost its end"), ("short", whole[:50], "no multi-container"),
                               ("records", whole[:64] + bytes(128) + whole[192:], "commit records")):
        tool.write(f"root/{name}.mc", data)
        for command in ("ls", "verify", "compact", "get C 1", "put C 1 readme.txt", "rm C"):
            words = command.split()
            tool.run(" ".join(["container", words[0], f"{name}.mc", *words[1:]]), 1, err=reason)
        tool.check(tool.read(f"root/{name}.mc") == data, f"{name}.mc: a refused file was changed")
    tool.write("root/rotten.mc", bytes(rotten))
    tool.run("container verify rotten.mc", 1, err="container \"Blobs\", blob 0x00000001: A blob's checksum is wrong.")
    tool.run("container get rotten.mc Blobs 1", 1, err="checksum")
    tool.run("container get rotten.mc Blobs 2", 0, "hello\n")
    tool.run("container compact rotten.mc", 0, holds("bytes regained"))
    tool.run("container verify rotten.mc", 1, err="blob 0x00000001: A blob's checksum is wrong.")
    tool.run("container rm rotten.mc Blobs 1", 0)
    tool.run("container verify rotten.mc", 0, "rotten.mc: 2 blobs, all good\n")
    tool.write("root/part.mc", bytes(part))
    tool.run("container verify part.mc", 1, err="container \"Blobs\": its index is damaged")
    for command in ("get part.mc Blobs 1", "rm part.mc Blobs 1", "put part.mc Blobs 9 readme.txt", "compact part.mc"):
        tool.run(f"container {command}", 1, err="damaged")


def caches(tool):
    tool.run("cache show", 2, err="--cache DIR")
    tool.run("--cache work/cache cache show", 1, err="there is no such directory")
    tool.run("--cache work/cache cache build", 2, err="--add")
    tool.write("data/Maps/One", b"1")
    tool.write("data/Two", b"2")

    def age():
        for name in ("data", "data/Maps"):
            os.utime(tool.path(name), (1600000000, 1600000000))

    def recorded():
        found = [entry for place in os.scandir(tool.path("work/cache/filesystem")) for entry in os.scandir(place.path)]
        return [(entry.name, entry.stat().st_mtime_ns, entry.stat().st_ino) for entry in found]

    age()
    line = holds(r"^\d+  .*/filesystem/\w+_x64/[0-9a-f]{16}\.fsc\n$")
    tool.run("--cache work/cache --add data cache build", 0, line)
    tool.run("--cache work/cache cache show", 0, line)
    first = recorded()
    tool.run("--cache work/cache --add data ls -r maps", 0, "maps/one\n")
    tool.check(recorded() == first, "cache: a tree that did not change was recorded again")
    tool.write("data/Maps/Three", b"3")
    tool.run("--cache work/cache --add data ls -r maps", 0, "maps/one\nmaps/three\n")
    tool.check(recorded() != first, "cache: a tree that changed was not recorded again")
    age()
    tool.run("--cache work/cache --add data cache build", 0, line)
    name = os.path.join("work/cache/filesystem", os.listdir(tool.path("work/cache/filesystem"))[0], recorded()[0][0])
    whole = tool.read(name)
    for data in (whole[:-1], b"", b"something else", whole[:40] + b"?" + whole[41:]):
        tool.write(name, data)
        tool.run("--cache work/cache --add data ls -r maps", 0, "maps/one\nmaps/three\n")
        tool.check(tool.read(name) == whole, f"cache: a file of {len(data)} damaged bytes was not written anew")
    tool.write(name + ".17.0", b"left behind")
    tool.run("--cache work/cache cache drop", 0)
    tool.check(not recorded(), "cache drop: something is left")
    tool.run("--cache work/cache cache show", 0)
    tool.run("--cache root/Readme.txt --add data cache build", 1, err="cannot be made a directory")
    tool.run("--cache work/cache --add work/made.pak cache build", 1, err="recorded no listing")


def log_configurations(tool):
    tool.write("root/good.cfg", b"!BrenixLogLevel(WARNING) // a comment\r\n!Permit(\"ERRR\", 1, 1)\n"
                                b"!BrenixLogCategoryLevel(FileSystem, verbose3)\n!BrenixLogMessageSource(1)\n")
    tool.run("log-check good.cfg", 0,
             "good.cfg:1:2: the level: warn\n"
             "good.cfg:2:2: messages \"ERRR\" (warning: changes nothing: these go to console and log file always, and the "
             "filter is not asked)\n"
             "good.cfg:3:2: the level of category \"FileSystem\": verbose 3\n"
             "good.cfg:4:2: source positions in messages: on\n")
    with open(os.path.join(os.path.dirname(__file__), "../../docs/logging.md"), encoding="utf-8") as guide:
        example = re.search(r"\n\n((?:        \S.*\n)+)", guide.read()).group(1)
    tool.write("root/example.cfg", example.encode())
    tool.run("log-check example.cfg", 0,
             "example.cfg:2:10: the level: warn\n"
             "example.cfg:3:10: the level of category \"FileSystem\": everything\n"
             "example.cfg:4:10: messages \"VERB\" go to the log file too\n"
             "example.cfg:5:10: messages \"VER1\" go to the log file too\n")
    for lines, at, said in (
            (b"Permit(VER?, 1, 1)", 1, "changes nothing: a \"?\" at the end is dropped, so it stands for \"?VER\""),
            (b"Permit(DEBG, 0, 1)", 1, "changes nothing: these go to the console, to the log file with -verbose"),
            (b"Permit(VERB, 1, 0)", 1, "changes nothing: these go to the console anyway"),
            (b"Permit(ABCD, 0, 0)", 1, "changes nothing: it permits neither"),
            (b"Permit(VE, 1, 0)", 1, 'messages "??VE" go to the console too'),
            (b"Permit(ABCD, 1, 1)\nPermit(ABCD, 0, 1)", 2, "changes nothing: an earlier line permits this already"),
            (b"BrenixLogLevel(I)", 1, "changes nothing: it is so already"),
            (b"BrenixLogLevel(E)", 1, "the level: error, raised to info when the log file is opened"),
            (b"BrenixLogLevel(W)\nBrenixLogLevel(D)", 1, "changes nothing: line 2 sets it again"),
            (b"BrenixLogCategoryLevel(Net, W)\nBrenixLogLevel(W)", 1, "changes nothing: it is the level of all others"),
            (b"BrenixLogCategoryLevel(Net, None)", 1, "changes nothing: it has no level of its own"),
            (b"BrenixLogMessageSource(0)", 1, "changes nothing: it is so already")):
        tool.write("root/idle.cfg", lines)
        tool.run("log-check idle.cfg", 0, holds(f"(?m)^idle.cfg:{at}:1: .*" + re.escape(said)))
    for line, reason in ((b"!BrenixLogLevel(loud)", "\"loud\" is no level"), (b"!BrenixLogLevel()", "is missing"),
                         (b"!Permit(ERRR, 1)", "parameter 3 of Permit is missing"), (b"!Nonsense(1)", "not known"),
                         (b"!Permit(\"????\", 1, 1)", "names no message"), (b"!BrenixLogMessageSource(x)", "integer"),
                         (b"!include(\"zebra.cfg\")", "cannot be read")):
        tool.write("root/bad.cfg", b"// first line\n  " + line + b"\n!BrenixLogLevel(warn)\n")
        tool.run("log-check bad.cfg", 1, holds(r"^bad.cfg:3:2: the level: warn\n$"), err="enginefs: bad.cfg:2:")
        tool.run("log-check bad.cfg", 1, holds(""), err=reason)
    tool.write("root/many.cfg", b"".join(b"!BrenixLogCategoryLevel(C%d, info)\n" % i for i in range(9)))
    tool.run("log-check many.cfg", 1, holds(r"many.cfg:8:2"), err="many.cfg:9:2: there is room for 8 categories")
    tool.run("log-check zebra.cfg", 1, err="enginefs: zebra.cfg: ")


def closed_outputs(tool):
    if not os.path.exists("/dev/full") or len(tool.command) != 4:
        return
    for command in (["ls"], ["cat", "plain.txt"], ["sources"], ["--help"]):
        with open("/dev/full", "wb") as full:
            result = subprocess.run(tool.command + command, cwd=tool.where, stdout=full, stderr=subprocess.PIPE, check=False)
        said = result.stderr.decode()
        tool.check(result.returncode == 1 and said.startswith("enginefs: standard output: it cannot be written: No space"),
                   f"{command} to a full device: {result.returncode}, {said!r}")


def command_lines(tool):
    tool.run("", 2, err="subcommand")
    tool.run("frobnicate", 2, err="--help")
    tool.run("--log shouting ls", 2, err="this is no level")
    tool.run("--log debug sources", 0, holds("root +writable"), err="DEBG: [FileSystem] > Initializing fs from")
    tool.run("--root nowhere ls", 1, err="there is no such directory")
    tool.run("--add nowhere ls", 1, err="enginefs: nowhere: there is no such directory")
    for command in ("gzip", "gunzip", "chunks", "rm", "mkdir", "mv", "backup", "crc", "touch", "duplicates", "container",
                    "container put", "cache", "log-check", "pack"):
        tool.run(f"{command} --help", 0, holds("Usage: "))


def main(program, *emulator):
    where = tempfile.mkdtemp(prefix="enginefs-tool-")
    os.mkdir(os.path.join(where, "root"))
    plain = [*[part for part in emulator if part], program]
    tool = Tool([*plain, "--root", "root", "--no-fallback"], where)
    try:
        for part in (listing, content, packs, gzip_members, chunk_trees, managing, containers, caches,
                     log_configurations, closed_outputs):
            part(tool)
        tool.command = plain
        duplicates(tool)
        command_lines(tool)
    finally:
        shutil.rmtree(where, ignore_errors=True)
    for failure in tool.failures:
        print(failure)
    print(f"{tool.runs} runs, {len(tool.failures)} complaint(s)")
    sys.exit(1 if tool.failures else 0)


if __name__ == "__main__":
    main(*sys.argv[1:])
