#!/usr/bin/env python3
"""The C interface is as it was promised: its names, with their version, and its types are those of the stored dump.

The dump is of the header alone: a stub that defines what it declares is compiled with debug information, which the
library has not. Additions fail too, until `--renew` has put them into the dump; look at what it changes.

usage: c_abi.py ROOT LIBRARY COMPILER [--renew]
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

import sources

HEADER = "include/engine/filesystem_c.h"
DUMP = "packaging/ENGINEFS_1.abi"
DECLARATION = re.compile(r"^ENGINE_FS_API ([^;]*?(\w+)\([^;]*\));", re.M)
DUMP_OPTIONS = ("--load-all-types", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--no-elf-needed",
                "--no-architecture", "--type-id-style", "hash")


def run(*command):
    return subprocess.run(command, capture_output=True, check=True, text=True).stdout


def check_names(library, declared):
    exported = {line.split()[-1] for line in run("nm", "-D", "--defined-only", library).splitlines()}
    return [f"{name} is not exported in its version" for name in declared if name + "@@ENGINEFS_1" not in exported]


def dump(root, compiler, declarations, folder):
    stub, library, result = (os.path.join(folder, name) for name in ("enginefs.c", "enginefs.so", "enginefs.abi"))
    with open(stub, "w", encoding="utf-8") as out:
        out.write("#include <engine/filesystem_c.h>\n")
        out.writelines(f"{declaration} {{ __builtin_trap(); }}\n" for declaration in declarations)
    run(compiler, "-std=c99", "-g", "-fno-eliminate-unused-debug-types", "-shared", "-fPIC", "-I",
        os.path.join(root, "include"), f"-ffile-prefix-map={folder}=.", "-Wl,-soname,libengine_filesystem.so.1",
        f"-Wl,--version-script={root}/cmake/exports.map", stub, "-o", library)
    run("abidw", *DUMP_OPTIONS, "--out-file", result, library)
    return result


def main(root, library, compiler, renews=False):
    if not all(map(shutil.which, ("abidw", "abidiff", "nm"))):
        print("c_abi: not available (abidw and abidiff are in the package abigail-tools)")
        return
    with open(os.path.join(root, HEADER), encoding="utf-8") as header:
        found = DECLARATION.findall(header.read())
    complaints = check_names(library, [name for _, name in found])
    stored = os.path.join(root, DUMP)
    with tempfile.TemporaryDirectory() as folder:
        fresh = dump(root, compiler, [declaration for declaration, _ in found], folder)
        if renews:
            shutil.copyfile(fresh, stored)
        difference = subprocess.run(["abidiff", "--non-reachable-types", "--harmless", stored, fresh], capture_output=True, check=False, text=True)
        if difference.returncode != 0:
            complaints.append(difference.stdout + difference.stderr + "what was promised has changed")
    sources.finish("c_abi", complaints)


if __name__ == "__main__":
    main(*sys.argv[1:4], "--renew" in sys.argv)
