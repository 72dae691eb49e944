#!/usr/bin/env python3
"""Only the folders of engine/platform that are for one system may include an operating system's header.

Everything else may include the C++ and C libraries, our own headers and the libraries named below; a header that is in
none of these groups is taken for an operating system's, or a processor's.

usage: os_headers.py ROOT
"""
import os
import sys

import sources

# A header of C++ has neither a directory nor an ending.
C_HEADERS = {name + ".h" for name in ("assert ctype errno float inttypes limits math stdarg stddef stdint stdio stdlib string "
                                      "time wchar wctype").split()}
LIBRARIES = {"engine/": ("zlib.h", "miniz.h", "libdeflate.h", "igzip_lib.h", "crc.h", "zstd.h"), "tools/": ("CLI/", "nlohmann/", "zlib.h", "libdeflate.h"),
             "examples/adapters/": ("SDL.h", "SDL3/SDL.h", "lua.h", "lauxlib.h", "lualib.h", "stb_image.h", "imgui.h")}
SYSTEM_FOLDERS = ("engine/platform/posix/", "engine/platform/linux/", "engine/platform/windows/",
                  "tools/enginefs/terminal.cpp", "tools/enginefs/mount/fuse/")


def allowed(path, name):
    if name.isidentifier() or name in C_HEADERS or name.startswith("engine/"):
        return True
    return any(path.startswith(folder) and name.startswith(libraries) for folder, libraries in LIBRARIES.items())


def main(root):
    complaints = []
    for path in sources.files(root, "engine", "include", "tools", "examples"):
        if path.startswith(SYSTEM_FOLDERS):
            continue
        for line, kind, name in sources.includes(root, path):
            ours = kind == '"' and is_file_of_ours(root, path, name)
            if not ours and not allowed(path, name):
                complaints.append(f"{path}:{line}: {name} is an operating system's header, or is not known to this check")
    sources.finish("os_headers", complaints)


def is_file_of_ours(root, path, name):
    beside = os.path.join(root, os.path.dirname(path), name)
    return any(os.path.isfile(place) for place in (beside, *(os.path.join(root, top, name) for top in ("", "include", "tools/enginefs"))))


if __name__ == "__main__":
    main(sys.argv[1])
