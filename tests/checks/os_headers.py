#!/usr/bin/env python3
"""Only the folders of engine/platform that are for one system may include an operating system's header.

Everything else may include the C++ and C libraries, our own headers and the libraries named below; a header that is in
none of these groups is taken for an operating system's, or a processor's.

usage: os_headers.py ROOT
"""
import os
import sys

import sources

STANDARD = set("""
algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes climits clocale
cmath compare complex concepts condition_variable coroutine csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring
ctime cuchar cwchar cwctype deque exception execution filesystem format forward_list fstream functional future
initializer_list iomanip ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource mutex new
numbers numeric optional ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex source_location
span sstream stack stdexcept stop_token streambuf string string_view syncstream system_error thread tuple type_traits
typeindex typeinfo unordered_map unordered_set utility valarray variant vector version
assert.h ctype.h errno.h float.h inttypes.h limits.h math.h stdarg.h stddef.h stdint.h stdio.h stdlib.h string.h time.h
wchar.h wctype.h
""".split())
LIBRARIES = {"engine/": ("zlib.h", "miniz.h", "libdeflate.h", "igzip_lib.h", "crc.h", "zstd.h"), "tools/": ("CLI/", "nlohmann/", "zlib.h", "libdeflate.h")}
SYSTEM_FOLDERS = ("engine/platform/posix/", "engine/platform/linux/", "engine/platform/windows/",
                  "tools/enginefs/terminal.cpp")


def allowed(path, name):
    if name in STANDARD or name.startswith("engine/"):
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
    return any(os.path.isfile(place) for place in (beside, os.path.join(root, name), os.path.join(root, "include", name)))


if __name__ == "__main__":
    main(sys.argv[1])
