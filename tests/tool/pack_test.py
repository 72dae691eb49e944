#!/usr/bin/env python3
"""Makes, reads, compares and patches packs with enginefs, and holds what it says and leaves against what it should.

usage: pack_test.py PROGRAM [EMULATOR]
"""
import os
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
               ("pack work/made.pak nowhere", "nowhere"), ("pack nowhere/made.pak work/in", "its directory does not exist"),
               ("unpack work/made.pak root/Readme.txt", "cannot be made a directory"), ("pack work/new.pak work/made.pak", "it is no directory"),
               ("--add work/made.pak cp readme.txt sub/text.txt", "made.pak holds it"),
               ("--add work/made.pak rm sub/text.txt", "cannot be written"))
    tool.is_file("work/out/Same.txt", b"first")
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


if __name__ == "__main__":
    kit.main((packs, packs_that_are_wrong, pack_findings, packs_in_parts, unpacking, patches))
