#!/usr/bin/env python3
"""The library exports exactly what the public headers mark, and they mark every function that they do not define, unless
it is a detail.

Every symbol must be a marked name or a member of a marked class, and every marked name must have a symbol.

usage: exported_names.py ROOT LIBRARY        (libengine_filesystem.so or engine_filesystem.dll)
"""
import os
import re
import subprocess
import sys

import sources

NAMESPACE = re.compile(r"^namespace ([\w:]+) {")
CLASS = re.compile(r"^(?:class|struct) (ENGINE_FS_API )?(?:ENGINE_CAPABILITY\(\S+\) )?(\w+)[^;]*$")
MARKED = re.compile(r"^( *)ENGINE_FS_API [^(]*?(\w+)\(")
UNMARKED = re.compile(r"^(    )?(?!ENGINE|inline|constexpr|virtual|template|using|typedef|return|class|struct)\w[\w:<>*&, ]* [*&]*(\w+)\([^{=]*;")


def run(*command, data=None):
    return subprocess.run(command, input=data, capture_output=True, check=True, text=True).stdout


def exported_symbols(library):
    if library.endswith(".dll"):
        table = run("x86_64-w64-mingw32-objdump", "-p", library).partition("[Ordinal/Name Pointer] Table")[2]
        return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+[0-9a-f]+\s+)?(\S+)$", table.partition("\n\n")[0], re.M)
    symbols = [line.split()[-1] for line in run("nm", "-D", "--defined-only", library).splitlines()]
    return [symbol.partition("@")[0] for symbol in symbols if not symbol.startswith("ENGINEFS_")]  # not the versions


def plain(symbol):
    """The qualified name of a demangled symbol, without its kind in front and the parameters that thunks have."""
    return re.sub(r"^.* (?:for|to) |\(.*", "", symbol).replace("[abi:cxx11]", "")


def scan_header(path, header, marked):
    """Adds the names that it marks, and tells of functions that it neither defines nor marks."""
    namespace, class_name, is_whole = "", "", False
    for number, line in enumerate(header, 1):
        if match := NAMESPACE.match(line):
            namespace = match[1] + "::"
        elif line.startswith("}  // namespace"):
            namespace = ""
        elif match := CLASS.match(line):
            class_name, is_whole = namespace + match[2], match[1] is not None
            marked |= {class_name} if is_whole else set()
        elif match := MARKED.match(line):
            marked.add((class_name + "::" if match[1] else namespace) + match[2])
        elif (match := UNMARKED.match(line)) and not (match[1] and is_whole) and "detail::" not in namespace:
            yield f"{path}:{number}: {match[2]} is not marked"


def owner(name, marked):
    """The marked name that a symbol belongs to: itself, or the class that it is a member of."""
    parts = name.split("::")
    candidates = ("::".join(parts[:length]) for length in range(len(parts), 0, -1))
    return next((candidate for candidate in candidates if candidate in marked), None)


def main(root, library):
    marked, complaints = set(), []
    for path in sources.files(root, "include"):
        with open(os.path.join(root, path), encoding="utf-8") as header:
            complaints += scan_header(path, header, marked)
    if not os.path.isfile(library):
        sources.finish("exported_names", [f"{library} is not built"])
    met = set()
    for symbol in run("c++filt", "--no-params", data="\n".join(exported_symbols(library))).splitlines():
        found = owner(plain(symbol), marked)
        met |= {plain(symbol), found}
        # MinGW's compiler exports the type information of bases and children of marked classes, and of what is caught
        # beside them. A caller cannot name it, and nothing turns it off.
        if found is None and not (library.endswith(".dll") and symbol.startswith("typeinfo for ")):
            complaints.append(f"{symbol} is exported, but not marked")
    complaints += [f"{name} is marked, but not in the symbol table" for name in sorted(marked - met)]
    sources.finish("exported_names", complaints)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2])
