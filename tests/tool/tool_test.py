#!/usr/bin/env python3
"""Runs the commands of enginefs that look at files and change them, with good and bad input, and under want.

usage: tool_test.py PROGRAM [EMULATOR]
"""
import json
import os
import re
import shutil
import signal
import subprocess
import time
import zlib

import kit

if os.name == "posix":
    import resource


def listing(tool):
    tool.tree({"root/textures/a.dds": b"pixels", "root/textures/b.dds": b"pixels", "over/readme.txt": b"patched\n"})
    tool.table(("ls", 0, "textures/\nreadme.txt\n"),
               ("ls textures --mask a.*", 0, "textures/a.dds\n"),
               ("ls -r --long", 0, r"~  6  \d{4}-\d\d-\d\dT.*Z  textures/b.dds\n"),
               ("stat README.TXT", 0, r"~full path  .*/Readme.txt\nsize +6\n"),
               ("--add over which --all readme.txt", 0, r"~root/?\n.*over/? \(shadowed\)\n"),
               ("load", 0, r"~^3 files, 0 failed, 18 bytes in (.|\n)*slowest (.|\n)*( .* ms  .*: .*\n){3}$"),
               ("load --urgent b.dds", 0, r"~at priority 1000: (.|\n)*at priority 0: "),
               ("load --workers 1 --json b.dds readme.txt", 0,
                r'~"files": 2,\s+"failed": 0,\s+"bytes": 12,(.|\n)*"priority": 0,\s+"loads": 2,(.|\n)*"slowest": (.|\n)*"reason": '))
    tool.fails(("ls nowhere", "enginefs: nowhere: no source has such a directory"), ("ls --mask *.wav", "*.wav: no file matches"),
               ("find zebra", "no name contains it"),
               ("load --order nowhere", "nowhere: it cannot be read"), ("load --order root", "root: it cannot be read"),
               ("load --workers 65", "at most 64 workers"),
               *((f"{command} zebra", "zebra: no source holds it") for command in ("stat", "which", "cat")),
               *((line, "enginefs: textures: it is a directory") for line in
                 ("stat textures", "cat textures", "crc textures", "chunks textures", "backup textures", "cp textures new",
                  "container put x.mc c 1 textures")),
               ("cat notes/\acopy.txt", "enginefs: notes/\\x07copy.txt: "), ('cat ""', 'enginefs: "": '))


def changing(tool):
    tool.tree({"root/m/one.txt": b"one", "root/n/Two.txt": b"", "over/back/x": b""})
    # The end of a name finds a file, too; what changes files must not take one for another.
    tool.table(("cp readme.txt Notes/copy.txt",), ("cat copy.txt", 0, "hello\n"))
    tool.fails(*((line, "it finds notes/copy.txt; give that name to change it") for line in
                 ("rm copy.txt", "mv copy.txt other.txt", "cp textures/a.dds copy.txt", "gzip readme.txt copy.txt",
                  "gunzip readme.txt copy.txt", "backup copy.txt", "touch copy.txt")))
    tool.run("cp textures/a.dds notes/COPY.txt")
    tool.is_file("root/Notes/copy.txt", b"pixels")
    tool.table(("cp notes/copy.txt 'back\\'",),
               ("--add over rm -r back", 0, "", "back: it was removed from one source; another has it still"))
    tool.table(("mkdir made/deep",), ("mv m/one.txt m/two.txt",), ("rm notes/copy.txt",), ("touch m/fresh",), ("backup m/fresh",),
               ("crc m/two.txt zebra", 1, "%08x %12d  m/two.txt\n" % (zlib.crc32(b"one"), 3), "enginefs: zebra: "),
               ("cp **/two.txt both/", 1, "", "n/two.txt: both/two.txt was just made of another file"))
    for name, data in (("m/fresh.bak", b""), ("both/two.txt", b"one"), ("m/one.txt", None)):
        tool.is_file("root/" + name, data)
    tool.check(os.path.isdir(tool.path("root/made/deep")), "mkdir: nothing was made")
    tool.run("rm -r both n")
    for root in "/.":  # these were the root of the disk, and no name at all
        tool.run(f"cp m/two.txt {root}")
        tool.is_file("root/two.txt", b"one")
        tool.run("rm two.txt")
    tool.fails(("cp readme.txt notes/a|b.txt", "notes/a|b.txt"), ("cp zebra.txt copy.txt", "enginefs: zebra.txt: "),
               ("cp readme.txt readme.txt", "it is the file that is read"), ("cp readme.txt Textures b", "it is no directory, which"),
               ("mkdir ../outside", "climbs"), ("mv m m2", "is a directory"),
               ("mv m/two.txt readme.txt", "holds a file of the new name already"),
               ("backup m/fresh", "no source holds it"), ("rm m/two.txt zebra", "zebra: no source holds it"),
               ("rm m", "-r removes"), ("rm -r ..", "enginefs: ..: "))
    if tool.native:
        tool.run("rm -r /", 1, err="/: it is the whole disk")
    tool.is_file("root/m/two.txt", None)
    tool.table(("rm -r m",), ("rm -r m", 1, "", "enginefs: m: "))
    tool.check(not os.path.exists(tool.path("root/m")), "rm -r: the directory is still there")


def times(tool):
    tool.write("root/dated", b"")
    zone = {"env": {**os.environ, "TZ": "EST5EDT"}}
    for given, shown in (("2001-02-03 04:05:06", "2001-02-03T04:05:06Z"), ("2001-02-03T04:05:06+05:30", "2001-02-02T22:35:06Z"),
                         ("@86400", "1970-01-02T00:00:00Z"), ("2024-07-01", "2024-07-01T00:00:00Z")):
        tool.run(f"touch dated --time '{given}'", **zone)
        tool.run("stat dated", 0, f"~time +{shown}\n", **zone)
    tool.check(os.stat(tool.path("root/dated")).st_mtime == 1719792000, "touch: off by the zone")
    for given in ("2023-02-29", "yesterday", "2001-02-03 24:00:00", "@99999999999999", "2001-02-03 04:05:06+1:00", "2001-02-03 04:05:06+-1:00"):
        tool.run(f"touch dated --time '{given}'", 2, err="this is no time")


def whose_file_it_is(tool):
    """What changes files takes no other file than the one that was named."""
    tool.tree({"here/out.txt": b"outside", "here/dir/a.txt": b"a", "tree/case/FILE.TXT": b"upper", "tree/sub/end.txt": b"end",
               "tree/b1.txt": b"1", "tree/b2.txt": b"2", "tree/into/x": b"x"})
    own, here = f"enginefs --root {tool.path('tree')} ", {"cwd": tool.path("here")}
    for line in ("rm out.txt", "rm -r dir", "mv out.txt new.txt", "touch out.txt", "backup out.txt", "cp b1.txt out.txt"):
        tool.run(own + line, 1, err="no source holds it, but the current directory does", **here)
    # A directory that only the current one has is nobody's; a name that another ends in is free.
    for line in ("mkdir dir", "mkdir end.txt", "mv b1.txt b2.txt into", "cp into/b?.txt dir/", "rm in*/b?.txt"):
        tool.run(own + line, **here)
    tool.fails((own + "rm *.none", "no file matches"), (own + "mv b1.txt x b2.txt", "it is no directory"))
    for name, data in (("here/out.txt", b"outside"), ("here/dir/a.txt", b"a"), ("tree/into/b1.txt", None), ("tree/dir/b2.txt", b"2")):
        tool.is_file(name, data)
    tool.check(os.path.isdir(tool.path("tree/end.txt")), "mkdir: nothing was made")
    # The disk itself shows a root that is the current directory: neither its directories as files, nor its files twice.
    at_home = {"cwd": tool.path("tree")}
    tool.run("enginefs rm sub", 1, err="enginefs: sub: it is a directory; -r removes", **at_home)
    tool.run("enginefs stat b2.txt", 0, "~\nshadows +0\n$", **at_home)
    if tool.native:
        tool.run(f"enginefs ls {tool.path('tree/sub/')}", 0, "sub/end.txt\n", **at_home)
    tool.write("tree/case/file.txt", b"lower")
    if len(os.listdir(tool.path("tree/case"))) == 2:  # a disk that tells case apart
        for line in ("mv case/file.txt m", "touch case/file.txt", "cp into/x case/file.txt"):
            tool.run(own + line, 1, err="differs from it in case alone")
        tool.run(own + "rm case/file.txt")
        tool.check(os.listdir(tool.path("tree/case")) == ["FILE.TXT"], "rm: the wrong spelling went")


def forms_of_output(tool):
    for name in ("Big.Txt", "sub/small.txt", "sub/deep/s.bin"):
        tool.write("root/forms/" + name, b"12")
    tool.table(("find forms/**.txt", 0, "forms/big.txt\nforms/sub/small.txt\n"), ("find forms/**/s*", 0, "~^(.*s/s.*\n|.*deep/s.*\n){2}$"),
               ("find forms/*/s?all.txt forms/b", 0, "forms/big.txt\nforms/sub/small.txt\n"),
               ("ls -r forms --spelling", 0, "forms/Big.Txt\nforms/sub/deep/s.bin\nforms/sub/small.txt\n"),
               ("ls forms/b* forms/sub -0", 0, "forms/big.txt\0forms/sub/deep\0forms/sub/small.txt\0"),
               ("ls forms --native-paths", 0, "~^/?.*/root/forms/Big.Txt\n$"),
               ("sources --json", 0, '~"place": ".*root/",\\s+"kind": "root"'),
               ("which s.bin --json", 0, '~"name": "s.bin",\\s+"shadowed": false'),
               ("stat forms/*.txt --json", 0, '~"size": 2,\\s+"time": "....-..-..T..:..:..Z"'),
               ("crc FORMS/BIG.TXT --spelling", 0, "~  forms/Big.Txt\n$"),
               ("crc s.bin --json", 0, '~"name": "s.bin",\\s+"crc": %d,\\s+"size": 2' % zlib.crc32(b"12")),
               ("ls --color always forms", 0, "\x1b[1;34mforms/sub\x1b[0m/\nforms/big.txt\n"),
               ("ls --color always nowhere", 1, "", "\x1b[31menginefs\x1b[0m: nowhere: "), ("ls --color red", 2, "", "--color"))
    if tool.native:  # what would steer a terminal is escaped there; what is longer than it says is whole
        tool.run("enginefs cat /proc/sys/kernel/ostype", 0, "Linux\n")
        tool.tree({"root/esc/a\x1bb": b"", "root/esc/c\x7f\u009bd": b""})
        tool.table(("ls --color always esc", 0, "esc/a\\x1bb\nesc/c\\x7f\\x9bd\n"), ("ls esc", 0, "esc/a\x1bb\nesc/c\x7f\u009bd\n"),
                   ("load --color always esc/a*", 0, r"~esc/a\\x1bb: "))


def names_in_other_scripts(tool):
    """Arguments, names and messages are UTF-8 on every system, whatever its code page."""
    for name in ("\u30c2.txt", "\u00e9t\u00e9/\u041c\u0438\u0440.txt"):
        tool.write("root/" + name, name.encode())
        tool.table((f"cat {name}", 0, name), (f"find {name}", 0, f"{name}\n"), (f"cp {name} {name}.copy",),
                   (f"cat {name}.none", 1, "", f"enginefs: {name}.none: "))
        tool.is_file(f"root/{name}.copy", name.encode())
    tool.run("find ?.txt", 0, "\u30c2.txt\n")
    tool.write("\u30dd/\u30b9\u30c8.txt", b"post")
    tool.table(("--add \u30dd cat \u30b9\u30c8.txt", 0, "post"), ("pack \u30dd.pak \u30dd", 0, "~1 file, "),
               ("list \u30dd.pak", 0, "\u30b9\u30c8.txt\n"), ("unpack \u30dd.pak \u30dd/\u00e9",))
    tool.is_file("\u30dd/\u00e9/\u30b9\u30c8.txt", b"post")


def full_disk(tool):
    """The system's own limit neither ends the program nor leaves anything behind."""
    tool.write("full/big", os.urandom(300000))
    tool.run("enginefs --root full container put held.mc c 1 big")
    before = tool.read("full/held.mc")

    def small_files():
        resource.setrlimit(resource.RLIMIT_FSIZE, (100000, 100000))

    for line in ("container put held.mc c 2 big", "pack --split-size 40000 full/split.pak full", "cp big copy", "backup big"):
        tool.run("enginefs --root full " + line, 1, err="because the disk is full", preexec_fn=small_files)
    tool.is_file("full/held.mc", before)
    tool.check(sorted(os.listdir(tool.path("full"))) == ["big", "held.mc"], "a full disk: traces are left")


def interruptions(tool):
    """Neither Ctrl-C nor a terminal that is closed leaves anything half-made."""
    tool.write("slow/zeros", b"")
    os.truncate(tool.path("slow/zeros"), 200 << 20)
    os.makedirs(tool.path("stopped"))
    tool.run("pack slow.pak slow --level 1", 0, "~1 file, ")
    for number in (signal.SIGINT, signal.SIGHUP):
        running = tool.start("unpack slow.pak stopped")
        while running.poll() is None and not os.listdir(tool.path("stopped")):
            time.sleep(0.1)
        running.send_signal(number)
        heard = running.communicate(timeout=60)[1].decode()
        tool.check(running.returncode == 1 and "stopped: the rest was not unpacked" in heard and not os.listdir(tool.path("stopped")),
                   f"{number}: it ended with {running.returncode}, or left something half-made: {heard}")
    damaged = bytearray(tool.read("slow.pak"))
    damaged[len(damaged) // 2] ^= 0xFF
    tool.write("slow.pak", bytes(damaged))
    reader, writer = os.pipe()
    os.close(reader)  # nobody hears of the damage
    ended = subprocess.run(tool.words("unpack slow.pak stopped"), cwd=tool.where, stderr=writer, check=False, timeout=60)
    os.close(writer)
    tool.check(ended.returncode == 1 and not os.listdir(tool.path("stopped")), f"a closed pipe: {ended}")


def watching(tool):
    tool.write("root/seen/one.txt", b"1")
    running = tool.start("watch --json --count 2")
    for said in running.stderr:
        if b"watching" in said:
            break
    os.rename(tool.path("root/seen"), tool.path("root/gone"))
    out = running.communicate(timeout=60)[0].decode()
    changes = sorted((change["kind"], change["name"]) for change in map(json.loads, out.splitlines()))
    tool.check(running.returncode == 0 and changes == [("created", "gone/one.txt"), ("removed", "seen/one.txt")], f"watch tells {changes}")
    shutil.rmtree(tool.path("root/gone"))


def unlisted_directories(tool):
    """A directory that cannot be listed is no empty directory."""
    locked = ("part/locked", "root/shut/locked")
    tool.tree({"out/part.pak": b"what was there", **{name + "/file": b"data" for name in locked}})
    for name in ("", "out", "root", "root/shut"):
        os.chmod(tool.path(name), 0o777)
    for name in locked:
        os.chmod(tool.path(name), 0)
    os.utime(tool.path("slow"), (1600000000, 1600000000))  # so that it is recorded
    someone = {"user": 65534} if os.geteuid() == 0 else {}
    for line, err in (("pack out/part.pak part", "part/locked: it cannot be listed: "), ("rm -r shut", "enginefs: shut: "),
                      ("--cache out/cache --add slow --add part cache build", "enginefs: part: ")):
        tool.run(line, 1, "~", err=err, **someone)
    for name in locked:
        os.chmod(tool.path(name), 0o700)
    tool.is_file("out/part.pak", b"what was there")
    tool.is_file("root/shut/locked/file", b"data")


def duplicates(tool):
    tool.tree({"dup/a/one.bin": b"the same", "dup/b/two.bin": b"the same", "dup/b/other.bin": b"not same", "dup2/a/one.bin": b"hidden"})
    same = "equal content, 8 bytes, crc %08x:\n    a/one.bin\n    b/two.bin\n" % zlib.crc32(b"the same")
    line = "enginefs --root dup --add dup2 --no-fallback duplicates"
    tool.table((line, 0, "~(?s)^held by 2 sources: a/one.bin\n.*" + re.escape(same) + "$"), (line + " --content", 0, same),
               (line + " --names", 0, r"~dup2/? \(shadowed\)\n$"), ("duplicates --names --content", 2, "", "--help"),
               (line + " --content --json", 0, r'~"crc": \d+,\s+"names": \[\s+"a/one.bin",'))


def command_lines(tool):
    tool.table(("enginefs", 2, "", "subcommand"), ('enginefs ""', 2, "", 'enginefs: "": this is no command here\n'),
               ("enginefs lss", 2, "", 'lss: this is no command here; did you mean "ls"?'),
               ("ls --recusive", 2, "", 'did you mean "--recursive"?'), ("sources more", 2, "", "more: this is one argument too many"),
               ("ls --json -0", 2, "", "--null excludes --json"), ("enginefs --version", 0, r"~^enginefs \d+\.\d+\.\d+\n$"),
               ("enginefs ls --root root forms/b* --log none", 0, "forms/big.txt\n"), ("pack", 2, "", "OUT"),
               ("--add root/forms/Big.Txt ls", 1, "", "the name of a pack ends in .pak or .mpak"),
               ("--log shouting ls", 2, "", "--log: shouting not in"),
               ("--log debug sources", 0, "~root +writable", "DEBG: [FileSystem] > Initializing fs from"),
               ("enginefs --root nowhere ls", 1, "", "there is no such directory"),
               ('enginefs --root "" ls', 2, "", "--root: it names no directory"),
               ("--add nowhere ls", 1, "", "enginefs: nowhere: there is no such directory"),
               ("container put --help", 0, "~Usage: "))


def output_that_fails(tool):
    with open("/dev/full", "wb") as full:
        for line in ("ls", "cat readme.txt", "--help", "cat readme.txt zebra"):  # what a message flushed was lost untold
            tool.run(line, 1, err="enginefs: standard output: it cannot be written: No space", stdout=full)
        with subprocess.Popen(tool.words("watch"), cwd=tool.where, stdout=full, stderr=subprocess.PIPE) as running:
            running.stderr.readline()
            tool.write("root/unseen", b"")
            said = running.communicate(timeout=60)[1]
        tool.check(running.returncode == 1 and b"standard output: it cannot be written" in said, f"watch: a full disk: {said}")


def walk_of_the_guide(tool):
    """The guide shows what the tool prints."""
    with open(os.path.join(os.path.dirname(__file__), "../../docs/using.md"), encoding="utf-8") as guide:
        blocks = "".join(re.findall(r"```console\n(.*?)```", guide.read(), re.S))
    home = os.path.realpath(tool.path("walk"))
    os.mkdir(home)
    path = os.path.dirname(os.path.abspath(tool.command[0])) + ":" + os.environ["PATH"]
    for command, said in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", blocks, re.M):
        result = subprocess.run(["sh", "-c", command], cwd=home, env={**os.environ, "PATH": path, "TZ": "UTC"}, check=False,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        printed = result.stdout.decode().replace(home, "/home/you").replace(home.lower(), "/home/you")
        printed = re.sub(r"\d+\.\d s$", "0.0 s", printed, flags=re.M)
        tool.runs += 1
        tool.check(printed == said, f"docs/using.md: {command} prints {printed!r}, not {said!r}")


def what_an_emulator_lacks(tool):
    if tool.native:
        for part in (full_disk, interruptions, unlisted_directories, output_that_fails, walk_of_the_guide):
            part(tool)


if __name__ == "__main__":
    kit.main((listing, changing, times, whose_file_it_is, forms_of_output, names_in_other_scripts, watching,
              duplicates, command_lines, what_an_emulator_lacks))
