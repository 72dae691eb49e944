#!/usr/bin/env python3
"""The library exports exactly the names of exported_names.txt, each of which is a function, a variable, a class, or a
member of a listed class that callers rely on.

Every symbol must be one of the list or a member of a class in it, and every name of the list must have a symbol.

usage: exported_names.py ROOT LIBRARY        (libengine_filesystem.so or engine_filesystem.dll)
"""
import collections
import os
import re
import subprocess
import sys

import sources


def run(*command, data=None):
    return subprocess.run(command, input=data, capture_output=True, check=True, text=True).stdout


def exported_symbols(library):
    if library.endswith(".dll"):
        table = run("x86_64-w64-mingw32-objdump", "-p", library).partition("[Ordinal/Name Pointer] Table")[2]
        return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+[0-9a-f]+\s+)?(\S+)$", table.partition("\n\n")[0], re.M)
    return [line.split()[-1] for line in run("nm", "-D", "--defined-only", library).splitlines()]


def plain(symbol):
    """The qualified name of a demangled symbol, without its kind in front and the parameters that thunks have."""
    return re.sub(r"^.* (?:for|to) |\(.*", "", symbol).replace("[abi:cxx11]", "")


def owner(name, listed):
    """The listed name that a symbol belongs to: itself, or the class that it is a member of."""
    parts = name.split("::")
    candidates = ("::".join(parts[:length]) for length in range(len(parts), 0, -1))
    return next((candidate for candidate in candidates if candidate in listed), None)


def main(root, library):
    with open(os.path.join(root, "tests", "checks", "exported_names.txt"), encoding="utf-8") as text:
        listed = collections.Counter(line.strip() for line in text if line.strip() and not line.startswith("#"))
    complaints = [f"{name} is listed {count} times" for name, count in listed.items() if count > 1]
    if not os.path.isfile(library):
        sources.finish("exported_names", [f"{library} is not built"])
    met = set()
    for symbol in run("c++filt", "--no-params", data="\n".join(exported_symbols(library))).splitlines():
        found = owner(plain(symbol), listed)
        met |= {plain(symbol), found}
        # MinGW's compiler exports the type information of bases and children of marked classes, and of what is caught
        # beside them. A caller cannot name it, and nothing turns it off.
        if found is None and not (library.endswith(".dll") and symbol.startswith("typeinfo for ")):
            complaints.append(f"{symbol} is exported, but not listed")
    complaints += [f"{name} is listed, but not in the symbol table" for name in sorted(set(listed) - met)]
    sources.finish("exported_names", complaints)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
