#!/usr/bin/env python3
"""Runs the examples of the adapters over a pack, a good one and a damaged one.

usage: adapters_test.py EXAMPLE PROGRAM [EMULATOR]
"""
import glob
import os
import random
import struct
import subprocess
import sys
import zipfile

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../support"))
import complaints

FONTS = glob.glob("/usr/share/fonts/**/*.ttf", recursive=True)[:1]
WIDTH, HEIGHT, PIXEL = 61, 40, (10, 20, 30)
TEXTS = {"lines.txt": "one\n\nthree\nfour", "scripts/greet.lua": "return function(who) return 'hello ' .. who end",
         "scripts/deep/well/init.lua": "return {depth = 7}", "scripts/broken.lua": "return return"}
LUA_GOOD = (
    'assert(require("greet")("you") == "hello you" and require("deep.well").depth == 7 and package.loaded.greet)',
    'local ok, why = pcall(require, "none.such") assert(not ok and why:find("no file \'scripts/none/such.lua\'", 1, true), why)',
    'assert(why == nil) local ok, why = pcall(require, "broken") assert(not ok and why:find("scripts/broken.lua:1", 1, true), why)',
    'local f, why, code = enginefs.open("nowhere") assert(f == nil and code == 1 and #why > 0)',
    'assert(enginefs.exists("lines.txt") and not enginefs.exists("nowhere"))',
    'local f = enginefs.open("lines.txt") assert(f:read() == "one" and f:read("*l") == "" and f:read(2) == "th") '
    'assert(f:seek() == 7 and f:read("a") == "ree\\nfour" and f:read("a") == "" and f:read() == nil and f:read(1) == nil) '
    'assert(f:seek("set", 4) == 4) local all = {} for line in f:lines() do all[#all + 1] = line end '
    'assert(table.concat(all, "|") == "|three|four" and f:seek("end", -4) == 11 and f:read() == "four") '
    'assert(f:seek("set", -1) == nil) f:close() f:close() assert(not pcall(f.read, f) and not pcall(f.lines, f))',
)


def bmp():
    row = bytes(reversed(PIXEL)) * WIDTH
    rows = (row + b"\0" * (-len(row) % 4)) * HEIGHT
    return struct.pack("<2sIIIIiiHHIIIIII", b"BM", 54 + len(rows), 0, 54, 40, WIDTH, HEIGHT, 1, 24, 0, len(rows), 0, 0, 0, 0) + rows


def tga():
    """With an identification, which a reader skips."""
    return struct.pack("<BBB5xHHHHBB", 255, 0, 2, 0, 0, WIDTH, HEIGHT, 24, 32) + bytes(255) + bytes(reversed(PIXEL)) * WIDTH * HEIGHT


class Examples(complaints.Complaints):
    """An example over good.pak, or over bad.pak: of its deflated.bin one byte in the middle is another."""

    def __init__(self, where, command):
        super().__init__(where)
        self.command = command
        # A Windows program names the disk under Wine by its letter.
        self.native = "Z:" + where if command[0] != command[-1] and command[-1].endswith(".exe") else where
        numbers = random.Random(7)
        data = b"".join(bytes(numbers.randrange(256) for _ in range(100)) * 3 for _ in range(2000))
        os.mkdir(self.path("root"))
        self.write("plain.bin", data)
        with zipfile.ZipFile(self.path("good.pak"), "w", zipfile.ZIP_DEFLATED) as pack:
            pack.writestr("stored.bin", data, zipfile.ZIP_STORED)
            for name, content in {"deflated.bin": data, "sky.bmp": bmp(), "sky.tga": tga(), **TEXTS}.items():
                pack.writestr(name, content)
            for font in FONTS:
                pack.write(font, "font.ttf")
            entry = pack.getinfo("deflated.bin")
        damaged = bytearray(self.read("good.pak"))
        damaged[entry.header_offset + 100 + entry.compress_size // 2] ^= 0xFF
        self.write("bad.pak", damaged)

    def run(self, pack, arguments, status=0, out="", err=""):
        words = [*self.command, f"{self.native}/root", f"{self.native}/{pack}", *arguments]
        result = subprocess.run(words, capture_output=True, text=True, check=False, timeout=120)
        self.runs += 1
        self.check(result.returncode == status and out in result.stdout and err in result.stderr,
                   f"{arguments}: status {result.returncode}, not {status}; wanted {out!r} and {err!r}\n{result.stdout}{result.stderr}")


def run_example(example, examples):
    run, plain = examples.run, f"{examples.native}/plain.bin"
    if example == "istream":
        for name in ("stored.bin", "deflated.bin"):
            run("good.pak", [name, plain], out="300 places and the whole are the same")
        run("bad.pak", ["deflated.bin", plain], 1, err="deflated.bin: ")
        run("good.pak", ["nowhere", plain], 1, err="nowhere: No source holds")
    elif example == "sdl3":
        run("bad.pak", ["deflated.bin"], 1, err="deflated.bin: ")
        run("good.pak", ["nowhere"], 1, err="nowhere: ")
        run("good.pak", ["lines.txt"], out=f"the last byte is {ord('r')}")
        examples.is_file("root/copy", TEXTS["lines.txt"].encode())
    elif example in ("sdl2", "stb_image", "imgui"):
        size_and_pixel = f"{WIDTH} x {HEIGHT}, the first pixel is {' '.join(map(str, PIXEL))}"
        name = {"sdl2": "sky.bmp", "stb_image": "sky.tga", "imgui": "font.ttf"}[example]
        run("good.pak", [name], out="A is there" if example == "imgui" else size_and_pixel)
        run("good.pak", ["nowhere"], 1, err="nowhere")
    else:
        for code in LUA_GOOD:
            run("good.pak", [code])
        run("bad.pak", ['assert(enginefs.load("deflated.bin"))'], 1, err="deflated.bin")


def main(example, program, *emulator):
    if example == "imgui" and not FONTS:
        return print("not available: a font")
    complaints.main(lambda where: Examples(where, [*filter(None, emulator), program]), lambda examples: run_example(example, examples))


if __name__ == "__main__":
    main(*sys.argv[1:])
