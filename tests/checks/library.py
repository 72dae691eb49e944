#!/usr/bin/env python3
"""What a built library shows to others.

    library.py names ROOT LIBRARY                       (libengine_filesystem.so or engine_filesystem.dll)
        It exports exactly what the public headers mark: every symbol is a marked name or a member of a marked class, and
        every marked name has a symbol. The headers mark every function that they do not define, unless it is a detail.
    library.py needs FILE...                            (of Windows)
        They need nothing but Windows' own DLLs and the library beside them.
    library.py abi ROOT LIBRARY COMPILER [--renew]
        The C interface is as it was promised: its names, with their version, and its types are those of the stored dump.
        The dump is of the header alone: a stub that defines what it declares is compiled with debug information, which the
        library has not. Additions fail too, until --renew has put them into the dump; look at what it changes.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

NAMESPACE = re.compile(r"^namespace ([\w:]+) {")
CLASS = re.compile(r"^(?:class|struct) (ENGINE_FS_API )?(?:ENGINE_CAPABILITY\(\S+\) )?(\w+)[^;]*$")
MARKED = re.compile(r"^( *)ENGINE_FS_API [^(]*?(\w+)\(")
UNMARKED = re.compile(r"^(    )?(?!ENGINE|inline|constexpr|virtual|template|using|typedef|return|class|struct)\w[\w:<>*&, ]* [*&]*(\w+)\([^{=]*;")
WINDOWS = {"kernel32.dll", "msvcrt.dll", "user32.dll", "advapi32.dll", "shell32.dll", "ole32.dll", "dbghelp.dll", "ntdll.dll",
           "version.dll", "ws2_32.dll"}
DECLARATION = re.compile(r"^ENGINE_FS_API ([^;]*?(\w+)\([^;]*\));", re.M)
DUMP_OPTIONS = ("--load-all-types", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--no-elf-needed",
                "--no-architecture", "--type-id-style", "hash")


def run(*command, **options):
    return subprocess.run(command, capture_output=True, check=True, text=True, **options).stdout


def exported_symbols(library):
    """With their versions, where they have any."""
    if library.endswith(".dll"):
        table = run("x86_64-w64-mingw32-objdump", "-p", library).partition("[Ordinal/Name Pointer] Table")[2]
        return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+[0-9a-f]+\s+)?(\S+)$", table.partition("\n\n")[0], re.M)
    return [line.split()[-1] for line in run("nm", "-D", "--defined-only", library).splitlines()]


def scan_header(path, marked):
    """Adds the names that it marks, and tells of functions that it neither defines nor marks."""
    namespace, class_name, is_whole = "", "", False
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
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


def plain(symbol):
    """The qualified name of a demangled symbol, without its kind in front and the parameters that thunks have."""
    return re.sub(r"^.* (?:for|to) |\(.*", "", symbol).replace("[abi:cxx11]", "")


def owner(name, marked):
    """The marked name that a symbol belongs to: itself, or the class that it is a member of."""
    parts = name.split("::")
    candidates = ("::".join(parts[:length]) for length in range(len(parts), 0, -1))
    return next((candidate for candidate in candidates if candidate in marked), None)


def check_names(root, library):
    marked, met = set(), set()
    for path in sorted(pathlib.Path(root, "include").rglob("*.h")):
        yield from scan_header(path, marked)
    symbols = [symbol.partition("@")[0] for symbol in exported_symbols(library) if not symbol.startswith("ENGINEFS_")]  # not the versions
    for symbol in run("c++filt", "--no-params", input="\n".join(symbols)).splitlines():
        found = owner(plain(symbol), marked)
        met |= {plain(symbol), found}
        # MinGW's compiler exports the type information of bases and children of marked classes, and of what is caught
        # beside them. A caller cannot name it, and nothing turns it off.
        if found is None and not (library.endswith(".dll") and symbol.startswith("typeinfo for ")):
            yield f"{symbol} is exported, but not marked"
    yield from (f"{name} is marked, but not in the symbol table" for name in sorted(marked - met))


def check_needs(*files):
    for file in files:
        needed = {name.lower() for name in re.findall(r"DLL Name: (\S+)", run("x86_64-w64-mingw32-objdump", "-p", file))}
        yield from (f"{file} needs {name}" for name in sorted(needed - WINDOWS - {"engine_filesystem.dll"}))


def dump(root, compiler, declarations, folder):
    stub, library, result = (os.path.join(folder, name) for name in ("enginefs.c", "enginefs.so", "enginefs.abi"))
    with open(stub, "w", encoding="utf-8") as out:
        out.write("#include <engine/filesystem_c.h>\n")
        out.writelines(f"{declaration} {{ __builtin_trap(); }}\n" for declaration in declarations)
    run(compiler, "-std=c99", "-g", "-fno-eliminate-unused-debug-types", "-shared", "-fPIC", f"-I{root}/include",
        f"-ffile-prefix-map={folder}=.", "-Wl,-soname,libengine_filesystem.so.1",
        f"-Wl,--version-script={root}/cmake/exports.map", stub, "-o", library)
    run("abidw", *DUMP_OPTIONS, "--out-file", result, library)
    return result


def check_abi(root, library, compiler, *renew):
    if not all(map(shutil.which, ("abidw", "abidiff", "nm"))):
        print("not available: abidw and abidiff (in the package abigail-tools)")
        sys.exit(77)
    found = DECLARATION.findall(pathlib.Path(root, "include/engine/filesystem_c.h").read_text(encoding="utf-8"))
    exported = exported_symbols(library)
    yield from (f"{name} is not exported in its version" for _, name in found if name + "@@ENGINEFS_1" not in exported)
    stored = os.path.join(root, "packaging/ENGINEFS_1.abi")
    with tempfile.TemporaryDirectory() as folder:
        fresh = dump(root, compiler, [declaration for declaration, _ in found], folder)
        if renew:
            shutil.copyfile(fresh, stored)
        difference = subprocess.run(["abidiff", "--non-reachable-types", "--harmless", stored, fresh], capture_output=True, check=False, text=True)
        if difference.returncode != 0:
            yield difference.stdout + difference.stderr + "what was promised has changed"


def main(what, *words):
    complaints = list({"names": check_names, "needs": check_needs, "abi": check_abi}[what](*words))
    print(*complaints, f"{what}: {len(complaints)} complaint(s)", sep="\n")
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main(*sys.argv[1:])
