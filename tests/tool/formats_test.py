#!/usr/bin/env python3
"""Runs the commands of enginefs that read and write formats, and holds what they say and leave against what they should:
packs, gzip, chunks, containers, recorded listings, configurations of the log.

usage: formats_test.py PROGRAM [EMULATOR]
"""
import glob
import gzip
import os
import re
import struct
import zipfile
import zlib

import kit
from kit import PLAIN


def packs(tool):
    tool.tree({"work/in/sub/text.txt": PLAIN, "work/in/empty": b""})
    tool.table(("pack work/made.pak work/in", 0, r"~^work/made.pak: 2 files, %d bytes in, \d+ out \(\d+\.\d %%\), \d+\.\d s\n$" % len(PLAIN)),
               ("list work/made.pak", 0, "~^(empty\nsub/text.txt|sub/text.txt\nempty)\n$"),
               ("verify work/made.pak", 0, "work/made.pak: 2 entries, all good\n"), ("unpack work/made.pak work/out",),
               ("pack work/dry.pak work/in --dry-run --json", 0, f'~"name": "sub/text.txt",\\s+"size": {len(PLAIN)}\\s'),
               ("unpack work/made.pak work/dry --json -n EMPTY", 0, '~"name": "empty",\\s+"size": 0\\s'),
               ("pack work/dry.pak work/in --json", 2, "", "--json requires --dry-run"), ("list work/dry.pak", 1, "", "work/dry.pak"),
               ("--add work/made.pak which sub/text.txt", 0, "~made.pak\n$"), ("--add work/made.pak cp empty beside/pack.txt",),
               ("--add work/made.pak find text.txt --native-paths", 0, "~work/made.pak/sub/text.txt\n$"),
               ("pack work/made.pak work/in --deterministic", 0, "~2 files"), ("pack work/same.pak work/in --deterministic", 0, "~2 files"))
    tool.is_file("work/out/sub/text.txt", PLAIN)
    tool.is_file("work/same.pak", tool.read("work/made.pak"))
    # What packing does not shrink by the percents asked for is copied into a stream that can be sought in.
    noise = os.urandom(95000) + bytes(5000)
    tool.write("work/noise/noise.bin", noise)
    for options, method in (("", r"9\d{4}  deflated"), ("--store bin", "100000  stored"), ("--method zstd", r"9\d{4}  zstd"),
                            ("--method zstd --worth 10", "100010  deflated")):
        tool.table((f"pack work/noise.pak work/noise {options}", 0, "~1 file, "), ("unpack work/noise.pak work/noise.out",),
                   ("list --long work/noise.pak", 0, f"~100000 +{method} +{zlib.crc32(noise):08x}"))
        tool.is_file("work/noise.out/noise.bin", noise)


def packs_that_are_wrong(tool):
    damaged = bytearray(tool.read("work/made.pak"))
    damaged[damaged.index(b"sub/text.txt") + 30] ^= 0xFF
    tool.write("work/bad.pak", bytes(damaged))
    with zipfile.ZipFile(tool.path("work/out.pak"), "w") as out:
        for name, text in (("Same.txt", "first"), ("same.TXT", "second"), ("../out.txt", "outside"), ("a/#b/hidden", "")):
            out.writestr(name, text)
    tool.table(("verify work/out.pak", 1, "work/out.pak: 1 entry good, 3 findings\n", "../out.txt: its name leads out"),
               ("verify work/out.pak", 1, "~", "nobody reads this one"),
               ("verify work/bad.pak", 1, "~1 entry good, 1 finding", "sub/text.txt"),
               ("pack work/made.pak work/in --level 13", 2, "", "--level 13: deflate has levels from 0 to 12"),
               ("pack work/made.pak work/in --split-size -5", 2, "", "--split-size"))
    if tool.native:
        os.makedirs(tool.path("work/bad/sub"))
        os.symlink("nowhere", tool.path("work/bad/sub/text.txt"))
    tool.fails(("--add work/bad.pak crc sub/text.txt", "damaged"), ("unpack work/bad.pak work/bad", "sub/text.txt"),
               ("unpack work/out.pak work/out '#b'", "a mounted pack shows no file"), ("unpack work/out.pak work/out", "../out.txt: "),
               ("unpack work/out.pak work/out", "same.TXT: an entry before it has the same name"),
               ("pack work/made.pak nowhere", "nowhere"), ("pack nowhere/made.pak work/in", "its directory does not exist"),
               ("unpack work/made.pak root/Readme.txt", "cannot be made a directory"), ("pack work/new.pak work/made.pak", "it is no directory"),
               ("--add work/made.pak cp readme.txt sub/text.txt", "made.pak holds it"),
               ("--add work/made.pak rm sub/text.txt", "cannot be written"))
    tool.is_file("work/out/Same.txt", b"first")
    tool.check("same.TXT" not in os.listdir(tool.path("work/out")), "unpack: the content of an entry went into a file of another")
    if tool.native:  # it went although nothing took its place
        tool.check(os.path.islink(tool.path("work/bad/sub/text.txt")), "a damaged entry took a link away")
    tool.is_file("work/out.txt", None)


def findings_in(tool, top):
    """Makes what a pack would lack; what is said of it."""
    tool.tree({f"{top}/{name}": b"data" for name in ("a.txt", "#hidden", "#dir/file", "sub/b.txt")})
    findings = ["#dir: mounts hide names", "#hidden: mounts hide names"]
    if not tool.native:
        return findings
    tool.tree({f"{top}/A.TXT": b"other", f"{top}/back\\slash": b""})
    os.mkfifo(tool.path(top, "fifo"))
    for link, to in (("broken", "nowhere"), ("sub/loop", "..")):
        os.symlink(to, tool.path(top, link))
    open(os.fsencode(tool.path(top)) + b"/\xe9.txt", "wb").close()
    return [*findings, f"a.txt: another name differs from it in case alone, and is packed in its place: {top}/A.TXT",
            "back\\slash: its name holds a backslash", "broken: the link leads nowhere", "fifo: it is no regular file",
            "sub/loop: the link to a directory shows nothing", "its name is not UTF-8"]


def pack_findings(tool):
    """All that a pack would lack is told before anything is written."""
    findings = findings_in(tool, "finds")
    tool.fails(*(("pack finds.pak finds --strict", finding) for finding in
                 (*findings, f"finds.pak: it is not made; see the {len(findings)} findings above")))
    tool.run("pack finds.pak finds -n", 0, "~ sub/b.txt\n", findings[0])
    tool.is_file("finds.pak", None)
    tool.table(("pack finds.pak finds", 0, "~ files, ", findings[0]), ("list finds.pak", 0, "~a.txt\n"))
    if tool.native:
        with zipfile.ZipFile(tool.path("finds.pak")) as pack:  # which fails where a name only claims to be UTF-8
            tool.check(all(entry.flag_bits == 0 for entry in pack.infolist()), "a name that is not UTF-8 claims to be")
        os.truncate(tool.path("finds/a.txt"), 5 << 30)
        os.remove(tool.path("finds/A.TXT"))
        tool.run("pack finds.pak finds", 1, err="finds/a.txt: it has 5368709120 bytes; an entry of a pack holds less than 4 GiB")
        os.truncate(tool.path("finds/a.txt"), 4)
    for options, wanted in (("--exclude *hidden --include a.*", "a.txt"), ("--include SUB/", "sub/b.txt"), ("--include s*/b.txt", "sub/b.txt")):
        tool.run(f"pack chosen.pak finds {options} --strict --exclude loop --exclude fifo --exclude '#dir'", 0, "~1 file, ")
        tool.run("list chosen.pak", 0, wanted + "\n")
    for options in ("--include *.none", "--exclude *"):  # an empty pack was made
        tool.run(f"pack none.pak finds {options}", 1, err="none.pak: it is not made; --include and --exclude leave no file of finds")
        tool.check(not os.path.exists(tool.path("none.pak")), "a pack was made of nothing")


def packs_in_parts(tool):
    tool.tree({f"parts/{number}": os.urandom(1000) for number in range(1, 6)})
    for _ in range(2):  # what was made there before is no part of what is made now
        tool.run("pack all.new.pak . --split-size 2500", 0, "~5 files in 3 packs, 5000 bytes in, ", cwd=tool.path("parts"))
    for part, names in (("", "1\n2\n"), (".2", "3\n4\n"), (".3", "5\n")):
        os.rename(tool.path(f"parts/all.new{part}.pak"), tool.path(f"parts.new{part}.pak"))
        tool.run(f"list parts.new{part}.pak", 0, names)
    added = "--add parts.new.pak --add parts.new.2.pak --add parts.new.3.pak"
    tool.table((f"{added} sources", 0, r"~^pack +read-only .*/parts.new.pak \(3 parts\)\nroot"),
               (f"{added} sources -0", 0, r"~parts.new.pak\0.*/parts.new.2.pak\0.*/parts.new.3.pak\0"),
               ("pack parts.new.pak parts --split-size 1M", 0, "~5 files, ", "parts.new.2.pak: it is left from before"))


def unpacking(tool):
    tool.tree({"many/sub/one.tga": b"1", "many/sub/two.txt": b"2", "many/three.tga": b"3"})
    os.utime(tool.path("many/three.tga"), (1600000000, 1600000000))
    for line, said in (("pack many.pak many", "~3 files"), ("unpack many.pak kept", "")):
        tool.run(line, 0, said, env={**os.environ, **({"TZ": "EST5EDT"} if tool.native else {})})
    tool.check(os.stat(tool.path("kept/three.tga")).st_mtime == 1600000000, "unpack: another time by the zone")
    tool.run("unpack many.pak some -n *.tga", 0, "~^(sub/one.tga\nthree.tga|three.tga\nsub/one.tga)\n$")
    tool.check(not os.path.exists(tool.path("some")), "unpack -n: something was made")
    tool.run("unpack many.pak some SUB/ zebra", 1, err="zebra: no entry of the pack matches")
    tool.check(os.listdir(tool.path("some")) == ["sub"] and len(os.listdir(tool.path("some/sub"))) == 2, "unpack SUB/: not just that")
    for overwrite, seconds, data in (("never", 1, b"mine"), ("older", 1700000000, b"mine"), ("older", 1, b"3")):
        tool.write("some/three.tga", b"mine")
        os.utime(tool.path("some/three.tga"), (seconds, seconds))
        tool.run(f"unpack many.pak some --overwrite {overwrite}")
        tool.is_file("some/three.tga", data)


def patches(tool):
    tool.tree({"old/same": b"same", "old/changed": b"1234", "old/gone": b"gone", "new/same": b"same", "new/changed": b"1235",
               "new/sub/added": b"added"})
    tool.table(("pack old.pak old", 0, "~3 files"), ("pack new.pak new", 0, "~3 files"))
    for new in ("new", "new.pak"):
        tool.table((f"diff old.pak {new}", 0, "changed            4            4  changed\nremoved            4            -  gone\n"
                    "added              -            5  sub/added\n1 added, 1 removed, 1 changed\n"),
                   (f"patch old.pak {new} patch.pak", 0, "~2 files, 9 bytes in", f"gone: old.pak shows it still, though {new} lacks it"),
                   ("--add patch.pak --add old.pak cat changed sub/added same", 0, "1235addedsame"))
    for _ in range(2):
        tool.run("patch old.pak new/ new/patch.pak", 0, "~2 files, 9 bytes in", "gone: old.pak")
    os.remove(tool.path("new/patch.pak"))
    tool.run("diff old.pak new --json", 0, '~"name": "sub/added",\\s+"change": "added",\\s+"old_size": null,\\s+"new_size": 5')
    tool.fails(("diff old.pak nowhere", "nowhere"), ("patch old.pak new nowhere/patch.pak", "its directory does not exist"))


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
               ("container get c.mc Second twelve", 2, "", "this is no hash"),
               ('container rm c.mc First ""', 2, "", "this is no hash"), ("container rm c.mc Second 17",),
               ("container compact *.mc", 0, r"~^c.mc: \d+ bytes regained\n$"),
               ("container verify c.mc", 0, "c.mc: 1 blob, all good\n"), ("container", 2, "", "subcommand"),
               ("container put c.mc Se/cond 0xfffffffF readme.txt",), ("container export c.mc blobs", 0, "blobs: 2 blobs\n"),
               ("container import d.mc blobs/ --deflate", 0, "d.mc: 2 blobs\n"), ("container get d.mc Se/cond 4294967295", 0, "hello\n"),
               ("container ls d.mc", 0, "~^First  1 blob\nSe/cond  1 blob\n"), ("container rm c.mc Se/cond",))
    tool.is_file("blobs/First/0x00000010", PLAIN)
    tool.table(*((f"container put up.mc {name} 1 readme.txt",) for name in ("../up", '""', "a", "b")),  # "" led to the disk's root
               *(("container export up.mc others", 1, "others: 2 blobs\n", f'container "{name}": no directory can have its name')
                 for name in ("../up", "")))
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
    kit.main((packs, packs_that_are_wrong, pack_findings, packs_in_parts, unpacking, patches, gzip_members, chunk_trees, containers,
              caches, log_configurations))
