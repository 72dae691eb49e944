#!/usr/bin/env python3
"""What no compiler sees in the tree.

A folder is a layer: a file includes only from its own layer or a lower one, and never in a circle. A public header belongs
to the layer of the room that it is named after. tools/, examples/ and modules/ see the public headers alone. Only the
folders that are for one system may include its headers, or a processor's: what is neither ours, nor of C or C++, nor of a
library named below is taken for one.

The project speaks of itself alone: no file and no commit message points to papers that a reader does not have.

usage: tree.py ROOT
"""
import graphlib
import os
import pathlib
import re
import subprocess
import sys

ROOMS = {"formats": 1.5, "log": 1.5, "contract": 2, "registry": 3, "access": 4, "handles": 5, "loading": 5, "watch": 5, "streams": 6,
         "sources": 7, "containers": 7, "startup": 8, "c_interface": 8.5}
# Public headers that are named after no room: marks and declarations that every room needs.
OTHERS = {"include/engine/filesystem/api.h": 0, "include/engine/kernel/thread_annotations.h": 0, "include/engine/kernel/lock.h": 0,
          "include/engine/filesystem/request.h": 2, "include/engine/filesystem/pack_reader.h": 2,
          "include/engine/filesystem_c.h": 8.5, "include/engine/filesystem.h": 9, "include/engine/filesystem/comfort.h": 9}
ROOM = re.compile(r"^(?:include/)?engine/filesystem/([a-z_]+)(?:\.h$|/)")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
# A header of C++ has neither a directory nor an ending.
C_HEADERS = {name + ".h" for name in ("assert ctype errno float inttypes limits math stdarg stddef stdint stdio stdlib string "
                                      "time wchar wctype").split()}
LIBRARIES = {"engine/": ("zlib.h", "miniz.h", "libdeflate.h", "igzip_lib.h", "crc.h", "zstd.h"),
             "tools/": ("CLI/", "nlohmann/", "zlib.h", "libdeflate.h"),
             "examples/adapters/": ("SDL.h", "SDL3/SDL.h", "lua.h", "lauxlib.h", "lualib.h", "stb_image.h", "imgui.h")}
SYSTEM_FOLDERS = ("engine/platform/posix/", "engine/platform/linux/", "engine/platform/windows/", "modules/",
                  "tools/enginefs/terminal.cpp", "tools/enginefs/mount/fuse/")
# Written in pieces, so that this file does not complain of itself.
PAPERS = "|".join((r"(?i:\bspeci" + r"fications?\b)", r"(?i:\bspec" + r"\.md\b)", r"(?i:\b(?:the|our|this) spe" + r"c\b)",
                   r"\bPar" + r"ts? \d+\.\d+", r"(?i:\biss" + r"ues? #?\d+\b)"))


def layer(path):
    """The layer of a file, or None when it has none. The kernel stands under the log: it never logs."""
    if path in OTHERS:
        return OTHERS[path]
    if path.startswith("engine/platform/"):
        return 0
    if path.startswith(("engine/kernel/", "include/engine/kernel/")):
        return 1
    if path.startswith(("tools/", "examples/", "modules/", "include/engine/adapters/")):
        return 9
    room = ROOM.match(path)
    return ROOMS.get(room[1]) if room else None


def resolve(known, path, kind, name):
    beside = os.path.normpath(os.path.join(os.path.dirname(path), name)).replace(os.sep, "/")
    places = (["include/" + name, "modules/http/include/" + name] if kind == "<" else
              [beside, name, "include/" + name, "tools/enginefs/" + name])
    return next((place for place in places if place in known), None)


def allowed(path, name):
    return path.startswith(SYSTEM_FOLDERS) or name.isidentifier() or name in C_HEADERS or any(
        path.startswith(folder) and name.startswith(libraries) for folder, libraries in LIBRARIES.items())


def check_file(root, known, path, graph):
    graph[path] = []
    if layer(path) is None:
        yield f"{path}: belongs to no layer; tests/checks/tree.py names them"
        return
    for line, text in enumerate((root / path).read_text(encoding="utf-8", errors="replace").splitlines(), 1):
        if not (include := INCLUDE.match(text)):
            continue
        name, target = include[2], resolve(known, path, *include.groups())
        if target is None:
            if name.startswith("engine/"):
                yield f"{path}:{line}: {name} is not in the tree"
            elif not allowed(path, name):
                yield f"{path}:{line}: {name} is an operating system's header, or is not known to this check"
            continue
        graph[path].append(target)
        if (layer(target) or 0) > layer(path):
            yield f"{path}:{line}: layer {layer(path)} includes {target} of layer {layer(target)}"
        if path.startswith(("tools/", "examples/", "modules/", "include/")) and target.startswith("engine/"):
            yield f"{path}:{line}: includes {target}, which is private"


def check_layers(root):
    known, graph = set(), {}
    for folder in ("engine", "include", "tools", "examples", "modules"):
        known |= {path.relative_to(root).as_posix() for path in (root / folder).rglob("*") if path.suffix in (".h", ".hpp", ".cpp", ".c", ".inc")}
    for path in sorted(known):
        yield from check_file(root, known, path, graph)
        if "include/" + path in known:
            yield f"{path}: a public header is included by the same words"
    try:
        tuple(graphlib.TopologicalSorter(graph).static_order())
    except graphlib.CycleError as error:
        yield "circle: " + " -> ".join(error.args[1])


def git(root, *words):
    result = subprocess.run(["git", "-C", root, *words], capture_output=True, check=False)
    return result.returncode, result.stdout.decode("utf-8", "replace").splitlines()


def check_words(root):
    # Without an index, so that a tree without its history is read too; what is built or fetched is left out.
    status, found = git(root, "grep", "--no-index", "--exclude-standard", "-InP", PAPERS, "--", ".", ":!build", ":!.deps")
    yield from found if status <= 1 else ["git cannot read the tree"]
    yield from git(root, "log", "--format=commit %h: %s", "-P", f"--grep={PAPERS}")[1]


def main(root):
    complaints = [*check_layers(root), *check_words(root)]
    print(*complaints, f"tree: {len(complaints)} complaint(s)", sep="\n")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main(pathlib.Path(sys.argv[1]))
