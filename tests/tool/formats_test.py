#!/usr/bin/env python3
"""Runs the commands of enginefs that read and write formats other than packs: gzip, chunks, containers, listings, logging.

usage: formats_test.py PROGRAM [EMULATOR]
"""
import glob
import gzip
import os
import re
import struct

import kit
from kit import PLAIN


def chunk(identifier, version, data):
    return identifier + struct.pack("<II", version, len(data)) + data


TREE = chunk(b"TREE", 1, chunk(b"data", 3, b"12345") + chunk(b"NODE", 2, chunk(b"leaf", 1, b"")))


def gzip_members(tool):
    tool.write("root/plain.txt", PLAIN)
    tool.table(("gzip plain.txt plain.gz",), ("gzip plain.txt readme.txt zipped/",), ("gunzip zipped/*.gz unzipped/",))
    tool.is_file("root/unzipped/plain.txt", PLAIN)
    tool.check(gzip.decompress(tool.read("root/plain.gz")) == PLAIN, "gzip: another reader reads something else")
    whole = gzip.compress(PLAIN, mtime=0)
    for data, plain in ((whole + bytes(5000), PLAIN), (gzip.compress(b""), b""), (gzip.compress(b"ab") * 500, b"ab" * 500)):
        tool.write("root/made.gz", data)
        tool.run("gunzip made.gz back.txt")
        tool.is_file("root/back.txt", plain)
    for data in (whole[:-8] + b"\0" * 8, whole[:-1] + b"\1", whole + b"rubbish", whole + whole[:50], b""):
        tool.write("root/bad.gz", data)
        tool.fails(*((f"gunzip bad.gz {out}", "enginefs: bad.gz: its gzip member number ") for out in ("new.txt", "back.txt")))
    tool.is_file("root/new.txt", None)
    tool.is_file("root/back.txt", b"ab" * 500)


def chunk_trees(tool):
    tool.write("root/tree.chk", TREE + chunk(b"NOTE", 1, b"plain text, not chunks"))
    tool.run("chunks tree.chk", 0,
             "TREE  version 1  offset 0  size 41\n  data  version 3  offset 12  size 5\n  NODE  version 2  offset 29  size 12\n"
             "    leaf  version 1  offset 41  size 0\nNOTE  version 1  offset 53  size 22\n")
    tool.write("root/deep.chk", b"".join(b"DEEP" + struct.pack("<II", 1, 12 * left) for left in range(19999, -1, -1)))
    tool.run("chunks deep.chk", 0, r"~\[19999\] DEEP  version 1  offset 239988  size 0\n$")
    inner = bytearray(TREE)
    inner[20] = 200  # the size of the chunk "data"
    for data, offset in ((TREE[:-1], 0), (TREE + b"abc", 53), (bytes(inner), 12), (TREE + bytes(range(128, 150)), 53)):
        tool.write("root/bad.chk", data)
        tool.run("chunks bad.chk", 1, "~" if offset == 0 else "~^TREE  version 1  offset 0  size 41\n",
                 f"enginefs: bad.chk: it makes no sense from offset {offset} on: ")


def containers(tool):
    tool.table(("container put c.mc First 0x10 plain.txt --deflate",), ("container put c.mc Second 17 readme.txt",),
               ("container ls c.mc", 0, r"~First  1 blob\nSecond  1 blob\n2 containers, 2 blobs, "),
               ("container ls c.mc First --json", 0, r'~"blobs": \[\s+\{\s+"hash": 16,\s+"size": %d' % len(PLAIN)),
               ("container ls c.mc First", 0, r"~0x00000010 +%d +\d+  deflated\n" % len(PLAIN)),
               ("container get c.mc First 16", 0, PLAIN.decode()), ("container get c.mc Second 0x11 got.txt",), ("cat got.txt", 0, "hello\n"),
               ("container get c.mc Second twelve", 2, "", "this is no hash"), ("container rm c.mc Second 17",),
               ("container compact *.mc", 0, r"~^c.mc: \d+ bytes regained\n$"),
               ("container verify c.mc", 0, "c.mc: 1 blob, all good\n"), ("container", 2, "", "subcommand"),
               ("container put c.mc Se/cond 0xfffffffF readme.txt",), ("container export c.mc blobs", 0, "blobs: 2 blobs\n"),
               ("container import d.mc blobs/ --deflate", 0, "d.mc: 2 blobs\n"), ("container get d.mc Se/cond 4294967295", 0, "hello\n"),
               ("container ls d.mc", 0, "~^First  1 blob\nSe/cond  1 blob\n"), ("container rm c.mc Se/cond",))
    tool.is_file("blobs/First/0x00000010", PLAIN)
    tool.table(*((f"container put up.mc {name} 1 readme.txt",) for name in ("../up", "a", "b")),
               ("container export up.mc others", 1, "others: 2 blobs\n", 'container "../up": no directory can have its name'))
    rotten = bytearray(tool.read("root/c.mc"))
    rotten[len(rotten) // 2] ^= 0x55
    tool.tree({"blobs/First/readme": b"", "root/rotten.mc": bytes(rotten), "root/cut.mc": bytes(rotten[:-1])})
    tool.fails(("container import e.mc blobs", "blobs/First/readme: it is no CONTAINER/HASH"),
               ("container get c.mc Second 18", "enginefs: c.mc: container \"Second\", blob 0x00000012: The container has no blob"),
               *((f"container {line}", f"enginefs: {line.split()[1]}: ") for line in
                 ("rm c.mc Third", "ls zebra.mc", "verify rotten.mc", "put readme.txt First 1 plain.txt")),
               *((f"container {line}", "has lost its end") for line in ("ls cut.mc", "get cut.mc C 1", "put cut.mc C 1 readme.txt")))
    for name, data in (("e.mc", None), ("Readme.txt", b"hello\n"), ("cut.mc", bytes(rotten[:-1]))):
        tool.is_file("root/" + name, data)


def caches(tool):
    tool.tree({"data/Maps/One": b"1", "data/Two": b"1"})
    for name in ("data", "data/Maps"):
        os.utime(tool.path(name), (1600000000, 1600000000))
    tool.run("pack some.pak data", 0, "~2 files")
    line = r"~^ +bytes .*\n +\d+  2\d{3}-.*Z  .*/data\n +.*/filesystem/\w+_x64/[0-9a-f]{16}\.fsc\n$"
    tool.table(("cache show", 2, "", "--cache DIR"), ("--cache work/cache cache build", 2, "", "--add"),
               ("--cache work/cache cache show", 1, "", "there is no such directory"),
               ("--cache work/cache --add data cache build", 0, line), ("--cache work/cache cache show", 0, line),
               ("--cache work/cache --add data ls -r maps", 0, "maps/one\n"))
    (listing,) = glob.glob(tool.path("work/cache/filesystem/*/*"))
    tool.write(listing + ".17.0", b"left behind")
    tool.run("--cache work/cache cache drop")
    tool.check(not os.listdir(os.path.dirname(listing)), "cache drop: something is left")
    tool.fails(("--cache root/Readme.txt --add data cache build", "cannot be made a directory"),
               ("--cache work/cache --add some.pak cache build", "recorded no listing"))


def log_configurations(tool):
    tool.write("root/good.cfg", b"!BrenixLogLevel(WARNING) // a comment\r\n!Permit(\"ERRR\", 1, 1)\n"
                                b"!BrenixLogCategoryLevel(FileSystem, verbose3)\n!BrenixLogMessageSource(1)\n"
                                b"!BrenixLogCategoryLevel(Net, VerboseE)\n!Permit(VERB, 0, 1)\n")
    tool.run("log-check good.cfg", 0,
             "good.cfg:1:2: the level: warn\n"
             "good.cfg:2:2: messages \"ERRR\" (warning: changes nothing: these go to console and log file always, and the "
             "filter is not asked)\n"
             "good.cfg:3:2: the level of category \"FileSystem\": verbose 3\n"
             "good.cfg:4:2: source positions in messages: on\n"
             "good.cfg:5:2: the level of category \"Net\": everything\n"
             "good.cfg:6:2: messages \"VERB\" go to the log file too\n")
    tool.run("log-check g*d.cfg --json", 0, r'~"place": "good.cfg:2:2",\s+"says": "messages .*,\s+"idle": "these go')
    for lines, at, said in (
            (b"Permit(VER?, 1, 1)", 1, "changes nothing: a \"?\" at the end is dropped, so it stands for \"?VER\""),
            (b"Permit(DEBG, 0, 1)", 1, "changes nothing: these go to the console, to the log file with -verbose"),
            (b"Permit(ABCD, 0, 0)", 1, "changes nothing: it permits neither"),
            (b"Permit(VE, 1, 0)", 1, 'messages "??VE" go to the console too'),
            (b"Permit(ABCD, 1, 1)\nPermit(ABCD, 0, 1)", 2, "changes nothing: an earlier line permits this already"),
            (b"BrenixLogLevel(E)", 1, "the level: error, raised to info when the log file is opened"),
            (b"BrenixLogLevel(W)\nBrenixLogLevel(D)", 1, "changes nothing: line 2 sets it again"),
            (b"BrenixLogCategoryLevel(Net, W)\nBrenixLogLevel(W)", 1, "changes nothing: it is the level of all others"),
            (b"BrenixLogMessageSource(0)", 1, "changes nothing: it is so already")):
        tool.write("root/idle.cfg", lines)
        tool.run("log-check idle.cfg", 0, f"~(?m)^idle.cfg:{at}:1: .*" + re.escape(said))
    for line, said in ((b"!BrenixLogLevel(loud)", '4: "loud" is no level'), (b"!Nonsense(1)", "4: This keyword is not known"),
                       (b"!Permit(ERRR, 1)", "4: parameter 3 of Permit is missing"), (b"!Permit(\"????\", 1, 1)", '4: the pattern "????" names no message'),
                       (b"!include(\"zebra.cfg\")", "12: An included file cannot be read")):
        tool.write("root/bad.cfg", b"// first line\n  " + line + b"\n!BrenixLogLevel(warn)\n")
        tool.run("log-check bad.cfg", 1, "~^bad.cfg:3:2: the level: warn\n$", err="enginefs: bad.cfg:2:" + said)
    tool.write("root/many.cfg", b"".join(b"!BrenixLogCategoryLevel(C%d, info)\n" % i for i in range(9)))
    tool.run("log-check many.cfg", 1, "~many.cfg:8:2", err="many.cfg:9:2: there is room for 8 categories")
    tool.run("log-check zebra.cfg", 1, err="enginefs: zebra.cfg: ")


if __name__ == "__main__":
    kit.main((gzip_members, chunk_trees, containers, caches, log_configurations))
