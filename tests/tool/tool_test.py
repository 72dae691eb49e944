#!/usr/bin/env python3
"""Runs every command of enginefs on a small tree, with good and bad input, and holds standard output, standard error
and exit status against what they should be.

usage: tool_test.py PROGRAM [EMULATOR]
"""
import gzip
import os
import re
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import warnings
import zipfile
import zlib

if os.name == "posix":
    import resource

PLAIN = b"one line of plain text\n" * 4000
COPY = "it finds notes/copy.txt; give that name to change it"


def chunk(identifier, version, data):
    return identifier + struct.pack("<II", version, len(data)) + data


TREE = chunk(b"TREE", 1, chunk(b"data", 3, b"12345") + chunk(b"NODE", 2, chunk(b"leaf", 1, b"")))


class Tool:
    def __init__(self, command, where):
        self.command, self.where, self.failures, self.runs = command, where, [], 0
        self.native = len(command) == 4  # else it runs in an emulator, which has limits of its own

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

    def is_file(self, name, data):
        there = os.path.exists(self.path(name))
        self.check((self.read(name) if there else None) == data, f"{name} is not as it should be")

    def run(self, line, status=0, out="", err="", **options):
        """`line` is split at blanks ("_" stands for one within a word, '""' for an empty word). `out` is the whole
        standard output, or "~" and an expression that it holds; `err` a text in standard error, which is empty when it
        is ""."""
        words = [word if self.where in word else word.replace("_", " ").replace('""', "") for word in line.split()]
        result = subprocess.run(self.command + words, capture_output=True, check=False, timeout=120,
                                **{"cwd": self.where, **options})
        said = result.stderr.replace(b"\r\n", b"\n").decode("utf-8", "replace")
        self.runs += 1
        self.check(result.returncode == status, f"{line}: status {result.returncode}, not {status}; {said[:400]!r}")
        self.check("\r" not in said, f"{line}: a stray return on standard error: {said!r}")
        self.check(err in said if err else not said, f"{line}: standard error is {said[:400]!r}, wanted {err!r}")
        self.check(status != 1 or said.startswith(("enginefs: ", "\x1b[31menginefs\x1b[0m: ")), f"{line}: no word about the failure")
        if isinstance(out, str) and out.startswith("~"):
            good = re.search(out[1:], result.stdout.decode("utf-8", "replace"))
        else:
            good = result.stdout == (out if isinstance(out, bytes) else out.encode())
        self.check(good, f"{line}: standard output is {result.stdout[:400]!r}, wanted {out[:400]!r}")

    def table(self, *rows):
        for row in rows:
            self.run(*row)

    def fails(self, *rows):
        for line, err in rows:
            self.run(line, 1, err=err)


def listing(tool):
    for name, data in (("textures/a.dds", b"pixels"), ("textures/b.dds", b"pixels"), ("Readme.txt", b"hello\n")):
        tool.write("root/" + name, data)
    tool.write("over/readme.txt", b"patched\n")
    tool.table(("sources", 0, "~root/? +writable|root +writable"),
               ("ls", 0, "textures/\nreadme.txt\n"),
               ("ls textures --mask a.*", 0, "textures/a.dds\n"),
               ("ls -r --long", 0, r"~  6  \d{4}-\d\d-\d\dT.*Z  textures/b.dds\n"),
               ("ls --json", 0, r'~"name": "textures",\s+"kind": "directory"'),
               ("find B.D", 0, "textures/b.dds\n"),
               ("stat README.TXT", 0, r"~full path  .*/Readme.txt\nsize +6\n"),
               ("--add over which --all readme.txt", 0, r"~root/?\n.*over/? \(shadowed\)\n"),
               ("cat readme.txt", 0, "hello\n"),
               ("load", 0, r"~^3 files, 0 failed, 18 bytes in (.|\n)*slowest (.|\n)*( .* ms  .*: .*\n){3}$"),
               ("load --urgent b.dds", 0, r"~at priority 1000: (.|\n)*at priority 0: "),
               ("load --workers 1 --json b.dds readme.txt", 0, r'~"files": 2,\s+"failed": 0,\s+"bytes": 12,(.|\n)*"waits": \[\s+\{\s+"priority": 0,\s+"loads": 2,(.|\n)*'
                r'"slowest": (.|\n)*"reason": '))
    tool.fails(("ls nowhere", "enginefs: nowhere: no source has such a directory"),
               ("ls --mask *.wav", "*.wav: no file matches"), ("find zebra", "no name contains it"),
               ("load --order nowhere", "nowhere: it cannot be read"), ("load --workers 65", "at most 64 workers"),
               ("stat zebra", "no source holds it"), ("which zebra", "no source holds it"),
               ("stat textures/", "enginefs: textures/: it is a directory"), ("cat zebra.txt", "enginefs: zebra.txt: "),
               ("cat notes/\acopy.txt", "enginefs: notes/\\x07copy.txt: "), ('cat ""', 'enginefs: "": '))


def changing(tool):
    tool.run("cp readme.txt Notes/copy.txt")
    tool.is_file("root/Notes/copy.txt", b"hello\n")
    # The end of a name finds a file, too; what changes files must not take one for another.
    tool.run("cat copy.txt", 0, "hello\n")
    tool.fails(*((line, COPY) for line in ("rm copy.txt", "mv copy.txt other.txt", "cp textures/a.dds copy.txt",
                                           "gzip readme.txt copy.txt", "gunzip readme.txt copy.txt", "backup copy.txt",
                                           "touch copy.txt")))
    tool.run("cp textures/a.dds notes/COPY.txt")
    tool.is_file("root/Notes/copy.txt", b"pixels")
    tool.write("root/m/one.txt", b"one")
    tool.table(("mkdir made/deep",), ("mv m/one.txt m/two.txt",), ("rm notes/copy.txt",), ("touch m/fresh",))
    tool.check(os.path.isdir(tool.path("root/made/deep")), "mkdir: nothing was made")
    tool.is_file("root/m/fresh", b"")
    tool.run("crc m/two.txt zebra", 1, "%08x %12d  m/two.txt\n" % (zlib.crc32(b"one"), 3), "enginefs: zebra: ")
    tool.write("root/m/saved.cfg", b"saved")
    tool.run("backup m/saved.cfg")
    tool.is_file("root/m/saved.cfg.bak", b"saved")
    tool.fails(("cp readme.txt notes/a|b.txt", "notes/a|b.txt"), ("cp zebra.txt copy.txt", "enginefs: zebra.txt: "),
               ("cp readme.txt readme.txt", "it is the file that is read"), ("cp readme.txt Textures b", "it is no directory, which"),
               ("mkdir readme.txt", "enginefs: readme.txt: "), ("mkdir ../outside", "climbs"),
               ("mv m/one.txt m/three.txt", "enginefs: m/one.txt: no source holds it"), ("mv m m2", "is a directory"),
               ("mv m/two.txt readme.txt", "holds a file of the new name already"),
               ("backup m/saved.cfg", "no source holds it"), ("rm m/two.txt zebra", "zebra: no source holds it"),
               ("rm m", "-r removes"), ("rm -r ..", "enginefs: ..: "))
    tool.is_file("root/m/two.txt", None)
    tool.run("rm -r m")
    tool.check(not os.path.exists(tool.path("root/m")), "rm -r: the directory is still there")
    tool.run("rm -r m", 1, err="enginefs: m: ")


def times(tool):
    tool.write("root/dated", b"")
    for time, seconds, shown in (("2001-02-03_04:05:06", 981173106, "2001-02-03T04:05:06Z"),
                                 ("2001-02-03T04:05:06+05:30", 981153306, "2001-02-02T22:35:06Z"),
                                 ("1970-01-02T00:00:00Z", 86400, "1970-01-02T00:00:00Z"),
                                 ("@86400", 86400, "1970-01-02T00:00:00Z"), ("2024-07-01", 1719792000, "2024-07-01T00:00:00Z")):
        for zone in ("UTC", "Asia/Kolkata", "EST5EDT"):
            environment = {**os.environ, "TZ": zone}
            tool.run(f"touch dated --time {time}", env=environment)
            tool.check(os.stat(tool.path("root/dated")).st_mtime == seconds, f"touch --time {time}: off in {zone}")
            tool.run("stat dated", 0, f"~time +{shown}\n", env=environment)
    for time in ("2023-02-29", "yesterday", "2001-02-03_24:00:00", "@", "@99999999999999", "2001-02-03_04:05:06x",
                 "2001-02-03_04:05:06+1:00", "2001-02-03T"):
        tool.run(f"touch dated --time {time}", 2, err="this is no time")


def whose_file_it_is(tool):
    """What changes files takes no other file than the one that was named."""
    for name, data in (("here/out.txt", b"outside"), ("here/dir/a.txt", b"a"), ("tree/case/FILE.TXT", b"upper"),
                       ("tree/sub/end.txt", b"end"), ("tree/b1.txt", b"1"), ("tree/b2.txt", b"2"), ("tree/into/x", b"x")):
        tool.write("whose/" + name, data)
    before, tool.command = tool.command, [*tool.command[:-3], "--root", tool.path("whose/tree")]
    here, inside = {"cwd": tool.path("whose/here")}, "no source holds it, but the current directory does"
    for line in ("rm out.txt", "rm -r dir", "mv out.txt new.txt", "touch out.txt", "backup out.txt", "cp b1.txt out.txt"):
        tool.run(line, 1, err=inside, **here)
    # A directory that only the current one has is nobody's; a name that another ends in is free.
    for line in ("mkdir dir", "mkdir end.txt", "mkdir into", "mv b1.txt b2.txt into", "cp into/b?.txt dir/", "rm in*/b?.txt"):
        tool.run(line, **here)
    tool.run(f"mv {tool.path('whose/here/dir')} gone", 1, err="only files are renamed", **here)
    tool.fails(("rm *.none", "no file matches"), ("mv b1.txt x b2.txt", "it is no directory"))
    for name, data in (("here/out.txt", b"outside"), ("here/dir/a.txt", b"a"), ("tree/into/b1.txt", None), ("tree/dir/b2.txt", b"2")):
        tool.is_file("whose/" + name, data)
    tool.check(os.path.isdir(tool.path("whose/tree/end.txt")), "mkdir: nothing was made")
    tool.write("whose/tree/case/file.txt", b"lower")
    if len(os.listdir(tool.path("whose/tree/case"))) == 2:  # a disk that tells case apart
        for line in ("mv case/file.txt m", "touch case/file.txt", "cp into/x case/file.txt"):
            tool.run(line, 1, err="differs from it in case alone")
        tool.run("rm case/file.txt")
        tool.check(os.listdir(tool.path("whose/tree/case")) == ["FILE.TXT"], "rm: the wrong spelling went")
    tool.command = before


def forms_of_output(tool):
    names = ("forms/Big.Txt", "forms/sub/small.txt", "forms/sub/deep/s.bin")
    for name in names:
        tool.write("root/" + name, b"12")
    tool.table(("find forms/**.txt", 0, "forms/big.txt\nforms/sub/small.txt\n"), ("find forms/**/s*", 0, "~^(.*s/s.*\n|.*deep/s.*\n){2}$"),
               ("find forms/*/s?all.txt forms/b", 0, "forms/big.txt\nforms/sub/small.txt\n"),
               ("ls -r forms --spelling", 0, "forms/Big.Txt\nforms/sub/deep/s.bin\nforms/sub/small.txt\n"),
               ("ls forms/b* forms/sub -0", 0, "forms/big.txt\0forms/sub/deep\0forms/sub/small.txt\0"),
               ("ls forms --native-paths", 0, "~^/?.*/root/forms/Big.Txt\n$"), ("cat forms/**.txt", 0, "1212"),
               ("sources --json", 0, '~"place": ".*root/",\\s+"kind": "root"'), ("find -0 s.bin", 0, "forms/sub/deep/s.bin\0"),
               ("which s.bin --json", 0, '~"name": "s.bin",\\s+"shadowed": false'),
               ("stat forms/*.txt --json", 0, '~"size": 2,\\s+"time": "....-..-..T..:..:..Z"'),
               ("crc s.bin --json", 0, '~"name": "s.bin",\\s+"crc": %d,\\s+"size": 2' % zlib.crc32(b"12")),
               ("ls --color always forms", 0, "\x1b[1;34mforms/sub\x1b[0m/\nforms/big.txt\n"),
               ("ls --color always nowhere", 1, "", "\x1b[31menginefs\x1b[0m: nowhere: "),
               ("ls --color never nowhere", 1, "", "enginefs: nowhere"), ("ls --color red", 2, "", "--color"))
    if tool.native:  # what would steer a terminal is escaped there
        for name in ("a\x1bb", "c\x7f\u009bd"):
            tool.write("root/esc/" + name, b"")
        tool.table(("ls --color always esc", 0, "esc/a\\x1bb\nesc/c\\x7f\\x9bd\n"), ("ls esc", 0, "esc/a\x1bb\nesc/c\x7f\u009bd\n"))


def over_long_paths(tool):
    """What is too long to be shown is told."""
    tool.write("long/short.txt", b"s")
    for name in ("d" * 200 + "/" + "f" * 100, "d" * 200 + "/" + "e" * 100 + "/f"):
        tool.write("long/" + name, b"l")
        tool.run("--add long ls -r --mask short*", 1, "short.txt\n", "because its path is longer than 259 bytes")


def limited_processes(tool):
    """A full disk leaves nothing behind, and where no thread can be started the work is done without."""
    if not tool.native:
        return
    tool.write("root/big", os.urandom(300000))
    tool.write("tree/big", tool.read("root/big"))
    tool.run("pack keep.pak tree", 0, "~1 file, ")
    before = os.listdir(tool.path("root"))

    def small_files():
        resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

    tool.run("container put new.mc c 1 big", 1, err="because the disk is full", preexec_fn=small_files)
    tool.check(os.listdir(tool.path("root")) == before, "a failed command left traces")
    tool.run("container put held.mc c 1 readme.txt")
    held = tool.read("root/held.mc")
    tool.run("container put held.mc c 2 big", 1, err="because the disk is full", preexec_fn=small_files)
    tool.is_file("root/held.mc", held)
    for line in ("pack --split-size 40000 split.pak tree", "unpack keep.pak whole", "cp big copy", "gunzip big.gz copy"):
        if line.startswith("gunzip"):
            tool.write("root/big.gz", gzip.compress(tool.read("root/big")))
        before = sorted(os.listdir(tool.where)) + sorted(os.listdir(tool.path("root")))
        tool.run(line, 1, err="the disk is full", preexec_fn=small_files)
        os.path.isdir(tool.path("whole")) and os.rmdir(tool.path("whole"))
        tool.check(sorted(os.listdir(tool.where)) + sorted(os.listdir(tool.path("root"))) == before, f"{line}: left traces")

    def no_threads():  # a stack that no address space holds
        resource.setrlimit(resource.RLIMIT_STACK, (1 << 44, resource.RLIM_INFINITY))
        resource.setrlimit(resource.RLIMIT_AS, (1 << 32, resource.RLIM_INFINITY))

    if subprocess.run([*tool.command, "sources"], cwd=tool.where, capture_output=True, preexec_fn=no_threads).returncode == 0:
        tool.run("pack alone.pak tree", 0, "~1 file, ", preexec_fn=no_threads)
        tool.is_file("alone.pak", tool.read("keep.pak"))


def interruptions(tool):
    """Ctrl-C leaves nothing half-made."""
    if not tool.native:
        return
    tool.write("slow/zeros", b"")
    os.truncate(tool.path("slow/zeros"), 200 << 20)
    os.makedirs(tool.path("stopped"))
    tool.run("pack slow.pak slow --level 1", 0, "~1 file, ")
    for line, said in (("unpack slow.pak stopped", "stopped: the rest was not unpacked"), ("pack stopped/slow.pak slow", "it is as it was")):
        running = subprocess.Popen(tool.command + line.split(), cwd=tool.where, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        while running.poll() is None and not os.listdir(tool.path("stopped")):
            time.sleep(0.1)
            if line.startswith("pack"):  # which makes its file when the first entry is packed
                break
        running.send_signal(signal.SIGINT)
        heard = running.communicate(timeout=60)[1].decode()
        tool.check(running.returncode == 1 and said in heard, f"{line}: interrupted, it ended with {running.returncode}: {heard}")
        tool.check(not os.listdir(tool.path("stopped")), f"{line}: interrupted, it left something half-made")


def unlisted_directories(tool):
    """A directory that cannot be listed is no empty directory."""
    if not tool.native:
        return
    locked = ("part/locked", "root/shut/locked")
    tool.write("out/part.pak", b"what was there")
    for name in locked:
        tool.write(name + "/file", b"data")
    for name in ("", "out", "root", "root/shut"):
        os.chmod(tool.path(name), 0o777)
    for name in locked:
        os.chmod(tool.path(name), 0)
    someone = {"user": 65534} if os.geteuid() == 0 else {}
    tool.run("pack out/part.pak part", 1, err="part/locked: it cannot be listed: ", **someone)
    tool.run("rm -r shut", 1, err="enginefs: shut: ", **someone)
    for name in locked:
        os.chmod(tool.path(name), 0o700)
    tool.is_file("out/part.pak", b"what was there")
    tool.is_file("root/shut/locked/file", b"data")


def packs(tool):
    tool.write("work/in/sub/text.txt", PLAIN)
    tool.write("work/in/empty", b"")
    tool.table(("pack work/made.pak work/in", 0, r"~^work/made.pak: 2 files, %d bytes in, \d+ out \(\d+\.\d %%\), \d+\.\d s\n$" % len(PLAIN)),
               ("list work/made.pak", 0, "~^(empty\nsub/text.txt|sub/text.txt\nempty)\n$"),
               ("list --long work/made.pak", 0, r"~%d +\d+  deflated  %08x" % (len(PLAIN), zlib.crc32(PLAIN))),
               ("verify work/made.pak", 0, "work/made.pak: 2 entries, all good\n"), ("unpack work/made.pak work/out",),
               ("--add work/made.pak which sub/text.txt", 0, "~made.pak\n$"), ("--add work/made.pak cp empty beside/pack.txt",),
               ("--add work/made.pak cat beside/pack.txt",), ("--add work/made.pak mkdir beside/made",),
               ("--add work/made.pak find text.txt --native-paths", 0, "~work/made.pak/sub/text.txt\n$"))
    tool.is_file("work/out/sub/text.txt", PLAIN)
    tool.table(("pack work/made.pak work/in --deterministic", 0, "~2 files"), ("pack work/same.pak work/in --deterministic", 0, "~2 files"))
    tool.is_file("work/same.pak", tool.read("work/made.pak"))
    # What packing does not shrink by the percents asked for is copied into a stream that can be sought in.
    tool.write("work/noise/noise.bin", os.urandom(95000) + bytes(5000))
    for options, method in (("--worth 10", "100010  deflated"), ("", r"9\d{4}  deflated"), ("--store bin", "100000  stored"),
                            ("--method zstd", r"9\d{4}  zstd"), ("--method zstd --worth 10", "100010  deflated")):
        tool.run(f"pack work/noise.pak work/noise {options}", 0, "~1 file, ")
        tool.run("list --long work/noise.pak", 0, f"~100000 +{method}")
        tool.run("verify work/noise.pak", 0, "work/noise.pak: 1 entry, all good\n")
        tool.run("unpack work/noise.pak work/noise.out")
        tool.is_file("work/noise.out/noise.bin", tool.read("work/noise/noise.bin"))
    damaged = bytearray(tool.read("work/made.pak"))
    damaged[damaged.index(b"sub/text.txt") + 30] ^= 0xFF
    tool.write("work/bad.pak", bytes(damaged))
    tool.write("work/cut.pak", bytes(damaged[:100]))
    with zipfile.ZipFile(tool.path("work/out.pak"), "w") as out:
        for name, text in (("Same.txt", "first"), ("../out.txt", "outside"), ("a/#b/hidden", "")):
            out.writestr(name, text)
    with zipfile.ZipFile(tool.path("work/twice.pak"), "w") as out, warnings.catch_warnings():
        warnings.simplefilter("ignore")
        for text in ("first", "second"):
            out.writestr("Twice.txt", text)
    tool.table(("verify work/twice.pak", 1, "work/twice.pak: 1 entry good, 1 finding\n", "nobody reads this one"),
               ("verify work/out.pak", 1, "work/out.pak: 1 entry good, 2 findings\n", "../out.txt: its name leads out"),
               ("verify work/bad.pak", 1, "~1 entry good, 1 finding", "sub/text.txt"),
               ("pack work/made.pak work/in --level 13", 2, "", "--level 13: deflate has levels from 0 to 12"),
               ("pack work/made.pak work/in --level 23 --method zstd", 2, "", "--level"),
               ("--add work/bad.pak crc sub/text.txt", 1, "", "damaged"))
    tool.fails(("unpack work/bad.pak work/bad", "sub/text.txt"), ("unpack work/out.pak work/out #b", "a mounted pack shows no file"),
               ("list work/cut.pak", "enginefs: work/cut.pak: "),
               ("unpack work/out.pak work/out", "../out.txt: "), ("pack work/made.pak nowhere", "nowhere"),
               ("pack nowhere/made.pak work/in", "its directory does not exist"),
               ("unpack work/made.pak root/Readme.txt", "cannot be made a directory"), ("pack work/new.pak work/made.pak", "it is no directory"),
               ("--add work/made.pak cp readme.txt sub/text.txt", "made.pak holds it"),
               ("--add work/made.pak rm sub/text.txt", "cannot be written"))
    tool.is_file("work/out/Same.txt", b"first")
    tool.is_file("work/out.txt", None)


def pack_findings(tool):
    """All that a pack would lack is told before anything is written."""
    for name in ("a.txt", "#hidden", "#dir/file", "sub/b.txt"):
        tool.write("finds/" + name, b"data")
    findings = ["#dir: mounts hide names", "#hidden: mounts hide names"]
    if tool.native:
        tool.write("finds/A.TXT", b"other")
        tool.write("finds/back\\slash", b"")
        os.mkfifo(tool.path("finds/fifo"))
        for link, to in (("broken", "nowhere"), ("sub/loop", "..")):
            os.symlink(to, tool.path("finds", link))
        with open(os.path.join(os.fsencode(tool.path("finds")), b"\xe9.txt"), "wb"):
            pass
        findings += ["a.txt: another name differs from it in case alone, and is packed in its place: finds/A.TXT",
                     "back\\slash: its name holds a backslash", "broken: the link leads nowhere", "fifo: it is no regular file",
                     "sub/loop: the link to a directory shows nothing", "its name is not UTF-8"]
    for finding in findings:
        tool.run("pack finds.pak finds --strict", 1, err=finding)
    tool.run("pack finds.pak finds --strict", 1, err=f"finds.pak: it is not made; see the {len(findings)} findings above")
    tool.run("pack finds.pak finds -n", 0, "~ sub/b.txt\n", err=findings[0])
    tool.is_file("finds.pak", None)
    tool.run("pack finds.pak finds", 0, "~ files, ", err=findings[0])
    tool.run("list finds.pak", 0, "~a.txt\n")
    if tool.native:
        with zipfile.ZipFile(tool.path("finds.pak")) as pack:  # which fails where a name only claims to be UTF-8
            tool.check(all(entry.flag_bits == 0 for entry in pack.infolist()), "a name that is not UTF-8 claims to be")
        os.truncate(tool.path("finds/a.txt"), 5 << 30)
        os.remove(tool.path("finds/A.TXT"))
        tool.run("pack finds.pak finds", 1, err="finds/a.txt: it has 5368709120 bytes; an entry of a pack holds less than 4 GiB")
        os.truncate(tool.path("finds/a.txt"), 4)
    for options, wanted in (("--exclude *hidden --include a.*", "a.txt"), ("--include SUB/", "sub/b.txt"), ("--include s*/b.txt", "sub/b.txt")):
        tool.run(f"pack chosen.pak finds {options} --strict --exclude loop --exclude fifo --exclude #dir", 0, "~1 file, ")
        tool.run("list chosen.pak", 0, wanted + "\n")
    for number in range(1, 6):
        tool.write(f"parts/{number}", os.urandom(1000))
    tool.run("pack parts.new.pak parts --split-size 2500", 0, "~5 files in 3 packs, 5000 bytes in, ")
    for pack, wanted in (("parts.new.pak", "1\n2\n"), ("parts.new.2.pak", "3\n4\n"), ("parts.new.3.pak", "5\n")):
        tool.run(f"list {pack}", 0, wanted)
    tool.run("pack parts.new.pak parts --split-size 1M", 0, "~5 files, ", "parts.new.2.pak: it is left from before")


def unpacking(tool):
    for name, data in (("sub/one.tga", b"1"), ("sub/two.txt", b"2"), ("three.tga", b"3")):
        tool.write("many/" + name, data)
        os.utime(tool.path("many", name), (1600000000, 1600000000))
    for zone in ("UTC", "Asia/Kolkata", "EST5EDT") if tool.native else ("",):
        tool.run("pack many.pak many", 0, "~3 files", env={**os.environ, "TZ": zone})
        tool.run("unpack many.pak kept", env={**os.environ, "TZ": zone})
        tool.check(os.stat(tool.path("kept/three.tga")).st_mtime == 1600000000, f"unpack: another time in {zone}")
    tool.run("unpack many.pak some -n *.tga", 0, "~^(sub/one.tga\nthree.tga|three.tga\nsub/one.tga)\n$")
    tool.check(not os.path.exists(tool.path("some")), "unpack -n: something was made")
    tool.run("unpack many.pak some SUB/ zebra", 1, err="zebra: no entry of the pack matches")
    tool.check(os.listdir(tool.path("some")) == ["sub"] and len(os.listdir(tool.path("some/sub"))) == 2, "unpack SUB/: not just that")
    for overwrite, seconds, data in (("never", 1, b"mine"), ("older", 1700000000, b"mine"), ("older", 1, b"3"), ("always", 1700000000, b"3")):
        tool.write("some/three.tga", b"mine")
        os.utime(tool.path("some/three.tga"), (seconds, seconds))
        tool.run(f"unpack many.pak some --overwrite {overwrite}")
        tool.is_file("some/three.tga", data)


def patches(tool):
    for name, data in (("old/same", b"same"), ("old/changed", b"1234"), ("old/gone", b"gone"), ("new/same", b"same"),
                       ("new/changed", b"1235"), ("new/sub/added", b"added")):
        tool.write(name, data)
    tool.table(("pack old.pak old", 0, "~3 files"), ("pack new.pak new", 0, "~3 files"), ("diff new.pak new", 0, "0 added, 0 removed, 0 changed\n"))
    for new in ("new", "new.pak"):
        tool.run(f"diff old.pak {new}", 0, "changed            4            4  changed\nremoved            4            -  gone\n"
                 "added              -            5  sub/added\n1 added, 1 removed, 1 changed\n")
        tool.run(f"patch old.pak {new} patch.pak", 0, "~2 files, 9 bytes in", f"gone: old.pak shows it still, though {new} lacks it")
        tool.table(("list patch.pak", 0, "changed\nsub/added\n"),
                   ("--add patch.pak --add old.pak cat changed sub/added same", 0, "1235addedsame"))
    tool.run("diff old.pak new --json", 0, '~"name": "sub/added",\\s+"change": "added",\\s+"old_size": null,\\s+"new_size": 5')
    tool.fails(("diff old.pak nowhere", "nowhere"), ("patch old.pak new nowhere/patch.pak", "its directory does not exist"))


def gzip_members(tool):
    tool.write("root/plain.txt", PLAIN)
    tool.run("gzip plain.txt plain.gz")
    tool.check(gzip.decompress(tool.read("root/plain.gz")) == PLAIN, "gzip: another reader reads something else")
    whole = gzip.compress(PLAIN, mtime=0)
    for name, data, plain in (("two", whole + gzip.compress(b"more"), PLAIN + b"more"), ("padded", whole + bytes(5000), PLAIN),
                              ("nothing", gzip.compress(b""), b""), ("many", gzip.compress(b"ab") * 500, b"ab" * 500)):
        tool.write(f"root/{name}.gz", data)
        tool.run(f"gunzip {name}.gz back.txt")
        tool.is_file("root/back.txt", plain)
    for name, data in (("cut", whole[:-9]), ("trailer", whole[:-8] + b"\0" * 8), ("length", whole[:-1] + b"\1"),
                       ("text", b"no member"), ("behind", whole + b"rubbish"), ("second", whole + whole[:50]), ("empty", b"")):
        tool.write(f"root/{name}.gz", data)
        tool.fails(*((f"gunzip {name}.gz {out}", f"enginefs: {name}.gz: its gzip member number ")
                     for out in ("new.txt", "back.txt")))
        tool.is_file("root/new.txt", None)
        tool.is_file("root/back.txt", b"ab" * 500)


def chunk_trees(tool):
    tool.write("root/tree.chk", TREE + chunk(b"NOTE", 1, b"plain text, not chunks"))
    tool.run("chunks tree.chk", 0,
             "TREE  version 1  offset 0  size 41\n  data  version 3  offset 12  size 5\n  NODE  version 2  offset 29  size 12\n"
             "    leaf  version 1  offset 41  size 0\nNOTE  version 1  offset 53  size 22\n")
    tool.write("root/deep.chk", b"".join(chunk(b"DEEP", 1, b"")[:8] + struct.pack("<I", 12 * left)
                                         for left in range(19999, -1, -1)))
    tool.run("chunks deep.chk", 0, r"~\[19999\] DEEP  version 1  offset 239988  size 0\n$")
    # In a pack too, where a stored file is sought in back and forth.
    tool.write("stored/far.chk", chunk(b"FARR", 1, chunk(b"data", 1, bytes(150000)) + chunk(b"last", 1, b"")) + TREE)
    tool.run("pack stored.pak stored --store chk", 0, "~1 file, ")
    tool.run("--add stored.pak chunks far.chk", 0, r"~  last  version 1  offset 150024  size 0\nTREE(.|\n)*leaf")
    inner = bytearray(TREE)
    inner[20] = 200  # the size of the chunk "data"
    for name, data, offset in (("cut", TREE[:-1], 0), ("tail", TREE + b"abc", 53), ("inner", bytes(inner), 12),
                               ("noise", TREE + bytes(range(128, 150)), 53)):
        tool.write(f"root/{name}.chk", data)
        tool.run(f"chunks {name}.chk", 1, "~" if offset == 0 else "~^TREE  version 1  offset 0  size 41\n",
                 f"enginefs: {name}.chk: it makes no sense from offset {offset} on: ")


def duplicates(tool):
    for name, data in (("dup/a/one.bin", b"the same"), ("dup/b/two.bin", b"the same"), ("dup/b/other.bin", b"not same"),
                       ("dup2/a/one.bin", b"hidden")):
        tool.write(name, data)
    same = "equal content, 8 bytes, crc %08x:\n    a/one.bin\n    b/two.bin\n" % zlib.crc32(b"the same")
    for options, wanted in (("", "~(?s)^held by 2 sources: a/one.bin\n.*" + re.escape(same) + "$"), ("--content", same),
                            ("--names", r"~dup2/? \(shadowed\)\n$")):
        tool.run(f"--root dup --add dup2 --no-fallback duplicates {options}", 0, wanted)
    tool.run("--root dup --no-fallback duplicates --content --json", 0, r'~"crc": \d+,\s+"names": \[\s+"a/one.bin",')
    tool.run("duplicates --names --content", 2, err="--help")


def containers(tool):
    tool.table(("container put c.mc First 0x10 plain.txt --deflate",), ("container put c.mc Second 17 readme.txt",),
               ("container ls c.mc", 0, r"~First  1 blob\nSecond  1 blob\n2 containers, 2 blobs, "),
               ("container ls c.mc First --json", 0, r'~"blobs": \[\s+\{\s+"hash": 16,\s+"size": %d' % len(PLAIN)),
               ("container ls c.mc First", 0, r"~0x00000010 +%d +\d+  deflated\n" % len(PLAIN)),
               ("container get c.mc First 16", 0, PLAIN), ("container get c.mc Second 0x11 got.txt",),
               ("container get c.mc Second twelve", 2, "", "this is no hash"), ("container rm c.mc Second 17",),
               ("container compact c.mc", 0, r"~^c.mc: \d+ bytes regained\n$"),
               ("container verify c.mc", 0, "c.mc: 1 blob, all good\n"), ("container", 2, "", "subcommand"))
    tool.is_file("root/got.txt", b"hello\n")
    tool.table(("container put c.mc Se/cond 0xfffffffF readme.txt",), ("container export c.mc blobs", 0, "blobs: 2 blobs\n"),
               ("container import d.mc blobs --deflate", 0, "d.mc: 2 blobs\n"), ("container get d.mc Se/cond 4294967295", 0, "hello\n"),
               ("container ls d.mc", 0, "~^First  1 blob\nSe/cond  1 blob\n"), ("container rm c.mc Se/cond",))
    tool.is_file("blobs/First/0x00000010", PLAIN)
    tool.write("blobs/First/readme", b"")
    tool.fails(("container import e.mc blobs", "blobs/First/readme: it is no CONTAINER/HASH"))
    tool.is_file("root/e.mc", None)
    rotten = bytearray(tool.read("root/c.mc"))
    rotten[len(rotten) // 2] ^= 0x55
    tool.write("root/rotten.mc", bytes(rotten))
    tool.write("root/cut.mc", bytes(rotten[:-1]))
    tool.fails(("container get c.mc Second 18", "there is no blob 0x00000012 in container \"Second\""),
               ("container rm c.mc Third", "enginefs: c.mc: "), ("container ls zebra.mc", "enginefs: zebra.mc: "),
               ("container verify rotten.mc", "enginefs: rotten.mc: "),
               ("container put readme.txt First 1 plain.txt", "enginefs: readme.txt: "),
               *((f"container {line}", "has lost its end") for line in
                 ("ls cut.mc", "verify cut.mc", "compact cut.mc", "get cut.mc C 1", "put cut.mc C 1 readme.txt", "rm cut.mc C")))
    tool.is_file("root/Readme.txt", b"hello\n")
    tool.is_file("root/cut.mc", bytes(rotten[:-1]))


def caches(tool):
    for name in ("Maps/One", "Two"):
        tool.write("data/" + name, b"1")
    for name in ("data", "data/Maps"):
        os.utime(tool.path(name), (1600000000, 1600000000))
    line = r"~^ +bytes .*\n +\d+  2\d{3}-.*Z  .*/data\n +.*/filesystem/\w+_x64/[0-9a-f]{16}\.fsc\n$"
    tool.table(("cache show", 2, "", "--cache DIR"), ("--cache work/cache cache build", 2, "", "--add"),
               ("--cache work/cache cache show", 1, "", "there is no such directory"),
               ("--cache work/cache --add data cache build", 0, line), ("--cache work/cache cache show", 0, line),
               ("--cache work/cache --add data ls -r maps", 0, "maps/one\n"))
    folder = os.path.join("work/cache/filesystem", os.listdir(tool.path("work/cache/filesystem"))[0])
    tool.write(os.path.join(folder, os.listdir(tool.path(folder))[0] + ".17.0"), b"left behind")
    tool.run("--cache work/cache cache drop")
    tool.check(not os.listdir(tool.path(folder)), "cache drop: something is left")
    tool.fails(("--cache root/Readme.txt --add data cache build", "cannot be made a directory"),
               ("--cache work/cache --add work/made.pak cache build", "recorded no listing"))


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
        tool.run("log-check idle.cfg", 0, f"~(?m)^idle.cfg:{at}:1: .*" + re.escape(said))
    for line, reason in ((b"!BrenixLogLevel(loud)", "\"loud\" is no level"), (b"!BrenixLogLevel()", "is missing"),
                         (b"!Permit(ERRR, 1)", "parameter 3 of Permit is missing"), (b"!Nonsense(1)", "not known"),
                         (b"!Permit(\"????\", 1, 1)", "names no message"), (b"!BrenixLogMessageSource(x)", "integer"),
                         (b"!include(\"zebra.cfg\")", "cannot be read")):
        tool.write("root/bad.cfg", b"// first line\n  " + line + b"\n!BrenixLogLevel(warn)\n")
        tool.run("log-check bad.cfg", 1, "~^bad.cfg:3:2: the level: warn\n$", err="enginefs: bad.cfg:2:")
        tool.run("log-check bad.cfg", 1, "~", err=reason)
    tool.write("root/many.cfg", b"".join(b"!BrenixLogCategoryLevel(C%d, info)\n" % i for i in range(9)))
    tool.run("log-check many.cfg", 1, "~many.cfg:8:2", err="many.cfg:9:2: there is room for 8 categories")
    tool.run("log-check zebra.cfg", 1, err="enginefs: zebra.cfg: ")


def names_in_other_scripts(tool):
    """Arguments, names and messages are UTF-8 on every system, whatever its code page."""
    for name in ("\u30c2.txt", "\u00e9t\u00e9/\u041c\u0438\u0440.txt"):
        tool.write("root/" + name, name.encode())
        tool.run(f"cat {name}", 0, name)
        tool.run(f"find {name}", 0, f"{name}\n")
        tool.run(f"cp {name} {name}.copy")
        tool.is_file(f"root/{name}.copy", name.encode())
        tool.run(f"cat {name}.none", 1, err=f"enginefs: {name}.none: ")
    tool.write("\u30dd/\u30b9\u30c8.txt", b"post")
    tool.run("--add \u30dd cat \u30b9\u30c8.txt", 0, "post")
    tool.run("pack \u30dd.pak \u30dd", 0, "~1 file, ")
    tool.run("list \u30dd.pak", 0, "\u30b9\u30c8.txt\n")
    tool.run("unpack \u30dd.pak \u30dd/\u00e9")
    tool.is_file("\u30dd/\u00e9/\u30b9\u30c8.txt", b"post")


def command_lines(tool):
    if os.path.exists("/dev/full") and tool.native:
        for command in ("ls", "cat", "--help"):
            with open("/dev/full", "wb") as full:
                words = [*tool.command, command, *(["plain.txt"] if command == "cat" else [])]
                result = subprocess.run(words, cwd=tool.where, stdout=full, stderr=subprocess.PIPE, check=False)
            wanted = b"enginefs: standard output: it cannot be written: No space"
            tool.check((result.returncode, result.stderr[:len(wanted)]) == (1, wanted), f"{command} to a full device: {result}")
    tool.command = tool.command[:-3]
    duplicates(tool)
    tool.table(("", 2, "", "subcommand"), ("frobnicate", 2, "", "frobnicate: this is no command here\n"),
               ("lss", 2, "", 'lss: this is no command here; did you mean "ls"?'), ("ls --recusive", 2, "", 'did you mean "--recursive"?'),
               ("--mask x ls", 2, "", "--mask: this is no option here; it stands behind the command"), ("--version", 0, r"~^enginefs \d+\.\d+\.\d+\n$"), ("ls --root root forms/b* --log none", 0, "forms/big.txt\n"),
               ("--add root/forms/Big.Txt ls", 1, "", "the name of a pack ends in .pak or .mpak"), ("pack", 2, "", "OUT"),
               ("--log shouting ls", 2, "", "--log: shouting not in"),
               ("--root root --log debug sources", 0, "~root +writable", "DEBG: [FileSystem] > Initializing fs from"),
               ("--root nowhere ls", 1, "", "there is no such directory"),
               ("--add nowhere ls", 1, "", "enginefs: nowhere: there is no such directory"),
               ("container put --help", 0, "~Usage: "))


def walk_of_the_guide(tool):
    """The guide shows what the tool prints."""
    if not tool.native:
        return
    with open(os.path.join(os.path.dirname(__file__), "../../docs/using.md"), encoding="utf-8") as guide:
        blocks = "".join(re.findall(r"```console\n(.*?)```", guide.read(), re.S))
    home = os.path.realpath(tool.path("walk"))
    os.mkdir(home)
    path = os.path.dirname(os.path.abspath(tool.command[0])) + ":" + os.environ["PATH"]
    for command, said in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", blocks, re.M):
        result = subprocess.run(["sh", "-c", command], cwd=home, env={**os.environ, "PATH": path, "TZ": "UTC"}, check=False,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        printed = result.stdout.decode().replace(home, "/home/you").replace(home.lower(), "/home/you")
        tool.runs += 1
        printed = re.sub(r"\d+\.\d s$", "0.0 s", printed, flags=re.M)
        tool.check(printed == said, f"docs/using.md: {command} prints {printed!r}, not {said!r}")


def main(program, *emulator):
    where = tempfile.mkdtemp(prefix="enginefs-tool-")
    os.mkdir(os.path.join(where, "root"))
    tool = Tool([*filter(None, emulator), program, "--root", "root", "--no-fallback"], where)
    try:
        for part in (listing, changing, times, whose_file_it_is, forms_of_output, over_long_paths, packs, pack_findings,
                     unpacking, patches, gzip_members, chunk_trees, containers, caches, log_configurations,
                     names_in_other_scripts, limited_processes, interruptions, unlisted_directories, command_lines, walk_of_the_guide):
            part(tool)
    finally:
        shutil.rmtree(where, ignore_errors=True)
    for failure in tool.failures:
        print(failure)
    print(f"{tool.runs} runs, {len(tool.failures)} complaint(s)")
    sys.exit(1 if tool.failures else 0)


if __name__ == "__main__":
    main(*sys.argv[1:])
