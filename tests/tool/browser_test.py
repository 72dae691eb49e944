#!/usr/bin/env python3
"""Opens pages of "enginefs report" in a headless browser and holds the figures that they tell against what packs hold.

usage: browser_test.py PROGRAM
"""
import json
import re
import shutil
import subprocess
import sys
import tempfile
import urllib.parse

import kit
import page_test

BROWSER = next(filter(None, map(shutil.which, ("chromium", "chromium-browser", "google-chrome"))), None)
OPTIONS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
           "--disable-component-update", "--disable-sync", "--window-size=1000,800", "--dump-dom"]


def document(address):
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        words = [BROWSER, *OPTIONS, f"--user-data-dir={profile}", address]
        return subprocess.run(words, capture_output=True, check=False, timeout=60).stdout.decode("utf-8", "replace")


def figures(tool, page, view):
    """What the page tells of itself in this view; its cells must cover the canvas, none outside, and nothing go wrong."""
    text = document(f"file://{tool.path(page)}#{view}")
    found = re.search(r'<output id="figures" hidden="">([^<]*)</output>', text)
    told = json.loads(found[1]) if found else {"errors": "no figures"}
    tool.check(told["errors"] == 0 and told["outside"] == 0, f"{page}#{view}: {told}")
    tool.check(told["canvas"] > 0 and abs(told["area"] - told["canvas"]) < 1, f"{page}#{view}: the cells do not cover it: {told}")
    tool.check("<h1>What fills" in text and re.search("<title>What fills", text), f"{page}#{view}: a name acted")
    return told


def hostile_names(tool):
    page_test.hostile_pack(tool)
    tool.run("report page.html --pack hostile.pak")
    entries = page_test.listed(tool, "hostile.pak") + [("Readme.txt", 6, 6)]
    pack, case = entries[:-1], [entry for entry in entries if entry[0].lower() == "mixed/case.txt"]
    hidden = "hide=hostile.pak/" + urllib.parse.quote(pack[0][0].split("/")[0]) + ",hostile.pak/mixed"
    for view, wanted, hits in (
            ("", [entry[2] for entry in entries], 0),
            ("at=hostile.pak/Mixed&size=unpacked&find=case", [case[0][1]], 1),
            ("at=%zz&size=odd&hide=nowhere&colour=access", [entry[2] for entry in entries], 0),
            ("size=unpacked&colour=ratio&find=.TXT&" + hidden, [entry[1] for entry in entries if entry not in (pack[0], case[1])], 7)):
        told = figures(tool, "page.html", view)
        seen = {key: told.get(key) for key in ("files", "cells", "total", "hits")}
        same = {"files": len(entries), "cells": len(wanted), "total": sum(wanted), "hits": hits}
        tool.check(seen == same, f"#{view}: {seen}, not {same}")


if __name__ == "__main__":
    if BROWSER is None or "live" not in document("data:text/html,<p>live"):
        print("not available: no browser of the Chromium kind that starts")
        sys.exit(0)
    kit.main([hostile_names])
