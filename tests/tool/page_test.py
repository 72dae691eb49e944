#!/usr/bin/env python3
"""Holds the page of "enginefs report" against what the packs in it list: its data, its tables and its policy; or, opened
in a headless browser, the figures that it tells.

usage: page_test.py [--browser] PROGRAM [EMULATOR]
"""
import base64
import hashlib
import html
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import urllib.parse
import zipfile
import zlib

import kit

HOSTILE = ["</script><script>boom", "<!--", "<img src=x onerror=boom>.png", '" onload=boom & &lt;.txt', "line\nbreak.txt", "\u202eotxt.exe",
           "../climbs.txt", "/rooted.txt", "Mixed/Case.TXT", "mixed/case.txt", "deep/" * 90 + "end", "caf?.txt"]


def hostile_pack(tool):
    with zipfile.ZipFile(tool.path("hostile.pak"), "w", zipfile.ZIP_DEFLATED) as out:
        for number, name in enumerate(HOSTILE):
            out.writestr(name, b"x" * (100 * number + 7))
    tool.write("hostile.pak", tool.read("hostile.pak").replace(b"caf?", b"caf\xe9"))


def data_of(tool, page):
    return json.loads(re.search(r'<script type="application/json" id="data">(.*?)</script>', tool.read(page).decode(), re.S)[1])


def files_of(data):
    """(name, size, packed) of every file, the name without its place."""
    paths, files, rest = [""], [], iter(zip(data["names"], data["sizes"], data["saved"]))
    for d in range(1, len(data["dirs"])):
        paths.append(paths[data["parents"][d]] + data["dirs"][d] + "/" if d > data["places"] else "")
    for d, count in enumerate(data["counts"]):
        files += [(paths[d] + name, size, size - saved) for name, size, saved in (next(rest) for _ in range(count))]
    return files


def listed(tool, pack):
    words = tool.words(f"list --long --json {pack}")
    entries = json.loads(subprocess.run(words, capture_output=True, check=True, cwd=tool.where).stdout)
    return [(entry["name"], entry["size"], entry["packed"]) for entry in entries]


def data_is_what_packs_list(tool):
    hostile_pack(tool)
    tool.run("report page.html --pack hostile.pak")
    wanted = [(name.replace("\n", "\\x0a").replace("\ufffd", "\\xe9"), *rest) for name, *rest in listed(tool, "hostile.pak")]
    wanted.append(("Readme.txt", 6, 6))
    tool.check(sorted(files_of(data_of(tool, "page.html"))) == sorted(wanted), "the data of the page is not what the pack lists")
    page = tool.read("page.html").decode()
    tool.check("<img" not in page and "<script>boom" not in page, "a name stands in the page as it is")
    tool.check(page.count("<script") == 2 and page.count("<!--") == 0, "a name is taken for a part of the page")
    policy = re.search(r'http-equiv="Content-Security-Policy" content="([^"]*)"', page)[1]
    for kind in ("script", "style"):
        text = re.search(f"<{kind}>(.*)</{kind}>", page, re.S)[1]
        digest = base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()
        tool.check(f"{kind}-src 'sha256-{digest}'" in policy, f"the policy keeps the page's own {kind} out")
    tool.check(policy.startswith("default-src 'none'; "), f"the policy is {policy}")


def rows_of(tool, page, heading):
    """The texts of the cells of a table's rows."""
    table = re.search(rf"<h2>{heading}</h2>.*?<tbody>\n(.*?)</tbody>", tool.read(page).decode(), re.S)
    rows = table[1].splitlines() if table else []
    return [[html.unescape(re.sub("<(?!br)[^>]*>", "", cell)) for cell in re.findall("<td[^>]*>(.*?)(?=<td|$)", row)] for row in rows]


def tables(tool):
    equal = bytes(range(256)) * 40
    delta = int(f"{0x104C11DB7:b}"[::-1], 2).to_bytes(5, "little")  # the checksum's polynomial, which it does not see
    other = bytes(a ^ b for a, b in zip(equal, delta)) + equal[5:]
    tool.check(zlib.crc32(equal) == zlib.crc32(other), "the two contents have different checksums")
    tool.tree({"in/Maps/One.txt": b"first", "in/b.bin": equal, "in/c.bin": equal, "in/d.bin": other,
               "root/maps/one.txt": b"of the root", "record.txt": b"c.bin\r\nNOWHERE.txt\nmaps\\one.txt\nc.bin\n"})
    tool.run("pack in.pak in", 0, "~4 files")
    with zipfile.ZipFile(tool.path("noise.pak"), "w", zipfile.ZIP_DEFLATED) as out:
        out.writestr("noise.bin", os.urandom(9000))
    tool.table(("--add in.pak report all.html --pack noise.pak --record record.txt --title '<b> of two'",),
               ("report exact.html --pack in.pak --exact",))
    for page, heading, wanted in (
            ("all", "Packs and directories", [["in.pak", "pack", "4"], ["noise.pak", "pack", "1"], ["root", "directory", "2"]]),
            ("all", "Shadowed", [["maps/one.txt", "root", "11", "11", "in.pak"]]),
            ("all", "Gains nothing by deflate", [["noise.bin", "noise.pak", "9,000"]]),
            ("all", "Never read", [["Readme.txt", "root", "6"], ["b.bin"], ["d.bin"], ["noise.bin"]]),
            ("all", "Wasted by duplicates", [["b.bin<br>c.bin<br>d.bin", "3", "10,240"]]),
            ("exact", "Wasted by duplicates", [["b.bin<br>c.bin", "2"]])):
        found = sorted(rows_of(tool, page + ".html", heading))
        same = len(found) == len(wanted) and all(row[:len(want)] == want for row, want in zip(found, wanted))
        tool.check(same, f"{page}, {heading}: {found}")
    data = data_of(tool, "all.html")
    order = [files_of(data)[file][0] for file in data["order"]]
    tool.check(order == ["c.bin", "maps/one.txt"], f"the order of access is {order}")
    tool.check(b"<h1>&#60;b&#62; of two</h1>" in tool.read("all.html"), "the title is not text")


def size_and_failures(tool):
    names = [f"textures/level{number % 300}/material_{number}_normal.dds" for number in range(60000)]
    with zipfile.ZipFile(tool.path("many.pak"), "w") as out:
        for name in names:
            out.writestr(name, b"x")
    tool.write("many.txt", "\n".join(names).encode())
    tool.run("report many.html --pack many.pak --record many.txt")
    tool.check(len(tool.read("many.html")) <= 4_000_000, "60,000 entries are a page of more bytes")
    tool.write("kept.html", b"what was there")
    tool.fails(("report kept.html --pack nowhere.pak", "nowhere.pak"), ("report kept.html --record nowhere.txt", "nowhere.txt"),
               ("report nowhere/page.html", "its directory does not exist"))
    tool.is_file("kept.html", b"what was there")


BROWSER = next(filter(None, map(shutil.which, ("chromium", "chromium-browser", "google-chrome"))), None)
OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
           "--disable-component-update", "--disable-sync", "--window-size=1000,800", "--dump-dom"]


def document(address):
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        words = [BROWSER, *OPTIONS, f"--user-data-dir={profile}", address]
        return subprocess.run(words, capture_output=True, check=False, timeout=60).stdout.decode("utf-8", "replace")


def in_a_browser(tool):
    if BROWSER is None or "live" not in document("data:text/html,<p>live"):
        kit.complaints.skip("a browser of the Chromium kind that starts")
    hostile_pack(tool)
    tool.run("report page.html --pack hostile.pak")
    entries = listed(tool, "hostile.pak") + [("Readme.txt", 6, 6)]
    pack, case = entries[:-1], [entry for entry in entries if entry[0].lower() == "mixed/case.txt"]
    hidden = "hide=hostile.pak/" + urllib.parse.quote(pack[0][0].split("/")[0]) + ",hostile.pak/mixed"
    for view, wanted, hits in (
            ("", [entry[2] for entry in entries], 0),
            ("at=hostile.pak/Mixed&size=unpacked&find=case", [case[0][1]], 1),
            ("at=%zz&size=odd&hide=nowhere&colour=access", [entry[2] for entry in entries], 0),
            ("size=unpacked&colour=ratio&find=.TXT&" + hidden, [entry[1] for entry in entries if entry not in (pack[0], case[1])], 7)):
        text = document(f"file://{tool.path('page.html')}#{view}")
        found = re.search(r'<output id="figures" hidden="">([^<]*)</output>', text)
        told = json.loads(found[1]) if found else {}  # by the page, of itself
        same = {"files": len(entries), "cells": len(wanted), "total": sum(wanted), "hits": hits, "outside": 0, "errors": 0}
        tool.check({**told, **same} == told, f"#{view}: {told}, not {same}")
        tool.check(told.get("canvas", 0) > 0 and abs(told["area"] - told["canvas"]) < 1, f"#{view}: the cells do not cover it: {told}")
        tool.check("<h1>What fills" in text and re.search("<title>What fills", text), f"#{view}: a name acted")


if __name__ == "__main__":
    if sys.argv[1] == "--browser":
        sys.argv.pop(1)
        kit.main([in_a_browser])
    kit.main([data_is_what_packs_list, tables, size_and_failures])
